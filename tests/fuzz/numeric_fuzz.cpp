/* numeric_fuzz.cpp — integer and double values of arbitrary text, compared
 * with strtol (saturated to 32 bits) and strtod over the same bytes.
 * Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    std::string text(reinterpret_cast<const char *>(bytes), size);
    text = text.substr(0, text.find('\0'));
    LUMStringRef str = LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8);
    long expected = strtol(text.c_str(), nullptr, 10);
    if (expected > INT32_MAX) expected = INT32_MAX;
    if (expected < INT32_MIN) expected = INT32_MIN;
    if (LUMStringGetIntValue(str) != static_cast<int32_t>(expected)) lumfuzz::Finding("integer value differs from strtol");
    double value = LUMStringGetDoubleValue(str), reference = strtod(text.c_str(), nullptr);
    if (!(value == reference || (std::isnan(value) && std::isnan(reference)))) lumfuzz::Finding("double value differs from strtod");
    // The unit form reads its first 127 bytes.
    std::u16string units = lumfuzz::Units(str);
    LUMStringRef unitForm = LUMStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar *>(units.data()),
                                                          static_cast<LUMIndex>(units.size()));
    (void)LUMStringGetIntValue(unitForm);
    (void)LUMStringGetDoubleValue(unitForm);
    LUMRelease(unitForm);
    LUMRelease(str);
    return 0;
}
