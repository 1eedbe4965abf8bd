/* LUMBaseTest.cpp — start-up, logging, printing, assertions, fatal errors,
 * the backtrace and the memory helpers.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <regex>

using namespace lumtest;

TEST(LUMBase, LogWithNegativeLevelPrintsNothing)
{
    ChildResult result = RunInChild([] { LUMLog(-1, LUMSTR("hidden %d"), 1); });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

TEST(LUMBase, LogDropsAllTrailingNewlines)
{
    ChildResult result = RunInChild([] { LUMLog(0, LUMSTR("x\n\n")); });
    EXPECT_TRUE(std::regex_match(result.err, std::regex("-?[0-9]+\\.[0-9]{6}: x\n"))) << result.err;
}

TEST(LUMBase, LogStampIsTheCurrentAbsoluteTime)
{
    double before = LUMAbsoluteTimeGetCurrent();
    ChildResult result = RunInChild([] { LUMLog(5, LUMSTR("%@ and %d"), LUMSTR("object"), 42); });
    double after = LUMAbsoluteTimeGetCurrent();
    double stamp = strtod(result.err.c_str(), nullptr);
    EXPECT_GE(stamp, before - 0.001);
    EXPECT_LE(stamp, after + 0.001);
    EXPECT_NE(result.err.find(": object and 42\n"), std::string::npos);
}

TEST(LUMBase, LogBufferMovesToTheHeapAboveOneThousandBytes)
{
    if (!MallocSpyAvailable()) GTEST_SKIP() << "malloc is owned by the sanitizers in this build";
    std::string text333(333, 'a');
    std::string text334(334, 'a');
    ChildResult result = RunInChild([&] {
        StartMallocSpy();
        LUMLog(0, LUMSTR("%s"), text333.c_str());
        std::vector<size_t> small = StopMallocSpy();
        StartMallocSpy();
        LUMLog(0, LUMSTR("%s"), text334.c_str());
        std::vector<size_t> large = StopMallocSpy();
        bool smallOnStack = true, largeOnHeap = false;
        for (size_t size : small) if (size == 1000) smallOnStack = false;
        for (size_t size : large) if (size == 1003) largeOnHeap = true;
        printf("%d %d", smallOnStack, largeOnHeap);
    });
    EXPECT_EQ(result.out, "1 1");
    EXPECT_NE(result.err.find(": " + text334 + "\n"), std::string::npos);
}

TEST(LUMBase, SysLogCutsLongMessagesToItsBuffer)
{
    std::string text(2000, 'b');
    LastSyslog() = SyslogCapture();
    LUMSysLog(3, LUMSTR("%s"), text.c_str());
    EXPECT_EQ(LastSyslog().calls, 1);
    EXPECT_EQ(LastSyslog().priority, 5); // notice, whatever the level
    EXPECT_EQ(LastSyslog().message, std::string(998, 'b'));
    LUMSysLog(-1, LUMSTR("suppressed"));
    EXPECT_EQ(LastSyslog().calls, 1);
    LUMSysLog(0, LUMSTR("short\n"));
    EXPECT_EQ(LastSyslog().message, "short\n"); // no stripping, no time stamp
}

TEST(LUMBase, PrintWritesTheTextAsItIs)
{
    ChildResult result = RunInChild([] {
        LUMPrint(LUMSTR("a%d\n\n"), 1);
        LUMPrint(LUMSTR("b"));
    });
    EXPECT_EQ(result.out, "a1\n\nb");
    std::string longText(1500, 'c');
    result = RunInChild([&] { LUMPrint(LUMSTR("%s"), longText.c_str()); });
    EXPECT_EQ(result.out, longText);
}

TEST(LUMBase, FailingAssertionPrintsFrameAndBacktraceAndExitsWithOne)
{
    ChildResult result = RunInChild([] { _LUMAssert("someFunction", "src/LUMSomething", 42, false, "a == b"); });
    EXPECT_EQ(result.exitStatus, 1);
    std::string expected = "\n\n"
                           "==============================================================================\n"
                           "                      ASSERTION FAILED - GURU MEDITATION\n"
                           "==============================================================================\n"
                           "Condition: a == b\n"
                           "Function:  someFunction\n"
                           "File/Line: src/LUMSomething,42\n"
                           "RunLoopObject: (nil)\n"
                           "Backtrace:\n";
    ASSERT_EQ(result.out.substr(0, expected.size()), expected);
    EXPECT_TRUE(IsBacktrace(result.out.substr(expected.size() - strlen("RunLoopObject: (nil)\nBacktrace:\n")), 2))
        << result.out;
}

TEST(LUMBase, PassingAssertionReturns)
{
    _LUMAssert("f", "src/LUMBase", 1, true, "true");
    SUCCEED();
}

TEST(LUMBase, FatalErrorPrintsMessageFrameAndExitsWithOne)
{
    ChildResult result = RunInChild([] { _LUMFatal("fatalFunction", "src/LUMElse", 7, "value %d of %s", 3, "x"); });
    EXPECT_EQ(result.exitStatus, 1);
    std::string expected = "\n\n"
                           "==============================================================================\n"
                           "                    FATAL ERROR OCCURRED - GURU MEDITATION\n"
                           "==============================================================================\n"
                           "Message:   value 3 of x\n"
                           "Function:  fatalFunction\n"
                           "File/Line: src/LUMElse,7\n";
    EXPECT_TRUE(MatchesFrame(result.out, expected)) << result.out;
}

TEST(LUMBase, FatalMessagesAreCutAtOneThousandBytes)
{
    std::string longText(1500, 'm');
    ChildResult result = RunInChild([&] { _LUMFatal("f", "src/LUMBase", 1, "%s", longText.c_str()); });
    EXPECT_NE(result.out.find("Message:   " + std::string(999, 'm') + "\n"), std::string::npos);
    EXPECT_EQ(result.out.find(std::string(1000, 'm')), std::string::npos);
}

namespace {
__attribute__((noinline)) void nestedThree() { _LUMPrintBacktrace(); }
__attribute__((noinline)) void nestedTwo() { nestedThree(); asm volatile(""); }
__attribute__((noinline)) void nestedOne() { nestedTwo(); asm volatile(""); }
} // namespace

TEST(LUMBase, BacktraceListsNumberedReturnAddresses)
{
    ChildResult result = RunInChild([] { nestedOne(); });
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(IsBacktrace(result.out, 4)) << result.out;
    EXPECT_EQ(result.out.rfind("RunLoopObject: (nil)\nBacktrace:\n", 0), 0u);
}

TEST(LUMBase, CopyStringAlwaysTerminates)
{
    char buffer[8];
    memset(buffer, 'z', sizeof(buffer));
    EXPECT_EQ(_LUMCopyString(buffer, "sixsix", 4), buffer);
    EXPECT_STREQ(buffer, "six");
    _LUMCopyString(buffer, "ab", 8);
    EXPECT_STREQ(buffer, "ab");
}

TEST(LUMBase, MemoryHelpers)
{
    EXPECT_TRUE(_LUMCompareMemory("a", "b", 0));
    EXPECT_TRUE(_LUMCompareMemory("abc", "abd", 2));
    EXPECT_FALSE(_LUMCompareMemory("abc", "abd", 3));
    char bytes[6] = "hello";
    _LUMMoveMemory(bytes + 1, bytes, 4);
    EXPECT_EQ(std::string(bytes, 5), "hhell");
    _LUMZeroMemory(bytes, 3);
    EXPECT_EQ(bytes[0] | bytes[1] | bytes[2], 0);
    EXPECT_EQ(bytes[3], 'l');
}

TEST(LUMBase, FinalizeDoesNothing)
{
    LUMStringRef kept = LUMStringCreateWithCString(nullptr, "still here", kLUMStringEncodingUTF8);
    LUMFinalize();
    EXPECT_EQ(Text(kept), "still here");
    EXPECT_EQ(LUMStringGetTypeID(), 2u);
    LUMRelease(kept);
}
