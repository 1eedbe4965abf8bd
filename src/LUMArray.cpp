/* LUMArray.cpp — ordered sequences of pointer-sized values in one block.
 * Part of LumBase; MIT licence.
 *
 * Invariants: values[0 .. count-1] are the stored values; the block holds
 * slotCount slots and grows by doubling (from one slot when it has none),
 * never shrinking. Element handling follows the copied callback record:
 * non-NULL values go through retain when stored and release when dropped. */
#define LUM_SOURCE_FILE "src/LUMArray"
#include "LUMPrivate.h"

#include <LumBase/LUMArray.h>
#include <LumBase/LUMData.h>
#include <LumBase/LUMPropertyList.h>

struct __LUMArray {
    LUMRuntimeBase base;
    LUMIndex count;
    LUMIndex capacityHint;
    LUMIndex slotCount;
    const void **values;
    LUMArrayCallBacks callBacks;
    Boolean isMutable;
};

namespace {

LUMTypeID __kLUMArrayTypeID = 0;
constexpr LUMIndex kMutableInitialSlots = 10;
constexpr LUMIndex kReplaceStackSlots = 256;

Boolean __LUMArrayInitializeInstance(LUMTypeRef obj);
void __LUMArrayFinalizeInstance(LUMTypeRef obj);
Boolean __LUMArrayEqualInstance(LUMTypeRef a, LUMTypeRef b);
LUMStringRef __LUMArrayCopyDescriptionInstance(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMArrayTypeClass = {
    0, "LUMArray", sizeof(__LUMArray), __LUMArrayInitializeInstance, __LUMArrayFinalizeInstance,
    __LUMArrayEqualInstance, nullptr, __LUMArrayCopyDescriptionInstance,
};

const void *__LUMArrayRetainTypeValue(LUMAllocatorRef allocator, const void *value) { return LUMRetain(value); }
void __LUMArrayReleaseTypeValue(LUMAllocatorRef allocator, const void *value) { LUMRelease(value); }

__LUMArray *arrayObject(LUMArrayRef array) { return lum::object<__LUMArray>(array); }

const void *retainValue(__LUMArray *array, const void *value)
{
    return lum::retainElement(array->callBacks.retain, value, LUMGetAllocator(array));
}

void releaseValue(__LUMArray *array, const void *value)
{
    lum::releaseElement(array->callBacks.release, value, LUMGetAllocator(array));
}

Boolean __LUMArrayInitializeInstance(LUMTypeRef obj)
{
    __LUMArray *array = lum::object<__LUMArray>(obj);
    array->count = 0;
    array->capacityHint = 0;
    array->slotCount = 0;
    array->values = nullptr;
    array->callBacks = {};
    array->isMutable = 0;
    return true;
}

/* Readers that make whole trees put an immutable array's slots in the
 * record's own block, right behind it. */
const void **inlineSlots(__LUMArray *array) { return reinterpret_cast<const void **>(array + 1); }
bool hasInlineSlots(__LUMArray *array) { return array->values == inlineSlots(array); }

void __LUMArrayFinalizeInstance(LUMTypeRef obj)
{
    __LUMArray *array = lum::object<__LUMArray>(obj);
    if (array->values == nullptr) return;
    for (LUMIndex i = 0; i < array->count; i++) releaseValue(array, array->values[i]);
    array->count = 0;
    if (!hasInlineSlots(array)) LUMAllocatorDeallocate(LUMGetAllocator(obj), array->values);
    array->values = nullptr;
}

/* Compared with the callbacks of the second array, stopping at the first
 * unequal pair. */
/* Unequal counts are unequal; otherwise the values are compared index by
 * index with b's equal callback, stopping at the first unequal pair (the
 * comparison itself runs in lum::equalContainers, at any depth). */
Boolean __LUMArrayEqualInstance(LUMTypeRef first, LUMTypeRef second) { return lum::equalContainers(first, second); }

LUMIndex arrayComparisonSteps(LUMTypeRef first, LUMTypeRef second)
{
    const __LUMArray *a = lum::object<__LUMArray>(first);
    return a->count != lum::object<__LUMArray>(second)->count ? -1 : a->count;
}

lum::ComparisonStep arrayComparisonStep(LUMTypeRef first, LUMTypeRef second, LUMIndex i)
{
    const __LUMArray *a = lum::object<__LUMArray>(first);
    const __LUMArray *b = lum::object<__LUMArray>(second);
    return {a->values[i], b->values[i], b->callBacks.equal};
}

/* The array of objects written as JSON. */
LUMStringRef copyValuesDescription(LUMTypeRef array)
{
    LUMDataRef json = LUMPropertyListCreateData(nullptr, array, kLUMPropertyListJSONFormat, 0, nullptr);
    LUMStringRef text = LUMStringCreateFromExternalRepresentation(nullptr, json, kLUMStringEncodingUTF8);
    LUMRelease(json);
    return text;
}

LUMStringRef __LUMArrayCopyDescriptionInstance(LUMTypeRef obj)
{
    const __LUMArray *array = lum::object<__LUMArray>(obj);
    LUMStringRef text = array->callBacks.copyDescription == LUMCopyDescription
                            ? copyValuesDescription(obj)
                            : static_cast<LUMStringRef>(LUMRetain(LUMSTR("((no LUMTypes))")));
    LUMStringRef description = LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p LUMArray retainCount=%ld count=%ld values=%@>"),
                                                         obj, static_cast<long>(LUMGetRetainCount(obj)), static_cast<long>(array->count), text);
    LUMRelease(text);
    return description;
}

/* Sets count, first growing the block by doubling when it is too small.
 * False, with the array unchanged, when the slots cannot be represented or
 * allocated. */
bool __LUMArraySetCount(__LUMArray *array, int64_t newCount)
{
    if (hasInlineSlots(array) && newCount > array->slotCount) {
        // Slots in the record's block cannot grow: they move out first.
        auto *own = static_cast<const void **>(
            LUMAllocatorAllocate(LUMGetAllocator(array), lum::blockBytes(array->slotCount > 0 ? array->slotCount : 1, sizeof(void *)), 0));
        if (own == nullptr) return false;
        if (array->count > 0) memcpy(own, array->values, static_cast<size_t>(array->count) * sizeof(void *));
        array->values = own;
    }
    void *values = array->values;
    if (!lum::growByDoubling(LUMGetAllocator(array), values, array->slotCount, newCount, sizeof(void *))) return false;
    array->values = static_cast<const void **>(values);
    array->count = static_cast<LUMIndex>(newCount);
    return true;
}

__LUMArray *createArray(LUMAllocatorRef allocator, LUMIndex slots, const LUMArrayCallBacks *callBacks, bool isMutable)
{
    LUMIndex bytes = lum::blockBytes(slots, sizeof(void *));
    if (bytes >= 0 && slots <= kMutableInitialSlots && lum::usesSystemAllocator(allocator)) {
        // The system allocator's blocks are nobody's to count: a few slots
        // go in the record's own block, and move out when they must grow.
        auto *array = lum::object<__LUMArray>(lum::createInstance(allocator, LUMArrayGetTypeID(), static_cast<size_t>(bytes)));
        if (array == nullptr) return nullptr;
        if (callBacks != nullptr) array->callBacks = *callBacks;
        array->slotCount = slots;
        array->values = inlineSlots(array);
        array->isMutable = isMutable;
        return array;
    }
    __LUMArray *array = lum::object<__LUMArray>(_LUMTypeCreateInstance(allocator, LUMArrayGetTypeID()));
    if (array == nullptr) return nullptr;
    if (callBacks != nullptr) array->callBacks = *callBacks;
    void *values = bytes < 0 ? nullptr : LUMAllocatorAllocate(LUMGetAllocator(array), bytes, 0);
    if (values == nullptr && bytes != 0) {
        // A block that cannot be represented or allocated: no array.
        LUMRelease(array);
        return nullptr;
    }
    array->slotCount = slots;
    array->values = static_cast<const void **>(values);
    array->isMutable = isMutable;
    return array;
}

__LUMArray *copyArray(LUMAllocatorRef allocator, LUMArrayRef source, bool isMutable)
{
    const __LUMArray *from = arrayObject(source);
    __LUMArray *array = createArray(allocator, from->slotCount, &from->callBacks, isMutable);
    if (array == nullptr) return nullptr;
    array->capacityHint = from->capacityHint;
    for (LUMIndex i = 0; i < from->count; i++) array->values[i] = retainValue(array, from->values[i]);
    array->count = from->count;
    return array;
}

} // namespace

const lum::ContainerComparison lum::kArrayComparison = {arrayComparisonSteps, arrayComparisonStep};

const LUMArrayCallBacks kLUMTypeArrayCallBacks = {
    0, __LUMArrayRetainTypeValue, __LUMArrayReleaseTypeValue, LUMCopyDescription, LUMEqual,
};

LUMTypeID (LUMArrayGetTypeID)(void) { return lum::registerClassOnce(__kLUMArrayTypeID, __kLUMArrayTypeClass); }

Boolean _LUMArrayInitializeModule(void) { return LUMArrayGetTypeID() != 0; }

LUMArrayRef LUMArrayCreate(LUMAllocatorRef allocator, const void **values, LUMIndex numValues, const LUMArrayCallBacks *callBacks)
{
    __LUMArray *array = createArray(allocator, numValues, callBacks, false);
    if (array == nullptr) return nullptr;
    array->capacityHint = numValues;
    for (LUMIndex i = 0; i < numValues; i++) array->values[i] = retainValue(array, values[i]);
    array->count = numValues;
    return array;
}

namespace {

/* One block: the record, then its count slots (not cleared). A mutable
 * array's slots move out of it when they must grow, as the system
 * allocator's first few always have. With the system allocator every field
 * is written here, without the clearing and the class initializer first. */
__LUMArray *createOneBlockArray(LUMAllocatorRef allocator, LUMIndex count, bool isMutable)
{
    size_t slotBytes = static_cast<size_t>(count) * sizeof(void *);
    if (slotBytes > INT32_MAX) return nullptr;
    auto *array = lum::createFilledInstance<__LUMArray>(allocator, LUMArrayGetTypeID(), slotBytes);
    if (array != nullptr) {
        array->count = 0;
        array->capacityHint = isMutable ? 0 : count;
        array->slotCount = count;
        array->values = inlineSlots(array);
        array->callBacks = kLUMTypeArrayCallBacks;
        array->isMutable = isMutable;
    }
    return array;
}

} // namespace

LUMArrayRef lum::createArrayAdopting(LUMAllocatorRef allocator, const void *const *values, LUMIndex count, bool isMutable)
{
    __LUMArray *array;
    if (isMutable && !lum::usesSystemAllocator(allocator)) {
        array = createArray(allocator, count < kMutableInitialSlots ? kMutableInitialSlots : count, &kLUMTypeArrayCallBacks, true);
    } else {
        array = createOneBlockArray(allocator, count, isMutable);
    }
    if (array == nullptr) return nullptr;
    if (count > 0) memcpy(array->values, values, static_cast<size_t>(count) * sizeof(void *));
    array->count = count;
    return array;
}

LUMArrayRef LUMArrayCreateCopy(LUMAllocatorRef allocator, LUMArrayRef array) { return copyArray(allocator, array, false); }

LUMMutableArrayRef LUMArrayCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity, const LUMArrayCallBacks *callBacks)
{
    __LUMArray *array = createArray(allocator, kMutableInitialSlots, callBacks, true);
    if (array != nullptr) array->capacityHint = capacity;
    return array;
}

LUMMutableArrayRef LUMArrayCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMArrayRef array)
{
    return copyArray(allocator, array, true);
}

LUMIndex (LUMArrayGetCount)(LUMArrayRef array) { return arrayObject(array)->count; }

const void *(LUMArrayGetValueAtIndex)(LUMArrayRef array, LUMIndex idx) { return arrayObject(array)->values[idx]; }

void LUMArrayGetValues(LUMArrayRef array, LUMRange range, const void **values)
{
    const __LUMArray *a = arrayObject(array);
    for (LUMIndex i = 0; i < range.length; i++) values[i] = a->values[range.location + i];
}

LUMIndex LUMArrayGetCountOfValue(LUMArrayRef array, LUMRange range, const void *value)
{
    const __LUMArray *a = arrayObject(array);
    LUMIndex count = 0;
    for (LUMIndex i = range.location; i < range.location + range.length; i++) {
        if (lum::elementsEqual(a->callBacks.equal, a->values[i], value)) count++;
    }
    return count;
}

Boolean LUMArrayContainsValue(LUMArrayRef array, LUMRange range, const void *value)
{
    return LUMArrayGetCountOfValue(array, range, value) > 0;
}

LUMIndex LUMArrayGetFirstIndexOfValue(LUMArrayRef array, LUMRange range, const void *value)
{
    const __LUMArray *a = arrayObject(array);
    for (LUMIndex i = range.location; i < range.location + range.length; i++) {
        if (lum::elementsEqual(a->callBacks.equal, a->values[i], value)) return i;
    }
    return kLUMNotFound;
}

LUMIndex LUMArrayGetLastIndexOfValue(LUMArrayRef array, LUMRange range, const void *value)
{
    const __LUMArray *a = arrayObject(array);
    LUMIndex last = kLUMNotFound;
    for (LUMIndex i = range.location; i < range.location + range.length; i++) {
        if (lum::elementsEqual(a->callBacks.equal, a->values[i], value)) last = i;
    }
    return last;
}

void LUMArrayApplyFunction(LUMArrayRef array, LUMRange range, LUMArrayApplierFunction applier, void *context)
{
    const __LUMArray *a = arrayObject(array);
    for (LUMIndex i = range.location; i < range.location + range.length; i++) applier(a->values[i], context);
}

LUMIndex LUMArrayBSearchValues(LUMArrayRef array, LUMRange range, const void *value, LUMComparatorFunction comparator, void *context)
{
    const __LUMArray *a = arrayObject(array);
    LUMIndex low = range.location;
    LUMIndex high = range.location + range.length - 1;
    while (low <= high) {
        LUMIndex mid = low + ((high - low) >> 1);
        LUMComparisonResult r = comparator(value, a->values[mid], context);
        if (r == kLUMCompareLessThan) high = mid - 1;
        else if (r == kLUMCompareGreaterThan) low = mid + 1;
        else return mid;
    }
    return kLUMNotFound;
}

void LUMArrayAppendValue(LUMMutableArrayRef array, const void *value) { LUMArrayInsertValueAtIndex(array, array->count, value); }

void LUMArrayAppendArray(LUMMutableArrayRef array, LUMArrayRef otherArray, LUMRange otherRange)
{
    for (LUMIndex i = 0; i < otherRange.length; i++) {
        LUMArrayAppendValue(array, LUMArrayGetValueAtIndex(otherArray, otherRange.location + i));
    }
}

void LUMArrayInsertValueAtIndex(LUMMutableArrayRef array, LUMIndex idx, const void *value)
{
    LUMIndex oldCount = array->count;
    if (!__LUMArraySetCount(array, static_cast<int64_t>(oldCount) + 1)) return; // no room: unchanged
    for (LUMIndex i = oldCount; i > idx; i--) array->values[i] = array->values[i - 1];
    array->values[idx] = retainValue(array, value);
}

void LUMArraySetValueAtIndex(LUMMutableArrayRef array, LUMIndex idx, const void *value)
{
    LUM_ASSERT(array->isMutable);
    LUM_ASSERT_TEXT(idx < array->count, "index < array->count");
    // Retain the new value first: setting a value over itself stays safe.
    const void *old = array->values[idx];
    array->values[idx] = retainValue(array, value);
    releaseValue(array, old);
}

void LUMArrayRemoveValueAtIndex(LUMMutableArrayRef array, LUMIndex idx)
{
    const void *taken = array->values[idx];
    for (LUMIndex i = idx; i < array->count - 1; i++) array->values[i] = array->values[i + 1];
    // The release comes before the count drops: a release callback sees the
    // old count (and, past the moved values, the taken value's old slot).
    releaseValue(array, taken);
    __LUMArraySetCount(array, array->count - 1);
}

void LUMArrayRemoveAllValues(LUMMutableArrayRef array)
{
    while (array->count > 0) LUMArrayRemoveValueAtIndex(array, array->count - 1);
}

void LUMArrayExchangeValuesAtIndices(LUMMutableArrayRef array, LUMIndex idx1, LUMIndex idx2)
{
    const void *first = array->values[idx1];
    array->values[idx1] = array->values[idx2];
    array->values[idx2] = first;
}

void LUMArrayReplaceValues(LUMMutableArrayRef array, LUMRange range, const void **newValues, LUMIndex newCount)
{
    // 1. A temporary block for the retained new values. Above 256 slots it
    //    comes from the array's allocator and is not given back (kept so).
    const void *stackSlots[kReplaceStackSlots];
    const void **temp = stackSlots;
    if (static_cast<uint32_t>(newCount) > static_cast<uint32_t>(kReplaceStackSlots)) {
        LUMIndex bytes = lum::blockBytes(newCount, sizeof(void *));
        temp = bytes < 0 ? nullptr : static_cast<const void **>(LUMAllocatorAllocate(LUMGetAllocator(array), bytes, 0));
        if (temp == nullptr) return; // no room for the new values: unchanged
    }
    // 2. Retain every new value.
    for (LUMIndex i = 0; i < newCount; i++) temp[i] = retainValue(array, newValues[i]);
    // 3. Overwrite the first min(newCount, range.length) slots.
    LUMIndex m = newCount < range.length ? newCount : range.length;
    for (LUMIndex i = 0; i < m; i++) {
        const void *old = array->values[range.location + i];
        array->values[range.location + i] = temp[i];
        releaseValue(array, old);
    }
    // 4. Insert the rest as the caller passed them: the insert retains them
    //    again, so they end up retained twice. Kept so.
    for (LUMIndex i = m; i < newCount; i++) LUMArrayInsertValueAtIndex(array, range.location + i, newValues[i]);
    // 5. Remove what the range had beyond the new values, at the index just
    //    after the range (computed once): the values following the range go,
    //    not the leftovers inside it. Kept so.
    if (m < range.length) {
        LUMIndex removeAt = range.location + range.length;
        for (LUMIndex i = 0; i < range.length - m; i++) LUMArrayRemoveValueAtIndex(array, removeAt);
    }
}

void LUMArraySortValues(LUMMutableArrayRef array, LUMRange range, LUMComparatorFunction comparator, void *context)
{
    LUM_ASSERT_AT(436, array->isMutable);
    LUM_ASSERT_AT(437, range.location >= 0);
    LUM_ASSERT_AT(438, range.length >= 0);
    LUM_ASSERT_AT(439, (range.location + range.length) <= array->count);
    // Bubble sort without early exit; only a result of exactly 1 exchanges,
    // so equal elements keep their order.
    LUMIndex loc = range.location;
    for (LUMIndex pass = range.length - 1; pass >= 1; pass--) {
        for (LUMIndex j = 0; j < pass; j++) {
            if (comparator(array->values[loc + j], array->values[loc + j + 1], context) == 1)
                LUMArrayExchangeValuesAtIndices(array, loc + j, loc + j + 1);
        }
    }
}

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(LUMArrayGetTypeID)
LUM_DEFINE_LOCAL(LUMArrayGetCount)
LUM_DEFINE_LOCAL(LUMArrayGetValueAtIndex)
