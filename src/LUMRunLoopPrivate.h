/* LUMRunLoopPrivate.h — the records of run-loop sources and timers, shared
 * by the run loop, which reads and updates their scheduling fields, and the
 * modules that own them. Part of LumBase; MIT licence. Never installed. */
#ifndef LUMBASE_SRC_LUMRUNLOOPPRIVATE_H
#define LUMBASE_SRC_LUMRUNLOOPPRIVATE_H

#include "LUMPrivate.h"

#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMMachTime.h>
#include <LumBase/LUMRunLoopSource.h>
#include <LumBase/LUMRunLoopTimer.h>

struct __LUMRunLoopSource {
    LUMRuntimeBase base;
    LUMIndex order;
    LUMRunLoopSourceContext context;
    int32_t subOrder;   // passes spent waiting while signalled
    Boolean isValid;
    Boolean isSignaled;
    LUMMutableDictionaryRef runLoopModes; // run loop -> array of mode names
};

struct __LUMRunLoopTimer {
    LUMRuntimeBase base;
    LUMTimeInterval interval; // > 0 repeats
    LUMOptionFlags flags;
    LUMIndex order;
    LUMRunLoopTimerCallBack callBack;
    LUMRunLoopTimerContext context;
    LUMMachTime lastFireTicks;
    LUMMachTime nextFireTicks;
    int32_t subOrder;   // passes spent waiting while fired
    Boolean isValid;
    Boolean isFired;
    LUMMutableDictionaryRef runLoopModes;
};

namespace lum {

/* The bookkeeping sources and timers share: which modes of which run loop
 * they are in, one name per scheduling. */
void addModeName(LUMMutableDictionaryRef runLoopModes, LUMRunLoopRef rl, LUMStringRef modeName);
void removeModeName(LUMMutableDictionaryRef runLoopModes, LUMRunLoopRef rl, LUMStringRef modeName);
/* Calls remove(rl, object, name) with the last name of every run loop's list
 * until the lists are empty: the object leaves every mode, last added first. */
void leaveAllModes(LUMMutableDictionaryRef runLoopModes, LUMTypeRef object,
                   void (*remove)(LUMRunLoopRef rl, LUMTypeRef object, LUMStringRef modeName));

} // namespace lum

#endif
