/** @file LUMData.h — byte buffer objects, immutable or mutable.
 * Part of LumBase; MIT licence.
 *
 * A data object carries its own bytes deallocator, so caller bytes can be
 * adopted without copying and freed with the caller's allocator, or never
 * (kLUMAllocatorNull). Growth doubles the capacity until the needed size
 * fits and never shrinks; a data object with capacity 0 (adopted empty
 * bytes) grows from one byte and doubles from there. */
#ifndef LUMBASE_LUMDATA_H
#define LUMBASE_LUMDATA_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** The data class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMDataGetTypeID(void);

/** Copies the bytes into a block from allocator. NULL when memory runs out. */
LUM_EXPORT LUMDataRef LUMDataCreate(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length);
/** An immutable copy of the source's bytes. */
LUM_EXPORT LUMDataRef LUMDataCreateCopy(LUMAllocatorRef allocator, LUMDataRef data);
/** Adopts bytes; bytesDeallocator (retained) frees them at finalisation. */
LUM_EXPORT LUMDataRef LUMDataCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length, LUMAllocatorRef bytesDeallocator);
/** Empty, with a first block of 16 bytes; capacity is only a hint. */
LUM_EXPORT LUMMutableDataRef LUMDataCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity);
/** A mutable copy with the source's capacity; capacity is only a hint. */
LUM_EXPORT LUMMutableDataRef LUMDataCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMDataRef data);

/** The bytes, inside the object (valid until it changes or goes). */
LUM_EXPORT const UInt8 *LUMDataGetBytePtr(LUMDataRef data);
/** The number of bytes. */
LUM_EXPORT LUMIndex LUMDataGetLength(LUMDataRef data);
/** Copies the bytes of range; the range is not checked. */
LUM_EXPORT void LUMDataGetBytes(LUMDataRef data, LUMRange range, UInt8 *buffer);
/** Asserts that data is mutable. */
LUM_EXPORT UInt8 *LUMDataGetMutableBytePtr(LUMMutableDataRef data);

/** Lengthening zero-fills the new bytes; shortening only changes the length.
 * Neither checks mutability. */
LUM_EXPORT void LUMDataSetLength(LUMMutableDataRef data, LUMIndex length);
/** Lengthens by extraLength zero bytes, as LUMDataSetLength to length + extraLength. */
LUM_EXPORT void LUMDataIncreaseLength(LUMMutableDataRef data, LUMIndex extraLength);
/** Appends length bytes; data must be mutable (else an assertion ends the process). Growth that cannot be had leaves data unchanged. */
LUM_EXPORT void LUMDataAppendBytes(LUMMutableDataRef data, const UInt8 *bytes, LUMIndex length);
/** Replaces the bytes of range with newLength bytes (inserting when the range is empty); data must be mutable and the range inside it, else an assertion ends the process. The tail moved to make room is not zero-filled. */
LUM_EXPORT void LUMDataReplaceBytes(LUMMutableDataRef data, LUMRange range, const UInt8 *newBytes, LUMIndex newLength);
/** The range is not checked. */
LUM_EXPORT void LUMDataDeleteBytes(LUMMutableDataRef data, LUMRange range);

LUM_EXTERN_C_END

#endif
