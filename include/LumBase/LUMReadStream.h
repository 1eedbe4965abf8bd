/** @file LUMReadStream.h — read streams built from a table of callbacks.
 * Part of LumBase; MIT licence.
 *
 * The public functions dispatch to the stream's callback of the same name,
 * passing the stream first and the stream's info last; a missing callback
 * gives 0, false or NULL, or does nothing. */
#ifndef LUMBASE_LUMREADSTREAM_H
#define LUMBASE_LUMREADSTREAM_H

#include <LumBase/LUMStream.h>

LUM_EXTERN_C_BEGIN

typedef void (*LUMReadStreamClientCallBack)(LUMReadStreamRef stream, LUMStreamEventType event, void *clientCallBackInfo); /**< Called with each event the client asked for, and the client's info. */

/** The callback table of a read stream. Every entry may be NULL. */
typedef struct LUMReadStreamContextTag {
    LUMIndex version; /**< 0 */
    void *info; /**< the stream's own data, handed to every callback */
    const void *(*retain)(const void *info); /**< retains info when the stream takes it; NULL: info is used as it is */
    void (*release)(const void *info); /**< releases info when the stream goes */
    LUMStringRef (*copyDescription)(const void *info); /**< describes info */
    void (*close)(LUMReadStreamRef stream, void *info); /**< closes the stream */
    LUMErrorRef (*copyError)(LUMReadStreamRef stream, void *info); /**< the error that stopped the stream, owned by the caller */
    LUMTypeRef (*copyProperty)(LUMReadStreamRef stream, LUMStringRef propertyName, void *info); /**< a property's value, owned by the caller, or NULL */
    const UInt8 *(*getBuffer)(LUMReadStreamRef stream, LUMIndex maxBytesToRead, LUMIndex *numBytesRead, void *info); /**< bytes read in place without copying, or NULL when the stream has no such buffer */
    LUMStreamStatus (*getStatus)(LUMReadStreamRef stream, void *info); /**< the stream's status */
    Boolean (*hasBytesAvailable)(LUMReadStreamRef stream, void *info); /**< whether a read would give bytes now */
    Boolean (*open)(LUMReadStreamRef stream, void *info); /**< opens the stream; true when it opened */
    LUMIndex (*read)(LUMReadStreamRef stream, UInt8 *buffer, LUMIndex bufferLength, void *info); /**< reads up to bufferLength bytes: the count, 0 at the end, -1 on failure */
    void (*schedule)(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info); /**< puts the stream's source on a run loop in a mode */
    Boolean (*setClient)(LUMReadStreamRef stream, LUMOptionFlags streamEvents, LUMReadStreamClientCallBack clientCB,
                         LUMStreamClientContext *clientContext); /**< registers (or with NULL removes) the client; true when done */
    Boolean (*setProperty)(LUMReadStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue, void *info); /**< sets a property; true when the stream took it */
    void (*unschedule)(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode, void *info); /**< takes the stream's source off a run loop's mode */
} LUMReadStreamContext;

/** The read stream class's type ID (registered on first call). */
LUM_EXPORT LUMTypeID LUMReadStreamGetTypeID(void);

/** A stream over length caller bytes, adopted without copying
 * (bytesDeallocator frees them; kLUMAllocatorNull never does). It reads
 * without being opened; it cannot be opened (LUMReadStreamOpen is false),
 * reports status 0 and never calls a client. */
LUM_EXPORT LUMReadStreamRef LUMReadStreamCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length,
                                                               LUMAllocatorRef bytesDeallocator);

/** Opens the stream through its open callback: true when it opened; false without one. */
LUM_EXPORT Boolean LUMReadStreamOpen(LUMReadStreamRef stream);
/** Closes the stream through its close callback (nothing without one); the stream stays the caller's to release. */
LUM_EXPORT void LUMReadStreamClose(LUMReadStreamRef stream);
/** The count read, 0 at the end, -1 on failure (per stream). */
LUM_EXPORT LUMIndex LUMReadStreamRead(LUMReadStreamRef stream, UInt8 *buffer, LUMIndex bufferLength);
/** Bytes inside the stream's own storage, consumed by the call, or NULL. */
LUM_EXPORT const UInt8 *LUMReadStreamGetBuffer(LUMReadStreamRef stream, LUMIndex maxBytesToRead, LUMIndex *numBytesRead);
/** Whether a read would give bytes now (false without the callback). */
LUM_EXPORT Boolean LUMReadStreamHasBytesAvailable(LUMReadStreamRef stream);
/** The stream's status (0 without the callback). */
LUM_EXPORT LUMStreamStatus LUMReadStreamGetStatus(LUMReadStreamRef stream);
/** Streams with the generic error callback end the process ("NYI"). */
LUM_EXPORT LUMErrorRef LUMReadStreamCopyError(LUMReadStreamRef stream);
/** A property's value, owned by the caller; NULL when the stream has no such property. */
LUM_EXPORT LUMTypeRef LUMReadStreamCopyProperty(LUMReadStreamRef stream, LUMStringRef propertyName);
/** Sets a property; true when the stream took it. */
LUM_EXPORT Boolean LUMReadStreamSetProperty(LUMReadStreamRef stream, LUMStringRef propertyName, LUMTypeRef propertyValue);
/** events 0, or a NULL callback or context, removes the client. */
LUM_EXPORT Boolean LUMReadStreamSetClient(LUMReadStreamRef stream, LUMOptionFlags streamEvents, LUMReadStreamClientCallBack clientCB,
                                          LUMStreamClientContext *clientContext);
/** Puts the stream's source on the run loop in runLoopMode, so that its client is called from the loop. */
LUM_EXPORT void LUMReadStreamScheduleWithRunLoop(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);
/** Takes the stream's source off runLoopMode. */
LUM_EXPORT void LUMReadStreamUnscheduleWithRunLoop(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef runLoopMode);

LUM_EXTERN_C_END

#endif
