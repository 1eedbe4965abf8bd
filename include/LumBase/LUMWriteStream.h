/* LUMWriteStream.h — write streams built from a table of callbacks.
 * Part of LumBase; MIT licence.
 *
 * The public functions dispatch to the stream's callback of the same name,
 * passing the stream first and the stream's info last; a missing callback
 * gives 0, false or NULL, or does nothing. */
#ifndef LUMBASE_LUMWRITESTREAM_H
#define LUMBASE_LUMWRITESTREAM_H

#include <LumBase/LUMStream.h>

LUM_EXTERN_C_BEGIN

typedef void (*LUMWriteStreamClientCallBack)(LUMWriteStreamRef stream, LUMStreamEventType event, void *clientCallBackInfo);

/* The callback table of a write stream. Every entry may be NULL. */
typedef struct LUMWriteStreamContextTag {
    LUMIndex version;
    void *info;
    const void *(*retain)(const void *info);
    void (*release)(const void *info);
    LUMStringRef (*copyDescription)(const void *info);
    Boolean (*canAcceptBytes)(LUMWriteStreamRef stream, void *info);
    void (*close)(LUMWriteStreamRef stream, void *info);
    LUMErrorRef (*copyError)(LUMWriteStreamRef stream, void *info);
    LUMTypeRef (*copyProperty)(LUMWriteStreamRef stream, LUMStringRef propertyName, void *info);
    LUMStreamStatus (*getStatus)(LUMWriteStreamRef stream, void *info);
    Boolean (*open)(LUMWriteStreamRef stream, void *info);
    void (*schedule)(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info);
    Boolean (*setClient)(LUMWriteStreamRef stream, LUMOptionFlags streamEvents, LUMWriteStreamClientCallBack clientCB,
                         LUMStreamClientContext *clientContext);
    Boolean (*setProperty)(LUMWriteStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue, void *info);
    void (*unschedule)(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info);
    LUMIndex (*write)(LUMWriteStreamRef stream, const UInt8 *buffer, LUMIndex bufferLength, void *info);
} LUMWriteStreamContext;

LUM_EXPORT LUMTypeID LUMWriteStreamGetTypeID(void);

/* A stream into a fixed caller buffer of capacity bytes (not owned). When the
 * buffer is full the status becomes 5 (at end) and writes return 0. */
LUM_EXPORT LUMWriteStreamRef LUMWriteStreamCreateWithBuffer(LUMAllocatorRef allocator, UInt8 *buffer, LUMIndex bufferCapacity);
/* A stream into growing memory from bufferAllocator; the bytes written so
 * far are the property kLUMStreamPropertyDataWritten. */
LUM_EXPORT LUMWriteStreamRef LUMWriteStreamCreateWithAllocatedBuffers(LUMAllocatorRef allocator, LUMAllocatorRef bufferAllocator);

LUM_EXPORT Boolean LUMWriteStreamOpen(LUMWriteStreamRef stream);
LUM_EXPORT void LUMWriteStreamClose(LUMWriteStreamRef stream);
/* The count written (per stream: may be less than asked, 0, or -1). */
LUM_EXPORT LUMIndex LUMWriteStreamWrite(LUMWriteStreamRef stream, const UInt8 *buffer, LUMIndex bufferLength);
LUM_EXPORT Boolean LUMWriteStreamCanAcceptBytes(LUMWriteStreamRef stream);
LUM_EXPORT LUMStreamStatus LUMWriteStreamGetStatus(LUMWriteStreamRef stream);
/* Streams with the generic error callback end the process ("NYI"). */
LUM_EXPORT LUMErrorRef LUMWriteStreamCopyError(LUMWriteStreamRef stream);
LUM_EXPORT LUMTypeRef LUMWriteStreamCopyProperty(LUMWriteStreamRef stream, LUMStringRef propertyName);
LUM_EXPORT Boolean LUMWriteStreamSetProperty(LUMWriteStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue);
/* events 0, or a NULL callback or context, removes the client. */
LUM_EXPORT Boolean LUMWriteStreamSetClient(LUMWriteStreamRef stream, LUMOptionFlags streamEvents, LUMWriteStreamClientCallBack clientCB,
                                          LUMStreamClientContext *clientContext);
LUM_EXPORT void LUMWriteStreamScheduleWithRunLoop(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);
LUM_EXPORT void LUMWriteStreamUnscheduleWithRunLoop(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);

LUM_EXTERN_C_END

#endif
