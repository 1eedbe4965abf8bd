/* jsonget.c — asks an HTTP server for one document over a socket stream
 * pair, prints the response and the JSON body as the library reads it.
 *
 *   jsonget host port [path]      (host in dotted decimal)
 *
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char **argv)
{
    LUMReadStreamRef in = NULL;
    LUMWriteStreamRef out = NULL;
    LUMStringRef host, request, text;
    LUMMutableDataRef response;
    LUMDataRef requestBytes;
    UInt8 buffer[4096];
    LUMIndex n;
    const UInt8 *bytes;
    LUMIndex length, bodyStart = -1, i;

    if (argc < 3) {
        fprintf(stderr, "usage: jsonget host port [path]\n");
        return 2;
    }
    if (!LUMInitialize(1, argv)) return 1;
    host = LUMStringCreateWithCString(NULL, argv[1], kLUMStringEncodingUTF8);
    LUMStreamCreatePairWithSocketToHost(NULL, host, (UInt32)atoi(argv[2]), &in, &out);
    LUMReadStreamOpen(in);
    LUMWriteStreamOpen(out);
    request = LUMStringCreateWithFormat(NULL, NULL, LUMSTR("GET %s HTTP/1.1\r\nHost: %s\r\nConnection: close\r\n\r\n"),
                                        argc > 3 ? argv[3] : "/", argv[1]);
    requestBytes = LUMStringCreateExternalRepresentation(NULL, request, kLUMStringEncodingUTF8, 0);
    if (LUMWriteStreamWrite(out, LUMDataGetBytePtr(requestBytes), LUMDataGetLength(requestBytes)) != LUMDataGetLength(requestBytes)) {
        fprintf(stderr, "jsonget: cannot reach %s:%s\n", argv[1], argv[2]);
        return 1;
    }
    response = LUMDataCreateMutable(NULL, 0);
    while ((n = LUMReadStreamRead(in, buffer, sizeof(buffer))) > 0) LUMDataAppendBytes(response, buffer, n);
    LUMReadStreamClose(in);

    bytes = LUMDataGetBytePtr(response);
    length = LUMDataGetLength(response);
    fwrite(bytes, 1, (size_t)length, stdout);
    printf("\n");
    for (i = 0; i + 3 < length; i++) {
        if (memcmp(bytes + i, "\r\n\r\n", 4) == 0) {
            bodyStart = i + 4;
            break;
        }
    }
    if (bodyStart >= 0) {
        LUMDataRef body = LUMDataCreate(NULL, bytes + bodyStart, length - bodyStart);
        LUMPropertyListRef document = LUMPropertyListCreateWithData(NULL, body, 0, NULL, NULL);
        text = LUMCopyDescription(document);
        LUMPrint(LUMSTR("read back: %@\n"), text);
        LUMRelease(text);
        LUMRelease(document);
        LUMRelease(body);
    }
    LUMRelease(response);
    LUMRelease(requestBytes);
    LUMRelease(request);
    LUMRelease(in);
    LUMRelease(out);
    LUMRelease(host);
    return bodyStart >= 0 ? 0 : 1;
}
