/** @file LUMWriteStream.h — write streams built from a table of callbacks.
 * Part of LumBase; MIT licence.
 *
 * The public functions dispatch to the stream's callback of the same name,
 * passing the stream first and the stream's info last; a missing callback
 * gives 0, false or NULL, or does nothing. */
#ifndef LUMBASE_LUMWRITESTREAM_H
#define LUMBASE_LUMWRITESTREAM_H

#include <LumBase/LUMStream.h>

LUM_EXTERN_C_BEGIN

typedef void (*LUMWriteStreamClientCallBack)(LUMWriteStreamRef stream, LUMStreamEventType event, void *clientCallBackInfo); /**< Called with each event the client asked for, and the client's info. */

/** The callback table of a write stream. Every entry may be NULL. */
typedef struct LUMWriteStreamContextTag {
    LUMIndex version; /**< 0 */
    void *info; /**< the stream's own data, handed to every callback */
    const void *(*retain)(const void *info); /**< retains info when the stream takes it; NULL: info is used as it is */
    void (*release)(const void *info); /**< releases info when the stream goes */
    LUMStringRef (*copyDescription)(const void *info); /**< describes info */
    Boolean (*canAcceptBytes)(LUMWriteStreamRef stream, void *info); /**< whether a write would take bytes now */
    void (*close)(LUMWriteStreamRef stream, void *info); /**< closes the stream */
    LUMErrorRef (*copyError)(LUMWriteStreamRef stream, void *info); /**< the error that stopped the stream, owned by the caller */
    LUMTypeRef (*copyProperty)(LUMWriteStreamRef stream, LUMStringRef propertyName, void *info); /**< a property's value, owned by the caller, or NULL */
    LUMStreamStatus (*getStatus)(LUMWriteStreamRef stream, void *info); /**< the stream's status */
    Boolean (*open)(LUMWriteStreamRef stream, void *info); /**< opens the stream; true when it opened */
    void (*schedule)(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info); /**< puts the stream's source on a run loop in a mode */
    Boolean (*setClient)(LUMWriteStreamRef stream, LUMOptionFlags streamEvents, LUMWriteStreamClientCallBack clientCB,
                         LUMStreamClientContext *clientContext); /**< registers (or with NULL removes) the client; true when done */
    Boolean (*setProperty)(LUMWriteStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue, void *info); /**< sets a property; true when the stream took it */
    void (*unschedule)(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info); /**< takes the stream's source off a run loop's mode */
    LUMIndex (*write)(LUMWriteStreamRef stream, const UInt8 *buffer, LUMIndex bufferLength, void *info); /**< writes up to bufferLength bytes: the count taken, 0 when full, -1 on failure */
} LUMWriteStreamContext;

/** The write stream class's type ID (registered on first call). */
LUM_EXPORT LUMTypeID LUMWriteStreamGetTypeID(void);

/** A stream into a fixed caller buffer of capacity bytes (not owned). When the
 * buffer is full the status becomes 5 (at end) and writes return 0. */
LUM_EXPORT LUMWriteStreamRef LUMWriteStreamCreateWithBuffer(LUMAllocatorRef allocator, UInt8 *buffer, LUMIndex bufferCapacity);
/** A stream into growing memory from bufferAllocator; the bytes written so
 * far are the property kLUMStreamPropertyDataWritten. */
LUM_EXPORT LUMWriteStreamRef LUMWriteStreamCreateWithAllocatedBuffers(LUMAllocatorRef allocator, LUMAllocatorRef bufferAllocator);

/** Opens the stream through its open callback: true when it opened; false without one. */
LUM_EXPORT Boolean LUMWriteStreamOpen(LUMWriteStreamRef stream);
/** Closes the stream through its close callback (nothing without one); the stream stays the caller's to release. */
LUM_EXPORT void LUMWriteStreamClose(LUMWriteStreamRef stream);
/** The count written (per stream: may be less than asked, 0, or -1). */
LUM_EXPORT LUMIndex LUMWriteStreamWrite(LUMWriteStreamRef stream, const UInt8 *buffer, LUMIndex bufferLength);
/** Whether a write would take bytes now (false without the callback). */
LUM_EXPORT Boolean LUMWriteStreamCanAcceptBytes(LUMWriteStreamRef stream);
/** The stream's status (0 without the callback). */
LUM_EXPORT LUMStreamStatus LUMWriteStreamGetStatus(LUMWriteStreamRef stream);
/** Streams with the generic error callback end the process ("NYI"). */
LUM_EXPORT LUMErrorRef LUMWriteStreamCopyError(LUMWriteStreamRef stream);
/** A property's value, owned by the caller; NULL when the stream has no such property. */
LUM_EXPORT LUMTypeRef LUMWriteStreamCopyProperty(LUMWriteStreamRef stream, LUMStringRef propertyName);
/** Sets a property; true when the stream took it. */
LUM_EXPORT Boolean LUMWriteStreamSetProperty(LUMWriteStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue);
/** events 0, or a NULL callback or context, removes the client. */
LUM_EXPORT Boolean LUMWriteStreamSetClient(LUMWriteStreamRef stream, LUMOptionFlags streamEvents, LUMWriteStreamClientCallBack clientCB,
                                          LUMStreamClientContext *clientContext);
/** Puts the stream's source on the run loop in runLoopMode, so that its client is called from the loop. */
LUM_EXPORT void LUMWriteStreamScheduleWithRunLoop(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);
/** Takes the stream's source off runLoopMode. */
LUM_EXPORT void LUMWriteStreamUnscheduleWithRunLoop(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);

LUM_EXTERN_C_END

#endif
