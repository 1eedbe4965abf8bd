/** @file LUMError.h — error objects: a domain, a code and a dictionary of details.
 * Part of LumBase; MIT licence.
 *
 * POSIX failures use kLUMErrorDomainPOSIX with the errno value as the code.
 * Errors are immutable and compare by identity. */
#ifndef LUMBASE_LUMERROR_H
#define LUMBASE_LUMERROR_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

LUM_EXPORT extern const LUMStringRef kLUMErrorDomainPOSIX; /**< The domain of errors whose code is an errno value. */
/** @{ */
/** User-info keys; any string with the same text works as a key. */
LUM_EXPORT extern const LUMStringRef kLUMErrorLocalizedDescriptionKey;
LUM_EXPORT extern const LUMStringRef kLUMErrorLocalizedFailureReasonKey;
LUM_EXPORT extern const LUMStringRef kLUMErrorLocalizedRecoverySuggestionKey;
LUM_EXPORT extern const LUMStringRef kLUMErrorDescriptionKey;
/** @} */
/** Never read by the library: for callers that chain errors. */
LUM_EXPORT extern const LUMStringRef kLUMErrorUnderlyingErrorKey;

/** The error class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMErrorGetTypeID(void);
/** Keeps a copy of userInfo (or an empty dictionary): later changes to the
 * caller's dictionary are not seen. */
LUM_EXPORT LUMErrorRef LUMErrorCreate(LUMAllocatorRef allocator, LUMStringRef domain, LUMIndex code, LUMDictionaryRef userInfo);
/** The same from parallel arrays; keys are copied strings, values retained. */
LUM_EXPORT LUMErrorRef LUMErrorCreateWithUserInfoKeysAndValues(LUMAllocatorRef allocator, LUMStringRef domain, LUMIndex code,
                                                                const void **keys, const void **values, LUMIndex count);
/** The error's domain, lent. */
LUM_EXPORT LUMStringRef LUMErrorGetDomain(LUMErrorRef err);
/** The error's code within its domain. */
LUM_EXPORT LUMIndex LUMErrorGetCode(LUMErrorRef err);
/** A new immutable copy of the user-info dictionary, owned by the caller. */
LUM_EXPORT LUMDictionaryRef LUMErrorCopyUserInfo(LUMErrorRef err);
/** @{ */
/** NULL when the user info has no such entry. */
LUM_EXPORT LUMStringRef LUMErrorCopyFailureReason(LUMErrorRef err);
LUM_EXPORT LUMStringRef LUMErrorCopyRecoverySuggestion(LUMErrorRef err);
/** @} */
/** The localized description if there is one; else "Operation could not be
 * completed. \<reason\>" if there is a failure reason; else "Operation could
 * not be completed. \<description\> (Error \<domain\>/\<code\>)", where an absent
 * description leaves two blanks. */
LUM_EXPORT LUMStringRef LUMErrorCopyDescription(LUMErrorRef err);

LUM_EXTERN_C_END

#endif
