/** @file LUMAllocator.h — allocator objects: the predefined allocators, allocators
 * built from a context of callbacks, and the process-wide default.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMALLOCATOR_H
#define LUMBASE_LUMALLOCATOR_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef const void *(*LUMAllocatorRetainCallBack)(const void *info); /**< Retains the context's info when the allocator takes it. */
typedef void (*LUMAllocatorReleaseCallBack)(const void *info); /**< Releases the context's info when the allocator goes. */
typedef LUMStringRef (*LUMAllocatorCopyDescriptionCallBack)(const void *info); /**< Describes the context's info. */
typedef void *(*LUMAllocatorAllocateCallBack)(UInt32 size, LUMOptionFlags hint, void *info); /**< A new block of size bytes, or NULL. */
typedef void *(*LUMAllocatorReallocateCallBack)(void *ptr, UInt32 newSize, LUMOptionFlags hint, void *info); /**< The block resized (maybe moved), or NULL with ptr untouched. */
typedef void (*LUMAllocatorDeallocateCallBack)(void *ptr, void *info); /**< Gives a block back. */
typedef LUMIndex (*LUMAllocatorPreferredSizeCallBack)(UInt32 size, LUMOptionFlags hint, void *info); /**< The size the allocator would rather hand out for a request of size. */

/** The record an allocator is made from. Every callback may be NULL: a missing
 * one makes its operation yield NULL, do nothing or keep the size. */
typedef struct {
    LUMIndex version;                            /**< 0 */
    void *info;                                  /**< handed to every memory callback */
    LUMAllocatorRetainCallBack retain;           /**< once at creation; its result replaces info */
    LUMAllocatorReleaseCallBack release;         /**< once when the allocator is finalised */
    LUMAllocatorCopyDescriptionCallBack copyDescription; /**< stored only */
    LUMAllocatorAllocateCallBack allocate; /**< required for allocation */
    LUMAllocatorReallocateCallBack reallocate; /**< NULL: blocks cannot be resized */
    LUMAllocatorDeallocateCallBack deallocate; /**< NULL: blocks are never given back */
    LUMAllocatorPreferredSizeCallBack preferredSize; /**< NULL: the size asked for */
} LUMAllocatorContext;

/** NULL: "the current default allocator" wherever an allocator is taken. */
LUM_EXPORT extern const LUMAllocatorRef kLUMAllocatorDefault;
/** The C heap: malloc, realloc, free. */
LUM_EXPORT extern const LUMAllocatorRef kLUMAllocatorSystemDefault;
/** The same object as kLUMAllocatorSystemDefault. */
LUM_EXPORT extern const LUMAllocatorRef kLUMAllocatorMalloc;
/** Allocates nothing and frees nothing: for buffers that must not be freed. */
LUM_EXPORT extern const LUMAllocatorRef kLUMAllocatorNull;
/** A marker for LUMAllocatorCreate: the new allocator allocates itself. */
LUM_EXPORT extern const LUMAllocatorRef kLUMAllocatorUseContext;

/** The allocator class's type ID. */
LUM_EXPORT LUMTypeID LUMAllocatorGetTypeID(void);

/** The current default allocator, not retained. */
LUM_EXPORT LUMAllocatorRef LUMAllocatorGetDefault(void);

/** Retains allocator, makes it the default and releases the previous one.
 * NULL leaves no default: allocation through the default then yields NULL. */
LUM_EXPORT void LUMAllocatorSetDefault(LUMAllocatorRef allocator);

/** A new allocator from context, made with allocator (or, with
 * kLUMAllocatorUseContext, from the context's own allocate callback, which
 * must succeed). The caller releases it. NULL when creation fails. */
LUM_EXPORT LUMAllocatorRef LUMAllocatorCreate(LUMAllocatorRef allocator, LUMAllocatorContext *context);

/** A block of size bytes from allocator (NULL: the default), owned by the caller until given back with LUMAllocatorDeallocate; NULL when the allocator has no allocate callback or no memory. */
LUM_EXPORT void *LUMAllocatorAllocate(LUMAllocatorRef allocator, LUMIndex size, LUMOptionFlags hint);
/** ptr's block resized to newSize bytes (maybe moved); NULL, with ptr's block unchanged, when the allocator cannot. */
LUM_EXPORT void *LUMAllocatorReallocate(LUMAllocatorRef allocator, void *ptr, LUMIndex newSize, LUMOptionFlags hint);
/** Gives ptr's block back to the allocator it came from (nothing happens without a deallocate callback). */
LUM_EXPORT void LUMAllocatorDeallocate(LUMAllocatorRef allocator, void *ptr);
/** The block size the allocator prefers for a request of size bytes (size itself without a preferredSize callback). */
LUM_EXPORT LUMIndex LUMAllocatorGetPreferredSizeForSize(LUMAllocatorRef allocator, LUMIndex size, LUMOptionFlags hint);

/** Copies the nine stored context fields (info as returned by retain). */
LUM_EXPORT void LUMAllocatorGetContext(LUMAllocatorRef allocator, LUMAllocatorContext *context);

LUM_EXTERN_C_END

#endif
