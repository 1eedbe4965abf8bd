/** @file LUMTest.h — a small unit-test harness: tests and suites, assertions,
 * skips, progress and summary output, and a leak-checking allocator.
 * Part of LumBase; MIT licence.
 *
 * Every single test runs with a fresh leak-checking allocator as the default
 * allocator. After a test without failures that allocator must have no open
 * blocks and no extra references, or a memory-leak report is printed (the
 * report does not fail the test). A suite stops at its first failing test. */
#ifndef LUMBASE_LUMTEST_H
#define LUMBASE_LUMTEST_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef void (*LUMTestFunction)(LUMTestRef test); /**< A test body, set-up or tear-down, given the test it runs for. */

/** What a test runs: its body, or none for a suite, and set-up and tear-down around it. */
typedef struct {
    void *reserved0;                   /**< stored, never read */
    void *reserved1;                   /**< stored, never read */
    LUMTestFunction testFunction;      /**< NULL for a suite */
    LUMTestFunction setUpFunction;     /**< may be NULL */
    LUMTestFunction tearDownFunction;  /**< may be NULL */
} LUMTestContext;

/** @{ */
/** Watch variables: set the pointer to an address and the counter to -n, and
 * the n-th allocation or reallocation of a leak-checking allocator that
 * returns that address prints the report (a place to stop a debugger). */
LUM_EXPORT extern void *__LUMTestAllocatorReportPointer;
LUM_EXPORT extern UInt32 __LUMTestAllocatorReportCounter;
/** @} */

/** The test class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMTestGetTypeID(void);

/** @{ */
/** Retains name. A context without a test function makes a suite. */
LUM_EXPORT LUMTestRef LUMTestCreate(LUMAllocatorRef allocator, LUMStringRef name, LUMTestContext context);
LUM_EXPORT LUMTestRef LUMTestCreateSuite(LUMAllocatorRef allocator, LUMStringRef name, LUMTestFunction setUp, LUMTestFunction tearDown);
LUM_EXPORT LUMTestRef LUMTestCreateTest(LUMAllocatorRef allocator, LUMStringRef name, LUMTestFunction testFunction);
/** @} */
/** Appends test to suite (retained); asserts that suite is a suite. */
LUM_EXPORT void LUMTestAddTest(LUMTestRef suite, LUMTestRef test);

/** Runs the tree, printing progress and a summary; true when no assertion
 * failed. */
LUM_EXPORT Boolean LUMTestRun(LUMTestRef test);
/** Prints "." for a passed assertion, the message for a failed one. */
LUM_EXPORT void LUMTestAssert(LUMTestRef test, Boolean condition, LUMStringRef message);
/** Marks the test skipped and prints message. */
LUM_EXPORT void LUMTestSkip(LUMTestRef test, LUMStringRef message);

/** The test's name (not retained for the caller). */
LUM_EXPORT LUMStringRef LUMTestGetName(LUMTestRef test);
/** How many tests ran: 1 for a test, the sum of its members for a suite. */
LUM_EXPORT UInt32 LUMTestGetTestCount(LUMTestRef test);
/** How many of them passed. */
LUM_EXPORT UInt32 LUMTestGetPassedCount(LUMTestRef test);
/** How many of them were skipped. */
LUM_EXPORT UInt32 LUMTestGetSkippedCount(LUMTestRef test);
/** How many of them failed. */
LUM_EXPORT UInt32 LUMTestGetFailedCount(LUMTestRef test);

/** A new leak-checking allocator (memory from the C heap; its bookkeeping
 * from allocator). */
LUM_EXPORT LUMAllocatorRef LUMTestCreateTestAllocator(LUMAllocatorRef allocator);
/** True when the allocator has no open blocks and no references beyond its
 * creator's (and the default setting's); otherwise prints the report. */
LUM_EXPORT Boolean LUMTestAllocatorCheckOpenAllocations(LUMTestRef test, LUMAllocatorRef allocator);

/** True when |a - b| <= epsilon. */
LUM_EXPORT Boolean _LUMTestEqualDoubles(double a, double b, double epsilon);

LUM_EXTERN_C_END

#endif
