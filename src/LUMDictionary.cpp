/* LUMDictionary.cpp — key–value tables over two parallel blocks of slots.
 * Part of LumBase; MIT licence.
 *
 * Invariants: keys[i] == NULL marks a free slot; count is the number of
 * non-NULL keys; both blocks have slotCount slots. Lookups are linear scans
 * with the key equal rule; a new key takes the first free slot, so the order
 * seen by iteration is slot order. The blocks double when count reaches
 * slotCount and never shrink; with no slots at all there is nothing to
 * double, and a set then stores nothing. */
#define LUM_SOURCE_FILE "src/LUMDictionary"
#include "LUMPrivate.h"

#include <LumBase/LUMData.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMPropertyList.h>

struct __LUMDictionary {
    LUMRuntimeBase base;
    LUMIndex count;
    LUMIndex capacityHint;
    LUMIndex slotCount;
    const void **keys;
    const void **values;
    LUMDictionaryKeyCallBacks keyCallBacks;
    LUMDictionaryValueCallBacks valueCallBacks;
    Boolean isMutable;
};

namespace {

LUMTypeID __kLUMDictionaryTypeID = 0;
constexpr LUMIndex kMutableInitialSlots = 10;

Boolean __LUMDictionaryInitializeInstance(LUMTypeRef obj);
void __LUMDictionaryFinalizeInstance(LUMTypeRef obj);
Boolean __LUMDictionaryEqualInstance(LUMTypeRef a, LUMTypeRef b);
LUMStringRef __LUMDictionaryCopyDescription(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMDictionaryTypeClass = {
    0, "LUMDictionary", sizeof(__LUMDictionary), __LUMDictionaryInitializeInstance, __LUMDictionaryFinalizeInstance,
    __LUMDictionaryEqualInstance, nullptr, __LUMDictionaryCopyDescription,
};

__LUMDictionary *dictionaryObject(LUMDictionaryRef d) { return lum::object<__LUMDictionary>(d); }

const void *__LUMDictionaryCopyString(const void *key)
{
    LUMStringRef s = static_cast<LUMStringRef>(key);
    return LUMStringCreateCopy(LUMGetAllocator(s), s);
}

Boolean __LUMDictionaryInitializeInstance(LUMTypeRef obj)
{
    __LUMDictionary *d = lum::object<__LUMDictionary>(obj);
    d->count = 0;
    d->capacityHint = 0;
    d->slotCount = 0;
    d->keys = nullptr;
    d->values = nullptr;
    d->keyCallBacks = {};
    d->valueCallBacks = {};
    d->isMutable = 0;
    return true;
}

const void **allocateSlots(LUMAllocatorRef allocator, LUMIndex slots)
{
    size_t bytes = static_cast<size_t>(slots) * sizeof(void *);
    auto block = static_cast<const void **>(LUMAllocatorAllocate(allocator, static_cast<LUMIndex>(bytes), 0));
    if (block != nullptr && bytes > 0) _LUMZeroMemory(block, bytes);
    return block;
}

/* Key comparison: identical pointers match (a NULL key matches a free slot). */
bool __LUMDictionaryEqualKey(const __LUMDictionary *d, const void *slotKey, const void *key)
{
    return lum::elementsEqual(d->keyCallBacks.equal, slotKey, key);
}

LUMIndex findKey(const __LUMDictionary *d, const void *key)
{
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        if (__LUMDictionaryEqualKey(d, d->keys[i], key)) return i;
    }
    return kLUMNotFound;
}

void releaseSlot(__LUMDictionary *d, LUMIndex i)
{
    const void *key = d->keys[i];
    const void *value = d->values[i];
    d->keys[i] = nullptr;
    lum::releaseElement(d->keyCallBacks.release, key);
    d->values[i] = nullptr;
    lum::releaseElement(d->valueCallBacks.release, value);
}

void __LUMDictionaryFinalizeInstance(LUMTypeRef obj)
{
    __LUMDictionary *d = lum::object<__LUMDictionary>(obj);
    for (LUMIndex i = 0; i < d->slotCount; i++) releaseSlot(d, i);
    d->count = 0;
    LUMAllocatorDeallocate(LUMGetAllocator(obj), d->keys);
    LUMAllocatorDeallocate(LUMGetAllocator(obj), d->values);
    d->keys = d->values = nullptr;
}

/* Compares the first count(a) slots of a, holes included, with b. Kept this
 * way: after removals from a it may compare holes and skip keys stored at
 * higher slots. */
/* Unequal counts are unequal; otherwise slot i of a, for i below count(a)
 * (holes included, kept so), is looked up in b and its value compared with
 * b's value equal callback (the comparison itself runs in
 * lum::equalContainers, at any depth). */
Boolean __LUMDictionaryEqualInstance(LUMTypeRef first, LUMTypeRef second) { return lum::equalContainers(first, second); }

LUMIndex dictionaryComparisonSteps(LUMTypeRef first, LUMTypeRef second)
{
    const __LUMDictionary *a = lum::object<__LUMDictionary>(first);
    if (a->count != lum::object<__LUMDictionary>(second)->count) return -1;
    // A count above the slot count (null keys are counted without taking a
    // slot) stops at the last slot: there is nothing beyond it to compare.
    return a->count < a->slotCount ? a->count : a->slotCount;
}

lum::ComparisonStep dictionaryComparisonStep(LUMTypeRef first, LUMTypeRef second, LUMIndex i)
{
    const __LUMDictionary *a = lum::object<__LUMDictionary>(first);
    const __LUMDictionary *b = lum::object<__LUMDictionary>(second);
    return {a->values[i], LUMDictionaryGetValue(b, a->keys[i]), b->valueCallBacks.equal};
}

/* The dictionary of objects written as JSON. */
LUMStringRef copyEntriesDescription(LUMTypeRef dictionary)
{
    LUMDataRef json = LUMPropertyListCreateData(nullptr, dictionary, kLUMPropertyListJSONFormat, 0, nullptr);
    LUMStringRef text = LUMStringCreateFromExternalRepresentation(nullptr, json, kLUMStringEncodingUTF8);
    LUMRelease(json);
    return text;
}

LUMStringRef __LUMDictionaryCopyDescription(LUMTypeRef obj)
{
    const __LUMDictionary *d = lum::object<__LUMDictionary>(obj);
    LUMStringRef text;
    if (d->keyCallBacks.copyDescription == LUMCopyDescription && d->valueCallBacks.copyDescription == LUMCopyDescription) {
        text = copyEntriesDescription(obj);
    } else {
        text = static_cast<LUMStringRef>(LUMRetain(LUMSTR("((no LUMTypes))")));
    }
    LUMStringRef description = LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p LUMDictionary retainCount=%ld count=%ld values=%@>"),
                                                         obj, static_cast<long>(LUMGetRetainCount(obj)), static_cast<long>(d->count), text);
    LUMRelease(text);
    return description;
}

__LUMDictionary *createDictionary(LUMAllocatorRef allocator, LUMIndex slots, const LUMDictionaryKeyCallBacks *keyCallBacks,
                                  const LUMDictionaryValueCallBacks *valueCallBacks, bool isMutable)
{
    __LUMDictionary *d = lum::object<__LUMDictionary>(_LUMTypeCreateInstance(allocator, LUMDictionaryGetTypeID()));
    if (d == nullptr) return nullptr;
    if (keyCallBacks != nullptr) d->keyCallBacks = *keyCallBacks;
    if (valueCallBacks != nullptr) d->valueCallBacks = *valueCallBacks;
    d->slotCount = slots;
    d->keys = allocateSlots(LUMGetAllocator(d), slots);
    d->values = allocateSlots(LUMGetAllocator(d), slots);
    d->isMutable = isMutable;
    return d;
}

__LUMDictionary *copyDictionary(LUMAllocatorRef allocator, const __LUMDictionary *source, bool isMutable)
{
    __LUMDictionary *d = createDictionary(allocator, source->slotCount, &source->keyCallBacks, &source->valueCallBacks, isMutable);
    if (d == nullptr) return nullptr;
    for (LUMIndex i = 0; i < source->slotCount; i++) {
        d->keys[i] = lum::retainElement(d->keyCallBacks.retain, source->keys[i]);
        d->values[i] = lum::retainElement(d->valueCallBacks.retain, source->values[i]);
    }
    d->count = source->count;
    return d;
}

} // namespace

const lum::ContainerComparison lum::kDictionaryComparison = {dictionaryComparisonSteps, dictionaryComparisonStep};

const LUMDictionaryKeyCallBacks kLUMTypeDictionaryKeyCallBacks = {
    0, LUMRetain, LUMRelease, LUMCopyDescription, LUMEqual, LUMHash,
};
const LUMDictionaryValueCallBacks kLUMTypeDictionaryValueCallBacks = {
    0, LUMRetain, LUMRelease, LUMCopyDescription, LUMEqual,
};
const LUMDictionaryKeyCallBacks kLUMCopyStringDictionaryKeyCallBacks = {
    0, __LUMDictionaryCopyString, LUMRelease, LUMCopyDescription, LUMEqual, LUMHash,
};

LUMTypeID LUMDictionaryGetTypeID(void) { return lum::registerClassOnce(__kLUMDictionaryTypeID, __kLUMDictionaryTypeClass); }

Boolean _LUMDictionaryInitializeModule(void) { return LUMDictionaryGetTypeID() != 0; }

LUMDictionaryRef LUMDictionaryCreate(LUMAllocatorRef allocator, const void **keys, const void **values, LUMIndex numValues,
                                     const LUMDictionaryKeyCallBacks *keyCallBacks, const LUMDictionaryValueCallBacks *valueCallBacks)
{
    __LUMDictionary *d = createDictionary(allocator, numValues, keyCallBacks, valueCallBacks, false);
    if (d == nullptr) return nullptr;
    for (LUMIndex i = 0; i < numValues; i++) LUMDictionarySetValue(d, keys[i], values[i]);
    return d;
}

LUMDictionaryRef LUMDictionaryCreateCopy(LUMAllocatorRef allocator, LUMDictionaryRef dictionary)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    return copyDictionary(allocator, dictionaryObject(dictionary), false);
}

LUMMutableDictionaryRef LUMDictionaryCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMDictionaryKeyCallBacks *keyCallBacks,
                                                   const LUMDictionaryValueCallBacks *valueCallBacks)
{
    __LUMDictionary *d = createDictionary(allocator, kMutableInitialSlots, keyCallBacks, valueCallBacks, true);
    if (d != nullptr) d->capacityHint = capacity;
    return d;
}

LUMMutableDictionaryRef LUMDictionaryCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMDictionaryRef dictionary)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    __LUMDictionary *d = copyDictionary(allocator, dictionaryObject(dictionary), true);
    if (d != nullptr) d->capacityHint = capacity;
    return d;
}

LUMIndex LUMDictionaryGetCount(LUMDictionaryRef dictionary)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    return dictionaryObject(dictionary)->count;
}

LUMIndex LUMDictionaryGetCountOfKey(LUMDictionaryRef dictionary, const void *key)
{
    return findKey(dictionaryObject(dictionary), key) != kLUMNotFound ? 1 : 0;
}

Boolean LUMDictionaryContainsKey(LUMDictionaryRef dictionary, const void *key)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    return LUMDictionaryGetCountOfKey(dictionary, key) > 0;
}

LUMIndex LUMDictionaryGetCountOfValue(LUMDictionaryRef dictionary, const void *value)
{
    const __LUMDictionary *d = dictionaryObject(dictionary);
    LUMIndex count = 0;
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        if (lum::elementsEqual(d->valueCallBacks.equal, d->values[i], value)) count++;
    }
    return count;
}

Boolean LUMDictionaryContainsValue(LUMDictionaryRef dictionary, const void *value)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    return LUMDictionaryGetCountOfValue(dictionary, value) > 0;
}

Boolean LUMDictionaryGetValueIfPresent(LUMDictionaryRef dictionary, const void *key, const void **value)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    const __LUMDictionary *d = dictionaryObject(dictionary);
    LUMIndex i = findKey(d, key);
    if (i == kLUMNotFound) return false;
    if (value != nullptr) *value = d->values[i];
    return true;
}

const void *LUMDictionaryGetValue(LUMDictionaryRef dictionary, const void *key)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    const __LUMDictionary *d = dictionaryObject(dictionary);
    LUMIndex i = findKey(d, key);
    return i == kLUMNotFound ? nullptr : d->values[i];
}

void LUMDictionaryGetKeysAndValues(LUMDictionaryRef dictionary, const void **keys, const void **values)
{
    const __LUMDictionary *d = dictionaryObject(dictionary);
    LUMIndex n = 0;
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        if (d->keys[i] == nullptr) continue;
        keys[n] = d->keys[i];
        values[n] = d->values[i];
        n++;
    }
}

void LUMDictionaryApplyFunction(LUMDictionaryRef dictionary, LUMDictionaryApplierFunction applier, void *context)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    const __LUMDictionary *d = dictionaryObject(dictionary);
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        if (d->keys[i] != nullptr) applier(d->keys[i], d->values[i], context);
    }
}

void LUMDictionarySetValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    __LUMDictionary *d = dictionary;
    LUMIndex slot = findKey(d, key);
    if (slot == kLUMNotFound) {
        // A dictionary without slots still goes through the doubling (to 0
        // slots, two reallocations the allocator sees) and then stores nothing.
        if (d->count >= d->slotCount) {
            LUMIndex oldSlots = d->slotCount;
            d->slotCount *= 2;
            size_t bytes = static_cast<size_t>(d->slotCount) * sizeof(void *);
            d->keys = static_cast<const void **>(LUMAllocatorReallocate(LUMGetAllocator(d), d->keys, static_cast<LUMIndex>(bytes), 0));
            d->values = static_cast<const void **>(LUMAllocatorReallocate(LUMGetAllocator(d), d->values, static_cast<LUMIndex>(bytes), 0));
            size_t added = static_cast<size_t>(d->slotCount - oldSlots) * sizeof(void *);
            if (added > 0) {
                _LUMZeroMemory(d->keys + oldSlots, added);
                _LUMZeroMemory(d->values + oldSlots, added);
            }
        }
        slot = findKey(d, nullptr); // the first free slot
        if (slot == kLUMNotFound) return; // no slots at all: nothing can be stored
    }
    if (d->keys[slot] == nullptr) {
        d->keys[slot] = lum::retainElement(d->keyCallBacks.retain, key);
        d->count++;
    }
    // Retain the new value before releasing the old one, so that setting a
    // value over itself is safe. An existing key keeps its stored object.
    const void *old = d->values[slot];
    d->values[slot] = lum::retainElement(d->valueCallBacks.retain, value);
    lum::releaseElement(d->valueCallBacks.release, old);
}

void LUMDictionaryAddValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    if (findKey(dictionary, key) == kLUMNotFound) LUMDictionarySetValue(dictionary, key, value);
}

void LUMDictionaryReplaceValue(LUMMutableDictionaryRef dictionary, const void *key, const void *value)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    if (findKey(dictionary, key) != kLUMNotFound) LUMDictionarySetValue(dictionary, key, value);
}

void LUMDictionaryRemoveValue(LUMMutableDictionaryRef dictionary, const void *key)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    __LUMDictionary *d = dictionary;
    LUMIndex slot = findKey(d, key);
    if (slot == kLUMNotFound) return;
    releaseSlot(d, slot); // the slot stays behind as a hole
    d->count--;
}

void LUMDictionaryRemoveAllValues(LUMMutableDictionaryRef dictionary)
{
    LUM_ASSERT(_LUMTypeCheckValid(dictionary, LUMDictionaryGetTypeID()));
    __LUMDictionary *d = dictionary;
    for (LUMIndex i = 0; i < d->slotCount; i++) releaseSlot(d, i);
    d->count = 0;
}
