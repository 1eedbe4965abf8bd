/** @file LUMAbsoluteTime.h — wall-clock time as seconds since 2001-01-01 UTC.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMABSOLUTETIME_H
#define LUMBASE_LUMABSOLUTETIME_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef double LUMTimeInterval; /**< A span of time in seconds. */
typedef double LUMAbsoluteTime; /**< Seconds since 2001-01-01 00:00:00 UTC. */

/** Seconds from 1970-01-01 to 2001-01-01. */
LUM_EXPORT extern const LUMTimeInterval kLUMAbsoluteTimeIntervalSince1970;

/** A calendar date in the Gregorian calendar, by value. */
typedef struct {
    int32_t year;   /**< full year, e.g. 2024 */
    int8_t month;   /**< 1 to 12 */
    int8_t day;     /**< 1 to 31 */
    int8_t hour;    /**< 0 to 23 */
    int8_t minute;  /**< 0 to 59 */
    double second; /**< 0 to below 60, with a fraction */
} LUMGregorianDate;

/** The wall clock (gettimeofday) in seconds since 2001-01-01 00:00:00 UTC. */
LUM_EXPORT LUMAbsoluteTime LUMAbsoluteTimeGetCurrent(void);

/** The instant of a calendar date in tz (NULL means UTC), through timegm. The
 * fraction of the second is dropped, so the result is a whole second;
 * out-of-range fields roll over as timegm rolls them. The zone's offset is
 * looked up at the wall-clock reading taken as if it were UTC, so near a
 * transition it may be the other side's offset. */
LUM_EXPORT LUMAbsoluteTime LUMGregorianDateGetAbsoluteTime(LUMGregorianDate date, LUMTimeZoneRef tz);

/** The calendar date of an instant in tz (NULL means UTC), through gmtime on a
 * time_t truncated toward zero: the second is always whole, and instants
 * before 1970 round up toward 1970. */
LUM_EXPORT LUMGregorianDate LUMAbsoluteTimeGetGregorianDate(LUMAbsoluteTime at, LUMTimeZoneRef tz);

LUM_EXTERN_C_END

#endif
