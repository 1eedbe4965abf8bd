/* LUMArrayTest.cpp — arrays and the array callback rules.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {

struct ArrayView {
    LUMRuntimeBase base;
    LUMIndex count;
    LUMIndex capacityHint;
    LUMIndex slotCount;
};
LUMIndex SlotCount(LUMArrayRef a) { return reinterpret_cast<const ArrayView *>(a)->slotCount; }

struct Counts {
    int retains = 0, releases = 0;
    std::vector<LUMAllocatorRef> allocators;
} gCounts;

const void *countRetain(LUMAllocatorRef allocator, const void *value)
{
    gCounts.retains++;
    gCounts.allocators.push_back(allocator);
    return LUMRetain(value);
}
void countRelease(LUMAllocatorRef, const void *value)
{
    gCounts.releases++;
    LUMRelease(value);
}
const LUMArrayCallBacks kCounting = {0, countRetain, countRelease, LUMCopyDescription, LUMEqual};

LUMComparisonResult compareInts(const void *a, const void *b, void *)
{
    intptr_t x = reinterpret_cast<intptr_t>(a), y = reinterpret_cast<intptr_t>(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}
// Orders by tens only, so that 11, 12 and 13 are equal.
LUMComparisonResult compareTens(const void *a, const void *b, void *)
{
    intptr_t x = reinterpret_cast<intptr_t>(a) / 10, y = reinterpret_cast<intptr_t>(b) / 10;
    return x < y ? -1 : (x > y ? 1 : 0);
}
LUMComparisonResult neverGreater(const void *, const void *, void *) { return -1; }

const void *V(intptr_t n) { return reinterpret_cast<const void *>(n); }
intptr_t N(const void *v) { return reinterpret_cast<intptr_t>(v); }

std::vector<intptr_t> Values(LUMArrayRef array)
{
    std::vector<intptr_t> out;
    for (LUMIndex i = 0; i < LUMArrayGetCount(array); i++) out.push_back(N(LUMArrayGetValueAtIndex(array, i)));
    return out;
}

LUMStringRef Str(const char *text) { return LUMStringCreateWithCString(nullptr, text, kLUMStringEncodingUTF8); }

} // namespace

TEST(LUMArray, GrowthDoublesFromTenSlots)
{
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    EXPECT_EQ(SlotCount(array), 10);
    for (intptr_t i = 1; i <= 10; i++) LUMArrayAppendValue(array, V(i));
    EXPECT_EQ(SlotCount(array), 10);
    LUMArrayAppendValue(array, V(11));
    EXPECT_EQ(SlotCount(array), 20);
    for (intptr_t i = 12; i <= 20; i++) LUMArrayAppendValue(array, V(i));
    EXPECT_EQ(SlotCount(array), 20);
    LUMArrayAppendValue(array, V(21));
    EXPECT_EQ(SlotCount(array), 40);
    EXPECT_EQ(Values(array).back(), 21);
    LUMRelease(array);
}

TEST(LUMArray, EmptyArraysGrowFromOneSlot)
{
    // An array made with no values has no slots; doubling starts at one.
    LUMArrayRef empty = LUMArrayCreate(nullptr, nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMMutableArrayRef copy = LUMArrayCreateMutableCopy(nullptr, 99, empty);
    EXPECT_EQ(SlotCount(copy), 0);
    LUMArrayAppendValue(copy, LUMSTR("a"));
    EXPECT_EQ(SlotCount(copy), 1);
    LUMArrayAppendValue(copy, LUMSTR("b"));
    LUMArrayAppendValue(copy, LUMSTR("c"));
    EXPECT_EQ(SlotCount(copy), 4);
    EXPECT_EQ(LUMArrayGetCount(copy), 3);
    // The unchecked mutators work on the immutable one the same way.
    LUMArrayAppendValue(const_cast<__LUMArray *>(empty), LUMSTR("d"));
    EXPECT_EQ(LUMArrayGetCount(empty), 1);
    LUMRelease(copy);
    LUMRelease(empty);
}

TEST(LUMArray, BinarySearchReportsNoInsertionPoint)
{
    const void *values[] = {V(10), V(20), V(30), V(40)};
    LUMArrayRef array = LUMArrayCreate(nullptr, values, 4, nullptr);
    EXPECT_EQ(LUMArrayBSearchValues(array, LUMRangeMake(0, 0), V(10), compareInts, nullptr), -1);
    EXPECT_EQ(LUMArrayBSearchValues(array, LUMRangeMake(0, 4), V(25), compareInts, nullptr), -1);
    EXPECT_EQ(LUMArrayBSearchValues(array, LUMRangeMake(0, 4), V(30), compareInts, nullptr), 2);
    EXPECT_EQ(LUMArrayBSearchValues(array, LUMRangeMake(0, 4), V(10), compareInts, nullptr), 0);
    EXPECT_EQ(LUMArrayBSearchValues(array, LUMRangeMake(1, 3), V(10), compareInts, nullptr), -1);
    LUMRelease(array);
}

TEST(LUMArray, SortIsStableAndOnlyExchangesOnOne)
{
    // Tens decide the order; units tell equal elements apart.
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    for (intptr_t v : {31, 12, 33, 11, 32, 13}) LUMArrayAppendValue(array, V(v));
    LUMArraySortValues(array, LUMRangeMake(0, 6), compareTens, nullptr);
    EXPECT_EQ(Values(array), (std::vector<intptr_t>{12, 11, 13, 31, 33, 32}));
    LUMArraySortValues(array, LUMRangeMake(0, 6), neverGreater, nullptr);
    EXPECT_EQ(Values(array), (std::vector<intptr_t>{12, 11, 13, 31, 33, 32}));
    LUMArraySortValues(array, LUMRangeMake(3, 0), compareInts, nullptr);
    LUMRelease(array);
}

TEST(LUMArray, SortAssertsInOrder)
{
    LUMArrayRef immutable = LUMArrayCreate(nullptr, nullptr, 0, nullptr);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMArraySortValues(const_cast<__LUMArray *>(immutable), LUMRangeMake(0, 0), compareInts, nullptr); },
                                  "array->isMutable", "LUMArraySortValues", "src/LUMArray", 436));
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    LUMArrayAppendValue(array, V(1));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMArraySortValues(array, LUMRangeMake(-1, 1), compareInts, nullptr); },
                                  "range.location >= 0", "LUMArraySortValues", "src/LUMArray", 437));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMArraySortValues(array, LUMRangeMake(0, -1), compareInts, nullptr); },
                                  "range.length >= 0", "LUMArraySortValues", "src/LUMArray", 438));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMArraySortValues(array, LUMRangeMake(0, 2), compareInts, nullptr); },
                                  "(range.location + range.length) <= array->count", "LUMArraySortValues", "src/LUMArray", 439));
    LUMRelease(array);
    LUMRelease(immutable);
}

TEST(LUMArray, SetValueAssertsMutabilityAndIndex)
{
    LUMArrayRef immutable = LUMArrayCreate(nullptr, nullptr, 0, nullptr);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMArraySetValueAtIndex(const_cast<__LUMArray *>(immutable), 0, V(1)); },
                                  "array->isMutable", "LUMArraySetValueAtIndex", "src/LUMArray"));
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMArraySetValueAtIndex(array, 0, V(1)); }, "index < array->count",
                                  "LUMArraySetValueAtIndex", "src/LUMArray"));
    LUMRelease(array);
    LUMRelease(immutable);
}

TEST(LUMArray, ReplacingThreeWithOneRemovesTheValuesAfterTheRange)
{
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    for (intptr_t v = 0; v < 6; v++) LUMArrayAppendValue(array, V(v));
    const void *replacement[] = {V(9)};
    LUMArrayReplaceValues(array, LUMRangeMake(0, 3), replacement, 1);
    // Index 0 is replaced, then two values are removed at index 3: the values
    // 3 and 4 go, the leftovers 1 and 2 inside the range stay.
    EXPECT_EQ(Values(array), (std::vector<intptr_t>{9, 1, 2, 5}));
    EXPECT_EQ(LUMArrayGetCount(array), 4);
    LUMRelease(array);
}

TEST(LUMArray, ReplacingWithMoreValuesRetainsTheExtraOnesTwice)
{
    gCounts = Counts();
    LUMStringRef a = Str("a"), b = Str("b"), c = Str("c"), old = Str("old");
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, &kCounting);
    LUMArrayAppendValue(array, old);
    const void *newValues[] = {a, b, c};
    LUMArrayReplaceValues(array, LUMRangeMake(0, 1), newValues, 3);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(array, 2))), "c");
    EXPECT_EQ(LUMGetRetainCount(a), 2);
    EXPECT_EQ(LUMGetRetainCount(b), 3); // retained into the buffer, then by the insert
    EXPECT_EQ(LUMGetRetainCount(c), 3);
    EXPECT_EQ(LUMGetRetainCount(old), 1);
    LUMRelease(array);
    EXPECT_EQ(LUMGetRetainCount(b), 2);
    for (LUMStringRef s : {b, c}) LUMRelease(s); // the deliberate extra references
    for (LUMStringRef s : {a, b, c, old}) LUMRelease(s);
}

TEST(LUMArray, NullCallbacksTreatEqualObjectsAsDifferent)
{
    LUMStringRef first = Str("same"), second = Str("same");
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    LUMArrayAppendValue(array, first);
    EXPECT_FALSE(LUMArrayContainsValue(array, LUMRangeMake(0, 1), second));
    EXPECT_TRUE(LUMArrayContainsValue(array, LUMRangeMake(0, 1), first));
    EXPECT_EQ(LUMGetRetainCount(first), 1);
    std::string description = TakeText(LUMCopyDescription(array));
    EXPECT_NE(description.find("((no LUMTypes))"), std::string::npos);
    EXPECT_EQ(description.rfind(CFormat("<%p LUMArray retainCount=1 count=1 values=((no LUMTypes))>", static_cast<void *>(array)), 0), 0u);
    LUMMutableArrayRef objects = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMArrayAppendValue(objects, first);
    EXPECT_TRUE(LUMArrayContainsValue(objects, LUMRangeMake(0, 1), second));
    LUMRelease(objects);
    LUMRelease(array);
    LUMRelease(first);
    LUMRelease(second);
}

TEST(LUMArray, NullValuesNeverReachRetainOrRelease)
{
    gCounts = Counts();
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, &kCounting);
    LUMArrayAppendValue(array, nullptr);
    EXPECT_EQ(gCounts.retains, 0);
    EXPECT_EQ(LUMArrayGetValueAtIndex(array, 0), nullptr);
    LUMArrayAppendValue(array, LUMSTR("x"));
    EXPECT_EQ(gCounts.retains, 1);
    EXPECT_EQ(gCounts.allocators.back(), LUMGetAllocator(array)); // the array's allocator comes first
    LUMArraySetValueAtIndex(array, 1, nullptr);
    EXPECT_EQ(gCounts.releases, 1);
    LUMArrayRemoveValueAtIndex(array, 0);
    EXPECT_EQ(gCounts.releases, 1);
    EXPECT_EQ(LUMArrayGetCountOfValue(array, LUMRangeMake(0, 1), nullptr), 1);
    LUMRelease(array);
    EXPECT_EQ(gCounts.releases, 1);
}

TEST(LUMArray, CopiesRetainThroughTheNewArraysAllocator)
{
    gCounts = Counts();
    CountingAllocator counting;
    LUMStringRef s = Str("s");
    const void *values[] = {s, s};
    LUMArrayRef array = LUMArrayCreate(nullptr, values, 2, &kCounting);
    EXPECT_EQ(gCounts.retains, 2);
    LUMArrayRef copy = LUMArrayCreateCopy(counting.allocator, array);
    EXPECT_EQ(gCounts.retains, 4);
    EXPECT_EQ(gCounts.allocators.back(), counting.allocator);
    EXPECT_EQ(LUMGetRetainCount(s), 5);
    EXPECT_TRUE(LUMEqual(array, copy));
    LUMRelease(copy);
    LUMRelease(array);
    EXPECT_EQ(gCounts.releases, 4);
    EXPECT_EQ(LUMGetRetainCount(s), 1);
    LUMRelease(s);
}

TEST(LUMArray, QueriesAndMutations)
{
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, nullptr);
    for (intptr_t v : {1, 2, 1, 3, 1}) LUMArrayAppendValue(array, V(v));
    LUMRange all = LUMRangeMake(0, 5);
    EXPECT_EQ(LUMArrayGetCountOfValue(array, all, V(1)), 3);
    EXPECT_EQ(LUMArrayGetFirstIndexOfValue(array, LUMRangeMake(1, 4), V(1)), 2);
    EXPECT_EQ(LUMArrayGetLastIndexOfValue(array, all, V(1)), 4);
    EXPECT_EQ(LUMArrayGetLastIndexOfValue(array, all, V(7)), -1);
    LUMArrayInsertValueAtIndex(array, 0, V(0));
    LUMArrayExchangeValuesAtIndices(array, 0, 5);
    EXPECT_EQ(Values(array), (std::vector<intptr_t>{1, 1, 2, 1, 3, 0}));
    const void *some[2];
    LUMArrayGetValues(array, LUMRangeMake(3, 2), some);
    EXPECT_EQ(N(some[0]), 1);
    EXPECT_EQ(N(some[1]), 3);
    LUMMutableArrayRef other = LUMArrayCreateMutable(nullptr, 0, nullptr);
    LUMArrayAppendArray(other, array, LUMRangeMake(2, 3));
    EXPECT_EQ(Values(other), (std::vector<intptr_t>{2, 1, 3}));
    std::vector<intptr_t> applied;
    LUMArrayApplyFunction(other, LUMRangeMake(1, 2), [](const void *v, void *c) {
        static_cast<std::vector<intptr_t> *>(c)->push_back(N(v));
    }, &applied);
    EXPECT_EQ(applied, (std::vector<intptr_t>{1, 3}));
    LUMArrayRemoveAllValues(other);
    EXPECT_EQ(LUMArrayGetCount(other), 0);
    LUMRelease(other);
    LUMRelease(array);
}

TEST(LUMArray, RemoveAllReleasesLastToFirst)
{
    std::vector<std::string> order;
    static std::vector<std::string> *sink;
    sink = &order;
    LUMArrayCallBacks recording = {0, nullptr, [](LUMAllocatorRef, const void *v) {
        sink->push_back(Text(static_cast<LUMStringRef>(v)));
    }, nullptr, nullptr};
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, &recording);
    for (const char *t : {"a", "b", "c"}) LUMArrayAppendValue(array, LUMSTR(t));
    LUMArrayRemoveAllValues(array);
    EXPECT_EQ(order, (std::vector<std::string>{"c", "b", "a"}));
    LUMRelease(array);
}

TEST(LUMArray, EqualityUsesTheSecondArraysCallbacks)
{
    LUMStringRef a = Str("v"), b = Str("v");
    LUMMutableArrayRef raw = LUMArrayCreateMutable(nullptr, 0, nullptr);
    LUMMutableArrayRef objects = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMArrayAppendValue(raw, a);
    LUMArrayAppendValue(objects, b);
    EXPECT_TRUE(LUMEqual(raw, objects));  // objects' equal callback decides
    EXPECT_FALSE(LUMEqual(objects, raw)); // raw's: identity only
    LUMRelease(raw);
    LUMRelease(objects);
    LUMRelease(a);
    LUMRelease(b);
}

TEST(LUMArray, ReplacingWithMoreThan256ValuesUsesTheArraysAllocator)
{
    // Above 256 new values the temporary buffer comes from the array's
    // allocator and is deliberately not given back.
    CountingAllocator counting;
    LUMMutableArrayRef array = LUMArrayCreateMutable(counting.allocator, 0, nullptr);
    std::vector<const void *> values(300);
    for (size_t i = 0; i < values.size(); i++) values[i] = V(static_cast<intptr_t>(i + 1));
    int allocationsBefore = counting.allocations;
    LUMArrayReplaceValues(array, LUMRangeMake(0, 0), values.data(), 300);
    EXPECT_EQ(counting.allocations, allocationsBefore + 1);
    EXPECT_EQ(LUMArrayGetCount(array), 300);
    EXPECT_EQ(Values(array)[299], 300);
    int deallocationsBefore = counting.deallocations;
    LUMRelease(array);
    EXPECT_EQ(counting.deallocations, deallocationsBefore + 2); // the object and its slots, not the buffer
    const void *small[] = {V(1)};
    LUMMutableArrayRef other = LUMArrayCreateMutable(counting.allocator, 0, nullptr);
    allocationsBefore = counting.allocations;
    LUMArrayReplaceValues(other, LUMRangeMake(0, 0), small, 1);
    EXPECT_EQ(counting.allocations, allocationsBefore); // on the stack
    LUMRelease(other);
}

namespace {

LUMArrayRef gCountedArray = nullptr;
std::vector<LUMIndex> gCountsSeenByRelease;

void releaseSeeingCount(LUMAllocatorRef, const void *) { gCountsSeenByRelease.push_back(LUMArrayGetCount(gCountedArray)); }

LUMMutableArrayRef ArrayOfThreeSeeingCounts()
{
    static const LUMArrayCallBacks callBacks = {0, nullptr, releaseSeeingCount, nullptr, nullptr};
    LUMMutableArrayRef array = LUMArrayCreateMutable(nullptr, 0, &callBacks);
    for (int i = 1; i <= 3; i++) LUMArrayAppendValue(array, reinterpret_cast<const void *>(static_cast<uintptr_t>(i)));
    gCountedArray = array;
    gCountsSeenByRelease.clear();
    return array;
}

} // namespace

TEST(LUMArray, RemovalReleasesBeforeTheCountDrops)
{
    LUMMutableArrayRef array = ArrayOfThreeSeeingCounts();
    LUMArrayRemoveValueAtIndex(array, 0);
    EXPECT_EQ(gCountsSeenByRelease, std::vector<LUMIndex>({3}));
    EXPECT_EQ(LUMArrayGetCount(array), 2);
    EXPECT_EQ(LUMArrayGetValueAtIndex(array, 0), reinterpret_cast<const void *>(2));
    EXPECT_EQ(LUMArrayGetValueAtIndex(array, 1), reinterpret_cast<const void *>(3));
    LUMRelease(array);
}

TEST(LUMArray, RemoveAllValuesShowsCountsThreeTwoOne)
{
    LUMMutableArrayRef array = ArrayOfThreeSeeingCounts();
    LUMArrayRemoveAllValues(array);
    EXPECT_EQ(gCountsSeenByRelease, std::vector<LUMIndex>({3, 2, 1}));
    EXPECT_EQ(LUMArrayGetCount(array), 0);
    LUMRelease(array);
}

namespace {

std::vector<std::pair<uintptr_t, uintptr_t>> gEqualCalls;
Boolean loggingEqual(const void *a, const void *b)
{
    gEqualCalls.push_back({reinterpret_cast<uintptr_t>(a), reinterpret_cast<uintptr_t>(b)});
    return (reinterpret_cast<uintptr_t>(a) & 0xFF) == (reinterpret_cast<uintptr_t>(b) & 0xFF);
}

LUMArrayRef LoggingArray(std::initializer_list<uintptr_t> values)
{
    static const LUMArrayCallBacks callBacks = {0, nullptr, nullptr, nullptr, loggingEqual};
    std::vector<const void *> pointers;
    for (uintptr_t v : values) pointers.push_back(reinterpret_cast<const void *>(v));
    return LUMArrayCreate(nullptr, pointers.data(), static_cast<LUMIndex>(pointers.size()), &callBacks);
}

/* An array of retained objects, the creator's references given over. */
LUMArrayRef Holding(std::initializer_list<LUMTypeRef> values)
{
    std::vector<const void *> pointers(values.begin(), values.end());
    LUMArrayRef array = LUMArrayCreate(nullptr, pointers.data(), static_cast<LUMIndex>(pointers.size()), &kLUMTypeArrayCallBacks);
    for (LUMTypeRef v : values) LUMRelease(v);
    return array;
}

} // namespace

TEST(LUMArray, NestedEqualityCallsCustomCallbacksAsRecursionWould)
{
    // Outer arrays compare with LUMEqual; the inner ones with a logging
    // callback of their own: its calls come in the recursive order and stop
    // at the first unequal pair.
    LUMArrayRef a = Holding({Holding({LoggingArray({0x101, 0x102})}), LoggingArray({0x103})});
    LUMArrayRef b = Holding({Holding({LoggingArray({0x201, 0x202})}), LoggingArray({0x203})});
    gEqualCalls.clear();
    EXPECT_TRUE(LUMEqual(a, b));
    std::vector<std::pair<uintptr_t, uintptr_t>> expected = {{0x101, 0x201}, {0x102, 0x202}, {0x103, 0x203}};
    EXPECT_EQ(gEqualCalls, expected);
    LUMArrayRef c = Holding({Holding({LoggingArray({0x301, 0x1FF})}), LoggingArray({0x103})});
    gEqualCalls.clear();
    EXPECT_FALSE(LUMEqual(a, c));
    expected = {{0x101, 0x301}, {0x102, 0x1FF}};
    EXPECT_EQ(gEqualCalls, expected);
    LUMRelease(a);
    LUMRelease(b);
    LUMRelease(c);
}

TEST(LUMArray, GrowthThatCannotBeHadLeavesTheArrayAsItWas)
{
    // Blocks below twenty slots are allowed (the array object fits too);
    // the doubling from ten to twenty is refused, and the eleventh value is
    // neither stored nor retained.
    LUMAllocatorRef limited = LimitedAllocator(static_cast<UInt32>(20 * sizeof(void *) - 1));
    LUMMutableArrayRef array = LUMArrayCreateMutable(limited, 0, &kLUMTypeArrayCallBacks);
    ASSERT_NE(array, nullptr);
    LUMStringRef value = LUMStringCreateWithCString(nullptr, "v", kLUMStringEncodingUTF8);
    for (int i = 0; i < 11; i++) LUMArrayAppendValue(array, value);
    EXPECT_EQ(LUMArrayGetCount(array), 10);
    EXPECT_EQ(LUMGetRetainCount(value), 11);
    // A block that cannot be made gives no array at all.
    const void *values[20] = {};
    EXPECT_EQ(LUMArrayCreate(limited, values, 20, nullptr), nullptr);
    LUMRelease(array);
    EXPECT_EQ(LUMGetRetainCount(value), 1);
    LUMRelease(value);
    LUMRelease(limited);
}
