/* standard_json_fuzz.cpp — a libFuzzer target for the standard JSON reader
 * and writer: every input is read; what reads is written (compact, and
 * pretty with sorted keys), read again and must come back equal, and the
 * two written texts must be what the writer makes of the second reading
 * too. Input that does not read must give an error with a position inside
 * the input. AddressSanitizer, UndefinedBehaviorSanitizer and the leak
 * checker judge each run. Build and run with scripts/fuzz. Part of LumBase;
 * MIT licence. */
#include "FuzzSupport.h"

namespace {

std::string Bytes(LUMDataRef data)
{
    return std::string(reinterpret_cast<const char *>(LUMDataGetBytePtr(data)), static_cast<size_t>(LUMDataGetLength(data)));
}

LUMIndex Offset(LUMErrorRef error)
{
    LUMDictionaryRef info = LUMErrorCopyUserInfo(error);
    auto number = static_cast<LUMNumberRef>(LUMDictionaryGetValue(info, kLUMJSONErrorByteOffsetKey));
    LUMIndex offset = -1;
    if (number != nullptr) LUMNumberGetValue(number, kLUMNumberLUMIndexType, &offset);
    LUMRelease(info);
    return offset;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    LUMDataRef data = LUMDataCreate(nullptr, bytes, static_cast<LUMIndex>(size));
    LUMErrorRef error = nullptr;
    LUMPropertyListRef plist = LUMJSONCreateWithData(nullptr, data, size % 2 == 0 ? 0 : kLUMJSONReadingMutableContainers, &error);
    if (plist == nullptr) {
        if (error == nullptr) lumfuzz::Finding("no value and no error");
        LUMIndex offset = Offset(error);
        if (offset < 0 || offset > static_cast<LUMIndex>(size)) lumfuzz::Finding("error offset outside the input");
        LUMStringRef description = LUMErrorCopyDescription(error);
        LUMRelease(description);
        LUMRelease(error);
        LUMRelease(data);
        return 0;
    }
    if (error != nullptr) lumfuzz::Finding("a value and an error");
    LUMDataRef compact = LUMJSONCreateData(nullptr, plist, 0, &error);
    LUMDataRef pretty = LUMJSONCreateData(nullptr, plist, kLUMJSONWritingPrettyPrinted | kLUMJSONWritingSortedKeys, nullptr);
    if (compact == nullptr || pretty == nullptr) {
        // Everything the reader gives can be written (no NaN, no infinity).
        lumfuzz::Finding("a value read could not be written");
    }
    LUMPropertyListRef again = LUMJSONCreateWithData(nullptr, compact, 0, nullptr);
    LUMPropertyListRef fromPretty = LUMJSONCreateWithData(nullptr, pretty, 0, nullptr);
    if (again == nullptr || fromPretty == nullptr) lumfuzz::Finding("written text does not read");
    if (!LUMEqual(plist, again) || !LUMEqual(plist, fromPretty)) lumfuzz::Finding("written text reads as another value");
    LUMDataRef compactAgain = LUMJSONCreateData(nullptr, again, 0, nullptr);
    if (Bytes(compactAgain) != Bytes(compact)) lumfuzz::Finding("writing is not stable");
    LUMRelease(compactAgain);
    LUMRelease(fromPretty);
    LUMRelease(again);
    LUMRelease(pretty);
    LUMRelease(compact);
    LUMRelease(plist);
    LUMRelease(data);
    return 0;
}
