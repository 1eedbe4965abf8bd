/* LUMPrivate.h — C++ helpers shared by LumBase's modules: assertion macros,
 * class registration, growth by doubling and scoped temporary buffers.
 * Part of LumBase; MIT licence. Never installed. */
#ifndef LUMBASE_SRC_LUMPRIVATE_H
#define LUMBASE_SRC_LUMPRIVATE_H

#include <LumBase/LUMInternal.h>
#include <LumBase/LUMType.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#define LUM_COUNTOF(array) (static_cast<LUMIndex>(sizeof(array) / sizeof((array)[0])))

/* Each module defines LUM_SOURCE_FILE ("src/LUMString" and so on) before
 * including this header; assertion frames name it. The condition text is the
 * condition as written, so keep the spelling of checks stable. A passing
 * check costs a test and a branch: _LUMAssert, which does nothing for a true
 * condition, is called only when the condition fails, and then prints the
 * same frame and ends the process the same way. */
#define LUM_CHECK(line, condition, text) \
    (__builtin_expect(!!(condition), 1) ? (void)0 : _LUMAssert(__func__, LUM_SOURCE_FILE, (line), 0, text))
#define LUM_ASSERT(condition) LUM_CHECK(__LINE__, condition, #condition)
/* For checks whose reported line is part of the library's documented output. */
#define LUM_ASSERT_AT(line, condition) LUM_CHECK(line, condition, #condition)
/* A check whose reported condition text differs from the C expression. */
#define LUM_ASSERT_TEXT(condition, text) LUM_CHECK(__LINE__, condition, text)
#define LUM_ASSERT_TEXT_AT(line, condition, text) LUM_CHECK(line, condition, text)
#define LUM_FATAL_AT(line, ...) _LUMFatal(__func__, LUM_SOURCE_FILE, (line), __VA_ARGS__)

namespace lum {

/* The object behind a reference, for a module that owns the layout. */
template <typename T>
inline T *object(LUMTypeRef ref) { return static_cast<T *>(const_cast<void *>(ref)); }

/* Registers a class the first time its get-type-ID function runs. */
inline LUMTypeID registerClassOnce(LUMTypeID &typeID, const LUMRuntimeClass &cls)
{
    if (typeID == 0) typeID = _LUMTypeRegisterClass(&cls);
    return typeID;
}

/* Growth by doubling: the smallest capacity * 2^k that is not less than
 * needed. Containers whose block may be empty pass startFromOne, so that a
 * capacity of 0 grows to 1 and doubles from there instead of never growing. */
template <typename I>
constexpr I doubledCapacity(I capacity, I needed, bool startFromOne = true)
{
    static_assert(std::is_integral_v<I>);
    if (capacity >= needed) return capacity;
    if (capacity <= 0) {
        if (!startFromOne) return capacity;
        capacity = 1;
    }
    while (capacity < needed) capacity *= 2;
    return capacity;
}
static_assert(doubledCapacity(32, 33) == 64);
static_assert(doubledCapacity(10, 11) == 20);
static_assert(doubledCapacity(0, 3) == 4);
static_assert(doubledCapacity(0, 3, false) == 0);

/* Checked growth for blocks whose byte count goes to an allocator as a
 * LUMIndex: the doubled capacity for needed elements of elementSize bytes,
 * held to the largest count whose bytes still fit in a LUMIndex (a block of
 * bytes may thus end at 2^31 - 1 rather than 2^31). -1 when needed itself
 * cannot be represented, so that callers leave their object as it was. */
constexpr int64_t kMaxBlockBytes = INT32_MAX;

constexpr LUMIndex grownCapacity(LUMIndex capacity, int64_t needed, size_t elementSize)
{
    const int64_t limit = kMaxBlockBytes / static_cast<int64_t>(elementSize);
    if (needed < 0 || needed > limit) return -1;
    if (capacity >= needed) return capacity;
    int64_t grown = capacity <= 0 ? 1 : capacity;
    while (grown < needed) grown *= 2;
    return static_cast<LUMIndex>(grown > limit ? limit : grown);
}
static_assert(grownCapacity(10, 11, 8) == 20);
static_assert(grownCapacity(0, 3, 1) == 4);
static_assert(grownCapacity(1 << 30, (1 << 30) + 1, 1) == INT32_MAX);
static_assert(grownCapacity(1 << 29, (1 << 29) + 1, 2) == INT32_MAX / 2);
static_assert(grownCapacity(1 << 29, (1 << 30), 2) == -1);
static_assert(grownCapacity(0, -1, 1) == -1);

/* Grows a block of elementSize-byte elements by doubling until it holds
 * needed of them, reallocating it with its allocator. False, with block and
 * capacity as they were, when the size cannot be represented or the
 * allocator gives nothing: the edit that asked then changes nothing. */
bool growByDoubling(LUMAllocatorRef allocator, void *&block, LUMIndex &capacity, int64_t needed, size_t elementSize);

/* Bytes of count elements, or -1 when they do not fit in a LUMIndex. */
constexpr LUMIndex blockBytes(int64_t count, size_t elementSize)
{
    if (count < 0 || count > kMaxBlockBytes / static_cast<int64_t>(elementSize)) return -1;
    return static_cast<LUMIndex>(count * static_cast<int64_t>(elementSize));
}
static_assert(blockBytes(3, 8) == 24);
static_assert(blockBytes(INT32_MAX / 4 + 1, 4) == -1);

/* A double truncated toward zero and wrapped to 32 bits, as a 32-bit time_t
 * takes it; NaN gives 0. Defined for every input. */
inline int32_t truncatedToInt32(double value)
{
    if (!(value == value)) return 0;
    if (value >= 9223372036854775807.0) return static_cast<int32_t>(static_cast<uint32_t>(UINT64_MAX));
    if (value <= -9223372036854775807.0) return 0;
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(value))));
}

/* A temporary buffer of count elements: inside the object up to StackCount
 * elements, from the C heap above that; given back when the scope ends. */
template <typename T, size_t StackCount>
class TempBuffer {
public:
    explicit TempBuffer(size_t count)
        : data_(count <= StackCount ? stack_ : static_cast<T *>(std::malloc(count * sizeof(T) + 1))) {}
    ~TempBuffer() { if (data_ != stack_) std::free(data_); }
    TempBuffer(const TempBuffer &) = delete;
    TempBuffer &operator=(const TempBuffer &) = delete;
    T *get() { return data_; }
    bool onHeap() const { return data_ != stack_; }
private:
    T stack_[StackCount];
    T *data_;
};

/* Holds back the finalisation of one object without taking a reference
 * (so LUMGetRetainCount shows nothing): should its count reach zero while
 * the hold stands, it is finalised and freed when the hold ends. The run
 * loop holds the object whose callback it calls, so that reading the object
 * after a callback that dropped its last reference stays safe. Holds nest;
 * they end in the reverse order of their beginning. */
struct FinalizationHold {
    LUMTypeRef object;
    FinalizationHold *outer;
    bool finalizationDue;
};
void beginFinalizationHold(FinalizationHold &hold, LUMTypeRef object);
void endFinalizationHold(FinalizationHold &hold);

class HeldObject {
public:
    explicit HeldObject(LUMTypeRef object) { beginFinalizationHold(hold_, object); }
    ~HeldObject() { endFinalizationHold(hold_); }
    HeldObject(const HeldObject &) = delete;
    HeldObject &operator=(const HeldObject &) = delete;
private:
    FinalizationHold hold_;
};

/* Equality of the library's own arrays and dictionaries at any depth. The
 * pairs a comparison visits are kept on an explicit stack, so nesting costs
 * heap, not machine stack. Each container class describes its comparison
 * as numbered steps; a step whose equal callback is LUMEqual on two
 * containers of one such class opens that pair instead of recursing. Every
 * other equal callback is called exactly when, and in the order, the plain
 * recursive definition calls it. */
using ElementEqual = Boolean (*)(const void *, const void *);
struct ComparisonStep {
    const void *a;
    const void *b;
    ElementEqual equal;
};
struct ContainerComparison {
    LUMIndex (*steps)(LUMTypeRef a, LUMTypeRef b); // -1: unequal before any step
    ComparisonStep (*step)(LUMTypeRef a, LUMTypeRef b, LUMIndex i);
};
extern const ContainerComparison kArrayComparison;
extern const ContainerComparison kDictionaryComparison;
/* a and b are distinct objects of one container class, a valid. */
bool equalContainers(LUMTypeRef a, LUMTypeRef b);

/* Container element rules: a NULL value never reaches retain or release.
 * Array callbacks take the container's allocator first; pass it as `leading`. */
template <typename Fn, typename... Leading>
inline const void *retainElement(Fn retain, const void *value, Leading... leading)
{
    return (value != nullptr && retain != nullptr) ? retain(leading..., value) : value;
}
template <typename Fn, typename... Leading>
inline void releaseElement(Fn release, const void *value, Leading... leading)
{
    if (value != nullptr && release != nullptr) release(leading..., value);
}

/* Values compare equal when identical, else through equal when both exist. */
template <typename Equal>
inline bool elementsEqual(Equal equal, const void *a, const void *b)
{
    if (a == b) return true;
    if (a == nullptr || b == nullptr || equal == nullptr) return false;
    return equal(a, b) != 0;
}

/* ---- An index of string texts beside a container --------------------------
 * For containers whose lookups are defined as scans comparing with LUMEqual:
 * while every element is an immutable library string, the scan's answer
 * depends on texts alone and can come from this index (kept in a side
 * table by the container's address). Adding anything else turns it off. */
struct TextIndex {
    const void *owner;
    uint32_t *entries;    // position + 1, or empty / removed marks
    LUMHashCode *hashes;  // the text's hash, beside each entry
    size_t capacity;      // a power of two; at most half in use
    size_t used;          // entries and removed marks
    LUMIndex firstFree;   // for dictionaries: every slot below it holds a key
    bool off;             // an element that is not an immutable library string
    // The last text looked up and its hash: the add or removal that follows
    // a lookup of the same object takes the hash from here.
    mutable const void *hashedElement;
    mutable LUMHashCode hashedValue;
};
TextIndex *existingTextIndex(const void *owner);
/* A new empty index for owner, sized for positions; NULL without memory. */
TextIndex *makeTextIndex(const void *owner, size_t positions);
void dropTextIndex(const void *owner);
/* False (and the index off) for an element that is not an immutable library
 * string, or without memory. */
bool textIndexAdd(TextIndex *index, LUMIndex position, const void *element);
void textIndexRemove(TextIndex *index, LUMIndex position, const void *element);
/* The lowest (or highest) position whose element has key's text. */
LUMIndex textIndexFind(const TextIndex *index, const void *key, const void *const *elements, bool lowest);

/* ---- Builders for readers that make whole trees ------------------------
 * Private shortcuts with the same results as the public calls, minus steps
 * no caller can see: no retain-release pair for a reference handed over,
 * and one block where the public creators take two. */

/* An instance of class id followed by extraBytes bytes (not cleared: the
 * caller fills them), in one block from allocator (NULL: the default);
 * NULL when there is no memory. */
LUMTypeRef createInstance(LUMAllocatorRef allocator, LUMTypeID id, size_t extraBytes);
/* Immutable strings whose text lives in the object's own block. bytes are
 * ASCII without NUL. */
LUMStringRef createStringWithASCII(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length);
LUMStringRef createStringWithUnits(LUMAllocatorRef allocator, const UniChar *units, LUMIndex length);
/* The unit string of length units, each one byte of bytes as it is. */
LUMStringRef createStringWithByteUnits(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length);
/* An array or dictionary with the library's own callbacks that takes over
 * one reference to each value (and key) given. Keys must be distinct. On
 * failure (NULL) the references are still the caller's. */
LUMArrayRef createArrayAdopting(LUMAllocatorRef allocator, const void *const *values, LUMIndex count, bool isMutable);
LUMDictionaryRef createDictionaryAdopting(LUMAllocatorRef allocator, const void *const *keys, const void *const *values, LUMIndex count,
                                          bool isMutable);
/* A key and its value, as a reader gathers an object's entries. */
struct KeyValue {
    const void *key;
    const void *value;
};
/* A new mutable dictionary of the library's own callbacks as count
 * LUMDictionarySetValue calls of these entries, in order, would leave an
 * empty one, taking over one reference to each key and value given
 * (releasing those the calls would have dropped, and all of them when
 * there is no dictionary: NULL). The entries are scratch. */
LUMMutableDictionaryRef createDictionarySetting(LUMAllocatorRef allocator, KeyValue *entries, LUMIndex count);

/* The units LUMStringCreateWithFormat would give the text of, into units
 * when they fit capacity; their count either way. */
LUMIndex formatUnits(UniChar *units, LUMIndex capacity, LUMStringRef format, ...);

/* The double strtod gives for text that is exactly a decimal number,
 * -?digits[.digits][(e|E)[+|-]digits], with '.' as the decimal point;
 * false for any other text. */
bool convertDecimalText(const UInt8 *begin, const UInt8 *end, double &value);

} // namespace lum


/* ---- Calls inside the library -----------------------------------------------
 * A call from one module to another's exported function would otherwise go
 * through the dynamic symbol table. The hot ones have hidden aliases, and a
 * function-like macro sends calls (only calls: a name used as a value still
 * means the exported function, so callback records keep the addresses
 * callers see) straight to them. Definitions write the name in parentheses
 * to stay clear of the macro; LUM_DEFINE_LOCAL in the defining file makes
 * the alias. */
#if defined(LUM_BUILDING_LIBRARY)
#include <LumBase/LUMAllocator.h>
#include <LumBase/LUMArray.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMNumber.h>
#include <LumBase/LUMString.h>

#define LUM_LOCAL_CALLS(X) X(LUMRetain) X(LUMRelease) X(LUMGetAllocator) X(LUMGetTypeID) X(LUMGetRetainCount) X(LUMEqual) X(LUMHash) X(_LUMTypeGetClassByID) X(_LUMTypeGetClass) X(_LUMTypeCheckValid) X(_LUMTypeCreateInstance) X(_LUMTypeInitializeInstance) X(LUMAllocatorAllocate) X(LUMAllocatorReallocate) X(LUMAllocatorDeallocate) X(LUMAllocatorGetDefault) X(_LUMZeroMemory) X(LUMNumberCreate) X(LUMNumberGetValue) X(LUMNumberGetTypeID) X(LUMStringGetTypeID) X(LUMStringGetLength) X(LUMArrayGetTypeID) X(LUMArrayGetCount) X(LUMArrayGetValueAtIndex) X(LUMDictionaryGetTypeID) X(LUMDictionaryGetCount)
#define LUM_DECLARE_LOCAL(name) extern "C" __attribute__((visibility("hidden"))) __typeof__(name) name##Local;
LUM_LOCAL_CALLS(LUM_DECLARE_LOCAL)
#undef LUM_DECLARE_LOCAL
#define LUM_DEFINE_LOCAL(name) extern "C" __typeof__(name) name##Local __attribute__((alias(#name)));
#define LUMRetain(...) LUMRetainLocal(__VA_ARGS__)
#define LUMRelease(...) LUMReleaseLocal(__VA_ARGS__)
#define LUMGetAllocator(...) LUMGetAllocatorLocal(__VA_ARGS__)
#define LUMGetTypeID(...) LUMGetTypeIDLocal(__VA_ARGS__)
#define LUMGetRetainCount(...) LUMGetRetainCountLocal(__VA_ARGS__)
#define LUMEqual(...) LUMEqualLocal(__VA_ARGS__)
#define LUMHash(...) LUMHashLocal(__VA_ARGS__)
#define _LUMTypeGetClassByID(...) _LUMTypeGetClassByIDLocal(__VA_ARGS__)
#define _LUMTypeGetClass(...) _LUMTypeGetClassLocal(__VA_ARGS__)
#define _LUMTypeCheckValid(...) _LUMTypeCheckValidLocal(__VA_ARGS__)
#define _LUMTypeCreateInstance(...) _LUMTypeCreateInstanceLocal(__VA_ARGS__)
#define _LUMTypeInitializeInstance(...) _LUMTypeInitializeInstanceLocal(__VA_ARGS__)
#define LUMAllocatorAllocate(...) LUMAllocatorAllocateLocal(__VA_ARGS__)
#define LUMAllocatorReallocate(...) LUMAllocatorReallocateLocal(__VA_ARGS__)
#define LUMAllocatorDeallocate(...) LUMAllocatorDeallocateLocal(__VA_ARGS__)
#define LUMAllocatorGetDefault(...) LUMAllocatorGetDefaultLocal(__VA_ARGS__)
#define _LUMZeroMemory(...) _LUMZeroMemoryLocal(__VA_ARGS__)
#define LUMNumberCreate(...) LUMNumberCreateLocal(__VA_ARGS__)
#define LUMNumberGetValue(...) LUMNumberGetValueLocal(__VA_ARGS__)
#define LUMNumberGetTypeID(...) LUMNumberGetTypeIDLocal(__VA_ARGS__)
#define LUMStringGetTypeID(...) LUMStringGetTypeIDLocal(__VA_ARGS__)
#define LUMStringGetLength(...) LUMStringGetLengthLocal(__VA_ARGS__)
#define LUMArrayGetTypeID(...) LUMArrayGetTypeIDLocal(__VA_ARGS__)
#define LUMArrayGetCount(...) LUMArrayGetCountLocal(__VA_ARGS__)
#define LUMArrayGetValueAtIndex(...) LUMArrayGetValueAtIndexLocal(__VA_ARGS__)
#define LUMDictionaryGetTypeID(...) LUMDictionaryGetTypeIDLocal(__VA_ARGS__)
#define LUMDictionaryGetCount(...) LUMDictionaryGetCountLocal(__VA_ARGS__)

namespace lum {
/* Whether allocator (NULL: the default) is the system allocator. Its calls
 * are nobody's to watch, so the library may allocate differently for it. */
inline bool usesSystemAllocator(LUMAllocatorRef allocator)
{
    return (allocator != nullptr ? allocator : LUMAllocatorGetDefault()) == kLUMAllocatorSystemDefault;
}

/* Each of count bytes as one UTF-16 unit, as it is (the readers' strings
 * keep undecoded bytes); sixteen at a time where SSE2 is there. */
inline void widenBytes(const UInt8 *bytes, size_t count, UniChar *units)
{
    size_t i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= count; i += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + i));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(units + i), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(units + i + 8), _mm_unpackhi_epi8(v, zero));
    }
#endif
    for (; i < count; i++) units[i] = bytes[i];
}

/* A new instance of class id from the system allocator, for a creator that
 * fills every field after the header itself: the header as createInstance
 * writes it (the constant system allocator takes no reference), without
 * the clearing and the class initializer the creator would overwrite at
 * once. NULL without memory. */
inline LUMTypeRef createSystemInstance(LUMTypeID id, size_t bytes)
{
    auto *base = static_cast<LUMRuntimeBase *>(malloc(bytes));
    if (base == nullptr) return nullptr;
    base->magic = _kLUMRuntimeMagicAlive;
    base->typeID = id;
    base->retainCount = 1;
    base->allocator = kLUMAllocatorSystemDefault;
    return base;
}

/* A new instance of class id, its record T followed by extraBytes, for a
 * creator that writes every field itself: from the system allocator as
 * createSystemInstance makes it, from any other as createInstance does.
 * NULL without memory. */
template <typename T>
T *createFilledInstance(LUMAllocatorRef allocator, LUMTypeID id, size_t extraBytes = 0)
{
    return object<T>(usesSystemAllocator(allocator) ? createSystemInstance(id, sizeof(T) + extraBytes) : createInstance(allocator, id, extraBytes));
}
} // namespace lum
#endif

#endif
