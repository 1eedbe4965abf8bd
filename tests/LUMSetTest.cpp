/* LUMSetTest.cpp — sets and their callback rules.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <LumBase/LUMInternal.h>

#include <random>
#include <string>
#include <vector>

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

namespace {

std::vector<std::string> Values(LUMSetRef set)
{
    std::vector<const void *> values(static_cast<size_t>(LUMSetGetCount(set)));
    LUMSetGetValues(set, values.data());
    std::vector<std::string> texts;
    for (const void *v : values) texts.push_back(Text(static_cast<LUMStringRef>(v)));
    return texts;
}

} // namespace

TEST(LUMSet, LargeSetsOfStringsAnswerAsTheScanDoes)
{
    // Random adds, sets, replaces, removes and lookups on a set comparing
    // with LUMEqual and on its twin comparing through a function of the
    // test's own (which always scans): every answer (the last match, by
    // identity too), the order, the callbacks' calls and the allocator's
    // calls agree.
    const LUMSetCallBacks indexed = {0, LoggingRetain, LoggingRelease, LUMCopyDescription, LUMEqual, LUMHash};
    const LUMSetCallBacks scanned = {0, LoggingRetain, LoggingRelease, LUMCopyDescription, ScanningEqual, LUMHash};
    CountingAllocator countA, countB;
    LUMMutableSetRef a = LUMSetCreateMutable(countA.allocator, 0, &indexed);
    LUMMutableSetRef b = LUMSetCreateMutable(countB.allocator, 0, &scanned);
    std::vector<std::string> callsA, callsB;
    std::mt19937 random(17);
    auto makeValue = [&random](const std::string &text) -> LUMStringRef {
        switch (random() % 3) {
        case 0: return LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8);
        case 1: {
            std::vector<UniChar> units(text.begin(), text.end());
            return LUMStringCreateWithCharacters(nullptr, units.data(), static_cast<LUMIndex>(units.size()));
        }
        default: {
            LUMMutableStringRef m = LUMStringCreateMutable(nullptr, 0); // a mutable probe
            LUMStringAppendCString(m, text.c_str(), kLUMStringEncodingUTF8);
            return m;
        }
        }
    };
    for (int step = 0; step < 5000; step++) {
        int range = step < 2500 ? 300 : 50;
        std::string text = "v" + std::to_string(random() % static_cast<uint32_t>(range));
        LUMStringRef value = makeValue(text);
        unsigned op = random() % 10;
        bool isMutable = reinterpret_cast<const __LUMString *>(value)->isMutable;
        if (isMutable && op < 6 && step != 3500) op = 7; // mutable values stay probes, but for once
        auto apply = [&](LUMMutableSetRef set, std::vector<std::string> *calls) {
            gRetainLog = calls;
            switch (op) {
            case 0: case 1: case 2: LUMSetAddValue(set, value); break;
            case 3: LUMSetSetValue(set, value); break;
            case 4: LUMSetReplaceValue(set, value); break;
            case 5: case 6: LUMSetRemoveValue(set, value); break;
            default: break;
            }
            gRetainLog = nullptr;
        };
        apply(a, &callsA);
        apply(b, &callsB);
        LUMStringRef probe = makeValue("v" + std::to_string(random() % static_cast<uint32_t>(range)));
        ASSERT_EQ(LUMSetContainsValue(a, probe), LUMSetContainsValue(b, probe)) << step;
        const void *foundA = nullptr, *foundB = nullptr;
        ASSERT_EQ(LUMSetGetValueIfPresent(a, probe, &foundA), LUMSetGetValueIfPresent(b, probe, &foundB)) << step;
        ASSERT_EQ(foundA, foundB) << step; // the very same object: the last match
        ASSERT_EQ(LUMSetGetCount(a), LUMSetGetCount(b)) << step;
        EXPECT_FALSE(LUMSetContainsValue(a, kLUMNull)); // not a string: nothing matches
        if (step % 500 == 0) {
            ASSERT_EQ(Values(a), Values(b)) << step;
        }
        if (step == 4000) {
            LUMSetRemoveAllValues(a);
            LUMSetRemoveAllValues(b);
        }
        LUMRelease(probe);
        LUMRelease(value);
    }
    EXPECT_EQ(Values(a), Values(b));
    EXPECT_EQ(callsA, callsB);
    ASSERT_EQ(countA.calls.size(), countB.calls.size());
    for (size_t i = 0; i < countA.calls.size(); i++) {
        EXPECT_EQ(countA.calls[i].kind, countB.calls[i].kind);
        EXPECT_EQ(countA.calls[i].size, countB.calls[i].size);
    }
    // Sets made whole, with repeated texts: the last one is found.
    LUMStringRef first = LUMStringCreateWithCString(nullptr, "same", kLUMStringEncodingUTF8);
    LUMStringRef second = LUMStringCreateWithCString(nullptr, "same", kLUMStringEncodingUTF8);
    std::vector<const void *> many;
    for (int i = 0; i < 40; i++) many.push_back(i == 5 ? first : (i == 30 ? second : LUMSTR("filler")));
    LUMSetRef whole = LUMSetCreate(nullptr, many.data(), static_cast<LUMIndex>(many.size()), &kLUMTypeSetCallBacks);
    EXPECT_EQ(LUMSetGetValue(whole, LUMSTR("same")), second);
    LUMRelease(whole);
    LUMRelease(second);
    LUMRelease(first);
    LUMRelease(a);
    LUMRelease(b);
}
