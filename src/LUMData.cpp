/* LUMData.cpp — byte buffers with their own bytes deallocator.
 * Part of LumBase; MIT licence.
 *
 * Invariants: bytes[0 .. length-1] are in use; the block holds capacity
 * bytes; bytesDeallocator (retained) grows and frees the block. Growth
 * doubles the capacity (from 1 when it is 0) and never shrinks. */
#define LUM_SOURCE_FILE "src/LUMData"
#include "LUMPrivate.h"

#include <LumBase/LUMData.h>
#include <LumBase/LUMPropertyList.h>

struct __LUMData {
    LUMRuntimeBase base;
    UInt8 *bytes;
    LUMIndex length;
    LUMIndex capacity;
    LUMIndex capacityHint;
    LUMAllocatorRef bytesDeallocator;
    Boolean isMutable;
};

namespace {

LUMTypeID __kLUMDataTypeID = 0;
constexpr LUMIndex kMutableInitialCapacity = 16;

Boolean __LUMDataInitializeInstance(LUMTypeRef obj);
void __LUMDataFinalizeInstance(LUMTypeRef obj);
Boolean __LUMDataEqualInstance(LUMTypeRef a, LUMTypeRef b);
LUMStringRef __LUMDataCopyDescriptionInstance(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMDataTypeClass = {
    0, "LUMData", sizeof(__LUMData), __LUMDataInitializeInstance, __LUMDataFinalizeInstance,
    __LUMDataEqualInstance, nullptr, __LUMDataCopyDescriptionInstance,
};

__LUMData *dataObject(LUMDataRef data) { return lum::object<__LUMData>(data); }

Boolean __LUMDataInitializeInstance(LUMTypeRef obj)
{
    __LUMData *data = lum::object<__LUMData>(obj);
    data->bytes = nullptr;
    data->length = 0;
    data->capacity = 0;
    data->capacityHint = 0;
    data->bytesDeallocator = nullptr;
    data->isMutable = 0;
    return true;
}

void __LUMDataFinalizeInstance(LUMTypeRef obj)
{
    __LUMData *data = lum::object<__LUMData>(obj);
    if (data->bytes != nullptr && data->bytesDeallocator != nullptr) LUMAllocatorDeallocate(data->bytesDeallocator, data->bytes);
    data->bytes = nullptr;
    LUMRelease(data->bytesDeallocator);
}

Boolean __LUMDataEqualInstance(LUMTypeRef first, LUMTypeRef second)
{
    const __LUMData *a = lum::object<__LUMData>(first);
    const __LUMData *b = lum::object<__LUMData>(second);
    return a->length == b->length && _LUMCompareMemory(a->bytes, b->bytes, static_cast<size_t>(a->length));
}

LUMStringRef __LUMDataCopyDescriptionInstance(LUMTypeRef obj)
{
    const __LUMData *data = lum::object<__LUMData>(obj);
    // The JSON writer takes the bytes as UTF-8 text and quotes them.
    LUMDataRef json = LUMPropertyListCreateData(nullptr, obj, kLUMPropertyListJSONFormat, 0, nullptr);
    LUMStringRef text = LUMStringCreateFromExternalRepresentation(nullptr, json, kLUMStringEncodingUTF8);
    LUMRelease(json);
    LUMStringRef description = LUMStringCreateWithFormat(
        nullptr, nullptr, LUMSTR("<%p: LUMData retainCount=%ld length=%ld capacity=%ld bytes=%@>"), obj,
        static_cast<long>(LUMGetRetainCount(obj)), static_cast<long>(data->length), static_cast<long>(data->capacity), text);
    LUMRelease(text);
    return description;
}

/* Grows the block by doubling to hold needed bytes. False, with the data
 * unchanged, when that many bytes cannot be represented or allocated. */
bool growTo(__LUMData *data, int64_t needed)
{
    if (data->bytes == reinterpret_cast<UInt8 *>(data + 1) && needed > data->capacity) {
        // Bytes kept in the record's block (LUMDataCreate with the library's
        // own allocator) first move to a block of their own, as
        // LUMDataCreate would have made it, and grow from there.
        LUMAllocatorRef allocator = LUMGetAllocator(data);
        auto *own = static_cast<UInt8 *>(LUMAllocatorAllocate(allocator, data->length > 0 ? data->length : 1, 0));
        if (own == nullptr) return false;
        if (data->length > 0) memcpy(own, data->bytes, static_cast<size_t>(data->length));
        data->bytes = own;
        data->bytesDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    }
    void *bytes = data->bytes;
    if (!lum::growByDoubling(data->bytesDeallocator, bytes, data->capacity, needed, 1)) return false;
    data->bytes = static_cast<UInt8 *>(bytes);
    return true;
}

__LUMData *createData(LUMAllocatorRef allocator)
{
    return lum::object<__LUMData>(_LUMTypeCreateInstance(allocator, LUMDataGetTypeID()));
}

LUMAllocatorRef resolvedAllocator(LUMAllocatorRef allocator)
{
    return allocator != nullptr ? allocator : LUMAllocatorGetDefault();
}

} // namespace

LUMTypeID LUMDataGetTypeID(void) { return lum::registerClassOnce(__kLUMDataTypeID, __kLUMDataTypeClass); }

Boolean _LUMDataInitializeModule(void) { return LUMDataGetTypeID() != 0; }

LUMDataRef LUMDataCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length, LUMAllocatorRef bytesDeallocator)
{
    __LUMData *data = createData(allocator);
    if (data == nullptr) return nullptr;
    data->bytes = const_cast<UInt8 *>(bytes);
    data->length = length;
    data->capacity = length;
    data->bytesDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(bytesDeallocator));
    return data;
}

LUMDataRef LUMDataCreate(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length)
{
    allocator = resolvedAllocator(allocator);
    if (allocator == kLUMAllocatorSystemDefault && length >= 0) {
        // The library's own allocator: the bytes go in the record's block (a
        // caller's allocator sees the bytes' block, then the record's). An
        // immutable data object never grows, so the block never moves.
        auto *data = lum::object<__LUMData>(lum::createSystemInstance(LUMDataGetTypeID(), sizeof(__LUMData) + static_cast<size_t>(length)));
        if (data == nullptr) return nullptr;
        data->bytes = reinterpret_cast<UInt8 *>(data + 1);
        if (length > 0) memcpy(data->bytes, bytes, static_cast<size_t>(length));
        data->length = length;
        data->capacity = length;
        data->capacityHint = 0;
        data->bytesDeallocator = kLUMAllocatorNull;
        data->isMutable = false;
        return data;
    }
    UInt8 *block = static_cast<UInt8 *>(LUMAllocatorAllocate(allocator, length > 0 ? length : 1, 0));
    if (block == nullptr) return nullptr;
    if (length > 0) memcpy(block, bytes, static_cast<size_t>(length));
    LUMDataRef data = LUMDataCreateWithBytesNoCopy(allocator, block, length, allocator);
    if (data == nullptr) LUMAllocatorDeallocate(allocator, block);
    return data;
}

LUMDataRef LUMDataCreateCopy(LUMAllocatorRef allocator, LUMDataRef data)
{
    return LUMDataCreate(allocator, dataObject(data)->bytes, dataObject(data)->length);
}

LUMMutableDataRef LUMDataCreateMutable(LUMAllocatorRef allocator, LUMIndex capacity)
{
    allocator = resolvedAllocator(allocator);
    __LUMData *data = createData(allocator);
    if (data == nullptr) return nullptr;
    data->bytes = static_cast<UInt8 *>(LUMAllocatorAllocate(allocator, kMutableInitialCapacity, 0));
    data->capacity = kMutableInitialCapacity;
    data->capacityHint = capacity;
    data->bytesDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    data->isMutable = 1;
    return data;
}

LUMMutableDataRef LUMDataCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex capacity, LUMDataRef source)
{
    allocator = resolvedAllocator(allocator);
    const __LUMData *from = dataObject(source);
    __LUMData *data = createData(allocator);
    if (data == nullptr) return nullptr;
    data->bytes = static_cast<UInt8 *>(LUMAllocatorAllocate(allocator, from->capacity > 0 ? from->capacity : 1, 0));
    if (from->length > 0) memcpy(data->bytes, from->bytes, static_cast<size_t>(from->length));
    data->length = from->length;
    data->capacity = from->capacity;
    data->capacityHint = capacity;
    data->bytesDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    data->isMutable = 1;
    return data;
}

const UInt8 *LUMDataGetBytePtr(LUMDataRef data) { return dataObject(data)->bytes; }

LUMIndex LUMDataGetLength(LUMDataRef data) { return dataObject(data)->length; }

void LUMDataGetBytes(LUMDataRef data, LUMRange range, UInt8 *buffer)
{
    if (range.length > 0) memcpy(buffer, dataObject(data)->bytes + range.location, static_cast<size_t>(range.length));
}

UInt8 *LUMDataGetMutableBytePtr(LUMMutableDataRef data)
{
    LUM_ASSERT_AT(265, data->isMutable);
    return data->bytes;
}

void LUMDataSetLength(LUMMutableDataRef data, LUMIndex length)
{
    if (!growTo(data, length)) return;
    if (length > data->length) _LUMZeroMemory(data->bytes + data->length, static_cast<size_t>(length - data->length));
    data->length = length;
}

void LUMDataIncreaseLength(LUMMutableDataRef data, LUMIndex extraLength)
{
    int64_t length = static_cast<int64_t>(data->length) + extraLength;
    if (length > INT32_MAX) return; // cannot be represented: unchanged
    LUMDataSetLength(data, static_cast<LUMIndex>(length));
}

void LUMDataAppendBytes(LUMMutableDataRef data, const UInt8 *bytes, LUMIndex length)
{
    LUM_ASSERT_AT(244, data->isMutable);
    if (!growTo(data, static_cast<int64_t>(data->length) + length)) return;
    if (length > 0) memmove(data->bytes + data->length, bytes, static_cast<size_t>(length));
    data->length += length;
}

void LUMDataDeleteBytes(LUMMutableDataRef data, LUMRange range)
{
    LUM_ASSERT_AT(256, data->isMutable);
    LUMIndex tail = data->length - range.location - range.length;
    _LUMMoveMemory(data->bytes + range.location, data->bytes + range.location + range.length, static_cast<size_t>(tail));
    data->length -= range.length;
}

void LUMDataReplaceBytes(LUMMutableDataRef data, LUMRange range, const UInt8 *newBytes, LUMIndex newLength)
{
    LUM_ASSERT_AT(276, data->isMutable);
    LUM_ASSERT_AT(277, (range.location >= 0) && (range.length >= 0));
    LUM_ASSERT_AT(278, (range.location + range.length) <= data->length);
    int64_t total = static_cast<int64_t>(data->length) - range.length + newLength;
    if (!growTo(data, total)) return;
    LUMIndex newTotal = static_cast<LUMIndex>(total);
    LUMIndex tail = data->length - range.location - range.length;
    _LUMMoveMemory(data->bytes + range.location + newLength, data->bytes + range.location + range.length, static_cast<size_t>(tail));
    if (newLength > 0) memmove(data->bytes + range.location, newBytes, static_cast<size_t>(newLength));
    // Every byte up to the new total now holds the tail or the new bytes, so
    // there is nothing left to zero-fill.
    data->length = newTotal;
}
