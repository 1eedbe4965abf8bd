/* LUMAllocatorTest.cpp — predefined allocators, custom allocators and the
 * default allocator.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cstdint>

using namespace lumtest;

namespace {

struct Probe {
    LUMRuntimeBase base;
};
const LUMRuntimeClass kProbeClass = {0, "AllocatorProbe", sizeof(Probe), nullptr, nullptr, nullptr, nullptr, nullptr};
LUMTypeID ProbeTypeID()
{
    static LUMTypeID id = 0;
    if (id == 0) id = _LUMTypeRegisterClass(&kProbeClass);
    return id;
}

// Hands out a different info than it was given, and records what the memory
// callbacks and release receive.
int gInfoA, gInfoB;
const void *gSeenInfo = nullptr;
const void *gReleasedInfo = nullptr;
const void *swappingRetain(const void *) { return &gInfoB; }
void recordingRelease(const void *info) { gReleasedInfo = info; }
void *recordingAllocate(UInt32 size, LUMOptionFlags, void *info)
{
    gSeenInfo = info;
    return malloc(size);
}
void recordingDeallocate(void *ptr, void *info)
{
    gSeenInfo = info;
    free(ptr);
}

} // namespace

TEST(LUMAllocator, NullAllocatorAllocatesNothing)
{
    EXPECT_EQ(LUMAllocatorAllocate(kLUMAllocatorNull, 16, 0), nullptr);
    int local = 5;
    LUMAllocatorDeallocate(kLUMAllocatorNull, &local); // does nothing
    EXPECT_EQ(local, 5);
    EXPECT_EQ(LUMAllocatorReallocate(kLUMAllocatorNull, &local, 32, 0), nullptr);
    EXPECT_EQ(LUMAllocatorGetPreferredSizeForSize(kLUMAllocatorNull, 77, 0), 77);
}

TEST(LUMAllocator, PreferredSizeOfDefaultIsTheSize)
{
    EXPECT_EQ(LUMAllocatorGetDefault(), kLUMAllocatorMalloc);
    EXPECT_EQ(LUMAllocatorGetPreferredSizeForSize(nullptr, 100, 0), 100);
}

TEST(LUMAllocator, PredefinedAllocatorsAreConstant)
{
    EXPECT_EQ(LUMGetAllocator(kLUMAllocatorMalloc), _kLUMAllocatorConstant);
    for (LUMAllocatorRef a : {kLUMAllocatorSystemDefault, kLUMAllocatorMalloc, kLUMAllocatorNull, kLUMAllocatorUseContext,
                              _kLUMAllocatorConstant}) {
        EXPECT_EQ(LUMGetRetainCount(a), 1);
        EXPECT_EQ(LUMGetTypeID(a), LUMAllocatorGetTypeID());
        LUMRetain(a);
        LUMRelease(a);
        LUMRelease(a);
        EXPECT_EQ(LUMGetRetainCount(a), 1);
    }
    EXPECT_EQ(kLUMAllocatorDefault, nullptr);
}

TEST(LUMAllocator, SystemDefaultAndMallocAreTheSameReference)
{
    EXPECT_EQ(kLUMAllocatorSystemDefault, kLUMAllocatorMalloc);
}

TEST(LUMAllocator, RetainCallbackResultReplacesInfo)
{
    LUMAllocatorContext context = {0, &gInfoA, swappingRetain, recordingRelease, nullptr, recordingAllocate, nullptr,
                                   recordingDeallocate, nullptr};
    LUMAllocatorRef allocator = LUMAllocatorCreate(nullptr, &context);
    LUMAllocatorContext stored;
    LUMAllocatorGetContext(allocator, &stored);
    EXPECT_EQ(stored.info, &gInfoB);
    void *block = LUMAllocatorAllocate(allocator, 8, 0);
    EXPECT_EQ(gSeenInfo, &gInfoB);
    gSeenInfo = nullptr;
    LUMAllocatorDeallocate(allocator, block);
    EXPECT_EQ(gSeenInfo, &gInfoB);
    LUMRelease(allocator);
    EXPECT_EQ(gReleasedInfo, &gInfoB);
}

TEST(LUMAllocator, DefaultAllocatorIsRetainedOncePerObject)
{
    CountingAllocator counting;
    LUMAllocatorSetDefault(counting.allocator);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 2);
    LUMTypeRef first = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    LUMTypeRef second = _LUMTypeCreateInstance(nullptr, ProbeTypeID());
    EXPECT_EQ(counting.allocations, 2);
    EXPECT_EQ(LUMGetAllocator(first), counting.allocator);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 4);
    LUMRelease(first);
    LUMRelease(second);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 2);
    EXPECT_EQ(counting.deallocations, 2);
    LUMAllocatorSetDefault(kLUMAllocatorMalloc);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 1);
}

TEST(LUMAllocator, SettingTheSameDefaultTwiceIsSafe)
{
    CountingAllocator counting;
    LUMAllocatorSetDefault(counting.allocator);
    LUMAllocatorSetDefault(counting.allocator);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 2);
    LUMAllocatorSetDefault(kLUMAllocatorMalloc);
}

TEST(LUMAllocator, NoDefaultMeansNoMemory)
{
    LUMAllocatorSetDefault(nullptr);
    EXPECT_EQ(LUMAllocatorAllocate(nullptr, 8, 0), nullptr);
    EXPECT_EQ(_LUMTypeCreateInstance(nullptr, ProbeTypeID()), nullptr);
    EXPECT_EQ(LUMAllocatorGetPreferredSizeForSize(nullptr, 9, 0), 9);
    LUMAllocatorSetDefault(kLUMAllocatorMalloc);
    EXPECT_NE(LUMAllocatorGetDefault(), nullptr);
}

namespace {
struct SelfHosted {
    int allocations = 0;
    int deallocations = 0;
};
void *selfAllocate(UInt32 size, LUMOptionFlags, void *info)
{
    static_cast<SelfHosted *>(info)->allocations++;
    return malloc(size);
}
void selfDeallocate(void *ptr, void *info)
{
    static_cast<SelfHosted *>(info)->deallocations++;
    free(ptr);
}
} // namespace

TEST(LUMAllocator, UseContextAllocatorAllocatesItself)
{
    SelfHosted host;
    LUMAllocatorContext context = {0, &host, nullptr, nullptr, nullptr, selfAllocate, nullptr, selfDeallocate, nullptr};
    LUMAllocatorRef allocator = LUMAllocatorCreate(kLUMAllocatorUseContext, &context);
    ASSERT_NE(allocator, nullptr);
    EXPECT_EQ(host.allocations, 1);
    EXPECT_EQ(LUMGetAllocator(allocator), allocator); // its own allocator
    EXPECT_EQ(LUMGetRetainCount(allocator), 1);       // holding no reference on itself
    void *block = LUMAllocatorAllocate(allocator, 4, 0);
    EXPECT_EQ(host.allocations, 2);
    LUMAllocatorDeallocate(allocator, block);
    LUMRelease(allocator); // gives its own memory back to itself, once
    EXPECT_EQ(host.deallocations, 2);
}

TEST(LUMAllocator, ReallocateWithoutCallbackGivesNull)
{
    LUMAllocatorContext context = {0, nullptr, nullptr, nullptr, nullptr, _LUMAllocatorAllocateMalloc, nullptr,
                                   _LUMAllocatorDeallocateMalloc, nullptr};
    LUMAllocatorRef allocator = LUMAllocatorCreate(nullptr, &context);
    void *block = LUMAllocatorAllocate(allocator, 4, 0);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(LUMAllocatorReallocate(allocator, block, 8, 0), nullptr);
    LUMAllocatorDeallocate(allocator, block);
    LUMRelease(allocator);
}

TEST(LUMAllocator, DeallocatingThroughTheConstantAllocatorHalts)
{
    static int target;
    std::string message = CFormat("Deallocating object 0x%lX with allocator _kLUMAllocatorConstant, halting...\n",
                                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(&target)));
    EXPECT_TRUE(DiesWithFatal([] { LUMAllocatorDeallocate(_kLUMAllocatorConstant, &target); }, message,
                              "__LUMAllocatorDeallocateConstant", "src/LUMAllocator", 100));
}
