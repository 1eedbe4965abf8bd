/* LUMStringPrivate.h — compile-time constant strings for the library's own
 * keys and names, and the UTF-8 decoder they share with the string module.
 * Part of LumBase; MIT licence. Never installed. */
#ifndef LUMBASE_SRC_LUMSTRINGPRIVATE_H
#define LUMBASE_SRC_LUMSTRINGPRIVATE_H

#include "LUMPrivate.h"

namespace lum {

/* The string class always has this ID; the type registry enforces it. */
constexpr LUMTypeID kStringTypeID = 2;

/* Decodes one UTF-16 unit from NUL-terminated UTF-8 and moves index past
 * what it consumed. Lenient on purpose: a stray continuation byte yields its
 * low 7 bits, 0xF0..0xFF leads are read as three-byte leads (four-byte
 * sequences come out as two garbage units), and only bit 7 marks a
 * continuation. A NUL yields 0 and leaves index where it is. */
constexpr UniChar decodeUTF8(const UInt8 *bytes, LUMIndex &index)
{
    UInt8 b = bytes[index];
    if (b == 0) return 0;
    index++;
    if (b <= 0xBF) return static_cast<UniChar>(b & 0x7F);
    if (b <= 0xDF) {
        UniChar unit = static_cast<UniChar>((b & 0x1F) << 6);
        if (bytes[index] & 0x80) unit = static_cast<UniChar>(unit | (bytes[index++] & 0x3F));
        return unit;
    }
    UniChar unit = static_cast<UniChar>((b & 0x0F) << 12);
    if (bytes[index] & 0x80) {
        unit = static_cast<UniChar>(unit | ((bytes[index++] & 0x3F) << 6));
        if (bytes[index] & 0x80) unit = static_cast<UniChar>(unit | (bytes[index++] & 0x3F));
    }
    return unit;
}

/* The number of units the decoder yields before the NUL. */
constexpr LUMIndex decodedLength(const char *text)
{
    LUMIndex length = 0;
    LUMIndex index = 0;
    // Works on chars so that it stays usable in constant expressions.
    while (text[index] != 0) {
        UInt8 bytes[4] = {static_cast<UInt8>(text[index]), 0, 0, 0};
        for (int k = 1; k < 3 && bytes[k - 1] != 0; k++) bytes[k] = static_cast<UInt8>(text[index + k]);
        LUMIndex step = 0;
        decodeUTF8(bytes, step);
        index += step;
        length++;
    }
    return length;
}
static_assert(decodedLength("abc") == 3);
static_assert(decodedLength("\xC3\xA9") == 1);

/* A constant string object placed at compile time: header with a zero
 * allocator field (constant), the fixed string class, UTF-8 bytes. */
constexpr __LUMString constantString(const char *text)
{
    return __LUMString{
        {_kLUMRuntimeMagicAlive, nullptr, kStringTypeID, 1},
        const_cast<char *>(text), _kLUMStringBufferTypeCString, decodedLength(text), 0, kLUMStringEncodingUTF8,
        nullptr, 0,
    };
}

} // namespace lum

/* Defines a static constant string object and an exported reference to it:
 * LUM_CONSTANT_STRING(kLUMFoo, "kLUMFoo") gives __valueOfkLUMFoo and kLUMFoo. */
#define LUM_CONSTANT_STRING(name, text)                                          \
    static constexpr __LUMString __valueOf##name = lum::constantString(text);    \
    extern "C" LUM_EXPORT const LUMStringRef name = &__valueOf##name

#endif
