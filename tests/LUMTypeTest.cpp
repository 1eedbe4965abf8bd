/* LUMTypeTest.cpp — the class table and the generic object operations.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cstdint>

using namespace lumtest;

namespace {

struct Probe {
    LUMRuntimeBase base;
    int value;
};

bool gResurrect = false;
int gFinalizeCalls = 0;

void probeFinalize(LUMTypeRef obj)
{
    gFinalizeCalls++;
    if (gResurrect) {
        gResurrect = false;
        LUMRetain(obj);
    }
}

const LUMRuntimeClass kProbeClass = {0, "Probe", sizeof(Probe), nullptr, probeFinalize, nullptr, nullptr, nullptr};

LUMTypeID ProbeTypeID()
{
    static LUMTypeID id = 0;
    if (id == 0) id = _LUMTypeRegisterClass(&kProbeClass);
    return id;
}

} // namespace

TEST(LUMType, AllocatorAndStringHaveTheFixedIDs)
{
    EXPECT_EQ(LUMAllocatorGetTypeID(), 1u);
    EXPECT_EQ(LUMStringGetTypeID(), 2u);
    EXPECT_STREQ(_LUMTypeGetClassByID(1)->className, "LUMAllocator");
    EXPECT_STREQ(_LUMTypeGetClassByID(2)->className, "LUMString");
}

TEST(LUMType, RegisteringPastThirtyTwoClassesKeepsEarlierIDs)
{
    const LUMRuntimeClass *stringClass = _LUMTypeGetClassByID(LUMStringGetTypeID());
    const char *stringName = stringClass->className;
    static char names[40][16];
    LUMTypeID ids[40];
    for (int i = 0; i < 40; i++) {
        snprintf(names[i], sizeof(names[i]), "Extra%d", i);
        LUMRuntimeClass cls = {0, names[i], sizeof(LUMRuntimeBase), nullptr, nullptr, nullptr, nullptr, nullptr};
        ids[i] = _LUMTypeRegisterClass(&cls); // the record is copied: cls may go away
    }
    EXPECT_GT(ids[39], 32u);
    EXPECT_EQ(ids[39], ids[0] + 39);
    for (int i = 0; i < 40; i++) EXPECT_STREQ(_LUMTypeGetClassByID(ids[i])->className, names[i]);
    EXPECT_EQ(_LUMTypeGetClassByID(LUMStringGetTypeID())->className, stringName);
    EXPECT_EQ(_LUMTypeGetClassByID(0), nullptr);
    EXPECT_EQ(_LUMTypeGetClassByID(ids[39] + 1), nullptr);
}

TEST(LUMType, ConstantObjectsKeepRetainCountOne)
{
    EXPECT_EQ(LUMGetRetainCount(kLUMNull), 1);
    for (int i = 0; i < 5; i++) LUMRetain(kLUMNull);
    EXPECT_EQ(LUMGetRetainCount(kLUMNull), 1);
    for (int i = 0; i < 10; i++) LUMRelease(kLUMNull);
    EXPECT_EQ(LUMGetRetainCount(kLUMNull), 1);
    EXPECT_TRUE(_LUMTypeCheckValid(kLUMNull, LUMNullGetTypeID()));
    EXPECT_EQ(LUMGetAllocator(kLUMNull), _kLUMAllocatorConstant);
}

TEST(LUMType, EqualityRules)
{
    EXPECT_TRUE(LUMEqual(nullptr, nullptr));
    EXPECT_FALSE(LUMEqual(kLUMNull, nullptr));
    EXPECT_FALSE(LUMEqual(nullptr, kLUMNull));
    EXPECT_FALSE(LUMEqual(kLUMBooleanTrue, kLUMBooleanFalse));
    EXPECT_TRUE(LUMEqual(kLUMBooleanTrue, kLUMBooleanTrue));
    LUMTypeRef a = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    LUMTypeRef b = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    EXPECT_FALSE(LUMEqual(a, b)); // no equal callback: identity only
    EXPECT_TRUE(LUMEqual(a, a));
    LUMRelease(a);
    LUMRelease(b);
}

TEST(LUMType, HashWithoutCallbackIsTheAddress)
{
    LUMTypeRef probe = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    EXPECT_EQ(LUMHash(probe), static_cast<LUMHashCode>(reinterpret_cast<uintptr_t>(probe)));
    EXPECT_EQ(LUMHash(kLUMNull), static_cast<LUMHashCode>(reinterpret_cast<uintptr_t>(kLUMNull)));
    EXPECT_EQ(LUMHash(nullptr), 0u);
    LUMRelease(probe);
}

TEST(LUMType, FinalizerThatRetainsKeepsTheObjectAlive)
{
    gFinalizeCalls = 0;
    gResurrect = true;
    LUMTypeRef probe = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    LUMRelease(probe);
    EXPECT_EQ(gFinalizeCalls, 1);
    EXPECT_TRUE(_LUMTypeCheckValid(probe, ProbeTypeID())); // memory was not freed
    EXPECT_EQ(LUMGetRetainCount(probe), 1);
    LUMRelease(probe);
    EXPECT_EQ(gFinalizeCalls, 2);
}

TEST(LUMType, ReleasedObjectCarriesTheDeadMagic)
{
    CountingAllocator counting;
    counting.freeMemory = false;
    LUMTypeRef probe = _LUMTypeCreateInstance(counting.allocator, ProbeTypeID());
    LUMRelease(probe);
    EXPECT_EQ(static_cast<const LUMRuntimeBase *>(probe)->magic, 0xECC84541u);
    EXPECT_FALSE(_LUMTypeCheckValid(probe, 0));
    EXPECT_EQ(_LUMTypeGetClass(probe), nullptr);
    free(const_cast<void *>(probe));
}

TEST(LUMType, DescriptionOfNullIsThePointerForm)
{
    EXPECT_EQ(TakeText(LUMCopyDescription(nullptr)), CFormat("<%p>", static_cast<void *>(nullptr)));
}

TEST(LUMType, DefaultDescriptionNamesClassAndRetainCount)
{
    LUMTypeRef probe = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    LUMRetain(probe);
    EXPECT_EQ(TakeText(LUMCopyDescription(probe)), CFormat("<%p:Probe retainCount=2>", probe));
    LUMRelease(probe);
    LUMRelease(probe);
    EXPECT_EQ(TakeText(LUMCopyDescription(kLUMBooleanTrue)), CFormat("<%p:LUMBoolean retainCount=1>", kLUMBooleanTrue));
    EXPECT_EQ(TakeText(LUMCopyDescription(kLUMNull)), CFormat("<%p:LUMNull retainCount=1>", kLUMNull));
}

TEST(LUMType, TypeIDDescriptions)
{
    EXPECT_EQ(TakeText(LUMCopyTypeIDDescription(2)), "LUMString");
    LUMStringRef unknown = LUMCopyTypeIDDescription(100000);
    EXPECT_EQ(unknown, LUMSTR("N/A"));
    EXPECT_EQ(LUMCopyTypeIDDescription(0), LUMSTR("N/A"));
}

TEST(LUMType, BooleanValueIsIdentity)
{
    EXPECT_TRUE(LUMBooleanGetValue(kLUMBooleanTrue));
    EXPECT_FALSE(LUMBooleanGetValue(kLUMBooleanFalse));
    EXPECT_FALSE(LUMBooleanGetValue(nullptr));
    EXPECT_FALSE(LUMBooleanGetValue(static_cast<LUMBooleanRef>(static_cast<const void *>(kLUMNull))));
    EXPECT_NE(LUMBooleanGetTypeID(), LUMNullGetTypeID());
    EXPECT_EQ(LUMGetTypeID(kLUMBooleanTrue), LUMBooleanGetTypeID());
}

TEST(LUMType, NullArgumentsAreAccepted)
{
    EXPECT_EQ(LUMRetain(nullptr), nullptr);
    LUMRelease(nullptr);
    EXPECT_EQ(LUMGetRetainCount(nullptr), 0);
    EXPECT_EQ(LUMGetTypeID(nullptr), 0u);
    EXPECT_EQ(LUMGetAllocator(nullptr), _kLUMAllocatorConstant);
    EXPECT_EQ(LUMAutorelease(nullptr), nullptr);
}

TEST(LUMType, ReleasingLastObjectOfCustomAllocatorReleasesItOnce)
{
    CountingAllocator counting;
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 1);
    LUMTypeRef probe = _LUMTypeCreateInstance(counting.allocator, ProbeTypeID());
    EXPECT_EQ(LUMGetAllocator(probe), counting.allocator);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 2);
    LUMRelease(probe);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 1);
    EXPECT_EQ(counting.allocations, 1);
    EXPECT_EQ(counting.deallocations, 1);
    EXPECT_EQ(counting.releases, 0);
}

TEST(LUMType, UnknownTypeIDCreatesNothing)
{
    EXPECT_EQ(_LUMTypeCreateInstance(nullptr, 0), nullptr);
    EXPECT_EQ(_LUMTypeCreateInstance(nullptr, 99999), nullptr);
    char memory[64] = {};
    EXPECT_FALSE(_LUMTypeInitializeInstance(memory, nullptr, 99999));
    EXPECT_EQ(memory[0], 0); // untouched
}

TEST(LUMType, ShowPrintsTheDescriptionAndANewline)
{
    ChildResult result = RunInChild([] { LUMShow(LUMSTR("shown text")); });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "shown text\n");
}

TEST(LUMType, RangeMakeKeepsBothFields)
{
    LUMRange range = LUMRangeMake(3, -7);
    EXPECT_EQ(range.location, 3);
    EXPECT_EQ(range.length, -7);
}

namespace {

/* A node holding one child, released by its finalizer; finalizations are
 * logged with the number of allocator calls seen so far. */
struct Node {
    LUMRuntimeBase base;
    int index;
    LUMTypeRef child;
    bool reRetainChild; // retains and releases its child again after releasing it
};

std::vector<std::pair<int, size_t>> gFinalized;
CountingAllocator *gWatched = nullptr;
int gNodeFinalizations = 0;

void nodeFinalize(LUMTypeRef obj)
{
    auto *node = static_cast<Node *>(const_cast<void *>(obj));
    gNodeFinalizations++;
    if (gWatched != nullptr) gFinalized.push_back({node->index, gWatched->calls.size()});
    LUMTypeRef child = node->child;
    node->child = nullptr;
    LUMRelease(child);
    if (node->reRetainChild && child != nullptr) {
        LUMRetain(child);
        LUMRelease(child);
    }
}

const LUMRuntimeClass kNodeClass = {0, "Node", sizeof(Node), nullptr, nodeFinalize, nullptr, nullptr, nullptr};

LUMTypeID NodeTypeID()
{
    static LUMTypeID id = 0;
    if (id == 0) id = _LUMTypeRegisterClass(&kNodeClass);
    return id;
}

Node *NewNode(int index, LUMTypeRef child)
{
    auto *node = static_cast<Node *>(const_cast<void *>(_LUMTypeCreateInstance(nullptr, NodeTypeID())));
    node->index = index;
    node->child = child;
    return node;
}

/* A chain of depth nodes: node 0 holds node 1, and so on. */
LUMTypeRef NewChain(int depth)
{
    LUMTypeRef child = nullptr;
    for (int i = depth - 1; i >= 0; i--) child = NewNode(i, child);
    return child;
}

} // namespace

TEST(LUMType, ReleaseInsideAFinalizerFinalizesBeforeItReturns)
{
    CountingAllocator counting;
    gWatched = &counting;
    gFinalized.clear();
    const void *values[3] = {NewNode(0, nullptr), NewNode(1, nullptr), NewNode(2, nullptr)};
    LUMArrayRef array = LUMArrayCreate(counting.allocator, values, 3, &kLUMTypeArrayCallBacks);
    for (const void *value : values) LUMRelease(value);
    size_t before = counting.calls.size();
    LUMRelease(array);
    gWatched = nullptr;
    // Values 0, 1, 2 are finalized in order while the array still stands;
    // then its block and the array itself go back to the allocator.
    ASSERT_EQ(gFinalized.size(), 3u);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(gFinalized[i].first, i);
        EXPECT_EQ(gFinalized[i].second, before) << "value " << i << " finalized after an allocator call";
    }
    ASSERT_EQ(counting.calls.size(), before + 2);
    EXPECT_EQ(counting.calls[before].kind, 'd');
    EXPECT_NE(counting.calls[before].block, array);
    EXPECT_EQ(counting.calls[before + 1].kind, 'd');
    EXPECT_EQ(counting.calls[before + 1].block, array);
}

TEST(LUMType, NestedReleasesFinalizeInsideOut)
{
    // Each finalizer's release of its child finishes before the finalizer
    // returns: the child is freed while the parent's finalizer runs.
    gFinalized.clear();
    CountingAllocator counting;
    gWatched = &counting;
    LUMRelease(NewChain(50));
    gWatched = nullptr;
    ASSERT_EQ(gFinalized.size(), 50u);
    for (int i = 0; i < 50; i++) EXPECT_EQ(gFinalized[i].first, i);
}

TEST(LUMType, AMillionLevelsAreReleasedOnABoundedStack)
{
    for (int depth : {100000, 1000000}) {
        gNodeFinalizations = 0;
        LUMRelease(NewChain(depth));
        EXPECT_EQ(gNodeFinalizations, depth);
    }
}

TEST(LUMType, DeepReleaseRetainedAgainIsFinalizedOnce)
{
    // Far below any ordinary nesting, releases are deferred; an object whose
    // finalizer's owner retains and releases it again meanwhile is still
    // finalized exactly once (and, under the sanitizers, freed once).
    const int depth = 5000;
    LUMTypeRef chain = NewChain(depth);
    for (auto *node = static_cast<Node *>(const_cast<void *>(chain)); node != nullptr;
         node = static_cast<Node *>(const_cast<void *>(node->child))) {
        node->reRetainChild = node->index >= 2000;
    }
    // reRetainChild touches the child after releasing it: only safe where the
    // release is deferred, which is what the test is about; the direct part
    // of the chain does not use it.
    gNodeFinalizations = 0;
    LUMRelease(chain);
    EXPECT_EQ(gNodeFinalizations, depth);
}

TEST(LUMTypeAddresses, CallbackRecordsHoldTheExportedFunctions)
{
    // Calls inside the library take private shortcuts; the records callers
    // compare against still hold the addresses callers link against.
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeDictionaryKeyCallBacks.retain), reinterpret_cast<void *>(&LUMRetain));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeDictionaryKeyCallBacks.release), reinterpret_cast<void *>(&LUMRelease));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeDictionaryKeyCallBacks.copyDescription), reinterpret_cast<void *>(&LUMCopyDescription));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeDictionaryKeyCallBacks.equal), reinterpret_cast<void *>(&LUMEqual));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeDictionaryKeyCallBacks.hash), reinterpret_cast<void *>(&LUMHash));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeDictionaryValueCallBacks.equal), reinterpret_cast<void *>(&LUMEqual));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeArrayCallBacks.copyDescription), reinterpret_cast<void *>(&LUMCopyDescription));
    EXPECT_EQ(reinterpret_cast<void *>(kLUMTypeArrayCallBacks.equal), reinterpret_cast<void *>(&LUMEqual));
}

TEST(LUMType, ObjectsMadeStraightFromTheSystemAllocatorMatchThoseOfAnyOther)
{
    // Numbers, strings and data of the system allocator skip the clearing
    // and class initializer their creators overwrite; the objects must be
    // what the general path makes with any other allocator.
    CountingAllocator counting;
    struct Pair {
        LUMTypeRef system;
        LUMTypeRef other;
    };
    int32_t integer = -7;
    double real = 2.5;
    UniChar units[] = {'w', 0xE9, 'x'};
    const UInt8 bytes[] = {1, 2, 3, 0, 5};
    LUMStringRef unitText = LUMStringCreateWithCharacters(counting.allocator, units, 3);
    std::vector<Pair> pairs = {
        {LUMNumberCreate(kLUMAllocatorSystemDefault, kLUMNumberSInt32Type, &integer), LUMNumberCreate(counting.allocator, kLUMNumberSInt32Type, &integer)},
        {LUMNumberCreate(nullptr, kLUMNumberDoubleType, &real), LUMNumberCreate(counting.allocator, kLUMNumberDoubleType, &real)},
        {LUMStringCreateWithCString(nullptr, "caf\xC3\xA9", kLUMStringEncodingUTF8),
         LUMStringCreateWithCString(counting.allocator, "caf\xC3\xA9", kLUMStringEncodingUTF8)},
        {LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("%@"), unitText), LUMStringCreateWithCharacters(counting.allocator, units, 3)},
        {LUMDataCreate(nullptr, bytes, 5), LUMDataCreate(counting.allocator, bytes, 5)},
        {LUMDataCreate(nullptr, bytes, 0), LUMDataCreate(counting.allocator, bytes, 0)},
    };
    for (const Pair &pair : pairs) {
        ASSERT_NE(pair.system, nullptr);
        ASSERT_NE(pair.other, nullptr);
        EXPECT_EQ(LUMGetAllocator(pair.system), kLUMAllocatorSystemDefault);
        EXPECT_EQ(LUMGetAllocator(pair.other), counting.allocator);
        EXPECT_EQ(LUMGetTypeID(pair.system), LUMGetTypeID(pair.other));
        EXPECT_EQ(LUMGetRetainCount(pair.system), 1);
        EXPECT_TRUE(LUMEqual(pair.system, pair.other));
        if (LUMGetTypeID(pair.system) != LUMDataGetTypeID()) { // data objects hash by address
            EXPECT_EQ(LUMHash(pair.system), LUMHash(pair.other));
        }
        if (LUMGetTypeID(pair.system) == LUMStringGetTypeID()) {
            auto *a = static_cast<const __LUMString *>(pair.system);
            auto *b = static_cast<const __LUMString *>(pair.other);
            EXPECT_EQ(a->bufferType, b->bufferType);
            EXPECT_EQ(a->length, b->length);
            EXPECT_EQ(a->capacity, 0);
            EXPECT_EQ(a->isMutable, 0);
            EXPECT_EQ(a->encoding, b->encoding);
        }
        if (LUMGetTypeID(pair.system) == LUMNumberGetTypeID()) {
            auto *a = static_cast<LUMNumberRef>(pair.system);
            EXPECT_EQ(LUMNumberGetType(a), LUMNumberGetType(static_cast<LUMNumberRef>(pair.other)));
        }
        if (LUMGetTypeID(pair.system) == LUMDataGetTypeID()) {
            auto *a = static_cast<LUMDataRef>(pair.system);
            EXPECT_EQ(LUMDataGetLength(a), LUMDataGetLength(static_cast<LUMDataRef>(pair.other)));
            // Immutable: editing ends the process with the data module's own assertion.
            ChildResult child = RunInChild([a, &bytes] { LUMDataAppendBytes(const_cast<LUMMutableDataRef>(a), bytes, 1); });
            EXPECT_EQ(child.exitStatus, 1);
        }
        LUMRelease(pair.system);
        LUMRelease(pair.other);
    }
    LUMRelease(unitText);
    EXPECT_EQ(counting.allocations, counting.deallocations);
}
