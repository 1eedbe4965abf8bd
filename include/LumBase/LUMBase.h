/* LUMBase.h — LumBase's shared scalar types, object references, library
 * start-up and the three output channels.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_LUMBASE_H
#define LUMBASE_LUMBASE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define LUM_EXTERN_C_BEGIN extern "C" {
#define LUM_EXTERN_C_END }
#else
#define LUM_EXTERN_C_BEGIN
#define LUM_EXTERN_C_END
#endif

/* Every exported name carries this; the library is built with hidden
 * visibility so that nothing else leaves the shared object. */
#define LUM_EXPORT __attribute__((visibility("default")))

#if defined(__GNUC__)
#define LUM_FORMAT_CHECK(fmt, args) __attribute__((format(printf, fmt, args)))
#define LUM_NORETURN __attribute__((noreturn))
#else
#define LUM_FORMAT_CHECK(fmt, args)
#define LUM_NORETURN
#endif

LUM_EXTERN_C_BEGIN

/* Scalar types. Widths are fixed on every platform: LUMIndex is 32 bits on
 * 64-bit hosts as well. */
typedef uint8_t Boolean;
typedef uint8_t UInt8;
typedef uint32_t UInt32;
typedef uint16_t UniChar;
typedef int32_t LUMIndex;
typedef uint32_t LUMTypeID;
typedef uint32_t LUMHashCode;
typedef uint32_t LUMOptionFlags;
typedef int32_t LUMComparisonResult;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

enum { kLUMNotFound = -1 };
enum {
    kLUMCompareLessThan = -1,
    kLUMCompareEqualTo = 0,
    kLUMCompareGreaterThan = 1
};

/* A location and a length, both LUMIndex. */
typedef struct {
    LUMIndex location;
    LUMIndex length;
} LUMRange;

/* Any object: a pointer to an object header. */
typedef const void *LUMTypeRef;

/* One opaque reference type per class. The mutable variants are the same
 * objects; functions that edit require them. */
typedef const struct __LUMAllocator *LUMAllocatorRef;
typedef const struct __LUMString *LUMStringRef;
typedef struct __LUMString *LUMMutableStringRef;
typedef const struct __LUMNull *LUMNullRef;
typedef const struct __LUMBoolean *LUMBooleanRef;
typedef const struct __LUMNumber *LUMNumberRef;
typedef const struct __LUMArray *LUMArrayRef;
typedef struct __LUMArray *LUMMutableArrayRef;
typedef const struct __LUMDictionary *LUMDictionaryRef;
typedef struct __LUMDictionary *LUMMutableDictionaryRef;
typedef const struct __LUMSet *LUMSetRef;
typedef struct __LUMSet *LUMMutableSetRef;
typedef const struct __LUMData *LUMDataRef;
typedef struct __LUMData *LUMMutableDataRef;
typedef const struct __LUMDate *LUMDateRef;
typedef const struct __LUMError *LUMErrorRef;
typedef const struct __LUMURL *LUMURLRef;
typedef struct __LUMRunLoop *LUMRunLoopRef;
typedef struct __LUMRunLoopSource *LUMRunLoopSourceRef;
typedef struct __LUMRunLoopTimer *LUMRunLoopTimerRef;
typedef struct __LUMReadStream *LUMReadStreamRef;
typedef struct __LUMWriteStream *LUMWriteStreamRef;
typedef struct __LUMSocket *LUMSocketRef;
typedef const struct __LUMTimeZone *LUMTimeZoneRef;
typedef const struct __LUMLocale *LUMLocaleRef;
typedef struct __LUMDateFormatter *LUMDateFormatterRef;
typedef struct __LUMHTTPMessage *LUMHTTPMessageRef;
typedef struct __LUMAutoreleasePool *LUMAutoreleasePoolRef;
typedef struct __LUMTest *LUMTestRef;
typedef const struct __LUMBundle *LUMBundleRef;
/* A property list is any of dictionary, array, string, number, boolean, null. */
typedef LUMTypeRef LUMPropertyListRef;

/* Makes a range by value. */
LUM_EXPORT LUMRange LUMRangeMake(LUMIndex location, LUMIndex length);

/* Starts every module of the library, in a fixed order; returns false as soon
 * as one of them fails. Call it once, before anything else, with main()'s
 * arguments (the main bundle reads its options from them). */
LUM_EXPORT Boolean LUMInitialize(int argc, char **argv);

/* Does nothing: static objects live until the process ends. */
LUM_EXPORT void LUMFinalize(void);

/* Writes "<absolute time>: <message>\n" to standard error. The format is the
 * library's own (so %@ prints objects); trailing newlines of the message are
 * dropped. A negative level suppresses the message; any other level prints. */
LUM_EXPORT void LUMLog(int level, LUMStringRef format, ...);

/* Formats as LUMLog does and hands the text (cut to 1000 bytes) to syslog with
 * priority notice. A negative level suppresses the message. */
LUM_EXPORT void LUMSysLog(int level, LUMStringRef format, ...);

/* Formats and writes to standard output as it is: no time stamp, no newline. */
LUM_EXPORT void LUMPrint(LUMStringRef format, ...);

LUM_EXTERN_C_END

#endif
