/** @file LUMRunLoop.h — the one run loop of the process, its modes, and the
 * dispatch of sources and timers.
 * Part of LumBase; MIT licence.
 *
 * Each pass of a run handles at most one object: of all signalled sources and
 * due timers of the mode (and of the common modes linked to it), the one with
 * the lowest order, ties broken by how many passes it has waited, a timer
 * winning a full tie. Between passes the loop waits in select, in slices of
 * at most 0.1 s, until the earliest timer, the run's deadline or socket
 * activity; signalled sources do not shorten the wait, and nothing wakes a
 * waiting loop from outside. One thread only: nothing is locked. */
#ifndef LUMBASE_LUMRUNLOOP_H
#define LUMBASE_LUMRUNLOOP_H

#include <LumBase/LUMAbsoluteTime.h>

LUM_EXTERN_C_BEGIN

typedef int32_t LUMRunLoopRunResult; /**< Why LUMRunLoopRunInMode returned: one of the kLUMRunLoopRun values. */
enum {
    kLUMRunLoopRunResultFinished = 1,      /**< no such mode, or nothing valid in it */
    kLUMRunLoopRunResultStopped = 2,       /**< LUMRunLoopStop was called */
    kLUMRunLoopRunResultTimedOut = 3,      /**< the time ran out (also when select fails) */
    kLUMRunLoopRunResultHandledObject = 4  /**< one object handled, as asked */
};

/** "__kLUMRunLoopDefaultMode__": the mode LUMRunLoopRun runs. */
LUM_EXPORT extern const LUMStringRef kLUMRunLoopDefaultMode;
/** "__kLUMRunLoopCommonModes__": objects added here run in every mode made
 * common, the default mode among them, without being copied into them. */
LUM_EXPORT extern const LUMStringRef kLUMRunLoopCommonModes;
/** A wildcard recognised by identity: add to, remove from or look in every
 * existing mode. */
LUM_EXPORT extern const LUMStringRef __kLUMRunLoopAllModes;

/** The run loop class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMRunLoopGetTypeID(void);
/** @{ */
/** Both return the one run loop; it is never freed. */
LUM_EXPORT LUMRunLoopRef LUMRunLoopGetCurrent(void);
LUM_EXPORT LUMRunLoopRef LUMRunLoopGetMain(void);
/** @} */

/** Runs the default mode in one-second slices until it has nothing valid (1)
 * or is stopped (2). */
LUM_EXPORT LUMRunLoopRunResult LUMRunLoopRun(void);
/** Runs mode for up to seconds; with returnAfterSourceHandled, returns 4 after
 * the first handled source or timer. seconds <= 0 makes exactly one pass. */
LUM_EXPORT LUMRunLoopRunResult LUMRunLoopRunInMode(LUMStringRef mode, LUMTimeInterval seconds, Boolean returnAfterSourceHandled);
/** Takes effect at the end of the current pass, not during a wait. */
LUM_EXPORT void LUMRunLoopStop(LUMRunLoopRef rl);
/** Whether the loop is in its wait (in select), true only while it waits. */
LUM_EXPORT Boolean LUMRunLoopIsWaiting(LUMRunLoopRef rl);
/** Not available: nothing can wake the loop from outside. Ends the process. */
LUM_EXPORT void LUMRunLoopWakeUp(LUMRunLoopRef rl);

/** Links mode to the common modes (creating either as needed). */
LUM_EXPORT void LUMRunLoopAddCommonMode(LUMRunLoopRef rl, LUMStringRef mode);
/** A new array of the names of all modes. */
LUM_EXPORT LUMArrayRef LUMRunLoopCopyAllModes(LUMRunLoopRef rl);

/** @{ */
/** Adding creates the mode; adding twice schedules once. Removing and
 * adding do not follow the common-modes link; Contains does. */
LUM_EXPORT void LUMRunLoopAddSource(LUMRunLoopRef rl, LUMRunLoopSourceRef source, LUMStringRef mode);
LUM_EXPORT void LUMRunLoopRemoveSource(LUMRunLoopRef rl, LUMRunLoopSourceRef source, LUMStringRef mode);
LUM_EXPORT Boolean LUMRunLoopContainsSource(LUMRunLoopRef rl, LUMRunLoopSourceRef source, LUMStringRef mode);
LUM_EXPORT void LUMRunLoopAddTimer(LUMRunLoopRef rl, LUMRunLoopTimerRef timer, LUMStringRef mode);
LUM_EXPORT void LUMRunLoopRemoveTimer(LUMRunLoopRef rl, LUMRunLoopTimerRef timer, LUMStringRef mode);
LUM_EXPORT Boolean LUMRunLoopContainsTimer(LUMRunLoopRef rl, LUMRunLoopTimerRef timer, LUMStringRef mode);
/** @} */

/** The absolute time of the earliest valid timer reachable from mode, or 0.0. */
LUM_EXPORT LUMAbsoluteTime LUMRunLoopGetNextTimerFireDate(LUMRunLoopRef rl, LUMStringRef mode);

LUM_EXTERN_C_END

#endif
