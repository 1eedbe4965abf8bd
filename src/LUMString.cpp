/* LUMString.cpp — string objects: the two storage forms, the UTF-8 codec,
 * creation, access, the inline buffer, hashing, equality, constant strings,
 * the formatting engine, editing, search, comparison and conversion.
 * Part of LumBase; MIT licence.
 *
 * Invariants: a string is a sequence of UTF-16 units. The byte form
 * (bufferType 1) keeps NUL-terminated UTF-8 and its length is the number of
 * units the decoder yields; the unit form (bufferType 2) keeps an array of
 * units. A mutable string always has the unit form and length <= capacity;
 * its unit array grows by doubling through the string's own allocator and
 * never shrinks. contentsDeallocator (retained) receives the buffer at
 * finalisation. */
#define LUM_SOURCE_FILE "src/LUMString"
#include "LUMStringPrivate.h"

#include <cmath>

#include <LumBase/LUMArray.h>
#include <LumBase/LUMData.h>
#include <LumBase/LUMDictionary.h>

#include <cstdarg>
#include <cstdio>

namespace {

LUMTypeID __kLUMStringTypeID = 0;
/* The constant strings, one per distinct text, in an open-addressing table
 * keyed by the callers' C strings (compared by content, kept as the
 * caller's pointer, never copied): finding a constant costs the same
 * however many there are. At most half the slots are in use. */
struct ConstantStrings {
    const __LUMString **slots;
    size_t capacity; // a power of two
    size_t count;
};
ConstantStrings __constantStrings = {nullptr, 0, 0};
constexpr size_t kInitialConstantSlots = 256;

constexpr int32_t kMutableInitialCapacity = 32;

Boolean __LUMStringInitializeInstance(LUMTypeRef obj);
void __LUMStringFinalizeInstance(LUMTypeRef obj);
Boolean __LUMStringEqual(LUMTypeRef a, LUMTypeRef b);
LUMHashCode __LUMStringHash(LUMTypeRef obj);
LUMStringRef __LUMStringCopyDescription(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMStringTypeClass = {
    0, "LUMString", sizeof(__LUMString), __LUMStringInitializeInstance, __LUMStringFinalizeInstance,
    __LUMStringEqual, __LUMStringHash, __LUMStringCopyDescription,
};

__LUMString *stringObject(LUMStringRef str) { return lum::object<__LUMString>(str); }

const UInt8 *bytesOf(const __LUMString *ptr) { return static_cast<const UInt8 *>(ptr->buffer); }
const UniChar *unitsOf(const __LUMString *ptr) { return static_cast<const UniChar *>(ptr->buffer); }
UniChar *unitsOf(__LUMString *ptr) { return static_cast<UniChar *>(ptr->buffer); }

[[noreturn]] void unexpectedBufferType(const char *function)
{
    _LUMFatal(function, LUM_SOURCE_FILE, __LINE__, "Unexpected string buffer type");
}

bool hasKnownBufferType(const __LUMString *ptr)
{
    return ptr->bufferType == _kLUMStringBufferTypeCString || ptr->bufferType == _kLUMStringBufferTypeUniCharString;
}

/* ---- UTF-8 codec --------------------------------------------------------- */

UniChar __LUMStringDecodeUTF8Sequence(const UInt8 *bytes, LUMIndex *index) { return lum::decodeUTF8(bytes, *index); }

/* Units below 0x80 take one byte, below 0x800 two, all others (surrogates
 * included, so a pair becomes two three-byte sequences) three. */
void __LUMStringEncodeUTF8Sequence(UniChar unit, UInt8 *bytes, LUMIndex *index)
{
    LUMIndex i = *index;
    if (unit < 0x80) {
        bytes[i++] = static_cast<UInt8>(unit);
    } else if (unit < 0x800) {
        bytes[i++] = static_cast<UInt8>(0xC0 | (unit >> 6));
        bytes[i++] = static_cast<UInt8>(0x80 | (unit & 0x3F));
    } else {
        bytes[i++] = static_cast<UInt8>(0xE0 | (unit >> 12));
        bytes[i++] = static_cast<UInt8>(0x80 | ((unit >> 6) & 0x3F));
        bytes[i++] = static_cast<UInt8>(0x80 | (unit & 0x3F));
    }
    *index = i;
}

LUMIndex encodedSize(UniChar unit) { return unit < 0x80 ? 1 : (unit < 0x800 ? 2 : 3); }

LUMIndex decodedLength(const UInt8 *bytes)
{
    LUMIndex length = 0;
    LUMIndex index = 0;
    while (bytes[index] != 0) {
        __LUMStringDecodeUTF8Sequence(bytes, &index);
        length++;
    }
    return length;
}

/* ---- Where characters start in a long byte-form string --------------------
 * A byte-form string has no index from characters to bytes: reaching
 * character n means decoding the n before it. For the most recently read
 * long byte-form string, the byte offset of every 64th character is kept as
 * decoding passes it, so that a read at any position starts at most 63
 * characters before it instead of at the beginning (a sequential pass and
 * a search with many partial matches are then linear, not quadratic). The
 * string's text never changes (byte-form strings are immutable); its
 * finalization forgets it. Nothing here is visible to callers. */

constexpr LUMIndex kCheckpointStride = 64;
constexpr LUMIndex kCheckpointMinimumLength = 4 * kCheckpointStride;

struct ByteFormCursor {
    const __LUMString *string;
    LUMIndex *offsets; // offsets[k]: where character k * kCheckpointStride starts
    LUMIndex known;    // how many offsets are known
    LUMIndex capacity;
};
ByteFormCursor __byteFormCursor = {nullptr, nullptr, 0, 0};

void forgetByteFormCursor(const __LUMString *ptr)
{
    if (__byteFormCursor.string == ptr) __byteFormCursor.string = nullptr;
}

/* Decodes range.length characters from range.location into units. */
void decodeByteForm(const __LUMString *ptr, LUMRange range, UniChar *units)
{
    const UInt8 *bytes = bytesOf(ptr);
    ByteFormCursor &cursor = __byteFormCursor;
    bool checkpoints = ptr->length >= kCheckpointMinimumLength;
    if (checkpoints && cursor.string != ptr) {
        cursor.string = ptr;
        cursor.known = 0;
    }
    LUMIndex character = 0, index = 0;
    if (checkpoints) {
        if (cursor.known == 0) {
            if (cursor.capacity == 0) {
                cursor.offsets = static_cast<LUMIndex *>(malloc(64 * sizeof(LUMIndex)));
                cursor.capacity = cursor.offsets != nullptr ? 64 : 0;
            }
            if (cursor.capacity > 0) {
                cursor.offsets[0] = 0;
                cursor.known = 1;
            }
        }
        LUMIndex k = range.location / kCheckpointStride;
        if (k >= cursor.known) k = cursor.known - 1;
        if (k > 0) {
            character = k * kCheckpointStride;
            index = cursor.offsets[k];
        }
    }
    LUMIndex end = range.location + range.length;
    for (; character < end; character++) {
        if (checkpoints && character % kCheckpointStride == 0) {
            LUMIndex k = character / kCheckpointStride;
            if (k == cursor.known) {
                if (k == cursor.capacity) {
                    void *grown = realloc(cursor.offsets, static_cast<size_t>(cursor.capacity) * 2 * sizeof(LUMIndex));
                    if (grown != nullptr) {
                        cursor.offsets = static_cast<LUMIndex *>(grown);
                        cursor.capacity *= 2;
                    }
                }
                if (k < cursor.capacity) cursor.offsets[cursor.known++] = index;
            }
        }
        UniChar unit = __LUMStringDecodeUTF8Sequence(bytes, &index);
        if (character >= range.location) units[character - range.location] = unit;
    }
}

/* Reads a string's units by index. Unit arrays are read directly; a byte
 * buffer read in order (index 0, 1, 2, ...) is decoded as it goes, so a
 * whole pass is linear; any other order goes through the inline buffer,
 * which decodes in runs of 64 units. */
class CharacterReader {
public:
    CharacterReader(LUMStringRef str, LUMRange range) : length_(range.length)
    {
        LUMStringInitInlineBuffer(str, &buffer_, range); // checks the range
        const __LUMString *ptr = stringObject(str);
        if (ptr->bufferType == _kLUMStringBufferTypeCString) {
            bytes_ = bytesOf(ptr);
            for (LUMIndex i = 0; i < range.location; i++) lum::decodeUTF8(bytes_, byteIndex_);
        } else if (ptr->bufferType == _kLUMStringBufferTypeUniCharString) {
            units_ = unitsOf(ptr) + range.location;
        }
    }
    explicit CharacterReader(LUMStringRef str) : CharacterReader(str, LUMRangeMake(0, LUMStringGetLength(str))) {}
    UniChar operator[](LUMIndex idx)
    {
        if (units_ != nullptr) return units_[idx];
        if (bytes_ != nullptr && idx == next_ && idx < length_) {
            next_++;
            return lum::decodeUTF8(bytes_, byteIndex_);
        }
        return LUMStringGetCharacterFromInlineBuffer(&buffer_, idx);
    }
    LUMIndex length() const { return length_; }
private:
    LUMStringInlineBuffer buffer_;
    LUMIndex length_;
    const UniChar *units_ = nullptr; // unit form: the units of the range
    const UInt8 *bytes_ = nullptr; // byte form: the text, read in order
    LUMIndex byteIndex_ = 0;       // where unit next_ starts
    LUMIndex next_ = 0;
};

/* ---- Class callbacks ----------------------------------------------------- */

Boolean __LUMStringInitializeInstance(LUMTypeRef obj)
{
    __LUMString *ptr = lum::object<__LUMString>(obj);
    ptr->buffer = nullptr;
    ptr->bufferType = 0;
    ptr->length = 0;
    ptr->capacity = 0;
    ptr->encoding = 0;
    ptr->contentsDeallocator = nullptr;
    ptr->isMutable = 0;
    return true;
}

void __LUMStringFinalizeInstance(LUMTypeRef obj)
{
    __LUMString *ptr = lum::object<__LUMString>(obj);
    forgetByteFormCursor(ptr);
    // The null allocator frees nothing and is constant: text in the
    // string's own block needs no call.
    if (ptr->contentsDeallocator == kLUMAllocatorNull) {
        ptr->buffer = nullptr;
        return;
    }
    if (ptr->buffer != nullptr) LUMAllocatorDeallocate(ptr->contentsDeallocator, ptr->buffer);
    ptr->buffer = nullptr;
    LUMRelease(ptr->contentsDeallocator);
}

/* Equality of two strings of one length read as far as both stay ASCII:
 * an ASCII byte decodes to itself and one unit holds one character, so a
 * difference there, or a whole text of ASCII, settles it. 1 equal, 0 not,
 * -1 left to the general comparison (a byte above 127 came first). */
int asciiVerdict(const __LUMString *first, const __LUMString *second)
{
    LUMIndex length = first->length;
    bool firstBytes = first->bufferType == _kLUMStringBufferTypeCString;
    bool secondBytes = second->bufferType == _kLUMStringBufferTypeCString;
    if (!firstBytes && !secondBytes) return memcmp(first->buffer, second->buffer, static_cast<size_t>(length) * sizeof(UniChar)) == 0;
    auto unitAt = [](const __LUMString *ptr, bool isBytes, LUMIndex i) -> uint32_t {
        return isBytes ? static_cast<const UInt8 *>(ptr->buffer)[i] : static_cast<const UniChar *>(ptr->buffer)[i];
    };
    for (LUMIndex i = 0; i < length; i++) {
        uint32_t x = unitAt(first, firstBytes, i);
        uint32_t y = unitAt(second, secondBytes, i);
        if ((firstBytes && x >= 0x80) || (secondBytes && y >= 0x80)) return -1;
        if (x != y) return 0;
    }
    return 1;
}

Boolean __LUMStringEqual(LUMTypeRef a, LUMTypeRef b)
{
    const __LUMString *first = lum::object<__LUMString>(a);
    const __LUMString *second = lum::object<__LUMString>(b);
    if (!hasKnownBufferType(first) || !hasKnownBufferType(second)) unexpectedBufferType("__LUMStringEqual");
    if (first->length != second->length) return false;
    int verdict = asciiVerdict(first, second);
    if (verdict >= 0) return verdict == 1;
    CharacterReader x(static_cast<LUMStringRef>(a)), y(static_cast<LUMStringRef>(b));
    for (LUMIndex i = 0; i < first->length; i++) {
        if (x[i] != y[i]) return false;
    }
    return true;
}

/* h = length, then h = h * 13 + unit for every unit (unsigned 32-bit). */
LUMHashCode hashUnits(LUMHashCode length, CharacterReader &reader)
{
    LUMHashCode h = length;
    for (LUMIndex i = 0; i < static_cast<LUMIndex>(length); i++) h = h * 13 + reader[i];
    return h;
}

/* The same hash over units in memory, four at a time: h * 13^4 plus the
 * four units' terms is what four single steps give, modulo 2^32. */
LUMHashCode hashUnitArray(LUMHashCode length, const UniChar *units)
{
    LUMHashCode h = length;
    LUMIndex i = 0;
    for (; i + 4 <= static_cast<LUMIndex>(length); i += 4)
        h = h * 28561u + units[i] * 2197u + units[i + 1] * 169u + units[i + 2] * 13u + units[i + 3];
    for (; i < static_cast<LUMIndex>(length); i++) h = h * 13 + units[i];
    return h;
}

LUMHashCode __LUMStringHash(LUMTypeRef obj)
{
    const __LUMString *ptr = lum::object<__LUMString>(obj);
    if (!hasKnownBufferType(ptr)) unexpectedBufferType("__LUMStringHash");
    if (ptr->bufferType == _kLUMStringBufferTypeUniCharString) return hashUnitArray(static_cast<LUMHashCode>(ptr->length), unitsOf(ptr));
    CharacterReader reader(static_cast<LUMStringRef>(obj));
    return hashUnits(static_cast<LUMHashCode>(ptr->length), reader);
}

LUMStringRef __LUMStringCopyDescription(LUMTypeRef obj)
{
    return LUMStringCreateCopy(LUMGetAllocator(obj), static_cast<LUMStringRef>(obj));
}

/* Keys of the constant-string table are the callers' C strings. */
Boolean __LUMStringEqualCString(const void *a, const void *b)
{
    if (a == b) return true;
    if (a == nullptr || b == nullptr) return false;
    return strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
}

/* FNV-1a over the bytes: where a text's constant sits in the table. */
size_t constantSlotOf(const char *text, size_t capacity)
{
    uint32_t hash = 2166136261u;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(text); *p != 0; p++) hash = (hash ^ *p) * 16777619u;
    return hash & (capacity - 1);
}

/* The slot holding text's constant, or the empty slot where it belongs. */
const __LUMString **findConstant(const char *text)
{
    ConstantStrings &table = __constantStrings;
    for (size_t i = constantSlotOf(text, table.capacity);; i = (i + 1) & (table.capacity - 1)) {
        const __LUMString *entry = table.slots[i];
        if (entry == nullptr || __LUMStringEqualCString(entry->buffer, text)) return &table.slots[i];
    }
}

bool growConstants()
{
    ConstantStrings &table = __constantStrings;
    size_t capacity = table.capacity == 0 ? kInitialConstantSlots : table.capacity * 2;
    auto *slots = static_cast<const __LUMString **>(calloc(capacity, sizeof(const __LUMString *)));
    if (slots == nullptr) return false;
    ConstantStrings grown = {slots, capacity, table.count};
    for (size_t i = 0; i < table.capacity; i++) {
        const __LUMString *entry = table.slots[i];
        if (entry == nullptr) continue;
        size_t at = constantSlotOf(static_cast<const char *>(entry->buffer), capacity);
        while (slots[at] != nullptr) at = (at + 1) & (capacity - 1);
        slots[at] = entry;
    }
    free(table.slots);
    table = grown;
    return true;
}

/* ---- Creation helpers ---------------------------------------------------- */

__LUMString *createInstance(LUMAllocatorRef allocator)
{
    return lum::object<__LUMString>(lum::createInstance(allocator, LUMStringGetTypeID(), 0));
}

/* An immutable byte-form string whose text (copied, NUL added) lives in
 * the record's own block; NULL without memory. */
__LUMString *createOneBlockByteString(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex numBytes, LUMStringEncoding encoding)
{
    size_t textBytes = static_cast<size_t>(numBytes) + 1;
    auto *ptr = lum::createFilledInstance<__LUMString>(allocator, LUMStringGetTypeID(), textBytes);
    if (ptr == nullptr) return nullptr;
    ptr->capacity = 0;
    ptr->isMutable = 0;
    char *text = reinterpret_cast<char *>(ptr + 1);
    if (numBytes > 0) memcpy(text, bytes, static_cast<size_t>(numBytes));
    text[numBytes] = '\0';
    // ASCII (no byte above 127, no NUL inside) is one unit per byte.
    UInt8 high = 0;
    bool hasNUL = false;
    for (LUMIndex i = 0; i < numBytes; i++) {
        high |= bytes[i];
        hasNUL = hasNUL || bytes[i] == 0;
    }
    ptr->buffer = text;
    ptr->bufferType = _kLUMStringBufferTypeCString;
    ptr->length = high < 0x80 && !hasNUL ? numBytes : decodedLength(reinterpret_cast<const UInt8 *>(text));
    ptr->encoding = encoding;
    ptr->contentsDeallocator = kLUMAllocatorNull; // the text goes with the record
    return ptr;
}

LUMAllocatorRef resolvedAllocator(LUMAllocatorRef allocator)
{
    return allocator != nullptr ? allocator : LUMAllocatorGetDefault();
}

/* ---- Growth and appending ------------------------------------------------ */

/* Grows the unit buffer by doubling to hold needed units. False, with the
 * string unchanged, when that many units cannot be represented or
 * allocated: the edit that asked for them then changes nothing. */
bool __LUMStringEnsureLength(__LUMString *ptr, int64_t needed)
{
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(ptr->bufferType == _kLUMStringBufferTypeUniCharString);
    return lum::growByDoubling(LUMGetAllocator(ptr), ptr->buffer, ptr->capacity, needed, sizeof(UniChar));
}

void __LUMStringAppendCharacter(__LUMString *ptr, UniChar unit)
{
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(ptr->bufferType == _kLUMStringBufferTypeUniCharString);
    if (!__LUMStringEnsureLength(ptr, static_cast<int64_t>(ptr->length) + 1)) return;
    unitsOf(ptr)[ptr->length++] = unit;
}

} // namespace


LUMTypeID (LUMStringGetTypeID)(void)
{
    if (__kLUMStringTypeID == 0) {
        __kLUMStringTypeID = _LUMTypeRegisterClass(&__kLUMStringTypeClass);
        LUM_ASSERT(__kLUMStringTypeID == 2);
    }
    return __kLUMStringTypeID;
}

Boolean _LUMStringInitializeModule(void)
{
    return __constantStrings.slots != nullptr || growConstants();
}

void _LUMStringInitializeConstantInstance(struct __LUMString *str, const char *cStr)
{
    _LUMTypeInitializeInstance(str, _kLUMAllocatorConstant, LUMStringGetTypeID());
    str->buffer = const_cast<char *>(cStr);
    str->bufferType = _kLUMStringBufferTypeCString;
    str->length = decodedLength(reinterpret_cast<const UInt8 *>(cStr));
    str->encoding = kLUMStringEncodingUTF8;
    str->capacity = 0;
    str->contentsDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(kLUMAllocatorNull));
    str->isMutable = 0;
}

LUMStringRef LUMSTR(const char *cStr)
{
    if (__constantStrings.slots == nullptr && !growConstants()) return nullptr;
    const __LUMString **slot = findConstant(cStr);
    if (*slot != nullptr) return *slot;
    LUMStringRef created = LUMStringCreateWithCStringNoCopy(_kLUMAllocatorConstant, cStr, kLUMStringEncodingUTF8, kLUMAllocatorNull);
    if (created == nullptr) return nullptr;
    if (2 * (__constantStrings.count + 1) > __constantStrings.capacity) {
        if (!growConstants()) return created; // not kept: a later LUMSTR of this text makes another
        slot = findConstant(cStr);
    }
    *slot = stringObject(created);
    __constantStrings.count++;
    return created;
}

/* ---- Creation -------------------------------------------------------------- */

LUMStringRef LUMStringCreateWithCStringNoCopy(LUMAllocatorRef allocator, const char *cStr, LUMStringEncoding encoding,
                                              LUMAllocatorRef contentsDeallocator)
{
    __LUMString *ptr = createInstance(allocator);
    if (ptr == nullptr) return nullptr;
    ptr->buffer = const_cast<char *>(cStr);
    ptr->bufferType = _kLUMStringBufferTypeCString;
    ptr->length = decodedLength(reinterpret_cast<const UInt8 *>(cStr));
    ptr->encoding = encoding;
    ptr->contentsDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(contentsDeallocator));
    return ptr;
}

LUMStringRef LUMStringCreateWithBytes(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex numBytes, LUMStringEncoding encoding)
{
    allocator = resolvedAllocator(allocator);
    // The library's own allocator: the text goes in the record's block (a
    // caller's allocator sees the text's block, then the record's).
    if (allocator == kLUMAllocatorSystemDefault) return createOneBlockByteString(allocator, bytes, numBytes, encoding);
    char *copy = static_cast<char *>(LUMAllocatorAllocate(allocator, numBytes + 1, 0));
    if (numBytes > 0) memcpy(copy, bytes, static_cast<size_t>(numBytes));
    copy[numBytes] = '\0';
    return LUMStringCreateWithCStringNoCopy(allocator, copy, encoding, allocator);
}

LUMStringRef LUMStringCreateWithCString(LUMAllocatorRef allocator, const char *cStr, LUMStringEncoding encoding)
{
    return LUMStringCreateWithBytes(allocator, reinterpret_cast<const UInt8 *>(cStr), static_cast<LUMIndex>(strlen(cStr)), encoding);
}

LUMStringRef LUMStringCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex numBytes,
                                            LUMStringEncoding encoding, Boolean isExternalRepresentation,
                                            LUMAllocatorRef contentsDeallocator)
{
    // The bytes are copied all the same; the caller's block is handed to its
    // deallocator right away, as a NoCopy caller expects to give it up.
    LUMStringRef str = LUMStringCreateWithBytes(allocator, bytes, numBytes, encoding);
    if (contentsDeallocator != nullptr) LUMAllocatorDeallocate(contentsDeallocator, const_cast<UInt8 *>(bytes));
    return str;
}

LUMStringRef LUMStringCreateFromExternalRepresentation(LUMAllocatorRef allocator, LUMDataRef data, LUMStringEncoding encoding)
{
    return LUMStringCreateWithBytes(allocator, LUMDataGetBytePtr(data), LUMDataGetLength(data), encoding);
}

LUMStringRef LUMStringCreateWithFileSystemRepresentation(LUMAllocatorRef allocator, const char *buffer)
{
    LUM_ASSERT(((allocator) == NULL) || _LUMTypeCheckValid(allocator, LUMAllocatorGetTypeID()));
    LUM_ASSERT(buffer != NULL);
    return LUMStringCreateWithCString(allocator, buffer, kLUMStringEncodingUTF8);
}

LUMStringRef LUMStringCreateWithCharactersNoCopy(LUMAllocatorRef allocator, const UniChar *chars, LUMIndex numChars,
                                                 LUMAllocatorRef contentsDeallocator)
{
    __LUMString *ptr = createInstance(allocator);
    if (ptr == nullptr) return nullptr;
    ptr->buffer = const_cast<UniChar *>(chars);
    ptr->bufferType = _kLUMStringBufferTypeUniCharString;
    ptr->length = numChars;
    ptr->contentsDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(contentsDeallocator));
    return ptr;
}

LUMStringRef LUMStringCreateWithCharacters(LUMAllocatorRef allocator, const UniChar *chars, LUMIndex numChars)
{
    allocator = resolvedAllocator(allocator);
    // One unit more than needed so that an empty string still owns a block.
    UniChar *copy = static_cast<UniChar *>(LUMAllocatorAllocate(allocator, static_cast<LUMIndex>((numChars + 1) * sizeof(UniChar)), 0));
    if (numChars > 0) memcpy(copy, chars, static_cast<size_t>(numChars) * sizeof(UniChar));
    return LUMStringCreateWithCharactersNoCopy(allocator, copy, numChars, allocator);
}

LUMStringRef lum::createStringWithASCII(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length)
{
    return createOneBlockByteString(allocator, bytes, length, kLUMStringEncodingUTF8);
}

namespace {

/* An immutable unit string of length units in one block, its units (and
 * the NUL after them) for the caller to fill. */
__LUMString *createOneBlockUnitString(LUMAllocatorRef allocator, LUMIndex length, UniChar *&units)
{
    // Units need their alignment; the record's size keeps it on every platform.
    static_assert(sizeof(__LUMString) % alignof(UniChar) == 0);
    size_t unitBytes = (static_cast<size_t>(length) + 1) * sizeof(UniChar);
    auto *ptr = lum::createFilledInstance<__LUMString>(allocator, LUMStringGetTypeID(), unitBytes);
    if (ptr == nullptr) return nullptr;
    ptr->capacity = 0;
    ptr->encoding = 0;
    ptr->isMutable = 0;
    units = reinterpret_cast<UniChar *>(ptr + 1);
    units[length] = 0;
    ptr->buffer = units;
    ptr->bufferType = _kLUMStringBufferTypeUniCharString;
    ptr->length = length;
    ptr->contentsDeallocator = kLUMAllocatorNull;
    return ptr;
}

} // namespace

LUMStringRef lum::createStringWithUnits(LUMAllocatorRef allocator, const UniChar *units, LUMIndex length)
{
    UniChar *copy;
    __LUMString *ptr = createOneBlockUnitString(allocator, length, copy);
    if (ptr != nullptr && length > 0) memcpy(copy, units, static_cast<size_t>(length) * sizeof(UniChar));
    return ptr;
}

LUMStringRef lum::createStringWithByteUnits(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length)
{
    UniChar *units;
    __LUMString *ptr = createOneBlockUnitString(allocator, length, units);
    if (ptr != nullptr) lum::widenBytes(bytes, static_cast<size_t>(length), units);
    return ptr;
}

LUMStringRef LUMStringCreateWithSubstring(LUMAllocatorRef allocator, LUMStringRef str, LUMRange range)
{
    const __LUMString *string = stringObject(str);
    LUM_ASSERT(range.location >= 0);
    LUM_ASSERT(range.length >= 0);
    LUM_ASSERT((range.location + range.length) <= string->length);
    lum::TempBuffer<UniChar, 256> units(static_cast<size_t>(range.length));
    LUMStringGetCharacters(str, range, units.get());
    return LUMStringCreateWithCharacters(allocator, units.get(), range.length);
}

LUMStringRef LUMStringCreateCopy(LUMAllocatorRef allocator, LUMStringRef str)
{
    const __LUMString *ptr = stringObject(str);
    // A NULL allocator never equals a real one, so it always copies.
    if (!ptr->isMutable && allocator == LUMGetAllocator(str)) return static_cast<LUMStringRef>(LUMRetain(str));
    switch (ptr->bufferType) {
    case _kLUMStringBufferTypeUniCharString:
        return LUMStringCreateWithCharacters(allocator, unitsOf(ptr), ptr->length);
    case _kLUMStringBufferTypeCString:
        return LUMStringCreateWithCString(allocator, static_cast<const char *>(ptr->buffer), ptr->encoding);
    default:
        unexpectedBufferType("LUMStringCreateCopy");
    }
}

namespace {

/* An empty mutable string with room for capacity units. The unit block is
 * taken first; without it there is no string. */
__LUMString *createMutable(LUMAllocatorRef allocator, int32_t capacity)
{
    allocator = resolvedAllocator(allocator);
    void *units = LUMAllocatorAllocate(allocator, static_cast<LUMIndex>(capacity * sizeof(UniChar)), 0);
    if (units == nullptr) return nullptr;
    __LUMString *ptr = createInstance(allocator);
    if (ptr == nullptr) {
        LUMAllocatorDeallocate(allocator, units);
        return nullptr;
    }
    ptr->buffer = units;
    ptr->bufferType = _kLUMStringBufferTypeUniCharString;
    ptr->capacity = capacity;
    ptr->contentsDeallocator = static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    ptr->isMutable = 1;
    return ptr;
}

} // namespace

LUMMutableStringRef LUMStringCreateMutable(LUMAllocatorRef allocator, LUMIndex maxLength)
{
    LUM_ASSERT(maxLength == 0);
    return createMutable(allocator, kMutableInitialCapacity);
}

LUMMutableStringRef LUMStringCreateMutableCopy(LUMAllocatorRef allocator, LUMIndex maxLength, LUMStringRef str)
{
    LUM_ASSERT(maxLength == 0);
    const __LUMString *source = stringObject(str);
    int32_t capacity = source->capacity < kMutableInitialCapacity ? kMutableInitialCapacity : source->capacity;
    __LUMString *ptr = createMutable(allocator, capacity);
    // A failed creation is not survivable here: the append runs on NULL.
    LUMStringAppend(ptr, str);
    return ptr;
}

/* ---- Access -------------------------------------------------------------- */

LUMIndex (LUMStringGetLength)(LUMStringRef str)
{
    const __LUMString *ptr = stringObject(str);
    LUM_ASSERT(_LUMTypeCheckValid(ptr, LUMStringGetTypeID()));
    return ptr->length;
}

const UniChar *LUMStringGetCharactersPtr(LUMStringRef str)
{
    const __LUMString *ptr = stringObject(str);
    return ptr->bufferType == _kLUMStringBufferTypeUniCharString ? unitsOf(ptr) : nullptr;
}

const char *LUMStringGetCStringPtr(LUMStringRef str, LUMStringEncoding encoding)
{
    const __LUMString *ptr = stringObject(str);
    if (ptr->bufferType == _kLUMStringBufferTypeCString && ptr->encoding == encoding)
        return static_cast<const char *>(ptr->buffer);
    return nullptr;
}

void LUMStringGetCharacters(LUMStringRef str, LUMRange range, UniChar *buffer)
{
    const __LUMString *ptr = stringObject(str);
    LUM_ASSERT(range.location >= 0);
    LUM_ASSERT(range.length >= 0);
    LUM_ASSERT((range.location + range.length) <= ptr->length);
    switch (ptr->bufferType) {
    case _kLUMStringBufferTypeUniCharString:
        if (range.length > 0) memcpy(buffer, unitsOf(ptr) + range.location, static_cast<size_t>(range.length) * sizeof(UniChar));
        return;
    case _kLUMStringBufferTypeCString: {
        decodeByteForm(ptr, range, buffer);
        return;
    }
    default:
        unexpectedBufferType("LUMStringGetCharacters");
    }
}

Boolean LUMStringGetCString(LUMStringRef str, char *buffer, LUMIndex bufferSize, LUMStringEncoding encoding)
{
    LUM_ASSERT(encoding == kLUMStringEncodingUTF8);
    // Without room even for the NUL nothing fits and nothing is written (a
    // null buffer of size 0 is the usual way to ask).
    if (bufferSize < 1) return false;
    // Characters in order, straight from the storage: units as they are,
    // bytes through the decoder (what a reader of the string would give).
    const __LUMString *ptr = stringObject(str);
    if (!hasKnownBufferType(ptr)) unexpectedBufferType("LUMStringGetCString");
    bool isBytes = ptr->bufferType == _kLUMStringBufferTypeCString;
    LUMIndex byteIndex = 0;
    LUMIndex written = 0;
    UInt8 *out = reinterpret_cast<UInt8 *>(buffer);
    for (LUMIndex i = 0; i < ptr->length; i++) {
        UniChar unit = isBytes ? lum::decodeUTF8(bytesOf(ptr), byteIndex) : unitsOf(ptr)[i];
        // Each character must leave two bytes free: one for the NUL and one
        // deliberate byte of reserve.
        if (written + encodedSize(unit) >= bufferSize - 1) {
            if (bufferSize > written) buffer[written] = '\0';
            return false;
        }
        __LUMStringEncodeUTF8Sequence(unit, out, &written);
    }
    buffer[written] = '\0';
    return true;
}

Boolean LUMStringGetFileSystemRepresentation(LUMStringRef str, char *buffer, LUMIndex maxBufLen)
{
    // A path holding U+0000 has no file-system form: cut there, it would
    // name another file. The buffer then holds the empty path.
    CharacterReader reader(str);
    for (LUMIndex i = 0; i < reader.length(); i++) {
        if (reader[i] == 0) {
            if (maxBufLen > 0) buffer[0] = '\0';
            return false;
        }
    }
    return LUMStringGetCString(str, buffer, maxBufLen, kLUMStringEncodingUTF8);
}

LUMIndex LUMStringGetMaximumSizeForEncoding(LUMIndex length, LUMStringEncoding encoding)
{
    LUM_ASSERT(encoding == kLUMStringEncodingUTF8);
    return length * 3;
}

LUMIndex LUMStringGetMaximumSizeOfFileSystemRepresentation(LUMStringRef str)
{
    return LUMStringGetLength(str) * 3 + 1;
}

LUMDataRef LUMStringCreateExternalRepresentation(LUMAllocatorRef allocator, LUMStringRef str, LUMStringEncoding encoding, UInt8 lossByte)
{
    LUMMutableDataRef data = LUMDataCreateMutable(allocator, 0);
    CharacterReader reader(str);
    for (LUMIndex i = 0; i < reader.length(); i++) {
        UInt8 bytes[3];
        LUMIndex count = 0;
        __LUMStringEncodeUTF8Sequence(reader[i], bytes, &count);
        LUMDataAppendBytes(data, bytes, count);
    }
    return data;
}

void LUMStringInitInlineBuffer(LUMStringRef str, LUMStringInlineBuffer *buf, LUMRange range)
{
    const __LUMString *ptr = stringObject(str);
    LUM_ASSERT(range.location >= 0);
    LUM_ASSERT(range.length >= 0);
    LUM_ASSERT_TEXT((range.location + range.length) <= ptr->length, "(range.location + range.length) <= str->length");
    buf->theString = str;
    buf->directBuffer = LUMStringGetCharactersPtr(str);
    buf->rangeToBuffer = range;
    buf->bufferedRangeStart = 0;
    buf->bufferedRangeEnd = 0;
}

UniChar LUMStringGetCharacterFromInlineBuffer(LUMStringInlineBuffer *buf, LUMIndex idx)
{
    if (idx < 0 || idx >= buf->rangeToBuffer.length) return 0;
    if (buf->directBuffer != nullptr) return buf->directBuffer[buf->rangeToBuffer.location + idx];
    if (idx >= buf->bufferedRangeStart && idx < buf->bufferedRangeEnd) return buf->buffer[idx - buf->bufferedRangeStart];
    // Refill starting a little before idx so that short backward steps hit.
    constexpr LUMIndex kBackOff = 4;
    constexpr LUMIndex kCacheUnits = static_cast<LUMIndex>(LUM_COUNTOF(buf->buffer));
    buf->bufferedRangeStart = idx - kBackOff < 0 ? 0 : idx - kBackOff;
    buf->bufferedRangeEnd = buf->bufferedRangeStart + kCacheUnits;
    if (buf->bufferedRangeEnd > buf->rangeToBuffer.length) buf->bufferedRangeEnd = buf->rangeToBuffer.length;
    LUMStringGetCharacters(buf->theString,
                           LUMRangeMake(buf->rangeToBuffer.location + buf->bufferedRangeStart,
                                        buf->bufferedRangeEnd - buf->bufferedRangeStart),
                           buf->buffer);
    return buf->buffer[idx - buf->bufferedRangeStart];
}

/* ---- Editing ------------------------------------------------------------- */

void LUMStringAppendCharacters(LUMMutableStringRef str, const UniChar *chars, LUMIndex numChars)
{
    __LUMString *ptr = str;
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(ptr->bufferType == _kLUMStringBufferTypeUniCharString);
    // chars may point into this very string (appending a string to itself);
    // growing can move the buffer, so remember where they were.
    const UniChar *own = unitsOf(ptr);
    bool fromSelf = chars >= own && chars < own + ptr->capacity;
    ptrdiff_t offset = chars - own;
    if (!__LUMStringEnsureLength(ptr, static_cast<int64_t>(ptr->length) + numChars)) return;
    if (fromSelf) chars = unitsOf(ptr) + offset;
    for (LUMIndex i = 0; i < numChars; i++) __LUMStringAppendCharacter(ptr, chars[i]);
}

void LUMStringAppendCString(LUMMutableStringRef str, const char *cStr, LUMStringEncoding encoding)
{
    __LUMString *ptr = str;
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(encoding == kLUMStringEncodingUTF8);
    const UInt8 *bytes = reinterpret_cast<const UInt8 *>(cStr);
    // Unit by unit, each growing as it needs (the allocator sees the same
    // calls as for single appends); at the size limit the rest is dropped.
    LUMIndex index = 0;
    while (bytes[index] != 0) __LUMStringAppendCharacter(ptr, __LUMStringDecodeUTF8Sequence(bytes, &index));
}

void LUMStringAppend(LUMMutableStringRef str, LUMStringRef appendedString)
{
    const __LUMString *appended = stringObject(appendedString);
    switch (appended->bufferType) {
    case _kLUMStringBufferTypeCString:
        LUMStringAppendCString(str, static_cast<const char *>(appended->buffer), appended->encoding);
        return;
    case _kLUMStringBufferTypeUniCharString:
        LUMStringAppendCharacters(str, unitsOf(appended), appended->length);
        return;
    default:
        unexpectedBufferType("LUMStringAppend");
    }
}

void LUMStringDelete(LUMMutableStringRef str, LUMRange range)
{
    __LUMString *ptr = str;
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(ptr->bufferType == _kLUMStringBufferTypeUniCharString);
    LUM_ASSERT(range.location >= 0);
    LUM_ASSERT(range.length >= 0);
    LUM_ASSERT((range.location + range.length) <= ptr->length);
    UniChar *units = unitsOf(ptr);
    LUMIndex tail = ptr->length - range.location - range.length;
    _LUMMoveMemory(units + range.location, units + range.location + range.length, static_cast<size_t>(tail) * sizeof(UniChar));
    ptr->length -= range.length;
}

void LUMStringReplace(LUMMutableStringRef str, LUMRange range, LUMStringRef replacement)
{
    __LUMString *ptr = str;
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(ptr->bufferType == _kLUMStringBufferTypeUniCharString);
    LUM_ASSERT(range.location >= 0);
    LUM_ASSERT(range.length >= 0);
    LUM_ASSERT((range.location + range.length) <= ptr->length);
    // Replacing a string's range with the string itself reads from a copy.
    LUMStringRef source = replacement == str ? LUMStringCreateCopy(kLUMAllocatorSystemDefault, replacement)
                                             : static_cast<LUMStringRef>(LUMRetain(replacement));
    LUMIndex replacementLength = LUMStringGetLength(source);
    int64_t total = static_cast<int64_t>(replacementLength) + ptr->length - range.length;
    if (!__LUMStringEnsureLength(ptr, total)) {
        LUMRelease(source);
        return;
    }
    LUMIndex newLength = static_cast<LUMIndex>(total);
    UniChar *units = unitsOf(ptr);
    LUMIndex tail = ptr->length - range.location - range.length;
    _LUMMoveMemory(units + range.location + replacementLength, units + range.location + range.length,
                   static_cast<size_t>(tail) * sizeof(UniChar));
    CharacterReader reader(source);
    for (LUMIndex i = 0; i < replacementLength; i++) units[range.location + i] = reader[i];
    ptr->length = newLength;
    LUMRelease(source);
}

void LUMStringReplaceAll(LUMMutableStringRef str, LUMStringRef replacement)
{
    __LUMString *ptr = str;
    LUM_ASSERT(ptr->isMutable);
    LUM_ASSERT(ptr->bufferType == _kLUMStringBufferTypeUniCharString);
    if (replacement == str) return;
    LUMIndex length = LUMStringGetLength(replacement);
    if (!__LUMStringEnsureLength(ptr, length)) return;
    CharacterReader reader(replacement);
    for (LUMIndex i = 0; i < length; i++) unitsOf(ptr)[i] = reader[i];
    ptr->length = length;
}

/* ---- Comparison and search ----------------------------------------------- */

namespace {

UniChar folded(UniChar unit, bool caseInsensitive)
{
    return (caseInsensitive && unit >= 'a' && unit <= 'z') ? static_cast<UniChar>(unit - 0x20) : unit;
}

LUMComparisonResult compareReaders(CharacterReader &a, CharacterReader &b, bool caseInsensitive)
{
    LUMIndex common = a.length() < b.length() ? a.length() : b.length();
    for (LUMIndex i = 0; i < common; i++) {
        UniChar x = folded(a[i], caseInsensitive), y = folded(b[i], caseInsensitive);
        if (x != y) return x < y ? kLUMCompareLessThan : kLUMCompareGreaterThan;
    }
    if (a.length() == b.length()) return kLUMCompareEqualTo;
    return a.length() < b.length() ? kLUMCompareLessThan : kLUMCompareGreaterThan;
}

} // namespace

LUMComparisonResult LUMStringCompareWithOptions(LUMStringRef a, LUMStringRef b, LUMRange rangeOfA, LUMCompareFlags compareOptions)
{
    LUM_ASSERT((compareOptions & (~(kLUMCompareCaseInsensitive))) == 0);
    CharacterReader x(a, rangeOfA), y(b);
    return compareReaders(x, y, (compareOptions & kLUMCompareCaseInsensitive) != 0);
}

LUMComparisonResult LUMStringCompare(LUMStringRef a, LUMStringRef b, LUMCompareFlags compareOptions)
{
    LUM_ASSERT((compareOptions & (~(kLUMCompareCaseInsensitive))) == 0);
    CharacterReader x(a), y(b);
    return compareReaders(x, y, (compareOptions & kLUMCompareCaseInsensitive) != 0);
}

Boolean LUMStringHasPrefix(LUMStringRef str, LUMStringRef prefix)
{
    LUMIndex length = LUMStringGetLength(str), prefixLength = LUMStringGetLength(prefix);
    if (prefixLength > length) return false;
    CharacterReader s(str, LUMRangeMake(0, prefixLength)), p(prefix);
    for (LUMIndex i = 0; i < prefixLength; i++) {
        if (s[i] != p[i]) return false;
    }
    return true;
}

Boolean LUMStringHasSuffix(LUMStringRef str, LUMStringRef suffix)
{
    LUMIndex length = LUMStringGetLength(str), suffixLength = LUMStringGetLength(suffix);
    if (suffixLength > length) return false;
    CharacterReader s(str, LUMRangeMake(length - suffixLength, suffixLength)), p(suffix);
    for (LUMIndex i = 0; i < suffixLength; i++) {
        if (s[i] != p[i]) return false;
    }
    return true;
}

Boolean LUMStringFindWithOptions(LUMStringRef str, LUMStringRef stringToFind, LUMRange range, LUMCompareFlags compareOptions,
                                 LUMRange *result)
{
    LUM_ASSERT(_LUMTypeCheckValid(str, LUMStringGetTypeID()));
    LUM_ASSERT(_LUMTypeCheckValid(stringToFind, LUMStringGetTypeID()));
    LUM_ASSERT(range.location >= 0);
    LUM_ASSERT(range.length >= 0);
    LUM_ASSERT((range.location + range.length) <= LUMStringGetLength(str));
    LUM_ASSERT((compareOptions & (~(kLUMCompareBackwards))) == 0);
    LUMIndex findLength = LUMStringGetLength(stringToFind);
    LUMIndex n = range.length - findLength;
    // A text longer than the range "matches" without touching result. Kept
    // on purpose: callers that care compare the lengths themselves.
    if (n < 0) return true;
    bool backwards = (compareOptions & kLUMCompareBackwards) != 0;
    CharacterReader haystack(str, range), needle(stringToFind);
    for (LUMIndex i = 0; i <= n; i++) {
        LUMIndex offset = backwards ? n - i : i;
        LUMIndex k = 0;
        while (k < findLength && haystack[offset + k] == needle[k]) k++;
        if (k == findLength) {
            if (result != nullptr) *result = LUMRangeMake(offset, findLength); // relative to range.location
            return true;
        }
    }
    return false;
}

LUMRange LUMStringFind(LUMStringRef str, LUMStringRef stringToFind, LUMCompareFlags compareOptions)
{
    LUMRange result = LUMRangeMake(kLUMNotFound, 0);
    if (!LUMStringFindWithOptions(str, stringToFind, LUMRangeMake(0, LUMStringGetLength(str)), compareOptions, &result))
        return LUMRangeMake(kLUMNotFound, 0);
    return result;
}

LUMArrayRef LUMStringCreateArrayBySeparatingStrings(LUMStringRef str, LUMStringRef separator)
{
    LUMMutableArrayRef pieces = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMIndex length = LUMStringGetLength(str);
    LUMRange remaining = LUMRangeMake(0, length);
    // A search whose range is shorter than the separator "finds" it without
    // setting found: it then reads as not found, so the piece's length is
    // negative and the substring's assertion ends the call, the same way on
    // every run.
    LUMRange found = LUMRangeMake(kLUMNotFound, 0);
    while (remaining.length > 0 && LUMStringFindWithOptions(str, separator, remaining, 0, &found)) {
        // An empty separator is found at once and never moves the remaining
        // range: splitting on it could not end.
        LUM_ASSERT(LUMStringGetLength(separator) > 0);
        // found.location is relative to remaining but is used as an index into
        // str; the two agree only for the first separator. A second separator
        // therefore yields a negative length and stops in the substring
        // assertion. This is the function's defined behaviour.
        LUMStringRef piece = LUMStringCreateWithSubstring(nullptr, str, LUMRangeMake(remaining.location, found.location - remaining.location));
        LUMArrayAppendValue(pieces, piece);
        LUMRelease(piece);
        LUMIndex start = found.location + found.length;
        remaining = LUMRangeMake(start, length - start);
    }
    LUMStringRef last = LUMStringCreateWithSubstring(nullptr, str, remaining);
    LUMArrayAppendValue(pieces, last);
    LUMRelease(last);
    return pieces;
}

namespace {

/* The string's UTF-8 text for strtol/strtod: the byte buffer itself when it
 * has one, else the first 127 bytes converted into buffer. */
const char *numericText(LUMStringRef str, char (&buffer)[128])
{
    const char *text = LUMStringGetCStringPtr(str, kLUMStringEncodingUTF8);
    if (text != nullptr) return text;
    LUMStringGetCString(str, buffer, static_cast<LUMIndex>(sizeof(buffer)), kLUMStringEncodingUTF8);
    return buffer;
}

} // namespace

int32_t LUMStringGetIntValue(LUMStringRef str)
{
    char buffer[128];
    // Saturated to 32 bits as a 32-bit long gives it, on every platform.
    long value = strtol(numericText(str, buffer), nullptr, 10);
    if (value > INT32_MAX) return INT32_MAX;
    if (value < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(value);
}

double LUMStringGetDoubleValue(LUMStringRef str)
{
    char buffer[128];
    return strtod(numericText(str, buffer), nullptr);
}


/* ---- Formatting engine ----------------------------------------------------
 * One pass cuts the format into pieces (literal runs and conversions), a
 * second numbers the arguments, a third fetches them from the va_list in
 * number order, and the last renders each piece: plain integer and double
 * conversions by the engine itself, the rest through snprintf one at a time
 * with a rebuilt conversion. */

namespace {

enum FormatType : int32_t {
    kFormatUnknown = 0,
    kFormatLiteral = 1,
    kFormatInteger = 2,
    kFormatDouble = 3,
    kFormatPointer = 4,
    kFormatCString = 5,
    kFormatObject = 6,
};

enum FormatFlag : uint8_t {
    kFlagMinus = 1,
    kFlagPlus = 2,
    kFlagSpace = 4,
    kFlagHash = 8,
    kFlagZero = 16,
};

struct FormatSpec {
    int32_t location;
    int32_t length;
    int32_t mainArgNum;  // 1-based; -1 until numbered
    uint8_t flags;
    int32_t width;       // literal width, -1 when none
    int32_t widthArgNum; // 0 none, -1 to be numbered
    int32_t precision;
    int32_t precArgNum;
    int32_t size;        // -2 hh, -1 h, 0 none, 1 l, 2 ll
    int32_t type;
};

struct FormatArgument {
    int32_t type;
    int32_t size;
    union {
        long word;    // an integer fetched as long (l, ll)
        int32_t word32; // an integer fetched as int: widened at rendering
        double number;
        const void *pointer;
    } value;
};

constexpr size_t kLocalFormatArguments = 16;
constexpr LUMIndex kFormatScratchBytes = 128;

/* Parses one conversion starting after the '%' at fmt[start]; returns the
 * index after it, or -1 when the format ends inside the piece. */
LUMIndex parseConversion(const UniChar *fmt, LUMIndex length, LUMIndex start, FormatSpec &piece)
{
    int state = 0; // 0 before width, 1 width seen, 2 after '.'
    LUMIndex i = start;
    while (i < length) {
        UniChar c = fmt[i];
        switch (c) {
        case '-': piece.flags |= kFlagMinus; break;
        case '+': piece.flags = static_cast<uint8_t>((piece.flags | kFlagPlus) & ~kFlagSpace); break;
        case ' ': if (!(piece.flags & kFlagPlus)) piece.flags |= kFlagSpace; break;
        case '#': piece.flags |= kFlagHash; break;
        case '0':
            if (state == 2) piece.precision = 0;
            else piece.flags |= kFlagZero;
            break;
        case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9': {
            // Saturated: a number past INT32_MAX reads as INT32_MAX, which no
            // conversion can honour (see renderNumber) and no call can pass.
            int32_t n = 0;
            while (i < length && fmt[i] >= '0' && fmt[i] <= '9') {
                int digit = fmt[i++] - '0';
                n = n > (INT32_MAX - digit) / 10 ? INT32_MAX : n * 10 + digit;
            }
            if (i < length && fmt[i] == '$') {
                if (state == 0) piece.mainArgNum = n;
                else if (state == 1) piece.widthArgNum = n;
                else { piece.precArgNum = n; state = 2; }
            } else {
                if (state == 0) { piece.width = n; state = 1; }
                else if (state == 1) piece.width = n;
                else piece.precision = n;
                continue; // i already stands on the next unit
            }
            break;
        }
        case '*':
            if (state == 2) piece.precArgNum = -1;
            else { piece.widthArgNum = -1; state = 1; }
            break;
        case '.': state = 2; break;
        case 'l': piece.size++; break;
        case 'h': piece.size--; break;
        case '%':
            piece.type = kFormatLiteral;
            piece.location = i;
            piece.length = 1;
            return i + 1;
        case 'd': case 'i': case 'o': case 'u': case 'x': case 'X': piece.type = kFormatInteger; break;
        case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A': piece.type = kFormatDouble; break;
        case 'p': piece.type = kFormatPointer; break;
        case 's': piece.type = kFormatCString; break;
        case '@': piece.type = kFormatObject; break;
        default:
            // Unknown conversions (c, n, j, z, L, ...) are skipped, not errors:
            // parsing of the same piece simply goes on.
            break;
        }
        i++;
        if (piece.type != kFormatUnknown) {
            piece.length = i - piece.location;
            return i;
        }
    }
    return -1;
}

/* Widens an integer argument for printing as a C long: words fetched as int
 * are sign-extended for d and i and zero-extended for the others. */
long integerValue(const FormatArgument &argument, UniChar conversion)
{
    if (argument.size >= 1) return argument.value.word;
    if (conversion == 'd' || conversion == 'i') return static_cast<long>(argument.value.word32);
    return static_cast<long>(static_cast<uint32_t>(argument.value.word32));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename V>
int formatOne(char *buffer, size_t size, const char *conversion, int width, int precision, V value)
{
    if (width >= 0 && precision >= 0) return snprintf(buffer, size, conversion, width, precision, value);
    if (width >= 0) return snprintf(buffer, size, conversion, width, value);
    if (precision >= 0) return snprintf(buffer, size, conversion, precision, value);
    return snprintf(buffer, size, conversion, value);
}
#pragma GCC diagnostic pop

/* Where rendered pieces go. Appending to a caller's mutable string keeps
 * the exact appends it has always made (its allocator sees the same growth):
 * a literal run at once, converted text unit by unit, a description as a
 * string. A new string is rendered into a private buffer instead and made
 * once at the end. */
class FormatSink {
public:
    explicit FormatSink(LUMMutableStringRef target) : target_(target) {}
    FormatSink(const FormatSink &) = delete;
    FormatSink &operator=(const FormatSink &) = delete;
    ~FormatSink()
    {
        if (units_ != local_) free(units_);
    }

    void appendUnits(const UniChar *units, LUMIndex count)
    {
        if (target_ != nullptr) return LUMStringAppendCharacters(target_, units, count);
        UniChar *at = room(count);
        if (at != nullptr && count > 0) memcpy(at, units, static_cast<size_t>(count) * sizeof(UniChar));
    }
    /* ASCII text a conversion made (as the C string appends do: unit by unit). */
    void appendASCII(const char *text, size_t count)
    {
        if (target_ != nullptr) {
            for (size_t i = 0; i < count; i++) __LUMStringAppendCharacter(target_, static_cast<UInt8>(text[i]));
            return;
        }
        UniChar *at = room(static_cast<LUMIndex>(count));
        if (at != nullptr)
            for (size_t i = 0; i < count; i++) at[i] = static_cast<UInt8>(text[i]);
    }
    /* NUL-terminated UTF-8, decoded as LUMStringAppendCString decodes it. */
    void appendCString(const char *text)
    {
        if (target_ != nullptr) return LUMStringAppendCString(target_, text, kLUMStringEncodingUTF8);
        const auto *bytes = reinterpret_cast<const UInt8 *>(text);
        LUMIndex index = 0;
        while (bytes[index] != 0) {
            UniChar unit = __LUMStringDecodeUTF8Sequence(bytes, &index);
            UniChar *at = room(1);
            if (at != nullptr) *at = unit;
        }
    }
    void appendString(LUMStringRef string)
    {
        if (target_ != nullptr) return LUMStringAppend(target_, string);
        LUMIndex count = LUMStringGetLength(string);
        UniChar *at = room(count);
        if (at != nullptr) LUMStringGetCharacters(string, LUMRangeMake(0, count), at);
    }

    const UniChar *units() const { return units_; }
    LUMIndex count() const { return count_; }

private:
    /* count more units at the end; NULL (and nothing more is kept) when
     * the text cannot grow, as a string at its size limit keeps no more. */
    UniChar *room(LUMIndex count)
    {
        int64_t needed = static_cast<int64_t>(count_) + count;
        if (needed > capacity_) {
            LUMIndex capacity = lum::grownCapacity(capacity_, needed, sizeof(UniChar));
            if (capacity < 0) return nullptr;
            void *grown = units_ == local_ ? malloc(static_cast<size_t>(capacity) * sizeof(UniChar))
                                           : realloc(units_, static_cast<size_t>(capacity) * sizeof(UniChar));
            if (grown == nullptr) return nullptr;
            if (units_ == local_ && count_ > 0) memcpy(grown, local_, static_cast<size_t>(count_) * sizeof(UniChar));
            units_ = static_cast<UniChar *>(grown);
            capacity_ = capacity;
        }
        UniChar *at = units_ + count_;
        count_ = static_cast<LUMIndex>(needed);
        return at;
    }

    LUMMutableStringRef target_;
    UniChar local_[256];
    UniChar *units_ = local_;
    LUMIndex count_ = 0;
    LUMIndex capacity_ = 256;
};

/* The format's pieces and its arguments, typed and fetched. */
struct ParsedFormat {
    FormatSpec pieces[22];
    LUMIndex pieceCount = 0;
    FormatArgument localArguments[kLocalFormatArguments];
    FormatArgument *args = localArguments;
    int32_t argumentCount = 0;

    ParsedFormat() = default;
    ParsedFormat(const ParsedFormat &) = delete;
    ParsedFormat &operator=(const ParsedFormat &) = delete;
    ~ParsedFormat()
    {
        if (args != localArguments) LUMAllocatorDeallocate(kLUMAllocatorSystemDefault, args);
    }
};

/* Cuts the format into at most fSpecsCount literal runs and conversions. */
void cutFormat(const UniChar *fmt, LUMIndex formatLength, LUMIndex fSpecsCount, ParsedFormat &parsed)
{
    LUMIndex &pieceCount = parsed.pieceCount;
    LUMIndex index = 0;
    while (pieceCount < fSpecsCount && index < formatLength) {
        LUMIndex runStart = index;
        while (index < formatLength && fmt[index] != '%') index++;
        // Pieces are written where they stay (no copies of whole records).
        if (index > runStart) {
            FormatSpec &run = parsed.pieces[pieceCount++];
            run = FormatSpec{runStart, index - runStart, -1, 0, -1, 0, -1, 0, 0, kFormatLiteral};
        }
        if (index >= formatLength || pieceCount >= fSpecsCount) break;
        FormatSpec &piece = parsed.pieces[pieceCount];
        piece = FormatSpec{index, 0, -1, 0, -1, 0, -1, 0, 0, kFormatUnknown};
        LUMIndex next = parseConversion(fmt, formatLength, index + 1, piece);
        if (next < 0) break; // the format ended inside a piece: dropped
        pieceCount++;
        index = next;
    }
}

/* Numbers the arguments that have no explicit position and types them (a
 * later piece naming the same number wins); false when a table for that
 * many arguments cannot be made (no call can pass them either). */
bool typeArguments(ParsedFormat &parsed)
{
    int32_t counter = 1;
    int32_t &argumentCount = parsed.argumentCount;
    auto note = [&argumentCount](int32_t n) { if (n > argumentCount) argumentCount = n; };
    for (LUMIndex s = 0; s < parsed.pieceCount; s++) {
        FormatSpec &piece = parsed.pieces[s];
        // "%*%" still takes its '*' width and precision from the arguments,
        // as every conversion does, so later arguments keep their places;
        // only the '%' itself takes no value.
        if (piece.widthArgNum == -1) piece.widthArgNum = counter++;
        if (piece.precArgNum == -1) piece.precArgNum = counter++;
        if (piece.mainArgNum == -1 && piece.type != kFormatLiteral) piece.mainArgNum = counter++;
        note(piece.widthArgNum);
        note(piece.precArgNum);
        note(piece.mainArgNum);
    }
    if (static_cast<size_t>(argumentCount) > kLocalFormatArguments) {
        LUMIndex bytes = lum::blockBytes(argumentCount, sizeof(FormatArgument));
        parsed.args = bytes < 0 ? nullptr : static_cast<FormatArgument *>(LUMAllocatorAllocate(kLUMAllocatorSystemDefault, bytes, 0));
        if (parsed.args == nullptr) {
            parsed.args = parsed.localArguments;
            return false;
        }
    }
    FormatArgument *args = parsed.args;
    for (int32_t a = 0; a < argumentCount; a++) args[a] = FormatArgument{kFormatUnknown, 0, {0}};
    for (LUMIndex s = 0; s < parsed.pieceCount; s++) {
        const FormatSpec &piece = parsed.pieces[s];
        if (piece.widthArgNum > 0) args[piece.widthArgNum - 1] = FormatArgument{kFormatInteger, 0, {0}};
        if (piece.precArgNum > 0) args[piece.precArgNum - 1] = FormatArgument{kFormatInteger, 0, {0}};
        if (piece.mainArgNum > 0 && piece.type != kFormatLiteral)
            args[piece.mainArgNum - 1] = FormatArgument{piece.type, piece.size, {0}};
    }
    return true;
}

/* Fetches in number order: integers are one int (one long with l or ll;
 * 64-bit integers are not supported), hh keeps the low byte, h the low 16
 * bits sign-extended; an unused number consumes one word. */
void fetchArguments(ParsedFormat &parsed, va_list arguments)
{
    for (int32_t a = 0; a < parsed.argumentCount; a++) {
        FormatArgument &arg = parsed.args[a];
        switch (arg.type) {
        case kFormatInteger:
            if (arg.size >= 1) {
                arg.value.word = va_arg(arguments, long);
            } else {
                int32_t word = va_arg(arguments, int);
                // Only hh and h narrow; hhh and shorter keep the whole word.
                if (arg.size == -2) word = word & 0xFF;
                else if (arg.size == -1) word = static_cast<int16_t>(word & 0xFFFF);
                arg.value.word32 = word;
            }
            break;
        case kFormatDouble: arg.value.number = va_arg(arguments, double); break;
        case kFormatPointer:
        case kFormatCString:
        case kFormatObject: arg.value.pointer = va_arg(arguments, const void *); break;
        default: arg.value.word = va_arg(arguments, long); break;
        }
    }
}

/* %d %i %u %x %X with at most the '-' and '0' flags and a width, the way
 * the C library prints them, without it; false for anything else. */
bool renderPlainInteger(const FormatSpec &piece, UniChar conversion, int width, int precision, long value, FormatSink &sink)
{
    if (precision >= 0 || (piece.flags & ~(kFlagMinus | kFlagZero)) != 0 || width > 64) return false;
    bool isSigned = conversion == 'd' || conversion == 'i';
    unsigned base = conversion == 'x' || conversion == 'X' ? 16 : 10;
    if (!isSigned && conversion != 'u' && base != 16) return false;
    const char *digitsOf = conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    bool negative = isSigned && value < 0;
    unsigned long magnitude = negative ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    char digits[24];
    int count = 0;
    // Constant divisors, so that no digit costs a hardware division.
    if (base == 16) {
        do {
            digits[count++] = digitsOf[magnitude & 0xF];
            magnitude >>= 4;
        } while (magnitude != 0);
    } else {
        do {
            digits[count++] = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude != 0);
    }
    char text[96];
    int length = 0;
    int used = count + (negative ? 1 : 0);
    int pad = width > used ? width - used : 0;
    bool left = (piece.flags & kFlagMinus) != 0;
    bool zeros = !left && (piece.flags & kFlagZero) != 0;
    if (!left && !zeros) for (int i = 0; i < pad; i++) text[length++] = ' ';
    if (negative) text[length++] = '-';
    if (zeros) for (int i = 0; i < pad; i++) text[length++] = '0';
    while (count > 0) text[length++] = digits[--count];
    if (left) for (int i = 0; i < pad; i++) text[length++] = ' ';
    sink.appendASCII(text, static_cast<size_t>(length));
    return true;
}

#ifdef __SIZEOF_INT128__
/* ---- Doubles without snprintf -------------------------------------------------
 * %f %e %g (and %E %G) with at most the '-' and '0' flags, a width and a
 * precision up to 17, for values whose decimal scaling fits 128 bits: the
 * digits come from exact integer arithmetic, rounded half to even as the C
 * library rounds, so the text is the C library's. Everything else still
 * goes through snprintf. */
using Wide = unsigned __int128;

constexpr int kMaxWideDecimalPower = 38;

Wide wideTenTo(int power)
{
    Wide result = 1;
    for (int i = 0; i < power; i++) result *= 10;
    return result;
}

int wideBits(Wide value)
{
    auto high = static_cast<uint64_t>(value >> 64);
    if (high != 0) return 128 - __builtin_clzll(high);
    auto low = static_cast<uint64_t>(value);
    return low != 0 ? 64 - __builtin_clzll(low) : 0;
}

/* round(a x 10^k), half to even, for finite a > 0; false when it cannot be
 * held exactly in 128 bits. */
bool scaledRounded(double a, int k, Wide &out)
{
    if (k > kMaxWideDecimalPower || k < -kMaxWideDecimalPower) return false;
    uint64_t bits;
    memcpy(&bits, &a, sizeof bits);
    auto biased = static_cast<int>(bits >> 52);
    uint64_t mantissa = bits & ((uint64_t{1} << 52) - 1);
    int exponent = biased == 0 ? -1074 : biased - 1075;
    if (biased != 0) mantissa |= uint64_t{1} << 52;
    // value = numerator / denominator, both exact.
    Wide numerator = mantissa, denominator = 1;
    if (k >= 0) {
        Wide power = wideTenTo(k);
        if (wideBits(numerator) + wideBits(power) > 127) return false;
        numerator *= power;
    } else {
        denominator = wideTenTo(-k);
    }
    if (exponent >= 0) {
        if (wideBits(numerator) + exponent > 127) return false;
        numerator <<= exponent;
    } else if (k >= 0) {
        // Dividing by a power of two: a shift, and the bits shifted out.
        int shift = -exponent;
        if (shift > 126) return false;
        Wide quotient = numerator >> shift;
        Wide rest = numerator & ((Wide{1} << shift) - 1);
        Wide half = Wide{1} << (shift - 1);
        if (rest > half || (rest == half && (quotient & 1) != 0)) quotient++;
        out = quotient;
        return true;
    } else {
        if (wideBits(denominator) - exponent > 127) return false;
        denominator <<= -exponent;
    }
    Wide quotient = numerator / denominator, remainder = numerator % denominator;
    Wide twice = remainder << 1; // remainder < denominator < 2^127: no overflow
    if (twice > denominator || (twice == denominator && (quotient & 1) != 0)) quotient++;
    out = quotient;
    return true;
}

/* The decimal digits of value (at least minimum of them, zeros in front). */
int wideDigits(Wide value, int minimum, char *digits)
{
    char reversed[48];
    int count = 0;
    do {
        reversed[count++] = static_cast<char>('0' + static_cast<int>(value % 10));
        value /= 10;
    } while (value != 0);
    while (count < minimum) reversed[count++] = '0';
    for (int i = 0; i < count; i++) digits[i] = reversed[count - 1 - i];
    return count;
}

/* Positional text of a with precision digits after the point. */
bool fixedText(double a, int precision, char *text, int &length)
{
    Wide scaled;
    if (!scaledRounded(a, precision, scaled)) return false;
    char digits[48];
    int count = wideDigits(scaled, precision + 1, digits);
    int whole = count - precision;
    length = 0;
    for (int i = 0; i < whole; i++) text[length++] = digits[i];
    if (precision > 0) {
        text[length++] = '.';
        for (int i = whole; i < count; i++) text[length++] = digits[i];
    }
    return true;
}

/* The precision + 1 significant digits of a and its decimal exponent. */
bool scientificDigits(double a, int precision, char *digits, int &exponent)
{
    exponent = static_cast<int>(std::floor(std::log10(a)));
    for (int attempt = 0; attempt < 3; attempt++) {
        Wide scaled;
        if (!scaledRounded(a, precision - exponent, scaled)) return false;
        Wide low = wideTenTo(precision), high = low * 10;
        if (scaled >= high) {
            exponent++;
            continue;
        }
        if (scaled < low) {
            exponent--;
            continue;
        }
        wideDigits(scaled, precision + 1, digits);
        return true;
    }
    return false;
}

void scientificText(const char *digits, int precision, int exponent, char e, char *text, int &length)
{
    length = 0;
    text[length++] = digits[0];
    if (precision > 0) {
        text[length++] = '.';
        for (int i = 1; i <= precision; i++) text[length++] = digits[i];
    }
    text[length++] = e;
    text[length++] = exponent < 0 ? '-' : '+';
    int magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude >= 100) text[length++] = static_cast<char>('0' + magnitude / 100);
    text[length++] = static_cast<char>('0' + magnitude / 10 % 10);
    text[length++] = static_cast<char>('0' + magnitude % 10);
}

bool renderPlainDouble(const FormatSpec &piece, UniChar conversion, int width, int precision, double value, FormatSink &sink)
{
    if ((piece.flags & ~(kFlagMinus | kFlagZero)) != 0 || width > 64 || precision > 17 || !std::isfinite(value) || value == 0) return false;
    int p = precision < 0 ? 6 : precision;
    double a = std::fabs(value);
    char body[96];
    int length = 0;
    switch (conversion) {
    case 'f':
    case 'F':
        if (!fixedText(a, p, body, length)) return false;
        break;
    case 'e':
    case 'E': {
        char digits[48];
        int exponent;
        if (!scientificDigits(a, p, digits, exponent)) return false;
        scientificText(digits, p, exponent, static_cast<char>(conversion), body, length);
        break;
    }
    case 'g':
    case 'G': {
        int significant = p == 0 ? 1 : p;
        char digits[48];
        int exponent;
        if (!scientificDigits(a, significant - 1, digits, exponent)) return false;
        if (exponent < significant && exponent >= -4) {
            if (!fixedText(a, significant - 1 - exponent, body, length)) return false;
        } else {
            scientificText(digits, significant - 1, exponent, conversion == 'g' ? 'e' : 'E', body, length);
        }
        // Without '#', trailing zeros of the fraction go, and a bare point.
        int mantissaEnd = length;
        for (int i = 0; i < length; i++) {
            if (body[i] == 'e' || body[i] == 'E') {
                mantissaEnd = i;
                break;
            }
        }
        bool hasPoint = false;
        for (int i = 0; i < mantissaEnd; i++) hasPoint = hasPoint || body[i] == '.';
        if (hasPoint) {
            int keep = mantissaEnd;
            while (body[keep - 1] == '0') keep--;
            if (body[keep - 1] == '.') keep--;
            memmove(body + keep, body + mantissaEnd, static_cast<size_t>(length - mantissaEnd));
            length -= mantissaEnd - keep;
        }
        break;
    }
    default: return false;
    }
    bool negative = std::signbit(value);
    int used = length + (negative ? 1 : 0);
    int pad = width > used ? width - used : 0;
    bool left = (piece.flags & kFlagMinus) != 0;
    bool zeros = !left && (piece.flags & kFlagZero) != 0;
    char text[176];
    int n = 0;
    if (!left && !zeros) for (int i = 0; i < pad; i++) text[n++] = ' ';
    if (negative) text[n++] = '-';
    if (zeros) for (int i = 0; i < pad; i++) text[n++] = '0';
    memcpy(text + n, body, static_cast<size_t>(length));
    n += length;
    if (left) for (int i = 0; i < pad; i++) text[n++] = ' ';
    sink.appendASCII(text, static_cast<size_t>(n));
    return true;
}
#endif

/* An integer or double conversion through snprintf. The scratch buffer
 * holds width + precision + 128 bytes. Beyond what snprintf can report
 * (INT_MAX), or when the buffer cannot be had, it renders nothing. */
void renderNumber(const FormatSpec &piece, UniChar conversionChar, int width, int precision, const FormatArgument &arg,
                  FormatSink &sink)
{
    if (piece.type == kFormatInteger && renderPlainInteger(piece, conversionChar, width, precision, integerValue(arg, conversionChar), sink))
        return;
#ifdef __SIZEOF_INT128__
    // Zero is printed as 1e-10 so that -0 never shows (see below).
    if (piece.type == kFormatDouble &&
        renderPlainDouble(piece, conversionChar, width, precision, arg.value.number == 0.0 ? 1e-10 : arg.value.number, sink))
        return;
#endif
    char conversion[16];
    size_t n = 0;
    conversion[n++] = '%';
    if (piece.flags & kFlagMinus) conversion[n++] = '-';
    if (piece.flags & kFlagPlus) conversion[n++] = '+';
    if (piece.flags & kFlagSpace) conversion[n++] = ' ';
    if (piece.flags & kFlagHash) conversion[n++] = '#';
    if (piece.flags & kFlagZero) conversion[n++] = '0';
    if (width >= 0) conversion[n++] = '*';
    if (precision >= 0) { conversion[n++] = '.'; conversion[n++] = '*'; }
    if (piece.type == kFormatInteger) conversion[n++] = 'l';
    conversion[n++] = static_cast<char>(conversionChar);
    conversion[n] = '\0';
    int64_t scratch = static_cast<int64_t>(width) + precision + kFormatScratchBytes;
    if (scratch > INT32_MAX) return;
    size_t bufferSize = static_cast<size_t>(scratch);
    lum::TempBuffer<char, 512> buffer(bufferSize);
    if (buffer.get() == nullptr) return;
    int written;
    if (piece.type == kFormatInteger) {
        written = formatOne(buffer.get(), bufferSize, conversion, width, precision, integerValue(arg, conversionChar));
    } else {
        // Zero is printed as 1e-10 so that -0 never shows: with %f both
        // zeros read 0.000000, while %e and %g show the small value.
        double value = arg.value.number == 0.0 ? 1e-10 : arg.value.number;
        written = formatOne(buffer.get(), bufferSize, conversion, width, precision, value);
    }
    if (written < 0) return;
    size_t length = static_cast<size_t>(written) < bufferSize ? static_cast<size_t>(written) : bufferSize - 1;
    sink.appendASCII(buffer.get(), strnlen(buffer.get(), length));
}

/* Renders every piece, in order, into the sink. */
void renderPieces(const UniChar *fmt, const ParsedFormat &parsed, FormatSink &sink)
{
    const FormatArgument *args = parsed.args;
    for (LUMIndex s = 0; s < parsed.pieceCount; s++) {
        const FormatSpec &piece = parsed.pieces[s];
        if (piece.type == kFormatLiteral) {
            sink.appendUnits(fmt + piece.location, piece.length);
            continue;
        }
        const FormatArgument &arg = args[piece.mainArgNum - 1];
        int width = piece.widthArgNum > 0 ? args[piece.widthArgNum - 1].value.word32 : piece.width;
        int precision = piece.precArgNum > 0 ? args[piece.precArgNum - 1].value.word32 : piece.precision;
        if (width < 0) width = -1;
        if (precision < 0) precision = -1;
        switch (piece.type) {
        case kFormatInteger:
        case kFormatDouble: renderNumber(piece, fmt[piece.location + piece.length - 1], width, precision, arg, sink); break;
        case kFormatPointer: {
            char buffer[64];
            int written = snprintf(buffer, sizeof(buffer), "%p", arg.value.pointer);
            sink.appendASCII(buffer, written > 0 ? static_cast<size_t>(written) : 0);
            break;
        }
        case kFormatCString: sink.appendCString(static_cast<const char *>(arg.value.pointer)); break;
        case kFormatObject: {
            LUMStringRef description = LUMCopyDescription(arg.value.pointer);
            sink.appendString(description);
            LUMRelease(description);
            break;
        }
        default: break;
        }
    }
}

/* The formatting engine: the format's units, its pieces, its arguments,
 * then the text of each piece into the sink. Each '%' gives at most a
 * conversion and the literal run before it, plus one trailing literal:
 * formats with more than ten '%' end the process. */
void __LUMStringAppendWithFormatAndArguments(FormatSink &sink, LUMStringRef format, va_list arguments)
{
    LUMIndex formatLength = LUMStringGetLength(format);
    lum::TempBuffer<UniChar, 256> units(static_cast<size_t>(formatLength) + 1);
    UniChar *fmt = units.get();
    if (fmt == nullptr) return;
    LUMStringGetCharacters(format, LUMRangeMake(0, formatLength), fmt);
    LUMIndex percentCount = 0;
    for (LUMIndex i = 0; i < formatLength; i++) {
        if (fmt[i] == '%') percentCount++;
    }
    ParsedFormat parsed;
    FormatSpec(&localFormatSpecs)[22] = parsed.pieces;
    LUMIndex fSpecsCount = 2 * percentCount + 1;
    LUM_ASSERT(fSpecsCount < LUM_COUNTOF(localFormatSpecs));
    cutFormat(fmt, formatLength, fSpecsCount, parsed);
    if (!typeArguments(parsed)) return; // nothing is rendered
    fetchArguments(parsed, arguments);
    renderPieces(fmt, parsed, sink);
}

void __LUMStringAppendWithFormatAndArguments(LUMMutableStringRef str, LUMStringRef format, va_list arguments)
{
    FormatSink sink(str);
    __LUMStringAppendWithFormatAndArguments(sink, format, arguments);
}

} // namespace

LUMStringRef LUMStringCreateWithFormatAndArguments(LUMAllocatorRef allocator, LUMTypeRef formatOptions, LUMStringRef format, va_list arguments)
{
    // The text is made privately and copied once into a string of units:
    // the caller's allocator sees the copy's two blocks (units, then the
    // record), as from LUMStringCreateWithCharacters; the library's own
    // allocator gets one block.
    FormatSink sink(nullptr);
    __LUMStringAppendWithFormatAndArguments(sink, format, arguments);
    if (lum::usesSystemAllocator(allocator)) return lum::createStringWithUnits(allocator, sink.units(), sink.count());
    return LUMStringCreateWithCharacters(allocator, sink.units(), sink.count());
}

LUMIndex lum::formatUnits(UniChar *units, LUMIndex capacity, LUMStringRef format, ...)
{
    FormatSink sink(nullptr);
    va_list arguments;
    va_start(arguments, format);
    __LUMStringAppendWithFormatAndArguments(sink, format, arguments);
    va_end(arguments);
    LUMIndex count = sink.count();
    if (count <= capacity && count > 0) memcpy(units, sink.units(), static_cast<size_t>(count) * sizeof(UniChar));
    return count;
}

LUMStringRef LUMStringCreateWithFormat(LUMAllocatorRef allocator, LUMTypeRef formatOptions, LUMStringRef format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LUMStringRef result = LUMStringCreateWithFormatAndArguments(allocator, formatOptions, format, arguments);
    va_end(arguments);
    return result;
}

void LUMStringAppendFormatAndArguments(LUMMutableStringRef str, LUMTypeRef formatOptions, LUMStringRef format, va_list arguments)
{
    __LUMStringAppendWithFormatAndArguments(str, format, arguments);
}

void LUMStringAppendFormat(LUMMutableStringRef str, LUMTypeRef formatOptions, LUMStringRef format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    __LUMStringAppendWithFormatAndArguments(str, format, arguments);
    va_end(arguments);
}

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(LUMStringGetTypeID)
LUM_DEFINE_LOCAL(LUMStringGetLength)
