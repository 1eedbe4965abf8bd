/* LUMSet.cpp — unordered collections of distinct values.
 * Part of LumBase; MIT licence.
 *
 * Invariants: values[0 .. count-1] are in use, packed, in insertion order;
 * the block has slotCount slots and grows by doubling (from one slot when it
 * has none). retain and release are called for every value, NULL included. */
#define LUM_SOURCE_FILE "src/LUMSet"
#include "LUMPrivate.h"

#include <LumBase/LUMSet.h>

struct __LUMSet {
    LUMRuntimeBase base;
    LUMSetCallBacks callBacks;
    const void **values;
    LUMIndex count;
    LUMIndex slotCount;
    LUMIndex capacityHint;
    Boolean isMutable;
};

namespace {

LUMTypeID __kLUMSetTypeID = 0;
constexpr LUMIndex kMutableInitialSlots = 16;

Boolean __LUMSetInitializeInstance(LUMTypeRef obj);
void __LUMSetFinalizeInstance(LUMTypeRef obj);
Boolean __LUMSetEqualInstance(LUMTypeRef a, LUMTypeRef b);

constexpr LUMRuntimeClass __kLUMSetTypeClass = {
    0, "LUMSet", sizeof(__LUMSet), __LUMSetInitializeInstance, __LUMSetFinalizeInstance, __LUMSetEqualInstance, nullptr, nullptr,
};

const void *__LUMSetCopyString(const void *value)
{
    LUMStringRef s = static_cast<LUMStringRef>(value);
    return LUMStringCreateCopy(LUMGetAllocator(s), s);
}

__LUMSet *setObject(LUMSetRef set) { return lum::object<__LUMSet>(set); }

const void *retainValue(const __LUMSet *set, const void *value)
{
    return set->callBacks.retain != nullptr ? set->callBacks.retain(value) : value;
}

void releaseValue(const __LUMSet *set, const void *value)
{
    if (set->callBacks.release != nullptr) set->callBacks.release(value);
}

/* ---- Text index ---------------------------------------------------------------
 * Every lookup is defined as a scan of all values keeping the last match.
 * When the set compares with LUMEqual and every value is an immutable
 * string of the library's own class, the answer depends on texts alone:
 * sets of kIndexThreshold values or more (sets are few and small ones
 * common, so the bar is low) answer from a lum::TextIndex
 * instead (built on the first lookup, extended by appends, dropped by
 * removals, which move positions), calling no caller's code either way. */

constexpr LUMIndex kIndexThreshold = 8;

lum::TextIndex *indexFor(const __LUMSet *set)
{
    if (set->count < kIndexThreshold || set->callBacks.equal != LUMEqual) return nullptr;
    lum::TextIndex *index = lum::existingTextIndex(set);
    if (index != nullptr) return index->off ? nullptr : index;
    index = lum::makeTextIndex(set, static_cast<size_t>(set->count));
    if (index == nullptr) return nullptr;
    for (LUMIndex i = 0; i < set->count; i++) {
        if (!lum::textIndexAdd(index, i, set->values[i])) return nullptr; // the index is off
    }
    return index;
}

/* Scans every value and keeps the last match; no identity shortcut. */
LUMIndex __LUMSetGetIndexOfValue(const __LUMSet *set, const void *candidate)
{
    if (lum::TextIndex *index = indexFor(set)) {
        // equal(candidate, value) is LUMEqual: anything but a string matches
        // no string, and a string matches by text.
        if (candidate == nullptr || !_LUMTypeCheckValid(candidate, LUMStringGetTypeID())) return kLUMNotFound;
        return lum::textIndexFind(index, candidate, set->values, false);
    }
    LUMIndex found = kLUMNotFound;
    for (LUMIndex i = 0; i < set->count; i++) {
        bool match = set->callBacks.equal != nullptr ? set->callBacks.equal(candidate, set->values[i]) != 0
                                                     : candidate == set->values[i];
        if (match) found = i;
    }
    return found;
}

/* False, with the set unchanged, when the slots cannot be represented or
 * allocated. */
bool __LUMSetEnsureCapacity(__LUMSet *set, int64_t needed)
{
    void *values = set->values;
    if (!lum::growByDoubling(LUMGetAllocator(set), values, set->slotCount, needed, sizeof(void *))) return false;
    set->values = static_cast<const void **>(values);
    return true;
}

void appendValue(__LUMSet *set, const void *value)
{
    if (!__LUMSetEnsureCapacity(set, static_cast<int64_t>(set->count) + 1)) return; // no room: unchanged
    set->values[set->count++] = retainValue(set, value);
    lum::TextIndex *index = lum::existingTextIndex(set);
    if (index != nullptr && !index->off) lum::textIndexAdd(index, set->count - 1, set->values[set->count - 1]);
}

Boolean __LUMSetInitializeInstance(LUMTypeRef obj)
{
    __LUMSet *set = lum::object<__LUMSet>(obj);
    set->callBacks = {};
    set->values = nullptr;
    set->count = 0;
    set->slotCount = 0;
    set->capacityHint = 0;
    set->isMutable = 0;
    return true;
}

void __LUMSetFinalizeInstance(LUMTypeRef obj)
{
    __LUMSet *set = lum::object<__LUMSet>(obj);
    LUMSetRemoveAllValues(set);
    lum::dropTextIndex(set);
    LUMAllocatorDeallocate(LUMGetAllocator(obj), set->values);
    set->values = nullptr;
}

Boolean __LUMSetEqualInstance(LUMTypeRef first, LUMTypeRef second)
{
    const __LUMSet *a = lum::object<__LUMSet>(first);
    const __LUMSet *b = lum::object<__LUMSet>(second);
    if (a->count != b->count) return false;
    for (LUMIndex i = 0; i < a->count; i++) {
        if (__LUMSetGetIndexOfValue(b, a->values[i]) == kLUMNotFound) return false;
    }
    return true;
}

__LUMSet *createSet(LUMAllocatorRef allocator, LUMIndex slots, const LUMSetCallBacks *callBacks, bool isMutable)
{
    __LUMSet *set = lum::object<__LUMSet>(_LUMTypeCreateInstance(allocator, LUMSetGetTypeID()));
    if (set == nullptr) return nullptr;
    if (callBacks != nullptr) set->callBacks = *callBacks;
    LUMIndex bytes = lum::blockBytes(slots, sizeof(void *));
    void *values = bytes < 0 ? nullptr : LUMAllocatorAllocate(LUMGetAllocator(set), bytes, 0);
    if (values == nullptr && bytes != 0) {
        // A block that cannot be represented or allocated: no set.
        LUMRelease(set);
        return nullptr;
    }
    set->slotCount = slots;
    set->values = static_cast<const void **>(values);
    set->isMutable = isMutable;
    return set;
}

} // namespace

const LUMSetCallBacks kLUMTypeSetCallBacks = {0, LUMRetain, LUMRelease, LUMCopyDescription, LUMEqual, LUMHash};
const LUMSetCallBacks kLUMCopyStringSetCallBacks = {0, __LUMSetCopyString, LUMRelease, LUMCopyDescription, LUMEqual, LUMHash};

LUMTypeID LUMSetGetTypeID(void) { return lum::registerClassOnce(__kLUMSetTypeID, __kLUMSetTypeClass); }

LUMSetRef LUMSetCreate(LUMAllocatorRef allocator, const void **values, LUMIndex numValues, const LUMSetCallBacks *callBacks)
{
    __LUMSet *set = createSet(allocator, numValues, nullptr, false);
    if (set == nullptr) return nullptr;
    set->callBacks = *callBacks; // required: copied without a test
    for (LUMIndex i = 0; i < numValues; i++) set->values[i] = retainValue(set, values[i]);
    set->count = numValues;
    return set;
}

LUMSetRef LUMSetCreateCopy(LUMAllocatorRef allocator, LUMSetRef source)
{
    const __LUMSet *from = setObject(source);
    __LUMSet *set = createSet(allocator, from->count, &from->callBacks, false);
    if (set == nullptr) return nullptr;
    for (LUMIndex i = 0; i < from->count; i++) set->values[i] = retainValue(set, from->values[i]);
    set->count = from->count;
    return set;
}

LUMMutableSetRef LUMSetCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMSetCallBacks *callBacks)
{
    __LUMSet *set = createSet(allocator, kMutableInitialSlots, callBacks, true);
    if (set != nullptr) set->capacityHint = capacity;
    return set;
}

LUMMutableSetRef LUMSetCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMSetRef source)
{
    const __LUMSet *from = setObject(source);
    LUMIndex slots = lum::grownCapacity(kMutableInitialSlots, from->slotCount, sizeof(void *));
    __LUMSet *set = createSet(allocator, slots, &from->callBacks, true);
    if (set == nullptr) return nullptr;
    set->capacityHint = capacity;
    for (LUMIndex i = 0; i < from->count; i++) set->values[i] = retainValue(set, from->values[i]);
    set->count = from->count;
    return set;
}

LUMIndex LUMSetGetCount(LUMSetRef set) { return setObject(set)->count; }

LUMIndex LUMSetGetCountOfValue(LUMSetRef set, const void *value)
{
    return __LUMSetGetIndexOfValue(setObject(set), value) != kLUMNotFound ? 1 : 0;
}

Boolean LUMSetContainsValue(LUMSetRef set, const void *value) { return LUMSetGetCountOfValue(set, value) > 0; }

Boolean LUMSetGetValueIfPresent(LUMSetRef set, const void *candidate, const void **value)
{
    const __LUMSet *s = setObject(set);
    LUMIndex i = __LUMSetGetIndexOfValue(s, candidate);
    if (i == kLUMNotFound) return false;
    if (value != nullptr) *value = s->values[i];
    return true;
}

const void *LUMSetGetValue(LUMSetRef set, const void *candidate)
{
    const void *value = nullptr;
    return LUMSetGetValueIfPresent(set, candidate, &value) ? value : nullptr;
}

void LUMSetGetValues(LUMSetRef set, const void **values)
{
    const __LUMSet *s = setObject(set);
    for (LUMIndex i = 0; i < s->count; i++) values[i] = s->values[i];
}

void LUMSetApplyFunction(LUMSetRef set, LUMSetApplierFunction applier, void *context)
{
    const __LUMSet *s = setObject(set);
    for (LUMIndex i = 0; i < s->count; i++) applier(s->values[i], context);
}

void LUMSetAddValue(LUMMutableSetRef set, const void *value)
{
    LUM_ASSERT_AT(338, set->isMutable);
    if (__LUMSetGetIndexOfValue(set, value) == kLUMNotFound) appendValue(set, value);
}

void LUMSetReplaceValue(LUMMutableSetRef set, const void *value)
{
    LUMIndex i = __LUMSetGetIndexOfValue(set, value);
    if (i == kLUMNotFound) return;
    const void *old = set->values[i];
    set->values[i] = retainValue(set, value);
    // The new value has the old one's text; the index stays right unless it
    // is something it cannot hold (a mutable string).
    lum::TextIndex *index = lum::existingTextIndex(set);
    if (index != nullptr && !index->off && set->values[i] != old) {
        lum::textIndexRemove(index, i, old);
        lum::textIndexAdd(index, i, set->values[i]);
    }
    releaseValue(set, old);
}

void LUMSetSetValue(LUMMutableSetRef set, const void *value)
{
    if (__LUMSetGetIndexOfValue(set, value) != kLUMNotFound) LUMSetReplaceValue(set, value);
    else appendValue(set, value);
}

void LUMSetRemoveValue(LUMMutableSetRef set, const void *value)
{
    LUMIndex i = __LUMSetGetIndexOfValue(set, value);
    if (i == kLUMNotFound) return;
    lum::dropTextIndex(set); // positions move: made again on the next lookup
    // Release first, then close the gap: a release callback sees the old count.
    releaseValue(set, set->values[i]);
    for (LUMIndex k = i; k < set->count - 1; k++) set->values[k] = set->values[k + 1];
    set->values[set->count - 1] = nullptr;
    set->count--;
}

void LUMSetRemoveAllValues(LUMMutableSetRef set)
{
    lum::dropTextIndex(set);
    while (set->count > 0) {
        releaseValue(set, set->values[set->count - 1]);
        set->values[set->count - 1] = nullptr;
        set->count--;
    }
}
