/** @file LUMBase.h — LumBase's shared scalar types, object references, library
 * start-up and the three output channels.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMBASE_H
#define LUMBASE_LUMBASE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define LUM_EXTERN_C_BEGIN extern "C" { /**< Opens C linkage for the declarations that follow (nothing in C). */
#define LUM_EXTERN_C_END } /**< Closes what LUM_EXTERN_C_BEGIN opened. */
#else
#define LUM_EXTERN_C_BEGIN
#define LUM_EXTERN_C_END
#endif

/** Every exported name carries this; the library is built with hidden
 * visibility so that nothing else leaves the shared object. */
#define LUM_EXPORT __attribute__((visibility("default")))

#if defined(__GNUC__)
#define LUM_FORMAT_CHECK(fmt, args) __attribute__((format(printf, fmt, args))) /**< Lets the compiler check printf-style arguments: fmt and args are 1-based parameter positions. */
#define LUM_NORETURN __attribute__((noreturn)) /**< Marks a function that never returns (it ends the process). */
#else
#define LUM_FORMAT_CHECK(fmt, args)
#define LUM_NORETURN
#endif

LUM_EXTERN_C_BEGIN

/** Scalar types. Widths are fixed on every platform: LUMIndex is 32 bits on
 * 64-bit hosts as well. */
typedef uint8_t Boolean;
typedef uint8_t UInt8; /**< An unsigned byte. */
typedef uint32_t UInt32; /**< An unsigned 32-bit integer. */
typedef uint16_t UniChar; /**< One UTF-16 code unit, the unit of every string. */
typedef int32_t LUMIndex; /**< Counts, lengths and positions: 32-bit signed, also on 64-bit hosts. */
typedef uint32_t LUMTypeID; /**< The number of a registered class; 0 is no class. */
typedef uint32_t LUMHashCode; /**< The hash of an object (equal objects hash alike). */
typedef uint32_t LUMOptionFlags; /**< A set of option bits. */
typedef int32_t LUMComparisonResult; /**< -1, 0 or 1: kLUMCompareLessThan, kLUMCompareEqualTo, kLUMCompareGreaterThan. */

#ifndef TRUE
#define TRUE 1 /**< The Boolean true value. */
#endif
#ifndef FALSE
#define FALSE 0 /**< The Boolean false value. */
#endif

enum { kLUMNotFound = -1 };
enum {
    kLUMCompareLessThan = -1,
    kLUMCompareEqualTo = 0,
    kLUMCompareGreaterThan = 1
};

/** A location and a length, both LUMIndex. */
typedef struct {
    LUMIndex location; /**< The first position. */
    LUMIndex length; /**< How many positions, from location on. */
} LUMRange;

/** Any object: a pointer to an object header. */
typedef const void *LUMTypeRef;

/** One opaque reference type per class. The mutable variants are the same
 * objects; functions that edit require them. */
typedef const struct __LUMAllocator *LUMAllocatorRef;
typedef const struct __LUMString *LUMStringRef; /**< A string (immutable through this reference). */
typedef struct __LUMString *LUMMutableStringRef; /**< A mutable string. */
typedef const struct __LUMNull *LUMNullRef; /**< The null object, kLUMNull. */
typedef const struct __LUMBoolean *LUMBooleanRef; /**< One of the two Boolean objects, kLUMBooleanTrue and kLUMBooleanFalse. */
typedef const struct __LUMNumber *LUMNumberRef; /**< A number (immutable). */
typedef const struct __LUMArray *LUMArrayRef; /**< An array (immutable through this reference). */
typedef struct __LUMArray *LUMMutableArrayRef; /**< A mutable array. */
typedef const struct __LUMDictionary *LUMDictionaryRef; /**< A dictionary (immutable through this reference). */
typedef struct __LUMDictionary *LUMMutableDictionaryRef; /**< A mutable dictionary. */
typedef const struct __LUMSet *LUMSetRef; /**< A set (immutable through this reference). */
typedef struct __LUMSet *LUMMutableSetRef; /**< A mutable set. */
typedef const struct __LUMData *LUMDataRef; /**< A byte buffer (immutable through this reference). */
typedef struct __LUMData *LUMMutableDataRef; /**< A mutable byte buffer. */
typedef const struct __LUMDate *LUMDateRef; /**< An instant as an object. */
typedef const struct __LUMError *LUMErrorRef; /**< An error: domain, code and user info. */
typedef const struct __LUMURL *LUMURLRef; /**< A file URL. */
typedef struct __LUMRunLoop *LUMRunLoopRef; /**< The run loop (there is one per process). */
typedef struct __LUMRunLoopSource *LUMRunLoopSourceRef; /**< A run-loop source, signalled by some party and performed by the loop. */
typedef struct __LUMRunLoopTimer *LUMRunLoopTimerRef; /**< A run-loop timer. */
typedef struct __LUMReadStream *LUMReadStreamRef; /**< A read stream. */
typedef struct __LUMWriteStream *LUMWriteStreamRef; /**< A write stream. */
typedef struct __LUMSocket *LUMSocketRef; /**< A socket on the run loop. */
typedef const struct __LUMTimeZone *LUMTimeZoneRef; /**< A time zone from the compiled-in table. */
typedef const struct __LUMLocale *LUMLocaleRef; /**< A locale. */
typedef struct __LUMDateFormatter *LUMDateFormatterRef; /**< A date formatter. */
typedef struct __LUMHTTPMessage *LUMHTTPMessageRef; /**< An HTTP response message. */
typedef struct __LUMAutoreleasePool *LUMAutoreleasePoolRef; /**< An autorelease pool. */
typedef struct __LUMTest *LUMTestRef; /**< A test of the test harness. */
typedef const struct __LUMBundle *LUMBundleRef; /**< The main bundle. */
/** A property list is any of dictionary, array, string, number, boolean, null. */
typedef LUMTypeRef LUMPropertyListRef;

/** Makes a range by value. */
LUM_EXPORT LUMRange LUMRangeMake(LUMIndex location, LUMIndex length);

/** Starts every module of the library, in a fixed order; returns false as soon
 * as one of them fails. Call it once, before anything else, with main()'s
 * arguments (the main bundle reads its options from them). */
LUM_EXPORT Boolean LUMInitialize(int argc, char **argv);

/** Does nothing: static objects live until the process ends. */
LUM_EXPORT void LUMFinalize(void);

/** Writes "<absolute time>: <message>\n" to standard error. The format is the
 * library's own (so %@ prints objects); trailing newlines of the message are
 * dropped. A negative level suppresses the message; any other level prints. */
LUM_EXPORT void LUMLog(int level, LUMStringRef format, ...);

/** Formats as LUMLog does and hands the text (cut to 1000 bytes) to syslog with
 * priority notice. A negative level suppresses the message. */
LUM_EXPORT void LUMSysLog(int level, LUMStringRef format, ...);

/** Formats and writes to standard output as it is: no time stamp, no newline. */
LUM_EXPORT void LUMPrint(LUMStringRef format, ...);

LUM_EXTERN_C_END

#endif
