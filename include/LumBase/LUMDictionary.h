/* LUMDictionary.h — key–value tables and their callback records.
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

typedef const void *(*LUMDictionaryRetainCallBack)(const void *value);
typedef void (*LUMDictionaryReleaseCallBack)(const void *value);
typedef LUMStringRef (*LUMDictionaryCopyDescriptionCallBack)(const void *value);
typedef Boolean (*LUMDictionaryEqualCallBack)(const void *value1, const void *value2);
typedef LUMHashCode (*LUMDictionaryHashCallBack)(const void *value);

/* hash is carried but never called: lookup is by equal alone. */
typedef struct {
    LUMIndex version;
    LUMDictionaryRetainCallBack retain;
    LUMDictionaryReleaseCallBack release;
    LUMDictionaryCopyDescriptionCallBack copyDescription;
    LUMDictionaryEqualCallBack equal;
    LUMDictionaryHashCallBack hash;
} LUMDictionaryKeyCallBacks;

typedef struct {
    LUMIndex version;
    LUMDictionaryRetainCallBack retain;
    LUMDictionaryReleaseCallBack release;
    LUMDictionaryCopyDescriptionCallBack copyDescription;
    LUMDictionaryEqualCallBack equal;
} LUMDictionaryValueCallBacks;

/* Retaining object keys and values. */
LUM_EXPORT extern const LUMDictionaryKeyCallBacks kLUMTypeDictionaryKeyCallBacks;
LUM_EXPORT extern const LUMDictionaryValueCallBacks kLUMTypeDictionaryValueCallBacks;
/* String keys stored as immutable copies (made with the key's own allocator). */
LUM_EXPORT extern const LUMDictionaryKeyCallBacks kLUMCopyStringDictionaryKeyCallBacks;

typedef void (*LUMDictionaryApplierFunction)(const void *key, const void *value, void *context);

LUM_EXPORT LUMTypeID LUMDictionaryGetTypeID(void);

LUM_EXPORT LUMDictionaryRef LUMDictionaryCreate(LUMAllocatorRef allocator, const void **keys, const void **values, LUMIndex numValues, const LUMDictionaryKeyCallBacks *keyCallBacks, const LUMDictionaryValueCallBacks *valueCallBacks);
LUM_EXPORT LUMDictionaryRef LUMDictionaryCreateCopy(LUMAllocatorRef allocator, LUMDictionaryRef dictionary);
/* An empty mutable dictionary with 10 slots; capacity is only a hint. */
LUM_EXPORT LUMMutableDictionaryRef LUMDictionaryCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMDictionaryKeyCallBacks *keyCallBacks, const LUMDictionaryValueCallBacks *valueCallBacks);
/* Copies every slot at its own position, holes included. */
LUM_EXPORT LUMMutableDictionaryRef LUMDictionaryCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMDictionaryRef dictionary);

LUM_EXPORT LUMIndex LUMDictionaryGetCount(LUMDictionaryRef dictionary);
LUM_EXPORT LUMIndex LUMDictionaryGetCountOfKey(LUMDictionaryRef dictionary, const void *key);
LUM_EXPORT Boolean LUMDictionaryContainsKey(LUMDictionaryRef dictionary, const void *key);
/* Counts the slots, free ones included, whose value equals value. */
LUM_EXPORT LUMIndex LUMDictionaryGetCountOfValue(LUMDictionaryRef dictionary, const void *value);
LUM_EXPORT Boolean LUMDictionaryContainsValue(LUMDictionaryRef dictionary, const void *value);
LUM_EXPORT Boolean LUMDictionaryGetValueIfPresent(LUMDictionaryRef dictionary, const void *key, const void **value);
/* The value, or NULL when absent (indistinguishable from a NULL value). */
LUM_EXPORT const void *LUMDictionaryGetValue(LUMDictionaryRef dictionary, const void *key);
/* Both buffers must hold LUMDictionaryGetCount entries. */
LUM_EXPORT void LUMDictionaryGetKeysAndValues(LUMDictionaryRef dictionary, const void **keys, const void **values);
LUM_EXPORT void LUMDictionaryApplyFunction(LUMDictionaryRef dictionary, LUMDictionaryApplierFunction applier, void *context);

/* Mutation; mutability is never asserted. */
LUM_EXPORT void LUMDictionarySetValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value);
/* Only when the key is absent. */
LUM_EXPORT void LUMDictionaryAddValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value);
/* Only when the key is present. */
LUM_EXPORT void LUMDictionaryReplaceValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value);
LUM_EXPORT void LUMDictionaryRemoveValue(LUMMutableDictionaryRef dictionary, const void *key);
LUM_EXPORT void LUMDictionaryRemoveAllValues(LUMMutableDictionaryRef dictionary);

LUM_EXTERN_C_END

#endif
