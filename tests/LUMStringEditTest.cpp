/* LUMStringEditTest.cpp — editing, comparison, search, splitting and
 * numeric conversion.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {
LUMMutableStringRef Mutable(const char *text)
{
    return LUMStringCreateMutableCopy(nullptr, 0, LUMSTR(text));
}
} // namespace

TEST(LUMStringEdit, AppendingPastThirtyTwoUnitsDoublesTheCapacity)
{
    LUMMutableStringRef str = LUMStringCreateMutable(nullptr, 0);
    UniChar units[33];
    for (int i = 0; i < 33; i++) units[i] = static_cast<UniChar>('a' + i % 26);
    LUMStringAppendCharacters(str, units, 32);
    EXPECT_EQ(str->capacity, 32);
    LUMStringAppendCharacters(str, units + 32, 1);
    EXPECT_EQ(str->capacity, 64);
    EXPECT_EQ(LUMStringGetLength(str), 33);
    LUMRelease(str);
}

TEST(LUMStringEdit, AppendingAStringToItself)
{
    LUMMutableStringRef str = Mutable("abcdefghijklmnopqrstuvwxyz");
    LUMStringAppend(str, str);
    LUMStringAppend(str, str);
    EXPECT_EQ(LUMStringGetLength(str), 104);
    EXPECT_EQ(Text(str).substr(26, 26), "abcdefghijklmnopqrstuvwxyz");
    LUMRelease(str);
}

TEST(LUMStringEdit, AppendTakesBothStorageForms)
{
    LUMMutableStringRef str = LUMStringCreateMutable(nullptr, 0);
    LUMStringAppend(str, LUMSTR("caf\xC3\xA9"));
    UniChar units[] = {' ', 0x20AC};
    LUMStringRef unitString = LUMStringCreateWithCharacters(nullptr, units, 2);
    LUMStringAppend(str, unitString);
    EXPECT_EQ(Text(str), "caf\xC3\xA9 \xE2\x82\xAC");
    LUMRelease(unitString);
    LUMRelease(str);
}

TEST(LUMStringEdit, EditingAnImmutableStringAsserts)
{
    LUMMutableStringRef constant = const_cast<__LUMString *>(LUMSTR("fixed"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringAppendCString(constant, "x", kLUMStringEncodingUTF8); }, "ptr->isMutable",
                                  "LUMStringAppendCString", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringDelete(constant, LUMRangeMake(0, 1)); }, "ptr->isMutable",
                                  "LUMStringDelete", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringReplace(constant, LUMRangeMake(0, 1), LUMSTR("y")); }, "ptr->isMutable",
                                  "LUMStringReplace", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringReplaceAll(constant, LUMSTR("y")); }, "ptr->isMutable",
                                  "LUMStringReplaceAll", "src/LUMString"));
    LUMMutableStringRef str = Mutable("abc");
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringAppendCString(str, "x", 0); }, "encoding == kLUMStringEncodingUTF8",
                                  "LUMStringAppendCString", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringDelete(str, LUMRangeMake(2, 2)); },
                                  "(range.location + range.length) <= ptr->length", "LUMStringDelete", "src/LUMString"));
    LUMRelease(str);
}

TEST(LUMStringEdit, CompareOrdersByCodeUnit)
{
    LUMMutableStringRef upper = Mutable("ABD");
    EXPECT_EQ(LUMStringCompare(LUMSTR("abc"), upper, kLUMCompareCaseInsensitive), -1);
    EXPECT_EQ(LUMStringCompare(LUMSTR("a"), LUMSTR("B"), 0), 1);
    EXPECT_EQ(LUMStringCompare(LUMSTR("ab"), LUMSTR("abc"), 0), -1);
    EXPECT_EQ(LUMStringCompare(LUMSTR("abc"), LUMSTR("ab"), 0), 1);
    EXPECT_EQ(LUMStringCompare(LUMSTR("abc"), LUMSTR("abc"), 0), 0);
    EXPECT_EQ(LUMStringCompare(LUMSTR("aBc"), LUMSTR("AbC"), kLUMCompareCaseInsensitive), 0);
    // Folding goes to upper case: '_' (0x5F) sorts after 'A'..'Z' in both modes.
    EXPECT_EQ(LUMStringCompare(LUMSTR("_"), LUMSTR("a"), kLUMCompareCaseInsensitive), 1);
    EXPECT_EQ(LUMStringCompare(LUMSTR("_"), LUMSTR("a"), 0), -1);
    EXPECT_EQ(LUMStringCompare(LUMSTR("\xC3\xA9"), LUMSTR("\xC3\x89"), kLUMCompareCaseInsensitive), 1); // ASCII only
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCompare(LUMSTR("a"), LUMSTR("b"), kLUMCompareBackwards); },
                                  "(compareOptions & (~(kLUMCompareCaseInsensitive))) == 0", "LUMStringCompare",
                                  "src/LUMString"));
    LUMRelease(upper);
}

TEST(LUMStringEdit, CompareWithOptionsUsesARangeOfTheFirstString)
{
    EXPECT_EQ(LUMStringCompareWithOptions(LUMSTR("xxabc"), LUMSTR("abc"), LUMRangeMake(2, 3), 0), 0);
    EXPECT_EQ(LUMStringCompareWithOptions(LUMSTR("xxabc"), LUMSTR("ABC"), LUMRangeMake(2, 2), kLUMCompareCaseInsensitive), -1);
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCompareWithOptions(LUMSTR("ab"), LUMSTR("b"), LUMRangeMake(1, 5), 0); },
                                  "(range.location + range.length) <= str->length", "LUMStringInitInlineBuffer",
                                  "src/LUMString"));
}

TEST(LUMStringEdit, PrefixAndSuffix)
{
    EXPECT_TRUE(LUMStringHasPrefix(LUMSTR("abc"), LUMSTR("")));
    EXPECT_TRUE(LUMStringHasSuffix(LUMSTR("abc"), LUMSTR("")));
    EXPECT_FALSE(LUMStringHasPrefix(LUMSTR("ab"), LUMSTR("abc")));
    EXPECT_FALSE(LUMStringHasSuffix(LUMSTR("bc"), LUMSTR("abc")));
    EXPECT_TRUE(LUMStringHasPrefix(LUMSTR("abc"), LUMSTR("ab")));
    EXPECT_TRUE(LUMStringHasSuffix(LUMSTR("abc"), LUMSTR("bc")));
    EXPECT_FALSE(LUMStringHasPrefix(LUMSTR("abc"), LUMSTR("AB")));
}

TEST(LUMStringEdit, FindForwardsAndBackwards)
{
    LUMRange found = LUMStringFind(LUMSTR("abcb"), LUMSTR("b"), 0);
    EXPECT_EQ(found.location, 1);
    EXPECT_EQ(found.length, 1);
    found = LUMStringFind(LUMSTR("abcb"), LUMSTR("b"), kLUMCompareBackwards);
    EXPECT_EQ(found.location, 3);
    EXPECT_EQ(found.length, 1);
    found = LUMStringFind(LUMSTR("abcb"), LUMSTR("x"), 0);
    EXPECT_EQ(found.location, kLUMNotFound);
    EXPECT_EQ(found.length, 0);
    found = LUMStringFind(LUMSTR("abc"), LUMSTR(""), 0);
    EXPECT_EQ(found.location, 0);
    EXPECT_EQ(found.length, 0);
}

TEST(LUMStringEdit, FindReportsLocationsRelativeToTheRange)
{
    LUMRange result = LUMRangeMake(-5, -5);
    EXPECT_TRUE(LUMStringFindWithOptions(LUMSTR("abc"), LUMSTR("c"), LUMRangeMake(1, 2), 0, &result));
    EXPECT_EQ(result.location, 1);
    EXPECT_EQ(result.length, 1);
    EXPECT_FALSE(LUMStringFindWithOptions(LUMSTR("abc"), LUMSTR("a"), LUMRangeMake(1, 2), 0, &result));
    EXPECT_TRUE(LUMStringFindWithOptions(LUMSTR("abc"), LUMSTR("b"), LUMRangeMake(0, 3), 0, nullptr));
}

TEST(LUMStringEdit, FindingALongerTextSucceedsWithoutAResult)
{
    LUMRange result = LUMRangeMake(77, 88);
    EXPECT_TRUE(LUMStringFindWithOptions(LUMSTR("abc"), LUMSTR("abcd"), LUMRangeMake(0, 3), 0, &result));
    EXPECT_EQ(result.location, 77);
    EXPECT_EQ(result.length, 88);
}

TEST(LUMStringEdit, FindAssertsItsArguments)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringFindWithOptions(LUMSTR("abc"), LUMSTR("a"), LUMRangeMake(0, 3), 1, nullptr); },
                                  "(compareOptions & (~(kLUMCompareBackwards))) == 0", "LUMStringFindWithOptions",
                                  "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringFindWithOptions(LUMSTR("abc"), LUMSTR("a"), LUMRangeMake(2, 2), 0, nullptr); },
                                  "(range.location + range.length) <= LUMStringGetLength(str)", "LUMStringFindWithOptions",
                                  "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion(
        [] { LUMStringFindWithOptions(LUMSTR("abc"), static_cast<LUMStringRef>(static_cast<const void *>(kLUMNull)), LUMRangeMake(0, 1), 0, nullptr); },
        "_LUMTypeCheckValid(stringToFind, LUMStringGetTypeID())", "LUMStringFindWithOptions", "src/LUMString"));
}

TEST(LUMStringEdit, SplittingAtOneSeparator)
{
    LUMArrayRef pieces = LUMStringCreateArrayBySeparatingStrings(LUMSTR("a,b"), LUMSTR(","));
    ASSERT_EQ(LUMArrayGetCount(pieces), 2);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 0))), "a");
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 1))), "b");
    LUMRelease(pieces);
    pieces = LUMStringCreateArrayBySeparatingStrings(LUMSTR("abc"), LUMSTR(","));
    ASSERT_EQ(LUMArrayGetCount(pieces), 1);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 0))), "abc");
    LUMRelease(pieces);
    pieces = LUMStringCreateArrayBySeparatingStrings(LUMSTR(",x"), LUMSTR(","));
    ASSERT_EQ(LUMArrayGetCount(pieces), 2);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 0))), "");
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 1))), "x");
    LUMRelease(pieces);
    pieces = LUMStringCreateArrayBySeparatingStrings(LUMSTR("x,"), LUMSTR(","));
    ASSERT_EQ(LUMArrayGetCount(pieces), 2);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 1))), "");
    LUMRelease(pieces);
}

TEST(LUMStringEdit, SplittingAtTwoSeparatorsEndsInTheSubstringAssertion)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCreateArrayBySeparatingStrings(LUMSTR("a,b,c"), LUMSTR(",")); },
                                  "range.length >= 0", "LUMStringCreateWithSubstring", "src/LUMString"));
}

TEST(LUMStringEdit, IntegerAndDoubleValues)
{
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR(" 42x")), 42);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("x")), 0);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("-17")), -17);
    EXPECT_DOUBLE_EQ(LUMStringGetDoubleValue(LUMSTR("  2.5e3 rest")), 2500.0);
    LUMMutableStringRef unitForm = Mutable("-8.25");
    EXPECT_DOUBLE_EQ(LUMStringGetDoubleValue(unitForm), -8.25);
    EXPECT_EQ(LUMStringGetIntValue(unitForm), -8);
    LUMRelease(unitForm);
    // A unit-form text is converted through 128 bytes: the rest is cut.
    std::string digits = std::string(130, '1');
    LUMMutableStringRef longNumber = Mutable(strdup(digits.c_str()));
    EXPECT_DOUBLE_EQ(LUMStringGetDoubleValue(longNumber), strtod(std::string(126, '1').c_str(), nullptr));
    LUMRelease(longNumber);
}

TEST(LUMStringEdit, ReplaceInsertsAndDeletes)
{
    LUMMutableStringRef str = Mutable("abc");
    LUMStringReplace(str, LUMRangeMake(1, 1), LUMSTR("XYZ"));
    EXPECT_EQ(Text(str), "aXYZc");
    LUMStringReplace(str, LUMRangeMake(0, 0), LUMSTR(">"));
    EXPECT_EQ(Text(str), ">aXYZc");
    LUMStringReplace(str, LUMRangeMake(1, 5), LUMSTR(""));
    EXPECT_EQ(Text(str), ">");
    LUMStringReplace(str, LUMRangeMake(0, 1), str);
    EXPECT_EQ(Text(str), ">");
    LUMRelease(str);
    str = Mutable("abc");
    LUMStringDelete(str, LUMRangeMake(0, 3));
    EXPECT_EQ(Text(str), "");
    EXPECT_EQ(LUMStringGetLength(str), 0);
    LUMRelease(str);
}

TEST(LUMStringEdit, ReplaceAllCopiesTheReplacement)
{
    LUMMutableStringRef str = Mutable("short");
    std::string longer(100, 'q');
    LUMStringRef replacement = LUMStringCreateWithCString(nullptr, longer.c_str(), kLUMStringEncodingUTF8);
    LUMStringReplaceAll(str, replacement);
    EXPECT_EQ(Text(str), longer);
    EXPECT_EQ(str->capacity, 128);
    LUMStringReplaceAll(str, LUMSTR("x"));
    EXPECT_EQ(Text(str), "x");
    EXPECT_EQ(str->capacity, 128); // never shrinks
    LUMRelease(replacement);
    LUMRelease(str);
}

TEST(LUMStringEdit, SplittingOnAnEmptySeparatorAsserts)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCreateArrayBySeparatingStrings(LUMSTR("abc"), LUMSTR("")); },
                                  "LUMStringGetLength(separator) > 0", "LUMStringCreateArrayBySeparatingStrings", "src/LUMString"));
    // An empty text has nothing to split: one empty piece, as before.
    LUMArrayRef pieces = LUMStringCreateArrayBySeparatingStrings(LUMSTR(""), LUMSTR(""));
    ASSERT_EQ(LUMArrayGetCount(pieces), 1);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(pieces, 0))), "");
    LUMRelease(pieces);
}

TEST(LUMStringEdit, SplittingATextShorterThanTheSeparatorEndsTheSameWayEveryTime)
{
    // The search "finds" a separator longer than the text without reporting
    // where; read as not found, the first piece's length is negative.
    for (int run = 0; run < 3; run++) {
        EXPECT_TRUE(DiesWithAssertion([] { LUMStringCreateArrayBySeparatingStrings(LUMSTR("a"), LUMSTR("abc")); },
                                      "range.length >= 0", "LUMStringCreateWithSubstring", "src/LUMString"));
    }
}

TEST(LUMStringEdit, IntegerValuesSaturateToThirtyTwoBitsOnEveryPlatform)
{
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("2147483648")), INT32_MAX);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("-2147483649")), INT32_MIN);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("99999999999999999999999")), INT32_MAX);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("-99999999999999999999999")), INT32_MIN);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("2147483647")), INT32_MAX);
    EXPECT_EQ(LUMStringGetIntValue(LUMSTR("-2147483648")), INT32_MIN);
}
