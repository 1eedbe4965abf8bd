/* LUMSet.h — unordered collections of distinct values in one packed block.
 * Part of LumBase; MIT licence.
 *
 * Values are distinct by the equal callback (identity without one) and are
 * searched linearly. Unlike arrays and dictionaries, a set calls retain and
 * release for every value, NULL included, whenever those callbacks exist,
 * and a lookup keeps the last match. The block doubles when full and never
 * shrinks; the empty block of an immutable set made from no values grows
 * from one slot. */
#ifndef LUMBASE_LUMSET_H
#define LUMBASE_LUMSET_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef const void *(*LUMSetRetainCallBack)(const void *value);
typedef void (*LUMSetReleaseCallBack)(const void *value);
typedef LUMStringRef (*LUMSetCopyDescriptionCallBack)(const void *value);
typedef Boolean (*LUMSetEqualCallBack)(const void *value1, const void *value2);
typedef LUMHashCode (*LUMSetHashCallBack)(const void *value);

/* hash is carried but never called. */
typedef struct {
    LUMIndex version;
    LUMSetRetainCallBack retain;
    LUMSetReleaseCallBack release;
    LUMSetCopyDescriptionCallBack copyDescription;
    LUMSetEqualCallBack equal;
    LUMSetHashCallBack hash;
} LUMSetCallBacks;

/* Retaining objects compared with LUMEqual. */
LUM_EXPORT extern const LUMSetCallBacks kLUMTypeSetCallBacks;
/* Strings stored as immutable copies made with their own allocator. */
LUM_EXPORT extern const LUMSetCallBacks kLUMCopyStringSetCallBacks;

typedef void (*LUMSetApplierFunction)(const void *value, void *context);

LUM_EXPORT LUMTypeID LUMSetGetTypeID(void);

/* Immutable; callBacks must not be NULL. Duplicates are kept. */
LUM_EXPORT LUMSetRef LUMSetCreate(LUMAllocatorRef allocator, const void **values, LUMIndex numValues, const LUMSetCallBacks *callBacks);
LUM_EXPORT LUMSetRef LUMSetCreateCopy(LUMAllocatorRef allocator, LUMSetRef set);
/* Empty with 16 slots; a NULL record means raw pointers. */
LUM_EXPORT LUMMutableSetRef LUMSetCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMSetCallBacks *callBacks);
LUM_EXPORT LUMMutableSetRef LUMSetCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMSetRef set);

LUM_EXPORT LUMIndex LUMSetGetCount(LUMSetRef set);
LUM_EXPORT LUMIndex LUMSetGetCountOfValue(LUMSetRef set, const void *value);
LUM_EXPORT Boolean LUMSetContainsValue(LUMSetRef set, const void *value);
/* Writes the stored value (not the candidate) when found. */
LUM_EXPORT Boolean LUMSetGetValueIfPresent(LUMSetRef set, const void *candidate, const void **value);
LUM_EXPORT const void *LUMSetGetValue(LUMSetRef set, const void *candidate);
LUM_EXPORT void LUMSetGetValues(LUMSetRef set, const void **values);
LUM_EXPORT void LUMSetApplyFunction(LUMSetRef set, LUMSetApplierFunction applier, void *context);

/* Only LUMSetAddValue asserts mutability. */
LUM_EXPORT void LUMSetAddValue(LUMMutableSetRef set, const void *value);
LUM_EXPORT void LUMSetReplaceValue(LUMMutableSetRef set, const void *value);
LUM_EXPORT void LUMSetSetValue(LUMMutableSetRef set, const void *value);
LUM_EXPORT void LUMSetRemoveValue(LUMMutableSetRef set, const void *value);
LUM_EXPORT void LUMSetRemoveAllValues(LUMMutableSetRef set);

LUM_EXTERN_C_END

#endif
