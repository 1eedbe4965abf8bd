/* LUMReadStream.cpp — read streams: dispatch to the callback table, and the
 * generic callbacks.
 * Part of LumBase; MIT licence. */
#define LUM_SOURCE_FILE "src/LUMReadStream"
#include "LUMStreamPrivate.h"

namespace {

LUMTypeID __kLUMReadStreamTypeID = 0;

void __LUMReadStreamFinalizeInstance(LUMTypeRef obj)
{
    lum::finalizeStream(lum::object<__LUMReadStream>(obj), LUMReadStreamSetClient);
}

constexpr LUMRuntimeClass __kLUMReadStreamTypeClass = {
    0, "LUMReadStream", sizeof(__LUMReadStream), lum::initializeStream<__LUMReadStream>, __LUMReadStreamFinalizeInstance,
    nullptr, nullptr, nullptr,
};

} // namespace

LUMTypeID LUMReadStreamGetTypeID(void) { return lum::registerClassOnce(__kLUMReadStreamTypeID, __kLUMReadStreamTypeClass); }

Boolean _LUMReadStreamInitializeModule(void) { return true; }

LUMReadStreamRef _LUMReadStreamCreateWithContext(LUMAllocatorRef allocator, const LUMReadStreamContext *context)
{
    return lum::createStream<__LUMReadStream>(allocator, LUMReadStreamGetTypeID(), context);
}

void _LUMReadStreamSetRunLoopSource(LUMReadStreamRef stream, LUMRunLoopSourceRef source) { lum::setRunLoopSource(stream, source); }
LUMRunLoopSourceRef _LUMReadStreamGetRunLoopSource(LUMReadStreamRef stream) { return stream->runLoopSource; }
void _LUMReadStreamNotifyClient(LUMReadStreamRef stream, LUMOptionFlags event) { lum::notifyClient(stream, event); }

/* ---- Dispatch: the slot of the same name, the stream's info last --------- */

Boolean LUMReadStreamOpen(LUMReadStreamRef s) { return s->context.open ? s->context.open(s, s->context.info) : false; }
void LUMReadStreamClose(LUMReadStreamRef s)
{
    if (s->context.close) s->context.close(s, s->context.info);
}
LUMIndex LUMReadStreamRead(LUMReadStreamRef s, UInt8 *buffer, LUMIndex length)
{
    return s->context.read ? s->context.read(s, buffer, length, s->context.info) : 0;
}
const UInt8 *LUMReadStreamGetBuffer(LUMReadStreamRef s, LUMIndex maxBytesToRead, LUMIndex *numBytesRead)
{
    return s->context.getBuffer ? s->context.getBuffer(s, maxBytesToRead, numBytesRead, s->context.info) : nullptr;
}
Boolean LUMReadStreamHasBytesAvailable(LUMReadStreamRef s)
{
    return s->context.hasBytesAvailable ? s->context.hasBytesAvailable(s, s->context.info) : false;
}
LUMStreamStatus LUMReadStreamGetStatus(LUMReadStreamRef s)
{
    return s->context.getStatus ? s->context.getStatus(s, s->context.info) : kLUMStreamStatusNotOpen;
}
LUMErrorRef LUMReadStreamCopyError(LUMReadStreamRef s) { return s->context.copyError ? s->context.copyError(s, s->context.info) : nullptr; }
LUMTypeRef LUMReadStreamCopyProperty(LUMReadStreamRef s, LUMStringRef name)
{
    return s->context.copyProperty ? s->context.copyProperty(s, name, s->context.info) : nullptr;
}
Boolean LUMReadStreamSetProperty(LUMReadStreamRef s, LUMStringRef name, LUMTypeRef value)
{
    return s->context.setProperty ? s->context.setProperty(s, name, value, s->context.info) : false;
}
Boolean LUMReadStreamSetClient(LUMReadStreamRef s, LUMOptionFlags events, LUMReadStreamClientCallBack callBack,
                               LUMStreamClientContext *clientContext)
{
    return s->context.setClient ? s->context.setClient(s, events, callBack, clientContext) : false;
}
void LUMReadStreamScheduleWithRunLoop(LUMReadStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode)
{
    if (s->context.schedule) s->context.schedule(s, runLoop, mode, s->context.info);
}
void LUMReadStreamUnscheduleWithRunLoop(LUMReadStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode)
{
    if (s->context.unschedule) s->context.unschedule(s, runLoop, mode, s->context.info);
}

/* ---- Generic callbacks ----------------------------------------------------- */

Boolean _LUMReadStreamGenericOpen(LUMReadStreamRef s, void *)
{
    s->status = kLUMStreamStatusOpen; // the order of open and close is not checked
    return true;
}
void _LUMReadStreamGenericClose(LUMReadStreamRef s, void *) { lum::genericClose(s); }
LUMStreamStatus _LUMReadStreamGenericGetStatus(LUMReadStreamRef s, void *) { return s->status; }
LUMErrorRef _LUMReadStreamGenericCopyError(LUMReadStreamRef, void *)
{
    _LUMFatal("_LUMReadStreamGenericCopyError", LUM_SOURCE_FILE, 183, "NYI");
}
LUMTypeRef _LUMReadStreamGenericCopyProperty(LUMReadStreamRef, LUMStringRef, void *) { return nullptr; }
Boolean _LUMReadStreamGenericSetProperty(LUMReadStreamRef, LUMStringRef, LUMTypeRef, void *) { return false; }
const UInt8 *_LUMReadStreamGenericGetBuffer(LUMReadStreamRef, LUMIndex, LUMIndex *, void *) { return nullptr; }
void _LUMReadStreamGenericSchedule(LUMReadStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode, void *)
{
    lum::genericSchedule(s, runLoop, mode);
}
void _LUMReadStreamGenericUnschedule(LUMReadStreamRef s, LUMRunLoopRef runLoop, LUMStringRef mode, void *)
{
    lum::genericUnschedule(s, runLoop, mode);
}
Boolean _LUMReadStreamGenericSetClient(LUMReadStreamRef s, LUMOptionFlags events, LUMReadStreamClientCallBack callBack,
                                       LUMStreamClientContext *clientContext)
{
    return lum::genericSetClient(s, events, callBack, clientContext);
}
