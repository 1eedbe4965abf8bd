/* LUMBoolean.cpp — the two boolean singletons; a boolean's value is its
 * identity.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMBoolean"
#include "LUMPrivate.h"

#include <LumBase/LUMBoolean.h>

struct __LUMBoolean {
    LUMRuntimeBase base;
};

namespace {
LUMTypeID __kLUMBooleanTypeID = 0;
constexpr LUMRuntimeClass __kLUMBooleanTypeClass = {0, "LUMBoolean", sizeof(__LUMBoolean), nullptr, nullptr, nullptr, nullptr, nullptr};
__LUMBoolean __kLUMBooleanFalseInstance = {};
__LUMBoolean __kLUMBooleanTrueInstance = {};
} // namespace


const LUMBooleanRef kLUMBooleanTrue = &__kLUMBooleanTrueInstance;
const LUMBooleanRef kLUMBooleanFalse = &__kLUMBooleanFalseInstance;

LUMTypeID LUMBooleanGetTypeID(void) { return lum::registerClassOnce(__kLUMBooleanTypeID, __kLUMBooleanTypeClass); }

Boolean _LUMBooleanInitializeModule(void)
{
    _LUMTypeInitializeInstance(&__kLUMBooleanFalseInstance, _kLUMAllocatorConstant, LUMBooleanGetTypeID());
    _LUMTypeInitializeInstance(&__kLUMBooleanTrueInstance, _kLUMAllocatorConstant, LUMBooleanGetTypeID());
    return true;
}

Boolean LUMBooleanGetValue(LUMBooleanRef b) { return b == kLUMBooleanTrue; }

