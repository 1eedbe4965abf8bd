/** @file LUMURL.h — file URLs: POSIX paths, optionally relative to a base URL;
 * whole-file reading and writing; percent escapes.
 * Part of LumBase; MIT licence.
 *
 * Resolution is plain concatenation: the base's path (its last component
 * dropped when the base is not a directory), a slash, then the path; an
 * absolute path discards the base. "." and ".." and doubled slashes are kept
 * as they stand and left to the operating system. */
#ifndef LUMBASE_LUMURL_H
#define LUMBASE_LUMURL_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef LUMIndex LUMURLPathStyle; /**< How a path is written; only kLUMURLPOSIXPathStyle is supported. */
enum { kLUMURLPOSIXPathStyle = 0 };

/** @{ */
/** Property keys. FileExists gives a boolean; FileLength a number of type 11
 * holding st_size; FileSize is not handled (asking for it fails the read). */
LUM_EXPORT extern const LUMStringRef kLUMURLFileExists;
LUM_EXPORT extern const LUMStringRef kLUMURLFileLength;
LUM_EXPORT extern const LUMStringRef kLUMURLFileSizeKey;
/** @} */

/** The URL class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMURLGetTypeID(void);

/** A relative path gets a base for the current directory, captured now. */
LUM_EXPORT LUMURLRef LUMURLCreateWithFileSystemPath(LUMAllocatorRef allocator, LUMStringRef filePath, LUMURLPathStyle pathStyle,
                                                    Boolean isDirectory);
/** baseURL may be NULL: then a relative path stays relative. */
LUM_EXPORT LUMURLRef LUMURLCreateWithFileSystemPathRelativeToBase(LUMAllocatorRef allocator, LUMStringRef filePath,
                                                                  LUMURLPathStyle pathStyle, Boolean isDirectory, LUMURLRef baseURL);
/** The base URL the URL was made relative to, lent; NULL for none. */
LUM_EXPORT LUMURLRef LUMURLGetBaseURL(LUMURLRef url);
/** The path as given, not resolved. */
LUM_EXPORT LUMStringRef LUMURLCopyFileSystemPath(LUMURLRef url, LUMURLPathStyle pathStyle);
/** A URL for the resolved path. (The resolved-path string it makes for this
 * is not given back: a small leak per call, kept as it is.) */
LUM_EXPORT LUMURLRef LUMURLCopyAbsoluteURL(LUMURLRef url);
/** The path (resolved against the base when asked) as UTF-8 with a NUL;
 * false when the buffer is too small (a maxBufLen below 1 writes nothing) or
 * the path holds U+0000. */
LUM_EXPORT Boolean LUMURLGetFileSystemRepresentation(LUMURLRef url, Boolean resolveAgainstBase, UInt8 *buffer, LUMIndex maxBufLen);

/** Escapes every UTF-8 byte outside A-Z a-z 0-9 _ - ~ . as %XX (upper-case
 * hex). Both character sets must be NULL and the encoding UTF-8. */
LUM_EXPORT LUMStringRef LUMURLCreateStringByAddingPercentEscapes(LUMAllocatorRef allocator, LUMStringRef originalString,
                                                                 LUMStringRef charactersToLeaveUnescaped,
                                                                 LUMStringRef legalURLCharactersToBeEscaped, LUMStringEncoding encoding);
/** Decodes every %XX (charactersToLeaveEscaped must be the empty string). A
 * non-hex digit counts with its byte value as the nibble; a "%" among the
 * last two bytes reads zero bytes past the end of the text. */
LUM_EXPORT LUMStringRef LUMURLCreateStringByReplacingPercentEscapes(LUMAllocatorRef allocator, LUMStringRef originalString,
                                                                    LUMStringRef charactersToLeaveEscaped);

/** Reads the file whole (into *resourceData, when asked; a failed read may
 * leave a partial file there) and the properties named by desiredProperties
 * (or the default list built by _LUMURLInitializeModule; none when that was
 * never called) into *properties. False when the path, the file or an
 * unknown property fails. The caller owns *resourceData and *properties,
 * and also one reference of the file-length number in the dictionary.
 * errorCode is never written. */
LUM_EXPORT Boolean LUMURLCreateDataAndPropertiesFromResource(LUMAllocatorRef allocator, LUMURLRef url, LUMDataRef *resourceData,
                                                             LUMDictionaryRef *properties, LUMArrayRef desiredProperties,
                                                             LUMIndex *errorCode);
/** One property; the caller owns what it gets (booleans are constants).
 * Returns null when the resource call fails (the path has no file-system
 * form, or the property is unknown). Kept on purpose: asked for
 * kLUMURLFileLength, a failing call still makes the number and nobody
 * receives it, so it leaks with its creation reference. */
LUM_EXPORT LUMTypeRef LUMURLCreatePropertyFromResource(LUMAllocatorRef allocator, LUMURLRef url, LUMStringRef property, LUMIndex *errorCode);
/** Writes data as the whole file (created with mode 0644, truncated);
 * properties must be NULL. NULL data writes nothing. Kept as it is: the file
 * is truncated and written in place, with no temporary file and no fsync,
 * so a failure or a crash part-way leaves a truncated file. Where that
 * matters, write to a temporary path in the same directory and rename() it
 * over the original. */
LUM_EXPORT Boolean LUMURLWriteDataAndPropertiesToResource(LUMURLRef url, LUMDataRef data, LUMDictionaryRef properties, LUMIndex *errorCode);

LUM_EXTERN_C_END

#endif
