/* LUMLocaleTest.cpp — locale identifiers, components and display names.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {
LUMLocaleRef Locale(const char *identifier)
{
    LUMStringRef id = LUMStringCreateWithCString(nullptr, identifier, kLUMStringEncodingUTF8);
    LUMLocaleRef locale = LUMLocaleCreate(nullptr, id);
    LUMRelease(id);
    return locale;
}
std::string Value(LUMLocaleRef locale, LUMStringRef key) { return Text(static_cast<LUMStringRef>(LUMLocaleGetValue(locale, key))); }
} // namespace

TEST(LUMLocale, CurrentLocaleIsEnUS)
{
    LUMLocaleRef current = LUMLocaleCopyCurrent();
    EXPECT_EQ(Text(LUMLocaleGetIdentifier(current)), "en_US");
    EXPECT_EQ(Value(current, kLUMLocaleLanguageCode), "en");
    EXPECT_EQ(Value(current, kLUMLocaleCountryCode), "US");
    LUMRelease(current);
}

TEST(LUMLocale, ComponentsOfIdentifiers)
{
    struct Case {
        const char *id, *language, *country;
    };
    for (const Case &c : {Case{"", "<NULL>", "<NULL>"}, Case{"de", "de", "<NULL>"}, Case{"-US", "US", "<NULL>"},
                          Case{"en__US", "en", "US"}, Case{"EN-us", "EN", "us"}, Case{"zh_Hans_CN", "zh", "Hans"},
                          Case{"fr_CA_extra_more", "fr", "CA"}}) {
        LUMLocaleRef locale = Locale(c.id);
        EXPECT_EQ(Value(locale, kLUMLocaleLanguageCode), c.language) << c.id;
        EXPECT_EQ(Value(locale, kLUMLocaleCountryCode), c.country) << c.id;
        EXPECT_EQ(Text(LUMLocaleGetIdentifier(locale)), c.id);
        EXPECT_EQ(LUMLocaleGetValue(locale, kLUMLocaleScriptCode), nullptr);
        EXPECT_EQ(LUMLocaleGetValue(locale, kLUMLocaleCurrencyCode), nullptr);
        LUMRelease(locale);
    }
    LUMDictionaryRef empty = LUMLocaleCreateComponentsFromLocaleIdentifier(nullptr, LUMSTR(""));
    EXPECT_EQ(LUMDictionaryGetCount(empty), 0);
    LUMRelease(empty);
}

TEST(LUMLocale, DisplayNamesOfFiveLanguagesInEnglish)
{
    LUMLocaleRef german = Locale("de_DE");
    EXPECT_EQ(TakeText(LUMLocaleCopyDisplayNameForPropertyValue(german, kLUMLocaleLanguageCode, LUMSTR("fr"))), "French");
    EXPECT_EQ(LUMLocaleCopyDisplayNameForPropertyValue(german, kLUMLocaleCountryCode, LUMSTR("fr")), nullptr);
    const char *codes[] = {"en", "de", "fr", "es", "it"};
    const char *names[] = {"English", "German", "French", "Spanish", "Italian"};
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(TakeText(LUMLocaleCopyDisplayNameForPropertyValue(german, kLUMLocaleLanguageCode, LUMSTR(codes[i]))), names[i]);
    EXPECT_EQ(LUMLocaleCopyDisplayNameForPropertyValue(german, kLUMLocaleLanguageCode, LUMSTR("FR")), nullptr);
    EXPECT_EQ(LUMLocaleCopyDisplayNameForPropertyValue(german, kLUMLocaleLanguageCode, LUMSTR("nl")), nullptr);
    LUMRelease(german);
}

TEST(LUMLocale, KeysHoldTheirOwnNames)
{
    const LUMStringRef keys[] = {kLUMLocaleMeasurementSystem, kLUMLocaleDecimalSeparator, kLUMLocaleGroupingSeparator,
                                 kLUMLocaleCurrencySymbol, kLUMLocaleCurrencyCode, kLUMLocaleIdentifier, kLUMLocaleLanguageCode,
                                 kLUMLocaleCountryCode, kLUMLocaleScriptCode, kLUMLocaleVariantCode, kLUMLocaleExemplarCharacterSet,
                                 kLUMLocaleCalendarIdentifier, kLUMLocaleCalendar, kLUMLocaleCollationIdentifier, kLUMLocaleUsesMetricSystem};
    const char *names[] = {"kLUMLocaleMeasurementSystem", "kLUMLocaleDecimalSeparator", "kLUMLocaleGroupingSeparator",
                           "kLUMLocaleCurrencySymbol", "kLUMLocaleCurrencyCode", "kLUMLocaleIdentifier", "kLUMLocaleLanguageCode",
                           "kLUMLocaleCountryCode", "kLUMLocaleScriptCode", "kLUMLocaleVariantCode", "kLUMLocaleExemplarCharacterSet",
                           "kLUMLocaleCalendarIdentifier", "kLUMLocaleCalendar", "kLUMLocaleCollationIdentifier", "kLUMLocaleUsesMetricSystem"};
    for (int i = 0; i < 15; i++) EXPECT_EQ(Text(keys[i]), names[i]);
}

TEST(LUMLocale, ArgumentsAreAsserted)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMLocaleCreate(nullptr, nullptr); }, "_LUMTypeCheckValid(localeIdentifier, LUMStringGetTypeID())",
                                  "LUMLocaleCreate", "src/LUMLocale", 223));
    EXPECT_TRUE(DiesWithAssertion([] { LUMLocaleGetIdentifier(nullptr); }, "_LUMTypeCheckValid(locale, LUMLocaleGetTypeID())",
                                  "LUMLocaleGetIdentifier", "src/LUMLocale", 244));
    EXPECT_TRUE(DiesWithAssertion([] { LUMLocaleGetValue(LUMLocaleCopyCurrent(), nullptr); }, "_LUMTypeCheckValid(key, LUMStringGetTypeID())",
                                  "LUMLocaleGetValue", "src/LUMLocale", 252));
    EXPECT_TRUE(DiesWithAssertion([] { LUMLocaleCopyDisplayNameForPropertyValue(LUMLocaleCopyCurrent(), kLUMLocaleLanguageCode, nullptr); },
                                  "_LUMTypeCheckValid(value, LUMStringGetTypeID())", "LUMLocaleCopyDisplayNameForPropertyValue",
                                  "src/LUMLocale", 237));
}
