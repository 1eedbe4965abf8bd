/* json_reader_fuzz.cpp — a libFuzzer target for the JSON reader: every input
 * is read, written back, read again and released. AddressSanitizer,
 * UndefinedBehaviorSanitizer and the leak checker judge each run.
 * Build and run with scripts/fuzz-json. Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    static bool started = LUMInitialize(0, nullptr);
    (void)started;
    LUMDataRef data = LUMDataCreate(nullptr, bytes, static_cast<LUMIndex>(size));
    LUMPropertyListRef plist = LUMPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    if (plist != nullptr) {
        LUMDataRef written = LUMPropertyListCreateData(nullptr, plist, kLUMPropertyListJSONFormat, 0, nullptr);
        LUMPropertyListRef again = LUMPropertyListCreateWithData(nullptr, written, 0, nullptr, nullptr);
        LUMStringRef description = LUMCopyDescription(again);
        LUMRelease(description);
        LUMRelease(again);
        LUMRelease(written);
        LUMRelease(plist);
    }
    LUMRelease(data);
    return 0;
}
