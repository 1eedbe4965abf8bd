/* LUMAutoreleasePoolTest.cpp — autorelease pools and LUMAutorelease.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <regex>

using namespace lumtest;

namespace {
LUMStringRef Str(const char *text) { return LUMStringCreateWithCString(nullptr, text, kLUMStringEncodingUTF8); }
} // namespace

TEST(LUMAutoreleasePool, NoCurrentPoolBeforeTheFirstAndAfterTheLast)
{
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), nullptr);
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), pool);
    LUMAutoreleasePoolDrain(pool);
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), nullptr);
    LUMRelease(pool);
}

TEST(LUMAutoreleasePool, AutoreleasedObjectIsFreedAtDrain)
{
    CountingAllocator counting;
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    LUMStringRef str = LUMStringCreateWithCString(counting.allocator, "pooled", kLUMStringEncodingUTF8);
    EXPECT_EQ(LUMAutorelease(str), str);
    EXPECT_EQ(LUMGetRetainCount(str), 1);
    int before = counting.deallocations;
    LUMAutoreleasePoolDrain(pool);
    EXPECT_EQ(counting.deallocations, before + 2); // the buffer and the object
    LUMRelease(pool);
}

TEST(LUMAutoreleasePool, DrainingTwiceReleasesNothingMore)
{
    LUMStringRef kept = Str("kept");
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    LUMRetain(kept);
    LUMAutorelease(kept);
    LUMAutorelease(LUMRetain(kept));
    EXPECT_EQ(LUMGetRetainCount(kept), 3);
    LUMAutoreleasePoolDrain(pool);
    EXPECT_EQ(LUMGetRetainCount(kept), 1); // added twice, released twice
    LUMAutoreleasePoolDrain(pool);
    EXPECT_EQ(LUMGetRetainCount(kept), 1);
    LUMRelease(pool);
    LUMRelease(kept);
}

TEST(LUMAutoreleasePool, DrainingTheOuterPoolKeepsTheInnerCurrent)
{
    LUMAutoreleasePoolRef outer = LUMAutoreleasePoolCreate();
    LUMAutoreleasePoolRef inner = LUMAutoreleasePoolCreate();
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), inner);
    LUMAutoreleasePoolDrain(outer);
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), inner);
    LUMAutoreleasePoolDrain(inner);
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), nullptr);
    LUMRelease(inner);
    LUMRelease(outer);
}

TEST(LUMAutoreleasePool, AfterDrainOnlyTheCreatorsReferenceIsLeft)
{
    CountingAllocator counting;
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    EXPECT_EQ(LUMGetRetainCount(pool), 2);
    LUMAutoreleasePoolDrain(pool);
    EXPECT_EQ(LUMGetRetainCount(pool), 1);
    // Pools come from the system allocator: freeing one is observed through
    // its dead magic only when the memory is not reused, so check validity
    // just before.
    EXPECT_TRUE(_LUMTypeCheckValid(pool, LUMAutoreleasePoolGetTypeID()));
    LUMRelease(pool);
}

TEST(LUMAutoreleasePool, ObjectsAreReleasedLastAddedFirst)
{
    static std::vector<std::string> order;
    order.clear();
    struct Probe {
        LUMRuntimeBase base;
        const char *name;
    };
    static const LUMRuntimeClass probeClass = {0, "PoolProbe", sizeof(Probe), nullptr,
                                               [](LUMTypeRef obj) { order.push_back(static_cast<const Probe *>(obj)->name); },
                                               nullptr, nullptr, nullptr};
    static LUMTypeID probeID = _LUMTypeRegisterClass(&probeClass);
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    for (const char *name : {"first", "second", "third"}) {
        auto *probe = static_cast<Probe *>(const_cast<void *>(_LUMTypeCreateInstance(nullptr, probeID)));
        probe->name = name;
        LUMAutorelease(probe);
    }
    LUMAutoreleasePoolDrain(pool);
    EXPECT_EQ(order, (std::vector<std::string>{"third", "second", "first"}));
    LUMRelease(pool);
}

TEST(LUMAutoreleasePool, ReleasingBeforeDrainingLeavesThePoolOnTheStack)
{
    LUMStringRef kept = Str("kept");
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    LUMAutorelease(LUMRetain(kept));
    LUMRelease(pool); // the stack still holds it
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), pool);
    LUMAutoreleasePoolDrain(pool); // off the stack: the last reference goes, nothing twice
    EXPECT_EQ(LUMGetRetainCount(kept), 1);
    EXPECT_EQ(_LUMAutoreleasePoolGetCurrent(), nullptr);
    LUMRelease(kept);
}

TEST(LUMAutoreleasePool, WithoutAPoolTheLeakIsAnnounced)
{
    ChildResult result = RunInChild([] {
        LUMStringRef str = LUMStringCreateWithCString(nullptr, "orphan", kLUMStringEncodingUTF8);
        LUMAutorelease(str);
        printf("%d", static_cast<int>(LUMGetRetainCount(str)));
    });
    EXPECT_EQ(result.out, "1");
    EXPECT_TRUE(std::regex_match(result.err, std::regex("-?[0-9]+\\.[0-9]{6}: No autorelease pool active, will leak memory: orphan\n")))
        << result.err;
}

TEST(LUMAutoreleasePool, DescriptionListsThePendingObjects)
{
    LUMAutoreleasePoolRef pool = LUMAutoreleasePoolCreate();
    LUMAutorelease(Str("pending"));
    std::string text = TakeText(LUMCopyDescription(pool));
    EXPECT_EQ(text.rfind(CFormat("<%p: LUMAutoreleasePool pool=<", static_cast<void *>(pool)), 0), 0u) << text;
    EXPECT_NE(text.find("pending"), std::string::npos);
    LUMAutoreleasePoolDrain(pool);
    LUMRelease(pool);
}
