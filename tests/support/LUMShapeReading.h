/* LUMShapeReading.h — a text of everything a property list tree can differ
 * in (retain counts, number kinds and bits, every unit of every string,
 * the dictionaries' counts and slot order), and the tree a reader makes of
 * a text handed out in reads cut where asked. Shared by the tests and the
 * fuzz target that hold two ways of reading to the same trees.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_TESTS_SHAPE_READING_H
#define LUMBASE_TESTS_SHAPE_READING_H

#include <LumBase.h>
#include <LumBase/LUMInternal.h>

#include <algorithm>
#include <cstring>

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

/* A stream that hands out its text in reads that never cross a split
 * position (the splits ascending), nor the length the reader asks for. */
struct SplitText {
    std::string text;
    std::vector<size_t> splits;
    size_t position = 0;
    size_t nextSplit = 0;
};

inline LUMReadStreamRef CreateSplitStream(LUMAllocatorRef allocator, SplitText &source)
{
    LUMReadStreamContext context = {};
    context.info = &source;
    context.hasBytesAvailable = [](LUMReadStreamRef, void *info) -> Boolean {
        auto *s = static_cast<SplitText *>(info);
        return s->position < s->text.size();
    };
    context.read = [](LUMReadStreamRef, UInt8 *buffer, LUMIndex length, void *info) -> LUMIndex {
        auto *s = static_cast<SplitText *>(info);
        while (s->nextSplit < s->splits.size() && s->splits[s->nextSplit] <= s->position) s->nextSplit++;
        size_t end = s->nextSplit < s->splits.size() ? std::min(s->splits[s->nextSplit], s->text.size()) : s->text.size();
        size_t count = std::min(end - s->position, static_cast<size_t>(length));
        memcpy(buffer, s->text.data() + s->position, count);
        s->position += count;
        return static_cast<LUMIndex>(count);
    };
    return _LUMReadStreamCreateWithContext(allocator, &context);
}

/* The shape of the tree allocator's read of text makes, cut at splits. */
inline std::string ReadShapeWith(LUMAllocatorRef allocator, const std::string &text, std::vector<size_t> splits = {})
{
    std::sort(splits.begin(), splits.end());
    SplitText source{text, splits};
    LUMReadStreamRef stream = CreateSplitStream(allocator, source);
    LUMPropertyListRef plist = LUMPropertyListCreateWithStream(allocator, stream, 0, 0, nullptr, nullptr);
    std::string shape = ExactShape(plist);
    LUMRelease(plist);
    LUMRelease(stream);
    return shape;
}

} // namespace lumtest

#endif
