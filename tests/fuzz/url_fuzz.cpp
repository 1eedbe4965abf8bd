/* url_fuzz.cpp — file URLs from arbitrary paths and bases, their resolution
 * and file-system forms, and percent escapes added and replaced.
 * Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    bool baseIsDirectory = input.below(2) == 1, isDirectory = input.below(2) == 1;
    unsigned bufferSize = input.below(255) + 1;
    LUMStringRef basePath = lumfuzz::BytesString(input.piece());
    LUMStringRef path = input.below(2) ? lumfuzz::BytesString(input.rest()) : lumfuzz::UnitString(input.rest());
    LUMURLRef base = LUMURLCreateWithFileSystemPath(nullptr, basePath, kLUMURLPOSIXPathStyle, baseIsDirectory);
    LUMURLRef url = LUMURLCreateWithFileSystemPathRelativeToBase(nullptr, path, kLUMURLPOSIXPathStyle, isDirectory, base);
    UInt8 buffer[256];
    LUMURLGetFileSystemRepresentation(url, true, buffer, static_cast<LUMIndex>(bufferSize));
    LUMURLGetFileSystemRepresentation(url, false, buffer, static_cast<LUMIndex>(bufferSize));
    LUMURLGetFileSystemRepresentation(url, true, nullptr, 0);
    LUMStringRef description = LUMCopyDescription(url);
    LUMRelease(description);
    // Escaping then unescaping gives the same UTF-8 bytes back (for text
    // without U+0000: a byte-form string ends at its first NUL).
    LUMStringRef escaped = LUMURLCreateStringByAddingPercentEscapes(nullptr, path, nullptr, nullptr, kLUMStringEncodingUTF8);
    LUMStringRef unescaped = LUMURLCreateStringByReplacingPercentEscapes(nullptr, escaped, LUMSTR(""));
    LUMDataRef before = LUMStringCreateExternalRepresentation(nullptr, path, kLUMStringEncodingUTF8, 0);
    LUMDataRef after = LUMStringCreateExternalRepresentation(nullptr, unescaped, kLUMStringEncodingUTF8, 0);
    std::u16string units = lumfuzz::Units(path);
    if (units.find(u'\0') == std::u16string::npos && !LUMEqual(before, after)) lumfuzz::Finding("escapes do not round-trip");
    // Unescaping arbitrary text (malformed escapes included).
    LUMStringRef decoded = LUMURLCreateStringByReplacingPercentEscapes(nullptr, basePath, LUMSTR(""));
    LUMRelease(decoded);
    LUMRelease(before);
    LUMRelease(after);
    LUMRelease(unescaped);
    LUMRelease(escaped);
    LUMRelease(url);
    LUMRelease(base);
    LUMRelease(path);
    LUMRelease(basePath);
    return 0;
}
