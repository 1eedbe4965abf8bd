/* LUMPropertyListPathsTest.cpp — the compatible reader reads with the
 * system allocator through a private buffer taken in runs, and with any
 * other allocator through the mutable string whose calls that allocator
 * sees. These tests hold the two to the same trees, byte for byte, on the
 * parsing corpus, the benchmark documents, hostile and random documents,
 * at every chunk boundary and in a decimal-comma locale, and hold a
 * caller's allocator to the very calls it saw before.
 * Part of LumBase; MIT licence. */
#include "support/LUMShapeReading.h"
#include "support/LUMTestSupport.h"

#include <clocale>
#include <dirent.h>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

using namespace lumtest;

namespace {

/* The tree read through the private buffer and through the observed one. */
void ExpectSameTrees(const std::string &text, const std::vector<size_t> &splits, const std::string &what)
{
    CountingAllocator counting;
    std::string privately = ReadShapeWith(kLUMAllocatorSystemDefault, text, splits);
    std::string observed = ReadShapeWith(counting.allocator, text, splits);
    EXPECT_EQ(privately, observed) << what;
}

/* Documents with a run of every kind ending at every kind of byte, escapes,
 * whitespace kept in numbers and literals, long runs, and failures whose
 * leftovers stay in the buffer. */
const std::vector<std::string> &TrickyDocuments()
{
    static const std::vector<std::string> documents = {
        R"({"plain":"abcdefghijklmnopqrstuvwxyz0123456789","esc":"a\"b\\c\/d\be\ff\ng\rh\ti","u":"\u00e9\u20AC\uD83D\uDE00x"})",
        "[\"\xC3\xA9 raw \xE2\x82\xAC bytes\x7F\", \"tab\there\", \"nl\nhere\", \"ctl\x01here\"]",
        "[12 , -0.5e+3, 1.5 , 0 , -0, 12\n\t\r , 1.5e0, 1E2 ,\n        7        ]",
        "[true ,false, null , true\n]  ",
        "{\"a\" :  1 , \"b\"\t:\"x\"  ,  \"c\" : [ ] , \"d\":{ }, \"a\": 2.5e-3 }",
        "[1, x, 2]",
        "[1, x]\n[2]",
        "{\"k\":\"v\\u00zz\", \"n\": 1}",
        "[\"\\q\", \"ok\"]",
        "[\"a\\u0041b\\u", 
        "[0x1F, 01, 1.e5, .5, +1, -, 1e, 1e+]",
        "[123456789012345678901234567890, 4.9406564584124654e-324, 1.7976931348623157e308, 1e400, 0.1e-400]",
        "[1" + std::string(150, '0') + ".5e1 , 1" + std::string(130, ' ') + "]",
        "[\"" + std::string(3000, 'x') + "\\n" + std::string(37, 'y') + "\"]",
        "{\"" + std::string(100, 'k') + "\":" + std::string(40, ' ') + "\"v\"" + std::string(200, ' ') + "}",
        "[tru, fals, nul, truex]",
        "{\"a\" \"b\"}, {\"c\":}",
        "[1.5 x 2]",
        "[12 \xC3\xA9]",
        "[1.5/]",
        "{\"\\u00",
        "{\"\":0].}",
        "{\"a\":1,\"b\":2,\"a\":[3],\"c\":{\"a\":4,\"a\":5},\"b\":\"x\",\"a\":6}",
        "[{\"k\":1,\"k\":{\"k\":2,\"j\":[1,{\"k\":3,\"k\":4}]}}, [[], {}], {\"\":1, \"\":2}]",
        // Pieces out of place, where a whole piece would be taken at once.
        "\"top\" [1]", "{\"a\":1]", "[1}", "{,}", "{\"a\" 1}", "[\"a\" \"b\"]", "[1 2]", "{\"a\":\"b\":\"c\"}",
        "[]]", "{}}", "{} {\"b\":1}", "[] ,[2]", "{\"a\":{\"b\":[1,{}]}},", "[\"a\",]", "[[1,],2]", "{\"a\":[\"x\",],\"b\":1}", "{\"a\":1,}", "[,1]", "{:1}",
        "[true,truex,nulll,t,fa,n]", "[-,-1,0,00,01,-01,-0.0e-0]", "{\"a\":tru", "[{\"k\":\"v\"}", "{\"k\":[\"v\"",
        "[\"x\"]", "[\"\"]", "{\"\":\"\"}", "[1,\"a\",true,{},[],null,\"\\u0041\"]",
        "[\"" + std::string(5000, 'h') + "\", \"" + std::string(4095, 'i') + "\", \"" + std::string(4096, 'j') + "\\n\"]",
        // Integers at the edge of the shortcut to doubles, signed and not.
        "[999999999999999,1000000000000000,-999999999999999,-1000000000000000,-0,0,7,-7,2147483648 ,99999999999999999999]",
        "{\"a\":123456789012345,\"b\":-0,\"c\":1234567890123456 , \"d\":[-0 ,0]}",
    };
    return documents;
}

std::string CorpusDir(const char *name) { return std::string(LUM_TEST_SOURCE_DIR) + "/../shared/corpus/" + name; }

} // namespace

TEST(LUMPropertyListPaths, TrickyDocumentsReadTheSameThroughBothBuffers)
{
    for (const std::string &document : TrickyDocuments()) ExpectSameTrees(document, {}, document.substr(0, 60));
}

TEST(LUMPropertyListPaths, EveryChunkBoundaryReadsTheSameThroughBothBuffers)
{
    // One split at every position, and the text cut every few bytes: runs,
    // escapes and failures meet the end of a chunk everywhere.
    for (const std::string &document : TrickyDocuments()) {
        if (document.size() > 400) continue;
        for (size_t split = 1; split < document.size(); split++) ExpectSameTrees(document, {split}, document.substr(0, 40) + CFormat(" @%zu", split));
        for (size_t step = 1; step <= 9; step++) {
            std::vector<size_t> splits;
            for (size_t at = step; at < document.size(); at += step) splits.push_back(at);
            ExpectSameTrees(document, splits, document.substr(0, 40) + CFormat(" every %zu", step));
        }
    }
}

TEST(LUMPropertyListPaths, TheParsingCorpusReadsTheSameThroughBothBuffers)
{
    DIR *dir = opendir(CorpusDir("json-parsing").c_str());
    if (dir == nullptr) GTEST_SKIP() << "no corpus beside the repository";
    int files = 0;
    while (struct dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name.size() < 6 || name.substr(name.size() - 5) != ".json") continue;
        std::string text = FileText(CorpusDir("json-parsing") + "/" + name);
        if (text.size() > 5000) continue; // the deep ones: the shape is built by recursion
        files++;
        ExpectSameTrees(text, {}, name);
    }
    closedir(dir);
    EXPECT_GT(files, 300);
}

TEST(LUMPropertyListPaths, TheBenchmarkDocumentsReadTheSameThroughBothBuffers)
{
    for (const char *name : {"twitter.json", "citm_catalog.json", "canada.json"}) {
        std::string text = FileText(CorpusDir("json-bench") + "/" + name);
        if (text.empty()) GTEST_SKIP() << "no benchmark corpus beside the repository";
        ExpectSameTrees(text, {}, name);
        ExpectSameTrees(text, {1, 1000, 1001, 5000, 5003, 77777}, std::string(name) + " with odd chunks");
    }
}

TEST(LUMPropertyListPaths, LargeObjectsAndArraysReadTheSameThroughBothBuffers)
{
    // Objects past the size where duplicates are found through a table, with
    // duplicates near and far; arrays and nesting past the reader's first
    // stack blocks; keys of every length around the table's four-unit steps.
    std::mt19937 random(1123);
    for (int count : {15, 16, 17, 40, 64, 65, 300, 5000}) {
        std::string document = "{";
        for (int i = 0; i < count; i++) {
            int key = static_cast<int>(random() % static_cast<unsigned>(count + count / 4 + 1));
            document += CFormat("%s\"%s%d\":[%d,{\"x\":%d}]", i ? "," : "", std::string(static_cast<size_t>(key % 9), 'k').c_str(), key, i, key);
        }
        document += "}";
        ExpectSameTrees(document, {}, CFormat("object of %d", count));
        std::string nested;
        for (int i = 0; i < count; i++) nested += i % 2 ? "{\"n\":[" : "[";
        for (int i = count - 1; i >= 0; i--) nested += i % 2 ? "]}" : "]";
        ExpectSameTrees(nested, {}, CFormat("nesting of %d", count));
    }
}

TEST(LUMPropertyListPaths, RandomDocumentsReadTheSameThroughBothBuffers)
{
    // Mostly well-formed pieces with a sprinkling of noise, so that failures
    // leave all kinds of leftovers in the buffer.
    std::mt19937 random(20261123);
    const std::vector<std::string> pieces = {"{", "}", "[", "]", ":", ",", "\"", "\\", "\\u", "00e9", "true", "false", "null",
                                             "-", "0", "12", ".5", "e+3", "E-1", " ", "\n", "\t", "        ", "x", "\xC3\xA9",
                                             "\x01", "\"key\"", "\"text with words\"", "1.25", "9999999999"};
    for (int round = 0; round < 3000; round++) {
        std::string document = random() % 2 ? "[" : "{";
        int count = 5 + static_cast<int>(random() % 60);
        for (int i = 0; i < count; i++) document += pieces[random() % pieces.size()];
        std::vector<size_t> splits;
        if (round % 3 == 0 && document.size() > 2) splits.push_back(1 + random() % (document.size() - 1));
        ExpectSameTrees(document, splits, document);
        if (HasFailure()) break;
    }
}

TEST(LUMPropertyListPaths, NumbersFollowStrtodInADecimalCommaLocale)
{
    ChildResult child = RunInChild([] {
        if (!UseDecimalCommaLocale()) _exit(3);
        if (strcmp(localeconv()->decimal_point, ",") != 0) _exit(4);
        std::string text = "[1.5e0 , 2,5e1 , -0.25e1, 7e1, 3 ]";
        CountingAllocator counting;
        std::string privately = ReadShapeWith(kLUMAllocatorSystemDefault, text);
        std::string observed = ReadShapeWith(counting.allocator, text);
        printf("%s\n%s\n", privately.c_str(), observed.c_str());
    });
    if (child.exitStatus == 3) GTEST_SKIP() << "no locale with a decimal comma can be had here";
    ASSERT_EQ(child.exitStatus, 0) << child.err;
    // strtod stops at the point here, so -0.25e1 (a double: completed in
    // state 19) is -0; "1.5e0 " and "5e1 " complete in state 1 and are
    // integers by strtol; the comma separates 2 from 5e1. The shapes are
    // printed in the child's locale, hence the comma in 0x1,18p+6 (70).
    std::string expected = "#1[#1i3:1,#1d0x1p+1,#1i3:5,#1d-0x0p+0,#1d0x1,18p+6,#1i3:3,]";
    EXPECT_EQ(child.out, expected + "\n" + expected + "\n");
}

TEST(LUMPropertyListPaths, ACallersAllocatorSeesTheCallsItAlwaysSaw)
{
    // The kind of every call and the size asked for, in order, as the reader
    // has always made them: recorded from the reader before it had a
    // private buffer.
    std::string text = FileText(CorpusDir("json-bench") + "/twitter.json").substr(0, 20000) + "\"]}]}";
    text += "[1, 2.5 , \"\\u00e9\\t\", true , {\"a\":null}]";
    auto fingerprint = [&text](bool asDefault) {
        CountingAllocator counting;
        if (asDefault) LUMAllocatorSetDefault(counting.allocator);
        LUMDataRef data = LUMDataCreate(kLUMAllocatorSystemDefault, reinterpret_cast<const UInt8 *>(text.data()), static_cast<LUMIndex>(text.size()));
        LUMPropertyListRef plist = LUMPropertyListCreateWithData(asDefault ? nullptr : counting.allocator, data, 0, nullptr, nullptr);
        LUMRelease(plist);
        LUMRelease(data);
        if (asDefault) LUMAllocatorSetDefault(kLUMAllocatorSystemDefault);
        uint64_t hash = 1469598103934665603ull;
        auto mix = [&hash](uint64_t value) { hash = (hash ^ value) * 1099511628211ull; };
        for (const AllocatorCall &call : counting.calls) {
            mix(static_cast<uint64_t>(call.kind));
            if (call.kind != 'd') mix(call.size);
        }
        return CFormat("%zu calls, %016llx", counting.calls.size(), static_cast<unsigned long long>(hash));
    };
    if (FileText(CorpusDir("json-bench") + "/twitter.json").empty()) GTEST_SKIP() << "no benchmark corpus beside the repository";
    std::string asArgument = fingerprint(false), asDefault = fingerprint(true);
    // Taken from the earlier reader on x86-64 and on 32-bit ARM.
    const char *before = sizeof(void *) == 8 ? "3152 calls, d9a617504877375d" : "3152 calls, 0e7e164c8976dd4d";
    EXPECT_EQ(asArgument, before);
    EXPECT_EQ(asDefault, before);
}

namespace {

/* A tree with every kind of value the writer meets: integers at the
 * edges, doubles small and huge, text longer than the writer's piece,
 * escapes, data and, on request, an object of another class (whose
 * description holds its address). */
LUMPropertyListRef CreateWriterTree(bool withOtherObject)
{
    std::string text = FileText(CorpusDir("json-bench") + "/twitter.json");
    LUMDataRef json = LUMDataCreate(kLUMAllocatorSystemDefault, reinterpret_cast<const UInt8 *>(text.data()), static_cast<LUMIndex>(text.size()));
    LUMPropertyListRef twitter = LUMPropertyListCreateWithData(kLUMAllocatorSystemDefault, json, 0, nullptr, nullptr);
    LUMRelease(json);
    LUMMutableArrayRef root = LUMArrayCreateMutable(kLUMAllocatorSystemDefault, 0, &kLUMTypeArrayCallBacks);
    if (twitter != nullptr) LUMArrayAppendValue(root, twitter);
    LUMRelease(twitter);
    for (int32_t i : {0, 1, -1, 7, INT32_MAX, INT32_MIN, 1000000}) {
        LUMNumberRef n = LUMNumberCreate(kLUMAllocatorSystemDefault, kLUMNumberSInt32Type, &i);
        LUMArrayAppendValue(root, n);
        LUMRelease(n);
    }
    for (double d : {0.0, -0.0, 1.5, -2.25, 1e-7, 0.1, 123456789.123456789, 1.7976931348623157e308, 4.9e-324, double(HUGE_VAL), double(-HUGE_VAL), double(NAN)}) {
        LUMNumberRef n = LUMNumberCreate(kLUMAllocatorSystemDefault, kLUMNumberDoubleType, &d);
        LUMArrayAppendValue(root, n);
        LUMRelease(n);
    }
    std::string longText(3000, 'a');
    longText += "\"\\\n\xC3\xA9";
    LUMStringRef bytes = LUMStringCreateWithCString(kLUMAllocatorSystemDefault, longText.c_str(), kLUMStringEncodingUTF8);
    LUMArrayAppendValue(root, bytes);
    LUMRelease(bytes);
    UniChar units[] = {'x', 0xD83D, 0xDE00, '"', 0x1F, 0x7F, 0x80, 0xFFFF};
    LUMStringRef wide = LUMStringCreateWithCharacters(kLUMAllocatorSystemDefault, units, static_cast<LUMIndex>(sizeof(units) / sizeof(units[0])));
    LUMArrayAppendValue(root, wide);
    LUMRelease(wide);
    LUMDataRef data = LUMDataCreate(kLUMAllocatorSystemDefault, reinterpret_cast<const UInt8 *>("ab\"c\\"), 5);
    LUMArrayAppendValue(root, data);
    LUMRelease(data);
    if (withOtherObject) {
        LUMTimeZoneRef zone = LUMTimeZoneCreateWithName(kLUMAllocatorSystemDefault, LUMSTR("UTC"), false);
        LUMArrayAppendValue(root, zone);
        LUMRelease(zone);
    }
    return root;
}

struct RecordedWrites {
    size_t calls = 0;
    uint64_t hash = 1469598103934665603ull;
};

LUMWriteStreamRef CreateRecordingStream(RecordedWrites &record)
{
    LUMWriteStreamContext context = {};
    context.info = &record;
    context.write = [](LUMWriteStreamRef, const UInt8 *buffer, LUMIndex length, void *info) -> LUMIndex {
        auto *r = static_cast<RecordedWrites *>(info);
        r->calls++;
        r->hash = (r->hash ^ static_cast<uint64_t>(length)) * 1099511628211ull;
        for (LUMIndex i = 0; i < length; i++) r->hash = (r->hash ^ buffer[i]) * 1099511628211ull;
        return length;
    };
    return _LUMWriteStreamCreateWithContext(kLUMAllocatorSystemDefault, &context);
}

std::string DataText(LUMDataRef data)
{
    std::string text(reinterpret_cast<const char *>(LUMDataGetBytePtr(data)), static_cast<size_t>(LUMDataGetLength(data)));
    LUMRelease(data);
    return text;
}

} // namespace

TEST(LUMPropertyListPaths, TheWriterGivesTheSameBytesWhateverTheAllocator)
{
    if (FileText(CorpusDir("json-bench") + "/twitter.json").empty()) GTEST_SKIP() << "no benchmark corpus beside the repository";
    LUMPropertyListRef tree = CreateWriterTree(true);
    std::string privately = DataText(LUMPropertyListCreateData(nullptr, tree, kLUMPropertyListJSONFormat, 0, nullptr));
    CountingAllocator counting;
    LUMAllocatorSetDefault(counting.allocator);
    std::string observed = DataText(LUMPropertyListCreateData(nullptr, tree, kLUMPropertyListJSONFormat, 0, nullptr));
    LUMAllocatorSetDefault(kLUMAllocatorSystemDefault);
    EXPECT_GT(counting.allocations, 1000); // the number texts were made through it
    EXPECT_EQ(privately.size(), observed.size());
    EXPECT_TRUE(privately == observed);
    EXPECT_NE(privately.find(",0,1,-1,7,2147483647,-2147483648,1000000,0.000000,0.000000,1.500000,-2.250000,0.000000,0.100000,"
                             "123456789.123457,"),
              std::string::npos);
    EXPECT_NE(privately.find(",0.000000,inf,-inf,nan,"), std::string::npos);
    LUMRelease(tree);
}

TEST(LUMPropertyListPaths, ACallersStreamSeesTheWritesItAlwaysSaw)
{
    // Every write call's length and bytes, in order, as the writer has always
    // made them: recorded from the writer before it gathered its text.
    if (FileText(CorpusDir("json-bench") + "/twitter.json").empty()) GTEST_SKIP() << "no benchmark corpus beside the repository";
    LUMPropertyListRef tree = CreateWriterTree(false);
    RecordedWrites record;
    LUMWriteStreamRef stream = CreateRecordingStream(record);
    LUMIndex written = LUMPropertyListWrite(tree, stream, kLUMPropertyListJSONFormat, 0, nullptr);
    LUMRelease(stream);
    LUMRelease(tree);
    std::string seen = CFormat("%ld bytes in %zu calls, %016llx", static_cast<long>(written), record.calls, static_cast<unsigned long long>(record.hash));
    // Taken from the earlier writer, the same on x86-64 and on 32-bit ARM.
    EXPECT_EQ(seen, "962996 bytes in 91777 calls, 491a9c594d3f3543");
}
