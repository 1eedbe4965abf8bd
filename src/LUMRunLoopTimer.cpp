/* LUMRunLoopTimer.cpp — run-loop timers on the monotonic clock.
 * Part of LumBase; MIT licence.
 *
 * Invariant: nextFireTicks is when the timer is next due on the monotonic
 * clock; the run loop fires it, advances a repeating timer by whole
 * intervals past the pass's time and invalidates a one-shot timer. */
#define LUM_SOURCE_FILE "src/LUMRunLoopTimer"
#include "LUMRunLoopPrivate.h"

#include <LumBase/LUMRunLoop.h>

namespace {

LUMTypeID __kLUMRunLoopTimerTypeID = 0;

Boolean __LUMRunLoopTimerInitializeInstance(LUMTypeRef obj)
{
    auto *timer = lum::object<__LUMRunLoopTimer>(obj);
    timer->interval = 0.0;
    timer->flags = 0;
    timer->order = 0;
    timer->callBack = nullptr;
    timer->context = {};
    timer->lastFireTicks = timer->nextFireTicks = 0;
    timer->subOrder = 0;
    timer->isValid = true;
    timer->isFired = false;
    timer->runLoopModes = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    return timer->runLoopModes != nullptr;
}

// retain is never called for a timer's info, but release is: deliberate.
void __LUMRunLoopTimerFinalizeInstance(LUMTypeRef obj)
{
    auto *timer = lum::object<__LUMRunLoopTimer>(obj);
    if (timer->context.release != nullptr) timer->context.release(timer->context.info);
    LUMDictionaryRemoveAllValues(timer->runLoopModes);
    LUMRelease(timer->runLoopModes);
}

LUMStringRef __LUMRunLoopTimerCopyDescriptionInstance(LUMTypeRef obj)
{
    auto *timer = lum::object<__LUMRunLoopTimer>(obj);
    return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p LUMRunLoopTimer retainCount=%ld callBack=%p interval=%f>"), obj,
                                     static_cast<long>(LUMGetRetainCount(obj)), reinterpret_cast<void *>(timer->callBack),
                                     timer->interval);
}

constexpr LUMRuntimeClass __kLUMRunLoopTimerTypeClass = {
    0, "LUMRunLoopTimer", sizeof(__LUMRunLoopTimer), __LUMRunLoopTimerInitializeInstance,
    __LUMRunLoopTimerFinalizeInstance, nullptr, nullptr, __LUMRunLoopTimerCopyDescriptionInstance,
};

void removeFromMode(LUMRunLoopRef rl, LUMTypeRef object, LUMStringRef modeName)
{
    LUMRunLoopRemoveTimer(rl, static_cast<LUMRunLoopTimerRef>(const_cast<void *>(object)), modeName);
}

} // namespace

LUMTypeID LUMRunLoopTimerGetTypeID(void) { return lum::registerClassOnce(__kLUMRunLoopTimerTypeID, __kLUMRunLoopTimerTypeClass); }

Boolean _LUMRunLoopTimerInitializeModule(void) { return true; }

LUMRunLoopTimerRef LUMRunLoopTimerCreate(LUMAllocatorRef allocator, LUMAbsoluteTime fireDate, LUMTimeInterval interval,
                                         LUMOptionFlags flags, LUMIndex order, LUMRunLoopTimerCallBack callBack,
                                         const LUMRunLoopTimerContext *context)
{
    auto *timer = lum::object<__LUMRunLoopTimer>(_LUMTypeCreateInstance(allocator, LUMRunLoopTimerGetTypeID()));
    if (timer == nullptr) return nullptr;
    // The monotonic clock first, then the wall clock.
    timer->lastFireTicks = LUMMachTimeGetCurrent();
    timer->nextFireTicks = LUMMachTimeGetRelativeWithInterval(timer->lastFireTicks, fireDate - LUMAbsoluteTimeGetCurrent());
    timer->interval = interval;
    timer->flags = 0; // the flags argument is ignored on purpose
    timer->order = order;
    timer->callBack = callBack;
    if (context != nullptr) timer->context = *context;
    return timer;
}

void LUMRunLoopTimerSetNextFireDate(LUMRunLoopTimerRef timer, LUMAbsoluteTime fireDate)
{
    LUMAbsoluteTime wallClock = LUMAbsoluteTimeGetCurrent();
    timer->lastFireTicks = LUMMachTimeGetCurrent();
    timer->nextFireTicks = LUMMachTimeGetRelativeWithInterval(timer->lastFireTicks, fireDate - wallClock);
}

LUMAbsoluteTime LUMRunLoopTimerGetNextFireDate(LUMRunLoopTimerRef timer)
{
    return LUMAbsoluteTimeGetCurrent() + LUMMachTimeGetInterval(timer->nextFireTicks, LUMMachTimeGetCurrent());
}

LUMTimeInterval LUMRunLoopTimerGetInterval(LUMRunLoopTimerRef timer) { return timer->interval; }
Boolean LUMRunLoopTimerDoesRepeat(LUMRunLoopTimerRef timer) { return timer->interval > 0.0; }
LUMIndex LUMRunLoopTimerGetOrder(LUMRunLoopTimerRef timer) { return timer->order; }
Boolean LUMRunLoopTimerIsValid(LUMRunLoopTimerRef timer) { return timer->isValid; }
void LUMRunLoopTimerGetContext(LUMRunLoopTimerRef timer, LUMRunLoopTimerContext *context) { *context = timer->context; }

void LUMRunLoopTimerInvalidate(LUMRunLoopTimerRef timer)
{
    timer->isValid = false;
    lum::HeldObject held(timer); // leaving its last mode must not free it under us
    lum::leaveAllModes(timer->runLoopModes, timer, removeFromMode);
}

void _LUMRunLoopTimerSchedule(LUMRunLoopTimerRef timer, LUMRunLoopRef rl, LUMStringRef modeName)
{
    lum::addModeName(timer->runLoopModes, rl, modeName);
}

void _LUMRunLoopTimerCancel(LUMRunLoopTimerRef timer, LUMRunLoopRef rl, LUMStringRef modeName)
{
    lum::removeModeName(timer->runLoopModes, rl, modeName);
}

int64_t _LUMRunLoopTimerGetTicks(LUMTimeInterval seconds)
{
    // A nanosecond scale, unlike the microsecond ticks of the timers.
    return static_cast<int64_t>(seconds * 1000000000.0);
}
