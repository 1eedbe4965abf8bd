/* http_fuzz.cpp — HTTP response messages with arbitrary status texts, header
 * names and values and bodies, serialised. Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    LUMIndex status = static_cast<LUMIndex>(input.byte() | input.byte() << 8) - 1000;
    LUMStringRef description = lumfuzz::BytesString(input.piece());
    LUMHTTPMessageRef message =
        LUMHTTPMessageCreateResponse(nullptr, status, description, input.below(2) ? kLUMHTTPVersion1_0 : kLUMHTTPVersion1_1);
    for (unsigned fields = input.below(6); fields > 0; fields--) {
        LUMStringRef name = lumfuzz::BytesString(input.piece());
        LUMStringRef value = input.below(2) ? lumfuzz::BytesString(input.piece()) : lumfuzz::UnitString(input.piece());
        LUMHTTPMessageSetHeaderFieldValue(message, name, value);
        LUMStringRef back = LUMHTTPMessageCopyHeaderFieldValue(message, name);
        LUMRelease(back);
        LUMRelease(value);
        LUMRelease(name);
    }
    if (input.below(2)) {
        std::string body = input.rest();
        LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(body.data()), static_cast<LUMIndex>(body.size()));
        LUMHTTPMessageSetBody(message, data);
        LUMRelease(data);
    }
    LUMDataRef serialized = LUMHTTPMessageCopySerializedMessage(message);
    LUMDictionaryRef fields = LUMHTTPMessageCopyAllHeaderFields(message);
    LUMStringRef line = LUMHTTPMessageCopyResponseStatusLine(message);
    LUMRelease(line);
    LUMRelease(fields);
    LUMRelease(serialized);
    LUMRelease(message);
    LUMRelease(description);
    return 0;
}
