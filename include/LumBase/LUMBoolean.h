/** @file LUMBoolean.h — the two boolean singletons.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMBOOLEAN_H
#define LUMBASE_LUMBOOLEAN_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** @{ */
/** Constant objects; a boolean's value is its identity. */
LUM_EXPORT extern const LUMBooleanRef kLUMBooleanTrue;
LUM_EXPORT extern const LUMBooleanRef kLUMBooleanFalse;
/** @} */

/** The boolean class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMBooleanGetTypeID(void);

/** True exactly when b is kLUMBooleanTrue; any other pointer, NULL included,
 * gives false. */
LUM_EXPORT Boolean LUMBooleanGetValue(LUMBooleanRef b);

LUM_EXTERN_C_END

#endif
