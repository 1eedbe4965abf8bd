/** @file LUMString.h — string objects: UTF-8 byte or UTF-16 unit storage, constant
 * strings, the formatting engine, editing, search, comparison, conversion.
 * Part of LumBase; MIT licence.
 *
 * A string is a sequence of UTF-16 code units. Immutable strings made from C
 * strings or bytes keep the NUL-terminated UTF-8 bytes; strings made from
 * characters, substrings and every mutable string keep an array of units.
 * The only encoding is UTF-8. */
#ifndef LUMBASE_LUMSTRING_H
#define LUMBASE_LUMSTRING_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef UInt32 LUMStringEncoding; /**< A text encoding; only kLUMStringEncodingUTF8 is supported. */
enum { kLUMStringEncodingUTF8 = 0x08000100 };

typedef LUMOptionFlags LUMCompareFlags; /**< Options of comparisons and searches. */
enum {
    kLUMCompareCaseInsensitive = 1, /**< LUMStringCompare: ASCII letters fold to upper case */
    kLUMCompareBackwards = 4        /**< LUMStringFindWithOptions: last position first */
};

/** A caller-owned cache for reading a string's characters in sequence. Fill it
 * with LUMStringInitInlineBuffer; read with
 * LUMStringGetCharacterFromInlineBuffer. */
typedef struct {
    UniChar buffer[64]; /**< units of the range, refilled as reading moves on */
    LUMStringRef theString; /**< the string read */
    const UniChar *directBuffer; /**< the string's own units when it keeps units, else NULL */
    LUMRange rangeToBuffer; /**< the range of the string the buffer reads */
    LUMIndex bufferedRangeStart; /**< the first index (in the range) held in buffer */
    LUMIndex bufferedRangeEnd; /**< one past the last index held in buffer */
} LUMStringInlineBuffer;

/** The string class's type ID (always 2). */
LUM_EXPORT LUMTypeID LUMStringGetTypeID(void);

/* ---- Constant strings -------------------------------------------------- */

/** The process-lifetime string for cStr, one per distinct text. Retain and
 * release do nothing to it. Pass only string literals: the string keeps the
 * caller's pointer for the life of the process and is found again by its
 * text, so a buffer that is later reused or freed (a stack array, a
 * std::string) changes or breaks every later LUMSTR of that text. For text
 * made at run time use LUMStringCreateWithCString and release it. */
LUM_EXPORT LUMStringRef LUMSTR(const char *cStr);

/* ---- Creation: every function returns a new string the caller releases --- */

/** Copies the bytes up to and with the NUL. */
LUM_EXPORT LUMStringRef LUMStringCreateWithCString(LUMAllocatorRef allocator, const char *cStr, LUMStringEncoding encoding);
/** Uses cStr itself; contentsDeallocator (retained; NULL means the default
 * allocator, kLUMAllocatorNull means never) receives it at finalisation. */
LUM_EXPORT LUMStringRef LUMStringCreateWithCStringNoCopy(LUMAllocatorRef allocator, const char *cStr, LUMStringEncoding encoding, LUMAllocatorRef contentsDeallocator);
/** Copies numBytes bytes and adds a NUL. */
LUM_EXPORT LUMStringRef LUMStringCreateWithBytes(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex numBytes, LUMStringEncoding encoding);
/** Copies the bytes like LUMStringCreateWithBytes, then hands the caller's
 * bytes to contentsDeallocator at once when it is not NULL. */
LUM_EXPORT LUMStringRef LUMStringCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex numBytes, LUMStringEncoding encoding, Boolean isExternalRepresentation, LUMAllocatorRef contentsDeallocator);
/** The data's bytes as text (a NUL is added). */
LUM_EXPORT LUMStringRef LUMStringCreateFromExternalRepresentation(LUMAllocatorRef allocator, LUMDataRef data, LUMStringEncoding encoding);
/** UTF-8; asserts a valid or NULL allocator and a non-NULL buffer. */
LUM_EXPORT LUMStringRef LUMStringCreateWithFileSystemRepresentation(LUMAllocatorRef allocator, const char *buffer);
/** Copies numChars units. */
LUM_EXPORT LUMStringRef LUMStringCreateWithCharacters(LUMAllocatorRef allocator, const UniChar *chars, LUMIndex numChars);
/** Uses chars itself; contentsDeallocator as for the C-string form. */
LUM_EXPORT LUMStringRef LUMStringCreateWithCharactersNoCopy(LUMAllocatorRef allocator, const UniChar *chars, LUMIndex numChars, LUMAllocatorRef contentsDeallocator);
/** The characters of range; asserts the range lies inside str. */
LUM_EXPORT LUMStringRef LUMStringCreateWithSubstring(LUMAllocatorRef allocator, LUMStringRef str, LUMRange range);
/** An immutable str retained when allocator is the very allocator str reports;
 * otherwise a new string of the same storage form. */
LUM_EXPORT LUMStringRef LUMStringCreateCopy(LUMAllocatorRef allocator, LUMStringRef str);
/** An empty mutable string with room for 32 units; maxLength must be 0.
 * NULL when memory runs out. */
LUM_EXPORT LUMMutableStringRef LUMStringCreateMutable(LUMAllocatorRef allocator, LUMIndex maxLength);
/** A mutable copy of str; maxLength must be 0. */
LUM_EXPORT LUMMutableStringRef LUMStringCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex maxLength, LUMStringRef str);

/* ---- Access ------------------------------------------------------------- */

/** The number of UTF-16 units in str. */
LUM_EXPORT LUMIndex LUMStringGetLength(LUMStringRef str);
/** The unit array of a unit-form string, else NULL. */
LUM_EXPORT const UniChar *LUMStringGetCharactersPtr(LUMStringRef str);
/** The byte buffer of a byte-form string stored with this encoding, else NULL. */
LUM_EXPORT const char *LUMStringGetCStringPtr(LUMStringRef str, LUMStringEncoding encoding);
/** Copies the units of range into buffer. */
LUM_EXPORT void LUMStringGetCharacters(LUMStringRef str, LUMRange range, UniChar *buffer);
/** Writes the text as UTF-8 with a NUL. A character is written only when it
 * leaves two bytes free, so at most bufferSize - 2 bytes of text fit. A text
 * that does not fit is cut at a character boundary and the result is false.
 * A bufferSize below 1 writes nothing and gives false (buffer may then be
 * NULL). */
LUM_EXPORT Boolean LUMStringGetCString(LUMStringRef str, char *buffer, LUMIndex bufferSize, LUMStringEncoding encoding);
/** LUMStringGetCString as UTF-8; false, with an empty path in the buffer
 * (when it has a byte), for a text holding U+0000, which no path can hold. */
LUM_EXPORT Boolean LUMStringGetFileSystemRepresentation(LUMStringRef str, char *buffer, LUMIndex maxBufLen);
/** @{ */
/** length * 3: enough UTF-8 bytes for length units. */
LUM_EXPORT LUMIndex LUMStringGetMaximumSizeForEncoding(LUMIndex length, LUMStringEncoding encoding);
LUM_EXPORT LUMIndex LUMStringGetMaximumSizeOfFileSystemRepresentation(LUMStringRef str);
/** @} */
/** A new mutable data object with the UTF-8 bytes, no NUL. */
LUM_EXPORT LUMDataRef LUMStringCreateExternalRepresentation(LUMAllocatorRef allocator, LUMStringRef str, LUMStringEncoding encoding, UInt8 lossByte);

/** Prepares buf to read the units of range in str one by one; the range must lie inside str (else an assertion ends the process). str must outlive buf. */
LUM_EXPORT void LUMStringInitInlineBuffer(LUMStringRef str, LUMStringInlineBuffer *buf, LUMRange range);
/** The unit at idx of the buffered range, or 0 outside it. */
LUM_EXPORT UniChar LUMStringGetCharacterFromInlineBuffer(LUMStringInlineBuffer *buf, LUMIndex idx);

/* ---- Formatting ---------------------------------------------------------- */

/** @{ */
/** Formats like printf: C conversions d i o u x X e E f F g G a A p s,
 * flags, widths, precisions, "*" and n$ positions, and %@ for the
 * description of any object. Integers are fetched as int (as long with l or
 * ll) and printed as a C long. At most ten '%' characters per format (a %%
 * counts as two); more end the process through an assertion. formatOptions
 * is ignored. The Create functions return a new string owned by the caller;
 * the Append functions add the text to a mutable string. */
LUM_EXPORT LUMStringRef LUMStringCreateWithFormat(LUMAllocatorRef allocator, LUMTypeRef formatOptions, LUMStringRef format, ...);
LUM_EXPORT LUMStringRef LUMStringCreateWithFormatAndArguments(LUMAllocatorRef allocator, LUMTypeRef formatOptions, LUMStringRef format, va_list arguments);
LUM_EXPORT void LUMStringAppendFormat(LUMMutableStringRef str, LUMTypeRef formatOptions, LUMStringRef format, ...);
LUM_EXPORT void LUMStringAppendFormatAndArguments(LUMMutableStringRef str, LUMTypeRef formatOptions, LUMStringRef format, va_list arguments);
/** @} */

/* ---- Editing (str must be mutable) -------------------------------------- */

/** Appends appendedString's units (a string may be appended to itself). Growth that cannot be had leaves str unchanged. */
LUM_EXPORT void LUMStringAppend(LUMMutableStringRef str, LUMStringRef appendedString);
/** Appends numChars units (they may lie in str itself). Growth that cannot be had leaves str unchanged. */
LUM_EXPORT void LUMStringAppendCharacters(LUMMutableStringRef str, const UniChar *chars, LUMIndex numChars);
/** Appends NUL-terminated UTF-8 text, decoded leniently as the string creators decode it. */
LUM_EXPORT void LUMStringAppendCString(LUMMutableStringRef str, const char *cStr, LUMStringEncoding encoding);
/** Removes the units of range, which must lie inside str (else an assertion ends the process). */
LUM_EXPORT void LUMStringDelete(LUMMutableStringRef str, LUMRange range);
/** Replaces range with replacement; inserting is replacing an empty range. */
LUM_EXPORT void LUMStringReplace(LUMMutableStringRef str, LUMRange range, LUMStringRef replacement);
/** Makes str's contents equal to replacement. */
LUM_EXPORT void LUMStringReplaceAll(LUMMutableStringRef str, LUMStringRef replacement);

/* ---- Query -------------------------------------------------------------- */

/** Orders by code unit; only kLUMCompareCaseInsensitive (ASCII letters fold
 * to upper case) is accepted. */
LUM_EXPORT LUMComparisonResult LUMStringCompare(LUMStringRef a, LUMStringRef b, LUMCompareFlags compareOptions);
/** As LUMStringCompare, with a's characters taken from rangeOfA. */
LUM_EXPORT LUMComparisonResult LUMStringCompareWithOptions(LUMStringRef a, LUMStringRef b, LUMRange rangeOfA, LUMCompareFlags compareOptions);
/** Whether str begins with the units of prefix. */
LUM_EXPORT Boolean LUMStringHasPrefix(LUMStringRef str, LUMStringRef prefix);
/** Whether str ends with the units of suffix. */
LUM_EXPORT Boolean LUMStringHasSuffix(LUMStringRef str, LUMStringRef suffix);
/** Searches the whole string; (kLUMNotFound, 0) when absent. When stringToFind
 * is longer than str the result is not set by the search (see below). */
LUM_EXPORT LUMRange LUMStringFind(LUMStringRef str, LUMStringRef stringToFind, LUMCompareFlags compareOptions);
/** Searches rangeToSearch; on a match stores (offset relative to
 * rangeToSearch.location, length) in *result. A stringToFind longer than the
 * range returns true at once and leaves *result untouched: callers that care
 * compare the lengths first. Only kLUMCompareBackwards is accepted. */
LUM_EXPORT Boolean LUMStringFindWithOptions(LUMStringRef str, LUMStringRef stringToFind, LUMRange rangeToSearch, LUMCompareFlags compareOptions, LUMRange *result);
/** A new array of new strings, the pieces between separators. Only the first
 * separator is handled correctly: a text with two or more ends in the
 * substring assertion (the reported search location is relative to the rest
 * of the text, but is used as an absolute index), and so does a text shorter
 * than the separator. An empty separator is an assertion failure for any
 * non-empty text (splitting on it could not end). */
LUM_EXPORT LUMArrayRef LUMStringCreateArrayBySeparatingStrings(LUMStringRef str, LUMStringRef separator);
/** strtol in base 10 over the text (first 127 bytes of a unit-form string),
 * saturated to the 32-bit range on every platform. */
LUM_EXPORT int32_t LUMStringGetIntValue(LUMStringRef str);
/** strtod over the text (first 127 bytes of a unit-form string). */
LUM_EXPORT double LUMStringGetDoubleValue(LUMStringRef str);

LUM_EXTERN_C_END

#endif
