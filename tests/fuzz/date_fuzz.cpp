/* date_fuzz.cpp — the date formatter's parser over arbitrary text under
 * several patterns (the built-in styles, fixed patterns and an arbitrary
 * one), and formatting with an arbitrary pattern. Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    static const char *const kPatterns[] = {"yyyy-MM-dd'T'HH:mm:ss", "yy", "dd.MM.yyyy HH:mm", "yyyyyyyyyy", "HH:mm", "'quoted' y M d"};
    unsigned choice = input.below(8);
    LUMIndex dateStyle = input.below(5), timeStyle = input.below(5);
    double at = static_cast<double>(static_cast<int32_t>(input.byte() | input.byte() << 8 | input.byte() << 16 | input.byte() << 24)) * 3.0;
    std::string pattern = choice == 7 ? input.piece() : "";
    std::string textBytes = input.rest();
    LUMDateFormatterRef formatter = LUMDateFormatterCreate(nullptr, nullptr, dateStyle, timeStyle);
    if (choice < 6) {
        LUMDateFormatterSetFormat(formatter, LUMSTR(kPatterns[choice]));
    } else if (choice == 7) {
        LUMStringRef arbitrary = lumfuzz::BytesString(pattern);
        LUMDateFormatterSetFormat(formatter, arbitrary);
        LUMRelease(arbitrary);
    }
    LUMStringRef text = lumfuzz::BytesString(textBytes);
    LUMRange range = LUMRangeMake(0, LUMStringGetLength(text));
    LUMDateRef date = LUMDateFormatterCreateDateFromString(nullptr, formatter, text, &range);
    if (range.length < 0) lumfuzz::Finding("negative consumed length");
    LUMRelease(date);
    LUMStringRef formatted = LUMDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, at);
    LUMRelease(formatted);
    LUMRelease(text);
    LUMRelease(formatter);
    return 0;
}
