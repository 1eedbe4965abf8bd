/* Interpose.cpp — stand-ins for C library functions, defined in the test
 * executable so that the library's calls reach them: malloc (to see which
 * sizes the library asks for) and syslog (to read what it logs).
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cstdarg>
#include <cstdio>

namespace lumtest {

namespace {
bool gSpyOn = false;
size_t gSpySizes[256];
size_t gSpyCount = 0;
SyslogCapture gSyslog;
} // namespace

SyslogCapture &LastSyslog() { return gSyslog; }

#if defined(LUM_TEST_SANITIZED)
// The sanitizers own malloc; the spy stays out of their way.
bool MallocSpyAvailable() { return false; }
void StartMallocSpy() {}
std::vector<size_t> StopMallocSpy() { return {}; }
#else
// Under valgrind malloc is valgrind's own and the spy sees nothing.
bool MallocSpyAvailable() { return !UnderValgrind(); }
void StartMallocSpy()
{
    gSpyCount = 0;
    gSpyOn = true;
}
std::vector<size_t> StopMallocSpy()
{
    gSpyOn = false;
    return std::vector<size_t>(gSpySizes, gSpySizes + gSpyCount);
}
#endif

} // namespace lumtest

#if !defined(LUM_TEST_SANITIZED)
extern "C" void *__libc_malloc(size_t size);
extern "C" void *malloc(size_t size)
{
    if (lumtest::gSpyOn && lumtest::gSpyCount < 256) lumtest::gSpySizes[lumtest::gSpyCount++] = size;
    return __libc_malloc(size);
}
#endif

extern "C" void syslog(int priority, const char *format, ...)
{
    char buffer[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    lumtest::gSyslog.priority = priority;
    lumtest::gSyslog.message = buffer;
    lumtest::gSyslog.calls++;
}
