/** @file LUMRunLoopSource.h — run-loop sources: work that a party signals and the
 * run loop performs later, one source per pass, lowest order first.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMRUNLOOPSOURCE_H
#define LUMBASE_LUMRUNLOOPSOURCE_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** What a source does: its data and the callbacks the run loop calls. */
typedef struct {
    LUMIndex version;   /**< only version 0 gets schedule, cancel and perform calls */
    void *info;         /**< handed to every callback */
    const void *(*retain)(const void *info);   /**< once at creation; its result replaces info */
    void (*release)(const void *info);         /**< once at finalisation */
    LUMStringRef (*copyDescription)(const void *info); /**< stored only */
    Boolean (*equal)(const void *info1, const void *info2); /**< stored only */
    LUMHashCode (*hash)(const void *info);     /**< stored only */
    void (*schedule)(void *info, LUMRunLoopRef rl, LUMStringRef mode); /**< after joining a mode */
    void (*cancel)(void *info, LUMRunLoopRef rl, LUMStringRef mode);   /**< before leaving a mode */
    void (*perform)(void *info);               /**< the work */
} LUMRunLoopSourceContext;

/** The run loop source class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMRunLoopSourceGetTypeID(void);
/** context must not be NULL. */
LUM_EXPORT LUMRunLoopSourceRef LUMRunLoopSourceCreate(LUMAllocatorRef allocator, LUMIndex order, const LUMRunLoopSourceContext *context);
/** Copies the source's context (with the info retain returned) into context. */
LUM_EXPORT void LUMRunLoopSourceGetContext(LUMRunLoopSourceRef source, LUMRunLoopSourceContext *context);
/** The source's order: lower orders are handled first. */
LUM_EXPORT LUMIndex LUMRunLoopSourceGetOrder(LUMRunLoopSourceRef source);
/** Whether the source has not been invalidated. */
LUM_EXPORT Boolean LUMRunLoopSourceIsValid(LUMRunLoopSourceRef source);
/** Marks the source pending; the run loop sees it at its next pass. */
LUM_EXPORT void LUMRunLoopSourceSignal(LUMRunLoopSourceRef source);
/** Final: the source leaves every mode it is in, last scheduled first. */
LUM_EXPORT void LUMRunLoopSourceInvalidate(LUMRunLoopSourceRef source);

LUM_EXTERN_C_END

#endif
