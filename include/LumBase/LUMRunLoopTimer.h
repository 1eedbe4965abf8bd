/** @file LUMRunLoopTimer.h — timers that call a function at a date, once or at a
 * fixed interval, while their mode runs.
 * Part of LumBase; MIT licence.
 *
 * Dates are absolute times, kept on the monotonic clock: setting the wall
 * clock does not move a timer. A repeating timer that missed firings fires
 * once and keeps its phase; a one-shot timer (interval <= 0) is invalidated
 * after its callback. */
#ifndef LUMBASE_LUMRUNLOOPTIMER_H
#define LUMBASE_LUMRUNLOOPTIMER_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

typedef void (*LUMRunLoopTimerCallBack)(LUMRunLoopTimerRef timer, void *info); /**< Called by the run loop each time the timer fires, with the context's info. */

/** retain is never called; release is called at finalisation. */
typedef struct {
    LUMIndex version; /**< 0 */
    void *info; /**< the caller's data, handed to the callback */
    const void *(*retain)(const void *info); /**< never called: the timer keeps info as given */
    void (*release)(const void *info); /**< releases info when the timer goes */
    LUMStringRef (*copyDescription)(const void *info); /**< describes info */
} LUMRunLoopTimerContext;

/** The run loop timer class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMRunLoopTimerGetTypeID(void);
/** flags is ignored; context may be NULL. A fireDate in the past is due at once. */
LUM_EXPORT LUMRunLoopTimerRef LUMRunLoopTimerCreate(LUMAllocatorRef allocator, LUMAbsoluteTime fireDate, LUMTimeInterval interval,
                                                    LUMOptionFlags flags, LUMIndex order, LUMRunLoopTimerCallBack callBack,
                                                    const LUMRunLoopTimerContext *context);
/** Moves the next firing to fireDate (a date in the past is due at once). */
LUM_EXPORT void LUMRunLoopTimerSetNextFireDate(LUMRunLoopTimerRef timer, LUMAbsoluteTime fireDate);
/** When the timer fires next. */
LUM_EXPORT LUMAbsoluteTime LUMRunLoopTimerGetNextFireDate(LUMRunLoopTimerRef timer);
/** The repeat interval (0 for a one-shot timer). */
LUM_EXPORT LUMTimeInterval LUMRunLoopTimerGetInterval(LUMRunLoopTimerRef timer);
/** Whether the timer repeats (its interval is above 0). */
LUM_EXPORT Boolean LUMRunLoopTimerDoesRepeat(LUMRunLoopTimerRef timer);
/** The timer's order: lower orders are handled first. */
LUM_EXPORT LUMIndex LUMRunLoopTimerGetOrder(LUMRunLoopTimerRef timer);
/** Whether the timer has not been invalidated (a one-shot timer is invalidated once it fired). */
LUM_EXPORT Boolean LUMRunLoopTimerIsValid(LUMRunLoopTimerRef timer);
/** Copies the timer's context into context. */
LUM_EXPORT void LUMRunLoopTimerGetContext(LUMRunLoopTimerRef timer, LUMRunLoopTimerContext *context);
/** Final: the timer leaves every mode, last added first. */
LUM_EXPORT void LUMRunLoopTimerInvalidate(LUMRunLoopTimerRef timer);

LUM_EXTERN_C_END

#endif
