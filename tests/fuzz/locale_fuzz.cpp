/* locale_fuzz.cpp — locales from arbitrary identifiers: components, values
 * and display names. Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    LUMStringRef value = lumfuzz::BytesString(input.piece());
    LUMStringRef identifier = input.below(2) ? lumfuzz::BytesString(input.rest()) : lumfuzz::UnitString(input.rest());
    LUMDictionaryRef components = LUMLocaleCreateComponentsFromLocaleIdentifier(nullptr, identifier);
    LUMRelease(components);
    LUMLocaleRef locale = LUMLocaleCreate(nullptr, identifier);
    if (locale != nullptr) {
        const LUMStringRef keys[] = {kLUMLocaleIdentifier, kLUMLocaleLanguageCode, kLUMLocaleCountryCode, kLUMLocaleScriptCode,
                                     kLUMLocaleVariantCode, kLUMLocaleDecimalSeparator, kLUMLocaleGroupingSeparator,
                                     kLUMLocaleCurrencySymbol, kLUMLocaleCurrencyCode, kLUMLocaleUsesMetricSystem,
                                     kLUMLocaleMeasurementSystem};
        for (LUMStringRef key : keys) {
            (void)LUMLocaleGetValue(locale, key);
            LUMStringRef name = LUMLocaleCopyDisplayNameForPropertyValue(locale, key, value);
            LUMRelease(name);
        }
        LUMStringRef description = LUMCopyDescription(locale);
        LUMRelease(description);
        LUMRelease(locale);
    }
    LUMRelease(identifier);
    LUMRelease(value);
    return 0;
}
