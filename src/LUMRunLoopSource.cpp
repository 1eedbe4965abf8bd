/* LUMRunLoopSource.cpp — run-loop sources, and the mode bookkeeping that
 * sources and timers share.
 * Part of LumBase; MIT licence.
 *
 * Invariant: runLoopModes maps each run loop to the names of the modes of
 * that loop the source is in, one entry per scheduling, in order. */
#define LUM_SOURCE_FILE "src/LUMRunLoopSource"
#include "LUMRunLoopPrivate.h"

#include <LumBase/LUMArray.h>
#include <LumBase/LUMRunLoop.h>

namespace lum {

void addModeName(LUMMutableDictionaryRef runLoopModes, LUMRunLoopRef rl, LUMStringRef modeName)
{
    auto names = static_cast<LUMMutableArrayRef>(const_cast<void *>(LUMDictionaryGetValue(runLoopModes, rl)));
    if (names == nullptr) {
        names = LUMArrayCreateMutable(nullptr, 0, &kLUMTypeArrayCallBacks);
        LUMDictionarySetValue(runLoopModes, rl, names);
        LUMRelease(names);
    }
    LUMArrayAppendValue(names, modeName);
}

void removeModeName(LUMMutableDictionaryRef runLoopModes, LUMRunLoopRef rl, LUMStringRef modeName)
{
    auto names = static_cast<LUMMutableArrayRef>(const_cast<void *>(LUMDictionaryGetValue(runLoopModes, rl)));
    if (names == nullptr) return;
    LUMIndex at = LUMArrayGetFirstIndexOfValue(names, LUMRangeMake(0, LUMArrayGetCount(names)), modeName);
    if (at != kLUMNotFound) LUMArrayRemoveValueAtIndex(names, at);
}

void leaveAllModes(LUMMutableDictionaryRef runLoopModes, LUMTypeRef object,
                   void (*remove)(LUMRunLoopRef rl, LUMTypeRef object, LUMStringRef modeName))
{
    LUMIndex loops = LUMDictionaryGetCount(runLoopModes);
    TempBuffer<const void *, 8> keys(static_cast<size_t>(loops)), values(static_cast<size_t>(loops));
    LUMDictionaryGetKeysAndValues(runLoopModes, keys.get(), values.get());
    for (LUMIndex i = 0; i < loops; i++) {
        auto rl = static_cast<LUMRunLoopRef>(const_cast<void *>(keys.get()[i]));
        auto names = static_cast<LUMMutableArrayRef>(const_cast<void *>(values.get()[i]));
        LUMRetain(names);
        while (LUMArrayGetCount(names) > 0) {
            LUMIndex before = LUMArrayGetCount(names);
            auto last = static_cast<LUMStringRef>(LUMRetain(LUMArrayGetValueAtIndex(names, before - 1)));
            remove(rl, object, last);
            // The removal's cancel takes the name out; should the mode not
            // hold the object after all, drop the name here so this ends.
            if (LUMArrayGetCount(names) == before) LUMArrayRemoveValueAtIndex(names, before - 1);
            LUMRelease(last);
        }
        LUMRelease(names);
    }
}

} // namespace lum

namespace {

LUMTypeID __kLUMRunLoopSourceTypeID = 0;

Boolean __LUMRunLoopSourceInitializeInstance(LUMTypeRef obj)
{
    auto *source = lum::object<__LUMRunLoopSource>(obj);
    source->order = 0;
    source->context = {};
    source->subOrder = 0;
    source->isValid = true;
    source->isSignaled = false;
    source->runLoopModes = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    return source->runLoopModes != nullptr;
}

void __LUMRunLoopSourceFinalizeInstance(LUMTypeRef obj)
{
    auto *source = lum::object<__LUMRunLoopSource>(obj);
    if (source->context.release != nullptr) source->context.release(source->context.info);
    LUMDictionaryRemoveAllValues(source->runLoopModes);
    LUMRelease(source->runLoopModes);
}

constexpr LUMRuntimeClass __kLUMRunLoopSourceTypeClass = {
    0, "LUMRunLoopSource", sizeof(__LUMRunLoopSource), __LUMRunLoopSourceInitializeInstance,
    __LUMRunLoopSourceFinalizeInstance, nullptr, nullptr, nullptr,
};

void removeFromMode(LUMRunLoopRef rl, LUMTypeRef object, LUMStringRef modeName)
{
    LUMRunLoopRemoveSource(rl, static_cast<LUMRunLoopSourceRef>(const_cast<void *>(object)), modeName);
}

} // namespace

LUMTypeID LUMRunLoopSourceGetTypeID(void)
{
    return lum::registerClassOnce(__kLUMRunLoopSourceTypeID, __kLUMRunLoopSourceTypeClass);
}

Boolean _LUMRunLoopSourceInitializeModule(void) { return true; }

LUMRunLoopSourceRef LUMRunLoopSourceCreate(LUMAllocatorRef allocator, LUMIndex order, const LUMRunLoopSourceContext *context)
{
    auto *source = lum::object<__LUMRunLoopSource>(_LUMTypeCreateInstance(allocator, LUMRunLoopSourceGetTypeID()));
    if (source == nullptr) return nullptr;
    source->order = order;
    source->context = *context;
    if (context->retain != nullptr) source->context.info = const_cast<void *>(context->retain(context->info));
    return source;
}

void LUMRunLoopSourceGetContext(LUMRunLoopSourceRef source, LUMRunLoopSourceContext *context) { *context = source->context; }

LUMIndex LUMRunLoopSourceGetOrder(LUMRunLoopSourceRef source) { return source->order; }

Boolean LUMRunLoopSourceIsValid(LUMRunLoopSourceRef source) { return source->isValid; }

void LUMRunLoopSourceSignal(LUMRunLoopSourceRef source) { source->isSignaled = true; }

void LUMRunLoopSourceInvalidate(LUMRunLoopSourceRef source)
{
    source->isValid = false;
    lum::HeldObject held(source); // leaving its last mode must not free it under us
    lum::leaveAllModes(source->runLoopModes, source, removeFromMode);
}

void _LUMRunLoopSourceSchedule(LUMRunLoopSourceRef source, LUMRunLoopRef rl, LUMStringRef modeName)
{
    // Bookkeeping first, then the callback; cancelling mirrors this.
    lum::addModeName(source->runLoopModes, rl, modeName);
    if (source->context.version == 0 && source->context.schedule != nullptr) source->context.schedule(source->context.info, rl, modeName);
}

void _LUMRunLoopSourceCancel(LUMRunLoopSourceRef source, LUMRunLoopRef rl, LUMStringRef modeName)
{
    if (source->context.version == 0 && source->context.cancel != nullptr) source->context.cancel(source->context.info, rl, modeName);
    lum::removeModeName(source->runLoopModes, rl, modeName);
}

void _LUMRunLoopSourcePerform(LUMRunLoopSourceRef source)
{
    if (source->context.version == 0 && source->isValid && source->context.perform != nullptr) source->context.perform(source->context.info);
}
