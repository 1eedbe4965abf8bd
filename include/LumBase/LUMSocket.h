/** @file LUMSocket.h — BSD sockets driven by the run loop.
 * Part of LumBase; MIT licence.
 *
 * A socket object wraps a native descriptor. While the run loop waits, it
 * selects on the descriptors of all valid sockets; a ready socket's run-loop
 * source is signalled, and performing it does the socket's work: accept a
 * connection, receive the waiting bytes, or just report readability or
 * writability to the callback. All I/O is blocking; one thread only. */
#ifndef LUMBASE_LUMSOCKET_H
#define LUMBASE_LUMSOCKET_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

typedef int32_t LUMSocketNativeHandle; /**< A socket descriptor. */

typedef int32_t LUMSocketError; /**< kLUMSocketSuccess, kLUMSocketError or kLUMSocketTimeout. */
enum {
    kLUMSocketSuccess = 0,
    kLUMSocketError = -1
};

typedef LUMOptionFlags LUMSocketCallBackType; /**< Which events a socket's callback is called for (bits). */
enum {
    kLUMSocketReadCallBack = 1,   /**< readable; the callback reads by itself */
    kLUMSocketAcceptCallBack = 2, /**< a connection waits; data is a pointer to the new descriptor, which the callee owns */
    kLUMSocketDataCallBack = 3,   /**< the waiting bytes as a data object (empty when the peer closed) */
    kLUMSocketWriteCallBack = 8   /**< writable */
};

/** With this flag (set by default) invalidation closes the descriptor. */
enum { kLUMSocketCloseOnInvalidate = 0x80 };

typedef void (*LUMSocketCallBack)(LUMSocketRef s, LUMSocketCallBackType type, LUMDataRef address, const void *data, void *info); /**< Called by the run loop for an event of the socket: address and data depend on the type (the accepted descriptor, the bytes read, a connect error). */

/** The caller's data a socket carries to its callback. */
typedef struct {
    LUMIndex version; /**< 0 */
    void *info; /**< the caller's data, handed to the callback */
    const void *(*retain)(const void *info);   /**< at creation */
    void (*release)(const void *info);         /**< at finalisation */
    LUMStringRef (*copyDescription)(const void *info); /**< describes info */
} LUMSocketContext;

/** What socket to make and the address to bind or connect it to. */
typedef struct {
    int32_t protocolFamily; /**< e.g. 2 (AF_INET) */
    int32_t socketType;     /**< e.g. 1 (SOCK_STREAM) */
    int32_t protocol; /**< e.g. 6 (IPPROTO_TCP), or 0 for the family's default */
    LUMDataRef address;     /**< a native socket address; stored, not retained */
} LUMSocketSignature;

/** The socket class's type ID. */
LUM_EXPORT LUMTypeID LUMSocketGetTypeID(void);

/** @{ */
/** Open a descriptor with socket(); a failed socket() still gives an object,
 * with native -1. context may be NULL. */
LUM_EXPORT LUMSocketRef LUMSocketCreate(LUMAllocatorRef allocator, int32_t protocolFamily, int32_t socketType, int32_t protocol,
                                        LUMOptionFlags callBackTypes, LUMSocketCallBack callBack, const LUMSocketContext *context);
LUM_EXPORT LUMSocketRef LUMSocketCreateWithSocketSignature(LUMAllocatorRef allocator, const LUMSocketSignature *signature,
                                                           LUMOptionFlags callBackTypes, LUMSocketCallBack callBack,
                                                           const LUMSocketContext *context);
/** @} */
/** Creates, then connects to signature->address (blocking; the result is not
 * reported, the timeout not used). */
LUM_EXPORT LUMSocketRef LUMSocketCreateConnectedToSocketSignature(LUMAllocatorRef allocator, const LUMSocketSignature *signature,
                                                                  LUMOptionFlags callBackTypes, LUMSocketCallBack callBack,
                                                                  const LUMSocketContext *context, LUMTimeInterval timeout);
/** Wraps an existing descriptor. */
LUM_EXPORT LUMSocketRef LUMSocketCreateWithNative(LUMAllocatorRef allocator, LUMSocketNativeHandle native, LUMOptionFlags callBackTypes,
                                                  LUMSocketCallBack callBack, const LUMSocketContext *context);

/** bind, then listen with a backlog of 5. */
LUM_EXPORT LUMSocketError LUMSocketSetAddress(LUMSocketRef s, LUMDataRef address);
/** A blocking connect; timeout is not used. */
LUM_EXPORT LUMSocketError LUMSocketConnectToAddress(LUMSocketRef s, LUMDataRef address, LUMTimeInterval timeout);
/** Sets SO_SNDTIMEO from timeout (none when timeout <= 0), then send or
 * sendto; a partial send counts as success. */
LUM_EXPORT LUMSocketError LUMSocketSendData(LUMSocketRef s, LUMDataRef address, LUMDataRef data, LUMTimeInterval timeout);
/** @{ */
/** New data objects with getsockname / getpeername, or NULL. */
LUM_EXPORT LUMDataRef LUMSocketCopyAddress(LUMSocketRef s);
LUM_EXPORT LUMDataRef LUMSocketCopyPeerAddress(LUMSocketRef s);
/** @} */

/** Take effect at the run loop's next wait. */
LUM_EXPORT void LUMSocketEnableCallBacks(LUMSocketRef s, LUMOptionFlags callBackTypes);
/** Stops the callbacks of callBackTypes; takes effect at the run loop's next wait. */
LUM_EXPORT void LUMSocketDisableCallBacks(LUMSocketRef s, LUMOptionFlags callBackTypes);
/** The socket's flags (kLUMSocketCloseOnInvalidate). */
LUM_EXPORT LUMOptionFlags LUMSocketGetSocketFlags(LUMSocketRef s);
/** Replaces the socket's flags. */
LUM_EXPORT void LUMSocketSetSocketFlags(LUMSocketRef s, LUMOptionFlags flags);
/** The descriptor (-1 when socket() failed). */
LUM_EXPORT LUMSocketNativeHandle LUMSocketGetNative(LUMSocketRef s);
/** Whether the socket has not been invalidated. */
LUM_EXPORT Boolean LUMSocketIsValid(LUMSocketRef s);
/** Copies the socket's context into context. */
LUM_EXPORT void LUMSocketGetContext(LUMSocketRef s, LUMSocketContext *context);
/** Final: the source is invalidated and released; with the close flag the
 * descriptor is closed. */
LUM_EXPORT void LUMSocketInvalidate(LUMSocketRef s);
/** The socket's run-loop source (once per socket; a second call is an
 * assertion failure). The caller releases the returned reference. */
LUM_EXPORT LUMRunLoopSourceRef LUMSocketCreateRunLoopSource(LUMAllocatorRef allocator, LUMSocketRef s, LUMIndex order);

LUM_EXTERN_C_END

#endif
