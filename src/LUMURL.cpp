/* LUMURL.cpp — file URLs, whole-file resources and percent escapes.
 * Part of LumBase; MIT licence.
 *
 * A URL keeps its path exactly as given and, optionally, a base URL; the
 * resolved path is computed on demand by concatenation. */
#define LUM_SOURCE_FILE "src/LUMURL"
#include "LUMStringPrivate.h"

#include <LumBase/LUMArray.h>
#include <LumBase/LUMBoolean.h>
#include <LumBase/LUMData.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMNumber.h>
#include <LumBase/LUMURL.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

struct __LUMURL {
    LUMRuntimeBase base;
    LUMStringRef path;
    LUMURLRef baseURL;
    Boolean isDirectory;
};

LUM_CONSTANT_STRING(kLUMURLFileExists, "__LUMURLFileExists__");
LUM_CONSTANT_STRING(kLUMURLFileLength, "__LUMURLFileLength__");
LUM_CONSTANT_STRING(kLUMURLFileSizeKey, "__LUMURLFileSize__");

namespace {

LUMTypeID __kLUMURLTypeID = 0;
LUMArrayRef __kLUMURLAllPropertyKeys = nullptr;
constexpr char __kLUMURLHexCharacters[] = "0123456789ABCDEF";
constexpr LUMIndex kPathBytes = 1024;
constexpr size_t kReadChunkBytes = 8192;

Boolean __LUMURLInitializeInstance(LUMTypeRef obj)
{
    auto *url = lum::object<__LUMURL>(obj);
    url->path = nullptr;
    url->baseURL = nullptr;
    url->isDirectory = false;
    return true;
}

void __LUMURLFinalizeInstance(LUMTypeRef obj)
{
    auto *url = lum::object<__LUMURL>(obj);
    LUMRelease(url->path);
    LUMRelease(url->baseURL);
}

LUMStringRef __LUMURLCopyDescription(LUMTypeRef obj)
{
    auto *url = lum::object<__LUMURL>(obj);
    return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p LUMURL retainCount=%ld path=%@ baseUrl=%@ isDirectory=%@>"), obj,
                                     static_cast<long>(LUMGetRetainCount(obj)), url->path, url->baseURL,
                                     url->isDirectory ? LUMSTR("TRUE") : LUMSTR("FALSE"));
}

constexpr LUMRuntimeClass __kLUMURLTypeClass = {
    0, "LUMURL", sizeof(__LUMURL), __LUMURLInitializeInstance, __LUMURLFinalizeInstance, nullptr, nullptr, __LUMURLCopyDescription,
};

__LUMURL *createURL(LUMAllocatorRef allocator, LUMStringRef filePath, Boolean isDirectory, LUMURLRef baseURL)
{
    auto *url = lum::object<__LUMURL>(_LUMTypeCreateInstance(allocator, LUMURLGetTypeID()));
    if (url == nullptr) return nullptr;
    url->path = LUMStringCreateCopy(LUMGetAllocator(url), filePath);
    url->isDirectory = isDirectory;
    url->baseURL = baseURL;
    return url;
}

/* A URL for the working directory, captured now; NULL when getcwd fails. */
LUMURLRef __LUMURLCreateWithCurrentDirectory(LUMAllocatorRef allocator)
{
    char buffer[kPathBytes];
    if (getcwd(buffer, sizeof(buffer)) == nullptr) return nullptr;
    LUMStringRef cwd = LUMStringCreateWithFileSystemRepresentation(nullptr, buffer);
    LUMURLRef url = LUMURLCreateWithFileSystemPath(allocator, cwd, kLUMURLPOSIXPathStyle, true);
    LUMRelease(cwd);
    return url;
}

bool endsWithSlash(LUMStringRef s) { return LUMStringHasSuffix(s, LUMSTR("/")); }

/* Appends the resolved path of url to s: the base first (its last component
 * dropped unless it is a directory), then this path. Plain concatenation. */
bool __LUMURLResolvePathInternal(LUMURLRef url, LUMMutableStringRef s)
{
    if (url->baseURL != nullptr) {
        if (!__LUMURLResolvePathInternal(url->baseURL, s)) return false;
        if (url->baseURL->isDirectory && !endsWithSlash(s)) LUMStringAppendCString(s, "/", kLUMStringEncodingUTF8);
        LUMRange slash = LUMRangeMake(kLUMNotFound, 0);
        LUMIndex length = LUMStringGetLength(s);
        if (length > 0 && LUMStringFindWithOptions(s, LUMSTR("/"), LUMRangeMake(0, length), kLUMCompareBackwards, &slash)) {
            LUMIndex after = slash.location + 1;
            LUMStringDelete(s, LUMRangeMake(after, length - after));
        }
    }
    if (LUMStringHasPrefix(url->path, LUMSTR("/"))) {
        LUMStringDelete(s, LUMRangeMake(0, LUMStringGetLength(s)));
    } else if (!endsWithSlash(s)) {
        LUMStringAppendCString(s, "/", kLUMStringEncodingUTF8);
    }
    LUMStringAppend(s, url->path);
    return true;
}

LUMMutableStringRef __LUMURLCopyResolvedPath(LUMURLRef url)
{
    LUMMutableStringRef s = LUMStringCreateMutable(nullptr, 0);
    if (!__LUMURLResolvePathInternal(url, s)) {
        LUMRelease(s);
        return nullptr;
    }
    return s;
}

/* The resolved path as a C string in buffer; false when it does not fit. */
bool resolvedPathText(LUMURLRef url, char (&buffer)[kPathBytes])
{
    LUMMutableStringRef resolved = __LUMURLCopyResolvedPath(url);
    if (resolved == nullptr) return false;
    bool fits = LUMStringGetFileSystemRepresentation(resolved, buffer, kPathBytes);
    LUMRelease(resolved);
    return fits;
}

bool isUnreserved(UInt8 byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') || byte == '_' ||
           byte == '-' || byte == '~' || byte == '.';
}

UInt8 hexValue(UInt8 byte)
{
    if (byte >= '0' && byte <= '9') return static_cast<UInt8>(byte - '0');
    if (byte >= 'A' && byte <= 'F') return static_cast<UInt8>(byte - 'A' + 10);
    if (byte >= 'a' && byte <= 'f') return static_cast<UInt8>(byte - 'a' + 10);
    return byte; // not a hex digit: its raw value is the nibble
}

} // namespace

LUMTypeID LUMURLGetTypeID(void) { return lum::registerClassOnce(__kLUMURLTypeID, __kLUMURLTypeClass); }

Boolean _LUMURLInitializeModule(void)
{
    if (__kLUMURLAllPropertyKeys == nullptr) {
        const void *keys[] = {kLUMURLFileExists, kLUMURLFileLength};
        __kLUMURLAllPropertyKeys = LUMArrayCreate(kLUMAllocatorSystemDefault, keys, 2, &kLUMTypeArrayCallBacks);
    }
    return true;
}

LUMURLRef LUMURLCreateWithFileSystemPath(LUMAllocatorRef allocator, LUMStringRef filePath, LUMURLPathStyle pathStyle, Boolean isDirectory)
{
    LUM_ASSERT_AT(503, pathStyle == kLUMURLPOSIXPathStyle);
    LUMURLRef base = LUMStringHasPrefix(filePath, LUMSTR("/")) ? nullptr : __LUMURLCreateWithCurrentDirectory(allocator);
    __LUMURL *url = createURL(allocator, filePath, isDirectory, base);
    if (url == nullptr) LUMRelease(base);
    return url;
}

LUMURLRef LUMURLCreateWithFileSystemPathRelativeToBase(LUMAllocatorRef allocator, LUMStringRef filePath, LUMURLPathStyle pathStyle,
                                                       Boolean isDirectory, LUMURLRef baseURL)
{
    LUM_ASSERT_AT(522, pathStyle == kLUMURLPOSIXPathStyle);
    return createURL(allocator, filePath, isDirectory, static_cast<LUMURLRef>(LUMRetain(baseURL)));
}

LUMURLRef LUMURLGetBaseURL(LUMURLRef url) { return url->baseURL; }

LUMStringRef LUMURLCopyFileSystemPath(LUMURLRef url, LUMURLPathStyle pathStyle)
{
    LUM_ASSERT_AT(543, pathStyle == kLUMURLPOSIXPathStyle);
    return LUMStringCreateCopy(nullptr, url->path);
}

LUMURLRef LUMURLCopyAbsoluteURL(LUMURLRef url)
{
    // The resolved-path string is not released: a known leak, kept.
    LUMMutableStringRef resolved = __LUMURLCopyResolvedPath(url);
    return LUMURLCreateWithFileSystemPath(nullptr, resolved, kLUMURLPOSIXPathStyle, url->isDirectory);
}

Boolean LUMURLGetFileSystemRepresentation(LUMURLRef url, Boolean resolveAgainstBase, UInt8 *buffer, LUMIndex maxBufLen)
{
    char *out = reinterpret_cast<char *>(buffer);
    if (!resolveAgainstBase || url->baseURL == nullptr) return LUMStringGetFileSystemRepresentation(url->path, out, maxBufLen);
    LUMMutableStringRef resolved = __LUMURLCopyResolvedPath(url);
    if (resolved == nullptr) return false;
    Boolean fits = LUMStringGetFileSystemRepresentation(resolved, out, maxBufLen);
    LUMRelease(resolved);
    return fits;
}

LUMStringRef LUMURLCreateStringByAddingPercentEscapes(LUMAllocatorRef allocator, LUMStringRef originalString,
                                                      LUMStringRef charactersToLeaveUnescaped, LUMStringRef legalURLCharactersToBeEscaped,
                                                      LUMStringEncoding encoding)
{
    LUM_ASSERT_AT(326, _LUMTypeCheckValid(originalString, LUMStringGetTypeID()));
    LUM_ASSERT_AT(327, charactersToLeaveUnescaped == NULL);
    LUM_ASSERT_AT(328, legalURLCharactersToBeEscaped == NULL);
    LUM_ASSERT_AT(329, encoding == kLUMStringEncodingUTF8);
    if (allocator == nullptr) allocator = LUMAllocatorGetDefault();
    LUMDataRef bytes = LUMStringCreateExternalRepresentation(nullptr, originalString, encoding, 0);
    const UInt8 *in = LUMDataGetBytePtr(bytes);
    LUMIndex length = LUMDataGetLength(bytes);
    LUMIndex count = 0;
    for (LUMIndex i = 0; i < length; i++) count += isUnreserved(in[i]) ? 1 : 3;
    auto *out = static_cast<char *>(LUMAllocatorAllocate(allocator, count + 1, 0));
    LUMIndex o = 0;
    for (LUMIndex i = 0; i < length; i++) {
        if (isUnreserved(in[i])) {
            out[o++] = static_cast<char>(in[i]);
        } else {
            out[o++] = '%';
            out[o++] = __kLUMURLHexCharacters[in[i] >> 4];
            out[o++] = __kLUMURLHexCharacters[in[i] & 0xF];
        }
    }
    out[o] = '\0';
    LUMRelease(bytes);
    return LUMStringCreateWithCStringNoCopy(allocator, out, encoding, allocator);
}

LUMStringRef LUMURLCreateStringByReplacingPercentEscapes(LUMAllocatorRef allocator, LUMStringRef originalString,
                                                         LUMStringRef charactersToLeaveEscaped)
{
    LUM_ASSERT_AT(394, _LUMTypeCheckValid(originalString, LUMStringGetTypeID()));
    LUM_ASSERT_AT(395, LUMEqual(charactersToLeaveEscaped, LUMSTR("")));
    if (allocator == nullptr) allocator = LUMAllocatorGetDefault();
    // The text is copied with two zero bytes of padding: a "%" among the last
    // two bytes reads them, as the decoder always has, but from memory of its
    // own.
    LUMDataRef external = LUMStringCreateExternalRepresentation(nullptr, originalString, kLUMStringEncodingUTF8, 0);
    LUMIndex length = LUMDataGetLength(external);
    lum::TempBuffer<UInt8, 256> padded(static_cast<size_t>(length) + 2);
    UInt8 *in = padded.get();
    if (length > 0) memcpy(in, LUMDataGetBytePtr(external), static_cast<size_t>(length));
    in[length] = in[length + 1] = 0;
    LUMRelease(external);

    LUMIndex count = 0;
    for (LUMIndex i = 0; i < length; count++) i += in[i] == '%' ? 3 : 1;
    auto *out = static_cast<UInt8 *>(LUMAllocatorAllocate(allocator, count + 1, 0));
    _LUMZeroMemory(out, static_cast<size_t>(count) + 1);
    LUMIndex o = 0;
    for (LUMIndex i = 0; i < length; o++) {
        if (in[i] == '%') {
            out[o] = static_cast<UInt8>((hexValue(in[i + 1]) << 4) | hexValue(in[i + 2]));
            i += 3;
        } else {
            out[o] = in[i++];
        }
    }
    return LUMStringCreateWithBytesNoCopy(allocator, out, count, kLUMStringEncodingUTF8, false, allocator);
}

Boolean LUMURLCreateDataAndPropertiesFromResource(LUMAllocatorRef allocator, LUMURLRef url, LUMDataRef *resourceData,
                                                  LUMDictionaryRef *properties, LUMArrayRef desiredProperties, LUMIndex *errorCode)
{
    LUM_ASSERT_AT(196, _LUMTypeCheckValid(url, LUMURLGetTypeID()));
    char path[kPathBytes];
    Boolean ok = resolvedPathText(url, path);
    if (resourceData != nullptr) {
        int fd = open(path, O_RDONLY);
        if (fd < 0) {
            ok = false;
        } else {
            LUMMutableDataRef data = LUMDataCreateMutable(allocator, 0);
            UInt8 chunk[kReadChunkBytes];
            for (;;) {
                ssize_t n = read(fd, chunk, sizeof(chunk));
                if (n == 0) break;
                if (n < 0) {
                    ok = false;
                    break;
                }
                int64_t before = LUMDataGetLength(data);
                LUMDataAppendBytes(data, chunk, static_cast<LUMIndex>(n));
                if (LUMDataGetLength(data) != before + n) { // too large to hold: a failed read
                    ok = false;
                    break;
                }
            }
            close(fd);
            *resourceData = data;
        }
    }
    if (properties == nullptr) return ok;

    struct stat64 info;
    bool exists = stat64(path, &info) == 0;
    if (!exists) info.st_size = 0;
    LUMArrayRef keys = desiredProperties != nullptr ? desiredProperties : __kLUMURLAllPropertyKeys;
    // Without a list (the module start never ran) there is nothing to ask.
    LUMIndex count = keys != nullptr ? LUMArrayGetCount(keys) : 0;
    LUMMutableDictionaryRef values =
        LUMDictionaryCreateMutable(allocator, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    for (LUMIndex i = 0; i < count; i++) {
        LUMTypeRef key = LUMArrayGetValueAtIndex(keys, i);
        if (LUMEqual(key, kLUMURLFileExists)) {
            LUMDictionarySetValue(values, key, exists ? kLUMBooleanTrue : kLUMBooleanFalse);
        } else if (LUMEqual(key, kLUMURLFileLength)) {
            // Made even when stat failed, and not released here: the creation
            // reference goes to the caller with the dictionary.
            int64_t size = static_cast<int64_t>(info.st_size);
            LUMDictionarySetValue(values, key, LUMNumberCreate(allocator, kLUMNumberLongLongType, &size));
        } else {
            ok = false; // unknown keys, kLUMURLFileSizeKey among them
        }
    }
    *properties = values;
    return ok;
}

LUMTypeRef LUMURLCreatePropertyFromResource(LUMAllocatorRef allocator, LUMURLRef url, LUMStringRef property, LUMIndex *errorCode)
{
    const void *keys[] = {property};
    LUMArrayRef list = LUMArrayCreate(allocator, keys, 1, &kLUMTypeArrayCallBacks);
    LUMDictionaryRef values = nullptr;
    LUMTypeRef value = nullptr;
    // On failure the value is null; a file-length number made on the way
    // keeps its creation reference all the same (kept so: see the header).
    if (LUMURLCreateDataAndPropertiesFromResource(allocator, url, nullptr, &values, list, errorCode))
        value = LUMDictionaryGetValue(values, property);
    LUMRelease(values);
    LUMRelease(list);
    return value;
}

Boolean LUMURLWriteDataAndPropertiesToResource(LUMURLRef url, LUMDataRef data, LUMDictionaryRef properties, LUMIndex *errorCode)
{
    LUM_ASSERT_AT(286, _LUMTypeCheckValid(url, LUMURLGetTypeID()));
    LUM_ASSERT_AT(287, properties == NULL);
    char path[kPathBytes];
    Boolean ok = resolvedPathText(url, path);
    if (data == nullptr) return ok;
    int fd = open(path, O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return false;
    const UInt8 *bytes = LUMDataGetBytePtr(data);
    LUMIndex left = LUMDataGetLength(data);
    while (left > 0) {
        ssize_t n = write(fd, bytes, static_cast<size_t>(left));
        if (n == 0) break;
        if (n < 0) {
            ok = false;
            break;
        }
        bytes += n;
        left -= static_cast<LUMIndex>(n);
    }
    close(fd);
    return ok;
}
