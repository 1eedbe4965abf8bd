/* LUMAbsoluteTime.cpp — the wall clock as seconds since 2001-01-01 UTC, and
 * Gregorian dates through the C library's timegm and gmtime.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMAbsoluteTime"
#include "LUMPrivate.h"

#include <LumBase/LUMAbsoluteTime.h>
#include <LumBase/LUMTimeZone.h>

#include <sys/time.h>
#include <time.h>

const LUMTimeInterval kLUMAbsoluteTimeIntervalSince1970 = 978307200.0;

Boolean _LUMAbsoluteTimeInitializeModule(void) { return true; }

LUMAbsoluteTime LUMAbsoluteTimeGetCurrent(void)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0 -
           kLUMAbsoluteTimeIntervalSince1970;
}

LUMAbsoluteTime LUMGregorianDateGetAbsoluteTime(LUMGregorianDate date, LUMTimeZoneRef tz)
{
    struct tm fields = {};
    fields.tm_year = date.year - 1900;
    fields.tm_mon = date.month - 1;
    fields.tm_mday = date.day;
    fields.tm_hour = date.hour;
    fields.tm_min = date.minute;
    fields.tm_sec = static_cast<int>(date.second); // the fraction is dropped on purpose
    LUMAbsoluteTime t = static_cast<double>(timegm(&fields)) - kLUMAbsoluteTimeIntervalSince1970;
    if (tz == nullptr) return t;
    // The offset at the wall-clock reading taken as UTC, not at the true
    // instant: near a transition this may be the other side's offset.
    return t - LUMTimeZoneGetSecondsFromGMT(tz, t);
}

LUMGregorianDate LUMAbsoluteTimeGetGregorianDate(LUMAbsoluteTime at, LUMTimeZoneRef tz)
{
    double offset = tz != nullptr ? LUMTimeZoneGetSecondsFromGMT(tz, at) : 0.0;
    // Truncation toward zero to a 32-bit time: instants before 1970 round up
    // toward 1970 and the fraction is lost, as on the reference target.
    time_t u = static_cast<time_t>(lum::truncatedToInt32(at + offset + kLUMAbsoluteTimeIntervalSince1970));
    const struct tm *fields = gmtime(&u);
    LUMGregorianDate date = {};
    if (fields == nullptr) return date;
    date.year = fields->tm_year + 1900;
    date.month = static_cast<int8_t>(fields->tm_mon + 1);
    date.day = static_cast<int8_t>(fields->tm_mday);
    date.hour = static_cast<int8_t>(fields->tm_hour);
    date.minute = static_cast<int8_t>(fields->tm_min);
    date.second = static_cast<double>(fields->tm_sec);
    return date;
}
