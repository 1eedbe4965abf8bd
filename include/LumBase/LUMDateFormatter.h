/** @file LUMDateFormatter.h — dates to text and back, by style or by a pattern of
 * field letters, in one time zone.
 * Part of LumBase; MIT licence.
 *
 * Supported fields: y (1-5 letters; yy is the year modulo 100), MM (month
 * number) and MMM (English abbreviation, formatting only), d, dd, H, HH, m,
 * mm, s, ss. Every other field formats as "???" and makes parsing fail; so
 * does a single M. Text in single quotes is copied when formatting but
 * skipped, not matched, when parsing; two quotes in a row give nothing. A
 * field of n letters parses exactly n digits; one- and two-digit years are
 * taken as 2000 to 2099. The locale is kept but not consulted. */
#ifndef LUMBASE_LUMDATEFORMATTER_H
#define LUMBASE_LUMDATEFORMATTER_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

typedef LUMIndex LUMDateFormatterStyle; /**< How long a date or time is written: one of the kLUMDateFormatter...Style values. */
enum {
    kLUMDateFormatterNoStyle = 0,
    kLUMDateFormatterShortStyle = 1,  /**< MM/dd/yy, H:mm */
    kLUMDateFormatterMediumStyle = 2, /**< MMM dd, yyyy, H:mm */
    kLUMDateFormatterLongStyle = 3,   /**< MMMM dd, yyyy, H:mm:ss */
    kLUMDateFormatterFullStyle = 4    /**< EEEE, MMMM dd, yyyy GGG, H:mm:ss zzz */
};

/** "kLUMDateFormatterTimeZone": the only property, a time zone (NULL: UTC). */
LUM_EXPORT extern const LUMStringRef kLUMDateFormatterTimeZone;

/** The date formatter class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMDateFormatterGetTypeID(void);
/** The format is the date pattern, a blank when both styles are set, and the
 * time pattern. A style outside 0..4 adds nothing, silently. */
LUM_EXPORT LUMDateFormatterRef LUMDateFormatterCreate(LUMAllocatorRef allocator, LUMLocaleRef locale, LUMDateFormatterStyle dateStyle,
                                                      LUMDateFormatterStyle timeStyle);
/** The date style the formatter was made with. */
LUM_EXPORT LUMDateFormatterStyle LUMDateFormatterGetDateStyle(LUMDateFormatterRef formatter);
/** The time style the formatter was made with. */
LUM_EXPORT LUMDateFormatterStyle LUMDateFormatterGetTimeStyle(LUMDateFormatterRef formatter);
/** The pattern in use, lent. */
LUM_EXPORT LUMStringRef LUMDateFormatterGetFormat(LUMDateFormatterRef formatter);
/** The locale the formatter was made with, lent. */
LUM_EXPORT LUMLocaleRef LUMDateFormatterGetLocale(LUMDateFormatterRef formatter);
/** Replaces the pattern with a copy of formatString (the styles stay as they were). */
LUM_EXPORT void LUMDateFormatterSetFormat(LUMDateFormatterRef formatter, LUMStringRef formatString);
/** @{ */
/** Only kLUMDateFormatterTimeZone; any other key ends the process. */
LUM_EXPORT void LUMDateFormatterSetProperty(LUMDateFormatterRef formatter, LUMStringRef key, LUMTypeRef value);
LUM_EXPORT LUMTypeRef LUMDateFormatterCopyProperty(LUMDateFormatterRef formatter, LUMStringRef key);
/** @} */
/** A new mutable string. */
LUM_EXPORT LUMStringRef LUMDateFormatterCreateStringWithAbsoluteTime(LUMAllocatorRef allocator, LUMDateFormatterRef formatter,
                                                                     LUMAbsoluteTime at);
/** A new date, or NULL; rangep (may be NULL) gives the text range to parse
 * and receives the number of characters consumed, also on failure. */
LUM_EXPORT LUMDateRef LUMDateFormatterCreateDateFromString(LUMAllocatorRef allocator, LUMDateFormatterRef formatter, LUMStringRef string,
                                                           LUMRange *rangep);

LUM_EXTERN_C_END

#endif
