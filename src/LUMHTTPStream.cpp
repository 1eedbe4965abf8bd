/* LUMHTTPStream.cpp — the HTTP request read-stream constructors. Messages
 * from this library are responses, so the assertions always stop them;
 * past them a stream without behaviour would be made.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMHTTPStream"
#include "LUMHTTPPrivate.h"

#include <LumBase/LUMHTTPStream.h>
#include <LumBase/LUMReadStream.h>

Boolean _LUMHTTPStreamInitializeModule(void) { return true; }

LUMReadStreamRef LUMReadStreamCreateForHTTPRequest(LUMAllocatorRef allocator, LUMHTTPMessageRef request)
{
    LUM_ASSERT_AT(41, request->isRequest);
    LUMReadStreamContext context = {};
    return _LUMReadStreamCreateWithContext(allocator, &context);
}

LUMReadStreamRef LUMReadStreamCreateForStreamedHTTPRequest(LUMAllocatorRef allocator, LUMHTTPMessageRef requestHeader,
                                                           LUMReadStreamRef requestBody)
{
    LUM_ASSERT_AT(51, requestHeader->isRequest);
    LUMReadStreamContext context = {};
    return _LUMReadStreamCreateWithContext(allocator, &context);
}
