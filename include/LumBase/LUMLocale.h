/** @file LUMLocale.h — locale identifiers and their language and country codes.
 * Part of LumBase; MIT licence.
 *
 * A locale carries its identifier and the components parsed from it; it has
 * no locale data. Only the language and the country can be asked for, and
 * display names exist for five languages, in English. The current locale is
 * always "en_US". */
#ifndef LUMBASE_LUMLOCALE_H
#define LUMBASE_LUMLOCALE_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** @{ */
/** Keys; each holds its own name as text. Only the language and country
 * codes are ever filled. */
LUM_EXPORT extern const LUMStringRef kLUMLocaleMeasurementSystem;
LUM_EXPORT extern const LUMStringRef kLUMLocaleDecimalSeparator;
LUM_EXPORT extern const LUMStringRef kLUMLocaleGroupingSeparator;
LUM_EXPORT extern const LUMStringRef kLUMLocaleCurrencySymbol;
LUM_EXPORT extern const LUMStringRef kLUMLocaleCurrencyCode;
LUM_EXPORT extern const LUMStringRef kLUMLocaleIdentifier;
LUM_EXPORT extern const LUMStringRef kLUMLocaleLanguageCode;
LUM_EXPORT extern const LUMStringRef kLUMLocaleCountryCode;
LUM_EXPORT extern const LUMStringRef kLUMLocaleScriptCode;
LUM_EXPORT extern const LUMStringRef kLUMLocaleVariantCode;
LUM_EXPORT extern const LUMStringRef kLUMLocaleExemplarCharacterSet;
LUM_EXPORT extern const LUMStringRef kLUMLocaleCalendarIdentifier;
LUM_EXPORT extern const LUMStringRef kLUMLocaleCalendar;
LUM_EXPORT extern const LUMStringRef kLUMLocaleCollationIdentifier;
LUM_EXPORT extern const LUMStringRef kLUMLocaleUsesMetricSystem;
/** @} */

/** The locale class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMLocaleGetTypeID(void);
/** "en_US", with one more retain. */
LUM_EXPORT LUMLocaleRef LUMLocaleCopyCurrent(void);
/** The identifier is kept as given (not validated or canonicalised). */
LUM_EXPORT LUMLocaleRef LUMLocaleCreate(LUMAllocatorRef allocator, LUMStringRef localeIdentifier);
/** A new mutable dictionary: the first component (split at "-" or "_",
 * empty ones skipped) is the language, the second the country. */
LUM_EXPORT LUMDictionaryRef LUMLocaleCreateComponentsFromLocaleIdentifier(LUMAllocatorRef allocator, LUMStringRef localeID);
/** The identifier the locale was made with, lent. */
LUM_EXPORT LUMStringRef LUMLocaleGetIdentifier(LUMLocaleRef locale);
/** The component for key, or NULL. */
LUM_EXPORT LUMTypeRef LUMLocaleGetValue(LUMLocaleRef locale, LUMStringRef key);
/** English names of en, de, fr, es, it for kLUMLocaleLanguageCode; else NULL. */
LUM_EXPORT LUMStringRef LUMLocaleCopyDisplayNameForPropertyValue(LUMLocaleRef locale, LUMStringRef key, LUMStringRef value);

LUM_EXTERN_C_END

#endif
