/* LUMStreamPrivate.h — the record and the generic behaviour that read and
 * write streams share, written once for both kinds.
 * Part of LumBase; MIT licence. Never installed. */
#ifndef LUMBASE_SRC_LUMSTREAMPRIVATE_H
#define LUMBASE_SRC_LUMSTREAMPRIVATE_H

#include "LUMPrivate.h"

#include <LumBase/LUMReadStream.h>
#include <LumBase/LUMRunLoop.h>
#include <LumBase/LUMRunLoopSource.h>
#include <LumBase/LUMWriteStream.h>

namespace lum {

/* A stream: its callback table, its client, an error, the status the
 * generic callbacks keep, and its run-loop source (retained). */
template <typename Context, typename ClientCallBack>
struct StreamRecord {
    LUMRuntimeBase base;
    Context context;
    LUMOptionFlags clientEvents;
    ClientCallBack clientCallBack;
    LUMStreamClientContext clientContext;
    LUMErrorRef error;
    LUMStreamStatus status;
    LUMRunLoopSourceRef runLoopSource;
};

template <typename Stream>
Boolean initializeStream(LUMTypeRef obj)
{
    auto *stream = lum::object<Stream>(obj);
    stream->context = {};
    stream->clientEvents = 0;
    stream->clientCallBack = nullptr;
    stream->clientContext = {};
    stream->error = nullptr;
    stream->status = kLUMStreamStatusNotOpen;
    stream->runLoopSource = nullptr;
    return true;
}

template <typename Stream, typename Context>
Stream *createStream(LUMAllocatorRef allocator, LUMTypeID typeID, const Context *context)
{
    auto *stream = lum::object<Stream>(_LUMTypeCreateInstance(allocator, typeID));
    if (stream == nullptr) return nullptr;
    stream->context = *context;
    if (context->retain != nullptr) stream->context.info = const_cast<void *>(context->retain(context->info));
    return stream;
}

template <typename Stream>
void dropRunLoopSource(Stream *stream)
{
    if (stream->runLoopSource == nullptr) return;
    // The field is cleared last, so that a cancel callback run by the
    // invalidation still finds the source through the stream.
    LUMRunLoopSourceInvalidate(stream->runLoopSource); // out of every mode
    LUMRelease(stream->runLoopSource);
    stream->runLoopSource = nullptr;
}

template <typename Stream>
void setRunLoopSource(Stream *stream, LUMRunLoopSourceRef source)
{
    // The present source goes first, then the new one is retained.
    LUMRelease(stream->runLoopSource);
    stream->runLoopSource = static_cast<LUMRunLoopSourceRef>(const_cast<void *>(LUMRetain(source)));
}

template <typename Stream>
void notifyClient(Stream *stream, LUMOptionFlags event)
{
    if ((event & stream->clientEvents) != 0 && stream->clientCallBack != nullptr)
        stream->clientCallBack(stream, event, stream->clientContext.info);
}

template <typename Stream>
void genericClose(Stream *stream)
{
    stream->status = kLUMStreamStatusClosed;
    dropRunLoopSource(stream);
}

/* Adds the source and signals it, so that the client hears at the next pass
 * whether the stream is ready. Without a source nothing happens. */
template <typename Stream>
void genericSchedule(Stream *stream, LUMRunLoopRef runLoop, LUMStringRef mode)
{
    if (stream->runLoopSource == nullptr) return;
    LUMRunLoopAddSource(runLoop, stream->runLoopSource, mode);
    LUMRunLoopSourceSignal(stream->runLoopSource);
}

template <typename Stream>
void genericUnschedule(Stream *stream, LUMRunLoopRef runLoop, LUMStringRef mode)
{
    if (stream->runLoopSource != nullptr) LUMRunLoopRemoveSource(runLoop, stream->runLoopSource, mode);
}

/* The present client's info is released first; a client needs events, a
 * callback and a context, else the client is cleared. */
template <typename Stream, typename ClientCallBack>
Boolean genericSetClient(Stream *stream, LUMOptionFlags events, ClientCallBack callBack, LUMStreamClientContext *clientContext)
{
    if (stream->clientContext.release != nullptr) stream->clientContext.release(stream->clientContext.info);
    if (events != 0 && callBack != nullptr && clientContext != nullptr) {
        stream->clientEvents = events;
        stream->clientCallBack = callBack;
        stream->clientContext = *clientContext;
        if (clientContext->retain != nullptr) stream->clientContext.info = const_cast<void *>(clientContext->retain(clientContext->info));
    } else {
        stream->clientEvents = 0;
        stream->clientCallBack = nullptr;
        stream->clientContext = {};
    }
    return true;
}

/* Finalisation, both kinds: the source goes, the client is removed through
 * the public set-client (so the stream's own callback releases its info),
 * then the stream's info and the error. */
template <typename Stream, typename SetClient>
void finalizeStream(Stream *stream, SetClient publicSetClient)
{
    dropRunLoopSource(stream);
    publicSetClient(stream, 0, nullptr, nullptr);
    if (stream->context.release != nullptr) stream->context.release(stream->context.info);
    LUMRelease(stream->error);
    stream->error = nullptr;
}

} // namespace lum

struct __LUMReadStream : lum::StreamRecord<LUMReadStreamContext, LUMReadStreamClientCallBack> {};
struct __LUMWriteStream : lum::StreamRecord<LUMWriteStreamContext, LUMWriteStreamClientCallBack> {};

#endif
