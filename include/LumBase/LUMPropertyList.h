/** @file LUMPropertyList.h — the JSON reader and writer for property lists: trees
 * of dictionaries, arrays, strings, numbers, booleans and null.
 * Part of LumBase; MIT licence.
 *
 * The reader is a table-driven automaton over single bytes with its own
 * exact rules, deliberately kept: only an object or an array is accepted at
 * the top; bytes are taken as code units (UTF-8 is not decoded, so a two-byte
 * letter becomes two units); a number is a double when it ends in the states
 * of "0", integer digits or exponent digits, and a 32-bit integer otherwise
 * (so [12] reads 12.0 and [1.5] reads 1); whitespace before a delimiter joins
 * the value's text (so [true ] reads false). Malformed input is never
 * reported: a failing byte drops the rest of its 1024-byte chunk, and the
 * result is whatever reached the top (a container counts from its opening
 * bracket). The writer writes compact JSON: keys in the dictionary's slot
 * order, doubles with "%f", every character outside 32..127 as \\uXXXX.
 *
 * These rules are kept for programs that depend on them. New code reads
 * and writes standard JSON with LUMJSON.h, which decodes UTF-8, keeps
 * numbers exact and reports where a document is wrong. */
#ifndef LUMBASE_LUMPROPERTYLIST_H
#define LUMBASE_LUMPROPERTYLIST_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef int32_t LUMPropertyListFormat; /**< A property-list format; only kLUMPropertyListJSONFormat (1000000) is supported. */
enum { kLUMPropertyListJSONFormat = 1000000 };

typedef LUMOptionFlags LUMPropertyListMutabilityOptions; /**< Options of the readers (stored, not read). */

/** Reads the whole stream (neither opened nor closed) and returns the top
 * value, or NULL. format receives kLUMPropertyListJSONFormat and error NULL.
 *
 * For input you do not control, know what this reader keeps for the sake of
 * existing programs: it never reports an error (error is set to NULL);
 * malformed documents such as {"a": [1, 2} are accepted and unclosed
 * containers come back as far as they got; bytes are not checked as UTF-8;
 * a failing byte drops the rest of the chunk it was read in (the stream's
 * chunks, 1024 bytes at most), and when that splits a backslash escape so
 * that a non-hex byte lands in a \\u escape, the process ends through an
 * assertion. A document of at most 1024 bytes read with
 * LUMPropertyListCreateWithData is read in one chunk and cannot reach that
 * assertion; for larger untrusted documents check them before reading. */
LUM_EXPORT LUMPropertyListRef LUMPropertyListCreateWithStream(LUMAllocatorRef allocator, LUMReadStreamRef stream, LUMIndex streamLength,
                                                              LUMOptionFlags options, LUMPropertyListFormat *format, LUMErrorRef *error);
/** As LUMPropertyListCreateWithStream over a stream of the bytes of data (which must outlive the call); the caller owns the result, NULL when nothing was read. */
LUM_EXPORT LUMPropertyListRef LUMPropertyListCreateWithData(LUMAllocatorRef allocator, LUMDataRef data, LUMOptionFlags options,
                                                            LUMPropertyListFormat *format, LUMErrorRef *error);
/** Writes the tree as JSON; returns the bytes written, or 0 for a format other
 * than JSON (error is then left alone). Kept as it is: integers are written
 * through 32-bit %ld, doubles through %f (so an infinite double is written
 * as inf and NaN as nan, which no JSON reader accepts), and every byte above
 * 127 as \\u00XX; check doubles for finiteness before writing trees that
 * other programs read. */
LUM_EXPORT LUMIndex LUMPropertyListWrite(LUMPropertyListRef propertyList, LUMWriteStreamRef stream, LUMPropertyListFormat format,
                                         LUMOptionFlags options, LUMErrorRef *error);
/** The JSON bytes in a new data object (allocator is not used). */
LUM_EXPORT LUMDataRef LUMPropertyListCreateData(LUMAllocatorRef allocator, LUMPropertyListRef propertyList, LUMPropertyListFormat format,
                                                LUMOptionFlags options, LUMErrorRef *error);
/** True only for a dictionary with the JSON format; arrays are not valid at
 * the top, deliberately. Nothing inside the tree is examined. */
LUM_EXPORT Boolean LUMPropertyListIsValid(LUMPropertyListRef plist, LUMPropertyListFormat format);

LUM_EXTERN_C_END

#endif
