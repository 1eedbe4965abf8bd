/* LUMStream.cpp — concrete streams over memory: a read stream over caller
 * bytes, write streams into a fixed buffer and into growing data, and the
 * bound pair over a ring buffer; and the socket stream-pair creators.
 * Part of LumBase; MIT licence.
 *
 * Ring buffer invariant: size = bufferSize + 1 and one slot always stays
 * empty, so readIndex == writeIndex means empty and at most bufferSize bytes
 * are held. */
#define LUM_SOURCE_FILE "src/LUMStream"
#include "LUMStreamPrivate.h"
#include "LUMStringPrivate.h"

#include <LumBase/LUMData.h>
#include <LumBase/LUMStream.h>

LUM_CONSTANT_STRING(kLUMStreamPropertyDataWritten, "kLUMStreamPropertyDataWritten");

namespace {

/* ---- Read-from-bytes info ------------------------------------------------- */

struct ReadStreamDataInfo {
    LUMRuntimeBase base;
    LUMDataRef data;
    LUMIndex position;
};
LUMTypeID __kLUMReadStreamDataInfoTypeID = 0;

Boolean initializeDataInfo(LUMTypeRef obj)
{
    auto *info = lum::object<ReadStreamDataInfo>(obj);
    info->data = nullptr;
    info->position = 0;
    return true;
}
void finalizeDataInfo(LUMTypeRef obj) { LUMRelease(lum::object<ReadStreamDataInfo>(obj)->data); }

constexpr LUMRuntimeClass __kLUMReadStreamDataInfoTypeClass = {
    0, "LUMReadStreamDataInfo", sizeof(ReadStreamDataInfo), initializeDataInfo, finalizeDataInfo, nullptr, nullptr, nullptr,
};

LUMIndex remainingBytes(const ReadStreamDataInfo *info, LUMIndex maxLength)
{
    LUMIndex left = LUMDataGetLength(info->data) - info->position;
    return left < maxLength ? left : maxLength;
}

Boolean dataHasBytesAvailable(LUMReadStreamRef, void *info)
{
    auto *dataInfo = static_cast<ReadStreamDataInfo *>(info);
    return dataInfo->position < LUMDataGetLength(dataInfo->data);
}

LUMIndex dataRead(LUMReadStreamRef, UInt8 *buffer, LUMIndex maxLength, void *info)
{
    auto *dataInfo = static_cast<ReadStreamDataInfo *>(info);
    LUMIndex n = remainingBytes(dataInfo, maxLength);
    if (n > 0) _LUMMoveMemory(buffer, LUMDataGetBytePtr(dataInfo->data) + dataInfo->position, static_cast<size_t>(n));
    dataInfo->position += n;
    return n;
}

const UInt8 *dataGetBuffer(LUMReadStreamRef, LUMIndex maxLength, LUMIndex *numBytesRead, void *info)
{
    auto *dataInfo = static_cast<ReadStreamDataInfo *>(info);
    LUMIndex n = remainingBytes(dataInfo, maxLength);
    const UInt8 *bytes = LUMDataGetBytePtr(dataInfo->data) + dataInfo->position;
    dataInfo->position += n;
    if (numBytesRead != nullptr) *numBytesRead = n;
    return bytes;
}

// Deliberately without open, close, status, scheduling or a client.
constexpr LUMReadStreamContext __kLUMReadStreamDataContext = {
    0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, dataGetBuffer, nullptr, dataHasBytesAvailable, nullptr,
    dataRead, nullptr, nullptr, nullptr, nullptr,
};

/* ---- Fixed-buffer write info ---------------------------------------------- */

struct WriteStreamBytesInfo {
    LUMRuntimeBase base;
    UInt8 *buffer; // the caller's, not owned
    LUMIndex capacity;
    LUMIndex position;
};
LUMTypeID __kLUMWriteStreamBytesInfoTypeID = 0;
void finalizeBytesInfo(LUMTypeRef) {}
constexpr LUMRuntimeClass __kLUMWriteStreamBytesInfoTypeClass = {
    0, "LUMWriteStreamBytesInfo", sizeof(WriteStreamBytesInfo), nullptr, finalizeBytesInfo, nullptr, nullptr, nullptr,
};

Boolean bufferCanAcceptBytes(LUMWriteStreamRef, void *info)
{
    auto *bytesInfo = static_cast<WriteStreamBytesInfo *>(info);
    return bytesInfo->position < bytesInfo->capacity;
}

LUMIndex bufferWrite(LUMWriteStreamRef stream, const UInt8 *bytes, LUMIndex length, void *info)
{
    auto *bytesInfo = static_cast<WriteStreamBytesInfo *>(info);
    if (length > 0 && bytesInfo->position >= bytesInfo->capacity) {
        _LUMWriteStreamSetStatus(stream, kLUMStreamStatusAtEnd);
        return 0;
    }
    LUMIndex copied = 0;
    while (copied < length && bytesInfo->position < bytesInfo->capacity) bytesInfo->buffer[bytesInfo->position++] = bytes[copied++];
    // Full at the end of the call, also when the bytes fitted exactly.
    if (bytesInfo->position >= bytesInfo->capacity) _LUMWriteStreamSetStatus(stream, kLUMStreamStatusAtEnd);
    return copied;
}

/* ---- Allocated-buffers write stream (info is the data) --------------------- */

Boolean dataCanAcceptBytes(LUMWriteStreamRef, void *) { return true; }

LUMIndex dataWrite(LUMWriteStreamRef, const UInt8 *bytes, LUMIndex length, void *info)
{
    LUMDataAppendBytes(static_cast<LUMMutableDataRef>(info), bytes, length);
    return length;
}

LUMTypeRef dataCopyProperty(LUMWriteStreamRef, LUMStringRef name, void *info)
{
    if (!LUMEqual(name, kLUMStreamPropertyDataWritten)) return nullptr;
    return LUMDataCreateCopy(nullptr, static_cast<LUMDataRef>(info));
}

const void *retainInfo(const void *info) { return LUMRetain(info); }
void releaseInfo(const void *info) { LUMRelease(info); }

/* ---- Bound pair ------------------------------------------------------------ */

struct StreamBoundBytesInfo {
    LUMRuntimeBase base;
    UInt8 *buffer;
    LUMIndex size;
    LUMIndex readIndex;
    LUMIndex writeIndex;
    LUMRunLoopSourceRef readSource;
    LUMRunLoopSourceRef writeSource;
};
LUMTypeID __kLUMStreamBoundBytesInfoTypeID = 0;

void finalizeBoundInfo(LUMTypeRef obj)
{
    auto *info = lum::object<StreamBoundBytesInfo>(obj);
    LUMRelease(info->writeSource);
    LUMRelease(info->readSource);
    LUMAllocatorDeallocate(LUMGetAllocator(obj), info->buffer);
}

constexpr LUMRuntimeClass __kLUMStreamBoundBytesInfoTypeClass = {
    0, "__LUMStreamBoundBytesInfo", sizeof(StreamBoundBytesInfo), nullptr, finalizeBoundInfo, nullptr, nullptr, nullptr,
};

Boolean boundHasBytesAvailable(LUMReadStreamRef, void *info)
{
    auto *ring = static_cast<StreamBoundBytesInfo *>(info);
    return (ring->size + ring->writeIndex - ring->readIndex) % ring->size > 0;
}

Boolean boundCanAcceptBytes(LUMWriteStreamRef, void *info)
{
    auto *ring = static_cast<StreamBoundBytesInfo *>(info);
    return (ring->size + ring->readIndex - 1 - ring->writeIndex) % ring->size > 0;
}

LUMIndex boundRead(LUMReadStreamRef stream, UInt8 *buffer, LUMIndex maxLength, void *info)
{
    auto *ring = static_cast<StreamBoundBytesInfo *>(info);
    LUMIndex count = 0;
    while (count < maxLength && LUMReadStreamHasBytesAvailable(stream)) {
        buffer[count++] = ring->buffer[ring->readIndex];
        ring->readIndex = (ring->readIndex + 1) % ring->size;
    }
    return count;
}

LUMIndex boundWrite(LUMWriteStreamRef stream, const UInt8 *bytes, LUMIndex length, void *info)
{
    auto *ring = static_cast<StreamBoundBytesInfo *>(info);
    LUMIndex count = 0;
    while (count < length && LUMWriteStreamCanAcceptBytes(stream)) {
        ring->buffer[ring->writeIndex] = bytes[count++];
        ring->writeIndex = (ring->writeIndex + 1) % ring->size;
    }
    return count;
}

void boundReadPerform(void *info)
{
    auto stream = static_cast<LUMReadStreamRef>(info);
    if (LUMReadStreamHasBytesAvailable(stream)) _LUMReadStreamNotifyClient(stream, kLUMStreamEventHasBytesAvailable);
}

void boundWritePerform(void *info)
{
    auto stream = static_cast<LUMWriteStreamRef>(info);
    if (LUMWriteStreamCanAcceptBytes(stream)) _LUMWriteStreamNotifyClient(stream, kLUMStreamEventCanAcceptBytes);
}

/* The source is made on first scheduling; it refers to the stream without
 * retaining it. The info keeps the creating reference, the stream another. */
LUMRunLoopSourceRef makeSource(LUMTypeRef stream, void (*perform)(void *))
{
    LUMRunLoopSourceContext context = {0, const_cast<void *>(stream), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, perform};
    return LUMRunLoopSourceCreate(LUMGetAllocator(stream), 0, &context);
}

void boundReadSchedule(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef mode, void *info)
{
    auto *ring = static_cast<StreamBoundBytesInfo *>(info);
    if (_LUMReadStreamGetRunLoopSource(stream) == nullptr) {
        ring->readSource = makeSource(stream, boundReadPerform);
        _LUMReadStreamSetRunLoopSource(stream, ring->readSource);
    }
    _LUMReadStreamGenericSchedule(stream, runLoop, mode, info);
}

void boundWriteSchedule(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef mode, void *info)
{
    auto *ring = static_cast<StreamBoundBytesInfo *>(info);
    if (_LUMWriteStreamGetRunLoopSource(stream) == nullptr) {
        ring->writeSource = makeSource(stream, boundWritePerform);
        _LUMWriteStreamSetRunLoopSource(stream, ring->writeSource);
    }
    _LUMWriteStreamGenericSchedule(stream, runLoop, mode, info);
}

void dropInfoSource(LUMRunLoopSourceRef &source)
{
    if (source == nullptr) return;
    LUMRunLoopSourceInvalidate(source);
    LUMRelease(source);
    source = nullptr;
}

void boundReadClose(LUMReadStreamRef stream, void *info)
{
    dropInfoSource(static_cast<StreamBoundBytesInfo *>(info)->readSource);
    _LUMReadStreamGenericClose(stream, info);
}

void boundWriteClose(LUMWriteStreamRef stream, void *info)
{
    dropInfoSource(static_cast<StreamBoundBytesInfo *>(info)->writeSource);
    _LUMWriteStreamGenericClose(stream, info);
}

/* Write contexts start from this table of generic callbacks. */
constexpr LUMWriteStreamContext kGenericWriteContext = {
    0, nullptr, retainInfo, releaseInfo, nullptr, nullptr, _LUMWriteStreamGenericClose, _LUMWriteStreamGenericCopyError,
    _LUMWriteStreamGenericCopyProperty, _LUMWriteStreamGenericGetStatus, _LUMWriteStreamGenericOpen, _LUMWriteStreamGenericSchedule,
    _LUMWriteStreamGenericSetClient, _LUMWriteStreamGenericSetProperty, _LUMWriteStreamGenericUnschedule, nullptr,
};

constexpr LUMReadStreamContext kGenericReadContext = {
    0, nullptr, retainInfo, releaseInfo, nullptr, _LUMReadStreamGenericClose, _LUMReadStreamGenericCopyError,
    _LUMReadStreamGenericCopyProperty, nullptr, _LUMReadStreamGenericGetStatus, nullptr, _LUMReadStreamGenericOpen, nullptr,
    _LUMReadStreamGenericSchedule, _LUMReadStreamGenericSetClient, _LUMReadStreamGenericSetProperty, _LUMReadStreamGenericUnschedule,
};

} // namespace

Boolean _LUMStreamInitializeModule(void) { return true; }

LUMReadStreamRef LUMReadStreamCreateWithBytesNoCopy(LUMAllocatorRef allocator, const UInt8 *bytes, LUMIndex length,
                                                    LUMAllocatorRef bytesDeallocator)
{
    auto *info = lum::object<ReadStreamDataInfo>(_LUMTypeCreateInstance(
        allocator, lum::registerClassOnce(__kLUMReadStreamDataInfoTypeID, __kLUMReadStreamDataInfoTypeClass)));
    if (info == nullptr) return nullptr;
    info->data = LUMDataCreateWithBytesNoCopy(allocator, bytes, length, bytesDeallocator);
    // The table has no retain or release of its own. The creator's reference
    // to the info is handed to the stream instead of being dropped, and the
    // stream gives it back when it is finalised: the info lives exactly as
    // long as the stream.
    LUMReadStreamContext context = __kLUMReadStreamDataContext;
    context.info = info;
    context.release = releaseInfo;
    LUMReadStreamRef stream = _LUMReadStreamCreateWithContext(allocator, &context);
    if (stream == nullptr) LUMRelease(info);
    return stream;
}

LUMWriteStreamRef LUMWriteStreamCreateWithBuffer(LUMAllocatorRef allocator, UInt8 *buffer, LUMIndex capacity)
{
    auto *info = lum::object<WriteStreamBytesInfo>(_LUMTypeCreateInstance(
        allocator, lum::registerClassOnce(__kLUMWriteStreamBytesInfoTypeID, __kLUMWriteStreamBytesInfoTypeClass)));
    if (info == nullptr) return nullptr;
    info->buffer = buffer;
    info->capacity = capacity;
    info->position = 0;
    LUMWriteStreamContext context = kGenericWriteContext;
    context.info = info;
    context.canAcceptBytes = bufferCanAcceptBytes;
    context.write = bufferWrite;
    LUMWriteStreamRef stream = _LUMWriteStreamCreateWithContext(allocator, &context);
    LUMRelease(info);
    return stream;
}

LUMWriteStreamRef LUMWriteStreamCreateWithAllocatedBuffers(LUMAllocatorRef allocator, LUMAllocatorRef bufferAllocator)
{
    LUMMutableDataRef data = LUMDataCreateMutable(bufferAllocator, 0);
    LUMWriteStreamContext context = kGenericWriteContext;
    context.info = data;
    context.canAcceptBytes = dataCanAcceptBytes;
    context.write = dataWrite;
    context.copyProperty = dataCopyProperty;
    LUMWriteStreamRef stream = _LUMWriteStreamCreateWithContext(allocator, &context);
    LUMRelease(data);
    return stream;
}

void LUMStreamCreateBoundPair(LUMAllocatorRef allocator, LUMReadStreamRef *readStream, LUMWriteStreamRef *writeStream, LUMIndex bufferSize)
{
    auto *ring = lum::object<StreamBoundBytesInfo>(_LUMTypeCreateInstance(
        allocator, lum::registerClassOnce(__kLUMStreamBoundBytesInfoTypeID, __kLUMStreamBoundBytesInfoTypeClass)));
    if (ring == nullptr) {
        *readStream = nullptr;
        *writeStream = nullptr;
        return;
    }
    ring->size = bufferSize + 1;
    ring->buffer = static_cast<UInt8 *>(LUMAllocatorAllocate(LUMGetAllocator(ring), ring->size, 0));
    ring->readIndex = ring->writeIndex = 0;
    ring->readSource = ring->writeSource = nullptr;

    LUMReadStreamContext readContext = kGenericReadContext;
    readContext.info = ring;
    readContext.close = boundReadClose;
    readContext.hasBytesAvailable = boundHasBytesAvailable;
    readContext.read = boundRead;
    readContext.schedule = boundReadSchedule;
    *readStream = _LUMReadStreamCreateWithContext(allocator, &readContext);

    LUMWriteStreamContext writeContext = kGenericWriteContext;
    writeContext.info = ring;
    writeContext.canAcceptBytes = boundCanAcceptBytes;
    writeContext.close = boundWriteClose;
    writeContext.schedule = boundWriteSchedule;
    writeContext.write = boundWrite;
    *writeStream = _LUMWriteStreamCreateWithContext(allocator, &writeContext);
    LUMRelease(ring);
}

void LUMStreamCreatePairWithSocketToHost(LUMAllocatorRef allocator, LUMStringRef host, UInt32 port, LUMReadStreamRef *readStream,
                                         LUMWriteStreamRef *writeStream)
{
    _LUMSocketCreateStreamPair(allocator, nullptr, host, port, -1, readStream, writeStream);
}

void LUMStreamCreatePairWithSocket(LUMAllocatorRef allocator, LUMSocketNativeHandle native, LUMReadStreamRef *readStream,
                                   LUMWriteStreamRef *writeStream)
{
    _LUMSocketCreateStreamPair(allocator, nullptr, nullptr, 0, native, readStream, writeStream);
}

void LUMStreamCreatePairWithPeerSocketSignature(LUMAllocatorRef allocator, const LUMSocketSignature *signature,
                                                LUMReadStreamRef *readStream, LUMWriteStreamRef *writeStream)
{
    _LUMSocketCreateStreamPair(allocator, signature, nullptr, 0, -1, readStream, writeStream);
}
