/* LUMDataTest.cpp — byte buffers: growth, zero-filling, replace, delete and
 * their assertions.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {
struct DataView {
    LUMRuntimeBase base;
    UInt8 *bytes;
    LUMIndex length;
    LUMIndex capacity;
};
LUMIndex Capacity(LUMDataRef d) { return reinterpret_cast<const DataView *>(d)->capacity; }
std::vector<int> Bytes(LUMDataRef d)
{
    const UInt8 *p = LUMDataGetBytePtr(d);
    return std::vector<int>(p, p + LUMDataGetLength(d));
}
} // namespace

TEST(LUMData, AppendingGrowsByDoubling)
{
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    EXPECT_EQ(Capacity(data), 16);
    UInt8 bytes[100] = {};
    LUMDataAppendBytes(data, bytes, 17);
    EXPECT_EQ(Capacity(data), 32);
    LUMRelease(data);
    data = LUMDataCreateMutable(nullptr, 0);
    LUMDataAppendBytes(data, bytes, 100);
    EXPECT_EQ(Capacity(data), 128);
    EXPECT_EQ(LUMDataGetLength(data), 100);
    LUMRelease(data);
}

TEST(LUMData, SetLengthZeroFillsAndNeverShrinks)
{
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    const UInt8 four[] = {1, 2, 3, 4};
    LUMDataAppendBytes(data, four, 4);
    UInt8 *raw = LUMDataGetMutableBytePtr(data);
    memset(raw + 4, 0xAA, 12); // garbage beyond the length
    LUMDataSetLength(data, 10);
    EXPECT_EQ(Bytes(data), (std::vector<int>{1, 2, 3, 4, 0, 0, 0, 0, 0, 0}));
    LUMDataSetLength(data, 4);
    EXPECT_EQ(Capacity(data), 16);
    EXPECT_EQ(LUMDataGetLength(data), 4);
    LUMDataIncreaseLength(data, 2);
    EXPECT_EQ(Bytes(data), (std::vector<int>{1, 2, 3, 4, 0, 0}));
    LUMRelease(data);
}

TEST(LUMData, ReplaceShrinksTheMiddle)
{
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    const UInt8 four[] = {1, 2, 3, 4};
    LUMDataAppendBytes(data, four, 4);
    const UInt8 nine = 9;
    LUMDataReplaceBytes(data, LUMRangeMake(1, 2), &nine, 1);
    EXPECT_EQ(Bytes(data), (std::vector<int>{1, 9, 4}));
    const UInt8 many[] = {7, 7, 7};
    LUMDataReplaceBytes(data, LUMRangeMake(1, 1), many, 3);
    EXPECT_EQ(Bytes(data), (std::vector<int>{1, 7, 7, 7, 4}));
    LUMDataDeleteBytes(data, LUMRangeMake(0, 2));
    EXPECT_EQ(Bytes(data), (std::vector<int>{7, 7, 4}));
    LUMRelease(data);
}

TEST(LUMData, NullDeallocatorKeepsAdoptedBytes)
{
    UInt8 bytes[] = {5, 6};
    LUMDataRef data = LUMDataCreateWithBytesNoCopy(nullptr, bytes, 2, kLUMAllocatorNull);
    EXPECT_EQ(LUMDataGetBytePtr(data), bytes);
    LUMRelease(data);
    EXPECT_EQ(bytes[0], 5); // untouched, and not freed (it is on the stack)
    CountingAllocator counting;
    UInt8 *owned = static_cast<UInt8 *>(malloc(3));
    data = LUMDataCreateWithBytesNoCopy(nullptr, owned, 3, counting.allocator);
    LUMRelease(data);
    EXPECT_EQ(counting.deallocations, 1);
}

TEST(LUMData, EqualBytesAreEqual)
{
    LUMDataRef a = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("abc"), 3);
    LUMMutableDataRef b = LUMDataCreateMutable(nullptr, 0);
    LUMDataAppendBytes(b, reinterpret_cast<const UInt8 *>("abc"), 3);
    EXPECT_TRUE(LUMEqual(a, b));
    LUMDataAppendBytes(b, reinterpret_cast<const UInt8 *>("d"), 1);
    EXPECT_FALSE(LUMEqual(a, b));
    LUMRelease(a);
    LUMRelease(b);
}

TEST(LUMData, AdoptedEmptyBytesGrowFromOneByte)
{
    LUMDataRef data = LUMDataCreate(nullptr, nullptr, 0);
    EXPECT_EQ(Capacity(data), 0);
    LUMDataSetLength(const_cast<__LUMData *>(data), 3);
    EXPECT_EQ(Capacity(data), 4);
    EXPECT_EQ(Bytes(data), (std::vector<int>{0, 0, 0}));
    LUMRelease(data);
}

TEST(LUMData, CopiesKeepBytesAndCapacity)
{
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    LUMDataAppendBytes(data, reinterpret_cast<const UInt8 *>("0123456789abcdefXYZ"), 19);
    LUMMutableDataRef copy = LUMDataCreateMutableCopy(nullptr, 0, data);
    EXPECT_EQ(Capacity(copy), 32);
    EXPECT_TRUE(LUMEqual(copy, data));
    LUMDataRef frozen = LUMDataCreateCopy(nullptr, data);
    EXPECT_EQ(Capacity(frozen), 19);
    UInt8 out[3];
    LUMDataGetBytes(frozen, LUMRangeMake(16, 3), out);
    EXPECT_EQ(memcmp(out, "XYZ", 3), 0);
    LUMRelease(frozen);
    LUMRelease(copy);
    LUMRelease(data);
}

TEST(LUMData, MutationAssertsMutability)
{
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("abc"), 3);
    auto *target = const_cast<__LUMData *>(data);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDataAppendBytes(target, reinterpret_cast<const UInt8 *>("x"), 1); },
                                  "data->isMutable", "LUMDataAppendBytes", "src/LUMData", 244));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDataDeleteBytes(target, LUMRangeMake(0, 1)); }, "data->isMutable",
                                  "LUMDataDeleteBytes", "src/LUMData", 256));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDataGetMutableBytePtr(target); }, "data->isMutable", "LUMDataGetMutableBytePtr",
                                  "src/LUMData", 265));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDataReplaceBytes(target, LUMRangeMake(0, 1), nullptr, 0); }, "data->isMutable",
                                  "LUMDataReplaceBytes", "src/LUMData", 276));
    LUMMutableDataRef m = LUMDataCreateMutableCopy(nullptr, 0, data);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDataReplaceBytes(m, LUMRangeMake(-1, 1), nullptr, 0); },
                                  "(range.location >= 0) && (range.length >= 0)", "LUMDataReplaceBytes", "src/LUMData", 277));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDataReplaceBytes(m, LUMRangeMake(2, 2), nullptr, 0); },
                                  "(range.location + range.length) <= data->length", "LUMDataReplaceBytes", "src/LUMData", 278));
    LUMRelease(m);
    LUMRelease(data);
}

TEST(LUMData, DescriptionShowsLengthCapacityAndBytes)
{
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    LUMDataAppendBytes(data, reinterpret_cast<const UInt8 *>("abc"), 3);
    std::string text = TakeText(LUMCopyDescription(data));
    EXPECT_EQ(text.rfind(CFormat("<%p: LUMData retainCount=1 length=3 capacity=16 bytes=", static_cast<void *>(data)), 0), 0u) << text;
    EXPECT_NE(text.find("abc"), std::string::npos);
    LUMRelease(data);
}

TEST(LUMData, GrowthThatCannotBeHadLeavesTheDataAsItWas)
{
    LUMAllocatorRef limited = LimitedAllocator(64);
    LUMMutableDataRef data = LUMDataCreateMutable(limited, 0);
    UInt8 bytes[100] = {1, 2, 3};
    LUMDataAppendBytes(data, bytes, 3);
    LUMDataAppendBytes(data, bytes, 100); // would need 128 bytes
    EXPECT_EQ(LUMDataGetLength(data), 3);
    EXPECT_EQ(Bytes(data), std::vector<int>({1, 2, 3}));
    LUMDataSetLength(data, 65);
    EXPECT_EQ(LUMDataGetLength(data), 3);
    LUMDataIncreaseLength(data, INT32_MAX); // the sum cannot be represented
    EXPECT_EQ(LUMDataGetLength(data), 3);
    LUMDataSetLength(data, 64); // the largest block there is
    EXPECT_EQ(LUMDataGetLength(data), 64);
    EXPECT_EQ(Capacity(data), 64);
    LUMRelease(data);
    LUMRelease(limited);
}

TEST(LUMData, GrowthPastAGibibyteEndsAtTheLargestBlock)
{
    // Doubling 2^30 cannot give 2^31 in a LUMIndex: the block ends at
    // 2^31 - 1 bytes. No size beyond that can be had; nothing loops.
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    LUMDataSetLength(data, INT32_MAX);
    LUMIndex length = LUMDataGetLength(data);
    if (length == 0) {
        LUMRelease(data);
        GTEST_SKIP() << "no 2 GiB block on this machine";
    }
    EXPECT_EQ(length, INT32_MAX);
    EXPECT_EQ(Capacity(data), INT32_MAX);
    UInt8 one = 1;
    LUMDataAppendBytes(data, &one, 1); // one byte too many: unchanged
    EXPECT_EQ(LUMDataGetLength(data), INT32_MAX);
    LUMDataSetLength(data, (1 << 30) + 1);
    LUMDataAppendBytes(data, &one, 1);
    EXPECT_EQ(LUMDataGetLength(data), (1 << 30) + 2);
    LUMRelease(data);
}
