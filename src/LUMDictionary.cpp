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
#include "LUMStringPrivate.h"

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

/* ---- Key index ---------------------------------------------------------------
 * Every lookup is defined as a scan of the slots from the first, the lowest
 * matching slot winning. When the keys are compared with LUMEqual and every
 * key is an immutable string of the library's own class, that comparison
 * runs only library code and depends on the text alone, so the scan's
 * answer can be found from an index of key texts instead (lum::TextIndex):
 * no caller's callback is called either way, and the answer is the same
 * slot. Such an index is kept beside each dictionary of kIndexThreshold
 * slots or more (built on its first lookup, kept current by every change
 * of a key), with the lowest free slot, which a new key takes. A key that is
 * anything else turns the index off for that dictionary, which then scans
 * as before. */

constexpr LUMIndex kIndexThreshold = 20;

/* The dictionary's index, made on first need; NULL when it cannot have one. */
lum::TextIndex *indexFor(const __LUMDictionary *d)
{
    if (d->slotCount < kIndexThreshold || d->keyCallBacks.equal != LUMEqual) return nullptr;
    lum::TextIndex *index = lum::existingTextIndex(d);
    if (index != nullptr) return index->off ? nullptr : index;
    index = lum::makeTextIndex(d, static_cast<size_t>(d->slotCount));
    if (index == nullptr) return nullptr;
    bool firstFreeFound = false;
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        const void *key = d->keys[i];
        if (key == nullptr) {
            if (!firstFreeFound) index->firstFree = i;
            firstFreeFound = true;
            continue;
        }
        if (!lum::textIndexAdd(index, i, key)) return nullptr; // the index is off
    }
    if (!firstFreeFound) index->firstFree = d->slotCount;
    return index;
}

/* The first free slot, from the index's lower bound on. */
LUMIndex findFreeSlot(const __LUMDictionary *d, lum::TextIndex *index)
{
    LUMIndex i = index->firstFree;
    while (i < d->slotCount && d->keys[i] != nullptr) i++;
    index->firstFree = i;
    return i < d->slotCount ? i : kLUMNotFound;
}

/* Every key is written through these two, which keep the index current. */
void putKey(__LUMDictionary *d, LUMIndex slot, const void *key)
{
    d->keys[slot] = key;
    lum::TextIndex *index = lum::existingTextIndex(d);
    if (index == nullptr || index->off || key == nullptr) return;
    lum::textIndexAdd(index, slot, key);
}

void clearKey(__LUMDictionary *d, LUMIndex slot)
{
    const void *key = d->keys[slot];
    lum::TextIndex *index = lum::existingTextIndex(d);
    if (index != nullptr && !index->off && key != nullptr) {
        lum::textIndexRemove(index, slot, key);
        if (slot < index->firstFree) index->firstFree = slot;
    }
    d->keys[slot] = nullptr;
}

bool isString(const void *object)
{
    return object != nullptr && static_cast<const LUMRuntimeBase *>(object)->typeID == lum::kStringTypeID;
}

/* The scan for a string key under LUMEqual, which calls only the library's
 * string comparison: a key of another class or another length is passed
 * over without the call, whose answer would be no. */
LUMIndex scanForText(const __LUMDictionary *d, const __LUMString *key)
{
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        const void *slotKey = d->keys[i];
        if (slotKey == key) return i;
        if (!isString(slotKey) || static_cast<const __LUMString *>(slotKey)->length != key->length) continue;
        if (LUMEqual(slotKey, key)) return i;
    }
    return kLUMNotFound;
}

LUMIndex findKey(const __LUMDictionary *d, const void *key)
{
    if (lum::TextIndex *index = indexFor(d)) {
        return key == nullptr ? findFreeSlot(d, index) : lum::textIndexFind(index, key, d->keys, true);
    }
    if (d->keyCallBacks.equal == LUMEqual && isString(key)) return scanForText(d, static_cast<const __LUMString *>(key));
    for (LUMIndex i = 0; i < d->slotCount; i++) {
        if (__LUMDictionaryEqualKey(d, d->keys[i], key)) return i;
    }
    return kLUMNotFound;
}

void releaseSlot(__LUMDictionary *d, LUMIndex i)
{
    const void *key = d->keys[i];
    const void *value = d->values[i];
    clearKey(d, i);
    lum::releaseElement(d->keyCallBacks.release, key);
    d->values[i] = nullptr;
    lum::releaseElement(d->valueCallBacks.release, value);
}

/* Readers that make whole trees put an immutable dictionary's keys and
 * values in the record's own block, right behind it. */
const void **inlineKeys(__LUMDictionary *d) { return reinterpret_cast<const void **>(d + 1); }
bool hasInlineSlots(__LUMDictionary *d) { return d->keys == inlineKeys(d); }

/* Gives slots in the record's block blocks of their own, so that they can
 * change size; false when there is no memory (nothing changes). */
bool moveSlotsOut(__LUMDictionary *d)
{
    size_t bytes = static_cast<size_t>(d->slotCount) * sizeof(void *);
    auto keys = static_cast<const void **>(LUMAllocatorAllocate(LUMGetAllocator(d), static_cast<LUMIndex>(bytes), 0));
    auto values = static_cast<const void **>(LUMAllocatorAllocate(LUMGetAllocator(d), static_cast<LUMIndex>(bytes), 0));
    if ((keys == nullptr || values == nullptr) && bytes > 0) {
        LUMAllocatorDeallocate(LUMGetAllocator(d), keys);
        LUMAllocatorDeallocate(LUMGetAllocator(d), values);
        return false;
    }
    if (bytes > 0) {
        memcpy(keys, d->keys, bytes);
        memcpy(values, d->values, bytes);
    }
    d->keys = keys;
    d->values = values;
    return true;
}

void __LUMDictionaryFinalizeInstance(LUMTypeRef obj)
{
    __LUMDictionary *d = lum::object<__LUMDictionary>(obj);
    // The index goes first: keeping it current while every key leaves would
    // only cost. A lookup from a release callback rebuilds it from what is left.
    lum::dropTextIndex(d);
    for (LUMIndex i = 0; i < d->slotCount; i++) releaseSlot(d, i);
    d->count = 0;
    lum::dropTextIndex(d);
    if (!hasInlineSlots(d)) {
        LUMAllocatorDeallocate(LUMGetAllocator(obj), d->keys);
        LUMAllocatorDeallocate(LUMGetAllocator(obj), d->values);
    }
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
    // The system allocator's blocks are nobody's to count: a few slots go in
    // the record's own block, and move out when they must grow.
    bool inlineSlots = slots <= kMutableInitialSlots && lum::usesSystemAllocator(allocator);
    size_t slotBytes = static_cast<size_t>(slots) * sizeof(void *);
    __LUMDictionary *d = lum::object<__LUMDictionary>(inlineSlots ? lum::createInstance(allocator, LUMDictionaryGetTypeID(), 2 * slotBytes)
                                                                  : _LUMTypeCreateInstance(allocator, LUMDictionaryGetTypeID()));
    if (d == nullptr) return nullptr;
    if (keyCallBacks != nullptr) d->keyCallBacks = *keyCallBacks;
    if (valueCallBacks != nullptr) d->valueCallBacks = *valueCallBacks;
    d->slotCount = slots;
    if (inlineSlots) {
        d->keys = inlineKeys(d);
        d->values = d->keys + slots;
        if (slotBytes > 0) memset(d->keys, 0, 2 * slotBytes);
    } else {
        d->keys = allocateSlots(LUMGetAllocator(d), slots);
        d->values = allocateSlots(LUMGetAllocator(d), slots);
    }
    d->isMutable = isMutable;
    return d;
}

__LUMDictionary *copyDictionary(LUMAllocatorRef allocator, const __LUMDictionary *source, bool isMutable)
{
    __LUMDictionary *d = createDictionary(allocator, source->slotCount, &source->keyCallBacks, &source->valueCallBacks, isMutable);
    if (d == nullptr) return nullptr;
    for (LUMIndex i = 0; i < source->slotCount; i++) {
        putKey(d, i, lum::retainElement(d->keyCallBacks.retain, source->keys[i]));
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

LUMTypeID (LUMDictionaryGetTypeID)(void) { return lum::registerClassOnce(__kLUMDictionaryTypeID, __kLUMDictionaryTypeClass); }

Boolean _LUMDictionaryInitializeModule(void) { return LUMDictionaryGetTypeID() != 0; }

LUMDictionaryRef LUMDictionaryCreate(LUMAllocatorRef allocator, const void **keys, const void **values, LUMIndex numValues,
                                     const LUMDictionaryKeyCallBacks *keyCallBacks, const LUMDictionaryValueCallBacks *valueCallBacks)
{
    __LUMDictionary *d = createDictionary(allocator, numValues, keyCallBacks, valueCallBacks, false);
    if (d == nullptr) return nullptr;
    for (LUMIndex i = 0; i < numValues; i++) LUMDictionarySetValue(d, keys[i], values[i]);
    return d;
}

namespace {

/* One block: the record, its keys, its values (not cleared). A mutable
 * dictionary's slots move out of it when they must grow, as the system
 * allocator's first few always have. With the system allocator every field
 * is written here, without the clearing and the class initializer first. */
__LUMDictionary *createOneBlockDictionary(LUMAllocatorRef allocator, LUMIndex count, bool isMutable)
{
    size_t slotBytes = 2 * static_cast<size_t>(count) * sizeof(void *);
    if (slotBytes > INT32_MAX) return nullptr;
    auto *d = lum::createFilledInstance<__LUMDictionary>(allocator, LUMDictionaryGetTypeID(), slotBytes);
    if (d != nullptr) {
        d->count = 0;
        d->capacityHint = 0;
        d->slotCount = count;
        d->keys = inlineKeys(d);
        d->values = d->keys + count;
        d->keyCallBacks = kLUMTypeDictionaryKeyCallBacks;
        d->valueCallBacks = kLUMTypeDictionaryValueCallBacks;
        d->isMutable = isMutable;
    }
    return d;
}

} // namespace

namespace {

/* An empty dictionary of the library's own callbacks with room for count
 * entries in its slots, its slots in its own block where that is nobody's
 * to see; NULL without memory. */
__LUMDictionary *createDictionaryWithRoom(LUMAllocatorRef allocator, LUMIndex count, bool isMutable)
{
    if (!isMutable || lum::usesSystemAllocator(allocator)) return createOneBlockDictionary(allocator, count, isMutable);
    LUMIndex slots = count < kMutableInitialSlots ? kMutableInitialSlots : count;
    __LUMDictionary *d = createDictionary(allocator, slots, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks, true);
    if (d != nullptr && slots > 0 && (d->keys == nullptr || d->values == nullptr)) {
        d->slotCount = 0;
        LUMRelease(d);
        return nullptr;
    }
    return d;
}

} // namespace

LUMDictionaryRef lum::createDictionaryAdopting(LUMAllocatorRef allocator, const void *const *keys, const void *const *values,
                                               LUMIndex count, bool isMutable)
{
    __LUMDictionary *d = createDictionaryWithRoom(allocator, count, isMutable);
    if (d == nullptr) return nullptr;
    // A new dictionary has no key index yet: plain stores are enough.
    if (count > 0) {
        memcpy(d->keys, keys, static_cast<size_t>(count) * sizeof(void *));
        memcpy(d->values, values, static_cast<size_t>(count) * sizeof(void *));
    }
    d->count = count;
    return d;
}

namespace {

size_t bucketOf(LUMHashCode hash, size_t capacity);

const UniChar *unitsOfKey(const void *key) { return static_cast<const UniChar *>(static_cast<const __LUMString *>(key)->buffer); }

bool sameUnits(const __LUMString *a, const __LUMString *b)
{
    return a->length == b->length && memcmp(unitsOfKey(a), unitsOfKey(b), static_cast<size_t>(a->length) * sizeof(UniChar)) == 0;
}

/* Keeps the first of each text among string keys, giving it the last value
 * that text had, as a sequence of LUMDictionarySetValue calls would: a
 * later duplicate's key and the value it replaces are released. The kept
 * entries move to the front; their number (-1 without memory, nothing
 * changed). */
LUMIndex mergeDuplicateKeys(lum::KeyValue *entries, LUMIndex count, void *scratch, size_t scratchBytes)
{
    LUMIndex kept = 0;
    auto keep = [&](LUMIndex i, LUMIndex existing) {
        if (existing == kLUMNotFound) {
            entries[kept] = entries[i];
            return kept++;
        }
        LUMRelease(entries[existing].value);
        entries[existing].value = entries[i].value;
        LUMRelease(entries[i].key);
        return existing;
    };
    auto keyAt = [entries](LUMIndex i) { return static_cast<const __LUMString *>(entries[i].key); };
    // Unit strings are compared by their units; other keys by LUMEqual,
    // which gives the same answers.
    bool units = true;
    for (LUMIndex i = 0; i < count && units; i++) units = keyAt(i)->bufferType == _kLUMStringBufferTypeUniCharString;
    auto same = [units](const __LUMString *a, const __LUMString *b) {
        return units ? sameUnits(a, b) : a->length == b->length && LUMEqual(a, b);
    };
    if (count <= 16) {
        for (LUMIndex i = 0; i < count; i++) {
            LUMIndex existing = kLUMNotFound;
            for (LUMIndex j = 0; j < kept && existing == kLUMNotFound; j++) {
                if (same(keyAt(j), keyAt(i))) existing = j;
            }
            keep(i, existing);
        }
        return kept;
    }
    // Larger objects: the kept texts in a table, in the scratch memory when
    // it is large enough.
    size_t capacity = 64;
    while (capacity < 2 * static_cast<size_t>(count)) capacity *= 2;
    bool own = capacity * sizeof(uint32_t) > scratchBytes;
    auto *table = static_cast<uint32_t *>(own ? calloc(capacity, sizeof(uint32_t)) : memset(scratch, 0, capacity * sizeof(uint32_t)));
    if (table == nullptr) return -1;
    for (LUMIndex i = 0; i < count; i++) {
        const __LUMString *key = keyAt(i);
        size_t at = bucketOf(LUMHash(key), capacity);
        LUMIndex existing = kLUMNotFound;
        for (; table[at] != 0; at = (at + 1) & (capacity - 1)) {
            if (same(keyAt(static_cast<LUMIndex>(table[at] - 1)), key)) {
                existing = static_cast<LUMIndex>(table[at] - 1);
                break;
            }
        }
        LUMIndex position = keep(i, existing);
        if (existing == kLUMNotFound) table[at] = static_cast<uint32_t>(position) + 1;
    }
    if (own) free(table);
    return kept;
}

} // namespace

LUMMutableDictionaryRef lum::createDictionarySetting(LUMAllocatorRef allocator, KeyValue *entries, LUMIndex count)
{
    bool allStrings = true;
    for (LUMIndex i = 0; i < count && allStrings; i++) allStrings = isString(entries[i].key);
    if (allStrings) {
        // Room for every entry; the merge's table lives in the slots until
        // the kept entries take them, the rest left free.
        __LUMDictionary *d = createDictionaryWithRoom(allocator, count, true);
        bool together = d != nullptr && hasInlineSlots(d);
        LUMIndex kept = d == nullptr ? -1 : mergeDuplicateKeys(entries, count, together ? d->keys : nullptr, together ? 2 * static_cast<size_t>(count) * sizeof(void *) : 0);
        if (kept < 0) {
            for (LUMIndex i = 0; i < count; i++) {
                LUMRelease(entries[i].key);
                LUMRelease(entries[i].value);
            }
            if (d != nullptr) {
                d->count = 0;
                d->slotCount = 0;
                LUMRelease(d);
            }
            return nullptr;
        }
        // Distinct keys into a new dictionary: slot order is their order.
        for (LUMIndex i = 0; i < count; i++) {
            d->keys[i] = i < kept ? entries[i].key : nullptr;
            d->values[i] = i < kept ? entries[i].value : nullptr;
        }
        d->count = kept;
        return d;
    }
    // Anything else (a null key counts without a slot, for one) goes through
    // the calls themselves.
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(allocator, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    for (LUMIndex i = 0; i < count; i++) {
        if (d != nullptr) LUMDictionarySetValue(d, entries[i].key, entries[i].value);
        LUMRelease(entries[i].key);
        LUMRelease(entries[i].value);
    }
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

LUMIndex (LUMDictionaryGetCount)(LUMDictionaryRef dictionary)
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
            if (hasInlineSlots(d) && !moveSlotsOut(d)) return;
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
        putKey(d, slot, lum::retainElement(d->keyCallBacks.retain, key));
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


/* ---- lum::TextIndex -------------------------------------------------------------
 * An index of string texts over the positions of a container's elements,
 * kept beside the container in a table keyed by its address (the records'
 * layouts stay as they are). Entries are multi-valued: every position of a
 * text is there, and a lookup picks the lowest or the highest position
 * whose element has the key's text, as the container's scan would. */

namespace {

constexpr uint32_t kEmptyEntry = 0;
constexpr uint32_t kRemovedEntry = UINT32_MAX;

/* The indexes, by owner: an open-addressing table of pointers. */
struct IndexTable {
    lum::TextIndex **slots;
    size_t capacity;
    size_t count;
};
IndexTable __textIndexes = {nullptr, 0, 0};

size_t pointerSlot(const void *p, size_t capacity)
{
    uint64_t h = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)) * 0x9E3779B97F4A7C15ull;
    return static_cast<size_t>(h >> 32) & (capacity - 1);
}

lum::TextIndex **indexSlotOf(const void *owner)
{
    IndexTable &t = __textIndexes;
    if (t.capacity == 0) return nullptr;
    for (size_t i = pointerSlot(owner, t.capacity);; i = (i + 1) & (t.capacity - 1)) {
        if (t.slots[i] == nullptr || t.slots[i]->owner == owner) return &t.slots[i];
    }
}

bool growIndexTable()
{
    IndexTable &t = __textIndexes;
    size_t capacity = t.capacity == 0 ? 64 : t.capacity * 2;
    auto *slots = static_cast<lum::TextIndex **>(calloc(capacity, sizeof(lum::TextIndex *)));
    if (slots == nullptr) return false;
    for (size_t i = 0; i < t.capacity; i++) {
        if (t.slots[i] == nullptr) continue;
        size_t at = pointerSlot(t.slots[i]->owner, capacity);
        while (slots[at] != nullptr) at = (at + 1) & (capacity - 1);
        slots[at] = t.slots[i];
    }
    free(t.slots);
    t.slots = slots;
    t.capacity = capacity;
    return true;
}

bool indexableString(const void *element)
{
    return _LUMTypeCheckValid(element, LUMStringGetTypeID()) && !static_cast<const __LUMString *>(element)->isMutable;
}

/* Where a text's entry starts: the class hash is linear in the units, so
 * texts that differ in their last few units would crowd together; one
 * multiplication spreads them over the whole table. */
size_t bucketOf(LUMHashCode hash, size_t capacity)
{
    uint32_t mixed = static_cast<uint32_t>(hash) * 0x9E3779B1u;
    return static_cast<size_t>(mixed >> (32 - __builtin_ctzll(capacity)));
}

bool resizeEntries(lum::TextIndex *index, size_t capacity)
{
    auto *entries = static_cast<uint32_t *>(calloc(capacity, sizeof(uint32_t)));
    auto *hashes = static_cast<LUMHashCode *>(malloc(capacity * sizeof(LUMHashCode)));
    if (entries == nullptr || hashes == nullptr) {
        free(entries);
        free(hashes);
        return false;
    }
    for (size_t i = 0; i < index->capacity; i++) {
        uint32_t entry = index->entries[i];
        if (entry == kEmptyEntry || entry == kRemovedEntry) continue;
        size_t at = bucketOf(index->hashes[i], capacity);
        while (entries[at] != kEmptyEntry) at = (at + 1) & (capacity - 1);
        entries[at] = entry;
        hashes[at] = index->hashes[i];
    }
    free(index->entries);
    free(index->hashes);
    index->entries = entries;
    index->hashes = hashes;
    index->capacity = capacity;
    size_t live = 0;
    for (size_t i = 0; i < capacity; i++) live += entries[i] != kEmptyEntry;
    index->used = live;
    return true;
}

void turnOff(lum::TextIndex *index)
{
    index->off = true;
    free(index->entries);
    free(index->hashes);
    index->entries = nullptr;
    index->hashes = nullptr;
    index->capacity = 0;
}

} // namespace

lum::TextIndex *lum::existingTextIndex(const void *owner)
{
    if (__textIndexes.count == 0) return nullptr;
    TextIndex **slot = indexSlotOf(owner);
    return slot != nullptr ? *slot : nullptr;
}

lum::TextIndex *lum::makeTextIndex(const void *owner, size_t positions)
{
    if (2 * (__textIndexes.count + 1) > __textIndexes.capacity && !growIndexTable()) return nullptr;
    auto *index = static_cast<TextIndex *>(calloc(1, sizeof(TextIndex)));
    if (index == nullptr) return nullptr;
    index->owner = owner;
    *indexSlotOf(owner) = index;
    __textIndexes.count++;
    size_t capacity = 64;
    while (capacity < 2 * positions) capacity *= 2;
    if (!resizeEntries(index, capacity)) {
        turnOff(index);
        return nullptr;
    }
    return index;
}

void lum::dropTextIndex(const void *owner)
{
    IndexTable &t = __textIndexes;
    TextIndex **slot = t.count > 0 ? indexSlotOf(owner) : nullptr;
    if (slot == nullptr || *slot == nullptr) return;
    free((*slot)->entries);
    free((*slot)->hashes);
    free(*slot);
    *slot = nullptr;
    t.count--;
    // Close the gap so that later probes still reach the entries behind it.
    for (size_t i = (static_cast<size_t>(slot - t.slots) + 1) & (t.capacity - 1); t.slots[i] != nullptr; i = (i + 1) & (t.capacity - 1)) {
        TextIndex *moved = t.slots[i];
        t.slots[i] = nullptr;
        *indexSlotOf(moved->owner) = moved;
    }
}

namespace {

/* The element's hash, from the lookup just made when it was of this very
 * object; the memo is used once. */
LUMHashCode hashOf(const lum::TextIndex *index, const void *element)
{
    bool remembered = index->hashedElement == element;
    index->hashedElement = nullptr;
    return remembered ? index->hashedValue : LUMHash(element);
}

} // namespace

bool lum::textIndexAdd(TextIndex *index, LUMIndex position, const void *element)
{
    if (!indexableString(element) ||
        (2 * (index->used + 1) > index->capacity && !resizeEntries(index, index->capacity * 2))) {
        turnOff(index);
        return false;
    }
    LUMHashCode hash = hashOf(index, element);
    size_t at = bucketOf(hash, index->capacity);
    while (index->entries[at] != kEmptyEntry && index->entries[at] != kRemovedEntry) at = (at + 1) & (index->capacity - 1);
    if (index->entries[at] == kEmptyEntry) index->used++;
    index->entries[at] = static_cast<uint32_t>(position) + 1;
    index->hashes[at] = hash;
    return true;
}

void lum::textIndexRemove(TextIndex *index, LUMIndex position, const void *element)
{
    LUMHashCode hash = hashOf(index, element);
    for (size_t at = bucketOf(hash, index->capacity); index->entries[at] != kEmptyEntry; at = (at + 1) & (index->capacity - 1)) {
        if (index->entries[at] == static_cast<uint32_t>(position) + 1) {
            index->entries[at] = kRemovedEntry;
            return;
        }
    }
}

LUMIndex lum::textIndexFind(const TextIndex *index, const void *key, const void *const *elements, bool lowest)
{
    // Every element is a string: anything else can match none of them, not
    // even by identity.
    if (!_LUMTypeCheckValid(key, LUMStringGetTypeID())) return kLUMNotFound;
    LUMHashCode hash = LUMHash(key);
    index->hashedElement = key;
    index->hashedValue = hash;
    LUMIndex found = kLUMNotFound;
    for (size_t at = bucketOf(hash, index->capacity); index->entries[at] != kEmptyEntry; at = (at + 1) & (index->capacity - 1)) {
        uint32_t entry = index->entries[at];
        if (entry == kRemovedEntry || index->hashes[at] != hash) continue;
        auto position = static_cast<LUMIndex>(entry - 1);
        bool better = found == kLUMNotFound || (lowest ? position < found : position > found);
        if (better && (elements[position] == key || LUMEqual(elements[position], key))) found = position;
    }
    return found;
}

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(LUMDictionaryGetTypeID)
LUM_DEFINE_LOCAL(LUMDictionaryGetCount)
