/* LUMReadStream.h — read streams built from a table of callbacks.
 * Part of LumBase; MIT licence.
 *
 * The public functions dispatch to the stream's callback of the same name,
 * passing the stream first and the stream's info last; a missing callback
 * gives 0, false or NULL, or does nothing. */
#ifndef LUMBASE_LUMREADSTREAM_H
#define LUMBASE_LUMREADSTREAM_H

#include <LumBase/LUMStream.h>

LUM_EXTERN_C_BEGIN

typedef void (*LUMReadStreamClientCallBack)(LUMReadStreamRef stream, LUMStreamEventType event, void *clientCallBackInfo);

/* The callback table of a read stream. Every entry may be NULL. */
typedef struct LUMReadStreamContextTag {
    LUMIndex version;
    void *info;
    const void *(*retain)(const void *info);
    void (*release)(const void *info);
    LUMStringRef (*copyDescription)(const void *info);
    void (*close)(LUMReadStreamRef stream, void *info);
    LUMErrorRef (*copyError)(LUMReadStreamRef stream, void *info);
    LUMTypeRef (*copyProperty)(LUMReadStreamRef stream, LUMStringRef propertyName, void *info);
    const UInt8 *(*getBuffer)(LUMReadStreamRef stream, LUMIndex maxBytesToRead, LUMIndex *numBytesRead, void *info);
    LUMStreamStatus (*getStatus)(LUMReadStreamRef stream, void *info);
    Boolean (*hasBytesAvailable)(LUMReadStreamRef stream, void *info);
    Boolean (*open)(LUMReadStreamRef stream, void *info);
    LUMIndex (*read)(LUMReadStreamRef stream, UInt8 *buffer, LUMIndex bufferLength, void *info);
    void (*schedule)(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info);
    Boolean (*setClient)(LUMReadStreamRef stream, LUMOptionFlags streamEvents, LUMReadStreamClientCallBack clientCB,
                         LUMStreamClientContext *clientContext);
    Boolean (*setProperty)(LUMReadStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue, void *info);
    void (*unschedule)(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info);
} LUMReadStreamContext;

LUM_EXPORT LUMTypeID LUMReadStreamGetTypeID(void);

/* A stream over length caller bytes, adopted without copying
 * (bytesDeallocator frees them; kLUMAllocatorNull never does). It reads
 * without being opened; it cannot be opened (LUMReadStreamOpen is false),
 * reports status 0 and never calls a client. */
LUM_EXPORT LUMReadStreamRef LUMReadStreamCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length,
                                                               LUMAllocatorRef bytesDeallocator);

LUM_EXPORT Boolean LUMReadStreamOpen(LUMReadStreamRef stream);
LUM_EXPORT void LUMReadStreamClose(LUMReadStreamRef stream);
/* The count read, 0 at the end, -1 on failure (per stream). */
LUM_EXPORT LUMIndex LUMReadStreamRead(LUMReadStreamRef stream, UInt8 *buffer, LUMIndex bufferLength);
/* Bytes inside the stream's own storage, consumed by the call, or NULL. */
LUM_EXPORT const UInt8 *LUMReadStreamGetBuffer(LUMReadStreamRef stream, LUMIndex maxBytesToRead, LUMIndex *numBytesRead);
LUM_EXPORT Boolean LUMReadStreamHasBytesAvailable(LUMReadStreamRef stream);
LUM_EXPORT LUMStreamStatus LUMReadStreamGetStatus(LUMReadStreamRef stream);
/* Streams with the generic error callback end the process ("NYI"). */
LUM_EXPORT LUMErrorRef LUMReadStreamCopyError(LUMReadStreamRef stream);
LUM_EXPORT LUMTypeRef LUMReadStreamCopyProperty(LUMReadStreamRef stream, LUMStringRef propertyName);
LUM_EXPORT Boolean LUMReadStreamSetProperty(LUMReadStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue);
/* events 0, or a NULL callback or context, removes the client. */
LUM_EXPORT Boolean LUMReadStreamSetClient(LUMReadStreamRef stream, LUMOptionFlags streamEvents, LUMReadStreamClientCallBack clientCB,
                                          LUMStreamClientContext *clientContext);
LUM_EXPORT void LUMReadStreamScheduleWithRunLoop(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);
LUM_EXPORT void LUMReadStreamUnscheduleWithRunLoop(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);

LUM_EXTERN_C_END

#endif
