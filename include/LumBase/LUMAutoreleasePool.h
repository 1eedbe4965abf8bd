/** @file LUMAutoreleasePool.h — pools that release the references handed to them
 * with LUMAutorelease, last added first, when drained.
 * Part of LumBase; MIT licence.
 *
 * Pools nest on one process-wide stack: the most recent pool that has not
 * been drained is the current one. The library never creates a pool itself. */
#ifndef LUMBASE_LUMAUTORELEASEPOOL_H
#define LUMBASE_LUMAUTORELEASEPOOL_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** The autorelease pool class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMAutoreleasePoolGetTypeID(void);

/** A new pool, now the current one. The caller releases it after draining
 * (or instead of draining: the last release drains it). */
LUM_EXPORT LUMAutoreleasePoolRef LUMAutoreleasePoolCreate(void);

/** Releases the pool's objects, last added first (an object added n times is
 * released n times), and takes the pool off the stack. Draining twice
 * releases nothing the second time. */
LUM_EXPORT void LUMAutoreleasePoolDrain(LUMAutoreleasePoolRef pool);

/** Hands one reference of obj to pool (no retain is taken). */
LUM_EXPORT void LUMAutoreleasePoolAddObject(LUMAutoreleasePoolRef pool, LUMTypeRef obj);

/** The current pool, or NULL. */
LUM_EXPORT LUMAutoreleasePoolRef _LUMAutoreleasePoolGetCurrent(void);

LUM_EXTERN_C_END

#endif
