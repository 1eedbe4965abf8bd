/* LUMHTTPPrivate.h — the HTTP message record, shared by the message module
 * and the HTTP read streams, which look at its request flag.
 * Part of LumBase; MIT licence. Never installed. */
#ifndef LUMBASE_SRC_LUMHTTPPRIVATE_H
#define LUMBASE_SRC_LUMHTTPPRIVATE_H

#include "LUMPrivate.h"

struct __LUMHTTPMessage {
    LUMRuntimeBase base;
    Boolean isRequest;         // always false here: only responses are built
    Boolean isHeaderComplete;  // true for a created response
    LUMTypeRef request;        // reserved for the request side; released if set
    LUMMutableDataRef body;
    LUMStringRef version;
    LUMMutableDictionaryRef headerFields; // copied string names, retained values
    int32_t statusCode;
    LUMStringRef statusLine;   // without a line end
};

#endif
