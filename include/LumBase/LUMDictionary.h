/** @file LUMDictionary.h — key–value tables and their callback records.
 * Part of LumBase; MIT licence.
 *
 * Not a hash table: keys live in one block of slots and values in a parallel
 * block, and every lookup is a linear scan with the key equal callback. A
 * removal leaves a hole (a NULL key) and a new key takes the first free slot,
 * so iteration is slot order: insertion order only while nothing was
 * removed. Blocks double when full and never shrink; a dictionary made with
 * no slots (LUMDictionaryCreate with no entries, or a mutable copy of one)
 * cannot grow and stores nothing. */
#ifndef LUMBASE_LUMDICTIONARY_H
#define LUMBASE_LUMDICTIONARY_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef const void *(*LUMDictionaryRetainCallBack)(const void *value); /**< Takes a reference to a key or value as it is stored; returns what is stored. */
typedef void (*LUMDictionaryReleaseCallBack)(const void *value); /**< Drops a stored key or value. */
typedef LUMStringRef (*LUMDictionaryCopyDescriptionCallBack)(const void *value); /**< Describes a key or value. */
typedef Boolean (*LUMDictionaryEqualCallBack)(const void *value1, const void *value2); /**< Whether two keys (or values) are equal. */
typedef LUMHashCode (*LUMDictionaryHashCallBack)(const void *value); /**< The hash of a key (stored in no slot: lookups compare). */

/** hash is carried but never called: lookup is by equal alone. */
typedef struct {
    LUMIndex version; /**< 0 */
    LUMDictionaryRetainCallBack retain; /**< NULL: keys are stored as they are */
    LUMDictionaryReleaseCallBack release; /**< NULL: nothing happens when a key leaves */
    LUMDictionaryCopyDescriptionCallBack copyDescription; /**< NULL: keys are described by address */
    LUMDictionaryEqualCallBack equal; /**< NULL: keys match by identity */
    LUMDictionaryHashCallBack hash; /**< kept in the record; lookups do not use it */
} LUMDictionaryKeyCallBacks;

/** How a dictionary stores, drops, describes and compares its values. */
typedef struct {
    LUMIndex version; /**< 0 */
    LUMDictionaryRetainCallBack retain; /**< NULL: values are stored as they are */
    LUMDictionaryReleaseCallBack release; /**< NULL: nothing happens when a value leaves */
    LUMDictionaryCopyDescriptionCallBack copyDescription; /**< NULL: values are described by address */
    LUMDictionaryEqualCallBack equal; /**< NULL: values match by identity */
} LUMDictionaryValueCallBacks;

/** @{ */
/** Retaining object keys and values. */
LUM_EXPORT extern const LUMDictionaryKeyCallBacks kLUMTypeDictionaryKeyCallBacks;
LUM_EXPORT extern const LUMDictionaryValueCallBacks kLUMTypeDictionaryValueCallBacks;
/** @} */
/** String keys stored as immutable copies (made with the key's own allocator). */
LUM_EXPORT extern const LUMDictionaryKeyCallBacks kLUMCopyStringDictionaryKeyCallBacks;

typedef void (*LUMDictionaryApplierFunction)(const void *key, const void *value, void *context); /**< Called with each key and value, in slot order, and the caller's context. */

/** The dictionary class's type ID (registered on first call). */
LUM_EXPORT LUMTypeID LUMDictionaryGetTypeID(void);

/** An immutable dictionary of numValues slots holding the entries in order
 * (each set as LUMDictionarySetValue does; a NULL record stores raw
 * pointers). The caller owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMDictionaryRef LUMDictionaryCreate(LUMAllocatorRef allocator, const void **keys, const void **values, LUMIndex numValues, const LUMDictionaryKeyCallBacks *keyCallBacks, const LUMDictionaryValueCallBacks *valueCallBacks);
/** An immutable copy: every slot at its own position, holes included, keys
 * and values retained again. The caller owns the result. */
LUM_EXPORT LUMDictionaryRef LUMDictionaryCreateCopy(LUMAllocatorRef allocator, LUMDictionaryRef dictionary);
/** An empty mutable dictionary with 10 slots; capacity is only a hint. The
 * caller owns the result; NULL when it cannot be made. */
LUM_EXPORT LUMMutableDictionaryRef LUMDictionaryCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMDictionaryKeyCallBacks *keyCallBacks, const LUMDictionaryValueCallBacks *valueCallBacks);
/** Copies every slot at its own position, holes included. The caller owns
 * the result. */
LUM_EXPORT LUMMutableDictionaryRef LUMDictionaryCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMDictionaryRef dictionary);

/* Lookups are defined as a scan of the slots from the first, the lowest
 * matching slot winning: identical pointers match (a NULL key matches a free
 * slot), else the key equal callback decides when both keys are non-NULL.
 * Dictionaries of immutable library strings compared with LUMEqual answer
 * through a private index of key texts, with the same results. Keys and
 * values are borrowed. All but GetCountOfKey, GetCountOfValue and
 * GetKeysAndValues assert that dictionary is a dictionary. */

/** The number of keys counted as present. */
LUM_EXPORT LUMIndex LUMDictionaryGetCount(LUMDictionaryRef dictionary);
/** 1 when some slot's key matches key, else 0. */
LUM_EXPORT LUMIndex LUMDictionaryGetCountOfKey(LUMDictionaryRef dictionary, const void *key);
/** Whether some slot's key matches key. */
LUM_EXPORT Boolean LUMDictionaryContainsKey(LUMDictionaryRef dictionary, const void *key);
/** Counts the slots, free ones included, whose value equals value. */
LUM_EXPORT LUMIndex LUMDictionaryGetCountOfValue(LUMDictionaryRef dictionary, const void *value);
/** Whether some slot's value equals value. */
LUM_EXPORT Boolean LUMDictionaryContainsValue(LUMDictionaryRef dictionary, const void *value);
/** Whether key is present; when it is, writes its value (maybe NULL). */
LUM_EXPORT Boolean LUMDictionaryGetValueIfPresent(LUMDictionaryRef dictionary, const void *key, const void **value);
/** The value, or NULL when absent (indistinguishable from a NULL value). */
LUM_EXPORT const void *LUMDictionaryGetValue(LUMDictionaryRef dictionary, const void *key);
/** Writes the slots that hold a key, in slot order. Both buffers must hold
 * LUMDictionaryGetCount entries. */
LUM_EXPORT void LUMDictionaryGetKeysAndValues(LUMDictionaryRef dictionary, const void **keys, const void **values);
/** Calls applier(key, value, context) for each slot that holds a key, in
 * slot order (insertion order while nothing has been removed). */
LUM_EXPORT void LUMDictionaryApplyFunction(LUMDictionaryRef dictionary, LUMDictionaryApplierFunction applier, void *context);

/* Mutation; mutability is never asserted. When the blocks cannot grow, or
 * the dictionary has no slots at all, nothing is stored. */

/** A present key gets the new value (retained first, then the old released);
 * the stored key is kept. A new key takes the first free slot from the
 * start, retained through the key callbacks. */
LUM_EXPORT void LUMDictionarySetValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value);
/** Only when the key is absent. */
LUM_EXPORT void LUMDictionaryAddValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value);
/** Only when the key is present. */
LUM_EXPORT void LUMDictionaryReplaceValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value);
/** Clears and releases the key and the value of the matching slot, which
 * stays behind as a hole; nothing happens when the key is absent. */
LUM_EXPORT void LUMDictionaryRemoveValue(LUMMutableDictionaryRef dictionary, const void *key);
/** Clears and releases every slot's key and value; the blocks keep their size. */
LUM_EXPORT void LUMDictionaryRemoveAllValues(LUMMutableDictionaryRef dictionary);

LUM_EXTERN_C_END

#endif
