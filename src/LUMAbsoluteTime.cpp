/* LUMAbsoluteTime.cpp — the wall clock as seconds since 2001-01-01 UTC.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMAbsoluteTime"
#include "LUMPrivate.h"

#include <LumBase/LUMAbsoluteTime.h>

#include <sys/time.h>


const LUMTimeInterval kLUMAbsoluteTimeIntervalSince1970 = 978307200.0;

Boolean _LUMAbsoluteTimeInitializeModule(void) { return true; }

LUMAbsoluteTime LUMAbsoluteTimeGetCurrent(void)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0 -
           kLUMAbsoluteTimeIntervalSince1970;
}

