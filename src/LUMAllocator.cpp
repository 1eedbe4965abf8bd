/* LUMAllocator.cpp — allocator objects, the predefined allocators and the
 * process-wide default.
 * Part of LumBase; MIT licence.
 *
 * An allocator is an object (class ID 1) holding a copy of the nine context
 * fields. All memory the library takes goes through one of them; a missing
 * callback is never an error, its operation just yields NULL, nothing, or the
 * size unchanged. The predefined allocators are statically placed and owned
 * by the constant allocator, so retain and release leave them alone. */
#define LUM_SOURCE_FILE "src/LUMAllocator"
#include "LUMPrivate.h"

struct __LUMAllocator {
    LUMRuntimeBase base;
    LUMAllocatorContext context;
};

namespace {

LUMTypeID __kLUMAllocatorTypeID = 0;

void __LUMAllocatorFinalizeInstance(LUMTypeRef obj);
[[noreturn]] void __LUMAllocatorDeallocateConstant(void *ptr, void *info);

constexpr LUMRuntimeClass __kLUMAllocatorTypeClass = {
    0, "LUMAllocator", sizeof(__LUMAllocator), nullptr, __LUMAllocatorFinalizeInstance, nullptr, nullptr, nullptr,
};

constexpr LUMAllocatorContext kMallocContext = {
    0, nullptr, nullptr, nullptr, nullptr,
    _LUMAllocatorAllocateMalloc, _LUMAllocatorReallocateMalloc, _LUMAllocatorDeallocateMalloc,
    _LUMAllocatorPreferredSizeMalloc,
};
constexpr LUMAllocatorContext kConstantContext = {
    0, nullptr, nullptr, nullptr, nullptr,
    _LUMAllocatorAllocateMalloc, _LUMAllocatorReallocateMalloc, __LUMAllocatorDeallocateConstant,
    _LUMAllocatorPreferredSizeMalloc,
};
constexpr LUMAllocatorContext kEmptyContext = {};

// The headers are written by the module's start function; the callbacks are
// constant data from the beginning.
__LUMAllocator __kLUMAllocatorConstantInstance = {{}, kConstantContext};
__LUMAllocator __kLUMAllocatorMallocInstance = {{}, kMallocContext};
__LUMAllocator __kLUMAllocatorNullInstance = {{}, kEmptyContext};
__LUMAllocator __kLUMAllocatorUseContextInstance = {{}, kEmptyContext};

LUMAllocatorRef __defaultAllocator = &__kLUMAllocatorMallocInstance;

__LUMAllocator *allocatorObject(LUMAllocatorRef allocator) { return lum::object<__LUMAllocator>(allocator); }

// A NULL argument means the current default, which may itself be NULL.
__LUMAllocator *resolve(LUMAllocatorRef allocator)
{
    return allocatorObject(allocator != nullptr ? allocator : LUMAllocatorGetDefault());
}

void __LUMAllocatorFinalizeInstance(LUMTypeRef obj)
{
    __LUMAllocator *allocator = allocatorObject(static_cast<LUMAllocatorRef>(obj));
    if (allocator->context.release != nullptr) allocator->context.release(allocator->context.info);
}

// Objects of the constant allocator never reach this through LUMRelease; only
// a direct misuse does, and that is a programming error worth stopping for.
void __LUMAllocatorDeallocateConstant(void *ptr, void *info)
{
    _LUMFatal("__LUMAllocatorDeallocateConstant", LUM_SOURCE_FILE, 100,
              "Deallocating object 0x%lX with allocator _kLUMAllocatorConstant, halting...\n",
              static_cast<unsigned long>(reinterpret_cast<uintptr_t>(ptr)));
}

} // namespace


const LUMAllocatorRef kLUMAllocatorDefault = nullptr;
const LUMAllocatorRef kLUMAllocatorSystemDefault = &__kLUMAllocatorMallocInstance;
const LUMAllocatorRef kLUMAllocatorMalloc = &__kLUMAllocatorMallocInstance;
const LUMAllocatorRef kLUMAllocatorNull = &__kLUMAllocatorNullInstance;
const LUMAllocatorRef kLUMAllocatorUseContext = &__kLUMAllocatorUseContextInstance;
const LUMAllocatorRef _kLUMAllocatorConstant = &__kLUMAllocatorConstantInstance;

void *_LUMAllocatorAllocateMalloc(UInt32 size, LUMOptionFlags hint, void *info) { return malloc(size); }
void *_LUMAllocatorReallocateMalloc(void *ptr, UInt32 newSize, LUMOptionFlags hint, void *info)
{
    return realloc(ptr, newSize);
}
void _LUMAllocatorDeallocateMalloc(void *ptr, void *info) { free(ptr); }
LUMIndex _LUMAllocatorPreferredSizeMalloc(UInt32 size, LUMOptionFlags hint, void *info)
{
    return static_cast<LUMIndex>(size);
}

LUMTypeID LUMAllocatorGetTypeID(void)
{
    if (__kLUMAllocatorTypeID == 0) {
        __kLUMAllocatorTypeID = _LUMTypeRegisterClass(&__kLUMAllocatorTypeClass);
        LUM_ASSERT(__kLUMAllocatorTypeID == 1);
    }
    return __kLUMAllocatorTypeID;
}

Boolean _LUMAllocatorInitializeModule(void)
{
    LUMTypeID id = LUMAllocatorGetTypeID();
    // The constant allocator is its own allocator; its allocator field is
    // still zero while it "retains" itself, so it holds no reference on itself.
    _LUMTypeInitializeInstance(&__kLUMAllocatorConstantInstance, _kLUMAllocatorConstant, id);
    _LUMTypeInitializeInstance(&__kLUMAllocatorNullInstance, _kLUMAllocatorConstant, id);
    _LUMTypeInitializeInstance(&__kLUMAllocatorMallocInstance, _kLUMAllocatorConstant, id);
    _LUMTypeInitializeInstance(&__kLUMAllocatorUseContextInstance, _kLUMAllocatorConstant, id);
    __defaultAllocator = nullptr;
    LUMAllocatorSetDefault(kLUMAllocatorMalloc);
    return true;
}

LUMAllocatorRef (LUMAllocatorGetDefault)(void) { return __defaultAllocator; }

void LUMAllocatorSetDefault(LUMAllocatorRef allocator)
{
    // Retain first, release last: setting the same allocator again is safe.
    LUMAllocatorRef previous = __defaultAllocator;
    __defaultAllocator = static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    LUMRelease(previous);
}

LUMAllocatorRef LUMAllocatorCreate(LUMAllocatorRef allocator, LUMAllocatorContext *context)
{
    __LUMAllocator *created;
    if (allocator == kLUMAllocatorUseContext) {
        // The allocator allocates itself. Its memory is not cleared and the
        // callback is trusted to succeed.
        created = static_cast<__LUMAllocator *>(
            context->allocate(sizeof(__LUMAllocator), 0, context->info));
        _LUMTypeInitializeInstance(created, created, LUMAllocatorGetTypeID());
    } else {
        created = lum::object<__LUMAllocator>(_LUMTypeCreateInstance(allocator, LUMAllocatorGetTypeID()));
        if (created == nullptr) return nullptr;
    }
    created->context = *context;
    if (context->retain != nullptr) created->context.info = const_cast<void *>(context->retain(context->info));
    return created;
}

void *(LUMAllocatorAllocate)(LUMAllocatorRef allocator, LUMIndex size, LUMOptionFlags hint)
{
    __LUMAllocator *a = resolve(allocator);
    if (a == nullptr || a->context.allocate == nullptr) return nullptr;
    return a->context.allocate(static_cast<UInt32>(size), hint, a->context.info);
}

void *(LUMAllocatorReallocate)(LUMAllocatorRef allocator, void *ptr, LUMIndex newSize, LUMOptionFlags hint)
{
    __LUMAllocator *a = resolve(allocator);
    if (a == nullptr || a->context.reallocate == nullptr) return nullptr;
    return a->context.reallocate(ptr, static_cast<UInt32>(newSize), hint, a->context.info);
}

void (LUMAllocatorDeallocate)(LUMAllocatorRef allocator, void *ptr)
{
    __LUMAllocator *a = resolve(allocator);
    if (a == nullptr || a->context.deallocate == nullptr) return;
    a->context.deallocate(ptr, a->context.info);
}

LUMIndex LUMAllocatorGetPreferredSizeForSize(LUMAllocatorRef allocator, LUMIndex size, LUMOptionFlags hint)
{
    __LUMAllocator *a = resolve(allocator);
    if (a == nullptr || a->context.preferredSize == nullptr) return size;
    return a->context.preferredSize(static_cast<UInt32>(size), hint, a->context.info);
}

void LUMAllocatorGetContext(LUMAllocatorRef allocator, LUMAllocatorContext *context)
{
    __LUMAllocator *a = resolve(allocator);
    if (a == nullptr) return;
    *context = a->context;
}

bool lum::growByDoubling(LUMAllocatorRef allocator, void *&block, LUMIndex &capacity, int64_t needed, size_t elementSize)
{
    if (needed <= capacity) return true;
    LUMIndex grown = grownCapacity(capacity, needed, elementSize);
    if (grown < 0) return false;
    void *moved = LUMAllocatorReallocate(allocator, block, blockBytes(grown, elementSize), 0);
    if (moved == nullptr) return false;
    block = moved;
    capacity = grown;
    return true;
}

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(LUMAllocatorAllocate)
LUM_DEFINE_LOCAL(LUMAllocatorReallocate)
LUM_DEFINE_LOCAL(LUMAllocatorDeallocate)
LUM_DEFINE_LOCAL(LUMAllocatorGetDefault)
