/* LUMTestHarnessTest.cpp — the library's own test harness, run in child
 * processes and checked by its exact output; and a part of the library's
 * behaviour checked through that harness with its leak checker.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {

std::vector<std::string> gCalls;
LUMTypeRef gLeaked = nullptr;

void record(const char *what) { gCalls.push_back(what); }

void failingTest(LUMTestRef test) { LUMTestAssert(test, false, LUMSTR("first test fails")); }
void passingTest(LUMTestRef test)
{
    LUMTestAssert(test, true, LUMSTR("unused"));
    LUMTestAssert(test, 1 + 1 == 2, LUMSTR("unused"));
}
void leakingTest(LUMTestRef test)
{
    int32_t value = 42;
    gLeaked = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &value);
    LUMTestAssert(test, gLeaked != nullptr, LUMSTR("created"));
}
void skippingTest(LUMTestRef test) { LUMTestSkip(test, LUMSTR("not on this board")); }

void suiteSetUp(LUMTestRef) { record("suite setUp"); }
void suiteTearDown(LUMTestRef) { record("suite tearDown"); }
void testSetUp(LUMTestRef) { record("test setUp"); }
void testTearDown(LUMTestRef) { record("test tearDown"); }
void recordedTest(LUMTestRef test)
{
    record("test");
    LUMTestAssert(test, true, LUMSTR("x"));
}

LUMTestRef NewTest(const char *name, LUMTestFunction function) { return LUMTestCreateTest(nullptr, LUMSTR(name), function); }

} // namespace

TEST(LUMTestHarness, SuiteStopsAtTheFirstFailingTest)
{
    ChildResult result = RunInChild([] {
        LUMTestRef suite = LUMTestCreateSuite(nullptr, LUMSTR("Suite"), nullptr, nullptr);
        LUMTestRef first = NewTest("first", failingTest), second = NewTest("second", passingTest);
        LUMTestAddTest(suite, first);
        LUMTestAddTest(suite, second);
        Boolean ok = LUMTestRun(suite);
        printf("|%d %u %u %u %u|", ok, LUMTestGetTestCount(suite), LUMTestGetPassedCount(suite), LUMTestGetSkippedCount(suite),
               LUMTestGetFailedCount(suite));
        printf("%u", LUMTestGetTestCount(second));
    });
    EXPECT_EQ(result.out, "Starting test suite run 'Suite'\n"
                          "\nSuite: \nfirst test fails\n"
                          "\n\n1 tests run, 0 assertions passed, 0 skipped, 1 failed.\n"
                          "|0 1 0 0 1|0");
}

TEST(LUMTestHarness, PassingTestsPrintDotsAndTheSummary)
{
    ChildResult result = RunInChild([] {
        LUMTestRef suite = LUMTestCreateSuite(nullptr, LUMSTR("Dots"), nullptr, nullptr);
        LUMTestAddTest(suite, NewTest("a", passingTest));
        LUMTestAddTest(suite, NewTest("b", skippingTest));
        printf("%d", LUMTestRun(suite));
    });
    EXPECT_EQ(result.out, "Starting test suite run 'Dots'\n"
                          "\nDots: ..\n  [SKIP] not on this board\n"
                          "\n\n2 tests run, 2 assertions passed, 1 skipped, 0 failed.\n1");
}

TEST(LUMTestHarness, LeakReportDoesNotFailTheTest)
{
    ChildResult result = RunInChild([] {
        LUMTestRef test = NewTest("leaky", leakingTest);
        Boolean ok = LUMTestRun(test);
        LUMIndex size = static_cast<LUMIndex>(_LUMTypeGetClassByID(LUMNumberGetTypeID())->instanceSize);
        printf("|%d|%p|%ld|", ok, gLeaked, static_cast<long>(size));
    });
    // The child reports the leaked block's address and size after the run.
    size_t tail = result.out.rfind("\n");
    std::string trailer = result.out.substr(tail + 1);
    void *leaked = nullptr;
    long size = 0;
    int ok = -1;
    ASSERT_EQ(sscanf(trailer.c_str(), "|%d|%p|%ld|", &ok, &leaked, &size), 3) << result.out;
    EXPECT_EQ(ok, 1);
    std::string line = CFormat("    %p(%ld): ", leaked, size) + 
                       CFormat("<%p:LUMNumber retainCount=1 type=3 valueInteger=42 valueFloeat=%f>", leaked, 2.08e-322);
    std::string expected = "Starting test suite run 'leaky'\n"
                           ".\n\n*** MEMORY LEAK ***\n" + line + "\n"
                           "\n\n1 tests run, 1 assertions passed, 0 skipped, 0 failed.\n";
    EXPECT_EQ(result.out.substr(0, tail + 1), expected);
}

TEST(LUMTestHarness, SetUpAndTearDownOrder)
{
    ChildResult result = RunInChild([] {
        LUMTestRef suite = LUMTestCreateSuite(nullptr, LUMSTR("Order"), suiteSetUp, suiteTearDown);
        LUMTestContext context = {nullptr, nullptr, recordedTest, testSetUp, testTearDown};
        LUMTestAddTest(suite, LUMTestCreate(nullptr, LUMSTR("one"), context));
        LUMTestRun(suite);
        for (const std::string &call : gCalls) fprintf(stderr, "%s;", call.c_str());
    });
    EXPECT_EQ(result.err, "suite setUp;test setUp;test;test tearDown;suite tearDown;");
}

TEST(LUMTestHarness, EmptySuiteCountsNothing)
{
    ChildResult result = RunInChild([] {
        LUMTestRef suite = LUMTestCreateSuite(nullptr, LUMSTR("Empty"), nullptr, nullptr);
        printf("%d", LUMTestRun(suite));
    });
    EXPECT_EQ(result.out, "Starting test suite run 'Empty'\n\nEmpty: \n\n0 tests run, 0 assertions passed, 0 skipped, 0 failed.\n1");
}

TEST(LUMTestHarness, EqualDoublesIncludesTheBound)
{
    EXPECT_TRUE(_LUMTestEqualDoubles(1.0, 1.5, 0.5));
    EXPECT_FALSE(_LUMTestEqualDoubles(1.0, 1.5, 0.4999));
    EXPECT_TRUE(_LUMTestEqualDoubles(-2.0, -2.25, 0.25));
    EXPECT_TRUE(_LUMTestEqualDoubles(3.0, 3.0, 0.0));
}

TEST(LUMTestHarness, AddingToASingleTestAsserts)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMTestAddTest(NewTest("single", passingTest), NewTest("child", passingTest)); },
                                  "ptr->tests != NULL", "LUMTestAddTest", "src/LUMTest", 255));
}

TEST(LUMTestHarness, CheckingAForeignAllocatorAsserts)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMTestAllocatorCheckOpenAllocations(nullptr, kLUMAllocatorMalloc); },
                                  "context.allocate == __LUMTestAllocatorAllocate", "LUMTestAllocatorCheckOpenAllocations",
                                  "src/LUMTest", 346));
}

TEST(LUMTestHarness, LeakCheckerTracksBlocksAndReferences)
{
    LUMAllocatorRef checker = LUMTestCreateTestAllocator(kLUMAllocatorSystemDefault);
    EXPECT_TRUE(LUMTestAllocatorCheckOpenAllocations(nullptr, checker));
    void *block = LUMAllocatorAllocate(checker, 10, 0);
    block = LUMAllocatorReallocate(checker, block, 100, 0);
    ChildResult result = RunInChild([&] { printf("%d", LUMTestAllocatorCheckOpenAllocations(nullptr, checker)); });
    EXPECT_EQ(result.out, CFormat("\n\n*** MEMORY LEAK ***\n    %p(100): <%p>\n0", block, block));
    LUMAllocatorDeallocate(checker, block);
    EXPECT_TRUE(LUMTestAllocatorCheckOpenAllocations(nullptr, checker));
    LUMAllocatorSetDefault(checker);
    EXPECT_TRUE(LUMTestAllocatorCheckOpenAllocations(nullptr, checker)); // the default's reference is expected
    LUMRetain(checker);
    result = RunInChild([&] { printf("%d", LUMTestAllocatorCheckOpenAllocations(nullptr, checker)); });
    EXPECT_EQ(result.out, "\n\n*** MEMORY LEAK ***\n0"); // an extra reference, no block line
    LUMRelease(checker);
    LUMAllocatorSetDefault(kLUMAllocatorMalloc);
    LUMRelease(checker);
}

TEST(LUMTestHarness, WatchCountdownPrintsTheReport)
{
    ChildResult result = RunInChild([] {
        LUMAllocatorRef checker = LUMTestCreateTestAllocator(kLUMAllocatorSystemDefault);
        void *first = LUMAllocatorAllocate(checker, 24, 0);
        LUMAllocatorDeallocate(checker, first);
        __LUMTestAllocatorReportPointer = first;
        __LUMTestAllocatorReportCounter = static_cast<UInt32>(-1);
        void *again = LUMAllocatorAllocate(checker, 24, 0); // malloc hands the same block back
        fprintf(stderr, "%d", again == first);
    });
    if (result.err == "1") EXPECT_EQ(result.out.rfind("\n\n*** MEMORY LEAK ***\n", 0), 0u) << result.out;
    else GTEST_SKIP() << "the C library did not reuse the block";
}

// ---- A part of the library's own checks, run through its harness ----------

namespace {

LUMStringRef S(const char *text) { return LUMStringCreateWithCString(nullptr, text, kLUMStringEncodingUTF8); }

void stringsRoundTrip(LUMTestRef test)
{
    LUMStringRef s = S("caf\xC3\xA9");
    LUMMutableStringRef m = LUMStringCreateMutableCopy(nullptr, 0, s);
    LUMStringAppendFormat(m, nullptr, LUMSTR(" %d %@ %5.2f"), 7, s, 2.5);
    LUMStringRef copy = LUMStringCreateCopy(nullptr, m);
    LUMTestAssert(test, LUMStringGetLength(copy) == 17, LUMSTR("formatted length"));
    LUMArrayRef pieces = LUMStringCreateArrayBySeparatingStrings(copy, LUMSTR(" 7"));
    LUMTestAssert(test, LUMArrayGetCount(pieces) == 2, LUMSTR("split in two"));
    LUMDataRef bytes = LUMStringCreateExternalRepresentation(nullptr, copy, kLUMStringEncodingUTF8, 0);
    LUMStringRef back = LUMStringCreateFromExternalRepresentation(nullptr, bytes, kLUMStringEncodingUTF8);
    LUMTestAssert(test, LUMEqual(back, copy), LUMSTR("external representation"));
    LUMStringRef description = LUMCopyDescription(pieces);
    LUMTestAssert(test, LUMStringGetLength(description) > 0, LUMSTR("description"));
    for (LUMTypeRef obj : std::initializer_list<LUMTypeRef>{description, back, bytes, pieces, copy, m, s}) LUMRelease(obj);
}

void collectionsRoundTrip(LUMTestRef test)
{
    int32_t i = 5;
    double d = 0.5;
    LUMNumberRef n1 = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &i);
    LUMNumberRef n2 = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &d);
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    for (int k = 0; k < 30; k++) LUMArrayAppendValue(array, k % 2 ? n1 : n2);
    LUMMutableDictionaryRef dictionary = LUMDictionaryCreateMutable(nullptr, 0, &kLUMCopyStringDictionaryKeyCallBacks,
                                                                    &kLUMTypeDictionaryValueCallBacks);
    char key[8];
    for (int k = 0; k < 25; k++) {
        snprintf(key, sizeof(key), "k%d", k);
        LUMStringRef keyString = S(key);
        LUMDictionarySetValue(dictionary, keyString, array);
        LUMRelease(keyString);
    }
    LUMDictionaryRef frozen = LUMDictionaryCreateCopy(nullptr, dictionary);
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &kLUMTypeSetCallBacks);
    LUMSetAddValue(set, n1);
    LUMSetAddValue(set, n2);
    LUMSetAddValue(set, frozen);
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    LUMDataSetLength(data, 1000);
    LUMTestAssert(test, LUMEqual(frozen, dictionary), LUMSTR("copy equal"));
    LUMTestAssert(test, LUMSetGetCount(set) == 3, LUMSTR("set count"));
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    LUMAutorelease(LUMArrayCreateCopy(nullptr, array));
    LUMAutoreleasePoolDrain(pool);
    LUMRelease(pool);
    for (LUMTypeRef obj : std::initializer_list<LUMTypeRef>{data, set, frozen, dictionary, array, n2, n1}) LUMRelease(obj);
}

} // namespace

TEST(LUMTestHarness, LibraryObjectsReleaseEverythingTheyAllocate)
{
    ChildResult result = RunInChild([] {
        LUMTestRef suite = LUMTestCreateSuite(nullptr, LUMSTR("LibraryObjects"), nullptr, nullptr);
        LUMTestAddTest(suite, NewTest("strings", stringsRoundTrip));
        LUMTestAddTest(suite, NewTest("collections", collectionsRoundTrip));
        printf("%d", LUMTestRun(suite));
    });
    EXPECT_EQ(result.out.find("MEMORY LEAK"), std::string::npos) << result.out;
    EXPECT_EQ(result.out, "Starting test suite run 'LibraryObjects'\n\nLibraryObjects: ......"
                          "\n\n2 tests run, 6 assertions passed, 0 skipped, 0 failed.\n1");
}

namespace {

LUMAllocatorRef gPreviousDefault = nullptr;
LUMIndex gPreviousCountDuringTest = -1;

void noteThePreviousDefault(LUMTestRef test)
{
    gPreviousCountDuringTest = LUMGetRetainCount(gPreviousDefault);
    LUMTestAssert(test, true, LUMSTR("x"));
}

} // namespace

TEST(LUMTestHarness, RunnerRemembersThePreviousDefaultWithoutAReference)
{
    ChildResult result = RunInChild([] {
        CountingAllocator counting;
        LUMAllocatorSetDefault(counting.allocator); // the caller's reference and the default's
        gPreviousDefault = counting.allocator;
        LUMTestRef test = NewTest("t", noteThePreviousDefault);
        LUMTestRun(test);
        // Held by the caller, the default setting and the test object (made
        // with the default allocator): during the test the default's
        // reference is given back and the runner takes none of its own.
        printf("|%ld %ld|", static_cast<long>(gPreviousCountDuringTest), static_cast<long>(LUMGetRetainCount(counting.allocator)));
        LUMAllocatorSetDefault(kLUMAllocatorSystemDefault);
        LUMRelease(test);
    });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_NE(result.out.find("|2 3|"), std::string::npos) << result.out;
}
