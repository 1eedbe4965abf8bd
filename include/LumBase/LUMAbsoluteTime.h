/* LUMAbsoluteTime.h — wall-clock time as seconds since 2001-01-01 UTC.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMABSOLUTETIME_H
#define LUMBASE_LUMABSOLUTETIME_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef double LUMTimeInterval;
typedef double LUMAbsoluteTime;

/* Seconds from 1970-01-01 to 2001-01-01. */
LUM_EXPORT extern const LUMTimeInterval kLUMAbsoluteTimeIntervalSince1970;

/* The wall clock (gettimeofday) in seconds since 2001-01-01 00:00:00 UTC. */
LUM_EXPORT LUMAbsoluteTime LUMAbsoluteTimeGetCurrent(void);

LUM_EXTERN_C_END

#endif
