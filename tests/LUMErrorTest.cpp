/* LUMErrorTest.cpp — error objects and their descriptions.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {
LUMMutableDictionaryRef Info()
{
    return LUMDictionaryCreateMutable(nullptr, 0, &kLUMCopyStringDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
}
} // namespace

TEST(LUMError, KeysHoldTheirOwnNames)
{
    EXPECT_EQ(Text(kLUMErrorDomainPOSIX), "kLUMErrorDomainPOSIX");
    EXPECT_EQ(Text(kLUMErrorLocalizedDescriptionKey), "kLUMErrorLocalizedDescriptionKey");
    EXPECT_EQ(Text(kLUMErrorLocalizedFailureReasonKey), "kLUMErrorLocalizedFailureReasonKey");
    EXPECT_EQ(Text(kLUMErrorLocalizedRecoverySuggestionKey), "kLUMErrorLocalizedRecoverySuggestionKey");
    EXPECT_EQ(Text(kLUMErrorDescriptionKey), "kLUMErrorDescriptionKey");
    EXPECT_EQ(Text(kLUMErrorUnderlyingErrorKey), "kLUMErrorUnderlyingErrorKey");
}

TEST(LUMError, PlainPOSIXErrorDescription)
{
    LUMErrorRef err = LUMErrorCreate(nullptr, kLUMErrorDomainPOSIX, 2, nullptr);
    EXPECT_EQ(TakeText(LUMCopyDescription(err)), "Operation could not be completed.  (Error kLUMErrorDomainPOSIX/2)");
    EXPECT_EQ(TakeText(LUMErrorCopyDescription(err)), "Operation could not be completed.  (Error kLUMErrorDomainPOSIX/2)");
    EXPECT_EQ(LUMErrorGetCode(err), 2);
    EXPECT_EQ(LUMErrorGetDomain(err), kLUMErrorDomainPOSIX);
    EXPECT_EQ(LUMErrorCopyFailureReason(err), nullptr);
    LUMDictionaryRef info = LUMErrorCopyUserInfo(err);
    EXPECT_EQ(LUMDictionaryGetCount(info), 0);
    LUMRelease(info);
    LUMRelease(err);
}

TEST(LUMError, LocalizedDescriptionWins)
{
    LUMMutableDictionaryRef info = Info();
    LUMDictionarySetValue(info, kLUMErrorLocalizedDescriptionKey, LUMSTR("The disk is full."));
    LUMDictionarySetValue(info, kLUMErrorLocalizedFailureReasonKey, LUMSTR("No space left."));
    LUMDictionarySetValue(info, kLUMErrorLocalizedRecoverySuggestionKey, LUMSTR("Delete something."));
    LUMErrorRef err = LUMErrorCreate(nullptr, kLUMErrorDomainPOSIX, 28, info);
    EXPECT_EQ(TakeText(LUMCopyDescription(err)), "The disk is full.");
    EXPECT_EQ(TakeText(LUMErrorCopyFailureReason(err)), "No space left.");
    EXPECT_EQ(TakeText(LUMErrorCopyRecoverySuggestion(err)), "Delete something.");
    LUMRelease(err);
    LUMRelease(info);
}

TEST(LUMError, FailureReasonAloneNamesNeitherDomainNorCode)
{
    LUMMutableDictionaryRef info = Info();
    LUMDictionarySetValue(info, LUMSTR("kLUMErrorLocalizedFailureReasonKey"), LUMSTR("The peer went away."));
    LUMErrorRef err = LUMErrorCreate(nullptr, kLUMErrorDomainPOSIX, 104, info);
    EXPECT_EQ(TakeText(LUMCopyDescription(err)), "Operation could not be completed. The peer went away.");
    LUMRelease(err);
    LUMRelease(info);
}

TEST(LUMError, DescriptionKeyFillsTheGeneralForm)
{
    const void *keys[] = {kLUMErrorDescriptionKey, kLUMErrorLocalizedRecoverySuggestionKey};
    const void *values[] = {LUMSTR("bad input"), LUMSTR("never shown")};
    LUMErrorRef err = LUMErrorCreateWithUserInfoKeysAndValues(nullptr, LUMSTR("MyDomain"), -7, keys, values, 2);
    EXPECT_EQ(TakeText(LUMCopyDescription(err)), "Operation could not be completed. bad input (Error MyDomain/-7)");
    LUMRelease(err);
    LUMErrorRef noDomain = LUMErrorCreate(nullptr, nullptr, 1, nullptr);
    EXPECT_EQ(TakeText(LUMCopyDescription(noDomain)),
              "Operation could not be completed.  (Error " + CFormat("<%p>", static_cast<void *>(nullptr)) + "/1)");
    LUMRelease(noDomain);
}

TEST(LUMError, LaterChangesToTheCallersDictionaryAreNotSeen)
{
    LUMMutableDictionaryRef info = Info();
    LUMDictionarySetValue(info, kLUMErrorDescriptionKey, LUMSTR("before"));
    LUMErrorRef err = LUMErrorCreate(nullptr, kLUMErrorDomainPOSIX, 5, info);
    LUMDictionarySetValue(info, kLUMErrorDescriptionKey, LUMSTR("after"));
    LUMDictionarySetValue(info, kLUMErrorLocalizedDescriptionKey, LUMSTR("added"));
    EXPECT_EQ(TakeText(LUMCopyDescription(err)), "Operation could not be completed. before (Error kLUMErrorDomainPOSIX/5)");
    LUMDictionaryRef copy = LUMErrorCopyUserInfo(err);
    EXPECT_EQ(LUMDictionaryGetCount(copy), 1);
    LUMErrorRef same = LUMErrorCreate(nullptr, kLUMErrorDomainPOSIX, 5, info);
    EXPECT_FALSE(LUMEqual(err, same)); // identity only
    LUMRelease(same);
    LUMRelease(copy);
    LUMRelease(err);
    LUMRelease(info);
}
