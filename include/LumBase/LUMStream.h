/** @file LUMStream.h — what read and write streams share: status, events, client
 * records, the data-written property, and the stream-pair creators.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMSTREAM_H
#define LUMBASE_LUMSTREAM_H

#include <LumBase/LUMBase.h>
#include <LumBase/LUMSocket.h>

LUM_EXTERN_C_BEGIN

typedef int32_t LUMStreamStatus; /**< Where a stream is in its life: one of the kLUMStreamStatus values. */
enum {
    kLUMStreamStatusNotOpen = 0,
    kLUMStreamStatusOpen = 2,
    kLUMStreamStatusAtEnd = 5,  /**< a fixed-buffer write stream that is full */
    kLUMStreamStatusClosed = 6
};

typedef LUMOptionFlags LUMStreamEventType; /**< Stream events a client can ask for (bits). */
enum {
    kLUMStreamEventHasBytesAvailable = 2,
    kLUMStreamEventCanAcceptBytes = 4
};

/** The client's data a stream hands to its client callback. */
typedef struct {
    LUMIndex version; /**< 0 */
    void *info; /**< the client's data, handed to the client callback */
    const void *(*retain)(const void *info); /**< retains info when the stream takes it */
    void (*release)(const void *info); /**< releases info when the client is replaced or the stream goes */
    LUMStringRef (*copyDescription)(const void *info); /**< describes info */
} LUMStreamClientContext;

/** "kLUMStreamPropertyDataWritten": on a stream made by
 * LUMWriteStreamCreateWithAllocatedBuffers, a copy of all bytes written. */
LUM_EXPORT extern const LUMStringRef kLUMStreamPropertyDataWritten;

/** A read stream and a write stream over one ring buffer of bufferSize bytes:
 * what is written can be read. Neither side signals the other: a client
 * hears from its source once per scheduling, so it reads or writes in a loop
 * or schedules again. Both pointers must be non-NULL; the caller releases
 * both streams. */
LUM_EXPORT void LUMStreamCreateBoundPair(LUMAllocatorRef allocator, LUMReadStreamRef *readStream, LUMWriteStreamRef *writeStream,
                                         LUMIndex bufferSize);

/* Socket stream pairs: blocking byte I/O over one socket, outside the run
 * loop. A NULL stream pointer skips that stream. Closing either stream
 * closes the shared descriptor. */
/** Connects (blocking) to a dotted-decimal IPv4 host; no name lookup. */
LUM_EXPORT void LUMStreamCreatePairWithSocketToHost(LUMAllocatorRef allocator, LUMStringRef host, UInt32 port,
                                                    LUMReadStreamRef *readStream, LUMWriteStreamRef *writeStream);
/** A read and a write stream over an existing connected descriptor; either output may be NULL. The caller releases the streams it asked for. */
LUM_EXPORT void LUMStreamCreatePairWithSocket(LUMAllocatorRef allocator, LUMSocketNativeHandle native, LUMReadStreamRef *readStream,
                                              LUMWriteStreamRef *writeStream);
/** Makes the socket from the signature; no connection is made. */
LUM_EXPORT void LUMStreamCreatePairWithPeerSocketSignature(LUMAllocatorRef allocator, const LUMSocketSignature *signature,
                                                           LUMReadStreamRef *readStream, LUMWriteStreamRef *writeStream);

LUM_EXTERN_C_END

#endif
