/** @file LUMInternal.h — what LumBase's modules export to each other: the object
 * header and class record, class registration, assertions and fatal errors,
 * the memory helpers and each module's start function. Installed so that
 * tests and tools can use it; applications should not need it.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMINTERNAL_H
#define LUMBASE_LUMINTERNAL_H

#include <LumBase/LUMBase.h>
#include <LumBase/LUMAllocator.h>
#include <LumBase/LUMString.h>
#include <LumBase/LUMAbsoluteTime.h>
#include <LumBase/LUMReadStream.h>
#include <LumBase/LUMWriteStream.h>

#include <sys/select.h>

LUM_EXTERN_C_BEGIN

/* ---- Object header and class record -------------------------------------
 * Every object starts with this header. magic is 0x1337BABE while the object
 * is alive and 0xECC84541 once its memory went back to its allocator. A zero
 * allocator field marks a constant (statically placed) object, which retain
 * and release leave alone. */
enum {
    _kLUMRuntimeMagicAlive = 0x1337BABE,
    _kLUMRuntimeMagicDead = 0xECC84541
};

/** The header every object begins with. */
typedef struct {
    UInt32 magic; /**< _kLUMRuntimeMagicAlive while the object lives, _kLUMRuntimeMagicDead after. */
    LUMAllocatorRef allocator; /**< The allocator the object came from; NULL or _kLUMAllocatorConstant for constant objects. */
    LUMTypeID typeID; /**< The object's class. */
    int32_t retainCount; /**< References held; the object is finalized and freed when it drops to 0. */
} LUMRuntimeBase;

typedef Boolean (*LUMRuntimeInitializeCallBack)(LUMTypeRef obj); /**< Prepares a new instance after its header; false fails the creation. */
typedef void (*LUMRuntimeFinalizeCallBack)(LUMTypeRef obj); /**< Gives back what an instance holds, before its memory is freed. */
typedef Boolean (*LUMRuntimeEqualCallBack)(LUMTypeRef a, LUMTypeRef b); /**< Whether two distinct instances of the class are equal. */
typedef LUMHashCode (*LUMRuntimeHashCallBack)(LUMTypeRef obj); /**< The hash of an instance; equal instances hash alike. */
typedef LUMStringRef (*LUMRuntimeCopyDescriptionCallBack)(LUMTypeRef obj); /**< A description of an instance, owned by the caller. */

/** The class record each module registers; copied at registration. */
typedef struct {
    UInt32 version;                 /**< 0 */
    const char *className;          /**< as shown in descriptions */
    UInt32 instanceSize;            /**< bytes of one instance, header included */
    LUMRuntimeInitializeCallBack initialize;   /**< after the header is set; false fails creation */
    LUMRuntimeFinalizeCallBack finalize;       /**< when the count drops to 0 */
    LUMRuntimeEqualCallBack equal;             /**< only for distinct objects of one class */
    LUMRuntimeHashCallBack hash; /**< NULL: the object's address is its hash */
    LUMRuntimeCopyDescriptionCallBack copyDescription; /**< NULL: the generic "<address:class>" description */
} LUMRuntimeClass;

/** Appends a copy of cls to the class table and returns its new (1-based) ID. */
LUM_EXPORT LUMTypeID _LUMTypeRegisterClass(const LUMRuntimeClass *cls);
/** The record for id, or NULL for 0 and unknown IDs. */
LUM_EXPORT const LUMRuntimeClass *_LUMTypeGetClassByID(LUMTypeID id);
/** The class of a live object, or NULL for NULL and dead objects. */
LUM_EXPORT const LUMRuntimeClass *_LUMTypeGetClass(LUMTypeRef obj);
/** False for NULL and dead objects; true for id 0 (any class), else only when
 * the object's class is id. */
LUM_EXPORT Boolean _LUMTypeCheckValid(LUMTypeRef obj, LUMTypeID id);
/** A zeroed, initialised instance with retain count 1, or NULL. */
LUM_EXPORT LUMTypeRef _LUMTypeCreateInstance(LUMAllocatorRef allocator, LUMTypeID id);
/** Initialises caller memory as an object (for static objects and for
 * allocators that allocate themselves). */
LUM_EXPORT Boolean _LUMTypeInitializeInstance(LUMTypeRef memory, LUMAllocatorRef allocator, LUMTypeID id);

/* ---- Assertions, fatal errors, backtraces ------------------------------- */

/** Returns when condition is true; otherwise prints the assertion frame with
 * a backtrace on standard output and exits with status 1. */
LUM_EXPORT void _LUMAssert(const char *function, const char *file, int line, Boolean condition, const char *conditionText);
/** Prints the fatal-error frame with the message (a C printf format, cut to
 * 1000 bytes) and a backtrace, then exits with status 1. */
LUM_EXPORT LUM_NORETURN void _LUMFatal(const char *function, const char *file, int line, const char *format, ...) LUM_FORMAT_CHECK(4, 5);
/** Prints the run loop's current object and up to 32 return addresses. */
LUM_EXPORT void _LUMPrintBacktrace(void);

/* ---- Memory and C-string helpers ---------------------------------------- */

/** @{ */
/** Copies at most size - 1 bytes and always ends dst with a NUL. */
LUM_EXPORT char *_LUMCopyString(char *dst, const char *src, size_t size);
LUM_EXPORT void _LUMZeroMemory(void *p, size_t n); /**< Sets n bytes at p to zero. */
LUM_EXPORT void _LUMMoveMemory(void *dst, const void *src, size_t n); /**< Copies n bytes; the ranges may overlap. */
/** True exactly when the n bytes are equal (true for n == 0). */
LUM_EXPORT Boolean _LUMCompareMemory(const void *a, const void *b, size_t n);
/** @} */

/* ---- Allocators ---------------------------------------------------------- */

/** Owns the statically placed objects; deallocating through it halts. */
LUM_EXPORT extern const LUMAllocatorRef _kLUMAllocatorConstant;
/** @{ */
/** The C heap's operations, as the malloc allocator's callbacks. */
LUM_EXPORT void *_LUMAllocatorAllocateMalloc(UInt32 size, LUMOptionFlags hint, void *info);
LUM_EXPORT void *_LUMAllocatorReallocateMalloc(void *ptr, UInt32 newSize, LUMOptionFlags hint, void *info); /**< realloc(ptr, newSize); NULL without memory. */
LUM_EXPORT void _LUMAllocatorDeallocateMalloc(void *ptr, void *info); /**< free(ptr). */
LUM_EXPORT LUMIndex _LUMAllocatorPreferredSizeMalloc(UInt32 size, LUMOptionFlags hint, void *info); /**< size itself: the C heap has no better size to offer. */

/* ---- Strings -------------------------------------------------------------- */

enum {
    _kLUMStringBufferTypeCString = 1,     /**< NUL-terminated UTF-8 bytes */
    _kLUMStringBufferTypeUniCharString = 2 /**< array of UTF-16 units */
};
/** @} */

/** The string record, public here so that static constant strings can be
 * placed in memory the caller owns. */
struct __LUMString {
    LUMRuntimeBase base; /**< the object header */
    void *buffer; /**< the text: UTF-8 bytes or UTF-16 units, by bufferType */
    int32_t bufferType; /**< _kLUMStringBufferTypeCString or _kLUMStringBufferTypeUniCharString */
    LUMIndex length;             /**< in UTF-16 units */
    int32_t capacity;            /**< units; mutable strings only */
    LUMStringEncoding encoding;  /**< of a byte buffer; 0 for units */
    LUMAllocatorRef contentsDeallocator; /**< frees buffer when the string goes (kLUMAllocatorNull: nothing to free) */
    uint8_t isMutable; /**< nonzero for mutable strings */
};

/** Makes static memory a constant string over cStr (which must outlive it). */
LUM_EXPORT void _LUMStringInitializeConstantInstance(struct __LUMString *str, const char *cStr);

/* ---- Module start functions, called by LUMInitialize in this order ------ */

/** @{ */
/** @{ */
/** Starts one module (registers its class, places its constants); true
 * when it started. LUMInitialize calls them in the order declared here. */
LUM_EXPORT Boolean _LUMTypeInitializeModule(void);
LUM_EXPORT Boolean _LUMAbsoluteTimeInitializeModule(void);
LUM_EXPORT Boolean _LUMAllocatorInitializeModule(void);
LUM_EXPORT Boolean _LUMStringInitializeModule(void);
LUM_EXPORT Boolean _LUMNullInitializeModule(void);
LUM_EXPORT Boolean _LUMBooleanInitializeModule(void);
LUM_EXPORT Boolean _LUMNumberInitializeModule(void);
LUM_EXPORT Boolean _LUMArrayInitializeModule(void);
LUM_EXPORT Boolean _LUMDictionaryInitializeModule(void);
LUM_EXPORT Boolean _LUMDataInitializeModule(void);
/** @} */
/** Not called by LUMInitialize: pools register their class on first use. */
LUM_EXPORT Boolean _LUMAutoreleasePoolInitializeModule(void);
/** Starts the test harness module; true when it started. */
LUM_EXPORT Boolean _LUMTestInitializeModule(void);

/** @{ */
/** Starts one module (registers its class, places its constants); true
 * when it started. LUMInitialize calls them in the order declared here. */
LUM_EXPORT Boolean _LUMMachTimeInitializeModule(void);
LUM_EXPORT Boolean _LUMRunLoopInitializeModule(void);
LUM_EXPORT Boolean _LUMRunLoopSourceInitializeModule(void);
LUM_EXPORT Boolean _LUMRunLoopTimerInitializeModule(void);
LUM_EXPORT Boolean _LUMSocketInitializeModule(void);
LUM_EXPORT Boolean _LUMLocaleInitializeModule(void);
LUM_EXPORT Boolean _LUMTimeZoneInitializeModule(void);
/** @} */
/** Not called by LUMInitialize: date formatters register on first use. */
LUM_EXPORT Boolean _LUMDateFormatterInitializeModule(void);
/** @{ */
/** Not called by LUMInitialize: the HTTP modules have no start work. */
LUM_EXPORT Boolean _LUMHTTPMessageInitializeModule(void);
LUM_EXPORT Boolean _LUMHTTPStreamInitializeModule(void);
/** @} */
/** @{ */
/** Starts one module; true when it started. LUMInitialize calls them in
 * the order declared here. */
LUM_EXPORT Boolean _LUMErrorInitializeModule(void);
LUM_EXPORT Boolean _LUMStreamInitializeModule(void);
LUM_EXPORT Boolean _LUMReadStreamInitializeModule(void);
LUM_EXPORT Boolean _LUMWriteStreamInitializeModule(void);
LUM_EXPORT Boolean _LUMPropertyListInitializeModule(void);
/** @} */
/** @} */
/** The only start function that sees the command line. */
LUM_EXPORT Boolean _LUMBundleInitializeModule(int argc, char **argv);
/** Not called by LUMInitialize: builds the default property-key list of file
 * URLs; call it once before reading properties with that list. */
LUM_EXPORT Boolean _LUMURLInitializeModule(void);
/** Not called by LUMInitialize: dates register their class on first use. */
LUM_EXPORT Boolean _LUMDateInitializeModule(void);

/* ---- Clocks ---------------------------------------------------------------- */

/** (Re)anchors the monotonic clock on /proc/uptime at wall-clock time now; a
 * non-initial call also warns on standard error. */
LUM_EXPORT void _LUMMachTimeInitializeValues(LUMAbsoluteTime now, Boolean initial);

/* ---- Run loop ------------------------------------------------------------- */

/** The object the run loop is handling right now, or NULL. */
LUM_EXPORT LUMTypeRef _LUMRunLoopGetCurrentObject(void);

/** @{ */
/** Called by the run loop after a source joined a mode / before it leaves. */
LUM_EXPORT void _LUMRunLoopSourceSchedule(LUMRunLoopSourceRef source, LUMRunLoopRef rl, LUMStringRef modeName);
LUM_EXPORT void _LUMRunLoopSourceCancel(LUMRunLoopSourceRef source, LUMRunLoopRef rl, LUMStringRef modeName);
/** @} */
/** Performs a valid version 0 source. */
LUM_EXPORT void _LUMRunLoopSourcePerform(LUMRunLoopSourceRef source);
/** Called by the run loop after a timer joined a mode. */
LUM_EXPORT void _LUMRunLoopTimerSchedule(LUMRunLoopTimerRef timer, LUMRunLoopRef rl, LUMStringRef modeName);
/** Called by the run loop before a timer leaves a mode. */
LUM_EXPORT void _LUMRunLoopTimerCancel(LUMRunLoopTimerRef timer, LUMRunLoopRef rl, LUMStringRef modeName);
/** seconds in nanoseconds, truncated toward zero (unused by the timers). */
LUM_EXPORT int64_t _LUMRunLoopTimerGetTicks(LUMTimeInterval seconds);

/** What the run loop's wait hands to select: the highest descriptor and the
 * three descriptor sets, filled by the socket module. */
typedef struct {
    int32_t maxDescriptor; /**< the highest descriptor in any set, -1 for none */
    fd_set readSet; /**< sockets waiting to read (or accept) */
    fd_set writeSet; /**< sockets waiting to write (or connect) */
    fd_set exceptSet; /**< sockets watched for exceptional conditions */
} LUMSelectInfo;

/** Puts the descriptors of all valid sockets into the sets. */
LUM_EXPORT void _LUMSocketPrepareSelectInfo(LUMSelectInfo *selectInfo);
/** Marks the ready sockets and signals their run-loop sources. */
LUM_EXPORT void _LUMSocketProcessSelectInfo(LUMSelectInfo *selectInfo);
/** True when every valid socket's descriptor is below FD_SETSIZE, so that
 * select can watch them all. */
LUM_EXPORT Boolean _LUMSocketSelectCanWatchAll(void);
/** The wait for when select cannot: poll over all valid sockets for at most
 * timeoutMicroseconds, asking for what the select-info sets would hold, then
 * marking and signalling as _LUMSocketProcessSelectInfo does. Returns the
 * number of sockets marked (0 when the time ran out) or -1 when poll fails. */
LUM_EXPORT int _LUMSocketPollAndProcess(int64_t timeoutMicroseconds);

/* ---- Streams --------------------------------------------------------------- */

/** @{ */
/** A stream over a callback table (copied; info replaced by retain(info)). */
LUM_EXPORT LUMReadStreamRef _LUMReadStreamCreateWithContext(LUMAllocatorRef allocator, const LUMReadStreamContext *context);
LUM_EXPORT LUMWriteStreamRef _LUMWriteStreamCreateWithContext(LUMAllocatorRef allocator, const LUMWriteStreamContext *context);
/** @} */
/** @{ */
/** The stream's run-loop source: the old one is released, the new retained. */
LUM_EXPORT void _LUMReadStreamSetRunLoopSource(LUMReadStreamRef stream, LUMRunLoopSourceRef source);
LUM_EXPORT LUMRunLoopSourceRef _LUMReadStreamGetRunLoopSource(LUMReadStreamRef stream);
LUM_EXPORT void _LUMWriteStreamSetRunLoopSource(LUMWriteStreamRef stream, LUMRunLoopSourceRef source);
LUM_EXPORT LUMRunLoopSourceRef _LUMWriteStreamGetRunLoopSource(LUMWriteStreamRef stream);
/** @} */
/** @{ */
/** Calls the client when it asked for event. */
LUM_EXPORT void _LUMReadStreamNotifyClient(LUMReadStreamRef stream, LUMOptionFlags event);
LUM_EXPORT void _LUMWriteStreamNotifyClient(LUMWriteStreamRef stream, LUMOptionFlags event);
/** @} */

/** @{ */
/** The generic callbacks: status keeping, client registration and run-loop
 * scheduling through the stream's source. */
LUM_EXPORT Boolean _LUMReadStreamGenericOpen(LUMReadStreamRef stream, void *info);
LUM_EXPORT void _LUMReadStreamGenericClose(LUMReadStreamRef stream, void *info);
LUM_EXPORT LUMStreamStatus _LUMReadStreamGenericGetStatus(LUMReadStreamRef stream, void *info);
LUM_EXPORT LUMErrorRef _LUMReadStreamGenericCopyError(LUMReadStreamRef stream, void *info);
LUM_EXPORT LUMTypeRef _LUMReadStreamGenericCopyProperty(LUMReadStreamRef stream, LUMStringRef propertyName, void *info);
LUM_EXPORT Boolean _LUMReadStreamGenericSetProperty(LUMReadStreamRef stream, LUMStringRef propertyName, LUMTypeRef value, void *info);
LUM_EXPORT const UInt8 *_LUMReadStreamGenericGetBuffer(LUMReadStreamRef stream, LUMIndex maxBytesToRead, LUMIndex *numBytesRead, void *info);
LUM_EXPORT void _LUMReadStreamGenericSchedule(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef mode, void *info);
LUM_EXPORT void _LUMReadStreamGenericUnschedule(LUMReadStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef mode, void *info);
LUM_EXPORT Boolean _LUMReadStreamGenericSetClient(LUMReadStreamRef stream, LUMOptionFlags streamEvents,
                                                  LUMReadStreamClientCallBack clientCB,
                                                  LUMStreamClientContext *clientContext);
LUM_EXPORT Boolean _LUMWriteStreamGenericOpen(LUMWriteStreamRef stream, void *info);
LUM_EXPORT void _LUMWriteStreamGenericClose(LUMWriteStreamRef stream, void *info);
LUM_EXPORT LUMStreamStatus _LUMWriteStreamGenericGetStatus(LUMWriteStreamRef stream, void *info);
LUM_EXPORT LUMErrorRef _LUMWriteStreamGenericCopyError(LUMWriteStreamRef stream, void *info);
LUM_EXPORT LUMTypeRef _LUMWriteStreamGenericCopyProperty(LUMWriteStreamRef stream, LUMStringRef propertyName, void *info);
LUM_EXPORT Boolean _LUMWriteStreamGenericSetProperty(LUMWriteStreamRef stream, LUMStringRef propertyName, LUMTypeRef value, void *info);
LUM_EXPORT void _LUMWriteStreamGenericSchedule(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef mode, void *info);
LUM_EXPORT void _LUMWriteStreamGenericUnschedule(LUMWriteStreamRef stream, LUMRunLoopRef runLoop, LUMStringRef mode, void *info);
LUM_EXPORT Boolean _LUMWriteStreamGenericSetClient(LUMWriteStreamRef stream, LUMOptionFlags streamEvents,
                                                   LUMWriteStreamClientCallBack clientCB,
                                                   LUMStreamClientContext *clientContext);
/** @} */

/** Status of a stream, for concrete streams that keep it through the generic
 * callbacks (a fixed buffer reports "at end" this way). */
LUM_EXPORT void _LUMWriteStreamSetStatus(LUMWriteStreamRef stream, LUMStreamStatus status);

/** The socket of a socket stream pair, shared by both streams. */
LUM_EXPORT void _LUMSocketCreateStreamPair(LUMAllocatorRef allocator, const LUMSocketSignature *signature, LUMStringRef host,
                                           UInt32 port, LUMSocketNativeHandle native, LUMReadStreamRef *readStream,
                                           LUMWriteStreamRef *writeStream);

LUM_EXTERN_C_END

#endif
