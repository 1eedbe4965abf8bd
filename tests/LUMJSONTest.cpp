/* LUMJSONTest.cpp — the standard JSON reader and writer: the parsing test
 * suite file by file, values and their types, errors with their exact
 * sentences and positions, the writer's exact texts, round trips of the
 * benchmark documents with every double bit-exact, a differential test
 * against Python's json module, depth, allocators and locales. */
#include <LumBase.h>

#include "support/LUMTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using namespace lumtest;

namespace {

std::string SourceDir() { return LUM_TEST_SOURCE_DIR; }
std::string ParsingDir() { return SourceDir() + "/../shared/corpus/json-parsing"; }
std::string BenchDir() { return SourceDir() + "/../shared/corpus/json-bench"; }

LUMDataRef DataOf(const std::string &bytes)
{
    return LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()), static_cast<LUMIndex>(bytes.size()));
}

/* Reads bytes; the result (or NULL) and the error (or NULL) are the caller's. */
LUMPropertyListRef Read(const std::string &bytes, LUMErrorRef *error = nullptr, LUMOptionFlags options = 0,
                        LUMAllocatorRef allocator = nullptr)
{
    LUMDataRef data = DataOf(bytes);
    LUMErrorRef ignored = nullptr;
    LUMPropertyListRef result = LUMJSONCreateWithData(allocator, data, options, error != nullptr ? error : &ignored);
    if (ignored != nullptr) LUMRelease(ignored);
    LUMRelease(data);
    return result;
}

std::string BytesOf(LUMDataRef data)
{
    std::string text(reinterpret_cast<const char *>(LUMDataGetBytePtr(data)), static_cast<size_t>(LUMDataGetLength(data)));
    LUMRelease(data);
    return text;
}

/* The JSON text of plist, or "<error N: sentence>". */
std::string Write(LUMPropertyListRef plist, LUMOptionFlags options = 0)
{
    LUMErrorRef error = nullptr;
    LUMDataRef data = LUMJSONCreateData(nullptr, plist, options, &error);
    if (data == nullptr) {
        std::string text = "<error " + std::to_string(LUMErrorGetCode(error)) + ": " + TakeText(LUMErrorCopyDescription(error)) + ">";
        LUMRelease(error);
        return text;
    }
    EXPECT_EQ(error, nullptr);
    return BytesOf(data);
}

std::string HexBits(double value)
{
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    char text[20];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(bits));
    return text;
}

/* The canonical form json_differential.py makes of Python's reading. */
std::string Canonical(LUMTypeRef value)
{
    LUMTypeID type = LUMGetTypeID(value);
    if (type == LUMBooleanGetTypeID()) return LUMBooleanGetValue(static_cast<LUMBooleanRef>(value)) ? "t" : "f";
    if (type == LUMNullGetTypeID()) return "n";
    if (type == LUMNumberGetTypeID()) {
        auto number = static_cast<LUMNumberRef>(value);
        if (LUMNumberIsFloatType(number)) {
            double real = 0;
            LUMNumberGetValue(number, kLUMNumberDoubleType, &real);
            return "d" + HexBits(real);
        }
        int64_t integer = 0;
        LUMNumberGetValue(number, kLUMNumberSInt64Type, &integer);
        return "i" + std::to_string(integer);
    }
    if (type == LUMStringGetTypeID()) {
        auto string = static_cast<LUMStringRef>(value);
        std::vector<UniChar> units(static_cast<size_t>(LUMStringGetLength(string)) + 1);
        LUMStringGetCharacters(string, LUMRangeMake(0, LUMStringGetLength(string)), units.data());
        std::string text = "s";
        for (size_t i = 0; i + 1 < units.size(); i++) {
            uint32_t c = units[i];
            if (c >= 0xD800 && c <= 0xDBFF && i + 2 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF)
                c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00u);
            char hex[12];
            snprintf(hex, sizeof hex, "%s%x", text.size() > 1 ? "," : "", c);
            text += hex;
        }
        return text;
    }
    if (type == LUMArrayGetTypeID()) {
        std::string text = "[";
        for (LUMIndex i = 0; i < LUMArrayGetCount(static_cast<LUMArrayRef>(value)); i++)
            text += Canonical(LUMArrayGetValueAtIndex(static_cast<LUMArrayRef>(value), i)) + ",";
        return text + "]";
    }
    auto dictionary = static_cast<LUMDictionaryRef>(value);
    LUMIndex count = LUMDictionaryGetCount(dictionary);
    std::vector<const void *> keys(static_cast<size_t>(count) + 1), values(static_cast<size_t>(count) + 1);
    LUMDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    std::vector<std::pair<std::string, std::string>> entries;
    for (LUMIndex i = 0; i < count; i++) entries.emplace_back(Canonical(keys[static_cast<size_t>(i)]), Canonical(values[static_cast<size_t>(i)]));
    std::sort(entries.begin(), entries.end());
    std::string text = "{";
    for (auto &entry : entries) text += entry.first + ":" + entry.second + ",";
    return text + "}";
}

/* Canonical form of the reading of bytes, or "<error N: sentence>". */
std::string ReadCanonical(const std::string &bytes, LUMOptionFlags options = 0)
{
    LUMErrorRef error = nullptr;
    LUMPropertyListRef plist = Read(bytes, &error, options);
    if (plist == nullptr) {
        std::string text = "<error " + std::to_string(LUMErrorGetCode(error)) + ": " + TakeText(LUMErrorCopyDescription(error)) + ">";
        LUMRelease(error);
        return text;
    }
    EXPECT_EQ(error, nullptr);
    std::string text = Canonical(plist);
    LUMRelease(plist);
    return text;
}

LUMIndex UserInfoNumber(LUMErrorRef error, LUMStringRef key)
{
    LUMDictionaryRef info = LUMErrorCopyUserInfo(error);
    auto number = static_cast<LUMNumberRef>(LUMDictionaryGetValue(info, key));
    LUMIndex value = -1;
    if (number != nullptr) LUMNumberGetValue(number, kLUMNumberLUMIndexType, &value);
    LUMRelease(info);
    return value;
}

struct ReadError {
    LUMIndex code = 0, offset = -1, line = -1, column = -1;
    std::string sentence;
};

ReadError ErrorOf(const std::string &bytes)
{
    LUMErrorRef error = nullptr;
    LUMPropertyListRef plist = Read(bytes, &error);
    EXPECT_EQ(plist, nullptr) << bytes;
    if (plist != nullptr) LUMRelease(plist);
    ReadError result;
    if (error == nullptr) return result;
    EXPECT_TRUE(LUMEqual(LUMErrorGetDomain(error), kLUMJSONErrorDomain));
    result.code = LUMErrorGetCode(error);
    result.offset = UserInfoNumber(error, kLUMJSONErrorByteOffsetKey);
    result.line = UserInfoNumber(error, kLUMJSONErrorLineKey);
    result.column = UserInfoNumber(error, kLUMJSONErrorColumnKey);
    result.sentence = TakeText(LUMErrorCopyDescription(error));
    LUMRelease(error);
    return result;
}

std::vector<std::string> CorpusFiles(const std::string &prefix)
{
    std::vector<std::string> names;
    DIR *dir = opendir(ParsingDir().c_str());
    if (dir == nullptr) return names;
    while (struct dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name.rfind(prefix, 0) == 0 && name.size() > 5 && name.substr(name.size() - 5) == ".json") names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

bool HavePython() { return system("command -v python3 >/dev/null 2>&1") == 0; }

/* Lines printed by the oracle script run with arguments. */
std::vector<std::string> Oracle(const std::string &arguments)
{
    std::string command = "python3 " + SourceDir() + "/tests/json_differential.py " + arguments;
    std::vector<std::string> lines;
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return lines;
    std::string line;
    int c;
    while ((c = fgetc(pipe)) != EOF) {
        if (c == '\n') {
            lines.push_back(line);
            line.clear();
        } else {
            line += static_cast<char>(c);
        }
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return lines;
}

std::string TempDirectory()
{
    char pattern[] = "/tmp/lumjson-XXXXXX";
    const char *made = mkdtemp(pattern);
    return made != nullptr ? made : "/tmp";
}

void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream out(path, std::ios::binary);
    out << bytes;
}

} // namespace

/* ---- The parsing test suite ------------------------------------------------ */

TEST(LUMJSONCorpus, EveryAcceptFileReads)
{
    auto files = CorpusFiles("y_");
    if (files.empty()) GTEST_SKIP() << "no corpus beside the repository";
    for (const auto &name : files) {
        LUMErrorRef error = nullptr;
        LUMPropertyListRef plist = Read(FileText(ParsingDir() + "/" + name), &error);
        EXPECT_NE(plist, nullptr) << name << ": " << (error ? TakeText(LUMErrorCopyDescription(error)) : "");
        EXPECT_EQ(error, nullptr) << name;
        if (error != nullptr) LUMRelease(error);
        if (plist != nullptr) LUMRelease(plist);
    }
    EXPECT_EQ(files.size(), 95u);
}

TEST(LUMJSONCorpus, EveryRejectFileFailsWithAPositionAndLeavesNothing)
{
    auto files = CorpusFiles("n_");
    if (files.empty()) GTEST_SKIP() << "no corpus beside the repository";
    CountingAllocator counting;
    for (const auto &name : files) {
        std::string bytes = FileText(ParsingDir() + "/" + name);
        LUMErrorRef error = nullptr;
        LUMPropertyListRef plist = Read(bytes, &error, 0, counting.allocator);
        EXPECT_EQ(plist, nullptr) << name;
        ASSERT_NE(error, nullptr) << name;
        LUMIndex code = LUMErrorGetCode(error);
        EXPECT_TRUE(code >= kLUMJSONErrorUnexpectedCharacter && code <= kLUMJSONErrorTrailingGarbage) << name << " " << code;
        LUMIndex offset = UserInfoNumber(error, kLUMJSONErrorByteOffsetKey);
        EXPECT_GE(offset, 0) << name;
        EXPECT_LE(offset, static_cast<LUMIndex>(bytes.size())) << name;
        EXPECT_GE(UserInfoNumber(error, kLUMJSONErrorLineKey), 1) << name;
        EXPECT_GE(UserInfoNumber(error, kLUMJSONErrorColumnKey), 1) << name;
        EXPECT_NE(TakeText(LUMErrorCopyDescription(error)).find(" at line "), std::string::npos) << name;
        LUMRelease(error);
    }
    EXPECT_EQ(files.size(), 188u);
    EXPECT_GT(counting.allocations, 0);
    EXPECT_EQ(counting.allocations, counting.deallocations);
}

TEST(LUMJSONCorpus, ImplementationDefinedFilesAsDecided)
{
    if (CorpusFiles("i_").empty()) GTEST_SKIP() << "no corpus beside the repository";
    struct Case {
        const char *file;
        const char *result; // canonical reading, or the error sentence
        const char *reason;
    };
    const Case cases[] = {
        {"i_number_double_huge_neg_exp.json", "[d0000000000000000,]", "underflow rounds to 0"},
        {"i_number_real_underflow.json", "[d0000000000000000,]", "underflow rounds to 0"},
        {"i_number_huge_exp.json", "<error 5: Number out of range at line 1, column 2>", "no double holds it"},
        {"i_number_neg_int_huge_exp.json", "<error 5: Number out of range at line 1, column 2>", "no double holds it"},
        {"i_number_pos_double_huge_exp.json", "<error 5: Number out of range at line 1, column 2>", "no double holds it"},
        {"i_number_real_neg_overflow.json", "<error 5: Number out of range at line 1, column 2>", "no double holds it"},
        {"i_number_real_pos_overflow.json", "<error 5: Number out of range at line 1, column 2>", "no double holds it"},
        {"i_object_key_lone_2nd_surrogate.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_1st_surrogate_but_2nd_missing.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_1st_valid_surrogate_2nd_invalid.json", "<error 4: Invalid escape at line 1, column 9>", "not a low surrogate"},
        {"i_string_UTF-16LE_with_BOM.json", "<error 1: Unexpected byte 0xFF at line 1, column 1>", "UTF-8 only"},
        {"i_string_UTF-8_invalid_sequence.json", "<error 3: Invalid UTF-8 at line 1, column 5>", "invalid UTF-8"},
        {"i_string_UTF8_surrogate_U+D800.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "encoded surrogate"},
        {"i_string_incomplete_surrogate_and_escape_valid.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_incomplete_surrogate_pair.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_incomplete_surrogates_escape_valid.json", "<error 4: Invalid escape at line 1, column 9>", "lone surrogate"},
        {"i_string_invalid_lonely_surrogate.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_invalid_surrogate.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_invalid_utf-8.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "invalid UTF-8"},
        {"i_string_inverted_surrogates_U+1D11E.json", "<error 4: Invalid escape at line 1, column 3>", "low before high"},
        {"i_string_iso_latin_1.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "Latin-1 is not UTF-8"},
        {"i_string_lone_second_surrogate.json", "<error 4: Invalid escape at line 1, column 3>", "lone surrogate"},
        {"i_string_lone_utf8_continuation_byte.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "invalid UTF-8"},
        {"i_string_not_in_unicode_range.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "above U+10FFFF"},
        {"i_string_overlong_sequence_2_bytes.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "overlong"},
        {"i_string_overlong_sequence_6_bytes.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "overlong"},
        {"i_string_overlong_sequence_6_bytes_null.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "overlong"},
        {"i_string_truncated-utf-8.json", "<error 3: Invalid UTF-8 at line 1, column 3>", "truncated"},
        {"i_string_utf16BE_no_BOM.json", "<error 1: Unexpected byte 0x00 at line 1, column 1>", "UTF-8 only"},
        {"i_string_utf16LE_no_BOM.json", "<error 1: Unexpected byte 0x00 at line 1, column 2>", "UTF-8 only"},
        {"i_structure_UTF-8_BOM_empty_object.json", "{}", "a UTF-8 byte order mark is ignored, as the RFC allows"},
    };
    for (const auto &c : cases) EXPECT_EQ(ReadCanonical(FileText(ParsingDir() + "/" + c.file)), c.result) << c.file << " (" << c.reason << ")";
    // Integers beyond 64 bits: the nearest double, as the C library's
    // correctly rounding strtod gives it.
    for (const char *file : {"i_number_too_big_neg_int.json", "i_number_too_big_pos_int.json", "i_number_very_big_negative_int.json"}) {
        std::string text = FileText(ParsingDir() + "/" + file);
        EXPECT_EQ(ReadCanonical(text), "[d" + HexBits(strtod(text.c_str() + 1, nullptr)) + ",]") << file;
    }
    // 500 nested arrays: no depth limit.
    std::string nested = ReadCanonical(FileText(ParsingDir() + "/i_structure_500_nested_arrays.json"));
    std::string expected;
    for (int i = 0; i < 500; i++) expected += "[";
    for (int i = 0; i < 499; i++) expected += "],";
    expected += "]";
    EXPECT_EQ(nested, expected);
    EXPECT_EQ(CorpusFiles("i_").size(), 35u);
}

/* ---- Values ------------------------------------------------------------------ */

TEST(LUMJSONRead, NumbersTakeTheNarrowestExactType)
{
    struct Case {
        const char *text;
        LUMNumberType type;
        const char *canonical;
    };
    const Case cases[] = {
        {"0", kLUMNumberSInt32Type, "i0"},
        {"-0", kLUMNumberSInt32Type, "i0"},
        {"2147483647", kLUMNumberSInt32Type, "i2147483647"},
        {"-2147483648", kLUMNumberSInt32Type, "i-2147483648"},
        {"2147483648", kLUMNumberSInt64Type, "i2147483648"},
        {"-2147483649", kLUMNumberSInt64Type, "i-2147483649"},
        {"9223372036854775807", kLUMNumberSInt64Type, "i9223372036854775807"},
        {"-9223372036854775808", kLUMNumberSInt64Type, "i-9223372036854775808"},
        {"9223372036854775808", kLUMNumberDoubleType, "d43e0000000000000"},
        {"1.0", kLUMNumberDoubleType, "d3ff0000000000000"},
        {"1e2", kLUMNumberDoubleType, "d4059000000000000"},
        {"-0.0", kLUMNumberDoubleType, "d8000000000000000"},
        {"0.1", kLUMNumberDoubleType, "d3fb999999999999a"},
        {"5e-324", kLUMNumberDoubleType, "d0000000000000001"},
        {"2.4703282292062328e-324", kLUMNumberDoubleType, "d0000000000000001"}, // just above half the smallest: rounds up
        {"1.7976931348623157e308", kLUMNumberDoubleType, "d7fefffffffffffff"},
        {"9007199254740993", kLUMNumberSInt64Type, "i9007199254740993"},
        {"9007199254740993.0", kLUMNumberDoubleType, "d4340000000000000"}, // halfway: to even
        {"0.1000000000000000055511151231257827021181583404541015625", kLUMNumberDoubleType, "d3fb999999999999a"},
        {"123456789012345678901234567890", kLUMNumberDoubleType, "d45f8ee90ff6c373e"},
    };
    for (const auto &c : cases) {
        LUMPropertyListRef plist = Read(c.text);
        ASSERT_NE(plist, nullptr) << c.text;
        ASSERT_EQ(LUMGetTypeID(plist), LUMNumberGetTypeID()) << c.text;
        EXPECT_EQ(LUMNumberGetType(static_cast<LUMNumberRef>(plist)), c.type) << c.text;
        EXPECT_EQ(Canonical(plist), c.canonical) << c.text;
        LUMRelease(plist);
        // The oracle: the C library's correctly rounding strtod.
        if (c.type == kLUMNumberDoubleType) {
            EXPECT_EQ(std::string("d") + HexBits(strtod(c.text, nullptr)), c.canonical) << c.text;
        }
    }
}

TEST(LUMJSONRead, DoublesAgreeWithStrtodOnRandomDecimals)
{
    // Up to 20 digits, exponents across and beyond the exact-arithmetic
    // range, and decimals at or next to halfway points between doubles.
    uint64_t state = 0x9E3779B97F4A7C15ull;
    auto next = [&state]() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    };
    const int count = UnderValgrind() ? 5000 : 200000;
    int mismatches = 0;
    std::string document = "[";
    std::vector<std::string> texts;
    for (int i = 0; i < count; i++) {
        char text[64];
        int digits = 1 + static_cast<int>(next() % 20);
        std::string mantissa;
        for (int k = 0; k < digits; k++) mantissa += static_cast<char>('0' + (k == 0 ? 1 + next() % 9 : next() % 10));
        int exponent = static_cast<int>(next() % 60) - 30;
        switch (i % 4) {
        case 0: snprintf(text, sizeof text, "%se%d", mantissa.c_str(), exponent); break;
        case 1: snprintf(text, sizeof text, "%s.%s0", mantissa.substr(0, 1).c_str(), mantissa.substr(1).c_str()); break;
        case 2: snprintf(text, sizeof text, "0.%s", mantissa.c_str()); break;
        default: {
            // The exact decimal of a double, or of the midpoint above it.
            double value = static_cast<double>(next() >> 11) / static_cast<double>(1ull << (next() % 53));
            snprintf(text, sizeof text, "%.40g", i % 8 == 3 ? value : value + (std::nextafter(value, INFINITY) - value) / 2);
        }
        }
        if (strchr(text, '.') == nullptr && strchr(text, 'e') == nullptr) strcat(text, ".0");
        texts.push_back(text);
        document += (i > 0 ? "," : "") + std::string(text);
    }
    document += "]";
    LUMErrorRef error = nullptr;
    LUMPropertyListRef plist = Read(document, &error);
    ASSERT_NE(plist, nullptr) << TakeText(LUMErrorCopyDescription(error));
    auto array = static_cast<LUMArrayRef>(plist);
    ASSERT_EQ(LUMArrayGetCount(array), count);
    for (int i = 0; i < count; i++) {
        double read = 0;
        LUMNumberGetValue(static_cast<LUMNumberRef>(LUMArrayGetValueAtIndex(array, i)), kLUMNumberDoubleType, &read);
        double oracle = strtod(texts[static_cast<size_t>(i)].c_str(), nullptr);
        if (memcmp(&read, &oracle, sizeof read) != 0 && mismatches++ < 10)
            ADD_FAILURE() << texts[static_cast<size_t>(i)] << " read as " << HexBits(read) << ", strtod " << HexBits(oracle);
    }
    EXPECT_EQ(mismatches, 0);
    LUMRelease(plist);
}

TEST(LUMJSONRead, NumbersIgnoreTheCLocale)
{
    // In a child: the locale and LOCPATH are the whole process's.
    ChildResult child = RunInChild([] {
        if (!UseDecimalCommaLocale()) _exit(3);
        if (strcmp(localeconv()->decimal_point, ",") != 0) _exit(4);
        if (ReadCanonical("[1.5, 2.5e1, 0.30000000000000004]") != "[d3ff8000000000000,d4039000000000000,d3fd3333333333334,]") _exit(5);
        LUMPropertyListRef plist = Read("[1.5, 123456.789012345678, 1e-7, 12345678901234567890]");
        std::string written = Write(plist);
        LUMRelease(plist);
        printf("%s\n", written.c_str());
        if (strcmp(localeconv()->decimal_point, ",") != 0) _exit(6); // the caller's locale is back
    });
    if (child.exitStatus == 3) GTEST_SKIP() << "no locale with a decimal comma can be had here";
    EXPECT_EQ(child.exitStatus, 0) << child.err;
    EXPECT_EQ(child.out, "[1.5,123456.78901234567,1e-07,1.2345678901234567e+19]\n");
}

TEST(LUMJSONRead, StringsAreDecodedUTF8)
{
    EXPECT_EQ(ReadCanonical(R"("abc")"), "s61,62,63");
    EXPECT_EQ(ReadCanonical(R"("")"), "s");
    EXPECT_EQ(ReadCanonical(R"("\"\\\/\b\f\n\r\t")"), "s22,5c,2f,8,c,a,d,9");
    EXPECT_EQ(ReadCanonical(R"("\u0041\u00e9\u20AC\u0000x")"), "s41,e9,20ac,0,78");
    EXPECT_EQ(ReadCanonical(R"("\ud83d\ude00")"), "s1f600");
    EXPECT_EQ(ReadCanonical("\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\""), "se9,20ac,1f600,10ffff");
    // Stored as UTF-16: an astral character is two units.
    LUMPropertyListRef plist = Read("\"a\xF0\x9F\x98\x80\"");
    EXPECT_EQ(LUMStringGetLength(static_cast<LUMStringRef>(plist)), 3);
    const UniChar expectedUnits[] = {'a', 0xD83D, 0xDE00};
    LUMStringRef expectedString = LUMStringCreateWithCharacters(nullptr, expectedUnits, 3);
    EXPECT_TRUE(LUMEqual(plist, expectedString));
    LUMRelease(expectedString);
    LUMRelease(plist);
    // Plain ASCII compares equal to the same text made any other way.
    plist = Read(R"({"key": "value"})");
    EXPECT_TRUE(LUMEqual(LUMDictionaryGetValue(static_cast<LUMDictionaryRef>(plist), LUMSTR("key")), LUMSTR("value")));
    LUMRelease(plist);
    // A long string with an escape at the end and non-ASCII in the middle.
    std::string longText = "\"" + std::string(1000, 'x') + "\xC3\xA9" + std::string(1000, 'y') + "\\n\"";
    std::string expected = "s";
    for (int i = 0; i < 1000; i++) expected += "78,";
    expected += "e9,";
    for (int i = 0; i < 1000; i++) expected += "79,";
    expected += "a";
    EXPECT_EQ(ReadCanonical(longText), expected);
}

TEST(LUMJSONRead, AnyValueStandsAtTheTop)
{
    EXPECT_EQ(ReadCanonical(" 5 "), "i5");
    EXPECT_EQ(ReadCanonical("\"x\""), "s78");
    EXPECT_EQ(ReadCanonical("true"), "t");
    EXPECT_EQ(ReadCanonical("\tfalse\n"), "f");
    EXPECT_EQ(ReadCanonical("null"), "n");
    EXPECT_EQ(ReadCanonical("[]"), "[]");
    EXPECT_EQ(ReadCanonical(" {} "), "{}");
    LUMPropertyListRef t = Read("true");
    EXPECT_EQ(t, kLUMBooleanTrue);
    LUMPropertyListRef n = Read("null");
    EXPECT_EQ(n, kLUMNull);
    LUMRelease(t);
    LUMRelease(n);
}

TEST(LUMJSONRead, TheLastDuplicateKeyWinsInThePlaceOfTheFirst)
{
    LUMPropertyListRef plist = Read(R"({"a": 1, "b": 2, "a": 3, "c": {"x": [1]}, "a": 4})");
    auto dictionary = static_cast<LUMDictionaryRef>(plist);
    ASSERT_EQ(LUMDictionaryGetCount(dictionary), 3);
    EXPECT_EQ(Canonical(plist), "{s61:i4,s62:i2,s63:{s78:[i1,],},}");
    EXPECT_EQ(Write(plist), R"({"a":4,"b":2,"c":{"x":[1]}})");
    LUMRelease(plist);
    // Above the pairwise limit the same rule holds.
    std::string text = "{";
    for (int i = 0; i < 100; i++) text += "\"k" + std::to_string(i % 40) + "\":" + std::to_string(i) + (i < 99 ? "," : "}");
    plist = Read(text);
    dictionary = static_cast<LUMDictionaryRef>(plist);
    ASSERT_EQ(LUMDictionaryGetCount(dictionary), 40);
    std::string written = Write(plist);
    EXPECT_EQ(written.substr(0, 24), R"({"k0":80,"k1":81,"k2":82)");
    EXPECT_NE(written.find(R"("k39":79})"), std::string::npos);
    LUMRelease(plist);
}

TEST(LUMJSONRead, KeysWithEqualTextAreOneObject)
{
    LUMPropertyListRef plist = Read(R"([{"name": 1}, {"name": 2}, {"n\u0061me": 3}])");
    auto array = static_cast<LUMArrayRef>(plist);
    const void *keys[3];
    for (LUMIndex i = 0; i < 3; i++) {
        const void *value;
        LUMDictionaryGetKeysAndValues(static_cast<LUMDictionaryRef>(LUMArrayGetValueAtIndex(array, i)), &keys[i], &value);
    }
    EXPECT_EQ(keys[0], keys[1]);
    EXPECT_EQ(keys[1], keys[2]);
    EXPECT_EQ(LUMGetRetainCount(keys[0]), 3);
    LUMRelease(plist);
}

TEST(LUMJSONRead, KeysInRepeatedOrderReadLikeAnyOtherKeys)
{
    // Objects repeating their keys in order, then breaking the pattern with
    // escapes, prefixes, longer keys, duplicates and the end of the text.
    EXPECT_EQ(ReadCanonical(R"([{"a":1,"bc":2},{"a":3,"bc":4},{"a":5,"b\u0063":6},{"a":7,"bcd":8},{"a":9,"b":10},)"
                            R"({"a":11,"bc":12,"bc":13},{"a\"":14,"bc":15},{"\\":16,"bc":17},{"\\":18}])"),
              "[{s61:i1,s62,63:i2,},{s61:i3,s62,63:i4,},{s61:i5,s62,63:i6,},{s61:i7,s62,63,64:i8,},{s61:i9,s62:i10,},"
              "{s61:i11,s62,63:i13,},{s61,22:i14,s62,63:i15,},{s5c:i16,s62,63:i17,},{s5c:i18,},]");
    EXPECT_EQ(ErrorOf(R"([{"ab":1},{"ab)").code, kLUMJSONErrorUnexpectedEnd);
    EXPECT_EQ(ErrorOf(R"([{"ab":1},{"ab")").code, kLUMJSONErrorUnexpectedEnd);
}

TEST(LUMJSONRead, ContainersAreImmutableUnlessAskedOtherwise)
{
    LUMPropertyListRef plist = Read(R"({"list": [1]})", nullptr, kLUMJSONReadingMutableContainers);
    auto dictionary = static_cast<LUMMutableDictionaryRef>(const_cast<void *>(plist));
    auto list = static_cast<LUMMutableArrayRef>(const_cast<void *>(LUMDictionaryGetValue(dictionary, LUMSTR("list"))));
    for (int i = 0; i < 20; i++) LUMArrayAppendValue(list, kLUMNull);
    LUMDictionarySetValue(dictionary, LUMSTR("more"), kLUMBooleanTrue);
    EXPECT_EQ(Write(plist, kLUMJSONWritingSortedKeys).substr(0, 22), R"({"list":[1,null,null,n)");
    EXPECT_EQ(LUMDictionaryGetCount(dictionary), 2);
    LUMRelease(plist);
    // Without the option an edit is a programming error.
    ChildResult child = RunInChild([] {
        LUMPropertyListRef fixed = Read("[1]");
        LUMArraySetValueAtIndex(static_cast<LUMMutableArrayRef>(const_cast<void *>(fixed)), 0, kLUMNull);
    });
    EXPECT_EQ(child.exitStatus, 1);
}

TEST(LUMJSONRead, ResultObjectsComeFromTheAllocatorInOneBlockEach)
{
    CountingAllocator counting;
    LUMPropertyListRef plist = Read(R"([1, "a", {"k": 2.5}, "\u00e9"])", nullptr, 0, counting.allocator);
    ASSERT_NE(plist, nullptr);
    // The array with its slots; 1; "a"; the dictionary with its keys and
    // values; "k"; 2.5; "é": seven blocks, each string's text in its record's.
    EXPECT_EQ(counting.allocations, 7);
    EXPECT_EQ(counting.reallocations, 0);
    LUMRelease(plist);
    EXPECT_EQ(counting.deallocations, 7);
    // Equal integers and short strings are one object; doubles and long
    // strings are not.
    int before = counting.allocations;
    plist = Read(R"([7, 7, "ab", "ab", 2.5, 2.5, "0123456789012345678901234567890123", "0123456789012345678901234567890123"])", nullptr,
                 0, counting.allocator);
    auto array = static_cast<LUMArrayRef>(plist);
    EXPECT_EQ(LUMArrayGetValueAtIndex(array, 0), LUMArrayGetValueAtIndex(array, 1));
    EXPECT_EQ(LUMGetRetainCount(LUMArrayGetValueAtIndex(array, 0)), 2);
    EXPECT_EQ(LUMArrayGetValueAtIndex(array, 2), LUMArrayGetValueAtIndex(array, 3));
    EXPECT_NE(LUMArrayGetValueAtIndex(array, 4), LUMArrayGetValueAtIndex(array, 5));
    EXPECT_NE(LUMArrayGetValueAtIndex(array, 6), LUMArrayGetValueAtIndex(array, 7));
    EXPECT_EQ(counting.allocations - before, 1 + 1 + 1 + 2 + 2);
    LUMRelease(plist);
    // Mutable containers keep their slots in blocks of their own.
    before = counting.allocations;
    plist = Read(R"([1, {"k": 2}])", nullptr, kLUMJSONReadingMutableContainers, counting.allocator);
    EXPECT_EQ(counting.allocations - before, 2 + 1 + 3 + 1 + 1);
    LUMRelease(plist);
    EXPECT_EQ(counting.allocations, counting.deallocations);
}

TEST(LUMJSONRead, ImmutableContainersSurviveAnEditAnyway)
{
    // Editing an immutable container is a caller's mistake; slots kept in
    // the record's block still move out rather than break the heap.
    LUMPropertyListRef plist = Read(R"([{"a": 1}, []])");
    auto array = static_cast<LUMMutableArrayRef>(const_cast<void *>(plist));
    for (int i = 0; i < 30; i++) LUMArrayAppendValue(array, kLUMNull);
    auto dictionary = static_cast<LUMMutableDictionaryRef>(const_cast<void *>(LUMArrayGetValueAtIndex(array, 0)));
    for (int i = 0; i < 30; i++) {
        LUMStringRef key = LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("k%d"), i);
        LUMDictionarySetValue(dictionary, key, kLUMBooleanTrue);
        LUMRelease(key);
    }
    EXPECT_EQ(LUMArrayGetCount(array), 32);
    EXPECT_EQ(LUMDictionaryGetCount(dictionary), 31);
    EXPECT_TRUE(LUMEqual(LUMDictionaryGetValue(dictionary, LUMSTR("k29")), kLUMBooleanTrue));
    LUMPropertyListRef empty = Read("{}");
    LUMDictionarySetValue(static_cast<LUMMutableDictionaryRef>(const_cast<void *>(empty)), LUMSTR("x"), kLUMNull);
    EXPECT_EQ(LUMDictionaryGetCount(static_cast<LUMDictionaryRef>(empty)), 0); // no slots: nothing stored
    LUMRelease(empty);
    LUMRelease(plist);
}

/* ---- Errors ------------------------------------------------------------------- */

TEST(LUMJSONErrors, SentencesSayWhatAndWhere)
{
    ReadError e = ErrorOf("[\n1,\n2, 3, x]");
    EXPECT_EQ(e.code, kLUMJSONErrorUnexpectedCharacter);
    EXPECT_EQ(e.sentence, "Unexpected character 'x' at line 3, column 7");
    EXPECT_EQ(e.offset, 11);
    EXPECT_EQ(e.line, 3);
    EXPECT_EQ(e.column, 7);

    e = ErrorOf("[1, 2");
    EXPECT_EQ(e.code, kLUMJSONErrorUnexpectedEnd);
    EXPECT_EQ(e.sentence, "Unexpected end of input at line 1, column 6");
    EXPECT_EQ(e.offset, 5);

    e = ErrorOf("");
    EXPECT_EQ(e.code, kLUMJSONErrorUnexpectedEnd);
    EXPECT_EQ(e.sentence, "Unexpected end of input at line 1, column 1");

    e = ErrorOf("  \n ");
    EXPECT_EQ(e.sentence, "Unexpected end of input at line 2, column 2");

    // Columns count characters, not bytes.
    e = ErrorOf("[\"\xC3\xA9\xE2\x82\xAC\", x]");
    EXPECT_EQ(e.sentence, "Unexpected character 'x' at line 1, column 8");
    EXPECT_EQ(e.offset, 10);

    e = ErrorOf("[\"a\xC3(\"]");
    EXPECT_EQ(e.code, kLUMJSONErrorInvalidUTF8);
    EXPECT_EQ(e.sentence, "Invalid UTF-8 at line 1, column 4");
    EXPECT_EQ(e.offset, 3);

    e = ErrorOf(R"(["ab\x"])");
    EXPECT_EQ(e.code, kLUMJSONErrorInvalidEscape);
    EXPECT_EQ(e.sentence, "Invalid escape at line 1, column 5");

    e = ErrorOf(R"(["\ud800x"])");
    EXPECT_EQ(e.code, kLUMJSONErrorInvalidEscape);
    EXPECT_EQ(e.offset, 2);

    e = ErrorOf(R"(["\u12G4"])");
    EXPECT_EQ(e.code, kLUMJSONErrorInvalidEscape);

    e = ErrorOf("[01]");
    EXPECT_EQ(e.code, kLUMJSONErrorInvalidNumber);
    EXPECT_EQ(e.sentence, "Invalid number at line 1, column 3");

    e = ErrorOf("[1.]");
    EXPECT_EQ(e.sentence, "Invalid number at line 1, column 4");

    e = ErrorOf("[-1e400]");
    EXPECT_EQ(e.code, kLUMJSONErrorInvalidNumber);
    EXPECT_EQ(e.sentence, "Number out of range at line 1, column 2");

    e = ErrorOf("{\"a\": 1} x");
    EXPECT_EQ(e.code, kLUMJSONErrorTrailingGarbage);
    EXPECT_EQ(e.sentence, "Unexpected character 'x' after the value at line 1, column 10");

    e = ErrorOf("[\"tab\there\"]");
    EXPECT_EQ(e.code, kLUMJSONErrorUnexpectedCharacter);
    EXPECT_EQ(e.sentence, "Unexpected byte 0x09 at line 1, column 6");

    e = ErrorOf("tru");
    EXPECT_EQ(e.code, kLUMJSONErrorUnexpectedEnd);
    e = ErrorOf("trUe");
    EXPECT_EQ(e.sentence, "Unexpected character 'U' at line 1, column 3");

    e = ErrorOf("{\"a\" 1}");
    EXPECT_EQ(e.sentence, "Unexpected character '1' at line 1, column 6");
    e = ErrorOf("{\"a\":1,}");
    EXPECT_EQ(e.sentence, "Unexpected character '}' at line 1, column 8");
}

TEST(LUMJSONErrors, AFailureLeavesNothingBehind)
{
    CountingAllocator counting;
    const char *documents[] = {
        R"({"a": [1, 2, {"b": "text", "c": [true, null, 3.5]}, "d"], "e": x})",
        R"([{"k": 1}, {"k": 2}, {"k": "\ud800"}])",
        R"({"a": 1, "a": 2, "b": [1, 2, 3)",
    };
    for (const char *document : documents) {
        LUMErrorRef error = nullptr;
        EXPECT_EQ(Read(document, &error, 0, counting.allocator), nullptr);
        ASSERT_NE(error, nullptr);
        LUMRelease(error);
    }
    EXPECT_GT(counting.allocations, 10);
    EXPECT_EQ(counting.allocations, counting.deallocations);
    // Without an error argument nothing is made for it.
    LUMDataRef data = DataOf("[1, x]");
    EXPECT_EQ(LUMJSONCreateWithData(nullptr, data, 0, nullptr), nullptr);
    LUMRelease(data);
}

TEST(LUMJSONErrors, ResultsOfAnAllocatorThatRunsOutAreErrorsNotCrashes)
{
    // Every block above 40 bytes refused: the second-level objects fail.
    LUMAllocatorRef limited = LimitedAllocator(40);
    LUMErrorRef error = nullptr;
    std::string big = "[" + std::string("\"") + std::string(100, 'x') + "\"]";
    EXPECT_EQ(Read(big, &error, 0, limited), nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(LUMErrorGetCode(error), kLUMJSONErrorNoMemory);
    LUMRelease(error);
    LUMRelease(limited);
}

/* ---- Streams -------------------------------------------------------------------- */

TEST(LUMJSONStreams, ReadsAStreamToItsEndAndWritesToOne)
{
    std::string text = R"({"list": [1, 2.5, "three"], "ok": true})";
    LUMReadStreamRef in = LUMReadStreamCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8 *>(text.data()),
                                                             static_cast<LUMIndex>(text.size()), kLUMAllocatorNull);
    LUMReadStreamOpen(in);
    LUMErrorRef error = nullptr;
    LUMPropertyListRef plist = LUMJSONCreateWithStream(nullptr, in, 0, &error);
    ASSERT_NE(plist, nullptr);
    EXPECT_EQ(error, nullptr);
    LUMReadStreamClose(in);
    LUMRelease(in);

    UInt8 buffer[256];
    LUMWriteStreamRef out = LUMWriteStreamCreateWithBuffer(nullptr, buffer, sizeof buffer);
    ASSERT_TRUE(LUMWriteStreamOpen(out));
    LUMIndex written = LUMJSONWrite(plist, out, kLUMJSONWritingSortedKeys, &error);
    std::string expected = R"({"list":[1,2.5,"three"],"ok":true})";
    EXPECT_EQ(written, static_cast<LUMIndex>(expected.size()));
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer), static_cast<size_t>(written)), expected);

    // A stream too small takes part and fails: 0 and a stream error.
    UInt8 tiny[8];
    LUMWriteStreamRef small = LUMWriteStreamCreateWithBuffer(nullptr, tiny, sizeof tiny);
    ASSERT_TRUE(LUMWriteStreamOpen(small));
    EXPECT_EQ(LUMJSONWrite(plist, small, 0, &error), 0);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(LUMErrorGetCode(error), kLUMJSONErrorStream);
    LUMRelease(error);

    // A value that cannot be written leaves the stream untouched.
    LUMDataRef data = DataOf("x");
    const void *values[] = {kLUMNull, data};
    LUMArrayRef bad = LUMArrayCreate(nullptr, values, 2, &kLUMTypeArrayCallBacks);
    LUMWriteStreamRef fresh = LUMWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    ASSERT_TRUE(LUMWriteStreamOpen(fresh));
    EXPECT_EQ(LUMJSONWrite(bad, fresh, 0, &error), 0);
    LUMDataRef contents = static_cast<LUMDataRef>(LUMWriteStreamCopyProperty(fresh, kLUMStreamPropertyDataWritten));
    EXPECT_EQ(contents != nullptr ? LUMDataGetLength(contents) : 0, 0);
    if (contents != nullptr) LUMRelease(contents);
    LUMRelease(error);
    LUMWriteStreamClose(fresh);
    LUMRelease(fresh);
    LUMRelease(bad);
    LUMRelease(data);
    LUMWriteStreamClose(small);
    LUMRelease(small);
    LUMWriteStreamClose(out);
    LUMRelease(out);
    LUMRelease(plist);
}

/* ---- The writer ----------------------------------------------------------------- */

TEST(LUMJSONWrite, CompactAndPrettyTexts)
{
    LUMPropertyListRef plist = Read(R"({"b": [1, {"c": []}, {}], "a": "x\ty", "n": null})");
    EXPECT_EQ(Write(plist), R"({"b":[1,{"c":[]},{}],"a":"x\ty","n":null})");
    EXPECT_EQ(Write(plist, kLUMJSONWritingSortedKeys), R"({"a":"x\ty","b":[1,{"c":[]},{}],"n":null})");
    EXPECT_EQ(Write(plist, kLUMJSONWritingPrettyPrinted | kLUMJSONWritingSortedKeys),
              "{\n"
              "  \"a\": \"x\\ty\",\n"
              "  \"b\": [\n"
              "    1,\n"
              "    {\n"
              "      \"c\": []\n"
              "    },\n"
              "    {}\n"
              "  ],\n"
              "  \"n\": null\n"
              "}\n");
    LUMRelease(plist);
    EXPECT_EQ(Write(kLUMBooleanTrue, kLUMJSONWritingPrettyPrinted), "true\n");
    EXPECT_EQ(Write(LUMSTR("top")), "\"top\"");
}

TEST(LUMJSONWrite, StringsAreUTF8EscapingOnlyWhatJSONRequires)
{
    const UniChar units[] = {'"', '\\', '/', 0x08, 0x0C, 0x0A, 0x0D, 0x09, 0x00, 0x1F, 0x7F, 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xFFFF};
    LUMStringRef string = LUMStringCreateWithCharacters(nullptr, units, 16);
    EXPECT_EQ(Write(string), "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0000\\u001f\x7F\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBF\"");
    LUMRelease(string);
    // Byte-form strings made by the other creators write the same.
    EXPECT_EQ(Write(LUMSTR("caf\xC3\xA9")), "\"caf\xC3\xA9\"");
    LUMStringRef bytes = LUMStringCreateWithCString(nullptr, "a\"b", kLUMStringEncodingUTF8);
    EXPECT_EQ(Write(bytes), "\"a\\\"b\"");
    LUMRelease(bytes);
    LUMMutableStringRef editable = LUMStringCreateMutable(nullptr, 0);
    LUMStringAppendCString(editable, "m\xC3\xBC", kLUMStringEncodingUTF8);
    EXPECT_EQ(Write(editable), "\"m\xC3\xBC\"");
    LUMRelease(editable);
}

TEST(LUMJSONWrite, NumbersAreExact)
{
    struct Case {
        double value;
        const char *text;
    };
    const Case doubles[] = {
        {0.1, "0.1"}, {1.0, "1.0"}, {-0.0, "-0.0"}, {0.0, "0.0"}, {1e100, "1e+100"}, {5e-324, "5e-324"},
        {1.7976931348623157e308, "1.7976931348623157e+308"}, {0.30000000000000004, "0.30000000000000004"},
        {123456789.0, "123456789.0"}, {1e15, "1000000000000000.0"}, {1e16, "1e+16"}, {0.0001, "0.0001"}, {0.00001, "1e-05"}, {2.5, "2.5"}, {-1234.5678, "-1234.5678"}, {1e-7, "1e-07"},
    };
    for (const auto &c : doubles) {
        LUMNumberRef number = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &c.value);
        EXPECT_EQ(Write(number), c.text) << c.text;
        LUMPropertyListRef back = Read(Write(number));
        EXPECT_EQ(Canonical(back), "d" + HexBits(c.value)) << c.text;
        LUMRelease(back);
        LUMRelease(number);
    }
    const int64_t integers[] = {0, -1, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN, 4294967296LL};
    for (int64_t value : integers) {
        LUMNumberRef number = LUMNumberCreate(nullptr, kLUMNumberSInt64Type, &value);
        EXPECT_EQ(Write(number), std::to_string(value));
        LUMRelease(number);
    }
    float single = 0.1f;
    LUMNumberRef number = LUMNumberCreate(nullptr, kLUMNumberFloat32Type, &single);
    EXPECT_EQ(Write(number), "0.10000000149011612");
    LUMRelease(number);
    uint8_t byte = 200;
    number = LUMNumberCreate(nullptr, kLUMNumberCharType, &byte);
    EXPECT_EQ(Write(number), "200");
    LUMRelease(number);
}

TEST(LUMJSONWrite, ValuesJSONCannotHoldAreErrorsNotOutput)
{
    double nan = NAN, inf = INFINITY;
    LUMNumberRef notANumber = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &nan);
    LUMNumberRef infinite = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &inf);
    EXPECT_EQ(Write(notANumber), "<error 7: Cannot write a NaN or infinite number as JSON>");
    EXPECT_EQ(Write(infinite), "<error 7: Cannot write a NaN or infinite number as JSON>");
    LUMDataRef data = DataOf("x");
    const void *values[] = {kLUMNull, data};
    LUMArrayRef withData = LUMArrayCreate(nullptr, values, 2, &kLUMTypeArrayCallBacks);
    EXPECT_EQ(Write(withData), "<error 7: Cannot write a value of class LUMData as JSON>");
    const void *keys[] = {infinite};
    const void *keyValues[] = {kLUMNull};
    LUMDictionaryRef numberKey = LUMDictionaryCreate(nullptr, keys, keyValues, 1, &kLUMTypeDictionaryKeyCallBacks,
                                                     &kLUMTypeDictionaryValueCallBacks);
    EXPECT_EQ(Write(numberKey), "<error 7: Cannot write a dictionary key of class LUMNumber as JSON>");
    const UniChar lone[] = {'a', 0xD800, 'b'};
    LUMStringRef loneSurrogate = LUMStringCreateWithCharacters(nullptr, lone, 3);
    EXPECT_EQ(Write(loneSurrogate), "<error 7: Cannot write a string with an unpaired surrogate as JSON>");
    const UniChar reversed[] = {0xDC00, 0xD800};
    LUMStringRef swapped = LUMStringCreateWithCharacters(nullptr, reversed, 2);
    EXPECT_EQ(Write(swapped), "<error 7: Cannot write a string with an unpaired surrogate as JSON>");
    LUMMutableArrayRef cycle = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMMutableArrayRef inner = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMArrayAppendValue(cycle, inner);
    LUMArrayAppendValue(inner, cycle);
    EXPECT_EQ(Write(cycle), "<error 7: Cannot write a container that contains itself as JSON>");
    LUMArrayRemoveAllValues(inner);
    // The same container twice side by side is not a cycle.
    LUMArrayAppendValue(cycle, inner);
    EXPECT_EQ(Write(cycle), "[[],[]]");
    LUMRelease(inner);
    LUMRelease(cycle);
    LUMRelease(swapped);
    LUMRelease(loneSurrogate);
    LUMRelease(numberKey);
    LUMRelease(withData);
    LUMRelease(data);
    LUMRelease(infinite);
    LUMRelease(notANumber);
}

/* ---- Round trips, depth, differential ------------------------------------------- */

TEST(LUMJSONRoundTrip, BenchmarkDocumentsComeBackEqualWithEveryDoubleExact)
{
    for (const char *name : {"canada", "citm_catalog", "twitter"}) {
        std::string text = FileText(BenchDir() + "/" + name + ".json");
        if (text.empty()) GTEST_SKIP() << "no benchmark documents beside the repository";
        LUMPropertyListRef first = Read(text);
        ASSERT_NE(first, nullptr) << name;
        std::string canonical = Canonical(first);
        for (LUMOptionFlags options : {0u, 1u, 3u}) {
            LUMPropertyListRef second = Read(Write(first, options));
            ASSERT_NE(second, nullptr) << name;
            EXPECT_TRUE(LUMEqual(first, second)) << name;
            EXPECT_EQ(Canonical(second), canonical) << name << " options " << options;
            LUMRelease(second);
        }
        LUMRelease(first);
    }
}

TEST(LUMJSONRoundTrip, AMillionLevelsReadWriteAndRelease)
{
    const size_t depth = UnderValgrind() ? 100000 : 1000000;
    std::string text = std::string(depth, '[') + std::string(depth, ']');
    LUMPropertyListRef plist = Read(text);
    ASSERT_NE(plist, nullptr);
    EXPECT_EQ(Write(plist), text);
    LUMRelease(plist);
    std::string objects;
    for (size_t i = 0; i < depth / 10; i++) objects += "{\"a\":";
    objects += "1";
    objects += std::string(depth / 10, '}');
    plist = Read(objects);
    ASSERT_NE(plist, nullptr);
    EXPECT_EQ(Write(plist), objects);
    LUMRelease(plist);
    // Unclosed: the error releases everything opened so far.
    ReadError e = ErrorOf(std::string(depth, '[') + "1");
    EXPECT_EQ(e.code, kLUMJSONErrorUnexpectedEnd);
    EXPECT_EQ(e.offset, static_cast<LUMIndex>(depth + 1));
}

TEST(LUMJSONDifferential, DoublesAreWrittenAsPythonsReprWritesThem)
{
    // repr gives the shortest digits that read back, the closest of them to
    // the value; the writer lays them out the same way.
    if (!HavePython()) GTEST_SKIP() << "python3 is not installed";
    std::vector<std::string> lines = Oracle(std::string("repr ") + (UnderValgrind() ? "2000" : "100000") + " 20261123");
    ASSERT_GT(lines.size(), 1000u);
    size_t mismatches = 0;
    for (const auto &line : lines) {
        size_t space = line.find(' ');
        uint64_t bits = strtoull(line.substr(0, space).c_str(), nullptr, 16);
        double value;
        memcpy(&value, &bits, sizeof value);
        LUMNumberRef number = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &value);
        std::string text = Write(number);
        LUMRelease(number);
        if (text != line.substr(space + 1) && mismatches++ < 10) ADD_FAILURE() << line << " written as " << text;
    }
    EXPECT_EQ(mismatches, 0u);
}

TEST(LUMJSONDifferential, ReadsAndWritesAsPythonsJSONModuleReads)
{
    if (!HavePython()) GTEST_SKIP() << "python3 is not installed";
    std::string directory = TempDirectory();
    const int generated = UnderValgrind() ? 20 : 80;
    Oracle("generate " + directory + " " + std::to_string(generated) + " 20261123");
    std::vector<std::string> originals;
    for (int i = 0; i < generated; i++) originals.push_back(directory + "/gen_" + std::to_string(i) + ".json");
    if (!FileText(BenchDir() + "/twitter.json").empty())
        for (const char *name : {"canada", "citm_catalog", "twitter"}) originals.push_back(BenchDir() + "/" + name + ".json");

    // Reading: the same values as Python reads from the same bytes.
    std::string arguments = "canonical";
    for (const auto &path : originals) arguments += " " + path;
    std::vector<std::string> expected = Oracle(arguments);
    ASSERT_EQ(expected.size(), originals.size());
    // Writing: Python reads the library's text back to the same values.
    std::vector<std::string> written;
    for (size_t i = 0; i < originals.size(); i++) {
        LUMErrorRef error = nullptr;
        LUMPropertyListRef plist = Read(FileText(originals[i]), &error);
        ASSERT_NE(plist, nullptr) << originals[i] << ": " << (error ? TakeText(LUMErrorCopyDescription(error)) : "");
        EXPECT_EQ(Canonical(plist), expected[i]) << originals[i];
        std::string path = directory + "/written_" + std::to_string(i) + ".json";
        WriteFile(path, Write(plist, i % 2 == 0 ? 0 : kLUMJSONWritingPrettyPrinted));
        written.push_back(path);
        LUMRelease(plist);
    }
    arguments = "canonical";
    for (const auto &path : written) arguments += " " + path;
    std::vector<std::string> readBack = Oracle(arguments);
    ASSERT_EQ(readBack.size(), written.size());
    for (size_t i = 0; i < written.size(); i++) EXPECT_EQ(readBack[i], expected[i]) << written[i];
    for (const auto &path : originals)
        if (path.rfind(directory, 0) == 0) unlink(path.c_str());
    for (const auto &path : written) unlink(path.c_str());
    rmdir(directory.c_str());
}
