/* string_fuzz.cpp — strings made from arbitrary bytes in both storage forms:
 * length, characters, C strings of every buffer size, hashing and equality
 * between the two forms, external representations and inline buffers.
 * Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    unsigned bufferSize = input.below(64);
    std::string text = input.rest();
    // Byte form: the bytes as they are, up to the first NUL (a C string).
    std::string cText = text.substr(0, text.find('\0'));
    LUMStringRef byteForm = LUMStringCreateWithCString(nullptr, cText.c_str(), kLUMStringEncodingUTF8);
    LUMStringRef counted = lumfuzz::BytesString(text);
    LUMStringRef unitForm = lumfuzz::UnitString(text);
    for (LUMStringRef str : {byteForm, counted, unitForm}) {
        // The same units in unit form are equal and hash alike.
        std::u16string units = lumfuzz::Units(str);
        LUMStringRef copy = LUMStringCreateWithCharacters(nullptr, reinterpret_cast<const UniChar *>(units.data()),
                                                          static_cast<LUMIndex>(units.size()));
        if (!LUMEqual(str, copy) || LUMHash(str) != LUMHash(copy)) lumfuzz::Finding("forms disagree");
        char buffer[64];
        LUMStringGetCString(str, buffer, static_cast<LUMIndex>(bufferSize), kLUMStringEncodingUTF8);
        LUMStringGetCString(str, nullptr, 0, kLUMStringEncodingUTF8);
        LUMStringGetFileSystemRepresentation(str, buffer, static_cast<LUMIndex>(bufferSize));
        LUMDataRef external = LUMStringCreateExternalRepresentation(nullptr, str, kLUMStringEncodingUTF8, '?');
        LUMRelease(external);
        LUMStringInlineBuffer inline_;
        LUMStringInitInlineBuffer(str, &inline_, LUMRangeMake(0, LUMStringGetLength(str)));
        for (LUMIndex i = LUMStringGetLength(str); i >= -1; i -= 7) {
            UniChar unit = LUMStringGetCharacterFromInlineBuffer(&inline_, i);
            if (i >= 0 && i < static_cast<LUMIndex>(units.size()) && unit != units[static_cast<size_t>(i)])
                lumfuzz::Finding("inline buffer disagrees");
        }
        LUMMutableStringRef mutableCopy = LUMStringCreateMutableCopy(nullptr, 0, str);
        LUMStringAppend(mutableCopy, str);
        if (LUMStringGetLength(mutableCopy) != 2 * LUMStringGetLength(str)) lumfuzz::Finding("append length");
        LUMStringRef description = LUMCopyDescription(mutableCopy);
        LUMRelease(description);
        LUMRelease(mutableCopy);
        LUMRelease(copy);
    }
    LUMRelease(byteForm);
    LUMRelease(counted);
    LUMRelease(unitForm);
    return 0;
}
