/* LUMError.cpp — error objects.
 * Part of LumBase; MIT licence.
 *
 * Invariant: userInfo is never NULL once an error is created. */
#define LUM_SOURCE_FILE "src/LUMError"
#include "LUMStringPrivate.h"

#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMError.h>

struct __LUMError {
    LUMRuntimeBase base;
    LUMStringRef domain;
    LUMIndex code;
    LUMDictionaryRef userInfo;
};

LUM_CONSTANT_STRING(kLUMErrorDomainPOSIX, "kLUMErrorDomainPOSIX");
LUM_CONSTANT_STRING(kLUMErrorLocalizedDescriptionKey, "kLUMErrorLocalizedDescriptionKey");
LUM_CONSTANT_STRING(kLUMErrorLocalizedFailureReasonKey, "kLUMErrorLocalizedFailureReasonKey");
LUM_CONSTANT_STRING(kLUMErrorLocalizedRecoverySuggestionKey, "kLUMErrorLocalizedRecoverySuggestionKey");
LUM_CONSTANT_STRING(kLUMErrorDescriptionKey, "kLUMErrorDescriptionKey");
LUM_CONSTANT_STRING(kLUMErrorUnderlyingErrorKey, "kLUMErrorUnderlyingErrorKey");

namespace {

LUMTypeID __kLUMErrorTypeID = 0;

Boolean __LUMErrorInitializeInstance(LUMTypeRef obj)
{
    auto *err = lum::object<__LUMError>(obj);
    err->domain = nullptr;
    err->code = 0;
    err->userInfo = nullptr;
    return true;
}

void __LUMErrorFinalizeInstance(LUMTypeRef obj)
{
    auto *err = lum::object<__LUMError>(obj);
    LUMRelease(err->userInfo);
    LUMRelease(err->domain);
}

LUMStringRef copyEntry(LUMErrorRef err, LUMStringRef key)
{
    auto value = static_cast<LUMStringRef>(LUMDictionaryGetValue(err->userInfo, key));
    return value != nullptr ? LUMStringCreateCopy(nullptr, value) : nullptr;
}

LUMStringRef __LUMErrorCopyDescription(LUMTypeRef obj)
{
    auto err = static_cast<LUMErrorRef>(obj);
    LUMStringRef localized = copyEntry(err, kLUMErrorLocalizedDescriptionKey);
    if (localized != nullptr) return localized;
    auto reason = static_cast<LUMStringRef>(LUMDictionaryGetValue(err->userInfo, kLUMErrorLocalizedFailureReasonKey));
    if (reason != nullptr) return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("Operation could not be completed. %@"), reason);
    auto text = static_cast<LUMStringRef>(LUMDictionaryGetValue(err->userInfo, kLUMErrorDescriptionKey));
    // An absent description still gets its separating blank: two in a row.
    return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("Operation could not be completed. %@ (Error %@/%ld)"),
                                     text != nullptr ? text : LUMSTR(""), err->domain, static_cast<long>(err->code));
}

constexpr LUMRuntimeClass __kLUMErrorTypeClass = {
    0, "LUMError", sizeof(__LUMError), __LUMErrorInitializeInstance, __LUMErrorFinalizeInstance, nullptr, nullptr,
    __LUMErrorCopyDescription,
};

__LUMError *createError(LUMAllocatorRef allocator, LUMStringRef domain, LUMIndex code)
{
    auto *err = lum::object<__LUMError>(_LUMTypeCreateInstance(allocator, LUMErrorGetTypeID()));
    if (err == nullptr) return nullptr;
    err->domain = static_cast<LUMStringRef>(LUMRetain(domain));
    err->code = code;
    return err;
}

} // namespace

LUMTypeID LUMErrorGetTypeID(void) { return lum::registerClassOnce(__kLUMErrorTypeID, __kLUMErrorTypeClass); }

Boolean _LUMErrorInitializeModule(void) { return true; }

LUMErrorRef LUMErrorCreate(LUMAllocatorRef allocator, LUMStringRef domain, LUMIndex code, LUMDictionaryRef userInfo)
{
    __LUMError *err = createError(allocator, domain, code);
    if (err == nullptr) return nullptr;
    err->userInfo = userInfo != nullptr ? LUMDictionaryCreateCopy(allocator, userInfo)
                                        : LUMDictionaryCreate(allocator, nullptr, nullptr, 0, nullptr, nullptr);
    return err;
}

LUMErrorRef LUMErrorCreateWithUserInfoKeysAndValues(LUMAllocatorRef allocator, LUMStringRef domain, LUMIndex code,
                                                     const void **keys, const void **values, LUMIndex count)
{
    __LUMError *err = createError(allocator, domain, code);
    if (err == nullptr) return nullptr;
    err->userInfo = LUMDictionaryCreate(allocator, keys, values, count, &kLUMCopyStringDictionaryKeyCallBacks,
                                        &kLUMTypeDictionaryValueCallBacks);
    return err;
}

LUMStringRef LUMErrorGetDomain(LUMErrorRef err) { return err->domain; }
LUMIndex LUMErrorGetCode(LUMErrorRef err) { return err->code; }
LUMDictionaryRef LUMErrorCopyUserInfo(LUMErrorRef err) { return LUMDictionaryCreateCopy(nullptr, err->userInfo); }
LUMStringRef LUMErrorCopyFailureReason(LUMErrorRef err) { return copyEntry(err, kLUMErrorLocalizedFailureReasonKey); }
LUMStringRef LUMErrorCopyRecoverySuggestion(LUMErrorRef err) { return copyEntry(err, kLUMErrorLocalizedRecoverySuggestionKey); }
LUMStringRef LUMErrorCopyDescription(LUMErrorRef err) { return __LUMErrorCopyDescription(err); }
