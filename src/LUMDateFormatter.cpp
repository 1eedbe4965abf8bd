/* LUMDateFormatter.cpp — formatting and parsing dates by field patterns.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMDateFormatter"
#include "LUMStringPrivate.h"

#include <LumBase/LUMDate.h>
#include <LumBase/LUMDateFormatter.h>
#include <LumBase/LUMTimeZone.h>

struct __LUMDateFormatter {
    LUMRuntimeBase base;
    LUMLocaleRef locale;
    LUMIndex dateStyle;
    LUMIndex timeStyle;
    LUMStringRef format;
    LUMTimeZoneRef timeZone; // NULL means UTC
};

LUM_CONSTANT_STRING(kLUMDateFormatterTimeZone, "kLUMDateFormatterTimeZone");

namespace {

LUMTypeID __kLUMDateFormatterTypeID = 0;

constexpr const char *__kLUMDateFormatterMonthAbbrev3[12] = {
    "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec",
};

/* Patterns by style: none, short, medium, long, full. Short and medium time
 * are the same on purpose; long and full use fields that are not supported
 * (they show "???"), kept as they are. */
constexpr const char *kDatePatterns[] = {"", "MM/dd/yy", "MMM dd, yyyy", "MMMM dd, yyyy", "EEEE, MMMM dd, yyyy GGG"};
constexpr const char *kTimePatterns[] = {"", "H:mm", "H:mm", "H:mm:ss", "H:mm:ss zzz"};
constexpr char kUnsupported[] = "???";

Boolean __LUMDateFormatterInitializeInstance(LUMTypeRef obj)
{
    if (obj == nullptr) return false;
    auto *formatter = lum::object<__LUMDateFormatter>(obj);
    formatter->locale = nullptr;
    formatter->format = nullptr;
    return true;
}

void __LUMDateFormatterFinalizeInstance(LUMTypeRef obj)
{
    auto *formatter = lum::object<__LUMDateFormatter>(obj);
    LUMRelease(formatter->locale);
    LUMRelease(formatter->format);
    LUMRelease(formatter->timeZone);
}

constexpr LUMRuntimeClass __kLUMDateFormatterTypeClass = {
    0, "LUMDateFormatter", sizeof(__LUMDateFormatter), __LUMDateFormatterInitializeInstance, __LUMDateFormatterFinalizeInstance,
    nullptr, nullptr, nullptr,
};

bool isLetter(UniChar c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

void appendNumber(LUMMutableStringRef out, LUMStringRef format, int value)
{
    LUMStringAppendFormat(out, nullptr, format, value);
}

/* One field of n letters, by the field table. */
void appendField(LUMMutableStringRef out, UniChar letter, LUMIndex n, const LUMGregorianDate &date)
{
    static constexpr const char *kYearFormats[] = {"%01d", "%02d", "%03d", "%04d", "%05d"};
    switch (letter) {
    case 'y':
        if (n <= 5) {
            appendNumber(out, LUMSTR(kYearFormats[n - 1]), n == 2 ? date.year % 100 : date.year);
            return;
        }
        break;
    case 'M':
        if (n == 2) {
            appendNumber(out, LUMSTR("%02d"), date.month);
            return;
        }
        if (n == 3 && date.month >= 1 && date.month <= 12) {
            LUMStringAppendCString(out, __kLUMDateFormatterMonthAbbrev3[date.month - 1], kLUMStringEncodingUTF8);
            return;
        }
        break;
    case 'd':
    case 'H':
    case 'm':
    case 's': {
        int value = letter == 'd' ? date.day : letter == 'H' ? date.hour : letter == 'm' ? date.minute : static_cast<int>(date.second);
        if (n == 1 || n == 2) {
            appendNumber(out, n == 1 ? LUMSTR("%d") : LUMSTR("%02d"), value);
            return;
        }
        break;
    }
    default:
        break;
    }
    LUMStringAppendCString(out, kUnsupported, kLUMStringEncodingUTF8);
}

LUMDateRef __LUMDateFormatterCreateDateFromString(LUMAllocatorRef allocator, LUMDateFormatterRef formatter, LUMStringRef string,
                                                  LUMRange *rangep)
{
    LUMIndex formatLength = LUMStringGetLength(formatter->format);
    LUMStringInlineBuffer format;
    LUMStringInitInlineBuffer(formatter->format, &format, LUMRangeMake(0, formatLength));
    LUMRange range = rangep != nullptr ? *rangep : LUMRangeMake(0, LUMStringGetLength(string));
    LUMStringInlineBuffer text;
    LUMStringInitInlineBuffer(string, &text, range);
    LUMGregorianDate date = {0, 0, 0, 0, 0, 0.0};
    bool ok = true;
    LUMIndex consumed = 0;
    LUMIndex i = 0;
    while (ok && i < formatLength) {
        UniChar c = LUMStringGetCharacterFromInlineBuffer(&format, i);
        if (isLetter(c)) {
            LUMIndex n = 0;
            while (i + n < formatLength && LUMStringGetCharacterFromInlineBuffer(&format, i + n) == c) n++;
            i += n;
            // Month names are written but never read.
            if (c == 'M' && n >= 3) {
                ok = false;
                break;
            }
            // Exactly n characters are read; past the end of the text they
            // read as 0 (not a digit), and all n are still consumed. The
            // value wraps to 32 bits the same way on every platform.
            uint32_t accumulated = 0;
            for (LUMIndex k = 0; k < n; k++) {
                UniChar digit = consumed < range.length ? LUMStringGetCharacterFromInlineBuffer(&text, consumed) : 0;
                consumed++;
                if (digit < '0' || digit > '9') ok = false;
                else accumulated = accumulated * 10u + static_cast<uint32_t>(digit - '0');
            }
            int32_t value = static_cast<int32_t>(accumulated);
            switch (c) {
            case 'y': date.year = value + (n < 3 ? 2000 : 0); break;
            case 'M': date.month = static_cast<int8_t>(value); break;
            case 'd': date.day = static_cast<int8_t>(value); break;
            case 'H': date.hour = static_cast<int8_t>(value); break;
            case 'm': date.minute = static_cast<int8_t>(value); break;
            case 's': date.second = static_cast<double>(value); break;
            default: ok = false; break;
            }
        } else if (c == '\'') {
            // Quoted text is skipped in the pattern and not matched in the
            // text: the asymmetry with formatting is deliberate.
            i++;
            while (i < formatLength && LUMStringGetCharacterFromInlineBuffer(&format, i) != '\'') i++;
            i++;
        } else {
            if (consumed < range.length && LUMStringGetCharacterFromInlineBuffer(&text, consumed) == c) consumed++;
            else ok = false;
            i++;
        }
    }
    if (rangep != nullptr) rangep->length = consumed;
    if (!ok) return nullptr;
    return LUMDateCreate(allocator, LUMGregorianDateGetAbsoluteTime(date, formatter->timeZone));
}

} // namespace

LUMTypeID LUMDateFormatterGetTypeID(void) { return lum::registerClassOnce(__kLUMDateFormatterTypeID, __kLUMDateFormatterTypeClass); }

Boolean _LUMDateFormatterInitializeModule(void) { return LUMDateFormatterGetTypeID() != 0; }

LUMDateFormatterRef LUMDateFormatterCreate(LUMAllocatorRef allocator, LUMLocaleRef locale, LUMDateFormatterStyle dateStyle,
                                           LUMDateFormatterStyle timeStyle)
{
    auto *formatter = lum::object<__LUMDateFormatter>(_LUMTypeCreateInstance(allocator, LUMDateFormatterGetTypeID()));
    if (formatter == nullptr) return nullptr;
    formatter->locale = static_cast<LUMLocaleRef>(LUMRetain(locale));
    formatter->dateStyle = dateStyle;
    formatter->timeStyle = timeStyle;
    formatter->timeZone = nullptr;
    LUMMutableStringRef format = LUMStringCreateMutable(allocator, 0);
    if (dateStyle >= 0 && dateStyle <= 4) LUMStringAppendCString(format, kDatePatterns[dateStyle], kLUMStringEncodingUTF8);
    else LUM_ASSERT_AT(125, "Invalid date style for LUMDateFormatter"); // always true: an invalid style is silent
    if (dateStyle != 0 && timeStyle != 0) LUMStringAppendCString(format, " ", kLUMStringEncodingUTF8);
    if (timeStyle >= 0 && timeStyle <= 4) LUMStringAppendCString(format, kTimePatterns[timeStyle], kLUMStringEncodingUTF8);
    else LUM_ASSERT_AT(147, "Invalid time style for LUMDateFormatter");
    formatter->format = format;
    return formatter;
}

LUMDateFormatterStyle LUMDateFormatterGetDateStyle(LUMDateFormatterRef formatter) { return formatter->dateStyle; }
LUMDateFormatterStyle LUMDateFormatterGetTimeStyle(LUMDateFormatterRef formatter) { return formatter->timeStyle; }
LUMStringRef LUMDateFormatterGetFormat(LUMDateFormatterRef formatter) { return formatter->format; }
LUMLocaleRef LUMDateFormatterGetLocale(LUMDateFormatterRef formatter) { return formatter->locale; }

void LUMDateFormatterSetFormat(LUMDateFormatterRef formatter, LUMStringRef formatString)
{
    LUMStringRef old = formatter->format;
    formatter->format = LUMStringCreateCopy(nullptr, formatString);
    LUMRelease(old);
}

void LUMDateFormatterSetProperty(LUMDateFormatterRef formatter, LUMStringRef key, LUMTypeRef value)
{
    if (!LUMEqual(key, kLUMDateFormatterTimeZone)) _LUMFatal("__LUMDateFormatterSetProperty", LUM_SOURCE_FILE, 405, "Not yet implemented");
    LUMTimeZoneRef old = formatter->timeZone;
    formatter->timeZone = static_cast<LUMTimeZoneRef>(LUMRetain(value));
    LUMRelease(old);
}

LUMTypeRef LUMDateFormatterCopyProperty(LUMDateFormatterRef formatter, LUMStringRef key)
{
    if (!LUMEqual(key, kLUMDateFormatterTimeZone)) _LUMFatal("__LUMDateFormatterCopyProperty", LUM_SOURCE_FILE, 359, "Not yet implemented");
    return LUMRetain(formatter->timeZone);
}

LUMStringRef LUMDateFormatterCreateStringWithAbsoluteTime(LUMAllocatorRef allocator, LUMDateFormatterRef formatter, LUMAbsoluteTime at)
{
    LUMGregorianDate date = LUMAbsoluteTimeGetGregorianDate(at, formatter->timeZone);
    LUMMutableStringRef out = LUMStringCreateMutable(allocator, 0);
    LUMIndex length = LUMStringGetLength(formatter->format);
    if (length == 0) return out;
    LUMStringInlineBuffer format;
    LUMStringInitInlineBuffer(formatter->format, &format, LUMRangeMake(0, length));
    LUMIndex i = 0;
    while (i < length) {
        UniChar c = LUMStringGetCharacterFromInlineBuffer(&format, i);
        if (isLetter(c)) {
            LUMIndex n = 0;
            while (i + n < length && LUMStringGetCharacterFromInlineBuffer(&format, i + n) == c) n++;
            appendField(out, c, n, date);
            i += n;
        } else if (c == '\'') {
            // Copied up to the next quote, which is dropped; "''" gives
            // nothing (not a quote), and an unclosed quote ends the output.
            i++;
            while (i < length && LUMStringGetCharacterFromInlineBuffer(&format, i) != '\'') {
                UniChar literal = LUMStringGetCharacterFromInlineBuffer(&format, i++);
                LUMStringAppendCharacters(out, &literal, 1);
            }
            if (i >= length) return out;
            i++;
        } else {
            LUMStringAppendCharacters(out, &c, 1);
            i++;
        }
    }
    return out;
}

LUMDateRef LUMDateFormatterCreateDateFromString(LUMAllocatorRef allocator, LUMDateFormatterRef formatter, LUMStringRef string, LUMRange *rangep)
{
    return __LUMDateFormatterCreateDateFromString(allocator, formatter, string, rangep);
}
