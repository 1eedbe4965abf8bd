/* LUMSetTest.cpp — sets and their callback rules.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {

struct SetView {
    LUMRuntimeBase base;
    LUMSetCallBacks callBacks;
    const void **values;
    LUMIndex count;
    LUMIndex slotCount;
};
LUMIndex SlotCount(LUMSetRef s) { return reinterpret_cast<const SetView *>(s)->slotCount; }

int gRetains = 0, gReleases = 0;
std::vector<const void *> gRetained;
const void *countRetain(const void *v)
{
    gRetains++;
    gRetained.push_back(v);
    return v;
}
void countRelease(const void *) { gReleases++; }
const LUMSetCallBacks kCounting = {0, countRetain, countRelease, nullptr, nullptr, nullptr};

const void *V(intptr_t n) { return reinterpret_cast<const void *>(n); }

} // namespace

TEST(LUMSet, SeventeenthValueDoublesTheSlots)
{
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, nullptr);
    EXPECT_EQ(SlotCount(set), 16);
    for (intptr_t i = 1; i <= 16; i++) LUMSetAddValue(set, V(i));
    EXPECT_EQ(SlotCount(set), 16);
    LUMSetAddValue(set, V(17));
    EXPECT_EQ(SlotCount(set), 32);
    EXPECT_EQ(LUMSetGetCount(set), 17);
    LUMSetAddValue(set, V(17)); // already there
    EXPECT_EQ(LUMSetGetCount(set), 17);
    LUMRelease(set);
}

TEST(LUMSet, DuplicatesFromCreateAndRemovingTheLaterCopy)
{
    LUMStringRef first = LUMStringCreateWithCString(nullptr, "dup", kLUMStringEncodingUTF8);
    LUMStringRef second = LUMStringCreateWithCString(nullptr, "dup", kLUMStringEncodingUTF8);
    const void *values[] = {first, second};
    LUMSetRef set = LUMSetCreate(nullptr, values, 2, &kLUMTypeSetCallBacks);
    EXPECT_EQ(LUMSetGetCount(set), 2);
    EXPECT_EQ(LUMSetGetValue(set, first), second); // the last match wins
    LUMSetRemoveValue(const_cast<__LUMSet *>(set), first);
    EXPECT_EQ(LUMSetGetCount(set), 1);
    const void *left = nullptr;
    LUMSetGetValues(set, &left);
    EXPECT_EQ(left, first);
    EXPECT_EQ(LUMGetRetainCount(second), 1);
    EXPECT_EQ(LUMGetRetainCount(first), 2);
    LUMRelease(set);
    LUMRelease(first);
    LUMRelease(second);
}

TEST(LUMSet, CopyStringCallbacksStoreImmutableCopies)
{
    LUMMutableStringRef key = LUMStringCreateMutableCopy(nullptr, 0, LUMSTR("member"));
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &kLUMCopyStringSetCallBacks);
    LUMSetAddValue(set, key);
    const void *stored = LUMSetGetValue(set, key);
    EXPECT_NE(stored, static_cast<const void *>(key));
    EXPECT_EQ(static_cast<LUMStringRef>(stored)->isMutable, 0);
    EXPECT_TRUE(LUMEqual(stored, key));
    LUMRelease(set);
    LUMRelease(key);
}

TEST(LUMSet, ReplaceOnlyWhenPresentSetAlways)
{
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &kLUMTypeSetCallBacks);
    LUMStringRef a = LUMStringCreateWithCString(nullptr, "a", kLUMStringEncodingUTF8);
    LUMSetReplaceValue(set, a);
    EXPECT_EQ(LUMSetGetCount(set), 0);
    LUMSetSetValue(set, a);
    EXPECT_EQ(LUMSetGetCount(set), 1);
    LUMStringRef a2 = LUMStringCreateWithCString(nullptr, "a", kLUMStringEncodingUTF8);
    LUMSetReplaceValue(set, a2);
    EXPECT_EQ(LUMSetGetValue(set, a), a2);
    EXPECT_EQ(LUMGetRetainCount(a), 1);
    LUMSetSetValue(set, a);
    EXPECT_EQ(LUMSetGetCount(set), 1);
    EXPECT_EQ(LUMSetGetValue(set, a2), a);
    LUMRelease(set);
    LUMRelease(a);
    LUMRelease(a2);
}

TEST(LUMSet, RetainAndReleaseSeeNullValuesToo)
{
    gRetains = gReleases = 0;
    gRetained.clear();
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &kCounting);
    LUMSetAddValue(set, nullptr);
    EXPECT_EQ(gRetains, 1);
    EXPECT_EQ(gRetained.back(), nullptr);
    EXPECT_TRUE(LUMSetContainsValue(set, nullptr));
    LUMSetAddValue(set, V(5));
    LUMSetRemoveValue(set, nullptr);
    EXPECT_EQ(gReleases, 1);
    LUMRelease(set);
    EXPECT_EQ(gReleases, 2);
}

TEST(LUMSet, AddAssertsMutability)
{
    LUMSetRef set = LUMSetCreate(nullptr, nullptr, 0, &kLUMTypeSetCallBacks);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMSetAddValue(const_cast<__LUMSet *>(set), LUMSTR("x")); }, "set->isMutable",
                                  "LUMSetAddValue", "src/LUMSet", 338));
    // The unchecked mutators grow the empty block from one slot.
    LUMSetSetValue(const_cast<__LUMSet *>(set), LUMSTR("x"));
    EXPECT_EQ(SlotCount(set), 1);
    LUMSetSetValue(const_cast<__LUMSet *>(set), LUMSTR("y"));
    EXPECT_EQ(SlotCount(set), 2);
    EXPECT_EQ(LUMSetGetCount(set), 2);
    LUMRelease(set);
}

TEST(LUMSet, CopiesAndEquality)
{
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &kLUMTypeSetCallBacks);
    // Constant strings keep their text's pointer: only literals go to LUMSTR.
    const char *names[] = {"s0", "s1", "s2", "s3", "s4", "s5", "s6", "s7", "s8", "s9",
                           "s10", "s11", "s12", "s13", "s14", "s15", "s16", "s17", "s18", "s19"};
    for (int i = 0; i < 20; i++) {
        LUMSetAddValue(set, LUMSTR(names[i]));
    }
    LUMSetRef copy = LUMSetCreateCopy(nullptr, set);
    EXPECT_EQ(SlotCount(copy), 20);
    LUMMutableSetRef mutableCopy = LUMSetCreateMutableCopy(nullptr, 0, set);
    EXPECT_EQ(SlotCount(mutableCopy), 32);
    EXPECT_TRUE(LUMEqual(set, copy));
    LUMSetRemoveValue(mutableCopy, LUMSTR("s3"));
    EXPECT_FALSE(LUMEqual(set, mutableCopy));
    std::vector<std::string> seen;
    LUMSetApplyFunction(mutableCopy, [](const void *v, void *c) {
        static_cast<std::vector<std::string> *>(c)->push_back(Text(static_cast<LUMStringRef>(v)));
    }, &seen);
    EXPECT_EQ(seen.size(), 19u);
    EXPECT_EQ(seen[3], "s4"); // packed, insertion order
    LUMSetRemoveAllValues(mutableCopy);
    EXPECT_EQ(LUMSetGetCount(mutableCopy), 0);
    // Sets have no description of their own: the generic one applies.
    EXPECT_EQ(TakeText(LUMCopyDescription(copy)), CFormat("<%p:LUMSet retainCount=1>", static_cast<const void *>(copy)));
    LUMRelease(mutableCopy);
    LUMRelease(copy);
    LUMRelease(set);
}

namespace {

LUMSetRef gCountedSet = nullptr;
std::vector<std::pair<LUMIndex, uintptr_t>> gSetReleases;

void setReleaseSeeingCount(const void *value)
{
    gSetReleases.push_back({LUMSetGetCount(gCountedSet), reinterpret_cast<uintptr_t>(value)});
}

LUMMutableSetRef SetOfThreeSeeingCounts()
{
    static const LUMSetCallBacks callBacks = {0, nullptr, setReleaseSeeingCount, nullptr, nullptr, nullptr};
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &callBacks);
    for (uintptr_t i = 1; i <= 3; i++) LUMSetAddValue(set, reinterpret_cast<const void *>(i));
    gCountedSet = set;
    gSetReleases.clear();
    return set;
}

} // namespace

TEST(LUMSet, RemovalReleasesBeforeTheCountDrops)
{
    LUMMutableSetRef set = SetOfThreeSeeingCounts();
    LUMSetRemoveValue(set, reinterpret_cast<const void *>(1));
    ASSERT_EQ(gSetReleases.size(), 1u);
    EXPECT_EQ(gSetReleases[0].first, 3);
    EXPECT_EQ(gSetReleases[0].second, 1u);
    EXPECT_EQ(LUMSetGetCount(set), 2);
    const void *values[2];
    LUMSetGetValues(set, values);
    EXPECT_EQ(values[0], reinterpret_cast<const void *>(2));
    EXPECT_EQ(values[1], reinterpret_cast<const void *>(3));
    LUMRelease(set);
}

TEST(LUMSet, RemoveAllValuesGoesLastToFirstWithCountsThreeTwoOne)
{
    LUMMutableSetRef set = SetOfThreeSeeingCounts();
    LUMSetRemoveAllValues(set);
    std::vector<std::pair<LUMIndex, uintptr_t>> expected = {{3, 3}, {2, 2}, {1, 1}};
    EXPECT_EQ(gSetReleases, expected);
    EXPECT_EQ(LUMSetGetCount(set), 0);
    LUMRelease(set);
}
