/* LUMPropertyListTest.cpp — the JSON reader's exact rules (every action of
 * its table and the deliberate oddities), chunking, the writer, round
 * trips, the corpus, hostile documents under the leak checker, and depth.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <dirent.h>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>

using namespace lumtest;

namespace {

LUMPropertyListRef Read(const std::string &json, LUMPropertyListFormat *format = nullptr, LUMErrorRef *error = nullptr)
{
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(json.data()), static_cast<LUMIndex>(json.size()));
    LUMPropertyListRef plist = LUMPropertyListCreateWithData(nullptr, data, 0, format, error);
    LUMRelease(data);
    return plist;
}

std::string Write(LUMPropertyListRef plist)
{
    LUMDataRef data = LUMPropertyListCreateData(nullptr, plist, kLUMPropertyListJSONFormat, 0, nullptr);
    std::string text(reinterpret_cast<const char *>(LUMDataGetBytePtr(data)), static_cast<size_t>(LUMDataGetLength(data)));
    LUMRelease(data);
    return text;
}

/* A compact rendering of a read tree that shows number kinds: integers as
 * "i", doubles as "d", strings as escaped text with their units. */
std::string Shape(LUMTypeRef value)
{
    LUMTypeID type = LUMGetTypeID(value);
    if (value == nullptr) return "NULL";
    if (value == kLUMNull) return "null";
    if (value == kLUMBooleanTrue) return "true";
    if (value == kLUMBooleanFalse) return "false";
    if (type == LUMNumberGetTypeID()) {
        auto n = static_cast<LUMNumberRef>(value);
        double d = 0;
        LUMNumberGetValue(n, kLUMNumberDoubleType, &d);
        return (LUMNumberIsFloatType(n) ? "d" : "i") + CFormat("%g", d);
    }
    if (type == LUMStringGetTypeID()) {
        std::string out = "'";
        auto s = static_cast<LUMStringRef>(value);
        for (LUMIndex i = 0; i < LUMStringGetLength(s); i++) {
            UniChar u;
            LUMStringGetCharacters(s, LUMRangeMake(i, 1), &u);
            out += (u >= 32 && u < 127) ? std::string(1, static_cast<char>(u)) : CFormat("<%04X>", u);
        }
        return out + "'";
    }
    if (type == LUMArrayGetTypeID()) {
        auto a = static_cast<LUMArrayRef>(value);
        std::string out = "[";
        for (LUMIndex i = 0; i < LUMArrayGetCount(a); i++) out += (i ? "," : "") + Shape(LUMArrayGetValueAtIndex(a, i));
        return out + "]";
    }
    if (type == LUMDictionaryGetTypeID()) {
        auto d = static_cast<LUMDictionaryRef>(value);
        LUMIndex count = LUMDictionaryGetCount(d);
        std::vector<const void *> keys(static_cast<size_t>(count)), values(static_cast<size_t>(count));
        LUMDictionaryGetKeysAndValues(d, keys.data(), values.data());
        std::string out = "{";
        for (LUMIndex i = 0; i < count; i++) out += (i ? "," : "") + Shape(keys[i]) + ":" + Shape(values[i]);
        return out + "}";
    }
    return "?";
}

/* The shape of a tree that may be a very deep chain of one-element arrays:
 * such chains are summarised instead of walked by recursion. */
std::string ShallowShape(LUMTypeRef root)
{
    LUMTypeRef value = root;
    int depth = 0;
    while (LUMGetTypeID(value) == LUMArrayGetTypeID() && LUMArrayGetCount(static_cast<LUMArrayRef>(value)) == 1) {
        value = LUMArrayGetValueAtIndex(static_cast<LUMArrayRef>(value), 0);
        depth++;
    }
    if (depth > 8) return std::string(16, '[') + "...";
    return Shape(root).substr(0, 200);
}

std::string ReadShape(const std::string &json)
{
    LUMPropertyListRef plist = Read(json);
    std::string shape = Shape(plist);
    LUMRelease(plist);
    return shape;
}

} // namespace

// ---- The documented cases ----------------------------------------------------

TEST(LUMPropertyListReader, NumberKindFollowsTheStateAtCompletion)
{
    EXPECT_EQ(ReadShape("{\"a\":1}"), "{'a':d1}");
    EXPECT_EQ(ReadShape("{\"a\":1 }"), "{'a':i1}");
    EXPECT_EQ(ReadShape("[1.5]"), "[i1]");
    EXPECT_EQ(ReadShape("[1.5e0]"), "[d1.5]");
    EXPECT_EQ(ReadShape("[12]"), "[d12]");
    EXPECT_EQ(ReadShape("[0]"), "[d0]");
    EXPECT_EQ(ReadShape("[12 ]"), "[i12]");
    EXPECT_EQ(ReadShape("[-7,0.5,3e2,2E-1,1.]"), "[d-7,i0,d300,d0.2,i1]");
}

TEST(LUMPropertyListReader, UnicodeEscapesAndRawBytes)
{
    EXPECT_EQ(ReadShape("[\"\\u0041\"]"), "['A']");
    EXPECT_EQ(ReadShape("[\"\\u00e9\"]"), "['<00E9>']");
    EXPECT_EQ(ReadShape("[\"\xC3\xA9\"]"), "['<00C3><00A9>']"); // bytes are units: UTF-8 is not decoded
    EXPECT_EQ(ReadShape("[\"\\uD834\\uDD1E\"]"), "['<D834><DD1E>']"); // halves unpaired
    EXPECT_EQ(ReadShape("[\"a\\\"b\\\\c\\/d\\b\\f\\n\\r\\t\"]"), "['a\"b\\c/d<0008><000C><000A><000D><0009>']");
}

TEST(LUMPropertyListReader, WhitespaceJoinsTheLiteral)
{
    EXPECT_EQ(ReadShape("[true ]"), "[false]");
    EXPECT_EQ(ReadShape("[true]"), "[true]");
    EXPECT_EQ(ReadShape("[false, null ,true]"), "[false,null,true]");
}

TEST(LUMPropertyListReader, FailureDropsTheRestOfTheChunk)
{
    EXPECT_EQ(ReadShape("[1, x]"), "[d1]");
    EXPECT_EQ(ReadShape("[1, x, 2, 3]"), "[d1]");
}

TEST(LUMPropertyListReader, OnlyContainersAtTheTop)
{
    EXPECT_EQ(ReadShape("\"abc\""), "NULL");
    EXPECT_EQ(ReadShape("12"), "NULL");
    EXPECT_EQ(ReadShape("true"), "NULL");
    EXPECT_EQ(ReadShape("  [ ]  "), "[]");
    EXPECT_EQ(ReadShape("{}"), "{}");
    EXPECT_EQ(ReadShape("[1] [2]"), "[d1]"); // a second top-level value is appended to the root, not returned
}

TEST(LUMPropertyListReader, EmptyStreamGivesNullButSetsFormatAndError)
{
    LUMPropertyListFormat format = 0;
    LUMErrorRef error = reinterpret_cast<LUMErrorRef>(static_cast<intptr_t>(1));
    EXPECT_EQ(Read("", &format, &error), nullptr);
    EXPECT_EQ(format, kLUMPropertyListJSONFormat);
    EXPECT_EQ(error, nullptr);
}

TEST(LUMPropertyListReader, BrokenDocumentsKeepWhatReachedTheTop)
{
    EXPECT_EQ(ReadShape("[1,2"), "[d1]");          // 2 never completes
    EXPECT_EQ(ReadShape("{\"a\":[1,{\"b\""), "{'a':[d1,{}]}");
    EXPECT_EQ(ReadShape("[}"), "[]");
    EXPECT_EQ(ReadShape("{]"), "{}");
    EXPECT_EQ(ReadShape("nothing"), "NULL");
}

TEST(LUMPropertyListReader, EveryActionOfTheTable)
{
    // -2 ':', -3 ',', -4 closing quote, -6 '{', -8 '}' after a value.
    EXPECT_EQ(ReadShape("{\"k\" : \"v\" , \"n\":2}"), "{'k':'v','n':d2}");
    // -5 '[', -7 ']', -9 '}' of an empty object.
    EXPECT_EQ(ReadShape("[[],{},[{}]]"), "[[],{},[{}]]");
    // -10 '/': comments are not carried out, the step fails.
    EXPECT_EQ(ReadShape("[1,/* c */2]"), "[d1]");
    // -12 'f', -13 't', -14 'n'.
    EXPECT_EQ(ReadShape("[false,true,null]"), "[false,true,null]");
    // -15 'e' after integer digits, -16 '.'.
    EXPECT_EQ(ReadShape("[1e3,4.25e1]"), "[d1000,d42.5]");
    // -17 opening quote, -18 '-', -19 '0', -20 '1'-'9'.
    EXPECT_EQ(ReadShape("[\"s\",-0,0,9]"), "['s',d-0,d0,d9]");
    // -21 backslash, -22 fourth hex digit.
    EXPECT_EQ(ReadShape("[\"\\u004a\\u004B\"]"), "['JK']");
    // Keys may be any string; a repeated key replaces the value.
    EXPECT_EQ(ReadShape("{\"a\":1,\"a\":2}"), "{'a':d2}");
}

TEST(LUMPropertyListReader, InvalidCharactersFailTheirStep)
{
    EXPECT_EQ(ReadShape("[\"a\tb\"]"), "[]");     // a control character inside a string
    EXPECT_EQ(ReadShape("[\"a\\x\"]"), "[]");     // an unknown escape
    EXPECT_EQ(ReadShape("[01]"), "[]");           // nothing may follow a leading zero
    EXPECT_EQ(ReadShape("[tru]"), "[]");
    EXPECT_EQ(ReadShape("{\"a\" 1}"), "{}");
}

TEST(LUMPropertyListReader, FailureInTheMiddleOfALongDocumentSkipsToTheNextChunk)
{
    // Chunk one: "[" and 300 times "1," (601 bytes), a stray "x", then
    // filler up to byte 1024 that the failure drops. Chunk two continues in
    // the same state: the string "tail" closes the array.
    std::string json = "[";
    for (int i = 0; i < 300; i++) json += "1,";
    json += "x";
    while (json.size() < 1024) json += "9,";
    json.resize(1024);
    json += "\"tail\"]";
    LUMPropertyListRef plist = Read(json);
    ASSERT_EQ(LUMGetTypeID(plist), LUMArrayGetTypeID());
    auto array = static_cast<LUMArrayRef>(plist);
    ASSERT_EQ(LUMArrayGetCount(array), 301);
    EXPECT_EQ(Shape(LUMArrayGetValueAtIndex(array, 0)), "d1");
    EXPECT_EQ(Shape(LUMArrayGetValueAtIndex(array, 300)), "'tail'");
    LUMRelease(plist);
}

TEST(LUMPropertyListReader, ReadsFromAStreamInChunksOfTheStreamsChoosing)
{
    // A bound pair hands out no buffer: the reader reads 1024 bytes at a time.
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 4096);
    std::string json = "{\"list\":[";
    for (int i = 0; i < 400; i++) json += (i ? "," : "") + std::to_string(i);
    json += "]}";
    ASSERT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>(json.data()), static_cast<LUMIndex>(json.size())),
              static_cast<LUMIndex>(json.size()));
    LUMPropertyListFormat format = 0;
    LUMPropertyListRef plist = LUMPropertyListCreateWithStream(nullptr, reader, 0, 0, &format, nullptr);
    ASSERT_NE(plist, nullptr);
    auto list = static_cast<LUMArrayRef>(LUMDictionaryGetValue(static_cast<LUMDictionaryRef>(plist), LUMSTR("list")));
    EXPECT_EQ(LUMArrayGetCount(list), 400);
    EXPECT_EQ(format, kLUMPropertyListJSONFormat);
    LUMRelease(plist);
    LUMRelease(reader);
    LUMRelease(writer);
}

TEST(LUMPropertyListReader, ContainersAreMutable)
{
    LUMPropertyListRef plist = Read("{\"a\":[1]}");
    auto dictionary = static_cast<LUMMutableDictionaryRef>(const_cast<void *>(plist));
    LUMDictionarySetValue(dictionary, LUMSTR("b"), kLUMNull);
    auto array = static_cast<LUMMutableArrayRef>(const_cast<void *>(LUMDictionaryGetValue(dictionary, LUMSTR("a"))));
    LUMArrayAppendValue(array, kLUMBooleanTrue);
    EXPECT_EQ(Write(plist), "{\"a\":[1.000000,true],\"b\":null}");
    LUMRelease(plist);
}

// ---- Writer ---------------------------------------------------------------------

TEST(LUMPropertyListWriter, NumbersStringsAndEscapes)
{
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    int32_t one = 1;
    double oneAndHalf = 1.5;
    LUMNumberRef integer = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &one);
    LUMNumberRef real = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &oneAndHalf);
    LUMDictionarySetValue(d, LUMSTR("a"), integer);
    EXPECT_EQ(Write(d), "{\"a\":1}");
    LUMDictionarySetValue(d, LUMSTR("a"), real);
    EXPECT_EQ(Write(d), "{\"a\":1.500000}");
    LUMDictionaryRemoveAllValues(d);
    LUMDictionarySetValue(d, LUMSTR("back\\slash"), LUMSTR("quote\" and \\"));
    EXPECT_EQ(Write(d), "{\"back\\\\slash\":\"quote\\\" and \\\\\"}");
    LUMRelease(d);
    LUMRelease(integer);
    LUMRelease(real);

    LUMMutableArrayRef a = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMArrayAppendValue(a, LUMSTR("line\nbreak \xC3\xA9 slash/ del\x7F"));
    EXPECT_EQ(Write(a), "[\"line\\u000Abreak \\u00E9 slash/ del\x7F\"]");
    LUMRelease(a);
}

TEST(LUMPropertyListWriter, ContainersAndCommas)
{
    LUMArrayRef empty = LUMArrayCreate(nullptr, nullptr, 0, &kLUMTypeArrayCallBacks);
    EXPECT_EQ(Write(empty), "[]");
    LUMRelease(empty);
    LUMPropertyListRef nested = Read("[[],1]");
    EXPECT_EQ(Write(nested), "[[],1.000000]");
    LUMRelease(nested);
    nested = Read("{\"a\":{},\"b\":[[],[null]],\"c\":false}");
    EXPECT_EQ(Write(nested), "{\"a\":{},\"b\":[[],[null]],\"c\":false}");
    LUMRelease(nested);
}

TEST(LUMPropertyListWriter, DataIsWrittenAsAString)
{
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("abc"), 3);
    EXPECT_EQ(Write(data), "\"abc\"");
    EXPECT_EQ(TakeText(LUMCopyDescription(data)), CFormat("<%p: LUMData retainCount=1 length=3 capacity=3 bytes=\"abc\">", static_cast<const void *>(data)));
    LUMRelease(data);
}

TEST(LUMPropertyListWriter, OtherObjectsAndKeysAreWrittenAsTheyAre)
{
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    int32_t seven = 7;
    LUMNumberRef key = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &seven);
    LUMDateRef date = LUMDateCreate(nullptr, 0.0);
    LUMDictionarySetValue(d, key, date);
    EXPECT_EQ(Write(d), CFormat("{7:\"<%p:LUMDate retainCount=2>\"}", static_cast<const void *>(date)));
    LUMRelease(d);
    LUMRelease(key);
    LUMRelease(date);
}

TEST(LUMPropertyListWriter, FormatsAndValidity)
{
    LUMPropertyListRef array = Read("[1]");
    LUMPropertyListRef dictionary = Read("{}");
    EXPECT_FALSE(LUMPropertyListIsValid(array, kLUMPropertyListJSONFormat));
    EXPECT_FALSE(LUMPropertyListIsValid(dictionary, 1));
    EXPECT_TRUE(LUMPropertyListIsValid(dictionary, kLUMPropertyListJSONFormat));
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    LUMErrorRef error = reinterpret_cast<LUMErrorRef>(static_cast<intptr_t>(1));
    EXPECT_EQ(LUMPropertyListWrite(array, stream, 1, 0, &error), 0);
    EXPECT_EQ(error, reinterpret_cast<LUMErrorRef>(static_cast<intptr_t>(1))); // left alone
    EXPECT_EQ(LUMPropertyListWrite(array, stream, kLUMPropertyListJSONFormat, 0, &error), 10);
    EXPECT_EQ(error, nullptr);
    LUMDataRef empty = LUMPropertyListCreateData(nullptr, array, 1, 0, nullptr);
    EXPECT_EQ(LUMDataGetLength(empty), 0);
    LUMRelease(empty);
    LUMRelease(stream);
    LUMRelease(array);
    LUMRelease(dictionary);
}

TEST(LUMPropertyListWriter, LongStringsGoOutInPieces)
{
    std::string text(5000, 'z');
    text[2500] = '\n';
    LUMStringRef s = LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8);
    const void *values[] = {s};
    LUMArrayRef array = LUMArrayCreate(nullptr, values, 1, &kLUMTypeArrayCallBacks);
    std::string expected = "[\"" + text.substr(0, 2500) + "\\u000A" + text.substr(2501) + "\"]";
    EXPECT_EQ(Write(array), expected);
    LUMRelease(array);
    LUMRelease(s);
}

TEST(LUMPropertyListWriter, DescriptionsOfArraysAndDictionariesAreJSON)
{
    LUMPropertyListRef plist = Read("{\"k\":[\"v\",true]}");
    EXPECT_EQ(TakeText(LUMCopyDescription(plist)),
              CFormat("<%p LUMDictionary retainCount=1 count=1 values={\"k\":[\"v\",true]}>", static_cast<const void *>(plist)));
    auto array = LUMDictionaryGetValue(static_cast<LUMDictionaryRef>(plist), LUMSTR("k"));
    EXPECT_EQ(TakeText(LUMCopyDescription(array)), CFormat("<%p LUMArray retainCount=1 count=2 values=[\"v\",true]>", array));
    LUMRelease(plist);
}

// ---- Round trips ---------------------------------------------------------------------

namespace {

std::mt19937 gRandom(20261122);

LUMStringRef RandomString()
{
    // Every escape class: quote, backslash, controls, printable, Latin-1,
    // BMP, surrogate halves.
    static const UniChar pool[] = {'a', 'Z', '9', ' ', '"', '\\', '/', 0x01, 0x09, 0x0A, 0x1F, 0x7F, 0xE9, 0x20AC, 0xD834, 0xDD1E, 0xFFFF};
    UniChar units[24];
    LUMIndex length = static_cast<LUMIndex>(gRandom() % 24);
    for (LUMIndex i = 0; i < length; i++) units[i] = pool[gRandom() % (sizeof(pool) / sizeof(pool[0]))];
    return LUMStringCreateWithCharacters(nullptr, units, length);
}

LUMTypeRef RandomValue(int depth);

LUMTypeRef RandomContainer(int depth)
{
    if (gRandom() % 2) {
        LUMMutableArrayRef a = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
        int n = static_cast<int>(gRandom() % 6);
        for (int i = 0; i < n; i++) {
            LUMTypeRef v = RandomValue(depth + 1);
            LUMArrayAppendValue(a, v);
            LUMRelease(v);
        }
        return a;
    }
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    int n = static_cast<int>(gRandom() % 6);
    for (int i = 0; i < n; i++) {
        LUMStringRef key = RandomString();
        LUMTypeRef v = RandomValue(depth + 1);
        LUMDictionarySetValue(d, key, v);
        LUMRelease(key);
        LUMRelease(v);
    }
    return d;
}

LUMTypeRef RandomValue(int depth)
{
    switch (depth > 4 ? 2 + gRandom() % 5 : gRandom() % 7) {
    case 0:
    case 1: return RandomContainer(depth);
    case 2: return RandomString();
    case 3: {
        int32_t i = static_cast<int32_t>(gRandom()) / 3;
        return LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &i);
    }
    case 4: {
        // Whole doubles: "%f" writes them with a point, and the reader takes
        // "5.000000" as the integer 5, which equals the double 5.0.
        double d = static_cast<double>(static_cast<int32_t>(gRandom() % 200000) - 100000);
        return LUMNumberCreate(nullptr, kLUMNumberDoubleType, &d);
    }
    case 5: return gRandom() % 2 ? kLUMBooleanTrue : kLUMBooleanFalse;
    default: return kLUMNull;
    }
}

} // namespace

TEST(LUMPropertyListRoundTrip, GeneratedTreesComeBackEqualAndByteForByte)
{
    for (int round = 0; round < 300; round++) {
        LUMTypeRef tree = RandomContainer(0);
        // Whole doubles go out as "5.000000" and come back as integers, which
        // go out as "5" and come back as doubles: equal by value each time.
        std::string written = Write(tree);
        LUMPropertyListRef back = Read(written);
        ASSERT_TRUE(LUMEqual(tree, back)) << written;
        LUMPropertyListRef again = Read(Write(back));
        ASSERT_TRUE(LUMEqual(back, again));
        ASSERT_EQ(Write(again), written); // two trips restore the bytes
        LUMRelease(again);
        LUMRelease(back);
        LUMRelease(tree);
    }
}

TEST(LUMPropertyListRoundTrip, FractionsComeBackTruncated)
{
    // "%f" writes 2.75 as 2.750000, which the reader completes as an integer.
    double value = 2.75;
    LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberDoubleType, &value);
    const void *values[] = {n};
    LUMArrayRef array = LUMArrayCreate(nullptr, values, 1, &kLUMTypeArrayCallBacks);
    EXPECT_EQ(ReadShape(Write(array)), "[i2]");
    LUMRelease(array);
    LUMRelease(n);
}

// ---- Corpus, hostile input, depth ---------------------------------------------------

namespace {

/* Reads and releases a document with a leak-checking allocator as the
 * default and reports whether everything was given back. The checker keeps
 * its open blocks in a linear table, which suits small documents; a large
 * one is checked by a counting allocator instead (every allocation matched
 * by a deallocation, and no reference left on the allocator). */
bool ReadWithoutLeaks(const std::string &json, std::string *shape = nullptr)
{
    bool small = json.size() < 20000;
    CountingAllocator counting;
    LUMAllocatorRef checker = small ? LUMTestCreateTestAllocator(kLUMAllocatorSystemDefault) : counting.allocator;
    LUMAllocatorSetDefault(checker);
    LUMPropertyListRef plist = Read(json);
    if (shape != nullptr) *shape = ShallowShape(plist);
    LUMRelease(plist);
    LUMAllocatorSetDefault(kLUMAllocatorMalloc);
    if (!small) return counting.allocations == counting.deallocations && LUMGetRetainCount(checker) == 1;
    bool clean = LUMTestAllocatorCheckOpenAllocations(nullptr, checker);
    LUMRelease(checker);
    return clean;
}

std::string CorpusDir() { return std::string(LUM_TEST_SOURCE_DIR) + "/../shared/corpus/json-parsing"; }

} // namespace

TEST(LUMPropertyListHostile, TheParsingCorpusNeverCrashesOrLeaks)
{
    DIR *dir = opendir(CorpusDir().c_str());
    if (dir == nullptr) GTEST_SKIP() << "no corpus beside the repository";
    int files = 0;
    while (struct dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name.size() < 6 || name.substr(name.size() - 5) != ".json") continue;
        files++;
        EXPECT_TRUE(ReadWithoutLeaks(FileText(CorpusDir() + "/" + name))) << name;
    }
    closedir(dir);
    EXPECT_GT(files, 300);
}

TEST(LUMPropertyListHostile, CorpusResultsFollowTheReadersRules)
{
    std::ifstream probe(CorpusDir() + "/y_array_empty.json");
    if (!probe) GTEST_SKIP() << "no corpus beside the repository";
    auto shapeOf = [](const char *file) {
        std::string shape;
        ReadWithoutLeaks(FileText(CorpusDir() + "/" + file), &shape);
        return shape;
    };
    EXPECT_EQ(shapeOf("y_structure_lonely_int.json"), "NULL");          // a top-level scalar
    EXPECT_EQ(shapeOf("y_array_empty.json"), "[]");
    EXPECT_EQ(shapeOf("y_object_simple.json"), "{'a':[]}");
    EXPECT_EQ(shapeOf("y_number_real_exponent.json"), "[d1.23e+47]");
    EXPECT_EQ(shapeOf("y_number_real_fraction_exponent.json"), "[d1.23456e+80]");
    EXPECT_EQ(shapeOf("y_string_1_2_3_bytes_UTF-8_sequences.json"), "['`<012A><12AB>']");
    EXPECT_EQ(shapeOf("y_string_accepted_surrogate_pair.json"), "['<D801><DC37>']");
    EXPECT_EQ(shapeOf("n_array_extra_comma.json"), "['']");  // the comma fails at the ']', after "" was placed
    EXPECT_EQ(shapeOf("n_structure_100000_opening_arrays.json").substr(0, 8), "[[[[[[[[");
}

TEST(LUMPropertyListHostile, GeneratedHostileDocumentsNeverCrashOrLeak)
{
    std::vector<std::string> documents;
    for (const char *escape : {"[\"\\", "[\"\\u", "[\"\\u0", "[\"\\u00", "[\"\\u004", "[\"\\uZZZZ\"]", "{\"\\u00", "[\"\\\"\"", "[\"\\"})
        documents.push_back(escape);
    for (int b = 0; b < 256; b++) {
        documents.push_back(std::string("[") + static_cast<char>(b) + "]");
        documents.push_back(std::string("[\"") + static_cast<char>(b) + "\"]");
        documents.push_back(std::string("{\"") + static_cast<char>(b) + "\":1}");
        documents.push_back(std::string(1, static_cast<char>(b)));
    }
    documents.push_back("[" + std::string(5000, '9') + "]");
    documents.push_back("[1e999999,-1e-999999," + std::string(400, '1') + ".5]");
    documents.push_back("[\"" + std::string(200000, 'x') + "\"]");
    documents.push_back("{\"" + std::string(50000, 'k') + "\":\"" + std::string(50000, 'v') + "\"}");
    std::string noise;
    std::mt19937 random(7);
    for (int i = 0; i < 20000; i++) noise += "[]{}\":,\\ tfn0123456789.-+eEu\"x"[random() % 30];
    documents.push_back("[" + noise);
    documents.push_back("{" + noise);
    for (const std::string &document : documents) ASSERT_TRUE(ReadWithoutLeaks(document)) << document.substr(0, 40);
}

TEST(LUMPropertyListHostile, HundredThousandLevelsAreReadAndReleased)
{
    const int depth = 100000;
    std::string arrays = std::string(depth, '[') + std::string(depth, ']');
    std::string shape;
    EXPECT_TRUE(ReadWithoutLeaks(arrays, &shape));
    EXPECT_EQ(shape.substr(0, 4), "[[[[");
    std::string objects;
    for (int i = 0; i < depth; i++) objects += "{\"k\":";
    objects += "1";
    EXPECT_TRUE(ReadWithoutLeaks(objects)); // unclosed: what reached the top is released too
    std::string mixed;
    for (int i = 0; i < depth; i++) mixed += (i % 2) ? "{\"a\":" : "[";
    EXPECT_TRUE(ReadWithoutLeaks(mixed));
}

TEST(LUMPropertyListHostile, WriterAndDescriptionsGoAsDeepAsTheReader)
{
    // Writing keeps its own stack: a tree 100,000 levels deep is written
    // (and described) without deep recursion.
    const int depth = 100000;
    std::string arrays = std::string(depth, '[') + std::string(depth, ']');
    LUMPropertyListRef tree = Read(arrays);
    EXPECT_EQ(Write(tree), arrays);
    LUMStringRef description = LUMCopyDescription(tree);
    EXPECT_EQ(LUMStringGetLength(description), static_cast<LUMIndex>(CFormat("<%p LUMArray retainCount=1 count=1 values=>", tree).size() + arrays.size()));
    LUMRelease(description);
    LUMRelease(tree);
}

TEST(LUMPropertyListBench, LargeCorpusDocumentsRoundTrip)
{
    std::string path = std::string(LUM_TEST_SOURCE_DIR) + "/../shared/corpus/json-bench/twitter.json";
    std::string text = FileText(path);
    if (text.empty()) GTEST_SKIP() << "no benchmark corpus beside the repository";
    LUMPropertyListRef plist = Read(text);
    ASSERT_EQ(LUMGetTypeID(plist), LUMDictionaryGetTypeID());
    auto statuses = static_cast<LUMArrayRef>(LUMDictionaryGetValue(static_cast<LUMDictionaryRef>(plist), LUMSTR("statuses")));
    EXPECT_EQ(LUMArrayGetCount(statuses), 100);
    // Its ids do not fit 32 bits, so the number rules change them; the rest
    // of the tree (keys, strings, literals, nesting) comes back unchanged.
    std::string written = Write(plist);
    LUMPropertyListRef again = Read(written);
    std::string first = Shape(plist), second = Shape(again);
    std::regex numbers("[di]-?[0-9.e+]+");
    EXPECT_EQ(std::regex_replace(first, numbers, "#"), std::regex_replace(second, numbers, "#"));
    LUMRelease(again);
    LUMRelease(plist);
}

namespace {

/* A read stream that hands out its text one byte per read. */
struct ByteByByte {
    std::string text;
    size_t position = 0;
};
Boolean byteByByteHasBytes(LUMReadStreamRef, void *info)
{
    auto *source = static_cast<ByteByByte *>(info);
    return source->position < source->text.size();
}
LUMIndex byteByByteRead(LUMReadStreamRef, UInt8 *buffer, LUMIndex length, void *info)
{
    auto *source = static_cast<ByteByByte *>(info);
    if (length < 1 || source->position >= source->text.size()) return 0;
    buffer[0] = static_cast<UInt8>(source->text[source->position++]);
    return 1;
}

LUMPropertyListRef ReadByteByByte(const std::string &json)
{
    ByteByByte source{json};
    LUMReadStreamContext context = {};
    context.info = &source;
    context.hasBytesAvailable = byteByByteHasBytes;
    context.read = byteByByteRead;
    LUMReadStreamRef stream = _LUMReadStreamCreateWithContext(nullptr, &context);
    LUMPropertyListRef plist = LUMPropertyListCreateWithStream(nullptr, stream, 0, 0, nullptr, nullptr);
    LUMRelease(stream);
    return plist;
}

void copyEntry(const void *key, const void *value, void *context)
{
    LUMDictionarySetValue(static_cast<LUMMutableDictionaryRef>(context), key, value);
}

/* The dictionary's keyed entries alone, written: what the writer must give. */
std::string WriteKeyedEntries(LUMDictionaryRef dictionary)
{
    LUMMutableDictionaryRef keyed =
        LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    LUMDictionaryApplyFunction(dictionary, copyEntry, keyed);
    std::string text = Write(keyed);
    LUMRelease(keyed);
    return text;
}

} // namespace

TEST(LUMPropertyListHostile, ACountedNullKeyNeverReachesTheWriter)
{
    // A failing ']' inside an object completes the value and clears the
    // pending key; the next chunk completes a second value without a key,
    // which the dictionary counts without a key in its slot.
    std::string padded = "{\"\":";
    padded += std::string(1022 - padded.size(), ' ');
    padded += "0].}";
    ASSERT_EQ(padded.size(), 1026u);
    for (LUMPropertyListRef plist : {Read(padded), ReadByteByByte("{\"\":0].}")}) {
        ASSERT_NE(plist, nullptr);
        ASSERT_EQ(LUMGetTypeID(plist), LUMDictionaryGetTypeID());
        auto dictionary = static_cast<LUMDictionaryRef>(plist);
        EXPECT_EQ(LUMDictionaryGetCount(dictionary), 2);
        std::string expected = WriteKeyedEntries(dictionary);
        EXPECT_EQ(Write(plist), expected);
        EXPECT_EQ(expected, "{\"\":0.000000}");
        LUMStringRef description = LUMCopyDescription(plist);
        EXPECT_NE(Text(description).find("values={\"\":0.000000}>"), std::string::npos) << Text(description);
        LUMRelease(description);
        LUMRelease(plist);
    }
}

TEST(LUMPropertyListHostile, DeepTreesCompareEqualWithoutDeepRecursion)
{
    // 200,000 levels of arrays and of arrays and objects mixed, equal and
    // with a different leaf; then a million levels of arrays (not under
    // valgrind, where that takes minutes and shows nothing new).
    auto compare = [](const std::string &json, bool withDifferentLeaf) {
        LUMPropertyListRef a = Read(json), b = Read(json);
        ASSERT_NE(a, nullptr);
        EXPECT_TRUE(LUMEqual(a, b));
        LUMRelease(b);
        size_t leaf = json.find('1');
        if (withDifferentLeaf && leaf != std::string::npos) {
            std::string other = json;
            other[leaf] = '2';
            b = Read(other);
            EXPECT_FALSE(LUMEqual(a, b));
            LUMRelease(b);
        }
        LUMRelease(a);
    };
    const int depth = 200000;
    std::string arrays = std::string(depth, '[') + "1" + std::string(depth, ']');
    std::string mixed;
    for (int i = 0; i < depth; i++) mixed += (i % 2) ? "{\"a\":" : "[";
    mixed += "1";
    for (int i = depth - 1; i >= 0; i--) mixed += (i % 2) ? "}" : "]";
    compare(arrays, true);
    compare(mixed, true);
    if (!UnderValgrind()) compare(std::string(1000000, '[') + std::string(1000000, ']'), false);
}

TEST(LUMPropertyListReader, IntegersSaturateToThirtyTwoBitsOnEveryPlatform)
{
    LUMPropertyListRef plist = Read("[2147483648 ,-2147483649 ,99999999999999999999 ,2147483647 ]");
    ASSERT_NE(plist, nullptr);
    EXPECT_EQ(Write(plist), "[2147483647,-2147483648,2147483647,2147483647]");
    LUMRelease(plist);
}
