/** @file LUMArray.h — ordered, index-addressed sequences of pointer-sized values,
 * and the array callback record.
 * Part of LumBase; MIT licence.
 *
 * Element handling follows the callback record given at creation (copied into
 * the array): non-NULL values are stored through retain and dropped through
 * release; NULL values never reach either. Values compare equal when they are
 * the same pointer, or when both are non-NULL and the equal callback agrees.
 * A NULL record means raw pointers compared by identity.
 *
 * Growth: the slot block doubles until it holds the needed count and never
 * shrinks. An array made with no values has no slots; its first growth
 * starts from one slot and doubles from there (doubling alone could never
 * leave zero). */
#ifndef LUMBASE_LUMARRAY_H
#define LUMBASE_LUMARRAY_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef const void *(*LUMArrayRetainCallBack)(LUMAllocatorRef allocator, const void *value); /**< Takes a reference to a value as it is stored (with the array's allocator); returns what is stored. */
typedef void (*LUMArrayReleaseCallBack)(LUMAllocatorRef allocator, const void *value); /**< Drops a stored value (with the array's allocator). */
typedef LUMStringRef (*LUMArrayCopyDescriptionCallBack)(const void *value); /**< Describes a value. */
typedef Boolean (*LUMArrayEqualCallBack)(const void *value1, const void *value2); /**< Whether two values are equal. */

/** Only the array's retain and release receive the container's allocator. */
typedef struct {
    LUMIndex version; /**< 0 */
    LUMArrayRetainCallBack retain; /**< NULL: values are stored as they are */
    LUMArrayReleaseCallBack release; /**< NULL: nothing happens when a value leaves */
    LUMArrayCopyDescriptionCallBack copyDescription; /**< NULL: values are described by address */
    LUMArrayEqualCallBack equal; /**< NULL: values match by identity */
} LUMArrayCallBacks;

/** Retains and releases objects, compares with LUMEqual, describes with
 * LUMCopyDescription. */
LUM_EXPORT extern const LUMArrayCallBacks kLUMTypeArrayCallBacks;

typedef void (*LUMArrayApplierFunction)(const void *value, void *context); /**< Called with each value in a range, in order, and the caller's context. */
/** Returns -1, 0 or 1. */
typedef LUMComparisonResult (*LUMComparatorFunction)(const void *val1, const void *val2, void *context);

/** The array class's type ID (registered on first call). */
LUM_EXPORT LUMTypeID LUMArrayGetTypeID(void);

/** An immutable array of numValues values, each stored through callBacks'
 * retain (NULL callBacks: values stored as they are). The caller owns the
 * result; NULL when the object or its block cannot be made. */
LUM_EXPORT LUMArrayRef LUMArrayCreate(LUMAllocatorRef allocator, const void **values, LUMIndex numValues, const LUMArrayCallBacks *callBacks);
/** An immutable copy with the source's callbacks; the values are retained
 * again. The caller owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMArrayRef LUMArrayCreateCopy(LUMAllocatorRef allocator, LUMArrayRef array);
/** An empty mutable array with 10 slots; capacity is only a hint. The caller
 * owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMMutableArrayRef LUMArrayCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMArrayCallBacks *callBacks);
/** A mutable copy; capacity is ignored (the slot count comes from the source).
 * The caller owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMMutableArrayRef LUMArrayCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMArrayRef array);

/* Queries trust their indices and ranges: nothing is checked, and a range
 * outside the array reads memory that is not the array's. Values are
 * borrowed. Equality is the callbacks' rule: identical pointers, else the
 * equal callback when both values are non-NULL. */

/** The number of values. */
LUM_EXPORT LUMIndex LUMArrayGetCount(LUMArrayRef array);
/** The value at idx (borrowed). */
LUM_EXPORT const void *LUMArrayGetValueAtIndex(LUMArrayRef array, LUMIndex idx);
/** Copies the values of range, in order, into values (range.length slots). */
LUM_EXPORT void LUMArrayGetValues(LUMArrayRef array, LUMRange range, const void **values);
/** How many values of range equal value. */
LUM_EXPORT LUMIndex LUMArrayGetCountOfValue(LUMArrayRef array, LUMRange range, const void *value);
/** Whether some value of range equals value. */
LUM_EXPORT Boolean LUMArrayContainsValue(LUMArrayRef array, LUMRange range, const void *value);
/** The index (into the whole array) of the first value of range equal to
 * value, or -1. */
LUM_EXPORT LUMIndex LUMArrayGetFirstIndexOfValue(LUMArrayRef array, LUMRange range, const void *value);
/** The index of the last value of range equal to value, or -1 (the whole
 * range is scanned forwards). */
LUM_EXPORT LUMIndex LUMArrayGetLastIndexOfValue(LUMArrayRef array, LUMRange range, const void *value);
/** Calls applier(value, context) for each value of range, in index order. */
LUM_EXPORT void LUMArrayApplyFunction(LUMArrayRef array, LUMRange range, LUMArrayApplierFunction applier, void *context);
/** The index of a value the comparator calls equal, or -1; no insertion point
 * is reported. */
LUM_EXPORT LUMIndex LUMArrayBSearchValues(LUMArrayRef array, LUMRange range, const void *value, LUMComparatorFunction comparator, void *context);

/* Mutation. Only LUMArraySetValueAtIndex and LUMArraySortValues assert that
 * the array is mutable; indices are otherwise trusted. When the block cannot
 * grow (the size cannot be represented or allocated) the array is left as it
 * was and the value is neither stored nor retained. */

/** Appends value, retained through the array's callbacks. */
LUM_EXPORT void LUMArrayAppendValue(LUMMutableArrayRef array, const void *value);
/** Appends each value of otherRange of otherArray, in order, one insert each. */
LUM_EXPORT void LUMArrayAppendArray(LUMMutableArrayRef array, LUMArrayRef otherArray, LUMRange otherRange);
/** Moves the values from idx on up by one and stores value (retained) at idx. */
LUM_EXPORT void LUMArrayInsertValueAtIndex(LUMMutableArrayRef array, LUMIndex idx, const void *value);
/** Replaces the value at idx: the new one is retained first, then the old one
 * released (so setting a value over itself is safe). Asserts
 * "array->isMutable" and "index < array->count". */
LUM_EXPORT void LUMArraySetValueAtIndex(LUMMutableArrayRef array, LUMIndex idx, const void *value);
/** Takes the value at idx, moves the following values down, releases the
 * taken value, then decrements the count (a release callback sees the old
 * count). */
LUM_EXPORT void LUMArrayRemoveValueAtIndex(LUMMutableArrayRef array, LUMIndex idx);
/** Removes the values from the last to the first, as LUMArrayRemoveValueAtIndex. */
LUM_EXPORT void LUMArrayRemoveAllValues(LUMMutableArrayRef array);
/** Swaps two values; nothing is retained or released. */
LUM_EXPORT void LUMArrayExchangeValuesAtIndices(LUMMutableArrayRef array, LUMIndex idx1, LUMIndex idx2);
/** Replaces range with newCount values, in this order: the new values are
 * retained into a temporary buffer; the first min(newCount, range.length)
 * slots are overwritten (old values released); the remaining new values are
 * inserted as passed, so they are retained twice; when the range is longer,
 * range.length - newCount values following the range (at range.location +
 * range.length) are removed. Above 256 new values the temporary buffer comes
 * from the array's allocator and is not given back. Kept as it is. */
LUM_EXPORT void LUMArrayReplaceValues(LUMMutableArrayRef array, LUMRange range, const void **newValues, LUMIndex newCount);
/** A stable bubble sort of range: neighbours are exchanged only when the
 * comparator returns exactly 1. */
LUM_EXPORT void LUMArraySortValues(LUMMutableArrayRef array, LUMRange range, LUMComparatorFunction comparator, void *context);

LUM_EXTERN_C_END

#endif
