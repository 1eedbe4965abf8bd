/** @file LUMHTTPMessage.h — HTTP/1.x responses and their serialisation.
 * Part of LumBase; MIT licence.
 *
 * Only responses are built. Header field names are compared exactly
 * (case-sensitively), values written as they are; no field is added
 * automatically (Content-Length, Date and Connection are the caller's).
 * Header lines come in the order of the fields table's slots. */
#ifndef LUMBASE_LUMHTTPMESSAGE_H
#define LUMBASE_LUMHTTPMESSAGE_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

LUM_EXPORT extern const LUMStringRef kLUMHTTPVersion1_0; /**< "HTTP/1.0" */
LUM_EXPORT extern const LUMStringRef kLUMHTTPVersion1_1; /**< "HTTP/1.1" */

/** The http message class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMHTTPMessageGetTypeID(void);
/** A complete response; its status line is "<version> <code> <description>". */
LUM_EXPORT LUMHTTPMessageRef LUMHTTPMessageCreateResponse(LUMAllocatorRef allocator, LUMIndex statusCode, LUMStringRef statusDescription,
                                                          LUMStringRef httpVersion);
/** Whether the message is a request (never, for messages of this library). */
LUM_EXPORT Boolean LUMHTTPMessageIsRequest(LUMHTTPMessageRef message);
/** Whether the header is complete (always, for a made response). */
LUM_EXPORT Boolean LUMHTTPMessageIsHeaderComplete(LUMHTTPMessageRef message);
/** The response's status code. */
LUM_EXPORT LUMIndex LUMHTTPMessageGetResponseStatusCode(LUMHTTPMessageRef message);
/** The HTTP version text, owned by the caller. */
LUM_EXPORT LUMStringRef LUMHTTPMessageCopyVersion(LUMHTTPMessageRef message);
/** The status line, owned by the caller. */
LUM_EXPORT LUMStringRef LUMHTTPMessageCopyResponseStatusLine(LUMHTTPMessageRef message);
/** Adds the field or replaces its value (the name is copied). Neither name
 * nor value is checked: a CR or LF in either ends the header line early
 * when the message is serialised, so text from outside (a request's target,
 * a user name) can add header lines or a body of its choosing. Reject or
 * strip CR and LF from such text before setting it. */
LUM_EXPORT void LUMHTTPMessageSetHeaderFieldValue(LUMHTTPMessageRef message, LUMStringRef headerField, LUMStringRef value);
/** The value of a header field, owned by the caller; NULL when the message has no such field. */
LUM_EXPORT LUMStringRef LUMHTTPMessageCopyHeaderFieldValue(LUMHTTPMessageRef message, LUMStringRef headerField);
/** All header fields as a new dictionary from name to value, owned by the caller. */
LUM_EXPORT LUMDictionaryRef LUMHTTPMessageCopyAllHeaderFields(LUMHTTPMessageRef message);
/** The message keeps its own copy of the bytes. */
LUM_EXPORT void LUMHTTPMessageSetBody(LUMHTTPMessageRef message, LUMDataRef body);
/** The body, owned by the caller; NULL when no body was set. */
LUM_EXPORT LUMDataRef LUMHTTPMessageCopyBody(LUMHTTPMessageRef message);
/** Status line CRLF, "name: value" CRLF per field, CRLF, then the body. */
LUM_EXPORT LUMDataRef LUMHTTPMessageCopySerializedMessage(LUMHTTPMessageRef message);

LUM_EXTERN_C_END

#endif
