/* LUMTestSupport.h — shared helpers of LumBase's tests: running code in a
 * child process, expected assertion and fatal frames, string conversion and
 * small counting allocators.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_TESTS_SUPPORT_H
#define LUMBASE_TESTS_SUPPORT_H

#include <LumBase.h>
#include <LumBase/LUMInternal.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace lumtest {

struct ChildResult {
    int exitStatus = -1; // -1 when the child did not exit normally
    std::string out;
    std::string err;
};

/* Runs body in a forked child with standard output and error captured. The
 * child exits with status 0 when body returns. */
ChildResult RunInChild(const std::function<void()> &body);

/* Runs a test body in a forked child, for tests that leave lasting changes
 * in process-wide state (a run-loop mode, once made, stays): the suite can
 * then also run as one process. Failures inside are reported with the
 * child's output. */
::testing::AssertionResult PassesInChild(const std::function<void()> &body);

/* The frame an assertion prints before its backtrace lines. */
std::string AssertionFrame(const std::string &condition, const std::string &function, const std::string &file, int line);
/* The frame a fatal error prints before its backtrace lines. */
std::string FatalFrame(const std::string &message, const std::string &function, const std::string &file, int line);
/* True when text is the frame followed by numbered "N: 0x..." lines. With
 * line < 0 any line number is accepted. */
bool MatchesFrame(const std::string &text, const std::string &frameWithLine);
/* Checks "RunLoopObject: ...\nBacktrace:\n" then "0: 0x..." lines, at least
 * minFrames of them. */
bool IsBacktrace(const std::string &text, int minFrames = 1);
/* Expects an assertion failure in body: exit status 1, the exact frame (the
 * line is compared only when line >= 0) and a backtrace. */
::testing::AssertionResult DiesWithAssertion(const std::function<void()> &body, const std::string &condition,
                                             const std::string &function, const std::string &file, int line = -1);
::testing::AssertionResult DiesWithFatal(const std::function<void()> &body, const std::string &message,
                                         const std::string &function, const std::string &file, int line = -1);

/* The string's text as UTF-8. */
std::string Text(LUMStringRef str);
/* The text, then releases str. */
std::string TakeText(LUMStringRef str);
/* LUMStringCreateWithFormat's text for a format, as std::string. */
template <typename... Args>
std::string Format(const char *format, Args... args)
{
    return TakeText(LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR(format), args...));
}
/* The C library's snprintf text, for oracle comparisons. */
std::string CFormat(const char *format, ...);

/* A malloc-backed allocator that counts its calls, and keeps them in order:
 * 'a' allocate (the block returned), 'r' reallocate (the block given, the
 * new size), 'd' deallocate (the block given). */
struct AllocatorCall {
    char kind;
    const void *block;
    UInt32 size;
};
struct CountingAllocator {
    std::vector<AllocatorCall> calls;
    int allocations = 0;
    int reallocations = 0;
    int deallocations = 0;
    int retains = 0;
    int releases = 0;
    bool freeMemory = true; // false keeps blocks so dead headers can be read
    LUMAllocatorRef allocator = nullptr;
    CountingAllocator();
    ~CountingAllocator();
};

/* A new allocator over the C heap that refuses every block above
 * largestBlock bytes (one at a time: the limit is process-wide). */
LUMAllocatorRef LimitedAllocator(UInt32 largestBlock);

/* True when the test runs under valgrind (its preload library is in the
 * environment): tests whose size only adds time there scale down. */
bool UnderValgrind();

/* Whether the C library's malloc was asked for this many bytes while the spy
 * was on (see Interpose.cpp). */
void StartMallocSpy();
std::vector<size_t> StopMallocSpy();
bool MallocSpyAvailable();

/* The last message handed to syslog, with its priority. */
struct SyslogCapture {
    int priority = -1;
    std::string message;
    int calls = 0;
};
SyslogCapture &LastSyslog();

/* Callbacks for tests that run a container beside a twin: LoggingRetain and
 * LoggingRelease retain and release strings and, while gRetainLog is set,
 * write "retain <text>" / "release <text>" to it; ScanningEqual is LUMEqual
 * through a function of the test's own, so that a container comparing with
 * it scans as its definition says, whatever its size. */
extern std::vector<std::string> *gRetainLog;
const void *LoggingRetain(const void *value);
void LoggingRelease(const void *value);
Boolean ScanningEqual(const void *a, const void *b);

/* The whole content of a file, byte for byte ("" when it cannot be read). */
std::string FileText(const std::string &path);

/* Switches LC_NUMERIC to a locale whose decimal point is a comma: an
 * installed one, or one compiled with localedef into a directory of its
 * own. False when neither is possible here. Meant for a child process:
 * the locale and LOCPATH are the whole process's. */
bool UseDecimalCommaLocale();

} // namespace lumtest

/* Controls of the clock, open and select stand-ins (InterposeClock.c). */
extern "C" {
extern int64_t lumtest_clock_offset_us;
extern int lumtest_uptime_mode;
extern int lumtest_select_fails;
extern int lumtest_select_calls;
extern long lumtest_select_last_timeout_us;
extern long lumtest_sndtimeo_sec;
extern long lumtest_sndtimeo_usec;
}

#endif
