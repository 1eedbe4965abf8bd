/* LUMWriteStream.cpp — write streams: dispatch to the callback table, and the
 * generic callbacks.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMWriteStream"
#include "LUMStreamPrivate.h"

namespace {

LUMTypeID __kLUMWriteStreamTypeID = 0;

void __LUMWriteStreamFinalizeInstance(LUMTypeRef obj)
{
    lum::finalizeStream(lum::object<__LUMWriteStream>(obj), LUMWriteStreamSetClient);
}

constexpr LUMRuntimeClass __kLUMWriteStreamTypeClass = {
    0, "LUMWriteStream", sizeof(__LUMWriteStream), lum::initializeStream<__LUMWriteStream>, __LUMWriteStreamFinalizeInstance,
    nullptr, nullptr, nullptr,
};

} // namespace

LUMTypeID LUMWriteStreamGetTypeID(void) { return lum::registerClassOnce(__kLUMWriteStreamTypeID, __kLUMWriteStreamTypeClass); }

Boolean _LUMWriteStreamInitializeModule(void) { return true; }

LUMWriteStreamRef _LUMWriteStreamCreateWithContext(LUMAllocatorRef allocator, const LUMWriteStreamContext *context)
{
    return lum::createStream<__LUMWriteStream>(allocator, LUMWriteStreamGetTypeID(), context);
}

void _LUMWriteStreamSetRunLoopSource(LUMWriteStreamRef stream, LUMRunLoopSourceRef source) { lum::setRunLoopSource(stream, source); }
LUMRunLoopSourceRef _LUMWriteStreamGetRunLoopSource(LUMWriteStreamRef stream) { return stream->runLoopSource; }
void _LUMWriteStreamNotifyClient(LUMWriteStreamRef stream, LUMOptionFlags event) { lum::notifyClient(stream, event); }

/* ---- Dispatch: the slot of the same name, the stream's info last --------- */

Boolean LUMWriteStreamOpen(LUMWriteStreamRef s) { return s->context.open ? s->context.open(s, s->context.info) : false; }
void LUMWriteStreamClose(LUMWriteStreamRef s)
{
    if (s->context.close) s->context.close(s, s->context.info);
}
LUMIndex LUMWriteStreamWrite(LUMWriteStreamRef s, const UInt8 *buffer, LUMIndex length)
{
    return s->context.write ? s->context.write(s, buffer, length, s->context.info) : 0;
}
Boolean LUMWriteStreamCanAcceptBytes(LUMWriteStreamRef s)
{
    return s->context.canAcceptBytes ? s->context.canAcceptBytes(s, s->context.info) : false;
}
LUMStreamStatus LUMWriteStreamGetStatus(LUMWriteStreamRef s)
{
    return s->context.getStatus ? s->context.getStatus(s, s->context.info) : kLUMStreamStatusNotOpen;
}
LUMErrorRef LUMWriteStreamCopyError(LUMWriteStreamRef s) { return s->context.copyError ? s->context.copyError(s, s->context.info) : nullptr; }
LUMTypeRef LUMWriteStreamCopyProperty(LUMWriteStreamRef s, LUMStringRef name)
{
    return s->context.copyProperty ? s->context.copyProperty(s, name, s->context.info) : nullptr;
}
Boolean LUMWriteStreamSetProperty(LUMWriteStreamRef s, LUMStringRef name, LUMTypeRef value)
{
    return s->context.setProperty ? s->context.setProperty(s, name, value, s->context.info) : false;
}
Boolean LUMWriteStreamSetClient(LUMWriteStreamRef s, LUMOptionFlags events, LUMWriteStreamClientCallBack callBack,
                               LUMStreamClientContext *clientContext)
{
    return s->context.setClient ? s->context.setClient(s, events, callBack, clientContext) : false;
}
void LUMWriteStreamScheduleWithRunLoop(LUMWriteStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode)
{
    if (s->context.schedule) s->context.schedule(s, runLoop, mode, s->context.info);
}
void LUMWriteStreamUnscheduleWithRunLoop(LUMWriteStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode)
{
    if (s->context.unschedule) s->context.unschedule(s, runLoop, mode, s->context.info);
}

/* ---- Generic callbacks ----------------------------------------------------- */

Boolean _LUMWriteStreamGenericOpen(LUMWriteStreamRef s, void *)
{
    s->status = kLUMStreamStatusOpen; // the order of open and close is not checked
    return true;
}
void _LUMWriteStreamGenericClose(LUMWriteStreamRef s, void *) { lum::genericClose(s); }
LUMStreamStatus _LUMWriteStreamGenericGetStatus(LUMWriteStreamRef s, void *) { return s->status; }
LUMErrorRef _LUMWriteStreamGenericCopyError(LUMWriteStreamRef, void *)
{
    _LUMFatal("_LUMWriteStreamGenericCopyError", LUM_SOURCE_FILE, 206, "NYI");
}
LUMTypeRef _LUMWriteStreamGenericCopyProperty(LUMWriteStreamRef, LUMStringRef, void *) { return nullptr; }
Boolean _LUMWriteStreamGenericSetProperty(LUMWriteStreamRef, LUMStringRef, LUMTypeRef, void *) { return false; }
void _LUMWriteStreamSetStatus(LUMWriteStreamRef s, LUMStreamStatus status) { s->status = status; }
void _LUMWriteStreamGenericSchedule(LUMWriteStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode, void *)
{
    lum::genericSchedule(s, runLoop, mode);
}
void _LUMWriteStreamGenericUnschedule(LUMWriteStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode, void *)
{
    lum::genericUnschedule(s, runLoop, mode);
}
Boolean _LUMWriteStreamGenericSetClient(LUMWriteStreamRef s, LUMOptionFlags events, LUMWriteStreamClientCallBack callBack,
                                       LUMStreamClientContext *clientContext)
{
    return lum::genericSetClient(s, events, callBack, clientContext);
}
