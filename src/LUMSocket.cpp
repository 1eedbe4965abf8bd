/* LUMSocket.cpp — socket objects over native descriptors, their part in the
 * run loop's select, and the stream callbacks of socket stream pairs.
 * Part of LumBase; MIT licence.
 *
 * Invariants: every socket object is in __allSockets (which does not retain)
 * from initialisation to finalisation; only valid sockets take part in
 * select. isReadable and isWritable, once set, stay set on purpose: every
 * later performing of the source repeats the read-side and write-side work. */
#define LUM_SOURCE_FILE "src/LUMSocket"
#include "LUMPrivate.h"

#include <LumBase/LUMData.h>
#include <LumBase/LUMRunLoop.h>
#include <LumBase/LUMRunLoopSource.h>
#include <LumBase/LUMSet.h>
#include <LumBase/LUMSocket.h>
#include <LumBase/LUMStream.h>

#include <cmath>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

struct __LUMSocket {
    LUMRuntimeBase base;
    LUMSocketNativeHandle native;
    LUMSocketSignature signature;
    LUMOptionFlags callBackTypes;
    LUMSocketCallBack callBack;
    LUMSocketContext context;
    LUMOptionFlags socketFlags;
    Boolean isValid;
    Boolean isReadable;
    Boolean isWritable;
    LUMRunLoopSourceRef runLoopSource;
};

namespace {

LUMTypeID __kLUMSocketTypeID = 0;
LUMMutableSetRef __allSockets = nullptr;

constexpr LUMOptionFlags kDefaultSocketFlags = 0x83;
constexpr int kListenBacklog = 5;
constexpr LUMIndex kMinimumReceiveBytes = 256;
constexpr socklen_t kAddressBytes = 16;
constexpr socklen_t kCopiedAddressBytes = 256;

Boolean __LUMSocketInitializeInstance(LUMTypeRef obj)
{
    auto *s = lum::object<__LUMSocket>(obj);
    s->native = -1;
    s->signature = {};
    s->callBackTypes = 0;
    s->callBack = nullptr;
    s->context = {};
    s->socketFlags = kDefaultSocketFlags;
    s->isValid = true;
    s->isReadable = false;
    s->isWritable = false;
    s->runLoopSource = nullptr;
    LUMSetAddValue(__allSockets, s);
    return true;
}

// Finalisation does not close the descriptor: only invalidation does.
void __LUMSocketFinalizeInstance(LUMTypeRef obj)
{
    auto *s = lum::object<__LUMSocket>(obj);
    LUMSetRemoveValue(__allSockets, s);
    if (s->context.release != nullptr) s->context.release(s->context.info);
}

constexpr LUMRuntimeClass __kLUMSocketTypeClass = {
    0, "LUMSocket", sizeof(__LUMSocket), __LUMSocketInitializeInstance, __LUMSocketFinalizeInstance, nullptr, nullptr, nullptr,
};

__LUMSocket *createSocket(LUMAllocatorRef allocator, LUMSocketNativeHandle native, const LUMSocketSignature *signature,
                          LUMOptionFlags callBackTypes, LUMSocketCallBack callBack, const LUMSocketContext *context)
{
    auto *s = lum::object<__LUMSocket>(_LUMTypeCreateInstance(allocator, LUMSocketGetTypeID()));
    if (s == nullptr) return nullptr;
    s->native = native;
    if (signature != nullptr) s->signature = *signature;
    s->callBackTypes = callBackTypes;
    s->callBack = callBack;
    if (context != nullptr) {
        s->context = *context;
        if (context->retain != nullptr) s->context.info = const_cast<void *>(context->retain(context->info));
    }
    return s;
}

/* The valid sockets, as a snapshot that callbacks cannot disturb. */
template <typename Visit>
void forEachValidSocket(Visit visit)
{
    if (__allSockets == nullptr) return;
    LUMIndex count = LUMSetGetCount(__allSockets);
    lum::TempBuffer<const void *, 32> sockets(static_cast<size_t>(count));
    LUMSetGetValues(__allSockets, sockets.get());
    for (LUMIndex i = 0; i < count; i++) {
        auto *s = static_cast<__LUMSocket *>(const_cast<void *>(sockets.get()[i]));
        if (s->isValid) visit(s);
    }
}

void receiveData(__LUMSocket *s)
{
    int waiting = 0;
    if (ioctl(s->native, FIONREAD, &waiting) < 0 || waiting < kMinimumReceiveBytes) waiting = kMinimumReceiveBytes;
    LUMMutableDataRef data = LUMDataCreateMutable(LUMGetAllocator(s), 0);
    LUMDataSetLength(data, waiting);
    LUMMutableDataRef address = LUMDataCreateMutable(LUMGetAllocator(s), 0);
    LUMDataSetLength(address, kAddressBytes);
    socklen_t addressLength = kAddressBytes;
    ssize_t received = recvfrom(s->native, LUMDataGetMutableBytePtr(data), static_cast<size_t>(waiting), 0,
                                reinterpret_cast<struct sockaddr *>(LUMDataGetMutableBytePtr(address)), &addressLength);
    // An empty data object tells that the peer has closed; the address keeps
    // its 16 bytes whatever length came back.
    LUMDataSetLength(data, received > 0 ? static_cast<LUMIndex>(received) : 0);
    if (s->callBack != nullptr) s->callBack(s, kLUMSocketDataCallBack, address, data, s->context.info);
    LUMRelease(data);
    LUMRelease(address);
}

void __LUMSocketRunLoopSourceCallBack(void *info)
{
    auto *s = static_cast<__LUMSocket *>(info);
    if (s->isReadable) {
        switch (s->callBackTypes & 3) {
        case kLUMSocketAcceptCallBack: {
            unsigned char peer[kAddressBytes] = {};
            socklen_t peerLength = kAddressBytes;
            LUMSocketNativeHandle accepted = accept(s->native, reinterpret_cast<struct sockaddr *>(peer), &peerLength);
            // The peer address was collected but is not handed on.
            if (accepted >= 0 && s->callBack != nullptr) s->callBack(s, kLUMSocketAcceptCallBack, nullptr, &accepted, s->context.info);
            break;
        }
        case kLUMSocketDataCallBack:
            receiveData(s);
            break;
        case kLUMSocketReadCallBack:
            if (s->callBack != nullptr) s->callBack(s, kLUMSocketReadCallBack, nullptr, nullptr, s->context.info);
            break;
        default:
            break;
        }
    }
    if (s->isWritable && (s->callBackTypes & kLUMSocketWriteCallBack) && s->callBack != nullptr)
        s->callBack(s, kLUMSocketWriteCallBack, nullptr, nullptr, s->context.info);
}

LUMDataRef copyAddress(__LUMSocket *s, int (*query)(int, struct sockaddr *, socklen_t *))
{
    unsigned char buffer[kCopiedAddressBytes];
    socklen_t length = kCopiedAddressBytes;
    if (query(s->native, reinterpret_cast<struct sockaddr *>(buffer), &length) < 0) return nullptr;
    return LUMDataCreate(LUMGetAllocator(s), buffer, static_cast<LUMIndex>(length));
}

} // namespace

LUMTypeID LUMSocketGetTypeID(void) { return lum::registerClassOnce(__kLUMSocketTypeID, __kLUMSocketTypeClass); }

Boolean _LUMSocketInitializeModule(void)
{
    __allSockets = LUMSetCreateMutable(_kLUMAllocatorConstant, 0, nullptr);
    return __allSockets != nullptr;
}

LUMSocketRef LUMSocketCreateWithSocketSignature(LUMAllocatorRef allocator, const LUMSocketSignature *signature,
                                                LUMOptionFlags callBackTypes, LUMSocketCallBack callBack, const LUMSocketContext *context)
{
    // The object comes first: when it cannot be made, no descriptor is
    // opened. A failed socket() is not checked: the object keeps native -1.
    __LUMSocket *s = createSocket(allocator, -1, signature, callBackTypes, callBack, context);
    if (s == nullptr) return nullptr;
    s->native = socket(signature->protocolFamily, signature->socketType, signature->protocol);
    return s;
}

LUMSocketRef LUMSocketCreate(LUMAllocatorRef allocator, int32_t protocolFamily, int32_t socketType, int32_t protocol,
                             LUMOptionFlags callBackTypes, LUMSocketCallBack callBack, const LUMSocketContext *context)
{
    LUMSocketSignature signature = {protocolFamily, socketType, protocol, nullptr};
    return LUMSocketCreateWithSocketSignature(allocator, &signature, callBackTypes, callBack, context);
}

LUMSocketRef LUMSocketCreateConnectedToSocketSignature(LUMAllocatorRef allocator, const LUMSocketSignature *signature,
                                                       LUMOptionFlags callBackTypes, LUMSocketCallBack callBack,
                                                       const LUMSocketContext *context, LUMTimeInterval timeout)
{
    LUMSocketRef s = LUMSocketCreateWithSocketSignature(allocator, signature, callBackTypes, callBack, context);
    if (s != nullptr) LUMSocketConnectToAddress(s, signature->address, timeout);
    return s;
}

LUMSocketRef LUMSocketCreateWithNative(LUMAllocatorRef allocator, LUMSocketNativeHandle native, LUMOptionFlags callBackTypes,
                                       LUMSocketCallBack callBack, const LUMSocketContext *context)
{
    return createSocket(allocator, native, nullptr, callBackTypes, callBack, context);
}

LUMSocketError LUMSocketSetAddress(LUMSocketRef s, LUMDataRef address)
{
    if (bind(s->native, reinterpret_cast<const struct sockaddr *>(LUMDataGetBytePtr(address)),
             static_cast<socklen_t>(LUMDataGetLength(address))) < 0)
        return kLUMSocketError;
    listen(s->native, kListenBacklog); // also for datagram sockets; its result does not count
    return kLUMSocketSuccess;
}

LUMSocketError LUMSocketConnectToAddress(LUMSocketRef s, LUMDataRef address, LUMTimeInterval timeout)
{
    int result = connect(s->native, reinterpret_cast<const struct sockaddr *>(LUMDataGetBytePtr(address)),
                         static_cast<socklen_t>(LUMDataGetLength(address)));
    return result == 0 ? kLUMSocketSuccess : kLUMSocketError;
}

LUMSocketError LUMSocketSendData(LUMSocketRef s, LUMDataRef address, LUMDataRef data, LUMTimeInterval timeout)
{
    struct timeval limit = {2147483647, 0}; // no practical limit
    if (timeout > 0 && timeout < 2147483647.0) {
        limit.tv_sec = static_cast<time_t>(floor(timeout));
        limit.tv_usec = static_cast<suseconds_t>(floor((timeout - floor(timeout)) * 1000000.0));
    }
    if (setsockopt(s->native, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) < 0) return kLUMSocketError;
    ssize_t sent;
    if (address != nullptr) {
        sent = sendto(s->native, LUMDataGetBytePtr(data), static_cast<size_t>(LUMDataGetLength(data)), 0,
                      reinterpret_cast<const struct sockaddr *>(LUMDataGetBytePtr(address)),
                      static_cast<socklen_t>(LUMDataGetLength(address)));
    } else {
        sent = send(s->native, LUMDataGetBytePtr(data), static_cast<size_t>(LUMDataGetLength(data)), 0);
    }
    return sent < 1 ? kLUMSocketError : kLUMSocketSuccess;
}

LUMDataRef LUMSocketCopyAddress(LUMSocketRef s) { return copyAddress(s, getsockname); }
LUMDataRef LUMSocketCopyPeerAddress(LUMSocketRef s) { return copyAddress(s, getpeername); }

void LUMSocketEnableCallBacks(LUMSocketRef s, LUMOptionFlags callBackTypes) { s->callBackTypes |= callBackTypes; }
void LUMSocketDisableCallBacks(LUMSocketRef s, LUMOptionFlags callBackTypes) { s->callBackTypes &= ~callBackTypes; }
LUMOptionFlags LUMSocketGetSocketFlags(LUMSocketRef s) { return s->socketFlags; }
void LUMSocketSetSocketFlags(LUMSocketRef s, LUMOptionFlags flags) { s->socketFlags = flags; }
LUMSocketNativeHandle LUMSocketGetNative(LUMSocketRef s) { return s->native; }
Boolean LUMSocketIsValid(LUMSocketRef s) { return s->isValid; }
void LUMSocketGetContext(LUMSocketRef s, LUMSocketContext *context) { *context = s->context; }

void LUMSocketInvalidate(LUMSocketRef s)
{
    lum::HeldObject held(s); // the source holds the socket: releasing it may free it
    s->isValid = false;
    if (s->runLoopSource != nullptr) {
        LUMRunLoopSourceInvalidate(s->runLoopSource);
        LUMRelease(s->runLoopSource);
        s->runLoopSource = nullptr;
    }
    if (s->socketFlags & kLUMSocketCloseOnInvalidate) {
        close(s->native);
        s->native = -1;
    }
}

LUMRunLoopSourceRef LUMSocketCreateRunLoopSource(LUMAllocatorRef allocator, LUMSocketRef socket, LUMIndex order)
{
    LUM_ASSERT_AT(497, socket->runLoopSource == NULL);
    LUMRunLoopSourceContext context = {
        0, socket, LUMRetain, LUMRelease, LUMCopyDescription, LUMEqual, LUMHash, nullptr, nullptr, __LUMSocketRunLoopSourceCallBack,
    };
    socket->runLoopSource = LUMRunLoopSourceCreate(allocator, order, &context);
    return static_cast<LUMRunLoopSourceRef>(const_cast<void *>(LUMRetain(socket->runLoopSource)));
}

void _LUMSocketPrepareSelectInfo(LUMSelectInfo *selectInfo)
{
    forEachValidSocket([selectInfo](__LUMSocket *s) {
        if (s->native < 0 || s->native >= FD_SETSIZE) return; // select cannot watch it
        if (s->callBackTypes & 3) FD_SET(s->native, &selectInfo->readSet);
        if (s->callBackTypes & kLUMSocketWriteCallBack) FD_SET(s->native, &selectInfo->writeSet);
        FD_SET(s->native, &selectInfo->exceptSet);
        if (s->native > selectInfo->maxDescriptor) selectInfo->maxDescriptor = s->native;
    });
}

void _LUMSocketProcessSelectInfo(LUMSelectInfo *selectInfo)
{
    forEachValidSocket([selectInfo](__LUMSocket *s) {
        if (s->native < 0 || s->native >= FD_SETSIZE) return;
        bool readable = FD_ISSET(s->native, &selectInfo->readSet);
        bool writable = FD_ISSET(s->native, &selectInfo->writeSet);
        if (readable) s->isReadable = true;
        if (writable) s->isWritable = true;
        if ((readable || writable || FD_ISSET(s->native, &selectInfo->exceptSet)) && s->runLoopSource != nullptr)
            LUMRunLoopSourceSignal(s->runLoopSource);
    });
}

/* ---- The wait beyond select's reach ------------------------------------------
 * select's sets end at FD_SETSIZE. When a valid socket's descriptor lies at
 * or above it, the run loop waits with poll over the same sockets instead,
 * asking for what the sets would hold and marking and signalling afterwards
 * as the select-info processing does. */

Boolean _LUMSocketSelectCanWatchAll(void)
{
    bool fits = true;
    forEachValidSocket([&fits](__LUMSocket *s) {
        if (s->native >= FD_SETSIZE) fits = false;
    });
    return fits;
}

namespace {

/* What select would report for a socket, from poll's answer. */
struct PollReadiness {
    bool readable;
    bool writable;
    bool exceptional;
};

int64_t monotonicMicroseconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

PollReadiness readinessOf(const __LUMSocket *s, short revents)
{
    // select reports end of file, hang-up and errors as readable (and
    // errors as writable) to a socket that asked; poll reports them always.
    bool wantsRead = (s->callBackTypes & 3) != 0;
    bool wantsWrite = (s->callBackTypes & kLUMSocketWriteCallBack) != 0;
    return PollReadiness{wantsRead && (revents & (POLLIN | POLLHUP | POLLERR)) != 0,
                         wantsWrite && (revents & (POLLOUT | POLLERR | POLLHUP)) != 0, (revents & POLLPRI) != 0};
}

} // namespace

int _LUMSocketPollAndProcess(int64_t timeoutMicroseconds)
{
    if (__allSockets == nullptr) return 0;
    LUMIndex count = LUMSetGetCount(__allSockets);
    lum::TempBuffer<const void *, 32> sockets(static_cast<size_t>(count));
    lum::TempBuffer<struct pollfd, 32> fds(static_cast<size_t>(count));
    if (sockets.get() == nullptr || fds.get() == nullptr) return -1;
    LUMSetGetValues(__allSockets, sockets.get());
    for (LUMIndex i = 0; i < count; i++) {
        auto *s = static_cast<const __LUMSocket *>(sockets.get()[i]);
        struct pollfd &fd = fds.get()[i];
        fd.fd = (s->isValid && s->native >= 0) ? s->native : -1; // a negative descriptor is skipped
        fd.events = POLLPRI;
        if (s->callBackTypes & 3) fd.events |= POLLIN;
        if (s->callBackTypes & kLUMSocketWriteCallBack) fd.events |= POLLOUT;
        fd.revents = 0;
    }
    int64_t until = monotonicMicroseconds() + timeoutMicroseconds;
    for (;;) {
        int64_t remaining = until - monotonicMicroseconds();
        if (remaining < 0) remaining = 0;
        struct timespec timeout = {static_cast<time_t>(remaining / 1000000), static_cast<long>(remaining % 1000000) * 1000};
        int ready = ppoll(fds.get(), static_cast<nfds_t>(count), &timeout, nullptr);
        if (ready <= 0) return ready;
        int signalled = 0;
        for (LUMIndex i = 0; i < count; i++) {
            struct pollfd &fd = fds.get()[i];
            if (fd.fd < 0 || fd.revents == 0) continue;
            auto *s = static_cast<__LUMSocket *>(const_cast<void *>(sockets.get()[i]));
            PollReadiness r = readinessOf(s, fd.revents);
            if (r.readable) s->isReadable = true;
            if (r.writable) s->isWritable = true;
            if (r.readable || r.writable || r.exceptional) {
                if (s->runLoopSource != nullptr) LUMRunLoopSourceSignal(s->runLoopSource);
                signalled++;
            } else {
                // A hang-up or error nobody asked about would wake every
                // poll of this wait: select would not see it, so neither do we.
                fd.fd = -1;
            }
        }
        if (signalled > 0) return signalled;
        if (remaining == 0) return 0;
    }
}

/* ---- Socket stream pairs ----------------------------------------------------
 * Blocking byte I/O over one socket; the streams own no run-loop source, so
 * scheduling them does nothing and their clients are never called. */

namespace {

constexpr LUMIndex kHostBytes = 128;

void __LUMSocketStreamCallBack(LUMSocketRef, LUMSocketCallBackType, LUMDataRef, const void *, void *) {}

LUMIndex __LUMStreamSocketRead(LUMReadStreamRef, UInt8 *buffer, LUMIndex length, void *info)
{
    return static_cast<LUMIndex>(read(static_cast<LUMSocketRef>(info)->native, buffer, static_cast<size_t>(length)));
}

LUMIndex __LUMStreamSocketWrite(LUMWriteStreamRef, const UInt8 *bytes, LUMIndex length, void *info)
{
    return static_cast<LUMIndex>(write(static_cast<LUMSocketRef>(info)->native, bytes, static_cast<size_t>(length)));
}

// Always true, so a read may block.
Boolean __LUMStreamSocketHasBytesAvailable(LUMReadStreamRef, void *) { return true; }
Boolean __LUMStreamSocketCanAcceptBytes(LUMWriteStreamRef, void *) { return true; }

// The descriptor is shared: closing either stream closes it for both.
void closeNative(void *info)
{
    auto s = static_cast<LUMSocketRef>(info);
    close(s->native);
    s->native = -1;
}
void __LUMReadStreamSocketClose(LUMReadStreamRef stream, void *info)
{
    closeNative(info);
    _LUMReadStreamGenericClose(stream, info);
}
void __LUMWriteStreamSocketClose(LUMWriteStreamRef stream, void *info)
{
    closeNative(info);
    _LUMWriteStreamGenericClose(stream, info);
}

const void *retainSocket(const void *info) { return LUMRetain(info); }
void releaseSocket(const void *info) { LUMRelease(info); }

} // namespace

void _LUMSocketCreateStreamPair(LUMAllocatorRef allocator, const LUMSocketSignature *signature, LUMStringRef host, UInt32 port,
                                LUMSocketNativeHandle native, LUMReadStreamRef *readStream, LUMWriteStreamRef *writeStream)
{
    LUMSocketContext none = {};
    LUMSocketRef s;
    if (signature != nullptr) {
        // Deliberately no connect, although the signature may hold an address.
        s = LUMSocketCreateWithSocketSignature(allocator, signature, 0, __LUMSocketStreamCallBack, &none);
    } else if (host != nullptr) {
        s = LUMSocketCreate(allocator, AF_INET, SOCK_STREAM, 0, 0, __LUMSocketStreamCallBack, &none);
        char hostText[kHostBytes];
        LUMStringGetCString(host, hostText, kHostBytes, kLUMStringEncodingUTF8);
        struct sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port & 0xFFFF));
        address.sin_addr.s_addr = inet_addr(hostText); // dotted decimal only: a name gives all ones
        LUMDataRef addressData = LUMDataCreate(allocator, reinterpret_cast<const UInt8 *>(&address), sizeof(address));
        LUMSocketConnectToAddress(s, addressData, 0.0); // blocking; the result is not reported
        LUMRelease(addressData);
    } else {
        s = LUMSocketCreateWithNative(allocator, native, 0, __LUMSocketStreamCallBack, &none);
    }
    if (s == nullptr) {
        if (readStream != nullptr) *readStream = nullptr;
        if (writeStream != nullptr) *writeStream = nullptr;
        return;
    }
    if (readStream != nullptr) {
        LUMReadStreamContext context = {
            0, s, retainSocket, releaseSocket, nullptr, __LUMReadStreamSocketClose, _LUMReadStreamGenericCopyError,
            _LUMReadStreamGenericCopyProperty, nullptr, _LUMReadStreamGenericGetStatus, __LUMStreamSocketHasBytesAvailable,
            _LUMReadStreamGenericOpen, __LUMStreamSocketRead, _LUMReadStreamGenericSchedule, _LUMReadStreamGenericSetClient,
            _LUMReadStreamGenericSetProperty, _LUMReadStreamGenericUnschedule,
        };
        *readStream = _LUMReadStreamCreateWithContext(allocator, &context);
    }
    if (writeStream != nullptr) {
        LUMWriteStreamContext context = {
            0, s, retainSocket, releaseSocket, nullptr, __LUMStreamSocketCanAcceptBytes, __LUMWriteStreamSocketClose,
            _LUMWriteStreamGenericCopyError, _LUMWriteStreamGenericCopyProperty, _LUMWriteStreamGenericGetStatus,
            _LUMWriteStreamGenericOpen, _LUMWriteStreamGenericSchedule, _LUMWriteStreamGenericSetClient,
            _LUMWriteStreamGenericSetProperty, _LUMWriteStreamGenericUnschedule, __LUMStreamSocketWrite,
        };
        *writeStream = _LUMWriteStreamCreateWithContext(allocator, &context);
    }
    LUMRelease(s); // the streams hold it
}
