/** @file LUMJSON.h — standard JSON (RFC 8259) for property lists: a strict reader
 * that says where a document is wrong, and a writer whose text any JSON
 * reader takes back unchanged.
 * Part of LumBase; MIT licence.
 *
 * Which reader to use. New code reads and writes JSON here. The reader of
 * LUMPropertyList.h is kept, rule for rule, for programs that already
 * depend on it: it does not decode UTF-8, reads [0.75] as the integer 0 and
 * [8080,] as 8080.0, accepts malformed documents such as {"a": [1, 2} and
 * never reports an error; its writer prints 32-bit integers, doubles
 * through %f and every byte above 127 as \\u00XX. A file read and written
 * back through it can change; through the functions below it cannot.
 *
 * What the reader gives:
 *  - any value at the top: object, array, string, number, true, false, null;
 *  - objects as dictionaries and arrays as arrays, both with the library's
 *    own callbacks (kLUMTypeDictionaryKeyCallBacks and friends), immutable
 *    unless kLUMJSONReadingMutableContainers is given; strings as immutable
 *    strings, true and false as kLUMBooleanTrue and kLUMBooleanFalse, null
 *    as kLUMNull;
 *  - UTF-8 validated and decoded, surrogate-pair escapes combined; invalid
 *    UTF-8, a lone surrogate escape or an unescaped control character is an
 *    error;
 *  - a number without fraction or exponent that fits 32 bits as
 *    kLUMNumberSInt32Type, one that fits 64 bits as kLUMNumberSInt64Type,
 *    every other number as the correctly rounded double (whatever the C
 *    locale says); a number too large for a double (1e400) is an error, one
 *    too small becomes 0 or a subnormal;
 *  - duplicate keys: the last value wins, in the place of the first key;
 *  - no depth limit: the reader keeps its own stack, so a document nested a
 *    million levels deep reads (and its tree releases) on a small C stack.
 * Objects are shared within one read: keys with equal text are one string
 * object, and so are strings of up to 32 bytes with equal text and integers
 * with equal values (up to 65,536 of each); all are immutable, and such an
 * object has a retain count above 1. Scratch memory the reader and the
 * writer use for a call comes from the C library, not from an allocator;
 * the objects of the result come from the allocator given.
 *
 * Errors. Bad input is never fatal: the result is NULL, nothing leaks, and
 * when error is not NULL it receives a new error (the caller releases it;
 * it is made with the default allocator, so that an allocator that ran out
 * still yields one) in
 * kLUMJSONErrorDomain with one of the codes below and, for the reader, the
 * user-info keys kLUMJSONErrorByteOffsetKey (offset of the offending byte
 * from the start of the document), kLUMJSONErrorLineKey and
 * kLUMJSONErrorColumnKey (both from 1; columns count characters) as
 * numbers, and kLUMErrorLocalizedDescriptionKey, so that
 * LUMErrorCopyDescription gives a sentence such as
 * "Unexpected character 'x' at line 3, column 7". Passing something that is
 * not a data object, stream or writable stream where one is expected is a
 * programming error and ends the process through an assertion. */
#ifndef LUMBASE_LUMJSON_H
#define LUMBASE_LUMJSON_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** Reading options. */
enum {
    /** Arrays and dictionaries of the result are mutable (strings are not). */
    kLUMJSONReadingMutableContainers = 1u << 0
};

/** Writing options. */
enum {
    /** Two-space indent, one element or key per line, "key": value, and a
     * final newline after the top value. Empty containers stay [] and {}. */
    kLUMJSONWritingPrettyPrinted = 1u << 0,
    /** Keys in the order of their Unicode code points (the order of their
     * UTF-8 bytes) instead of the dictionary's order. */
    kLUMJSONWritingSortedKeys = 1u << 1
};

/** The domain of every error made here: "LUMJSONErrorDomain". */
LUM_EXPORT extern const LUMStringRef kLUMJSONErrorDomain;
/** @{ */
/** User-info keys of a reading error; values are LUMNumbers. */
LUM_EXPORT extern const LUMStringRef kLUMJSONErrorByteOffsetKey;
LUM_EXPORT extern const LUMStringRef kLUMJSONErrorLineKey;
LUM_EXPORT extern const LUMStringRef kLUMJSONErrorColumnKey;
/** @} */

/** Error codes. */
enum {
    /** A byte that cannot stand where it is: "Unexpected character 'x' …",
     * or "Unexpected byte 0x0A …" for one that is not printable ASCII
     * (control characters inside strings included). */
    kLUMJSONErrorUnexpectedCharacter = 1,
    /** The document ends inside a value, or is empty. */
    kLUMJSONErrorUnexpectedEnd = 2,
    /** Bytes that are not UTF-8 (overlong forms and encoded surrogates
     * included); the offset is that of the sequence's first byte. */
    kLUMJSONErrorInvalidUTF8 = 3,
    /** A backslash escape JSON does not define, a \\u escape without four hex
     * digits, or a lone surrogate escape; the offset is the backslash's. */
    kLUMJSONErrorInvalidEscape = 4,
    /** A number that breaks the grammar (01, 1., -x, 1e) or is too large
     * for a double; the offset is the offending byte, or the number's first
     * byte when it is out of range. */
    kLUMJSONErrorInvalidNumber = 5,
    /** Something other than whitespace after the top value. */
    kLUMJSONErrorTrailingGarbage = 6,
    /** Writing: a NaN or infinite double, a value that is not a property
     * list (data, dates, …), a dictionary key that is not a string, a
     * string with an unpaired surrogate, or a container that contains
     * itself. */
    kLUMJSONErrorInvalidValue = 7,
    /** The stream failed while reading or writing. */
    kLUMJSONErrorStream = 8,
    /** The allocator gave no memory for an object of the result. */
    kLUMJSONErrorNoMemory = 9
};

/** Reads one JSON document from the bytes of data. Returns the top value
 * (the caller owns it), or NULL with *error set as described above. */
LUM_EXPORT LUMPropertyListRef LUMJSONCreateWithData(LUMAllocatorRef allocator, LUMDataRef data, LUMOptionFlags options,
                                                    LUMErrorRef *error);

/** Reads the stream to its end (it must be open; it is not closed) and then
 * reads that as one JSON document, as LUMJSONCreateWithData does. Offsets
 * count from the first byte read here. A stream that fails gives NULL and
 * kLUMJSONErrorStream. */
LUM_EXPORT LUMPropertyListRef LUMJSONCreateWithStream(LUMAllocatorRef allocator, LUMReadStreamRef stream, LUMOptionFlags options,
                                                      LUMErrorRef *error);

/** The JSON text of plist in a new data object from allocator (the caller
 * owns it), or NULL with *error set. Strings are written as UTF-8 escaping
 * only what JSON requires (quote, backslash, control characters), integers
 * exactly, doubles as the shortest text that reads back to the same double
 * (with ".0" when it would otherwise read as an integer), keys in the
 * dictionary's order unless kLUMJSONWritingSortedKeys is given. */
LUM_EXPORT LUMDataRef LUMJSONCreateData(LUMAllocatorRef allocator, LUMPropertyListRef plist, LUMOptionFlags options, LUMErrorRef *error);

/** Writes the JSON text of plist to an open stream and returns the number of
 * bytes written, or 0 with *error set. The tree is checked before the first
 * byte is written, so a value that cannot be written leaves the stream
 * untouched; a stream that fails part way has taken the bytes before. */
LUM_EXPORT LUMIndex LUMJSONWrite(LUMPropertyListRef plist, LUMWriteStreamRef stream, LUMOptionFlags options, LUMErrorRef *error);

LUM_EXTERN_C_END

#endif
