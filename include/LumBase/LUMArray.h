/* LUMArray.h — ordered, index-addressed sequences of pointer-sized values,
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

typedef const void *(*LUMArrayRetainCallBack)(LUMAllocatorRef allocator, const void *value);
typedef void (*LUMArrayReleaseCallBack)(LUMAllocatorRef allocator, const void *value);
typedef LUMStringRef (*LUMArrayCopyDescriptionCallBack)(const void *value);
typedef Boolean (*LUMArrayEqualCallBack)(const void *value1, const void *value2);

/* Only the array's retain and release receive the container's allocator. */
typedef struct {
    LUMIndex version;
    LUMArrayRetainCallBack retain;
    LUMArrayReleaseCallBack release;
    LUMArrayCopyDescriptionCallBack copyDescription;
    LUMArrayEqualCallBack equal;
} LUMArrayCallBacks;

/* Retains and releases objects, compares with LUMEqual, describes with
 * LUMCopyDescription. */
LUM_EXPORT extern const LUMArrayCallBacks kLUMTypeArrayCallBacks;

typedef void (*LUMArrayApplierFunction)(const void *value, void *context);
/* Returns -1, 0 or 1. */
typedef LUMComparisonResult (*LUMComparatorFunction)(const void *val1, const void *val2, void *context);

LUM_EXPORT LUMTypeID LUMArrayGetTypeID(void);

/* An immutable array of numValues values. NULL if the object cannot be made. */
LUM_EXPORT LUMArrayRef LUMArrayCreate(LUMAllocatorRef allocator, const void **values, LUMIndex numValues, const LUMArrayCallBacks *callBacks);
/* An immutable copy; the source's values are retained again. */
LUM_EXPORT LUMArrayRef LUMArrayCreateCopy(LUMAllocatorRef allocator, LUMArrayRef array);
/* An empty mutable array with 10 slots; capacity is only a hint. */
LUM_EXPORT LUMMutableArrayRef LUMArrayCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMArrayCallBacks *callBacks);
/* A mutable copy; capacity is ignored (the slot count comes from the source). */
LUM_EXPORT LUMMutableArrayRef LUMArrayCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMArrayRef array);

/* Queries trust their indices and ranges. */
LUM_EXPORT LUMIndex LUMArrayGetCount(LUMArrayRef array);
LUM_EXPORT const void *LUMArrayGetValueAtIndex(LUMArrayRef array, LUMIndex idx);
LUM_EXPORT void LUMArrayGetValues(LUMArrayRef array, LUMRange range, const void **values);
LUM_EXPORT LUMIndex LUMArrayGetCountOfValue(LUMArrayRef array, LUMRange range, const void *value);
LUM_EXPORT Boolean LUMArrayContainsValue(LUMArrayRef array, LUMRange range, const void *value);
LUM_EXPORT LUMIndex LUMArrayGetFirstIndexOfValue(LUMArrayRef array, LUMRange range, const void *value);
LUM_EXPORT LUMIndex LUMArrayGetLastIndexOfValue(LUMArrayRef array, LUMRange range, const void *value);
LUM_EXPORT void LUMArrayApplyFunction(LUMArrayRef array, LUMRange range, LUMArrayApplierFunction applier, void *context);
/* The index of a value the comparator calls equal, or -1; no insertion point
 * is reported. */
LUM_EXPORT LUMIndex LUMArrayBSearchValues(LUMArrayRef array, LUMRange range, const void *value, LUMComparatorFunction comparator, void *context);

/* Mutation. Only LUMArraySetValueAtIndex and LUMArraySortValues assert that
 * the array is mutable. */
LUM_EXPORT void LUMArrayAppendValue(LUMMutableArrayRef array, const void *value);
LUM_EXPORT void LUMArrayAppendArray(LUMMutableArrayRef array, LUMArrayRef otherArray, LUMRange otherRange);
LUM_EXPORT void LUMArrayInsertValueAtIndex(LUMMutableArrayRef array, LUMIndex idx, const void *value);
LUM_EXPORT void LUMArraySetValueAtIndex(LUMMutableArrayRef array, LUMIndex idx, const void *value);
LUM_EXPORT void LUMArrayRemoveValueAtIndex(LUMMutableArrayRef array, LUMIndex idx);
LUM_EXPORT void LUMArrayRemoveAllValues(LUMMutableArrayRef array);
LUM_EXPORT void LUMArrayExchangeValuesAtIndices(LUMMutableArrayRef array, LUMIndex idx1, LUMIndex idx2);
/* Replaces range with newCount values, in this order: the new values are
 * retained into a temporary buffer; the first min(newCount, range.length)
 * slots are overwritten (old values released); the remaining new values are
 * inserted as passed, so they are retained twice; when the range is longer,
 * range.length - newCount values following the range (at range.location +
 * range.length) are removed. Above 256 new values the temporary buffer comes
 * from the array's allocator and is not given back. Kept as it is. */
LUM_EXPORT void LUMArrayReplaceValues(LUMMutableArrayRef array, LUMRange range, const void **newValues, LUMIndex newCount);
/* A stable bubble sort of range: neighbours are exchanged only when the
 * comparator returns exactly 1. */
LUM_EXPORT void LUMArraySortValues(LUMMutableArrayRef array, LUMRange range, LUMComparatorFunction comparator, void *context);

LUM_EXTERN_C_END

#endif
