/* LUMTest.cpp — the unit-test harness and its leak-checking allocator.
 * Part of LumBase; MIT licence.
 *
 * The leak-checking allocator's info is a dictionary with raw keys and
 * values: block address -> requested size, one entry per live block. */
#define LUM_SOURCE_FILE "src/LUMTest"
#include "LUMPrivate.h"

#include <LumBase/LUMArray.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMTest.h>

struct __LUMTest {
    LUMRuntimeBase base;
    LUMStringRef name;
    LUMMutableArrayRef tests;
    LUMTestContext context;
    UInt32 testCount;
    UInt32 passedCount;
    UInt32 skippedCount;
    UInt32 failedCount;
};

void *__LUMTestAllocatorReportPointer = nullptr;
UInt32 __LUMTestAllocatorReportCounter = 0;

namespace {

LUMTypeID __kLUMTestTypeID = 0;

Boolean __LUMTestInitializeInstance(LUMTypeRef obj);
void __LUMTestFinalizeInstance(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMTestTypeClass = {
    0, "LUMTest", sizeof(__LUMTest), __LUMTestInitializeInstance, __LUMTestFinalizeInstance, nullptr, nullptr, nullptr,
};

Boolean __LUMTestInitializeInstance(LUMTypeRef obj)
{
    __LUMTest *test = lum::object<__LUMTest>(obj);
    test->name = nullptr;
    test->tests = nullptr;
    test->context = {};
    test->testCount = test->passedCount = test->skippedCount = test->failedCount = 0;
    return true;
}

// The name is retained at creation but not released here; kept so.
void __LUMTestFinalizeInstance(LUMTypeRef obj) { LUMRelease(lum::object<__LUMTest>(obj)->tests); }

/* ---- Leak-checking allocator --------------------------------------------- */

LUMMutableDictionaryRef openAllocationsOf(void *info) { return static_cast<LUMMutableDictionaryRef>(info); }

void printBlock(const void *block, const void *size, void *context)
{
    // A block too small to hold an object header is described as the plain
    // pointer it is, without reading past its end.
    size_t bytes = reinterpret_cast<uintptr_t>(size);
    LUMStringRef description = bytes >= sizeof(LUMRuntimeBase)
                                   ? LUMCopyDescription(block)
                                   : LUMStringCreateWithFormat(kLUMAllocatorSystemDefault, nullptr, LUMSTR("<%p>"), block);
    LUMPrint(LUMSTR("    %p(%ld): %@\n"), block, static_cast<long>(bytes), description);
    LUMRelease(description);
}

void __LUMTestAllocatorPrintReport(LUMDictionaryRef openAllocations)
{
    LUMPrint(LUMSTR("\n\n*** MEMORY LEAK ***\n"));
    LUMDictionaryApplyFunction(openAllocations, printBlock, nullptr);
}

void watch(LUMDictionaryRef openAllocations, void *block)
{
    if (block != __LUMTestAllocatorReportPointer) return;
    __LUMTestAllocatorReportCounter++;
    if (__LUMTestAllocatorReportCounter == 0) __LUMTestAllocatorPrintReport(openAllocations);
}

void *__LUMTestAllocatorAllocate(UInt32 size, LUMOptionFlags hint, void *info)
{
    LUMMutableDictionaryRef openAllocations = openAllocationsOf(info);
    LUM_ASSERT_AT(156, LUMGetTypeID(openAllocations) == LUMDictionaryGetTypeID());
    void *block = _LUMAllocatorAllocateMalloc(size, hint, nullptr);
    if (block == nullptr) return nullptr;
    // The leak report describes every open block as an object and so reads
    // its first word: zeroed, a raw buffer reads as what it is, not as
    // whatever the heap left there.
    _LUMZeroMemory(block, size);
    LUMDictionaryAddValue(openAllocations, block, reinterpret_cast<const void *>(static_cast<uintptr_t>(size)));
    watch(openAllocations, block);
    return block;
}

void *__LUMTestAllocatorReallocate(void *ptr, UInt32 newSize, LUMOptionFlags hint, void *info)
{
    LUMMutableDictionaryRef openAllocations = openAllocationsOf(info);
    LUM_ASSERT_AT(174, LUMGetTypeID(openAllocations) == LUMDictionaryGetTypeID());
    void *block = _LUMAllocatorReallocateMalloc(ptr, newSize, hint, nullptr);
    if (block == nullptr) return nullptr;
    if (ptr != nullptr) LUMDictionaryRemoveValue(openAllocations, ptr);
    LUMDictionaryAddValue(openAllocations, block, reinterpret_cast<const void *>(static_cast<uintptr_t>(newSize)));
    watch(openAllocations, block);
    return block;
}

void __LUMTestAllocatorDeallocate(void *ptr, void *info)
{
    LUMMutableDictionaryRef openAllocations = openAllocationsOf(info);
    LUM_ASSERT_AT(192, LUMGetTypeID(openAllocations) == LUMDictionaryGetTypeID());
    _LUMAllocatorDeallocateMalloc(ptr, nullptr);
    LUMDictionaryRemoveValue(openAllocations, ptr);
}

LUMIndex __LUMTestAllocatorPreferredSize(UInt32 size, LUMOptionFlags hint, void *info)
{
    return _LUMAllocatorPreferredSizeMalloc(size, hint, info);
}

/* ---- Running ------------------------------------------------------------- */

Boolean __LUMTestRunRecursive(__LUMTest *test, __LUMTest *parent)
{
    test->testCount = test->passedCount = test->skippedCount = test->failedCount = 0;
    if (test->context.testFunction != nullptr) {
        test->testCount = 1;
        // The previous default is remembered without a reference of the
        // runner's own: during the test its count is what setting the test
        // allocator left. Only when the default setting held its last
        // reference is it kept alive meanwhile, since restoring a freed
        // allocator could not work.
        LUMAllocatorRef previous = LUMAllocatorGetDefault();
        bool keptAlive = previous != nullptr && LUMGetAllocator(previous) != _kLUMAllocatorConstant && LUMGetRetainCount(previous) == 1;
        if (keptAlive) LUMRetain(previous);
        LUMAllocatorRef leakChecker = LUMTestCreateTestAllocator(kLUMAllocatorSystemDefault);
        LUMAllocatorSetDefault(leakChecker);
        if (parent != nullptr && parent->context.setUpFunction != nullptr) parent->context.setUpFunction(parent);
        if (test->context.setUpFunction != nullptr) test->context.setUpFunction(test);
        test->context.testFunction(test);
        if (test->context.tearDownFunction != nullptr) test->context.tearDownFunction(test);
        if (parent != nullptr && parent->context.tearDownFunction != nullptr) parent->context.tearDownFunction(parent);
        LUMAllocatorSetDefault(previous);
        if (keptAlive) LUMRelease(previous);
        // A leak prints its report but does not fail the test: deliberate.
        if (test->failedCount == 0) LUMTestAllocatorCheckOpenAllocations(test, leakChecker);
        LUMRelease(leakChecker);
    } else {
        LUMPrint(LUMSTR("\n%@: "), test->name);
        LUMIndex count = LUMArrayGetCount(test->tests);
        for (LUMIndex i = 0; i < count; i++) {
            // A suite ends at its first failing test, on purpose.
            if (test->failedCount != 0) break;
            auto *child = static_cast<__LUMTest *>(const_cast<void *>(LUMArrayGetValueAtIndex(test->tests, i)));
            __LUMTestRunRecursive(child, test);
            test->testCount += child->testCount;
            test->passedCount += child->passedCount;
            test->skippedCount += child->skippedCount;
            test->failedCount += child->failedCount;
        }
    }
    return test->failedCount == 0;
}

} // namespace

LUMTypeID LUMTestGetTypeID(void) { return lum::registerClassOnce(__kLUMTestTypeID, __kLUMTestTypeClass); }

Boolean _LUMTestInitializeModule(void) { return true; }

LUMTestRef LUMTestCreate(LUMAllocatorRef allocator, LUMStringRef name, LUMTestContext context)
{
    auto *test = lum::object<__LUMTest>(_LUMTypeCreateInstance(allocator, LUMTestGetTypeID()));
    if (test == nullptr) return nullptr;
    test->name = static_cast<LUMStringRef>(LUMRetain(name));
    test->context = context;
    if (context.testFunction == nullptr) test->tests = LUMArrayCreateMutable(allocator, 0, &kLUMTypeArrayCallBacks);
    return test;
}

LUMTestRef LUMTestCreateSuite(LUMAllocatorRef allocator, LUMStringRef name, LUMTestFunction setUp, LUMTestFunction tearDown)
{
    LUMTestContext context = {nullptr, nullptr, nullptr, setUp, tearDown};
    return LUMTestCreate(allocator, name, context);
}

LUMTestRef LUMTestCreateTest(LUMAllocatorRef allocator, LUMStringRef name, LUMTestFunction testFunction)
{
    LUMTestContext context = {nullptr, nullptr, testFunction, nullptr, nullptr};
    return LUMTestCreate(allocator, name, context);
}

void LUMTestAddTest(LUMTestRef suite, LUMTestRef test)
{
    __LUMTest *ptr = suite;
    LUM_ASSERT_AT(255, ptr->tests != NULL);
    LUMArrayAppendValue(ptr->tests, test);
}

Boolean LUMTestRun(LUMTestRef test)
{
    LUMPrint(LUMSTR("Starting test suite run '%@'\n"), test->name);
    __LUMTestRunRecursive(test, nullptr);
    LUMPrint(LUMSTR("\n\n%ld tests run, %ld assertions passed, %ld skipped, %ld failed.\n"), static_cast<long>(test->testCount),
             static_cast<long>(test->passedCount), static_cast<long>(test->skippedCount), static_cast<long>(test->failedCount));
    return test->failedCount == 0;
}

void LUMTestAssert(LUMTestRef test, Boolean condition, LUMStringRef message)
{
    if (condition) {
        LUMPrint(LUMSTR("."));
        test->passedCount++;
    } else {
        LUMPrint(LUMSTR("\n%@\n"), message);
        test->failedCount++;
    }
}

void LUMTestSkip(LUMTestRef test, LUMStringRef message)
{
    LUMPrint(LUMSTR("\n  [SKIP] %@\n"), message);
    test->skippedCount++;
}

LUMStringRef LUMTestGetName(LUMTestRef test) { return test == nullptr ? nullptr : test->name; }
UInt32 LUMTestGetTestCount(LUMTestRef test) { return test->testCount; }
UInt32 LUMTestGetPassedCount(LUMTestRef test) { return test->passedCount; }
UInt32 LUMTestGetSkippedCount(LUMTestRef test) { return test->skippedCount; }
UInt32 LUMTestGetFailedCount(LUMTestRef test) { return test->failedCount; }

LUMAllocatorRef LUMTestCreateTestAllocator(LUMAllocatorRef allocator)
{
    LUMMutableDictionaryRef openAllocations = LUMDictionaryCreateMutable(allocator, 0, nullptr, nullptr);
    LUMAllocatorContext context = {
        0, openAllocations, LUMRetain, LUMRelease, LUMCopyDescription,
        __LUMTestAllocatorAllocate, __LUMTestAllocatorReallocate, __LUMTestAllocatorDeallocate, __LUMTestAllocatorPreferredSize,
    };
    LUMAllocatorRef leakChecker = LUMAllocatorCreate(allocator, &context);
    LUMRelease(openAllocations);
    return leakChecker;
}

Boolean LUMTestAllocatorCheckOpenAllocations(LUMTestRef test, LUMAllocatorRef allocator)
{
    LUMAllocatorContext context;
    LUMAllocatorGetContext(allocator, &context);
    LUM_ASSERT_AT(346, context.allocate == __LUMTestAllocatorAllocate);
    LUM_ASSERT_AT(347, context.reallocate == __LUMTestAllocatorReallocate);
    LUM_ASSERT_AT(348, context.deallocate == __LUMTestAllocatorDeallocate);
    LUMIndex expectedRetainCount = allocator == LUMAllocatorGetDefault() ? 2 : 1;
    LUMDictionaryRef openAllocations = openAllocationsOf(context.info);
    if (LUMDictionaryGetCount(openAllocations) == 0 && LUMGetRetainCount(allocator) == expectedRetainCount) return true;
    __LUMTestAllocatorPrintReport(openAllocations);
    return false;
}

Boolean _LUMTestEqualDoubles(double a, double b, double epsilon)
{
    // The absolute value by clearing the sign bit of the difference.
    double difference = a - b;
    uint64_t bits;
    memcpy(&bits, &difference, sizeof(bits));
    bits &= ~(static_cast<uint64_t>(1) << 63);
    memcpy(&difference, &bits, sizeof(bits));
    return difference <= epsilon;
}
