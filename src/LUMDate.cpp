/* LUMDate.cpp — date objects holding one absolute time.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMDate"
#include "LUMPrivate.h"

#include <LumBase/LUMDate.h>

struct __LUMDate {
    LUMRuntimeBase base;
    LUMAbsoluteTime time;
};

namespace {

LUMTypeID __kLUMDateTypeID = 0;

Boolean __LUMDateInitializeInstance(LUMTypeRef obj)
{
    lum::object<__LUMDate>(obj)->time = 0.0;
    return true;
}

void __LUMDateFinalizeInstance(LUMTypeRef) {}

constexpr LUMRuntimeClass __kLUMDateTypeClass = {
    0, "LUMDate", sizeof(__LUMDate), __LUMDateInitializeInstance, __LUMDateFinalizeInstance, nullptr, nullptr, nullptr,
};

} // namespace

LUMTypeID LUMDateGetTypeID(void) { return lum::registerClassOnce(__kLUMDateTypeID, __kLUMDateTypeClass); }

Boolean _LUMDateInitializeModule(void) { return true; }

LUMDateRef LUMDateCreate(LUMAllocatorRef allocator, LUMAbsoluteTime at)
{
    auto *date = lum::object<__LUMDate>(_LUMTypeCreateInstance(allocator, LUMDateGetTypeID()));
    if (date == nullptr) return nullptr;
    date->time = at;
    return date;
}

LUMAbsoluteTime LUMDateGetAbsoluteTime(LUMDateRef date)
{
    LUM_ASSERT(_LUMTypeCheckValid(date, LUMDateGetTypeID()));
    return date->time;
}

LUMTimeInterval LUMDateGetTimeIntervalSinceDate(LUMDateRef date, LUMDateRef refDate)
{
    LUM_ASSERT(_LUMTypeCheckValid(date, LUMDateGetTypeID()));
    LUM_ASSERT(_LUMTypeCheckValid(refDate, LUMDateGetTypeID()));
    return date->time - refDate->time;
}

LUMComparisonResult LUMDateCompare(LUMDateRef leftDate, LUMDateRef rightDate)
{
    LUM_ASSERT(_LUMTypeCheckValid(leftDate, LUMDateGetTypeID()));
    LUM_ASSERT(_LUMTypeCheckValid(rightDate, LUMDateGetTypeID()));
    double difference = leftDate->time - rightDate->time;
    if (difference < 0) return kLUMCompareLessThan;
    if (difference > 0) return kLUMCompareGreaterThan;
    return kLUMCompareEqualTo;
}
