/* LUMDictionaryTest.cpp — dictionaries and the callback records they use.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"
#include "LUMStringPrivate.h"

#include <random>

using namespace lumtest;

namespace {

// Counting callbacks over plain objects.
struct Counts {
    int retains = 0, releases = 0, equals = 0, hashes = 0;
    std::vector<const void *> retained, released;
} gCounts;

const void *countRetain(const void *value)
{
    gCounts.retains++;
    gCounts.retained.push_back(value);
    return LUMRetain(value);
}
void countRelease(const void *value)
{
    gCounts.releases++;
    gCounts.released.push_back(value);
    LUMRelease(value);
}
Boolean countEqual(const void *a, const void *b)
{
    gCounts.equals++;
    return LUMEqual(a, b);
}
LUMHashCode countHash(const void *value)
{
    gCounts.hashes++;
    return LUMHash(value);
}
const LUMDictionaryKeyCallBacks kCountingKeys = {0, countRetain, countRelease, LUMCopyDescription, countEqual, countHash};
const LUMDictionaryValueCallBacks kCountingValues = {0, countRetain, countRelease, LUMCopyDescription, countEqual};

LUMMutableDictionaryRef NewObjectDictionary()
{
    return LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
}

LUMStringRef Str(const char *text) { return LUMStringCreateWithCString(nullptr, text, kLUMStringEncodingUTF8); }

struct __LUMDictionaryView {
    LUMRuntimeBase base;
    LUMIndex count;
    LUMIndex capacityHint;
    LUMIndex slotCount;
};
LUMIndex SlotCount(LUMDictionaryRef d) { return reinterpret_cast<const __LUMDictionaryView *>(d)->slotCount; }

void collectKeys(const void *key, const void *, void *context)
{
    static_cast<std::vector<std::string> *>(context)->push_back(Text(static_cast<LUMStringRef>(key)));
}

} // namespace

TEST(LUMDictionary, EleventhKeyDoublesTheSlots)
{
    LUMMutableDictionaryRef d = NewObjectDictionary();
    EXPECT_EQ(SlotCount(d), 10);
    // Constant strings keep their text's pointer: only literals go to LUMSTR.
    const char *names[] = {"k0", "k1", "k2", "k3", "k4", "k5", "k6", "k7", "k8", "k9", "k10"};
    for (int i = 0; i < 10; i++) {
        LUMDictionarySetValue(d, LUMSTR(names[i]), kLUMNull);
    }
    EXPECT_EQ(SlotCount(d), 10);
    LUMDictionarySetValue(d, LUMSTR("k10"), kLUMNull);
    EXPECT_EQ(SlotCount(d), 20);
    EXPECT_EQ(LUMDictionaryGetCount(d), 11);
    for (int i = 0; i < 10; i++) EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR(names[i])), kLUMNull);
    LUMRelease(d);
}

TEST(LUMDictionary, NewKeyTakesTheFirstHole)
{
    LUMMutableDictionaryRef d = NewObjectDictionary();
    LUMDictionarySetValue(d, LUMSTR("a"), kLUMNull);
    LUMDictionarySetValue(d, LUMSTR("b"), kLUMNull);
    LUMDictionarySetValue(d, LUMSTR("c"), kLUMNull);
    LUMDictionaryRemoveValue(d, LUMSTR("a"));
    LUMDictionarySetValue(d, LUMSTR("d"), kLUMNull);
    std::vector<std::string> keys;
    LUMDictionaryApplyFunction(d, collectKeys, &keys);
    EXPECT_EQ(keys, (std::vector<std::string>{"d", "b", "c"}));
    const void *k[3], *v[3];
    LUMDictionaryGetKeysAndValues(d, k, v);
    EXPECT_EQ(k[0], LUMSTR("d"));
    EXPECT_EQ(v[2], kLUMNull);
    LUMRelease(d);
}

TEST(LUMDictionary, AddKeepsAndReplaceDoesNotAdd)
{
    LUMMutableDictionaryRef d = NewObjectDictionary();
    LUMDictionarySetValue(d, LUMSTR("key"), LUMSTR("old"));
    LUMDictionaryAddValue(d, LUMSTR("key"), LUMSTR("new"));
    EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR("key")), LUMSTR("old"));
    LUMDictionaryReplaceValue(d, LUMSTR("absent"), LUMSTR("x"));
    EXPECT_EQ(LUMDictionaryGetCount(d), 1);
    EXPECT_FALSE(LUMDictionaryContainsKey(d, LUMSTR("absent")));
    LUMDictionaryReplaceValue(d, LUMSTR("key"), LUMSTR("replaced"));
    EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR("key")), LUMSTR("replaced"));
    LUMDictionaryAddValue(d, LUMSTR("other"), LUMSTR("added"));
    EXPECT_EQ(LUMDictionaryGetCount(d), 2);
    LUMRelease(d);
}

TEST(LUMDictionary, DictionaryWithoutSlotsStoresNothing)
{
    LUMDictionaryRef empty = LUMDictionaryCreate(nullptr, nullptr, nullptr, 0, &kLUMTypeDictionaryKeyCallBacks,
                                                 &kLUMTypeDictionaryValueCallBacks);
    LUMDictionarySetValue(const_cast<__LUMDictionary *>(empty), LUMSTR("k"), LUMSTR("v"));
    EXPECT_EQ(LUMDictionaryGetCount(empty), 0);
    LUMMutableDictionaryRef copy = LUMDictionaryCreateMutableCopy(nullptr, 5, empty);
    EXPECT_EQ(SlotCount(copy), 0);
    LUMDictionarySetValue(copy, LUMSTR("k"), LUMSTR("v"));
    EXPECT_EQ(LUMDictionaryGetCount(copy), 0);
    EXPECT_EQ(LUMDictionaryGetValue(copy, LUMSTR("k")), nullptr);
    LUMRelease(copy);
    LUMRelease(empty);
}

TEST(LUMDictionary, AbsentKeyAndNullValueLookAlike)
{
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, nullptr);
    LUMDictionarySetValue(d, LUMSTR("present"), nullptr);
    EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR("present")), nullptr);
    EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR("absent")), nullptr);
    const void *out = LUMSTR("untouched");
    EXPECT_TRUE(LUMDictionaryGetValueIfPresent(d, LUMSTR("present"), &out));
    EXPECT_EQ(out, nullptr);
    EXPECT_FALSE(LUMDictionaryGetValueIfPresent(d, LUMSTR("absent"), &out));
    EXPECT_EQ(LUMDictionaryGetCountOfKey(d, LUMSTR("present")), 1);
    LUMRelease(d);
}

TEST(LUMDictionary, CallbacksRunForNonNullValuesOnly)
{
    gCounts = Counts();
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kCountingKeys, &kCountingValues);
    LUMStringRef key = Str("key");
    LUMStringRef value = Str("value");
    LUMDictionarySetValue(d, key, value);
    EXPECT_EQ(gCounts.retains, 2);
    EXPECT_EQ(LUMGetRetainCount(key), 2);
    LUMDictionarySetValue(d, key, nullptr); // the old value is released, NULL is never retained
    EXPECT_EQ(gCounts.retains, 2);
    EXPECT_EQ(gCounts.releases, 1);
    EXPECT_EQ(LUMGetRetainCount(value), 1);
    LUMDictionarySetValue(d, key, value);
    EXPECT_EQ(gCounts.retains, 3);
    EXPECT_EQ(gCounts.releases, 1); // the old NULL value is not released
    LUMDictionarySetValue(d, key, value); // over itself: retained before the old is released
    EXPECT_EQ(LUMGetRetainCount(value), 2);
    int equalsBefore = gCounts.equals;
    LUMDictionaryGetValue(d, key); // identical pointers match before equal is asked
    EXPECT_EQ(gCounts.equals, equalsBefore);
    LUMStringRef sameText = Str("key");
    EXPECT_EQ(LUMDictionaryGetValue(d, sameText), value);
    EXPECT_GT(gCounts.equals, equalsBefore);
    EXPECT_EQ(gCounts.hashes, 0); // lookup never hashes
    gCounts.releases = 0;
    LUMRelease(d);
    EXPECT_EQ(gCounts.releases, 2);
    EXPECT_EQ(LUMGetRetainCount(key), 1);
    EXPECT_EQ(LUMGetRetainCount(value), 1);
    LUMRelease(sameText);
    LUMRelease(key);
    LUMRelease(value);
}

TEST(LUMDictionary, NullCallbacksCompareByIdentity)
{
    LUMStringRef a = Str("same");
    LUMStringRef b = Str("same");
    ASSERT_TRUE(LUMEqual(a, b));
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, nullptr, nullptr);
    LUMDictionarySetValue(d, a, kLUMNull);
    LUMDictionarySetValue(d, b, kLUMBooleanTrue);
    EXPECT_EQ(LUMDictionaryGetCount(d), 2);
    EXPECT_EQ(LUMGetRetainCount(a), 1); // raw pointers: never retained
    LUMStringRef description = LUMCopyDescription(d);
    EXPECT_NE(Text(description).find("values=((no LUMTypes))>"), std::string::npos);
    LUMRelease(description);
    LUMRelease(d);
    LUMRelease(a);
    LUMRelease(b);
}

TEST(LUMDictionary, CopyStringKeysAreImmutableCopies)
{
    LUMMutableStringRef key = LUMStringCreateMutableCopy(nullptr, 0, LUMSTR("name"));
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMCopyStringDictionaryKeyCallBacks,
                                                           &kLUMTypeDictionaryValueCallBacks);
    LUMDictionarySetValue(d, key, LUMSTR("value"));
    const void *storedKey = nullptr, *storedValue = nullptr;
    LUMDictionaryGetKeysAndValues(d, &storedKey, &storedValue);
    EXPECT_NE(storedKey, static_cast<const void *>(key));
    LUMStringAppendCString(key, "changed", kLUMStringEncodingUTF8);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(storedKey)), "name");
    EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR("name")), LUMSTR("value"));
    EXPECT_EQ(LUMGetRetainCount(key), 1);
    // An immutable key with its own allocator is "copied" by retaining it.
    LUMStringRef immutableKey = Str("other");
    LUMDictionarySetValue(d, immutableKey, kLUMNull);
    EXPECT_EQ(LUMGetRetainCount(immutableKey), 2);
    LUMRelease(d);
    EXPECT_EQ(LUMGetRetainCount(immutableKey), 1);
    LUMRelease(immutableKey);
    LUMRelease(key);
}

TEST(LUMDictionary, CopiesKeepHolesAndRetainAgain)
{
    LUMMutableDictionaryRef d = NewObjectDictionary();
    LUMStringRef value = Str("v");
    LUMDictionarySetValue(d, LUMSTR("a"), value);
    LUMDictionarySetValue(d, LUMSTR("b"), value);
    LUMDictionaryRemoveValue(d, LUMSTR("a"));
    LUMDictionaryRef copy = LUMDictionaryCreateCopy(nullptr, d);
    EXPECT_EQ(SlotCount(copy), 10);
    EXPECT_EQ(LUMDictionaryGetCount(copy), 1);
    EXPECT_EQ(LUMGetRetainCount(value), 3);
    std::vector<std::string> keys;
    LUMDictionaryApplyFunction(copy, collectKeys, &keys);
    EXPECT_EQ(keys, std::vector<std::string>{"b"});
    EXPECT_TRUE(LUMEqual(d, copy));
    LUMRelease(copy);
    LUMRelease(d);
    EXPECT_EQ(LUMGetRetainCount(value), 1);
    LUMRelease(value);
}

TEST(LUMDictionary, EqualityComparesTheFirstCountSlotsOfTheFirst)
{
    LUMMutableDictionaryRef a = NewObjectDictionary();
    LUMMutableDictionaryRef b = NewObjectDictionary();
    LUMDictionarySetValue(a, LUMSTR("x"), LUMSTR("1"));
    LUMDictionarySetValue(b, LUMSTR("x"), LUMSTR("1"));
    EXPECT_TRUE(LUMEqual(a, b));
    LUMDictionarySetValue(b, LUMSTR("x"), LUMSTR("2"));
    EXPECT_FALSE(LUMEqual(a, b));
    // After a removal from c only its hole at slot 0 is compared: a NULL key
    // finds a free slot of b, both values are NULL, and the key "x" stored at
    // slot 1 is never looked at. So c equals b although "x" differs.
    LUMMutableDictionaryRef c = NewObjectDictionary();
    LUMDictionarySetValue(c, LUMSTR("gone"), LUMSTR("1"));
    LUMDictionarySetValue(c, LUMSTR("x"), LUMSTR("3"));
    LUMDictionaryRemoveValue(c, LUMSTR("gone"));
    EXPECT_TRUE(LUMEqual(c, b));
    EXPECT_FALSE(LUMEqual(b, c)); // the other way round, "x" is compared
    LUMDictionarySetValue(b, LUMSTR("x"), LUMSTR("1"));
    EXPECT_TRUE(LUMEqual(b, a));
    LUMRelease(a);
    LUMRelease(b);
    LUMRelease(c);
}

TEST(LUMDictionary, CountOfValueCountsEverySlot)
{
    LUMMutableDictionaryRef d = NewObjectDictionary();
    LUMDictionarySetValue(d, LUMSTR("a"), LUMSTR("v"));
    LUMDictionarySetValue(d, LUMSTR("b"), LUMSTR("v"));
    EXPECT_EQ(LUMDictionaryGetCountOfValue(d, LUMSTR("v")), 2);
    EXPECT_EQ(LUMDictionaryGetCountOfValue(d, nullptr), 8); // the free slots hold NULL
    EXPECT_TRUE(LUMDictionaryContainsValue(d, LUMSTR("v")));
    LUMDictionaryRemoveAllValues(d);
    EXPECT_EQ(LUMDictionaryGetCount(d), 0);
    EXPECT_EQ(SlotCount(d), 10);
    LUMRelease(d);
}

TEST(LUMDictionary, DescriptionListsTheEntries)
{
    LUMMutableDictionaryRef d = NewObjectDictionary();
    LUMDictionarySetValue(d, LUMSTR("k"), LUMSTR("v"));
    std::string text = TakeText(LUMCopyDescription(d));
    EXPECT_EQ(text.rfind(CFormat("<%p LUMDictionary retainCount=1 count=1 values=", static_cast<void *>(d)), 0), 0u) << text;
    EXPECT_NE(text.find("k"), std::string::npos);
    LUMRelease(d);
}

TEST(LUMDictionary, OperationsAssertADictionary)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMDictionaryGetCount(static_cast<LUMDictionaryRef>(static_cast<const void *>(LUMSTR("x")))); },
                                  "_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID())", "LUMDictionaryGetCount",
                                  "src/LUMDictionary"));
    EXPECT_TRUE(DiesWithAssertion([] { LUMDictionarySetValue(nullptr, LUMSTR("k"), LUMSTR("v")); },
                                  "_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID())", "LUMDictionarySetValue",
                                  "src/LUMDictionary"));
}

TEST(LUMDictionary, DictionaryWithoutSlotsStillReallocatesBothBlocksToZero)
{
    CountingAllocator counting;
    LUMDictionaryRef empty = LUMDictionaryCreate(counting.allocator, nullptr, nullptr, 0, &kLUMTypeDictionaryKeyCallBacks,
                                                 &kLUMTypeDictionaryValueCallBacks);
    LUMMutableDictionaryRef copy = LUMDictionaryCreateMutableCopy(counting.allocator, 0, empty);
    for (LUMDictionaryRef d : {empty, static_cast<LUMDictionaryRef>(copy)}) {
        counting.calls.clear();
        LUMDictionarySetValue(const_cast<LUMMutableDictionaryRef>(d), LUMSTR("k"), LUMSTR("v"));
        // Doubling 0 slots gives 0: both blocks are reallocated to 0 bytes,
        // then no free slot is found and nothing is stored.
        ASSERT_EQ(counting.calls.size(), 2u);
        for (const AllocatorCall &call : counting.calls) {
            EXPECT_EQ(call.kind, 'r');
            EXPECT_EQ(call.size, 0u);
        }
        EXPECT_EQ(LUMDictionaryGetCount(d), 0);
        EXPECT_EQ(LUMDictionaryGetValue(d, LUMSTR("k")), nullptr);
    }
    LUMRelease(copy);
    LUMRelease(empty);
}

namespace {

void collectSlots(const void *key, const void *value, void *context)
{
    static_cast<std::vector<std::pair<std::string, const void *>> *>(context)->push_back({Text(static_cast<LUMStringRef>(key)), value});
}

std::vector<std::pair<std::string, const void *>> Slots(LUMDictionaryRef d)
{
    std::vector<std::pair<std::string, const void *>> slots;
    LUMDictionaryApplyFunction(d, collectSlots, &slots);
    return slots;
}

} // namespace

TEST(LUMDictionary, LargeDictionariesOfStringKeysAnswerAsTheScanDoes)
{
    // Random sets, adds, replaces, removes and lookups on a dictionary whose
    // keys compare with LUMEqual and on its twin comparing through a
    // function of the test's own (which always scans): every answer, the
    // slot order, the key callbacks' calls and the allocator's calls agree.
    const LUMDictionaryKeyCallBacks indexed = {0, LoggingRetain, LoggingRelease, LUMCopyDescription, LUMEqual, LUMHash};
    const LUMDictionaryKeyCallBacks scanned = {0, LoggingRetain, LoggingRelease, LUMCopyDescription, ScanningEqual, LUMHash};
    CountingAllocator countA, countB;
    LUMMutableDictionaryRef a = LUMDictionaryCreateMutable(countA.allocator, 0, &indexed, &kLUMTypeDictionaryValueCallBacks);
    LUMMutableDictionaryRef b = LUMDictionaryCreateMutable(countB.allocator, 0, &scanned, &kLUMTypeDictionaryValueCallBacks);
    std::vector<std::string> callsA, callsB;
    std::mt19937 random(11);
    std::vector<LUMTypeRef> values = {kLUMNull, kLUMBooleanTrue, kLUMBooleanFalse};
    auto keyText = [&random](int range) { return "key" + std::to_string(random() % static_cast<uint32_t>(range)); };
    auto makeKey = [&random](const std::string &text) -> LUMStringRef {
        switch (random() % 3) {
        case 0: return LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8); // byte form
        case 1: {
            std::vector<UniChar> units(text.begin(), text.end());
            return LUMStringCreateWithCharacters(nullptr, units.data(), static_cast<LUMIndex>(units.size())); // unit form
        }
        default: {
            LUMMutableStringRef m = LUMStringCreateMutable(nullptr, 0); // a mutable probe
            LUMStringAppendCString(m, text.c_str(), kLUMStringEncodingUTF8);
            return m;
        }
        }
    };
    for (int step = 0; step < 6000; step++) {
        int range = step < 3000 ? 400 : 60; // grow well past the index threshold, then churn
        LUMStringRef key = makeKey(keyText(range));
        LUMTypeRef value = values[random() % values.size()];
        unsigned op = random() % 10;
        bool keyIsMutable = LUMGetTypeID(key) == LUMStringGetTypeID() && reinterpret_cast<const __LUMString *>(key)->isMutable;
        if (keyIsMutable && op < 6 && step != 4500) op = 6; // mutable keys stay probes, but for once
        auto apply = [&](LUMMutableDictionaryRef d, std::vector<std::string> *calls) {
            gRetainLog = calls;
            switch (op) {
            case 0: case 1: case 2: case 3: LUMDictionarySetValue(d, key, value); break;
            case 4: LUMDictionaryAddValue(d, key, value); break;
            case 5: LUMDictionaryReplaceValue(d, key, value); break;
            case 6: case 7: LUMDictionaryRemoveValue(d, key); break;
            default: break;
            }
            gRetainLog = nullptr;
        };
        apply(a, &callsA);
        apply(b, &callsB);
        LUMStringRef probe = makeKey(keyText(range));
        ASSERT_EQ(LUMDictionaryGetValue(a, probe), LUMDictionaryGetValue(b, probe)) << step;
        ASSERT_EQ(LUMDictionaryContainsKey(a, probe), LUMDictionaryContainsKey(b, probe)) << step;
        ASSERT_EQ(LUMDictionaryGetCount(a), LUMDictionaryGetCount(b)) << step;
        EXPECT_EQ(LUMDictionaryGetValue(a, kLUMNull), nullptr); // not a string: nothing matches
        if (step % 500 == 0) {
            ASSERT_EQ(Slots(a), Slots(b)) << step;
        }
        if (step == 5000) {
            LUMDictionaryRemoveAllValues(a);
            LUMDictionaryRemoveAllValues(b);
        }
        LUMRelease(probe);
        LUMRelease(key);
    }
    EXPECT_EQ(Slots(a), Slots(b));
    EXPECT_EQ(callsA, callsB);
    ASSERT_EQ(countA.calls.size(), countB.calls.size());
    for (size_t i = 0; i < countA.calls.size(); i++) {
        EXPECT_EQ(countA.calls[i].kind, countB.calls[i].kind);
        EXPECT_EQ(countA.calls[i].size, countB.calls[i].size);
    }
    LUMRelease(a);
    LUMRelease(b);
}
