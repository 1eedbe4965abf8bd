/** @file LUMMachTime.h — the monotonic clock: microseconds since system boot,
 * anchored once on /proc/uptime and carried forward on the wall clock.
 * Part of LumBase; MIT licence.
 *
 * A wall-clock reading that goes backwards, or more than five seconds
 * forwards, since the previous reading counts as the clock being set: the
 * anchor is read again from /proc/uptime and a warning goes to standard
 * error. So a process that reads this clock less often than every five
 * seconds re-anchors (and warns) on each read. */
#ifndef LUMBASE_LUMMACHTIME_H
#define LUMBASE_LUMMACHTIME_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

/** Signed 64-bit microseconds. */
typedef int64_t LUMMachTime;

/** The monotonic clock now, in microseconds (see the file notes on re-anchoring). */
LUM_EXPORT LUMMachTime LUMMachTimeGetCurrent(void);
/** (later - earlier) in seconds. */
LUM_EXPORT LUMTimeInterval LUMMachTimeGetInterval(LUMMachTime later, LUMMachTime earlier);
/** base plus interval, the interval truncated toward zero to microseconds. */
LUM_EXPORT LUMMachTime LUMMachTimeGetRelativeWithInterval(LUMMachTime base, LUMTimeInterval interval);

LUM_EXTERN_C_END

#endif
