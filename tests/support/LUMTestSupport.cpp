/* LUMTestSupport.cpp — shared helpers of LumBase's tests.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

extern "C" void __lsan_disable(void) __attribute__((weak));

namespace lumtest {

namespace {

std::string readAll(FILE *file)
{
    std::string text;
    rewind(file);
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof(chunk), file)) > 0) text.append(chunk, n);
    return text;
}

const char kRule[] = "==============================================================================\n";

std::string frame(const std::string &title, const std::string &labelLine, const std::string &function,
                  const std::string &file, int line)
{
    std::string text = "\n\n";
    text += kRule;
    text += title + "\n";
    text += kRule;
    text += labelLine;
    text += "Function:  " + function + "\n";
    text += "File/Line: " + file + "," + (line >= 0 ? std::to_string(line) : std::string("@LINE@")) + "\n";
    return text;
}

} // namespace

ChildResult RunInChild(const std::function<void()> &body)
{
    fflush(stdout);
    fflush(stderr);
    FILE *out = tmpfile();
    FILE *err = tmpfile();
    pid_t pid = fork();
    if (pid == 0) {
        // A child that ends through an assertion exits with live objects on
        // purpose; the leak checker must not turn that into a report.
        if (__lsan_disable != nullptr) __lsan_disable();
        dup2(fileno(out), 1);
        dup2(fileno(err), 2);
        body();
        fflush(stdout);
        fflush(stderr);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ChildResult result;
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readAll(out);
    result.err = readAll(err);
    fclose(out);
    fclose(err);
    return result;
}

::testing::AssertionResult PassesInChild(const std::function<void()> &body)
{
    ChildResult result = RunInChild([&body] {
        body();
        fflush(stdout);
        _exit(::testing::Test::HasFailure() ? 3 : 0);
    });
    if (result.exitStatus == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "child exit " << result.exitStatus << "\n" << result.out << result.err;
}

std::string AssertionFrame(const std::string &condition, const std::string &function, const std::string &file, int line)
{
    return frame("                      ASSERTION FAILED - GURU MEDITATION", "Condition: " + condition + "\n", function,
                 file, line);
}

std::string FatalFrame(const std::string &message, const std::string &function, const std::string &file, int line)
{
    return frame("                    FATAL ERROR OCCURRED - GURU MEDITATION", "Message:   " + message + "\n", function,
                 file, line);
}

bool IsBacktrace(const std::string &text, int minFrames)
{
    static const std::regex pattern("RunLoopObject: (\\(nil\\)|0x[0-9a-f]+)\nBacktrace:\n((\\d+): 0x[0-9a-f]+\n)*");
    if (!std::regex_match(text, pattern)) return false;
    // Frames are numbered from 0 in order.
    int expected = 0;
    size_t at = text.find("Backtrace:\n") + 11;
    while (at < text.size()) {
        size_t colon = text.find(':', at);
        if (std::stoi(text.substr(at, colon - at)) != expected) return false;
        expected++;
        at = text.find('\n', colon) + 1;
    }
    return expected >= minFrames;
}

bool MatchesFrame(const std::string &text, const std::string &frameWithLine)
{
    size_t marker = frameWithLine.find("@LINE@");
    size_t frameEnd;
    if (marker == std::string::npos) {
        if (text.compare(0, frameWithLine.size(), frameWithLine) != 0) return false;
        frameEnd = frameWithLine.size();
    } else {
        if (text.compare(0, marker, frameWithLine, 0, marker) != 0) return false;
        size_t digits = marker;
        while (digits < text.size() && isdigit(static_cast<unsigned char>(text[digits]))) digits++;
        if (digits == marker || text.compare(digits, 1, "\n") != 0) return false;
        frameEnd = digits + 1;
    }
    return IsBacktrace(text.substr(frameEnd));
}

namespace {
::testing::AssertionResult diesWith(const std::function<void()> &body, const std::string &expectedFrame)
{
    ChildResult result = RunInChild(body);
    if (result.exitStatus != 1)
        return ::testing::AssertionFailure() << "exit status " << result.exitStatus << "\nstdout:\n" << result.out << "\nstderr:\n" << result.err;
    if (!MatchesFrame(result.out, expectedFrame))
        return ::testing::AssertionFailure() << "expected frame:\n" << expectedFrame << "\ngot:\n" << result.out;
    return ::testing::AssertionSuccess();
}
} // namespace

::testing::AssertionResult DiesWithAssertion(const std::function<void()> &body, const std::string &condition,
                                             const std::string &function, const std::string &file, int line)
{
    return diesWith(body, AssertionFrame(condition, function, file, line));
}

::testing::AssertionResult DiesWithFatal(const std::function<void()> &body, const std::string &message,
                                         const std::string &function, const std::string &file, int line)
{
    return diesWith(body, FatalFrame(message, function, file, line));
}

std::string Text(LUMStringRef str)
{
    if (str == nullptr) return "<NULL>";
    LUMIndex size = LUMStringGetMaximumSizeForEncoding(LUMStringGetLength(str), kLUMStringEncodingUTF8) + 2;
    std::string buffer(static_cast<size_t>(size), '\0');
    LUMStringGetCString(str, buffer.data(), size, kLUMStringEncodingUTF8);
    buffer.resize(strlen(buffer.c_str()));
    return buffer;
}

std::string TakeText(LUMStringRef str)
{
    std::string text = Text(str);
    LUMRelease(str);
    return text;
}

std::string CFormat(const char *format, ...)
{
    char buffer[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return buffer;
}

namespace {
void *countingAllocate(UInt32 size, LUMOptionFlags, void *info)
{
    auto *self = static_cast<CountingAllocator *>(info);
    self->allocations++;
    void *block = malloc(size);
    self->calls.push_back({'a', block, size});
    return block;
}
void *countingReallocate(void *ptr, UInt32 size, LUMOptionFlags, void *info)
{
    auto *self = static_cast<CountingAllocator *>(info);
    self->reallocations++;
    self->calls.push_back({'r', ptr, size});
    return realloc(ptr, size);
}
void countingDeallocate(void *ptr, void *info)
{
    auto *self = static_cast<CountingAllocator *>(info);
    self->deallocations++;
    self->calls.push_back({'d', ptr, 0});
    if (self->freeMemory) free(ptr);
}
const void *countingRetain(const void *info)
{
    const_cast<CountingAllocator *>(static_cast<const CountingAllocator *>(info))->retains++;
    return info;
}
void countingRelease(const void *info)
{
    const_cast<CountingAllocator *>(static_cast<const CountingAllocator *>(info))->releases++;
}
} // namespace

bool UnderValgrind()
{
    const char *preload = getenv("LD_PRELOAD");
    return preload != nullptr && strstr(preload, "vgpreload") != nullptr;
}

namespace {
UInt32 gLargestBlock = 0;
void *limitedAllocate(UInt32 size, LUMOptionFlags, void *) { return size > gLargestBlock ? nullptr : malloc(size); }
void *limitedReallocate(void *ptr, UInt32 size, LUMOptionFlags, void *) { return size > gLargestBlock ? nullptr : realloc(ptr, size); }
void limitedDeallocate(void *ptr, void *) { free(ptr); }
} // namespace

LUMAllocatorRef LimitedAllocator(UInt32 largestBlock)
{
    gLargestBlock = largestBlock;
    LUMAllocatorContext context = {0, nullptr, nullptr, nullptr, nullptr, limitedAllocate, limitedReallocate, limitedDeallocate, nullptr};
    return LUMAllocatorCreate(kLUMAllocatorSystemDefault, &context);
}

CountingAllocator::CountingAllocator()
{
    LUMAllocatorContext context = {0, this, countingRetain, countingRelease, nullptr,
                                   countingAllocate, countingReallocate, countingDeallocate, nullptr};
    allocator = LUMAllocatorCreate(kLUMAllocatorSystemDefault, &context);
}

CountingAllocator::~CountingAllocator()
{
    if (LUMGetRetainCount(allocator) >= 1) LUMRelease(allocator);
}

std::vector<std::string> *gRetainLog = nullptr;

const void *LoggingRetain(const void *value)
{
    if (gRetainLog != nullptr) gRetainLog->push_back("retain " + Text(static_cast<LUMStringRef>(value)));
    return LUMRetain(value);
}

void LoggingRelease(const void *value)
{
    if (gRetainLog != nullptr) gRetainLog->push_back("release " + Text(static_cast<LUMStringRef>(value)));
    LUMRelease(value);
}

Boolean ScanningEqual(const void *a, const void *b) { return LUMEqual(a, b); }

std::string FileText(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

bool UseDecimalCommaLocale()
{
    for (const char *name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8"})
        if (setlocale(LC_NUMERIC, name) != nullptr) return true;
    char pattern[] = "/tmp/lumlocale-XXXXXX";
    const char *directory = mkdtemp(pattern);
    if (directory == nullptr) return false;
    std::string command = std::string("localedef -i de_DE -f UTF-8 ") + directory + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (system(command.c_str()) != 0) return false;
    setenv("LOCPATH", directory, 1);
    return setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
}

} // namespace lumtest
