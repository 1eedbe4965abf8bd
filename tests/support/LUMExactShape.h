/* LUMExactShape.h — a text of everything a property list tree can differ
 * in: retain counts, number kinds and bits, every unit of every string,
 * the dictionaries' counts and slot order. Shared by the tests and the
 * fuzz targets that hold two ways of reading to the same trees.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_TESTS_EXACT_SHAPE_H
#define LUMBASE_TESTS_EXACT_SHAPE_H

#include <LumBase.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace lumtest {

inline void AppendFormatted(std::string &out, const char *format, ...) __attribute__((format(printf, 2, 3)));
inline void AppendFormatted(std::string &out, const char *format, ...)
{
    char text[64];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    out += text;
}

inline void AppendExactShape(LUMTypeRef value, std::string &out)
{
    if (value == nullptr) { out += "NULL"; return; }
    if (value == kLUMNull) { out += "null"; return; }
    if (value == kLUMBooleanTrue) { out += "true"; return; }
    if (value == kLUMBooleanFalse) { out += "false"; return; }
    LUMTypeID type = LUMGetTypeID(value);
    AppendFormatted(out, "#%d", static_cast<int>(LUMGetRetainCount(value)));
    if (type == LUMNumberGetTypeID()) {
        auto number = static_cast<LUMNumberRef>(value);
        if (LUMNumberIsFloatType(number)) {
            double d = 0;
            LUMNumberGetValue(number, kLUMNumberDoubleType, &d);
            AppendFormatted(out, "d%a", d);
        } else {
            int64_t i = 0;
            LUMNumberGetValue(number, kLUMNumberSInt64Type, &i);
            AppendFormatted(out, "i%d:%lld", static_cast<int>(LUMNumberGetType(number)), static_cast<long long>(i));
        }
    } else if (type == LUMStringGetTypeID()) {
        auto string = static_cast<LUMStringRef>(value);
        out += "s";
        std::vector<UniChar> units(static_cast<size_t>(LUMStringGetLength(string)));
        LUMStringGetCharacters(string, LUMRangeMake(0, LUMStringGetLength(string)), units.data());
        for (UniChar unit : units) AppendFormatted(out, "%x.", unit);
    } else if (type == LUMArrayGetTypeID()) {
        auto array = static_cast<LUMArrayRef>(value);
        out += "[";
        for (LUMIndex i = 0; i < LUMArrayGetCount(array); i++) {
            AppendExactShape(LUMArrayGetValueAtIndex(array, i), out);
            out += ",";
        }
        out += "]";
    } else if (type == LUMDictionaryGetTypeID()) {
        AppendFormatted(out, "{%d:", static_cast<int>(LUMDictionaryGetCount(static_cast<LUMDictionaryRef>(value))));
        LUMDictionaryApplyFunction(
            static_cast<LUMDictionaryRef>(value),
            [](const void *key, const void *item, void *context) {
                auto &text = *static_cast<std::string *>(context);
                AppendExactShape(key, text);
                text += ":";
                AppendExactShape(item, text);
                text += ",";
            },
            &out);
        out += "}";
    } else {
        out += "?";
    }
}

inline std::string ExactShape(LUMTypeRef value)
{
    std::string out;
    AppendExactShape(value, out);
    return out;
}

} // namespace lumtest

#endif
