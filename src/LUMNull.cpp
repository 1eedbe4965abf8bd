/* LUMNull.cpp — the null singleton.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMNull"
#include "LUMPrivate.h"

#include <LumBase/LUMNull.h>

struct __LUMNull {
    LUMRuntimeBase base;
};

namespace {
LUMTypeID __kLUMNullTypeID = 0;
constexpr LUMRuntimeClass __kLUMNullTypeClass = {0, "LUMNull", sizeof(__LUMNull), nullptr, nullptr, nullptr, nullptr, nullptr};
__LUMNull __kLUMNullInstance = {};
} // namespace


const LUMNullRef kLUMNull = &__kLUMNullInstance;

LUMTypeID LUMNullGetTypeID(void) { return lum::registerClassOnce(__kLUMNullTypeID, __kLUMNullTypeClass); }

Boolean _LUMNullInitializeModule(void)
{
    _LUMTypeInitializeInstance(&__kLUMNullInstance, _kLUMAllocatorConstant, LUMNullGetTypeID());
    return true;
}

