/** @file LUMNull.h — the null singleton.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMNULL_H
#define LUMBASE_LUMNULL_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** The one null object; constant (retain and release do nothing). */
LUM_EXPORT extern const LUMNullRef kLUMNull;

/** The null class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMNullGetTypeID(void);

LUM_EXTERN_C_END

#endif
