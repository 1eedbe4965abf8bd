/** @file LUMHTTPStream.h — read streams for HTTP requests. Only responses can be
 * built in this library, so the precondition (a request message) never
 * holds: both constructors stop in their assertion. They keep the interface
 * for a later client side.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMHTTPSTREAM_H
#define LUMBASE_LUMHTTPSTREAM_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** A read stream for an HTTP request message; request must be a request, else an assertion ends the process (which every message of this library is not). */
LUM_EXPORT LUMReadStreamRef LUMReadStreamCreateForHTTPRequest(LUMAllocatorRef allocator, LUMHTTPMessageRef request);
/** requestBody is accepted and ignored. */
LUM_EXPORT LUMReadStreamRef LUMReadStreamCreateForStreamedHTTPRequest(LUMAllocatorRef allocator, LUMHTTPMessageRef requestHeader,
                                                                      LUMReadStreamRef requestBody);

LUM_EXTERN_C_END

#endif
