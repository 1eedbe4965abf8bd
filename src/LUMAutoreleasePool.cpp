/* LUMAutoreleasePool.cpp — autorelease pools and their process-wide stack.
 * Part of LumBase; MIT licence.
 *
 * Invariants: a pool's array holds one entry per reference the pool owns,
 * without retaining (the entry is the reference); it is NULL once drained.
 * The stack array retains every pool on it; its last element is current. */
#define LUM_SOURCE_FILE "src/LUMAutoreleasePool"
#include "LUMPrivate.h"

#include <LumBase/LUMArray.h>
#include <LumBase/LUMAutoreleasePool.h>

struct __LUMAutoreleasePool {
    LUMRuntimeBase base;
    LUMMutableArrayRef pool;
};

namespace {

LUMTypeID __kLUMAutoreleasePoolTypeID = 0;
LUMMutableArrayRef __autoreleasePoolStack = nullptr;

Boolean __LUMAutoreleasePoolInitializeInstance(LUMTypeRef obj);
void __LUMAutoreleasePoolFinalizeInstance(LUMTypeRef obj);
LUMStringRef __LUMAutoreleasePoolCopyDescription(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMAutoreleasePoolTypeClass = {
    0, "LUMAutoreleasePool", sizeof(__LUMAutoreleasePool), __LUMAutoreleasePoolInitializeInstance,
    __LUMAutoreleasePoolFinalizeInstance, nullptr, nullptr, __LUMAutoreleasePoolCopyDescription,
};

// The pool's entries are references it owns already: no retain, no release.
constexpr LUMArrayCallBacks __kLUMAutoreleasePoolArrayCallBacks = {0, nullptr, nullptr, LUMCopyDescription, LUMEqual};

Boolean __LUMAutoreleasePoolInitializeInstance(LUMTypeRef obj)
{
    lum::object<__LUMAutoreleasePool>(obj)->pool = nullptr;
    return true;
}

// The final release of a pool that was never drained drains it.
void __LUMAutoreleasePoolFinalizeInstance(LUMTypeRef obj) { LUMAutoreleasePoolDrain(lum::object<__LUMAutoreleasePool>(obj)); }

LUMStringRef __LUMAutoreleasePoolCopyDescription(LUMTypeRef obj)
{
    return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p: LUMAutoreleasePool pool=%@>"), obj,
                                     lum::object<__LUMAutoreleasePool>(obj)->pool);
}

LUMMutableArrayRef poolStack()
{
    if (__autoreleasePoolStack == nullptr)
        __autoreleasePoolStack = LUMArrayCreateMutable(kLUMAllocatorSystemDefault, 0, &kLUMTypeArrayCallBacks);
    return __autoreleasePoolStack;
}

} // namespace

LUMTypeID LUMAutoreleasePoolGetTypeID(void)
{
    return lum::registerClassOnce(__kLUMAutoreleasePoolTypeID, __kLUMAutoreleasePoolTypeClass);
}

Boolean _LUMAutoreleasePoolInitializeModule(void) { return true; }

LUMAutoreleasePoolRef LUMAutoreleasePoolCreate(void)
{
    auto *pool = lum::object<__LUMAutoreleasePool>(_LUMTypeCreateInstance(kLUMAllocatorSystemDefault, LUMAutoreleasePoolGetTypeID()));
    if (pool == nullptr) return nullptr;
    pool->pool = LUMArrayCreateMutable(nullptr, 0, &__kLUMAutoreleasePoolArrayCallBacks);
    LUMArrayAppendValue(poolStack(), pool);
    return pool;
}

LUMAutoreleasePoolRef _LUMAutoreleasePoolGetCurrent(void)
{
    LUMMutableArrayRef stack = poolStack();
    if (stack == nullptr) return nullptr;
    LUMIndex count = LUMArrayGetCount(stack);
    if (count == 0) return nullptr;
    return static_cast<LUMAutoreleasePoolRef>(const_cast<void *>(LUMArrayGetValueAtIndex(stack, count - 1)));
}

void LUMAutoreleasePoolAddObject(LUMAutoreleasePoolRef pool, LUMTypeRef obj) { LUMArrayAppendValue(pool->pool, obj); }

void LUMAutoreleasePoolDrain(LUMAutoreleasePoolRef pool)
{
    if (pool->pool != nullptr) {
        for (LUMIndex i = LUMArrayGetCount(pool->pool) - 1; i >= 0; i--) {
            LUMTypeRef obj = LUMArrayGetValueAtIndex(pool->pool, i);
            LUMArrayRemoveValueAtIndex(pool->pool, i);
            LUMRelease(obj);
        }
        LUMRelease(pool->pool);
        pool->pool = nullptr;
    }
    LUMMutableArrayRef stack = poolStack();
    LUMIndex at = LUMArrayGetLastIndexOfValue(stack, LUMRangeMake(0, LUMArrayGetCount(stack)), pool);
    if (at == kLUMNotFound) return;
    // The stack's reference may be the pool's last. The removal releases it
    // before the stack's count drops, so the pool's own finalization (which
    // drains, and so looks at the stack) waits until the removal is over.
    lum::HeldObject held(pool);
    LUMArrayRemoveValueAtIndex(stack, at);
}
