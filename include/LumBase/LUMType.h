/** @file LUMType.h — generic operations on every object: retain and release, hash,
 * equality, descriptions, type and allocator queries, autorelease.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMTYPE_H
#define LUMBASE_LUMTYPE_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** Adds one owner and returns obj. NULL and constant objects are returned
 * unchanged. */
LUM_EXPORT LUMTypeRef LUMRetain(LUMTypeRef obj);

/** Gives up one reference; the last one finalises the object, frees its memory
 * through its allocator and then releases that allocator. Accepts NULL. */
LUM_EXPORT void LUMRelease(LUMTypeRef obj);

/** The number of owners; 1 for constant objects, 0 for NULL. */
LUM_EXPORT LUMIndex LUMGetRetainCount(LUMTypeRef obj);

/** The object's class ID (0 for NULL). */
LUM_EXPORT LUMTypeID LUMGetTypeID(LUMTypeRef obj);

/** The allocator that provided obj; the constant allocator for constant
 * objects and for NULL. Not retained. */
LUM_EXPORT LUMAllocatorRef LUMGetAllocator(LUMTypeRef obj);

/** The class's hash, or the object's address (truncated to 32 bits) for
 * classes without one. 0 for NULL. */
LUM_EXPORT LUMHashCode LUMHash(LUMTypeRef obj);

/** True for the same pointer; otherwise only for two valid objects of one class
 * whose equality callback agrees. Classes without one are equal by identity. */
LUM_EXPORT Boolean LUMEqual(LUMTypeRef a, LUMTypeRef b);

/** A new string describing obj; the caller releases it. NULL and dead objects
 * give "<%p>". */
LUM_EXPORT LUMStringRef LUMCopyDescription(LUMTypeRef obj);

/** A new string with the class name for id, or the constant "N/A". */
LUM_EXPORT LUMStringRef LUMCopyTypeIDDescription(LUMTypeID id);

/** Prints the description on standard output, followed by a newline. */
LUM_EXPORT void LUMShow(LUMTypeRef obj);

/** Hands the caller's reference to the current autorelease pool and returns
 * obj. Without a pool the reference leaks, and a message says so. */
LUM_EXPORT LUMTypeRef LUMAutorelease(LUMTypeRef obj);

LUM_EXTERN_C_END

#endif
