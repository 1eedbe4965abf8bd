/* LUMMachTime.cpp — the monotonic clock in microseconds since boot.
 * Part of LumBase; MIT licence.
 *
 * __machTimeBaseAbsoluteTime is the wall-clock time at which the tick count
 * was zero (boot, from /proc/uptime); ticks are the wall clock's distance
 * from it. __machTimeLastAbsoluteTime is the previous wall-clock reading: a
 * reading before it, or more than five seconds after it, means the wall
 * clock was set, and the base is read again. */
#define LUM_SOURCE_FILE "src/LUMMachTime"
#include "LUMPrivate.h"

#include <LumBase/LUMMachTime.h>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr double kMicrosecondsPerSecond = 1000000.0;
constexpr double kClockJumpSeconds = 5.0;

LUMAbsoluteTime __machTimeBaseAbsoluteTime = 0.0;
LUMAbsoluteTime __machTimeLastAbsoluteTime = 0.0;

LUMMachTime __LUMMachTimeGetWithTimeInterval(LUMTimeInterval interval)
{
    return static_cast<LUMMachTime>(interval * kMicrosecondsPerSecond); // truncation toward zero
}

LUMTimeInterval __LUMMachTimeGetTimeInterval(LUMMachTime a, LUMMachTime b)
{
    return static_cast<double>(a - b) / kMicrosecondsPerSecond;
}

} // namespace

void _LUMMachTimeInitializeValues(LUMAbsoluteTime now, Boolean initial)
{
    LUMAbsoluteTime base = __machTimeBaseAbsoluteTime;
    int fd = open("/proc/uptime", O_RDONLY);
    if (fd >= 0) {
        char buffer[128];
        ssize_t count = read(fd, buffer, 127);
        if (count < 1 || count > 127) LUM_FATAL_AT(63, "Unable to read system uptime");
        buffer[count] = '\0';
        base = now - strtod(buffer, nullptr);
        close(fd);
    } else if (initial) {
        base = now; // no uptime: ticks count from library start
    }
    if (!initial) {
        static constexpr char kWarning[] = "\n\nWARNING: Reinitializing LUMMachTime values...\n\n";
        fwrite(kWarning, 1, sizeof(kWarning) - 1, stderr);
    }
    __machTimeBaseAbsoluteTime = base;
    __machTimeLastAbsoluteTime = now;
}

Boolean _LUMMachTimeInitializeModule(void)
{
    _LUMMachTimeInitializeValues(LUMAbsoluteTimeGetCurrent(), true);
    return true;
}

LUMMachTime LUMMachTimeGetCurrent(void)
{
    LUMAbsoluteTime now = LUMAbsoluteTimeGetCurrent();
    if (now < __machTimeLastAbsoluteTime || now > __machTimeLastAbsoluteTime + kClockJumpSeconds) {
        _LUMMachTimeInitializeValues(now, false);
    } else {
        __machTimeLastAbsoluteTime = now;
    }
    return __LUMMachTimeGetWithTimeInterval(now - __machTimeBaseAbsoluteTime);
}

LUMTimeInterval LUMMachTimeGetInterval(LUMMachTime later, LUMMachTime earlier)
{
    return __LUMMachTimeGetTimeInterval(later, earlier);
}

LUMMachTime LUMMachTimeGetRelativeWithInterval(LUMMachTime base, LUMTimeInterval interval)
{
    return base + __LUMMachTimeGetWithTimeInterval(interval);
}
