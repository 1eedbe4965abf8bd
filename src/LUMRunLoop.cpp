/* LUMRunLoop.cpp — the one run loop: modes, the pass that handles one source
 * or timer, and the wait in select.
 * Part of LumBase; MIT licence.
 *
 * Invariants: the loop is the static __LUMRunLoopMainInstance, owned by the
 * constant allocator. modes maps a mode name to its record; a record, once
 * made, lives as long as the process (its creating reference is never given
 * up). A mode's sets retain their sources and timers. currentMode holds a
 * reference only during the wait step. __LUMRunLoopCurrentObject is the
 * object being handled, NULL between handlings. */
#define LUM_SOURCE_FILE "src/LUMRunLoop"
#include "LUMRunLoopPrivate.h"
#include "LUMStringPrivate.h"

#include <LumBase/LUMArray.h>
#include <LumBase/LUMRunLoop.h>
#include <LumBase/LUMSet.h>

#include <cmath>
#include <cstdio>
#include <sys/select.h>

struct __LUMRunLoop {
    LUMRuntimeBase base;
    Boolean isWaiting;
    Boolean stopped;
    LUMStringRef currentMode;
    LUMMutableDictionaryRef modes;
    LUMMutableSetRef commonModeSet;
};

struct __LUMRunLoopMode {
    LUMRuntimeBase base;
    LUMStringRef name;
    LUMMutableSetRef sources;
    LUMMutableSetRef timers;
    __LUMRunLoopMode *commonModes;
};

LUM_CONSTANT_STRING(kLUMRunLoopCommonModes, "__kLUMRunLoopCommonModes__");
LUM_CONSTANT_STRING(kLUMRunLoopDefaultMode, "__kLUMRunLoopDefaultMode__");
LUM_CONSTANT_STRING(__kLUMRunLoopAllModes, "__kLUMRunLoopAllModes__");

namespace {

using Mode = __LUMRunLoopMode;

LUMTypeID __kLUMRunLoopTypeID = 0;
LUMTypeID __kLUMRunLoopModeTypeID = 0;
__LUMRunLoop __LUMRunLoopMainInstance = {};
Boolean __LUMRunLoopDebug = false;
LUMTypeRef __LUMRunLoopCurrentObject = nullptr;

constexpr LUMTimeInterval kSelectSliceSeconds = 0.1;
constexpr LUMTimeInterval kSlowHandlingSeconds = 0.1;
constexpr LUMTimeInterval kRunSliceSeconds = 1.0;

void __LUMRunLoopFinalizeInstance(LUMTypeRef obj)
{
    auto *rl = lum::object<__LUMRunLoop>(obj);
    LUMSetRemoveAllValues(rl->commonModeSet);
    LUMRelease(rl->commonModeSet);
    LUMRelease(rl->modes);
}

void __LUMRunLoopModeFinalizeInstance(LUMTypeRef obj)
{
    // The commonModes link is left alone, as it was taken.
    auto *mode = lum::object<Mode>(obj);
    LUMRelease(mode->name);
    LUMSetRemoveAllValues(mode->sources);
    LUMRelease(mode->sources);
    LUMSetRemoveAllValues(mode->timers);
    LUMRelease(mode->timers);
}

constexpr LUMRuntimeClass __kLUMRunLoopTypeClass = {
    0, "LUMRunLoop", sizeof(__LUMRunLoop), nullptr, __LUMRunLoopFinalizeInstance, nullptr, nullptr, nullptr,
};
constexpr LUMRuntimeClass __kLUMRunLoopModeTypeClass = {
    0, "LUMRunLoopMode", sizeof(Mode), nullptr, __LUMRunLoopModeFinalizeInstance, nullptr, nullptr, nullptr,
};

LUMTypeID modeTypeID() { return lum::registerClassOnce(__kLUMRunLoopModeTypeID, __kLUMRunLoopModeTypeClass); }

/* Mode records belong to the process, not to whatever default allocator is
 * set when a mode first comes up, so they are made from the C heap. */
Mode *__LUMRunLoopFindMode(__LUMRunLoop *rl, LUMStringRef name, bool create)
{
    auto *mode = static_cast<Mode *>(const_cast<void *>(LUMDictionaryGetValue(rl->modes, name)));
    if (mode != nullptr || !create) return mode;
    mode = lum::object<Mode>(_LUMTypeCreateInstance(kLUMAllocatorSystemDefault, modeTypeID()));
    mode->name = LUMStringCreateCopy(kLUMAllocatorSystemDefault, name);
    mode->sources = LUMSetCreateMutable(kLUMAllocatorSystemDefault, 0, &kLUMTypeSetCallBacks);
    mode->timers = LUMSetCreateMutable(kLUMAllocatorSystemDefault, 0, &kLUMTypeSetCallBacks);
    mode->commonModes = nullptr;
    LUMDictionarySetValue(rl->modes, name, mode); // the creating reference is kept on purpose
    return mode;
}

using ModeFunction = void (*)(__LUMRunLoop *rl, Mode *mode, void *context);

void __LUMRunLoopApplyModeFunction(__LUMRunLoop *rl, LUMStringRef modeName, ModeFunction function, void *context, bool create,
                                   bool followLinks)
{
    if (modeName == __kLUMRunLoopAllModes) {
        LUMIndex count = LUMDictionaryGetCount(rl->modes);
        lum::TempBuffer<const void *, 16> keys(static_cast<size_t>(count)), values(static_cast<size_t>(count));
        LUMDictionaryGetKeysAndValues(rl->modes, keys.get(), values.get());
        for (LUMIndex i = 0; i < count; i++) function(rl, static_cast<Mode *>(const_cast<void *>(values.get()[i])), context);
        return;
    }
    Mode *mode = __LUMRunLoopFindMode(rl, modeName, create);
    if (mode == nullptr) return;
    function(rl, mode, context);
    if (!followLinks) return;
    for (Mode *linked = mode->commonModes; linked != nullptr; linked = linked->commonModes) function(rl, linked, context);
}

/* ---- Appliers over the sources and timers of a mode and its link -------- */

template <typename Object, typename Applier>
void applyToSet(__LUMRunLoop *rl, Mode *mode, LUMSetRef set, Applier &applier)
{
    // A snapshot: the set may not change under the iteration.
    LUMIndex count = LUMSetGetCount(set);
    lum::TempBuffer<const void *, 16> members(static_cast<size_t>(count));
    LUMSetGetValues(set, members.get());
    for (LUMIndex i = 0; i < count; i++) applier(static_cast<Object *>(const_cast<void *>(members.get()[i])));
}

template <typename Applier>
void __LUMRunLoopApplySourceFunction(__LUMRunLoop *rl, Mode *mode, Applier &&applier)
{
    for (; mode != nullptr; mode = mode->commonModes) applyToSet<__LUMRunLoopSource>(rl, mode, mode->sources, applier);
}

template <typename Applier>
void __LUMRunLoopApplyTimerFunction(__LUMRunLoop *rl, Mode *mode, Applier &&applier)
{
    for (; mode != nullptr; mode = mode->commonModes) applyToSet<__LUMRunLoopTimer>(rl, mode, mode->timers, applier);
}

/* Keeps the first candidate; a later one replaces it only with a strictly
 * lower order, or an equal order and a strictly greater sub-order. */
template <typename Object>
void keepBest(Object *&best, Object *candidate)
{
    if (best == nullptr || candidate->order < best->order ||
        (candidate->order == best->order && candidate->subOrder > best->subOrder))
        best = candidate;
}

__LUMRunLoopTimer *__LUMRunLoopFindValidTimerByFireDate(__LUMRunLoop *rl, Mode *mode)
{
    __LUMRunLoopTimer *earliest = nullptr;
    __LUMRunLoopApplyTimerFunction(rl, mode, [&](__LUMRunLoopTimer *timer) {
        if (timer->isValid && (earliest == nullptr || timer->nextFireTicks < earliest->nextFireTicks)) earliest = timer;
    });
    return earliest;
}

/* ---- Handling one object ------------------------------------------------- */

void __LUMRunLoopProcessOneObject(LUMTypeRef object, LUMMachTime now)
{
    __LUMRunLoopCurrentObject = object;
    LUMTypeID type = LUMGetTypeID(object);
    if (type == LUMRunLoopSourceGetTypeID()) {
        auto *source = static_cast<__LUMRunLoopSource *>(const_cast<void *>(object));
        source->subOrder = 0;
        source->isSignaled = false;
        _LUMRunLoopSourcePerform(source);
    } else if (type == LUMRunLoopTimerGetTypeID()) {
        auto *timer = static_cast<__LUMRunLoopTimer *>(const_cast<void *>(object));
        timer->subOrder = 0;
        timer->isFired = false;
        if (timer->interval > 0.0) {
            // Missed firings collapse into this one; the phase is kept.
            timer->lastFireTicks = now;
            while (timer->nextFireTicks <= now)
                timer->nextFireTicks = LUMMachTimeGetRelativeWithInterval(timer->nextFireTicks, timer->interval);
        }
        if (timer->callBack != nullptr) timer->callBack(timer, timer->context.info);
        if (!(timer->interval > 0.0)) LUMRunLoopTimerInvalidate(timer);
    } else {
        _LUMFatal("__LUMRunLoopProcessOneObject", LUM_SOURCE_FILE, 583, "Unexpected type ID");
    }
}

/* ---- A run of one mode ---------------------------------------------------- */

LUMRunLoopRunResult __LUMRunLoopRunInMode(__LUMRunLoop *rl, LUMStringRef modeName, LUMTimeInterval seconds,
                                          Boolean returnAfterSourceHandled)
{
    // 1.-2. Nothing to do without the mode or anything valid in it.
    Mode *mode = __LUMRunLoopFindMode(rl, modeName, false);
    if (mode == nullptr) return kLUMRunLoopRunResultFinished;
    bool hasValid = false;
    __LUMRunLoopApplySourceFunction(rl, mode, [&](__LUMRunLoopSource *s) { hasValid = hasValid || s->isValid; });
    __LUMRunLoopApplyTimerFunction(rl, mode, [&](__LUMRunLoopTimer *t) { hasValid = hasValid || t->isValid; });
    if (!hasValid) return kLUMRunLoopRunResultFinished;

    // 3. The deadline, on the monotonic clock.
    LUMMachTime lastNow = LUMMachTimeGetCurrent();
    LUMMachTime deadline = LUMMachTimeGetRelativeWithInterval(lastNow, seconds);

    for (;;) {
        // 4.1 The pass's time.
        LUMMachTime now = LUMMachTimeGetCurrent();

        // 4.2 Mark due timers, age what is pending, find the best of each kind.
        __LUMRunLoopApplyTimerFunction(rl, mode, [&](__LUMRunLoopTimer *t) {
            if (t->nextFireTicks <= now) t->isFired = true;
        });
        __LUMRunLoopApplySourceFunction(rl, mode, [](__LUMRunLoopSource *s) {
            if (s->isValid && s->isSignaled) s->subOrder++;
        });
        __LUMRunLoopApplyTimerFunction(rl, mode, [](__LUMRunLoopTimer *t) {
            if (t->isValid && t->isFired) t->subOrder++;
        });
        __LUMRunLoopSource *bestSource = nullptr;
        __LUMRunLoopTimer *bestTimer = nullptr;
        __LUMRunLoopApplySourceFunction(rl, mode, [&](__LUMRunLoopSource *s) {
            if (s->isValid && s->isSignaled) keepBest(bestSource, s);
        });
        __LUMRunLoopApplyTimerFunction(rl, mode, [&](__LUMRunLoopTimer *t) {
            if (t->isValid && t->isFired) keepBest(bestTimer, t);
        });

        // 4.3 Choose: the timer unless the source orders strictly first; at a
        // full tie the timer wins.
        LUMTypeRef chosen = bestSource;
        if (bestTimer != nullptr &&
            (bestSource == nullptr || bestTimer->order < bestSource->order ||
             (bestTimer->order == bestSource->order && !(bestSource->subOrder > bestTimer->subOrder))))
            chosen = bestTimer;

        if (chosen != nullptr) {
            // 4.4 Handle it; 4.5 report slow handling when debugging. Its
            // callback may take it out of every mode and so drop its last
            // reference: the hold keeps it readable until the handling is
            // over, without a reference that the callback could see.
            lum::HeldObject held(chosen);
            __LUMRunLoopProcessOneObject(chosen, now);
            if (__LUMRunLoopDebug) {
                LUMTimeInterval elapsed = LUMMachTimeGetInterval(LUMMachTimeGetCurrent(), now);
                if (elapsed >= kSlowHandlingSeconds)
                    LUMLog(5, LUMSTR("__LUMRunLoopProcessOneObject(): obj %@ took %f seconds\n"), chosen, elapsed);
            }
            // 4.6 Done with it; return after one if asked.
            __LUMRunLoopCurrentObject = nullptr;
            if (returnAfterSourceHandled) return kLUMRunLoopRunResultHandledObject;
        }

        // 4.7 A stop request ends the run at the end of a pass.
        if (rl->stopped) {
            rl->stopped = false;
            return kLUMRunLoopRunResultStopped;
        }
        // 4.8 Out of time (measured at the last wait, not at this pass).
        if (deadline <= lastNow) return kLUMRunLoopRunResultTimedOut;

        // 4.9 Wait until the earliest valid timer or the deadline.
        rl->isWaiting = true;
        rl->currentMode = static_cast<LUMStringRef>(LUMRetain(modeName));
        __LUMRunLoopTimer *earliest = __LUMRunLoopFindValidTimerByFireDate(rl, mode);
        LUMMachTime waitUntil = (earliest != nullptr && earliest->nextFireTicks < deadline) ? earliest->nextFireTicks : deadline;

        // 4.10 In select slices of at most 0.1 s; socket activity ends it.
        while (rl->isWaiting && waitUntil > lastNow) {
            lastNow = LUMMachTimeGetCurrent();
            LUMTimeInterval remaining = LUMMachTimeGetInterval(waitUntil, lastNow);
            struct timeval timeout = {0, 0};
            if (remaining >= kSelectSliceSeconds) timeout.tv_usec = 100000;
            else if (remaining >= 0) timeout.tv_usec = static_cast<suseconds_t>(floor(remaining * 1000000.0));
            int ready;
            if (_LUMSocketSelectCanWatchAll()) {
                LUMSelectInfo selectInfo;
                selectInfo.maxDescriptor = 0;
                FD_ZERO(&selectInfo.readSet);
                FD_ZERO(&selectInfo.writeSet);
                FD_ZERO(&selectInfo.exceptSet);
                _LUMSocketPrepareSelectInfo(&selectInfo);
                ready = select(selectInfo.maxDescriptor + 1, &selectInfo.readSet, &selectInfo.writeSet, &selectInfo.exceptSet, &timeout);
                if (ready > 0) _LUMSocketProcessSelectInfo(&selectInfo);
            } else {
                // A descriptor at or above FD_SETSIZE: select cannot hold it,
                // poll watches the same sockets with the same marks.
                ready = _LUMSocketPollAndProcess(timeout.tv_usec);
            }
            if (ready < 0) {
                // No clean-up on this path: the loop stays marked as waiting.
                perror("select() failed");
                return kLUMRunLoopRunResultTimedOut;
            }
            if (ready > 0) break;
        }

        // 4.11 Leave the wait; a cleared flag means the wait was ended.
        LUMRelease(rl->currentMode);
        rl->currentMode = nullptr;
        if (!rl->isWaiting) return kLUMRunLoopRunResultStopped;
        rl->isWaiting = false;

        // 4.12 Out of time, or the next pass.
        if (deadline <= lastNow) return kLUMRunLoopRunResultTimedOut;
    }
}

__LUMRunLoop *theLoop() { return &__LUMRunLoopMainInstance; }

void debugAdd(const char *what, LUMTypeRef object, LUMTypeRef detail, LUMStringRef mode)
{
    if (!__LUMRunLoopDebug) return;
    if (what[0] == 'S') LUMLog(5, LUMSTR("__LUMRunLoopAddSource(..., %@ (%@), %@) called\n"), object, detail, mode);
    else LUMLog(5, LUMSTR("__LUMRunLoopAddTimer(..., %@ (%@), %@) called\n"), object, detail, mode);
    _LUMPrintBacktrace();
}

} // namespace

LUMTypeRef _LUMRunLoopGetCurrentObject(void) { return __LUMRunLoopCurrentObject; }

LUMTypeID LUMRunLoopGetTypeID(void) { return lum::registerClassOnce(__kLUMRunLoopTypeID, __kLUMRunLoopTypeClass); }

Boolean _LUMRunLoopInitializeModule(void)
{
    __LUMRunLoopDebug = getenv("LUMRunLoopDebug") != nullptr;
    __LUMRunLoop *rl = theLoop();
    _LUMTypeInitializeInstance(rl, _kLUMAllocatorConstant, LUMRunLoopGetTypeID());
    rl->isWaiting = false;
    rl->stopped = false;
    rl->currentMode = nullptr;
    rl->modes = LUMDictionaryCreateMutable(kLUMAllocatorSystemDefault, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    rl->commonModeSet = LUMSetCreateMutable(kLUMAllocatorSystemDefault, 0, &kLUMTypeSetCallBacks);
    __LUMRunLoopFindMode(rl, kLUMRunLoopCommonModes, true);
    __LUMRunLoopFindMode(rl, kLUMRunLoopDefaultMode, true);
    LUMRunLoopAddCommonMode(rl, kLUMRunLoopDefaultMode);
    return true;
}

LUMRunLoopRef LUMRunLoopGetCurrent(void) { return theLoop(); }
LUMRunLoopRef LUMRunLoopGetMain(void) { return theLoop(); }

LUMRunLoopRunResult LUMRunLoopRunInMode(LUMStringRef mode, LUMTimeInterval seconds, Boolean returnAfterSourceHandled)
{
    theLoop()->stopped = false;
    return __LUMRunLoopRunInMode(theLoop(), mode, seconds, returnAfterSourceHandled);
}

LUMRunLoopRunResult LUMRunLoopRun(void)
{
    theLoop()->stopped = false;
    LUMRunLoopRunResult result;
    // One-second slices of the default mode, for as long as they time out.
    do {
        result = __LUMRunLoopRunInMode(theLoop(), kLUMRunLoopDefaultMode, kRunSliceSeconds, false);
    } while (result == kLUMRunLoopRunResultTimedOut);
    return result;
}

void LUMRunLoopStop(LUMRunLoopRef rl) { rl->stopped = true; }

Boolean LUMRunLoopIsWaiting(LUMRunLoopRef rl) { return rl->isWaiting; }

void LUMRunLoopWakeUp(LUMRunLoopRef rl)
{
    // There is no way to wake a waiting loop from outside; by design.
    LUM_FATAL_AT(829, "NYI");
}

void LUMRunLoopAddCommonMode(LUMRunLoopRef rl, LUMStringRef mode)
{
    Mode *named = __LUMRunLoopFindMode(rl, mode, true);
    Mode *common = __LUMRunLoopFindMode(rl, kLUMRunLoopCommonModes, true);
    named->commonModes = static_cast<Mode *>(const_cast<void *>(LUMRetain(common))); // an older link is not released
}

LUMArrayRef LUMRunLoopCopyAllModes(LUMRunLoopRef rl)
{
    LUMMutableArrayRef names = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
    LUMDictionaryApplyFunction(rl->modes, [](const void *, const void *mode, void *context) {
        LUMArrayAppendValue(static_cast<LUMMutableArrayRef>(context), static_cast<const Mode *>(mode)->name);
    }, names);
    return names;
}

namespace {

struct Membership {
    LUMTypeRef object;
    bool found;
};

void addSourceToMode(__LUMRunLoop *rl, Mode *mode, void *context)
{
    auto *source = static_cast<__LUMRunLoopSource *>(context);
    if (LUMSetContainsValue(mode->sources, source)) return;
    LUMSetAddValue(mode->sources, source);
    _LUMRunLoopSourceSchedule(source, rl, mode->name);
}

void removeSourceFromMode(__LUMRunLoop *rl, Mode *mode, void *context)
{
    auto *source = static_cast<__LUMRunLoopSource *>(context);
    if (!LUMSetContainsValue(mode->sources, source)) return;
    // Cancel first, then let the set release it: alive during the cancel.
    _LUMRunLoopSourceCancel(source, rl, mode->name);
    LUMSetRemoveValue(mode->sources, source);
}

void modeHoldsSource(__LUMRunLoop *, Mode *mode, void *context)
{
    auto *membership = static_cast<Membership *>(context);
    membership->found = membership->found || LUMSetContainsValue(mode->sources, membership->object);
}

void addTimerToMode(__LUMRunLoop *rl, Mode *mode, void *context)
{
    auto *timer = static_cast<__LUMRunLoopTimer *>(context);
    if (LUMSetContainsValue(mode->timers, timer)) return;
    LUMSetAddValue(mode->timers, timer);
    _LUMRunLoopTimerSchedule(timer, rl, mode->name);
}

void removeTimerFromMode(__LUMRunLoop *rl, Mode *mode, void *context)
{
    auto *timer = static_cast<__LUMRunLoopTimer *>(context);
    if (!LUMSetContainsValue(mode->timers, timer)) return;
    _LUMRunLoopTimerCancel(timer, rl, mode->name);
    LUMSetRemoveValue(mode->timers, timer);
}

void modeHoldsTimer(__LUMRunLoop *, Mode *mode, void *context)
{
    auto *membership = static_cast<Membership *>(context);
    membership->found = membership->found || LUMSetContainsValue(mode->timers, membership->object);
}

} // namespace

void LUMRunLoopAddSource(LUMRunLoopRef rl, LUMRunLoopSourceRef source, LUMStringRef mode)
{
    debugAdd("Source", source, source->context.info, mode);
    __LUMRunLoopApplyModeFunction(rl, mode, addSourceToMode, source, true, false);
}

void LUMRunLoopRemoveSource(LUMRunLoopRef rl, LUMRunLoopSourceRef source, LUMStringRef mode)
{
    __LUMRunLoopApplyModeFunction(rl, mode, removeSourceFromMode, source, false, false);
}

Boolean LUMRunLoopContainsSource(LUMRunLoopRef rl, LUMRunLoopSourceRef source, LUMStringRef mode)
{
    Membership membership = {source, false};
    __LUMRunLoopApplyModeFunction(rl, mode, modeHoldsSource, &membership, false, true);
    return membership.found;
}

void LUMRunLoopAddTimer(LUMRunLoopRef rl, LUMRunLoopTimerRef timer, LUMStringRef mode)
{
    debugAdd("Timer", timer, reinterpret_cast<const void *>(timer->callBack), mode);
    __LUMRunLoopApplyModeFunction(rl, mode, addTimerToMode, timer, true, false);
}

void LUMRunLoopRemoveTimer(LUMRunLoopRef rl, LUMRunLoopTimerRef timer, LUMStringRef mode)
{
    __LUMRunLoopApplyModeFunction(rl, mode, removeTimerFromMode, timer, false, false);
}

Boolean LUMRunLoopContainsTimer(LUMRunLoopRef rl, LUMRunLoopTimerRef timer, LUMStringRef mode)
{
    Membership membership = {timer, false};
    __LUMRunLoopApplyModeFunction(rl, mode, modeHoldsTimer, &membership, false, true);
    return membership.found;
}

LUMAbsoluteTime LUMRunLoopGetNextTimerFireDate(LUMRunLoopRef rl, LUMStringRef modeName)
{
    Mode *mode = __LUMRunLoopFindMode(rl, modeName, false);
    if (mode == nullptr) return 0.0;
    __LUMRunLoopTimer *earliest = __LUMRunLoopFindValidTimerByFireDate(rl, mode);
    if (earliest == nullptr) return 0.0;
    return LUMAbsoluteTimeGetCurrent() + LUMMachTimeGetInterval(earliest->nextFireTicks, LUMMachTimeGetCurrent());
}
