/* LUMHTTPTest.cpp — HTTP responses, their serialisation, and the request
 * stream constructors.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"
#include "LUMHTTPPrivate.h"

using namespace lumtest;

namespace {
std::string Serialized(LUMHTTPMessageRef message)
{
    LUMDataRef data = LUMHTTPMessageCopySerializedMessage(message);
    std::string text(reinterpret_cast<const char *>(LUMDataGetBytePtr(data)), static_cast<size_t>(LUMDataGetLength(data)));
    LUMRelease(data);
    return text;
}
} // namespace

TEST(LUMHTTPMessage, ResponseWithoutFieldsOrBody)
{
    LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1);
    EXPECT_EQ(Serialized(message), "HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_FALSE(LUMHTTPMessageIsRequest(message));
    EXPECT_TRUE(LUMHTTPMessageIsHeaderComplete(message));
    EXPECT_EQ(LUMHTTPMessageGetResponseStatusCode(message), 200);
    EXPECT_EQ(TakeText(LUMHTTPMessageCopyVersion(message)), "HTTP/1.1");
    EXPECT_EQ(TakeText(LUMHTTPMessageCopyResponseStatusLine(message)), "HTTP/1.1 200 OK");
    EXPECT_EQ(LUMHTTPMessageCopyBody(message), nullptr);
    LUMRelease(message);
}

TEST(LUMHTTPMessage, TheDocumentedExample)
{
    LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, 404, LUMSTR("Not Found"), kLUMHTTPVersion1_0);
    LUMHTTPMessageSetHeaderFieldValue(message, LUMSTR("Content-Type"), LUMSTR("text/plain"));
    LUMDataRef body = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("x"), 1);
    LUMHTTPMessageSetBody(message, body);
    EXPECT_EQ(Serialized(message), "HTTP/1.0 404 Not Found\r\nContent-Type: text/plain\r\n\r\nx");
    LUMRelease(body);
    LUMRelease(message);
}

TEST(LUMHTTPMessage, FieldsAreSetOnceAndComparedExactly)
{
    LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1);
    LUMHTTPMessageSetHeaderFieldValue(message, LUMSTR("X-Count"), LUMSTR("1"));
    LUMHTTPMessageSetHeaderFieldValue(message, LUMSTR("X-Count"), LUMSTR("2"));
    EXPECT_EQ(Serialized(message), "HTTP/1.1 200 OK\r\nX-Count: 2\r\n\r\n");
    LUMHTTPMessageSetHeaderFieldValue(message, LUMSTR("x-count"), LUMSTR("3"));
    EXPECT_EQ(Serialized(message), "HTTP/1.1 200 OK\r\nX-Count: 2\r\nx-count: 3\r\n\r\n");
    EXPECT_EQ(TakeText(LUMHTTPMessageCopyHeaderFieldValue(message, LUMSTR("x-count"))), "3");
    EXPECT_EQ(LUMHTTPMessageCopyHeaderFieldValue(message, LUMSTR("Absent")), nullptr);
    LUMDictionaryRef all = LUMHTTPMessageCopyAllHeaderFields(message);
    EXPECT_EQ(LUMDictionaryGetCount(all), 2);
    LUMRelease(all);
    LUMRelease(message);
}

TEST(LUMHTTPMessage, BodyIsTheMessagesOwnCopy)
{
    LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1);
    LUMMutableDataRef body = LUMDataCreateMutable(nullptr, 0);
    LUMDataAppendBytes(body, reinterpret_cast<const UInt8 *>("abc"), 3);
    LUMHTTPMessageSetBody(message, body);
    LUMDataAppendBytes(body, reinterpret_cast<const UInt8 *>("def"), 3);
    EXPECT_EQ(Serialized(message), "HTTP/1.1 200 OK\r\n\r\nabc");
    LUMDataRef copy = LUMHTTPMessageCopyBody(message);
    EXPECT_EQ(LUMDataGetLength(copy), 3);
    LUMRelease(copy);
    LUMHTTPMessageSetBody(message, body); // replaced
    EXPECT_EQ(Serialized(message), "HTTP/1.1 200 OK\r\n\r\nabcdef");
    LUMRelease(body);
    LUMRelease(message);
}

TEST(LUMHTTPMessage, NonASCIIValuesAreWrittenAsUTF8)
{
    LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, -7, LUMSTR("Caf\xC3\xA9"), kLUMHTTPVersion1_1);
    LUMHTTPMessageSetHeaderFieldValue(message, LUMSTR("X-Name"), LUMSTR("Jos\xC3\xA9 \xE2\x82\xAC"));
    EXPECT_EQ(Serialized(message), "HTTP/1.1 -7 Caf\xC3\xA9\r\nX-Name: Jos\xC3\xA9 \xE2\x82\xAC\r\n\r\n");
    LUMRelease(message);
}

TEST(LUMHTTPMessage, SerialisingARequestAsserts)
{
    EXPECT_TRUE(DiesWithAssertion([] {
        LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1);
        message->isRequest = true; // what a parser would make
        LUMHTTPMessageCopySerializedMessage(message);
    }, "!message->isRequest", "LUMHTTPMessageCopySerializedMessage", "src/LUMHTTPMessage", 149));
}

TEST(LUMHTTPStream, RequestStreamsNeedRequests)
{
    EXPECT_TRUE(DiesWithAssertion([] {
        LUMReadStreamCreateForHTTPRequest(nullptr, LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1));
    }, "request->isRequest", "LUMReadStreamCreateForHTTPRequest", "src/LUMHTTPStream", 41));
    EXPECT_TRUE(DiesWithAssertion([] {
        LUMReadStreamCreateForStreamedHTTPRequest(nullptr, LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1), nullptr);
    }, "requestHeader->isRequest", "LUMReadStreamCreateForStreamedHTTPRequest", "src/LUMHTTPStream", 51));
}

TEST(LUMHTTPStream, PastTheAssertionTheStreamDoesNothing)
{
    LUMHTTPMessageRef message = LUMHTTPMessageCreateResponse(nullptr, 200, LUMSTR("OK"), kLUMHTTPVersion1_1);
    message->isRequest = true;
    LUMReadStreamRef stream = LUMReadStreamCreateForHTTPRequest(nullptr, message);
    EXPECT_FALSE(LUMReadStreamOpen(stream));
    UInt8 buffer[4];
    EXPECT_EQ(LUMReadStreamRead(stream, buffer, 4), 0);
    EXPECT_EQ(LUMReadStreamGetStatus(stream), kLUMStreamStatusNotOpen);
    EXPECT_EQ(LUMGetRetainCount(message), 1); // not retained
    LUMRelease(stream);
    stream = LUMReadStreamCreateForStreamedHTTPRequest(nullptr, message, nullptr);
    EXPECT_FALSE(LUMReadStreamHasBytesAvailable(stream));
    LUMRelease(stream);
    message->isRequest = false;
    LUMRelease(message);
}
