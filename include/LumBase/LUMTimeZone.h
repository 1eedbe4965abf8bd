/** @file LUMTimeZone.h — time zones from a table compiled into the library.
 * Part of LumBase; MIT licence.
 *
 * The table holds 547 names (aliases included) in ASCII order, from
 * "Africa/Abidjan" to "Zulu", each with its offsets and a list of
 * transitions ending in 2050 at the latest; system zone files and the
 * environment are never read. Lookup rules, kept on purpose: a zone with
 * fewer than two records gives 0.0 seconds from GMT at every instant, and any
 * zone gives 0.0 at and after its last record (for zones without daylight
 * saving that is every time after their last historical change; for the
 * others every time after 2050). Only instants between the second record and
 * the last get a real offset; before the second record the first record's
 * offset applies. The default zone is "UTC". */
#ifndef LUMBASE_LUMTIMEZONE_H
#define LUMBASE_LUMTIMEZONE_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

/** The time zone class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMTimeZoneGetTypeID(void);

/** The zone named exactly (case-sensitive) name, or NULL. tryAbbrev must be
 * false: abbreviations are not looked up. */
LUM_EXPORT LUMTimeZoneRef LUMTimeZoneCreateWithName(LUMAllocatorRef allocator, LUMStringRef name, Boolean tryAbbrev);
/** The default zone, retained (may be NULL). */
LUM_EXPORT LUMTimeZoneRef LUMTimeZoneCopyDefault(void);
/** Replaces the default zone; tz must be a zone. */
LUM_EXPORT void LUMTimeZoneSetDefault(LUMTimeZoneRef tz);
/** Not available: ends the process ("Not yet implemented"). */
LUM_EXPORT LUMTimeZoneRef LUMTimeZoneCopySystem(void);
/** Not available: ends the process ("Not yet implemented"). */
LUM_EXPORT LUMStringRef LUMTimeZoneCopyAbbreviation(LUMTimeZoneRef tz, LUMAbsoluteTime at);
/** A new array of the 547 names in table order. */
LUM_EXPORT LUMArrayRef LUMTimeZoneCopyKnownNames(void);
/** The zone's name, lent. */
LUM_EXPORT LUMStringRef LUMTimeZoneGetName(LUMTimeZoneRef tz);
/** Standard plus daylight-saving offset in force at at (see the rules above). */
LUM_EXPORT LUMTimeInterval LUMTimeZoneGetSecondsFromGMT(LUMTimeZoneRef tz, LUMAbsoluteTime at);
/** Whether daylight-saving time is in force at at. */
LUM_EXPORT Boolean LUMTimeZoneIsDaylightSavingTime(LUMTimeZoneRef tz, LUMAbsoluteTime at);
/** The daylight-saving part of the offset at at (0 outside daylight-saving time). */
LUM_EXPORT LUMTimeInterval LUMTimeZoneGetDaylightSavingTimeOffset(LUMTimeZoneRef tz, LUMAbsoluteTime at);
/** Returns at itself: it does not find the next transition. Callers must not
 * rely on it. */
LUM_EXPORT LUMAbsoluteTime LUMTimeZoneGetNextDaylightSavingTimeTransition(LUMTimeZoneRef tz, LUMAbsoluteTime at);

LUM_EXTERN_C_END

#endif
