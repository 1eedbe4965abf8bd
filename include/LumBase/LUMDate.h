/** @file LUMDate.h — date objects: one absolute time in a reference-counted object.
 * Part of LumBase; MIT licence. Dates are equal only when they are the same
 * object; compare their times with LUMDateCompare. */
#ifndef LUMBASE_LUMDATE_H
#define LUMBASE_LUMDATE_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

/** The date class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMDateGetTypeID(void);
/** A date object for the instant at, owned by the caller; NULL without memory. */
LUM_EXPORT LUMDateRef LUMDateCreate(LUMAllocatorRef allocator, LUMAbsoluteTime at);
/** The instant the date holds. */
LUM_EXPORT LUMAbsoluteTime LUMDateGetAbsoluteTime(LUMDateRef date);
/** date - refDate in seconds. */
LUM_EXPORT LUMTimeInterval LUMDateGetTimeIntervalSinceDate(LUMDateRef date, LUMDateRef refDate);
/** -1 when leftDate is earlier, 1 when later, 0 for the same time. */
LUM_EXPORT LUMComparisonResult LUMDateCompare(LUMDateRef leftDate, LUMDateRef rightDate);

LUM_EXTERN_C_END

#endif
