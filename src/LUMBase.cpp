/* LUMBase.cpp — library start-up, the log, syslog and print channels,
 * assertions, fatal errors, the backtrace and the memory helpers.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMBase"
#include "LUMPrivate.h"

#include <LumBase/LUMAbsoluteTime.h>

#include <cstdarg>
#include <cstdio>
#include <syslog.h>
#include <unistd.h>

// The C library records the top of the main stack here. Referenced weakly so
// that the dynamic loader, which defines it, does not become a dependency.
extern "C" void *__libc_stack_end __attribute__((weak));

namespace {

using ModuleStart = Boolean (*)(void);

// Start functions in the order they must run: the type registry first (it
// fixes the allocator and string class IDs), then the clocks, the
// allocators, strings and the singletons, then the rest.
constexpr ModuleStart kModulesBeforeBundle[] = {
    _LUMTypeInitializeModule,
    _LUMAbsoluteTimeInitializeModule,
    _LUMMachTimeInitializeModule,
    _LUMAllocatorInitializeModule,
    _LUMStringInitializeModule,
    _LUMNullInitializeModule,
    _LUMBooleanInitializeModule,
    _LUMNumberInitializeModule,
    _LUMArrayInitializeModule,
    _LUMDictionaryInitializeModule,
    _LUMDataInitializeModule,
    _LUMRunLoopInitializeModule,
    _LUMRunLoopSourceInitializeModule,
    _LUMRunLoopTimerInitializeModule,
    _LUMErrorInitializeModule,
    _LUMStreamInitializeModule,
    _LUMReadStreamInitializeModule,
    _LUMWriteStreamInitializeModule,
    _LUMPropertyListInitializeModule,
    _LUMSocketInitializeModule,
};
constexpr ModuleStart kModulesAfterBundle[] = {
    _LUMLocaleInitializeModule,
    _LUMTimeZoneInitializeModule,
};

constexpr size_t kStackMessageBytes = 1000;
constexpr size_t kFatalMessageBytes = 1000;
constexpr int kMaxBacktraceFrames = 32;
constexpr char kRule[] = "==============================================================================\n";
static_assert(sizeof(kRule) == 78 + 2);

/* Formats a library format into a NUL-terminated UTF-8 buffer that lives
 * until the scope ends: on the stack up to 1000 bytes, on the heap above. */
class FormattedMessage {
public:
    FormattedMessage(LUMStringRef format, va_list arguments)
    {
        LUMStringRef message = LUMStringCreateWithFormatAndArguments(kLUMAllocatorSystemDefault, nullptr, format, arguments);
        size_ = static_cast<size_t>(LUMStringGetMaximumSizeForEncoding(LUMStringGetLength(message), kLUMStringEncodingUTF8)) + 1;
        text_ = size_ <= kStackMessageBytes ? stack_ : static_cast<char *>(malloc(size_));
        LUMStringGetCString(message, text_, static_cast<LUMIndex>(size_), kLUMStringEncodingUTF8);
        LUMRelease(message);
        text_[size_ - 1] = '\0';
    }
    ~FormattedMessage() { if (text_ != stack_) free(text_); }
    FormattedMessage(const FormattedMessage &) = delete;
    FormattedMessage &operator=(const FormattedMessage &) = delete;
    char *text() { return text_; }
private:
    char stack_[kStackMessageBytes];
    char *text_;
    size_t size_;
};

void printFrame(const char *title, const char *label, const char *labelText, const char *function,
                const char *file, int line)
{
    printf("\n\n");
    printf("%s", kRule);
    printf("%s\n", title);
    printf("%s", kRule);
    printf("%s%s\n", label, labelText);
    printf("Function:  %s\n", function);
    printf("File/Line: %s,%d\n", file, line);
    _LUMPrintBacktrace();
}

/* A frame record as the compilers lay it out with frame pointers: the saved
 * frame pointer of the caller, then the return address. x86-64 and AArch64
 * point the frame pointer at the record; GCC's 32-bit ARM code points it at
 * the saved return address, one word above the saved frame pointer. */
struct FrameRecord {
    FrameRecord *next;
    void *returnAddress;
};

inline FrameRecord *frameRecordAt(void *framePointer)
{
#if defined(__arm__) && !defined(__clang__)
    return reinterpret_cast<FrameRecord *>(static_cast<char *>(framePointer) - sizeof(void *));
#else
    return static_cast<FrameRecord *>(framePointer);
#endif
}

} // namespace


Boolean LUMInitialize(int argc, char **argv)
{
    for (ModuleStart start : kModulesBeforeBundle) {
        if (!start()) return false;
    }
    // The bundle is the only module that sees the command line.
    if (!_LUMBundleInitializeModule(argc, argv)) return false;
    for (ModuleStart start : kModulesAfterBundle) {
        if (!start()) return false;
    }
    return true;
}

void LUMFinalize(void) {}

void LUMLog(int level, LUMStringRef format, ...)
{
    if (level < 0) return;
    va_list arguments;
    va_start(arguments, format);
    FormattedMessage message(format, arguments);
    va_end(arguments);
    char *text = message.text();
    size_t length = strlen(text);
    while (length > 0 && text[length - 1] == '\n') text[--length] = '\0';
    fprintf(stderr, "%f: %s\n", LUMAbsoluteTimeGetCurrent(), text);
    fflush(stderr);
}

void LUMSysLog(int level, LUMStringRef format, ...)
{
    if (level < 0) return;
    char buffer[kStackMessageBytes];
    va_list arguments;
    va_start(arguments, format);
    LUMStringRef message = LUMStringCreateWithFormatAndArguments(kLUMAllocatorSystemDefault, nullptr, format, arguments);
    va_end(arguments);
    LUMStringGetCString(message, buffer, static_cast<LUMIndex>(sizeof(buffer)), kLUMStringEncodingUTF8);
    LUMRelease(message);
    syslog(LOG_NOTICE, "%s", buffer);
}

void LUMPrint(LUMStringRef format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    FormattedMessage message(format, arguments);
    va_end(arguments);
    printf("%s", message.text());
}

void _LUMAssert(const char *function, const char *file, int line, Boolean condition, const char *conditionText)
{
    if (condition) return;
    printFrame("                      ASSERTION FAILED - GURU MEDITATION", "Condition: ", conditionText,
               function, file, line);
    exit(1);
}

void _LUMFatal(const char *function, const char *file, int line, const char *format, ...)
{
    char message[kFatalMessageBytes];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    printFrame("                    FATAL ERROR OCCURRED - GURU MEDITATION", "Message:   ", message, function,
               file, line);
    exit(1);
}

__attribute__((noinline)) void _LUMPrintBacktrace(void)
{
    void *addresses[kMaxBacktraceFrames];
    int count = 0;
    char localsMark = 0;
    void *returnAddress = __builtin_extract_return_addr(__builtin_return_address(0));
    FrameRecord *frame = frameRecordAt(__builtin_frame_address(0));

    if (frame->returnAddress != returnAddress) {
        fprintf(stderr, "backtrace error: __builtin_return_address(0) != frame_p->lr\n");
    } else {
        // Walk the chain of saved frame pointers while it stays inside the
        // stack: above our own locals and below the process's stack end.
        void *stackEnd = &__libc_stack_end != nullptr ? __libc_stack_end : nullptr;
        auto inStack = [&](FrameRecord *f) {
            return f != nullptr && reinterpret_cast<char *>(f) > &localsMark &&
                   (stackEnd == nullptr || reinterpret_cast<void *>(f) < stackEnd);
        };
        while (count < kMaxBacktraceFrames && inStack(frame)) {
            addresses[count++] = frame->returnAddress;
            FrameRecord *next = frame->next;
            if (next == nullptr) break;
            frame = frameRecordAt(next);
        }
    }

    printf("RunLoopObject: %p\nBacktrace:\n", _LUMRunLoopGetCurrentObject());
    fflush(stdout);
    for (int i = 0; i < count; i++) {
        char line[127];
        int length = snprintf(line, sizeof(line), "%d: %p\n", i, addresses[i]);
        if (length > 0) {
            ssize_t ignored = write(1, line, static_cast<size_t>(length));
            (void)ignored;
        }
    }
}

char *_LUMCopyString(char *dst, const char *src, size_t size)
{
    if (size == 0) return dst;
    strncpy(dst, src, size - 1);
    dst[size - 1] = '\0';
    return dst;
}

void (_LUMZeroMemory)(void *p, size_t n) { memset(p, 0, n); }
void _LUMMoveMemory(void *dst, const void *src, size_t n) { memmove(dst, src, n); }
Boolean _LUMCompareMemory(const void *a, const void *b, size_t n) { return memcmp(a, b, n) == 0; }

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(_LUMZeroMemory)
