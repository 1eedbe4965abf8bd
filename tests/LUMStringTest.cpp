/* LUMStringTest.cpp — string storage, the UTF-8 codec, creation, access,
 * the inline buffer, hashing, equality and constant strings.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <algorithm>
#include <random>

using namespace lumtest;

namespace {

LUMStringRef FromBytes(std::initializer_list<unsigned char> bytes)
{
    std::vector<UInt8> data(bytes);
    return LUMStringCreateWithBytes(nullptr, data.data(), static_cast<LUMIndex>(data.size()), kLUMStringEncodingUTF8);
}

std::vector<UniChar> Units(LUMStringRef str)
{
    std::vector<UniChar> units(static_cast<size_t>(LUMStringGetLength(str)));
    LUMStringGetCharacters(str, LUMRangeMake(0, LUMStringGetLength(str)), units.data());
    return units;
}

const __LUMString *Record(LUMStringRef str) { return str; }

} // namespace

TEST(LUMString, HashIsLengthThenThirteenTimesPlusEachUnitAtEveryLength)
{
    // Units read several at a time must give the step-by-step definition.
    uint32_t seed = 12345;
    for (int length = 0; length < 40; length++) {
        std::vector<UniChar> units(static_cast<size_t>(length));
        uint32_t expected = static_cast<uint32_t>(length);
        for (UniChar &unit : units) {
            seed = seed * 1103515245u + 12345u;
            unit = static_cast<UniChar>(seed >> 8);
            expected = expected * 13u + unit;
        }
        LUMStringRef string = LUMStringCreateWithCharacters(nullptr, units.data(), length);
        EXPECT_EQ(LUMHash(string), expected) << length;
        LUMRelease(string);
    }
}

TEST(LUMString, TwoByteSequenceIsOneCharacterAndHashesLikeUnitForm)
{
    LUMStringRef bytes = FromBytes({0xC3, 0xA9});
    EXPECT_EQ(LUMStringGetLength(bytes), 1);
    EXPECT_EQ(Units(bytes), std::vector<UniChar>{0xE9});
    UniChar e = 0xE9;
    LUMStringRef units = LUMStringCreateWithCharacters(nullptr, &e, 1);
    EXPECT_EQ(LUMHash(bytes), LUMHash(units));
    EXPECT_EQ(LUMHash(bytes), 1u * 13 + 0xE9);
    EXPECT_TRUE(LUMEqual(bytes, units));
    EXPECT_EQ(LUMHash(LUMSTR("\xC3\xA9")), LUMHash(units));
    LUMRelease(bytes);
    LUMRelease(units);
}

TEST(LUMString, StrayContinuationByteKeepsItsLowSevenBits)
{
    LUMStringRef str = FromBytes({0x41, 0x80, 0x42});
    EXPECT_EQ(LUMStringGetLength(str), 3);
    EXPECT_EQ(Units(str), (std::vector<UniChar>{0x41, 0x00, 0x42}));
    LUMRelease(str);
}

TEST(LUMString, LeadByteNotFollowedByContinuationStopsThere)
{
    LUMStringRef str = FromBytes({0xE2, 0x41});
    EXPECT_EQ(Units(str), (std::vector<UniChar>{0x2000, 0x41}));
    LUMRelease(str);
}

TEST(LUMString, FourByteSequencesGiveTwoUnitsOfGarbage)
{
    // U+1F600 as UTF-8: F0 9F 98 80. The lead is read as a three-byte lead.
    LUMStringRef str = FromBytes({0xF0, 0x9F, 0x98, 0x80});
    EXPECT_EQ(Units(str), (std::vector<UniChar>{static_cast<UniChar>((0x0 << 12) | (0x1F << 6) | 0x18), 0x00}));
    LUMRelease(str);
}

TEST(LUMString, EncoderWritesSurrogatesAsThreeByteSequences)
{
    UniChar units[] = {0x41, 0xE9, 0x20AC, 0xD83D, 0xDE00};
    LUMStringRef str = LUMStringCreateWithCharacters(nullptr, units, 5);
    EXPECT_EQ(Text(str), "A\xC3\xA9\xE2\x82\xAC\xED\xA0\xBD\xED\xB8\x80");
    LUMRelease(str);
}

TEST(LUMString, GetCStringKeepsOneByteInReserve)
{
    LUMStringRef abc = LUMSTR("abc");
    char buffer[8];
    memset(buffer, 'x', sizeof(buffer));
    EXPECT_FALSE(LUMStringGetCString(abc, buffer, 4, kLUMStringEncodingUTF8));
    EXPECT_STREQ(buffer, "ab");
    EXPECT_TRUE(LUMStringGetCString(abc, buffer, 5, kLUMStringEncodingUTF8));
    EXPECT_STREQ(buffer, "abc");
    // A character is never split: é needs two bytes.
    EXPECT_FALSE(LUMStringGetCString(LUMSTR("a\xC3\xA9"), buffer, 4, kLUMStringEncodingUTF8));
    EXPECT_STREQ(buffer, "a");
}

TEST(LUMString, ConstantStringsAreSharedAndConstant)
{
    LUMStringRef first = LUMSTR("x");
    const char *text = "yx" + 1; // the same text at another address (a literal still: it lives as long)
    EXPECT_EQ(LUMSTR(text), first); // by content, not by pointer
    EXPECT_EQ(LUMGetRetainCount(first), 1);
    LUMRetain(first);
    LUMRelease(first);
    LUMRelease(first);
    EXPECT_EQ(LUMGetRetainCount(first), 1);
    EXPECT_EQ(LUMGetAllocator(first), _kLUMAllocatorConstant);
    EXPECT_NE(LUMSTR("y"), first);
    EXPECT_EQ(LUMStringGetCStringPtr(first, kLUMStringEncodingUTF8), std::string("x"));
}

TEST(LUMString, CopyRetainsOnlyWithTheSameAllocator)
{
    LUMStringRef s = LUMStringCreateWithCString(nullptr, "text", kLUMStringEncodingUTF8);
    LUMStringRef copy = LUMStringCreateCopy(nullptr, s);
    EXPECT_NE(copy, s);
    EXPECT_TRUE(LUMEqual(copy, s));
    LUMStringRef same = LUMStringCreateCopy(LUMGetAllocator(s), s);
    EXPECT_EQ(same, s);
    EXPECT_EQ(LUMGetRetainCount(s), 2);
    LUMRelease(same);
    LUMRelease(copy);
    LUMMutableStringRef mutableString = LUMStringCreateMutableCopy(nullptr, 0, s);
    LUMStringRef frozen = LUMStringCreateCopy(LUMGetAllocator(mutableString), mutableString);
    EXPECT_NE(frozen, static_cast<LUMStringRef>(mutableString)); // mutable strings are always copied
    EXPECT_NE(LUMStringGetCharactersPtr(frozen), nullptr);
    LUMRelease(frozen);
    LUMRelease(mutableString);
    LUMRelease(s);
}

TEST(LUMString, PointerAccessorsFollowTheStorageForm)
{
    LUMMutableStringRef m = LUMStringCreateMutable(nullptr, 0);
    LUMStringAppendCString(m, "abc", kLUMStringEncodingUTF8);
    EXPECT_EQ(LUMStringGetCStringPtr(m, kLUMStringEncodingUTF8), nullptr);
    EXPECT_NE(LUMStringGetCharactersPtr(m), nullptr);
    LUMStringRef c = LUMStringCreateWithCString(nullptr, "abc", kLUMStringEncodingUTF8);
    EXPECT_EQ(LUMStringGetCharactersPtr(c), nullptr);
    EXPECT_STREQ(LUMStringGetCStringPtr(c, kLUMStringEncodingUTF8), "abc");
    EXPECT_EQ(LUMStringGetCStringPtr(c, 0), nullptr); // another encoding
    LUMRelease(c);
    LUMRelease(m);
}

TEST(LUMString, InlineBufferReturnsZeroOutsideItsRange)
{
    LUMStringRef str = LUMSTR("0123456789abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_!");
    LUMStringInlineBuffer buffer;
    LUMStringInitInlineBuffer(str, &buffer, LUMRangeMake(2, 70));
    EXPECT_EQ(buffer.directBuffer, nullptr);
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 0), '2');
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 69), 'Z');
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 70), 0);
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, -1), 0);
    // The refill backs off by four so that short backward steps are cached.
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 10), 'c');
    EXPECT_EQ(buffer.bufferedRangeStart, 6);
    EXPECT_EQ(buffer.bufferedRangeEnd, 70);
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 7), '9');
    EXPECT_EQ(buffer.bufferedRangeStart, 6);
}

TEST(LUMString, InlineBufferOverUnitsReadsDirectly)
{
    UniChar units[] = {'a', 'b', 'c', 'd'};
    LUMStringRef str = LUMStringCreateWithCharacters(nullptr, units, 4);
    LUMStringInlineBuffer buffer;
    LUMStringInitInlineBuffer(str, &buffer, LUMRangeMake(1, 2));
    EXPECT_NE(buffer.directBuffer, nullptr);
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 0), 'b');
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 1), 'c');
    EXPECT_EQ(LUMStringGetCharacterFromInlineBuffer(&buffer, 2), 0);
    LUMRelease(str);
}

TEST(LUMString, BytesNoCopyHandsTheCallersBytesToTheDeallocatorAtOnce)
{
    CountingAllocator counting;
    UInt8 *bytes = static_cast<UInt8 *>(malloc(3));
    memcpy(bytes, "hey", 3);
    LUMStringRef str = LUMStringCreateWithBytesNoCopy(nullptr, bytes, 3, kLUMStringEncodingUTF8, false, counting.allocator);
    EXPECT_EQ(counting.deallocations, 1); // before the create function returned
    EXPECT_EQ(Text(str), "hey");
    LUMRelease(str);
    UInt8 kept[] = {'o', 'k'};
    str = LUMStringCreateWithBytesNoCopy(nullptr, kept, 2, kLUMStringEncodingUTF8, true, nullptr);
    EXPECT_EQ(Text(str), "ok");
    LUMRelease(str);
}

TEST(LUMString, NoCopyStringsGiveTheirBufferToTheContentsDeallocator)
{
    CountingAllocator counting;
    char *text = static_cast<char *>(malloc(6));
    memcpy(text, "owned", 6);
    LUMStringRef str = LUMStringCreateWithCStringNoCopy(nullptr, text, kLUMStringEncodingUTF8, counting.allocator);
    EXPECT_EQ(LUMStringGetCStringPtr(str, kLUMStringEncodingUTF8), text);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 2);
    LUMRelease(str);
    EXPECT_EQ(counting.deallocations, 1);
    EXPECT_EQ(LUMGetRetainCount(counting.allocator), 1);
    static const char kStatic[] = "static";
    str = LUMStringCreateWithCStringNoCopy(nullptr, kStatic, kLUMStringEncodingUTF8, kLUMAllocatorNull);
    LUMRelease(str); // kLUMAllocatorNull never frees
    UniChar units[] = {'u', 'v'};
    str = LUMStringCreateWithCharactersNoCopy(nullptr, units, 2, kLUMAllocatorNull);
    EXPECT_EQ(LUMStringGetCharactersPtr(str), units);
    EXPECT_EQ(Text(str), "uv");
    LUMRelease(str);
}

TEST(LUMString, SubstringsUseTheUnitForm)
{
    LUMStringRef str = LUMSTR("h\xC3\xA9llo world");
    LUMStringRef sub = LUMStringCreateWithSubstring(nullptr, str, LUMRangeMake(1, 4));
    EXPECT_EQ(Text(sub), "\xC3\xA9llo");
    EXPECT_NE(LUMStringGetCharactersPtr(sub), nullptr);
    LUMRelease(sub);
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringCreateWithSubstring(nullptr, str, LUMRangeMake(-1, 1)); },
                                  "range.location >= 0", "LUMStringCreateWithSubstring", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringCreateWithSubstring(nullptr, str, LUMRangeMake(1, -1)); },
                                  "range.length >= 0", "LUMStringCreateWithSubstring", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringCreateWithSubstring(nullptr, str, LUMRangeMake(5, 7)); },
                                  "(range.location + range.length) <= string->length", "LUMStringCreateWithSubstring",
                                  "src/LUMString"));
}

TEST(LUMString, GetCharactersChecksItsRange)
{
    UniChar out[4];
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringGetCharacters(LUMSTR("abc"), LUMRangeMake(2, 2), out); },
                                  "(range.location + range.length) <= ptr->length", "LUMStringGetCharacters",
                                  "src/LUMString"));
}

TEST(LUMString, LengthAssertsAStringObject)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringGetLength(static_cast<LUMStringRef>(static_cast<const void *>(kLUMNull))); },
                                  "_LUMTypeCheckValid(ptr, LUMStringGetTypeID())", "LUMStringGetLength", "src/LUMString"));
}

TEST(LUMString, EncodingIsCheckedWhereItIsUsed)
{
    char buffer[8];
    EXPECT_TRUE(DiesWithAssertion([&] { LUMStringGetCString(LUMSTR("a"), buffer, 8, 0x0600); },
                                  "encoding == kLUMStringEncodingUTF8", "LUMStringGetCString", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringGetMaximumSizeForEncoding(3, 1); },
                                  "encoding == kLUMStringEncodingUTF8", "LUMStringGetMaximumSizeForEncoding", "src/LUMString"));
    // Creation stores any encoding and reads the bytes as UTF-8 all the same.
    LUMStringRef other = LUMStringCreateWithCString(nullptr, "\xC3\xA9", 0x0600);
    EXPECT_EQ(LUMStringGetLength(other), 1);
    EXPECT_EQ(LUMStringGetCStringPtr(other, kLUMStringEncodingUTF8), nullptr);
    LUMRelease(other);
}

TEST(LUMString, MutableCreationRequiresZeroMaxLength)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCreateMutable(nullptr, 5); }, "maxLength == 0", "LUMStringCreateMutable",
                                  "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCreateMutableCopy(nullptr, 1, LUMSTR("a")); }, "maxLength == 0",
                                  "LUMStringCreateMutableCopy", "src/LUMString"));
}

TEST(LUMString, MutableStringsStartWithThirtyTwoUnits)
{
    LUMMutableStringRef m = LUMStringCreateMutable(nullptr, 0);
    EXPECT_EQ(Record(m)->capacity, 32);
    EXPECT_EQ(Record(m)->isMutable, 1);
    EXPECT_EQ(Record(m)->bufferType, _kLUMStringBufferTypeUniCharString);
    LUMMutableStringRef copy = LUMStringCreateMutableCopy(nullptr, 0, LUMSTR("abc"));
    EXPECT_EQ(Record(copy)->capacity, 32);
    EXPECT_EQ(Text(copy), "abc");
    for (int i = 0; i < 40; i++) LUMStringAppendCString(m, "x", kLUMStringEncodingUTF8);
    EXPECT_EQ(Record(m)->capacity, 64);
    LUMMutableStringRef bigCopy = LUMStringCreateMutableCopy(nullptr, 0, m);
    EXPECT_EQ(Record(bigCopy)->capacity, 64); // sized from the source's capacity
    EXPECT_TRUE(LUMEqual(bigCopy, m));
    LUMRelease(bigCopy);
    LUMRelease(copy);
    LUMRelease(m);
}

TEST(LUMString, FileSystemRepresentation)
{
    LUMStringRef path = LUMStringCreateWithFileSystemRepresentation(nullptr, "/tmp/\xC3\xA9");
    EXPECT_EQ(LUMStringGetLength(path), 6);
    EXPECT_EQ(LUMStringGetMaximumSizeOfFileSystemRepresentation(path), 19);
    char buffer[32];
    EXPECT_TRUE(LUMStringGetFileSystemRepresentation(path, buffer, 32));
    EXPECT_STREQ(buffer, "/tmp/\xC3\xA9");
    LUMRelease(path);
    EXPECT_TRUE(DiesWithAssertion([] { LUMStringCreateWithFileSystemRepresentation(nullptr, nullptr); }, "buffer != NULL",
                                  "LUMStringCreateWithFileSystemRepresentation", "src/LUMString"));
    EXPECT_TRUE(DiesWithAssertion(
        [] { LUMStringCreateWithFileSystemRepresentation(static_cast<LUMAllocatorRef>(static_cast<const void *>(kLUMNull)), "x"); },
        "((allocator) == NULL) || _LUMTypeCheckValid(allocator, LUMAllocatorGetTypeID())",
        "LUMStringCreateWithFileSystemRepresentation", "src/LUMString"));
}

TEST(LUMString, ExternalRepresentationRoundTrip)
{
    LUMStringRef original = LUMSTR("caf\xC3\xA9 \xE2\x82\xAC");
    LUMDataRef data = LUMStringCreateExternalRepresentation(nullptr, original, kLUMStringEncodingUTF8, 0);
    EXPECT_EQ(LUMDataGetLength(data), 9);
    EXPECT_EQ(memcmp(LUMDataGetBytePtr(data), "caf\xC3\xA9 \xE2\x82\xAC", 9), 0);
    LUMStringRef back = LUMStringCreateFromExternalRepresentation(nullptr, data, kLUMStringEncodingUTF8);
    EXPECT_TRUE(LUMEqual(back, original));
    LUMRelease(back);
    LUMRelease(data);
}

TEST(LUMString, EqualityComparesUnitsExactly)
{
    EXPECT_TRUE(LUMEqual(LUMSTR("abc"), LUMSTR("abc")));
    LUMStringRef upper = LUMStringCreateWithCString(nullptr, "ABC", kLUMStringEncodingUTF8);
    EXPECT_FALSE(LUMEqual(LUMSTR("abc"), upper));
    EXPECT_FALSE(LUMEqual(LUMSTR("ab"), LUMSTR("abc")));
    LUMRelease(upper);
    EXPECT_EQ(LUMHash(LUMSTR("")), 0u);
}

TEST(LUMString, DescriptionIsTheTextItself)
{
    LUMStringRef s = LUMStringCreateWithCString(nullptr, "described", kLUMStringEncodingUTF8);
    LUMStringRef d = LUMCopyDescription(s);
    EXPECT_EQ(d, s); // an immutable string with its own allocator: retained
    EXPECT_EQ(LUMGetRetainCount(s), 2);
    LUMRelease(d);
    LUMRelease(s);
}

TEST(LUMString, ConstantInstanceInCallerMemory)
{
    static __LUMString placed;
    _LUMStringInitializeConstantInstance(&placed, "placed \xC3\xA9");
    EXPECT_TRUE(_LUMTypeCheckValid(&placed, LUMStringGetTypeID()));
    EXPECT_EQ(LUMStringGetLength(&placed), 8);
    EXPECT_EQ(LUMGetRetainCount(&placed), 1);
    EXPECT_TRUE(LUMEqual(&placed, LUMSTR("placed \xC3\xA9")));
}

TEST(LUMString, UnexpectedBufferTypeIsFatal)
{
    static __LUMString broken;
    _LUMStringInitializeConstantInstance(&broken, "broken");
    broken.bufferType = 7;
    EXPECT_TRUE(DiesWithFatal([] { LUMHash(&broken); }, "Unexpected string buffer type", "__LUMStringHash", "src/LUMString"));
    EXPECT_TRUE(DiesWithFatal([] { LUMStringCreateCopy(nullptr, &broken); }, "Unexpected string buffer type",
                              "LUMStringCreateCopy", "src/LUMString"));
}

TEST(LUMString, ZeroSizedBuffersAreNeverWritten)
{
    char buffer[4] = {'x', 'x', 'x', 'x'};
    LUMStringRef empty = LUMSTR("");
    EXPECT_FALSE(LUMStringGetCString(empty, buffer, 0, kLUMStringEncodingUTF8));
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_FALSE(LUMStringGetCString(empty, nullptr, 0, kLUMStringEncodingUTF8)); // measuring first
    EXPECT_FALSE(LUMStringGetCString(LUMSTR("abc"), nullptr, 0, kLUMStringEncodingUTF8));
    EXPECT_FALSE(LUMStringGetFileSystemRepresentation(empty, nullptr, 0));
    EXPECT_TRUE(LUMStringGetCString(empty, buffer, 1, kLUMStringEncodingUTF8));
    EXPECT_EQ(buffer[0], '\0');
}

TEST(LUMString, APathHoldingUPlus0000HasNoFileSystemForm)
{
    const UniChar units[] = {'/', 't', 'm', 'p', '/', 's', 0, 'x'};
    LUMStringRef path = LUMStringCreateWithCharacters(nullptr, units, 8);
    char buffer[64];
    memset(buffer, 'x', sizeof(buffer));
    EXPECT_FALSE(LUMStringGetFileSystemRepresentation(path, buffer, sizeof(buffer)));
    EXPECT_STREQ(buffer, "");
    // The C string form still cuts as it always did.
    EXPECT_TRUE(LUMStringGetCString(path, buffer, sizeof(buffer), kLUMStringEncodingUTF8));
    EXPECT_STREQ(buffer, "/tmp/s");
    LUMRelease(path);
    // An invalid byte decodes to U+0000 too.
    const UInt8 bytes[] = {'/', 'a', 0x80, 'b'};
    path = LUMStringCreateWithBytes(nullptr, bytes, 4, kLUMStringEncodingUTF8);
    EXPECT_FALSE(LUMStringGetFileSystemRepresentation(path, buffer, sizeof(buffer)));
    LUMRelease(path);
}

namespace {

// A thousand distinct literals ("c000" to "c999"), for the constant table.
#define LUM_TEN(p) p "0", p "1", p "2", p "3", p "4", p "5", p "6", p "7", p "8", p "9"
#define LUM_HUNDRED(p) \
    LUM_TEN(p "0"), LUM_TEN(p "1"), LUM_TEN(p "2"), LUM_TEN(p "3"), LUM_TEN(p "4"), LUM_TEN(p "5"), LUM_TEN(p "6"), \
        LUM_TEN(p "7"), LUM_TEN(p "8"), LUM_TEN(p "9")
#define LUM_THOUSAND(p) \
    LUM_HUNDRED(p "0"), LUM_HUNDRED(p "1"), LUM_HUNDRED(p "2"), LUM_HUNDRED(p "3"), LUM_HUNDRED(p "4"), LUM_HUNDRED(p "5"), \
        LUM_HUNDRED(p "6"), LUM_HUNDRED(p "7"), LUM_HUNDRED(p "8"), LUM_HUNDRED(p "9")
const char *const kThousandTexts[] = {LUM_THOUSAND("c")};
static_assert(sizeof(kThousandTexts) / sizeof(kThousandTexts[0]) == 1000);

} // namespace

TEST(LUMString, AThousandConstantsStayDistinctAndShared)
{
    CountingAllocator counting;
    LUMAllocatorSetDefault(counting.allocator);
    std::vector<LUMStringRef> first;
    for (const char *text : kThousandTexts) first.push_back(LUMSTR(text));
    for (size_t i = 0; i < first.size(); i++) {
        EXPECT_EQ(LUMSTR(kThousandTexts[i]), first[i]);
        EXPECT_EQ(Text(first[i]), kThousandTexts[i]);
        EXPECT_EQ(LUMGetAllocator(first[i]), _kLUMAllocatorConstant);
    }
    std::sort(first.begin(), first.end());
    EXPECT_EQ(std::unique(first.begin(), first.end()), first.end());
    // Constants never go through the default allocator.
    LUMAllocatorSetDefault(kLUMAllocatorSystemDefault);
    EXPECT_EQ(counting.allocations + counting.reallocations + counting.deallocations, 0);
}

TEST(LUMString, LongByteFormTextsReadTheSameInAnyOrder)
{
    // A quarter megabyte of mixed one-, two- and three-byte characters: read in
    // order through the inline buffer, at random positions and by search,
    // the byte form gives exactly what the same text in unit form gives.
    std::string text;
    const char *pieces[] = {"a", "\xC3\xA9", "\xE2\x82\xAC", "ab", "abab", "abc"};
    std::mt19937 random(7);
    while (text.size() < (1u << 18)) text += pieces[random() % 6];
    LUMStringRef bytes = LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8);
    LUMIndex length = LUMStringGetLength(bytes);
    std::vector<UniChar> units(static_cast<size_t>(length));
    LUMStringGetCharacters(bytes, LUMRangeMake(0, length), units.data());
    LUMStringRef unitForm = LUMStringCreateWithCharacters(nullptr, units.data(), length);
    LUMStringInlineBuffer inlineBuffer;
    LUMStringInitInlineBuffer(bytes, &inlineBuffer, LUMRangeMake(0, length));
    for (LUMIndex i = 0; i < length; i++) ASSERT_EQ(LUMStringGetCharacterFromInlineBuffer(&inlineBuffer, i), units[static_cast<size_t>(i)]);
    for (int n = 0; n < 500; n++) {
        LUMIndex at = static_cast<LUMIndex>(random() % static_cast<uint32_t>(length - 8));
        UniChar eight[8];
        LUMStringGetCharacters(bytes, LUMRangeMake(at, 8), eight);
        ASSERT_EQ(memcmp(eight, &units[static_cast<size_t>(at)], sizeof(eight)), 0) << at;
    }
    for (const char *needle : {"ababababc", "\xE2\x82\xAC" "abc", "zz"}) {
        LUMStringRef find = LUMStringCreateWithCString(nullptr, needle, kLUMStringEncodingUTF8);
        LUMRange inBytes = LUMStringFind(bytes, find, 0), inUnits = LUMStringFind(unitForm, find, 0);
        EXPECT_EQ(inBytes.location, inUnits.location) << needle;
        inBytes = LUMStringFind(bytes, find, kLUMCompareBackwards);
        inUnits = LUMStringFind(unitForm, find, kLUMCompareBackwards);
        EXPECT_EQ(inBytes.location, inUnits.location) << needle;
        LUMRelease(find);
    }
    EXPECT_TRUE(LUMEqual(bytes, unitForm));
    EXPECT_EQ(LUMHash(bytes), LUMHash(unitForm));
    LUMRelease(unitForm);
    LUMRelease(bytes);
}
