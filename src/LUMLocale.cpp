/* LUMLocale.cpp — locale identifiers and their components.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMLocale"
#include "LUMStringPrivate.h"

#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMLocale.h>

struct __LUMLocale {
    LUMRuntimeBase base;
    LUMStringRef identifier;
    LUMMutableDictionaryRef components;
};

LUM_CONSTANT_STRING(kLUMLocaleMeasurementSystem, "kLUMLocaleMeasurementSystem");
LUM_CONSTANT_STRING(kLUMLocaleDecimalSeparator, "kLUMLocaleDecimalSeparator");
LUM_CONSTANT_STRING(kLUMLocaleGroupingSeparator, "kLUMLocaleGroupingSeparator");
LUM_CONSTANT_STRING(kLUMLocaleCurrencySymbol, "kLUMLocaleCurrencySymbol");
LUM_CONSTANT_STRING(kLUMLocaleCurrencyCode, "kLUMLocaleCurrencyCode");
LUM_CONSTANT_STRING(kLUMLocaleIdentifier, "kLUMLocaleIdentifier");
LUM_CONSTANT_STRING(kLUMLocaleLanguageCode, "kLUMLocaleLanguageCode");
LUM_CONSTANT_STRING(kLUMLocaleCountryCode, "kLUMLocaleCountryCode");
LUM_CONSTANT_STRING(kLUMLocaleScriptCode, "kLUMLocaleScriptCode");
LUM_CONSTANT_STRING(kLUMLocaleVariantCode, "kLUMLocaleVariantCode");
LUM_CONSTANT_STRING(kLUMLocaleExemplarCharacterSet, "kLUMLocaleExemplarCharacterSet");
LUM_CONSTANT_STRING(kLUMLocaleCalendarIdentifier, "kLUMLocaleCalendarIdentifier");
LUM_CONSTANT_STRING(kLUMLocaleCalendar, "kLUMLocaleCalendar");
LUM_CONSTANT_STRING(kLUMLocaleCollationIdentifier, "kLUMLocaleCollationIdentifier");
LUM_CONSTANT_STRING(kLUMLocaleUsesMetricSystem, "kLUMLocaleUsesMetricSystem");

namespace {

LUMTypeID __kLUMLocaleTypeID = 0;
LUMLocaleRef __localeCurrent = nullptr;

Boolean __LUMLocaleInitializeInstance(LUMTypeRef) { return true; }

void __LUMLocaleFinalizeInstance(LUMTypeRef obj)
{
    auto *locale = lum::object<__LUMLocale>(obj);
    LUMRelease(locale->components);
    LUMRelease(locale->identifier);
}

constexpr LUMRuntimeClass __kLUMLocaleTypeClass = {
    0, "LUMLocale", sizeof(__LUMLocale), __LUMLocaleInitializeInstance, __LUMLocaleFinalizeInstance, nullptr, nullptr, nullptr,
};

/* English display names of languages, compared exactly and in this order. */
struct DisplayName {
    const char *code;
    const char *name;
};
constexpr DisplayName kLanguageNames[] = {
    {"en", "English"},
    {"de", "German"},
    {"fr", "French"},
    {"es", "Spanish"},
    {"it", "Italian"},
};

/* Splits at "-" and "_" (the end counts as one); empty components are
 * skipped. The first is the language, the second the country, any further
 * one is made and dropped. Case is kept. */
LUMMutableDictionaryRef __LUMLocaleCreateComponentsFromLocaleIdentifier(LUMAllocatorRef allocator, LUMStringRef id)
{
    LUMIndex length = LUMStringGetLength(id);
    LUMStringInlineBuffer buffer;
    LUMStringInitInlineBuffer(id, &buffer, LUMRangeMake(0, length));
    LUMStringRef language = nullptr, country = nullptr;
    LUMIndex start = kLUMNotFound;
    for (LUMIndex i = 0; i <= length; i++) {
        UniChar c = i < length ? LUMStringGetCharacterFromInlineBuffer(&buffer, i) : 0;
        if (i == length || c == '-' || c == '_') {
            if (start == kLUMNotFound) continue;
            LUMStringRef part = LUMStringCreateWithSubstring(allocator, id, LUMRangeMake(start, i - start));
            if (language == nullptr) language = part;
            else if (country == nullptr) country = part;
            else LUMRelease(part);
            start = kLUMNotFound;
        } else if (start == kLUMNotFound) {
            start = i;
        }
    }
    LUMMutableDictionaryRef components =
        LUMDictionaryCreateMutable(allocator, 0, &kLUMCopyStringDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    if (language != nullptr) LUMDictionarySetValue(components, kLUMLocaleLanguageCode, language);
    if (country != nullptr) LUMDictionarySetValue(components, kLUMLocaleCountryCode, country);
    LUMRelease(language);
    LUMRelease(country);
    return components;
}

} // namespace

LUMTypeID LUMLocaleGetTypeID(void) { return lum::registerClassOnce(__kLUMLocaleTypeID, __kLUMLocaleTypeClass); }

Boolean _LUMLocaleInitializeModule(void)
{
    if (LUMLocaleGetTypeID() == 0) return false;
    if (__localeCurrent == nullptr) __localeCurrent = LUMLocaleCreate(kLUMAllocatorSystemDefault, LUMSTR("en_US"));
    return true;
}

LUMLocaleRef LUMLocaleCopyCurrent(void) { return static_cast<LUMLocaleRef>(LUMRetain(__localeCurrent)); }

LUMLocaleRef LUMLocaleCreate(LUMAllocatorRef allocator, LUMStringRef localeIdentifier)
{
    LUM_ASSERT_AT(222, ((allocator) == NULL) || _LUMTypeCheckValid(allocator, LUMAllocatorGetTypeID()));
    LUM_ASSERT_AT(223, _LUMTypeCheckValid(localeIdentifier, LUMStringGetTypeID()));
    auto *locale = lum::object<__LUMLocale>(_LUMTypeCreateInstance(allocator, LUMLocaleGetTypeID()));
    if (locale == nullptr) return nullptr;
    locale->identifier = LUMStringCreateCopy(allocator, localeIdentifier);
    locale->components = __LUMLocaleCreateComponentsFromLocaleIdentifier(allocator, localeIdentifier);
    return locale;
}

LUMDictionaryRef LUMLocaleCreateComponentsFromLocaleIdentifier(LUMAllocatorRef allocator, LUMStringRef localeID)
{
    LUM_ASSERT_AT(214, ((allocator) == NULL) || _LUMTypeCheckValid(allocator, LUMAllocatorGetTypeID()));
    LUM_ASSERT_AT(215, _LUMTypeCheckValid(localeID, LUMStringGetTypeID()));
    return __LUMLocaleCreateComponentsFromLocaleIdentifier(allocator, localeID);
}

LUMStringRef LUMLocaleGetIdentifier(LUMLocaleRef locale)
{
    LUM_ASSERT_AT(244, _LUMTypeCheckValid(locale, LUMLocaleGetTypeID()));
    return locale->identifier;
}

LUMTypeRef LUMLocaleGetValue(LUMLocaleRef locale, LUMStringRef key)
{
    LUM_ASSERT_AT(251, _LUMTypeCheckValid(locale, LUMLocaleGetTypeID()));
    LUM_ASSERT_AT(252, _LUMTypeCheckValid(key, LUMStringGetTypeID()));
    return LUMDictionaryGetValue(locale->components, key);
}

LUMStringRef LUMLocaleCopyDisplayNameForPropertyValue(LUMLocaleRef locale, LUMStringRef key, LUMStringRef value)
{
    LUM_ASSERT_AT(235, _LUMTypeCheckValid(locale, LUMLocaleGetTypeID()));
    LUM_ASSERT_AT(236, _LUMTypeCheckValid(key, LUMStringGetTypeID()));
    LUM_ASSERT_AT(237, _LUMTypeCheckValid(value, LUMStringGetTypeID()));
    if (!LUMEqual(key, kLUMLocaleLanguageCode)) return nullptr;
    for (const DisplayName &entry : kLanguageNames) {
        if (LUMEqual(value, LUMSTR(entry.code))) return LUMSTR(entry.name);
    }
    return nullptr;
}
