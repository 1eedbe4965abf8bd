/* LUMDateFormatterTest.cpp — styles, every field letter and run length,
 * quoting, parsing rules and round trips.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cmath>

using namespace lumtest;

namespace {

LUMAbsoluteTime At(int y, int m, int d, int h, int min, int s)
{
    LUMGregorianDate date = {y, static_cast<int8_t>(m), static_cast<int8_t>(d), static_cast<int8_t>(h), static_cast<int8_t>(min), static_cast<double>(s)};
    return LUMGregorianDateGetAbsoluteTime(date, nullptr);
}

LUMDateFormatterRef Formatter(const char *pattern)
{
    LUMDateFormatterRef formatter = LUMDateFormatterCreate(nullptr, nullptr, 0, 0);
    LUMStringRef format = LUMStringCreateWithCString(nullptr, pattern, kLUMStringEncodingUTF8);
    LUMDateFormatterSetFormat(formatter, format);
    LUMRelease(format);
    return formatter;
}

std::string FormatAt(const char *pattern, LUMAbsoluteTime at)
{
    LUMDateFormatterRef formatter = Formatter(pattern);
    std::string text = TakeText(LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, at));
    LUMRelease(formatter);
    return text;
}

/* The parsed time, or NAN; consumed receives the characters consumed. */
double Parse(const char *pattern, const char *text, LUMIndex *consumed = nullptr)
{
    LUMDateFormatterRef formatter = Formatter(pattern);
    LUMStringRef string = LUMStringCreateWithCString(nullptr, text, kLUMStringEncodingUTF8);
    LUMRange range = LUMRangeMake(0, LUMStringGetLength(string));
    LUMDateRef date = LUMDateFormatterCreateDateFromString(nullptr, formatter, string, &range);
    if (consumed != nullptr) *consumed = range.length;
    double result = date != nullptr ? LUMDateGetAbsoluteTime(date) : NAN;
    LUMRelease(date);
    LUMRelease(string);
    LUMRelease(formatter);
    return result;
}

const LUMAbsoluteTime kSample = At(2024, 3, 5, 14, 7, 9);

} // namespace

TEST(LUMDateFormatter, ShortStyles)
{
    LUMDateFormatterRef formatter = LUMDateFormatterCreate(nullptr, nullptr, 1, 1);
    EXPECT_EQ(Text(LUMDateFormatterGetFormat(formatter)), "MM/dd/yy H:mm");
    EXPECT_EQ(TakeText(LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, kSample)), "03/05/24 14:07");
    LUMRelease(formatter);
}

TEST(LUMDateFormatter, EveryStylesPattern)
{
    const char *expected[5][5] = {
        {"", "H:mm", "H:mm", "H:mm:ss", "H:mm:ss zzz"},
        {"MM/dd/yy", "MM/dd/yy H:mm", "MM/dd/yy H:mm", "MM/dd/yy H:mm:ss", "MM/dd/yy H:mm:ss zzz"},
        {"MMM dd, yyyy", "MMM dd, yyyy H:mm", "MMM dd, yyyy H:mm", "MMM dd, yyyy H:mm:ss", "MMM dd, yyyy H:mm:ss zzz"},
        {"MMMM dd, yyyy", "MMMM dd, yyyy H:mm", "MMMM dd, yyyy H:mm", "MMMM dd, yyyy H:mm:ss", "MMMM dd, yyyy H:mm:ss zzz"},
        {"EEEE, MMMM dd, yyyy GGG", "EEEE, MMMM dd, yyyy GGG H:mm", "EEEE, MMMM dd, yyyy GGG H:mm", "EEEE, MMMM dd, yyyy GGG H:mm:ss",
         "EEEE, MMMM dd, yyyy GGG H:mm:ss zzz"}};
    for (int date = 0; date < 5; date++)
        for (int time = 0; time < 5; time++) {
            LUMDateFormatterRef formatter = LUMDateFormatterCreate(nullptr, nullptr, date, time);
            EXPECT_EQ(Text(LUMDateFormatterGetFormat(formatter)), expected[date][time]);
            EXPECT_EQ(LUMDateFormatterGetDateStyle(formatter), date);
            EXPECT_EQ(LUMDateFormatterGetTimeStyle(formatter), time);
            LUMRelease(formatter);
        }
    LUMDateFormatterRef full = LUMDateFormatterCreate(nullptr, nullptr, 4, 0);
    EXPECT_EQ(TakeText(LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, full, kSample)), "???, ??? 05, 2024 ???");
    LUMRelease(full);
}

TEST(LUMDateFormatter, InvalidStyleAddsNothingSilently)
{
    ChildResult result = RunInChild([] {
        LUMDateFormatterRef formatter = LUMDateFormatterCreate(nullptr, nullptr, 9, 1);
        printf("[%s]", Text(LUMDateFormatterGetFormat(formatter)).c_str());
        LUMRelease(formatter);
        formatter = LUMDateFormatterCreate(nullptr, nullptr, 0, -3);
        printf("[%s]", Text(LUMDateFormatterGetFormat(formatter)).c_str());
        LUMRelease(formatter);
    });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "[ H:mm][]"); // both styles non-zero: the blank still goes in
    EXPECT_EQ(result.err, "");
}

TEST(LUMDateFormatter, EveryLetterAndRunLength)
{
    LUMAbsoluteTime t = At(2024, 3, 5, 4, 7, 9);
    EXPECT_EQ(FormatAt("y|yy|yyy|yyyy|yyyyy|yyyyyy", t), "2024|24|2024|2024|02024|???");
    EXPECT_EQ(FormatAt("y", At(2007, 1, 1, 0, 0, 0)), "2007");
    EXPECT_EQ(FormatAt("M|MM|MMM|MMMM|MMMMM", t), "???|03|Mar|???|???");
    EXPECT_EQ(FormatAt("d|dd|ddd", t), "5|05|???");
    EXPECT_EQ(FormatAt("H|HH|HHH", t), "4|04|???");
    EXPECT_EQ(FormatAt("m|mm|mmm", t), "7|07|???");
    EXPECT_EQ(FormatAt("s|ss|sss", t), "9|09|???");
    EXPECT_EQ(FormatAt("E|G|z|h|a|S|EEEE", t), "???|???|???|???|???|???|???");
    const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int m = 1; m <= 12; m++) EXPECT_EQ(FormatAt("MMM", At(2023, m, 10, 0, 0, 0)), months[m - 1]);
}

TEST(LUMDateFormatter, QuotedLiterals)
{
    EXPECT_EQ(FormatAt("yyyy-MM-dd'T'HH:mm:ss", kSample), "2024-03-05T14:07:09");
    EXPECT_EQ(FormatAt("HH 'o''clock'", kSample), "14 oclock"); // two quotes in a row give nothing
    EXPECT_EQ(FormatAt("'at' H", kSample), "at 14");
    EXPECT_EQ(FormatAt("HH'", kSample), "14");                  // a lone quote at the end stops output
    EXPECT_EQ(FormatAt("HH 'unclosed", kSample), "14 unclosed"); // copied until the format ends
    EXPECT_EQ(FormatAt("", kSample), "");
}

TEST(LUMDateFormatter, QuotedTextIsSkippedNotMatchedWhenParsing)
{
    LUMIndex consumed = -1;
    EXPECT_TRUE(std::isnan(Parse("yyyy-MM-dd'T'HH:mm:ss", "2024-03-05T14:07:09", &consumed)));
    EXPECT_EQ(consumed, 12); // "2024-03-05", then "T1" of the hour field
    EXPECT_EQ(Parse("yyyy-MM-dd'T'HH:mm:ss", "2024-03-0514:07:09", &consumed), kSample);
    EXPECT_EQ(consumed, 18);
}

TEST(LUMDateFormatter, ShortYearsAreTwoThousandsAndFieldsNeedExactDigits)
{
    EXPECT_EQ(Parse("yy", "24"), At(2024, 0, 0, 0, 0, 0)); // month and day 0 roll back through timegm
    EXPECT_EQ(Parse("yyyyMMdd", "20240101"), At(2024, 1, 1, 0, 0, 0));
    EXPECT_EQ(Parse("yy MM dd", "24 01 01"), At(2024, 1, 1, 0, 0, 0));
    EXPECT_EQ(Parse("y MM dd", "7 06 15"), At(2007, 6, 15, 0, 0, 0));
    EXPECT_FALSE(std::isnan(Parse("d", "12"))); // one digit read, the rest of the text ignored
    EXPECT_EQ(Parse("yyyy MM d", "2024 06 12"), At(2024, 6, 1, 0, 0, 0));
    EXPECT_EQ(Parse("yyyy MM dd", "2024 06 31"), At(2024, 7, 1, 0, 0, 0)); // rolls over through timegm
    EXPECT_TRUE(std::isnan(Parse("yyyy", "20x4")));
    EXPECT_TRUE(std::isnan(Parse("yyyy", "202")));
}

TEST(LUMDateFormatter, MonthNamesAreWrittenButNotRead)
{
    EXPECT_EQ(FormatAt("MMM", kSample), "Mar");
    LUMIndex consumed = -1;
    EXPECT_TRUE(std::isnan(Parse("MMM", "Mar", &consumed)));
    EXPECT_EQ(consumed, 0);
    EXPECT_FALSE(std::isnan(Parse("M", "3"))); // a single M parses a digit
    EXPECT_TRUE(std::isnan(Parse("EEE", "Tue")));
    EXPECT_TRUE(std::isnan(Parse("yyyy/MM", "2024-03")));
}

TEST(LUMDateFormatter, NumericPatternsRoundTrip)
{
    for (const char *pattern : {"yyyy-MM-dd HH:mm:ss", "yyyyMMddHHmmss", "dd.MM.yyyy HH:mm", "HH:mm:ss yyyy/MM/dd"}) {
        for (LUMAbsoluteTime t = At(2000, 1, 1, 0, 0, 0); t < At(2037, 1, 1, 0, 0, 0); t += 86400.0 * 97 + 3671.0) {
            std::string text = FormatAt(pattern, t);
            double back = Parse(pattern, text.c_str());
            bool hasSeconds = std::string(pattern).find('s') != std::string::npos;
            ASSERT_EQ(back, hasSeconds ? t : t - std::fmod(t - At(2000, 1, 1, 0, 0, 0), 60.0)) << pattern << " " << text;
        }
    }
}

TEST(LUMDateFormatter, TimeZoneProperty)
{
    LUMDateFormatterRef formatter = Formatter("yyyy-MM-dd HH:mm");
    EXPECT_EQ(LUMDateFormatterCopyProperty(formatter, kLUMDateFormatterTimeZone), nullptr);
    LUMTimeZoneRef berlin = LUMTimeZoneCreateWithName(nullptr, LUMSTR("Europe/Berlin"), false);
    LUMDateFormatterSetProperty(formatter, LUMSTR("kLUMDateFormatterTimeZone"), berlin);
    LUMTypeRef zone = LUMDateFormatterCopyProperty(formatter, kLUMDateFormatterTimeZone);
    EXPECT_EQ(zone, berlin);
    LUMRelease(zone);
    LUMAbsoluteTime summer = At(2010, 7, 1, 12, 0, 0);
    EXPECT_EQ(TakeText(LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, summer)), "2010-07-01 14:00");
    LUMStringRef text = LUMSTR("2010-07-01 14:00");
    LUMDateRef parsed = LUMDateFormatterCreateDateFromString(nullptr, formatter, text, nullptr);
    EXPECT_EQ(LUMDateGetAbsoluteTime(parsed), summer);
    LUMRelease(parsed);
    LUMDateFormatterSetProperty(formatter, kLUMDateFormatterTimeZone, nullptr);
    EXPECT_EQ(TakeText(LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, summer)), "2010-07-01 12:00");
    EXPECT_EQ(LUMGetRetainCount(berlin), 1);
    LUMRelease(berlin);
    LUMRelease(formatter);
    EXPECT_EQ(Text(kLUMDateFormatterTimeZone), "kLUMDateFormatterTimeZone");
}

TEST(LUMDateFormatter, OtherPropertiesAreFatal)
{
    EXPECT_TRUE(DiesWithFatal([] { LUMDateFormatterSetProperty(Formatter("y"), LUMSTR("kLUMDateFormatterCalendar"), kLUMNull); },
                              "Not yet implemented", "__LUMDateFormatterSetProperty", "src/LUMDateFormatter", 405));
    EXPECT_TRUE(DiesWithFatal([] { LUMDateFormatterCopyProperty(Formatter("y"), LUMSTR("other")); }, "Not yet implemented",
                              "__LUMDateFormatterCopyProperty", "src/LUMDateFormatter", 359));
}

TEST(LUMDateFormatter, LocaleIsKeptButNotUsed)
{
    LUMLocaleRef locale = LUMLocaleCopyCurrent();
    LUMDateFormatterRef formatter = LUMDateFormatterCreate(nullptr, locale, 2, 0);
    EXPECT_EQ(LUMDateFormatterGetLocale(formatter), locale);
    EXPECT_EQ(LUMGetRetainCount(locale), 3);
    EXPECT_EQ(TakeText(LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, kSample)), "Mar 05, 2024");
    LUMRelease(formatter);
    LUMRelease(locale);
}

TEST(LUMDateFormatter, RangeSelectsTheText)
{
    LUMDateFormatterRef formatter = Formatter("HH:mm");
    LUMStringRef text = LUMSTR("at 14:07 today");
    LUMRange range = LUMRangeMake(3, 5);
    LUMDateRef date = LUMDateFormatterCreateDateFromString(nullptr, formatter, text, &range);
    ASSERT_NE(date, nullptr);
    EXPECT_EQ(range.length, 5);
    EXPECT_EQ(LUMDateGetAbsoluteTime(date), At(0, 0, 0, 14, 7, 0)); // no year, month or day: all 0
    LUMRelease(date);
    LUMRelease(formatter);
}

TEST(LUMDateFormatter, FieldCutShortByTheEndStillConsumesItsWidth)
{
    LUMIndex consumed = -1;
    EXPECT_TRUE(std::isnan(Parse("yyyy-MM-dd", "2024-03-5", &consumed)));
    EXPECT_EQ(consumed, 10);
    EXPECT_TRUE(std::isnan(Parse("yyyy", "20", &consumed)));
    EXPECT_EQ(consumed, 4);
}

TEST(LUMDateFormatter, TenDigitFieldsWrapToThirtyTwoBitsWithoutOverflow)
{
    // 9999999999 wraps to 1410065407 as 32-bit arithmetic gives it, on every
    // platform and without signed overflow (the sanitizer build checks).
    LUMIndex consumed = -1;
    double parsed = Parse("yyyyyyyyyy", "9999999999", &consumed);
    EXPECT_EQ(consumed, 10);
    LUMGregorianDate date = {1410065407, 0, 0, 0, 0, 0.0};
    EXPECT_EQ(parsed, LUMGregorianDateGetAbsoluteTime(date, nullptr));
    parsed = Parse("dddddddddddd", "004294967298"); // wraps to 2, and the day keeps its low 8 bits
    LUMGregorianDate day = {0, 0, 2, 0, 0, 0.0};
    EXPECT_EQ(parsed, LUMGregorianDateGetAbsoluteTime(day, nullptr));
}
