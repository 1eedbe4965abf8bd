/* LUMURLTest.cpp — file URLs, resolution, resources and percent escapes,
 * in a temporary directory; the escapes are checked against an encoder
 * written here.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cstdlib>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

using namespace lumtest;

namespace {

LUMStringRef Str(const std::string &text) { return LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8); }

std::string Resolved(LUMURLRef url)
{
    UInt8 buffer[1024];
    if (!LUMURLGetFileSystemRepresentation(url, true, buffer, sizeof(buffer))) return "<too long>";
    return reinterpret_cast<char *>(buffer);
}

LUMURLRef Path(const std::string &path, bool isDirectory, LUMURLRef base)
{
    LUMStringRef text = Str(path);
    LUMURLRef url = LUMURLCreateWithFileSystemPathRelativeToBase(nullptr, text, kLUMURLPOSIXPathStyle, isDirectory, base);
    LUMRelease(text);
    return url;
}

/* An independent encoder: every byte outside A-Z a-z 0-9 _ - ~ . as %XX. */
std::string Escape(const std::string &bytes)
{
    std::string out;
    for (unsigned char b : bytes) {
        if (isalnum(b) && b < 128) out += static_cast<char>(b);
        else if (b == '_' || b == '-' || b == '~' || b == '.') out += static_cast<char>(b);
        else out += CFormat("%%%02X", b);
    }
    return out;
}

class TempDir {
public:
    TempDir()
    {
        char pattern[] = "/tmp/lumurl.XXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~TempDir() { std::system(("rm -rf " + path_).c_str()); }
    const std::string &path() const { return path_; }
private:
    std::string path_;
};

} // namespace

TEST(LUMURL, RelativePathGetsTheWorkingDirectoryAsBase)
{
    char cwd[1024];
    ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
    LUMStringRef x = Str("x");
    LUMURLRef url = LUMURLCreateWithFileSystemPath(nullptr, x, kLUMURLPOSIXPathStyle, false);
    ASSERT_NE(LUMURLGetBaseURL(url), nullptr);
    EXPECT_EQ(Resolved(url), std::string(cwd) + "/x");
    EXPECT_EQ(TakeText(LUMURLCopyFileSystemPath(url, kLUMURLPOSIXPathStyle)), "x");
    UInt8 raw[16];
    EXPECT_TRUE(LUMURLGetFileSystemRepresentation(url, false, raw, sizeof(raw)));
    EXPECT_STREQ(reinterpret_cast<char *>(raw), "x");
    LUMRelease(url);
    LUMStringRef absolute = Str("/abs");
    url = LUMURLCreateWithFileSystemPath(nullptr, absolute, kLUMURLPOSIXPathStyle, true);
    EXPECT_EQ(LUMURLGetBaseURL(url), nullptr);
    LUMRelease(url);
    LUMRelease(absolute);
    LUMRelease(x);
}

TEST(LUMURL, ResolutionIsPlainConcatenation)
{
    LUMURLRef file = Path("/a/b", false, nullptr), directory = Path("/a/b", true, nullptr);
    LUMURLRef c1 = Path("c", false, file), c2 = Path("c", false, directory), d = Path("/d", false, directory);
    EXPECT_EQ(Resolved(c1), "/a/c");
    EXPECT_EQ(Resolved(c2), "/a/b/c");
    EXPECT_EQ(Resolved(d), "/d");
    LUMURLRef slashed = Path("/a/b/", true, nullptr), up = Path("../c", false, slashed);
    EXPECT_EQ(Resolved(up), "/a/b/../c"); // nothing is normalised
    LUMURLRef chained = Path("e", false, c2); // a chain of bases, from its root
    EXPECT_EQ(Resolved(chained), "/a/b/e");
    LUMURLRef relativeBase = Path("rel", true, nullptr), underRelative = Path("f", false, relativeBase);
    EXPECT_EQ(Resolved(underRelative), "/rel/f");
    for (LUMURLRef u : {file, directory, c1, c2, d, slashed, up, chained, relativeBase, underRelative}) LUMRelease(u);
}

TEST(LUMURL, AbsoluteURLAndDescription)
{
    LUMURLRef base = Path("/srv/data", true, nullptr), url = Path("file.txt", false, base);
    LUMURLRef absolute = LUMURLCopyAbsoluteURL(url);
    EXPECT_EQ(TakeText(LUMURLCopyFileSystemPath(absolute, kLUMURLPOSIXPathStyle)), "/srv/data/file.txt");
    EXPECT_EQ(LUMURLGetBaseURL(absolute), nullptr);
    EXPECT_EQ(TakeText(LUMCopyDescription(base)), CFormat("<%p LUMURL retainCount=2 path=/srv/data baseUrl=<%p> isDirectory=TRUE>",
                                                          static_cast<const void *>(base), nullptr));
    LUMRelease(absolute);
    LUMRelease(url);
    LUMRelease(base);
    UInt8 tiny[4];
    LUMURLRef longer = Path("/longer/path", false, nullptr);
    EXPECT_FALSE(LUMURLGetFileSystemRepresentation(longer, true, tiny, sizeof(tiny)));
    LUMRelease(longer);
}

TEST(LUMURL, PathStyleIsAsserted)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateWithFileSystemPath(nullptr, LUMSTR("/x"), 1, false); },
                                  "pathStyle == kLUMURLPOSIXPathStyle", "LUMURLCreateWithFileSystemPath", "src/LUMURL", 503));
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateWithFileSystemPathRelativeToBase(nullptr, LUMSTR("/x"), 2, false, nullptr); },
                                  "pathStyle == kLUMURLPOSIXPathStyle", "LUMURLCreateWithFileSystemPathRelativeToBase", "src/LUMURL", 522));
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCopyFileSystemPath(Path("/x", false, nullptr), 3); },
                                  "pathStyle == kLUMURLPOSIXPathStyle", "LUMURLCopyFileSystemPath", "src/LUMURL", 543));
}

TEST(LUMURL, PercentEscapesOfTheDocumentedText)
{
    LUMStringRef original = LUMSTR("a b/\xC3\xBC");
    LUMStringRef escaped = LUMURLCreateStringByAddingPercentEscapes(nullptr, original, nullptr, nullptr, kLUMStringEncodingUTF8);
    EXPECT_EQ(Text(escaped), "a%20b%2F%C3%BC");
    LUMStringRef back = LUMURLCreateStringByReplacingPercentEscapes(nullptr, escaped, LUMSTR(""));
    EXPECT_TRUE(LUMEqual(back, original));
    LUMRelease(back);
    LUMRelease(escaped);
}

TEST(LUMURL, EveryByteValueRoundTrips)
{
    // Every byte value as a character (U+0001..U+00FF; U+0000 cannot live
    // in a C string), and every byte value as a raw escape.
    for (int b = 1; b < 256; b++) {
        UniChar units[] = {'x', static_cast<UniChar>(b), 'y'};
        LUMStringRef original = LUMStringCreateWithCharacters(nullptr, units, 3);
        LUMDataRef utf8 = LUMStringCreateExternalRepresentation(nullptr, original, kLUMStringEncodingUTF8, 0);
        std::string expected = Escape(std::string(reinterpret_cast<const char *>(LUMDataGetBytePtr(utf8)), LUMDataGetLength(utf8)));
        LUMStringRef escaped = LUMURLCreateStringByAddingPercentEscapes(nullptr, original, nullptr, nullptr, kLUMStringEncodingUTF8);
        ASSERT_EQ(Text(escaped), expected) << b;
        LUMStringRef back = LUMURLCreateStringByReplacingPercentEscapes(nullptr, escaped, LUMSTR(""));
        ASSERT_TRUE(LUMEqual(back, original)) << b;
        for (LUMTypeRef o : std::initializer_list<LUMTypeRef>{back, escaped, utf8, original}) LUMRelease(o);

        std::string raw = CFormat("a%%%02Xb", b);
        LUMStringRef encoded = Str(raw);
        LUMStringRef decoded = LUMURLCreateStringByReplacingPercentEscapes(nullptr, encoded, LUMSTR(""));
        std::string bytes = "a" + std::string(1, static_cast<char>(b)) + "b";
        LUMStringRef direct = Str(bytes); // the same bytes, read as UTF-8 the same way
        ASSERT_TRUE(LUMEqual(decoded, direct)) << raw;
        LUMRelease(direct);
        LUMRelease(decoded);
        LUMRelease(encoded);
    }
}

TEST(LUMURL, RandomUTF8TextRoundTrips)
{
    std::mt19937 random(1122);
    for (int round = 0; round < 500; round++) {
        std::vector<UniChar> units;
        for (int i = 0, n = static_cast<int>(random() % 30); i < n; i++) {
            switch (random() % 4) {
            case 0: units.push_back(static_cast<UniChar>(0x20 + random() % 0x5F)); break;
            case 1: units.push_back(static_cast<UniChar>(0x80 + random() % 0x780)); break;
            case 2: units.push_back(static_cast<UniChar>(0x800 + random() % 0xD000)); break;
            default: units.push_back(static_cast<UniChar>(0xE000 + random() % 0x1FFF)); break;
            }
        }
        LUMStringRef original = LUMStringCreateWithCharacters(nullptr, units.data(), static_cast<LUMIndex>(units.size()));
        LUMDataRef utf8 = LUMStringCreateExternalRepresentation(nullptr, original, kLUMStringEncodingUTF8, 0);
        std::string expected = Escape(std::string(reinterpret_cast<const char *>(LUMDataGetBytePtr(utf8)), LUMDataGetLength(utf8)));
        LUMStringRef escaped = LUMURLCreateStringByAddingPercentEscapes(nullptr, original, nullptr, nullptr, kLUMStringEncodingUTF8);
        ASSERT_EQ(Text(escaped), expected);
        LUMStringRef back = LUMURLCreateStringByReplacingPercentEscapes(nullptr, escaped, LUMSTR(""));
        ASSERT_TRUE(LUMEqual(back, original));
        for (LUMTypeRef o : std::initializer_list<LUMTypeRef>{back, escaped, utf8, original}) LUMRelease(o);
    }
}

TEST(LUMURL, MalformedEscapesStayInsideTheirBuffer)
{
    auto decode = [](const char *text) { return TakeText(LUMURLCreateStringByReplacingPercentEscapes(nullptr, LUMSTR(text), LUMSTR(""))); };
    EXPECT_EQ(decode("abc%"), "abc");       // the "%" reads the zero padding: a NUL ends the text
    EXPECT_EQ(decode("abc%4"), "abc@");     // '4' and a padding zero: 0x40
    EXPECT_EQ(decode("%41%42"), "AB");
    EXPECT_EQ(decode("%4a%4A"), "JJ");
    EXPECT_EQ(decode("%GG"), "w");          // non-hex digits count with their byte value: 0x477 -> 0x77
    EXPECT_EQ(decode("plain"), "plain");
    EXPECT_EQ(decode("%"), "");
}

TEST(LUMURL, EscapeFunctionsAssertTheirArguments)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateStringByAddingPercentEscapes(nullptr, LUMSTR("a"), LUMSTR("/"), nullptr, kLUMStringEncodingUTF8); },
                                  "charactersToLeaveUnescaped == NULL", "LUMURLCreateStringByAddingPercentEscapes", "src/LUMURL", 327));
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateStringByAddingPercentEscapes(nullptr, LUMSTR("a"), nullptr, LUMSTR("/"), kLUMStringEncodingUTF8); },
                                  "legalURLCharactersToBeEscaped == NULL", "LUMURLCreateStringByAddingPercentEscapes", "src/LUMURL", 328));
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateStringByAddingPercentEscapes(nullptr, LUMSTR("a"), nullptr, nullptr, 0); },
                                  "encoding == kLUMStringEncodingUTF8", "LUMURLCreateStringByAddingPercentEscapes", "src/LUMURL", 329));
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateStringByReplacingPercentEscapes(nullptr, LUMSTR("a"), LUMSTR("%")); },
                                  "LUMEqual(charactersToLeaveEscaped, LUMSTR(\"\"))", "LUMURLCreateStringByReplacingPercentEscapes",
                                  "src/LUMURL", 395));
    EXPECT_TRUE(DiesWithAssertion([] { LUMURLCreateStringByReplacingPercentEscapes(nullptr, nullptr, LUMSTR("")); },
                                  "_LUMTypeCheckValid(originalString, LUMStringGetTypeID())", "LUMURLCreateStringByReplacingPercentEscapes",
                                  "src/LUMURL", 394));
}

TEST(LUMURL, ResourcesAreWrittenAndReadWhole)
{
    TempDir dir;
    _LUMURLInitializeModule();
    LUMURLRef base = Path(dir.path(), true, nullptr), file = Path("data.bin", false, base);
    std::string payload;
    for (int i = 0; i < 20000; i++) payload += static_cast<char>(i * 7);
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(payload.data()), static_cast<LUMIndex>(payload.size()));
    EXPECT_TRUE(LUMURLWriteDataAndPropertiesToResource(file, data, nullptr, nullptr));
    struct stat info;
    ASSERT_EQ(stat((dir.path() + "/data.bin").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u & ~static_cast<unsigned>(umask(022)) & 0777);
    LUMDataRef read = nullptr;
    LUMDictionaryRef properties = nullptr;
    EXPECT_TRUE(LUMURLCreateDataAndPropertiesFromResource(nullptr, file, &read, &properties, nullptr, nullptr));
    EXPECT_TRUE(LUMEqual(read, data));
    EXPECT_EQ(LUMDictionaryGetValue(properties, kLUMURLFileExists), kLUMBooleanTrue);
    auto length = static_cast<LUMNumberRef>(LUMDictionaryGetValue(properties, kLUMURLFileLength));
    int64_t size = 0;
    LUMNumberGetValue(length, kLUMNumberSInt64Type, &size);
    EXPECT_EQ(size, 20000);
    EXPECT_EQ(LUMNumberGetType(length), kLUMNumberLongLongType);
    EXPECT_EQ(LUMGetRetainCount(length), 2); // the dictionary's and the caller's
    LUMRelease(length);
    LUMRelease(properties);
    LUMRelease(read);
    EXPECT_TRUE(LUMURLWriteDataAndPropertiesToResource(file, nullptr, nullptr, nullptr)); // writes nothing
    ASSERT_EQ(stat((dir.path() + "/data.bin").c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 20000);
    LUMRelease(data);
    LUMRelease(file);
    LUMRelease(base);
}

TEST(LUMURL, PropertiesOfAMissingFile)
{
    TempDir dir;
    LUMURLRef url = Path(dir.path() + "/missing", false, nullptr);
    const void *keys[] = {kLUMURLFileExists, kLUMURLFileLength};
    LUMArrayRef wanted = LUMArrayCreate(nullptr, keys, 2, &kLUMTypeArrayCallBacks);
    LUMDictionaryRef properties = nullptr;
    EXPECT_TRUE(LUMURLCreateDataAndPropertiesFromResource(nullptr, url, nullptr, &properties, wanted, nullptr));
    EXPECT_EQ(LUMDictionaryGetValue(properties, kLUMURLFileExists), kLUMBooleanFalse);
    auto length = static_cast<LUMNumberRef>(LUMDictionaryGetValue(properties, kLUMURLFileLength));
    ASSERT_NE(length, nullptr); // made all the same
    LUMRelease(length);
    LUMRelease(properties);
    LUMDataRef data = nullptr;
    properties = nullptr;
    EXPECT_FALSE(LUMURLCreateDataAndPropertiesFromResource(nullptr, url, &data, &properties, wanted, nullptr));
    EXPECT_EQ(data, nullptr);
    LUMRelease(LUMDictionaryGetValue(properties, kLUMURLFileLength));
    LUMRelease(properties);
    EXPECT_EQ(LUMURLCreatePropertyFromResource(nullptr, url, kLUMURLFileExists, nullptr), kLUMBooleanFalse);
    LUMTypeRef size = LUMURLCreatePropertyFromResource(nullptr, url, kLUMURLFileLength, nullptr);
    EXPECT_EQ(LUMGetRetainCount(size), 1); // the caller's reference
    LUMRelease(size);
    LUMRelease(wanted);
    LUMRelease(url);
}

TEST(LUMURL, FileSizeKeyIsNotHandled)
{
    TempDir dir;
    LUMURLRef url = Path(dir.path(), true, nullptr);
    const void *keys[] = {kLUMURLFileSizeKey};
    LUMArrayRef wanted = LUMArrayCreate(nullptr, keys, 1, &kLUMTypeArrayCallBacks);
    LUMDictionaryRef properties = nullptr;
    EXPECT_FALSE(LUMURLCreateDataAndPropertiesFromResource(nullptr, url, nullptr, &properties, wanted, nullptr));
    EXPECT_EQ(LUMDictionaryGetCount(properties), 0);
    EXPECT_EQ(LUMURLCreatePropertyFromResource(nullptr, url, kLUMURLFileSizeKey, nullptr), nullptr);
    LUMRelease(properties);
    LUMRelease(wanted);
    LUMRelease(url);
    EXPECT_EQ(Text(kLUMURLFileExists), "__LUMURLFileExists__");
    EXPECT_EQ(Text(kLUMURLFileLength), "__LUMURLFileLength__");
    EXPECT_EQ(Text(kLUMURLFileSizeKey), "__LUMURLFileSize__");
}

TEST(LUMURL, WritingIntoAMissingDirectoryFails)
{
    LUMURLRef url = Path("/nonexistent-directory/file", false, nullptr);
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("x"), 1);
    EXPECT_FALSE(LUMURLWriteDataAndPropertiesToResource(url, data, nullptr, nullptr));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMURLWriteDataAndPropertiesToResource(url, data, LUMDictionaryCreate(nullptr, nullptr, nullptr, 0, nullptr, nullptr), nullptr); },
                                  "properties == NULL", "LUMURLWriteDataAndPropertiesToResource", "src/LUMURL", 287));
    LUMRelease(data);
    LUMRelease(url);
}

TEST(LUMURL, PropertyOfAPathWithoutFileSystemFormIsNullAndItsNumberStays)
{
    // A path too long for the 1024-byte buffer has no file-system form: the
    // call fails and returns null, while the file-length number it made
    // keeps its creation reference (documented where the function is).
    CountingAllocator counting;
    LUMURLRef url = Path("/" + std::string(1100, 'x'), false, nullptr);
    EXPECT_EQ(LUMURLCreatePropertyFromResource(counting.allocator, url, kLUMURLFileLength, nullptr), nullptr);
    int live = 0;
    for (const AllocatorCall &call : counting.calls) live += call.kind == 'a' ? 1 : (call.kind == 'd' ? -1 : 0);
    EXPECT_EQ(live, 1);
    LUMRelease(url);
}

TEST(LUMURL, ZeroSizedBufferIsNeverWritten)
{
    for (const char *path : {"", "/tmp/file"}) {
        LUMURLRef url = Path(path, false, nullptr);
        UInt8 buffer[4] = {'x', 'x', 'x', 'x'};
        EXPECT_FALSE(LUMURLGetFileSystemRepresentation(url, false, buffer, 0));
        EXPECT_EQ(buffer[0], 'x');
        EXPECT_FALSE(LUMURLGetFileSystemRepresentation(url, false, nullptr, 0));
        EXPECT_FALSE(LUMURLGetFileSystemRepresentation(url, true, nullptr, 0));
        LUMRelease(url);
    }
}

TEST(LUMURL, APathHoldingUPlus0000OpensNothing)
{
    TempDir dir;
    std::string secret = dir.path() + "/secret";
    LUMStringRef secretPath = Str(secret);
    LUMURLRef secretURL = LUMURLCreateWithFileSystemPath(nullptr, secretPath, kLUMURLPOSIXPathStyle, false);
    LUMDataRef original = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("keep"), 4);
    ASSERT_TRUE(LUMURLWriteDataAndPropertiesToResource(secretURL, original, nullptr, nullptr));
    // ".../secret" U+0000 ".txt" must not name ".../secret".
    std::vector<UniChar> units(secret.begin(), secret.end());
    for (UniChar unit : {static_cast<UniChar>(0), static_cast<UniChar>('.'), static_cast<UniChar>('t'), static_cast<UniChar>('x'),
                         static_cast<UniChar>('t')})
        units.push_back(unit);
    LUMStringRef trick = LUMStringCreateWithCharacters(nullptr, units.data(), static_cast<LUMIndex>(units.size()));
    LUMURLRef trickURL = LUMURLCreateWithFileSystemPath(nullptr, trick, kLUMURLPOSIXPathStyle, false);
    LUMDataRef read = nullptr;
    EXPECT_FALSE(LUMURLCreateDataAndPropertiesFromResource(nullptr, trickURL, &read, nullptr, nullptr, nullptr));
    EXPECT_EQ(read, nullptr);
    LUMDataRef overwrite = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("gone"), 4);
    EXPECT_FALSE(LUMURLWriteDataAndPropertiesToResource(trickURL, overwrite, nullptr, nullptr));
    LUMURLCreateDataAndPropertiesFromResource(nullptr, secretURL, &read, nullptr, nullptr, nullptr);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(LUMDataGetBytePtr(read)), LUMDataGetLength(read)), "keep");
    LUMRelease(read);
    LUMRelease(overwrite);
    LUMRelease(trickURL);
    LUMRelease(trick);
    LUMRelease(original);
    LUMRelease(secretURL);
    LUMRelease(secretPath);
}
