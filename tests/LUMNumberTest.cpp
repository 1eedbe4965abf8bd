/* LUMNumberTest.cpp — numbers: type codes, exact conversion, comparison,
 * hash and description.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cmath>
#include <cstring>

using namespace lumtest;

TEST(LUMNumber, CodeSixIsFatal)
{
    int32_t value = 1;
    EXPECT_TRUE(DiesWithFatal([&] { LUMNumberCreate(nullptr, 6, &value); }, "Invalid number type '6'",
                              "__LUMNumberTypeIsFloatType", "src/LUMNumber", 101));
    EXPECT_TRUE(DiesWithFatal([&] { LUMNumberCreate(nullptr, 15, &value); }, "Invalid number type '15'",
                              "__LUMNumberTypeIsFloatType", "src/LUMNumber", 101));
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &value);
    EXPECT_TRUE(DiesWithFatal([&] { int32_t out; LUMNumberGetValue(n, 0, &out); }, "Invalid number type '0'",
                              "__LUMNumberTypeIsFloatType", "src/LUMNumber", 101));
    LUMRelease(n);
}

TEST(LUMNumber, UnsignedByteAsSignedByteIsInexact)
{
    uint8_t byte = 200;
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberCharType, &byte);
    int64_t wide = 0;
    EXPECT_TRUE(LUMNumberGetValue(n, kLUMNumberSInt64Type, &wide));
    EXPECT_EQ(wide, 200);
    int8_t narrow = 0;
    EXPECT_FALSE(LUMNumberGetValue(n, kLUMNumberSInt8Type, &narrow));
    EXPECT_EQ(narrow, -56);
    LUMRelease(n);
}

TEST(LUMNumber, DoubleToIntegerTruncatesAndReportsExactness)
{
    double value = 2.5;
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &value);
    int32_t out = 0;
    EXPECT_FALSE(LUMNumberGetValue(n, kLUMNumberSInt32Type, &out));
    EXPECT_EQ(out, 2);
    LUMRelease(n);
    value = 2.0;
    n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &value);
    EXPECT_TRUE(LUMNumberGetValue(n, kLUMNumberSInt32Type, &out));
    EXPECT_EQ(out, 2);
    LUMRelease(n);
    value = -1e300; // far outside: stays defined, and is not exact
    n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &value);
    int64_t big = 0;
    EXPECT_FALSE(LUMNumberGetValue(n, kLUMNumberSInt64Type, &big));
    float f = 0;
    EXPECT_FALSE(LUMNumberGetValue(n, kLUMNumberFloatType, &f));
    EXPECT_TRUE(std::isinf(f));
    LUMRelease(n);
}

TEST(LUMNumber, NaNIsNotExactAsDoubleAndComparesEqual)
{
    double nan = std::nan("");
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &nan);
    double out = 0;
    EXPECT_FALSE(LUMNumberGetValue(n, kLUMNumberDoubleType, &out));
    EXPECT_TRUE(std::isnan(out));
    int32_t i = 7;
    LUMNumberRef seven = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &i);
    EXPECT_EQ(LUMNumberCompare(n, seven), 0);
    EXPECT_TRUE(LUMEqual(n, seven));
    LUMRelease(seven);
    LUMRelease(n);
}

TEST(LUMNumber, IntegerOneEqualsDoubleOneButHashesDiffer)
{
    int32_t one = 1;
    double oneDouble = 1.0;
    LUMNumberRef i = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &one);
    LUMNumberRef d = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &oneDouble);
    EXPECT_TRUE(LUMEqual(i, d));
    EXPECT_EQ(LUMHash(i), 1u);
    EXPECT_EQ(LUMHash(d), 0u); // the low half of 1.0's bits
    LUMRelease(i);
    LUMRelease(d);
}

TEST(LUMNumber, EveryTypeCodeReadsItsWidth)
{
    struct Case {
        LUMNumberType type;
        int64_t expected;
        LUMIndex size;
    };
    int8_t s8 = -5;
    int16_t s16 = -300;
    int32_t s32 = -70000;
    int64_t s64 = -5000000000LL;
    uint8_t u8 = 250;
    const void *pointers[] = {&s8, &s16, &s32, &s64, &u8, &s16, &s32, &s32, &s64, &s32};
    const Case cases[] = {{1, -5, 1}, {2, -300, 2}, {3, -70000, 4}, {4, -5000000000LL, 8}, {7, 250, 1},
                          {8, -300, 2}, {9, -70000, 4}, {10, -70000, 4}, {11, -5000000000LL, 8}, {14, -70000, 4}};
    for (size_t k = 0; k < sizeof(cases) / sizeof(cases[0]); k++) {
        LUMNumberRef n = LUMNumberCreate(nullptr, cases[k].type, pointers[k]);
        int64_t out = 0;
        EXPECT_TRUE(LUMNumberGetValue(n, kLUMNumberSInt64Type, &out));
        EXPECT_EQ(out, cases[k].expected) << cases[k].type;
        EXPECT_EQ(LUMNumberGetByteSize(n), cases[k].size);
        EXPECT_FALSE(LUMNumberIsFloatType(n));
        EXPECT_EQ(LUMNumberGetType(n), cases[k].type);
        LUMRelease(n);
    }
    float f = 1.5f;
    double d = 2.25;
    for (LUMNumberType type : {5, 12}) {
        LUMNumberRef n = LUMNumberCreate(nullptr, type, &f);
        EXPECT_TRUE(LUMNumberIsFloatType(n));
        EXPECT_EQ(LUMNumberGetByteSize(n), 4);
        double out = 0;
        EXPECT_TRUE(LUMNumberGetValue(n, kLUMNumberDoubleType, &out));
        EXPECT_EQ(out, 1.5);
        LUMRelease(n);
    }
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &d);
    EXPECT_EQ(LUMNumberGetByteSize(n), 8);
    float narrow = 0;
    EXPECT_TRUE(LUMNumberGetValue(n, kLUMNumberFloat32Type, &narrow));
    EXPECT_EQ(narrow, 2.25f);
    LUMRelease(n);
    d = 0.1; // not a float
    n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &d);
    EXPECT_FALSE(LUMNumberGetValue(n, kLUMNumberFloatType, &narrow));
    LUMRelease(n);
}

TEST(LUMNumber, CompareOrdersIntegersAsSixtyFourBit)
{
    int64_t big = 5000000000LL, small = -5000000000LL;
    LUMNumberRef a = LUMNumberCreate(nullptr, kLUMNumberSInt64Type, &big);
    LUMNumberRef b = LUMNumberCreate(nullptr, kLUMNumberSInt64Type, &small);
    EXPECT_EQ(LUMNumberCompare(a, b), 1);
    EXPECT_EQ(LUMNumberCompare(b, a), -1);
    double half = 0.5;
    LUMNumberRef c = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &half);
    EXPECT_EQ(LUMNumberCompare(c, a), -1);
    EXPECT_EQ(LUMNumberCompare(a, c), 1);
    LUMRelease(a);
    LUMRelease(b);
    LUMRelease(c);
}

TEST(LUMNumber, DescriptionPrintsTheRawFieldBothWays)
{
    int32_t value = 3;
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &value);
    int64_t bits = 3;
    double raw;
    memcpy(&raw, &bits, sizeof(raw));
    EXPECT_EQ(TakeText(LUMCopyDescription(n)),
              CFormat("<%p:LUMNumber retainCount=1 type=3 valueInteger=3 valueFloeat=%f>", static_cast<const void *>(n), raw == 0.0 ? 1e-10 : raw));
    LUMRelease(n);
    double d = 1.0; // bits 0x3FF0000000000000: low half 0
    n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &d);
    EXPECT_EQ(TakeText(LUMCopyDescription(n)),
              CFormat("<%p:LUMNumber retainCount=1 type=13 valueInteger=0 valueFloeat=1.000000>", static_cast<const void *>(n)));
    LUMRelease(n);
}
