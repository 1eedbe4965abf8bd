/* LUMHTTPMessage.cpp — HTTP/1.x response messages.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMHTTPMessage"
#include "LUMHTTPPrivate.h"
#include "LUMStringPrivate.h"

#include <LumBase/LUMData.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMHTTPMessage.h>

LUM_CONSTANT_STRING(kLUMHTTPVersion1_0, "HTTP/1.0");
LUM_CONSTANT_STRING(kLUMHTTPVersion1_1, "HTTP/1.1");

namespace {

LUMTypeID __kLUMHTTPMessageTypeID = 0;

Boolean __LUMHTTPMessageInitializeInstance(LUMTypeRef obj)
{
    auto *message = lum::object<__LUMHTTPMessage>(obj);
    message->isRequest = false;
    message->isHeaderComplete = false;
    message->request = nullptr;
    message->body = nullptr;
    message->version = nullptr;
    message->headerFields = nullptr;
    message->statusCode = 0;
    message->statusLine = nullptr;
    return true;
}

template <typename T>
void releaseField(T *&field)
{
    LUMRelease(field);
    field = nullptr;
}

void __LUMHTTPMessageFinalizeInstance(LUMTypeRef obj)
{
    auto *message = lum::object<__LUMHTTPMessage>(obj);
    releaseField(message->request);
    releaseField(message->body);
    releaseField(message->version);
    releaseField(message->headerFields);
    releaseField(message->statusLine);
}

constexpr LUMRuntimeClass __kLUMHTTPMessageTypeClass = {
    0, "LUMHTTPMessage", sizeof(__LUMHTTPMessage), __LUMHTTPMessageInitializeInstance, __LUMHTTPMessageFinalizeInstance,
    nullptr, nullptr, nullptr,
};

void __LUMHTTPMessageAppendHeaderLineToStringBuffer(const void *key, const void *value, void *context)
{
    LUMStringAppendFormat(static_cast<LUMMutableStringRef>(context), nullptr, LUMSTR("%@: %@\r\n"), key, value);
}

} // namespace

LUMTypeID LUMHTTPMessageGetTypeID(void) { return lum::registerClassOnce(__kLUMHTTPMessageTypeID, __kLUMHTTPMessageTypeClass); }

Boolean _LUMHTTPMessageInitializeModule(void) { return true; }

LUMHTTPMessageRef LUMHTTPMessageCreateResponse(LUMAllocatorRef allocator, LUMIndex statusCode, LUMStringRef statusDescription,
                                               LUMStringRef httpVersion)
{
    auto *message = lum::object<__LUMHTTPMessage>(_LUMTypeCreateInstance(allocator, LUMHTTPMessageGetTypeID()));
    if (message == nullptr) return nullptr;
    message->isHeaderComplete = true;
    message->isRequest = false;
    message->version = LUMStringCreateCopy(allocator, httpVersion);
    message->headerFields =
        LUMDictionaryCreateMutable(nullptr, 0, &kLUMCopyStringDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    message->statusCode = statusCode;
    message->statusLine = LUMStringCreateWithFormat(allocator, nullptr, LUMSTR("%@ %d %@"), httpVersion, static_cast<int>(statusCode),
                                                    statusDescription);
    return message;
}

Boolean LUMHTTPMessageIsRequest(LUMHTTPMessageRef message) { return message->isRequest; }
Boolean LUMHTTPMessageIsHeaderComplete(LUMHTTPMessageRef message) { return message->isHeaderComplete; }
LUMIndex LUMHTTPMessageGetResponseStatusCode(LUMHTTPMessageRef message) { return message->statusCode; }
LUMStringRef LUMHTTPMessageCopyVersion(LUMHTTPMessageRef message) { return LUMStringCreateCopy(nullptr, message->version); }
LUMStringRef LUMHTTPMessageCopyResponseStatusLine(LUMHTTPMessageRef message) { return LUMStringCreateCopy(nullptr, message->statusLine); }

void LUMHTTPMessageSetHeaderFieldValue(LUMHTTPMessageRef message, LUMStringRef headerField, LUMStringRef value)
{
    LUMDictionarySetValue(message->headerFields, headerField, value);
}

LUMStringRef LUMHTTPMessageCopyHeaderFieldValue(LUMHTTPMessageRef message, LUMStringRef headerField)
{
    auto value = static_cast<LUMStringRef>(LUMDictionaryGetValue(message->headerFields, headerField));
    return value != nullptr ? LUMStringCreateCopy(nullptr, value) : nullptr;
}

LUMDictionaryRef LUMHTTPMessageCopyAllHeaderFields(LUMHTTPMessageRef message) { return LUMDictionaryCreateCopy(nullptr, message->headerFields); }

void LUMHTTPMessageSetBody(LUMHTTPMessageRef message, LUMDataRef body)
{
    LUMMutableDataRef copy = LUMDataCreateMutableCopy(nullptr, 0, body);
    LUMRelease(message->body);
    message->body = copy;
}

LUMDataRef LUMHTTPMessageCopyBody(LUMHTTPMessageRef message) { return message->body != nullptr ? LUMDataCreateCopy(nullptr, message->body) : nullptr; }

LUMDataRef LUMHTTPMessageCopySerializedMessage(LUMHTTPMessageRef message)
{
    LUM_ASSERT_AT(149, !message->isRequest);
    LUMMutableDataRef data = LUMDataCreateMutable(nullptr, 0);
    if (message->isRequest) return data; // reachable only past the assertion
    LUMMutableStringRef text = LUMStringCreateMutable(nullptr, 0);
    LUMStringAppendFormat(text, nullptr, LUMSTR("%@\r\n"), message->statusLine);
    LUMDictionaryApplyFunction(message->headerFields, __LUMHTTPMessageAppendHeaderLineToStringBuffer, text);
    LUMStringAppendCString(text, "\r\n", kLUMStringEncodingUTF8);
    LUMDataRef bytes = LUMStringCreateExternalRepresentation(nullptr, text, kLUMStringEncodingUTF8, 0);
    LUMDataAppendBytes(data, LUMDataGetBytePtr(bytes), LUMDataGetLength(bytes));
    if (message->body != nullptr) LUMDataAppendBytes(data, LUMDataGetBytePtr(message->body), LUMDataGetLength(message->body));
    LUMRelease(bytes);
    LUMRelease(text);
    return data;
}
