/** @file LUMSet.h — unordered collections of distinct values in one packed block.
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

typedef const void *(*LUMSetRetainCallBack)(const void *value); /**< Takes a reference to a member as it is stored; returns what is stored. */
typedef void (*LUMSetReleaseCallBack)(const void *value); /**< Drops a stored member. */
typedef LUMStringRef (*LUMSetCopyDescriptionCallBack)(const void *value); /**< Describes a member. */
typedef Boolean (*LUMSetEqualCallBack)(const void *value1, const void *value2); /**< Whether two members are equal. */
typedef LUMHashCode (*LUMSetHashCallBack)(const void *value); /**< The hash of a member (carried in the record; lookups compare). */

/** hash is carried but never called. */
typedef struct {
    LUMIndex version; /**< 0 */
    LUMSetRetainCallBack retain; /**< NULL: members are stored as they are */
    LUMSetReleaseCallBack release; /**< NULL: nothing happens when a member leaves */
    LUMSetCopyDescriptionCallBack copyDescription; /**< NULL: members are described by address */
    LUMSetEqualCallBack equal; /**< NULL: members match by identity */
    LUMSetHashCallBack hash; /**< kept in the record; lookups do not use it */
} LUMSetCallBacks;

/** Retaining objects compared with LUMEqual. */
LUM_EXPORT extern const LUMSetCallBacks kLUMTypeSetCallBacks;
/** Strings stored as immutable copies made with their own allocator. */
LUM_EXPORT extern const LUMSetCallBacks kLUMCopyStringSetCallBacks;

typedef void (*LUMSetApplierFunction)(const void *value, void *context); /**< Called with each member, in the set's order, and the caller's context. */

/** The set class's type ID (registered on first call). */
LUM_EXPORT LUMTypeID LUMSetGetTypeID(void);

/** An immutable set of numValues values, each stored through callBacks'
 * retain; callBacks must not be NULL (it is copied without a test).
 * Duplicates are kept. The caller owns the result; NULL when it cannot be
 * made. */
LUM_EXPORT LUMSetRef LUMSetCreate(LUMAllocatorRef allocator, const void **values, LUMIndex numValues, const LUMSetCallBacks *callBacks);
/** An immutable copy with the source's callbacks; the values are retained
 * again. The caller owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMSetRef LUMSetCreateCopy(LUMAllocatorRef allocator, LUMSetRef set);
/** An empty mutable set with 16 slots; capacity is only a hint; a NULL record
 * means raw pointers compared by identity. The caller owns the result; NULL
 * when it cannot be made. */
LUM_EXPORT LUMMutableSetRef LUMSetCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMSetCallBacks *callBacks);
/** A mutable copy: 16 slots, doubled until the source's slots fit; values
 * retained again. The caller owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMMutableSetRef LUMSetCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMSetRef set);

/* Lookups scan every value and take the last match: equal(candidate, value)
 * when the record has an equal callback, identity otherwise (no identity
 * shortcut before equal, no test for NULL values). Values are borrowed. */

/** The number of values. */
LUM_EXPORT LUMIndex LUMSetGetCount(LUMSetRef set);
/** 1 when some value matches, else 0. */
LUM_EXPORT LUMIndex LUMSetGetCountOfValue(LUMSetRef set, const void *value);
/** Whether some value matches. */
LUM_EXPORT Boolean LUMSetContainsValue(LUMSetRef set, const void *value);
/** Writes the stored value (not the candidate) when found and value is not
 * NULL; returns whether it was found. */
LUM_EXPORT Boolean LUMSetGetValueIfPresent(LUMSetRef set, const void *candidate, const void **value);
/** The stored value matching candidate, or NULL. */
LUM_EXPORT const void *LUMSetGetValue(LUMSetRef set, const void *candidate);
/** Copies all values, in slot order, into values (LUMSetGetCount slots). */
LUM_EXPORT void LUMSetGetValues(LUMSetRef set, const void **values);
/** Calls applier(value, context) for each value, in slot order. */
LUM_EXPORT void LUMSetApplyFunction(LUMSetRef set, LUMSetApplierFunction applier, void *context);

/* Mutation. Only LUMSetAddValue asserts mutability. The callbacks' retain
 * and release are called without a test for NULL values. When the block
 * cannot grow the set is left as it was. */

/** Appends value (retained) unless a matching value is present. Asserts
 * "set->isMutable". */
LUM_EXPORT void LUMSetAddValue(LUMMutableSetRef set, const void *value);
/** When a matching value is present, stores value (retained) in its slot and
 * releases the old one; otherwise nothing. */
LUM_EXPORT void LUMSetReplaceValue(LUMMutableSetRef set, const void *value);
/** Replaces a matching value, or appends value when there is none. */
LUM_EXPORT void LUMSetSetValue(LUMMutableSetRef set, const void *value);
/** Releases the last matching value, moves the following values down and
 * decrements the count (a release callback sees the old count). */
LUM_EXPORT void LUMSetRemoveValue(LUMMutableSetRef set, const void *value);
/** From the last value to the first: release, clear the slot, count - 1. */
LUM_EXPORT void LUMSetRemoveAllValues(LUMMutableSetRef set);

LUM_EXTERN_C_END

#endif
