/* LUMBundleTest.cpp — the main bundle: resource URLs, localisation folders,
 * localised strings, and start-up scanning (also run as a separate program,
 * see bundle_probe.c).
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {

std::string Resolved(LUMURLRef url)
{
    UInt8 buffer[1024];
    if (!LUMURLGetFileSystemRepresentation(url, true, buffer, sizeof(buffer))) return "<too long>";
    return reinterpret_cast<char *>(buffer);
}

void Start(std::vector<const char *> args)
{
    _LUMBundleInitializeModule(static_cast<int>(args.size()), const_cast<char **>(args.data()));
}

} // namespace

TEST(LUMBundle, DefaultResourcesBesideTheExecutable)
{
    ChildResult result = RunInChild([] {
        Start({"/opt/app/bin/prog"});
        LUMURLRef url = LUMBundleCopyResourceURL(LUMBundleGetMain(), LUMSTR("img"), nullptr, nullptr);
        printf("%s", Resolved(url).c_str());
        LUMRelease(url);
    });
    EXPECT_EQ(result.out, "/opt/app/bin/Resources/img");
}

TEST(LUMBundle, TypeSubdirectoryAndLocalisation)
{
    ChildResult result = RunInChild([] {
        Start({"prog", "--LUMResourcesPath", "/data/res"});
        LUMBundleRef bundle = LUMBundleGetMain();
        LUMURLRef a = LUMBundleCopyResourceURL(bundle, LUMSTR("img"), LUMSTR("png"), nullptr);
        LUMURLRef b = LUMBundleCopyResourceURL(bundle, LUMSTR("img"), LUMSTR("png"), LUMSTR("sub"));
        LUMURLRef c = LUMBundleCopyResourceURLForLocalization(bundle, LUMSTR("name"), LUMSTR("type"), LUMSTR("sub"), LUMSTR("en"));
        LUMURLRef d = LUMBundleCopyResourceURLForLocalization(bundle, LUMSTR("name"), nullptr, nullptr, nullptr);
        printf("%s|%s|%s|%s", Resolved(a).c_str(), Resolved(b).c_str(), Resolved(c).c_str(), Resolved(d).c_str());
        for (LUMURLRef u : {a, b, c, d}) LUMRelease(u);
    });
    EXPECT_EQ(result.out, "/data/res/img.png|/data/res/sub/img.png|/data/res/en.lproj/sub/name.type|/data/res/name");
}

TEST(LUMBundle, ScanningStopsAtTheFirstOtherArgument)
{
    ChildResult result = RunInChild([] {
        Start({"/x/prog", "file.txt", "--LUMResourcesPath", "/data/res"});
        LUMURLRef url = LUMBundleCopyResourceURL(LUMBundleGetMain(), LUMSTR("a"), nullptr, nullptr);
        printf("%s|", Resolved(url).c_str());
        LUMRelease(url);
        Start({"/x/prog", "--LUMProcessPath"}); // the last argument, without a value
        url = LUMBundleCopyResourceURL(LUMBundleGetMain(), LUMSTR("a"), nullptr, nullptr);
        printf("%s", Resolved(url).c_str());
        LUMRelease(url);
    });
    EXPECT_EQ(result.out, "/x/Resources/a|/x/Resources/a");
}

TEST(LUMBundle, LocalizedStringIsTheDefaultValue)
{
    LUMStringRef value = LUMStringCreateWithCString(nullptr, "Hello", kLUMStringEncodingUTF8);
    LUMStringRef copy = LUMBundleCopyLocalizedString(LUMBundleGetMain(), LUMSTR("greeting"), value, LUMSTR("Table"));
    EXPECT_TRUE(LUMEqual(copy, value));
    LUMRelease(copy);
    copy = LUMBundleCopyLocalizedString(nullptr, nullptr, value, nullptr);
    EXPECT_TRUE(LUMEqual(copy, value));
    LUMRelease(copy);
    LUMRelease(value);
}

TEST(LUMBundle, MainBundleIsConstant)
{
    LUMBundleRef bundle = LUMBundleGetMain();
    EXPECT_EQ(LUMGetRetainCount(bundle), 1);
    LUMRelease(bundle);
    EXPECT_TRUE(_LUMTypeCheckValid(bundle, LUMBundleGetTypeID()));
    EXPECT_EQ(TakeText(LUMCopyDescription(bundle)), CFormat("<%p:LUMBundle retainCount=1>", static_cast<const void *>(bundle)));
}

TEST(LUMBundle, ArgumentsAreAsserted)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMBundleCopyResourceURL(LUMBundleGetMain(), nullptr, nullptr, nullptr); },
                                  "_LUMTypeCheckValid(resourceName, LUMStringGetTypeID())", "LUMBundleCopyResourceURL", "src/LUMBundle", 126));
    EXPECT_TRUE(DiesWithAssertion([] { LUMBundleCopyResourceURL(nullptr, LUMSTR("a"), nullptr, nullptr); },
                                  "_LUMTypeCheckValid(bundle, LUMBundleGetTypeID())", "LUMBundleCopyResourceURL", "src/LUMBundle", 125));
    EXPECT_TRUE(DiesWithAssertion([] { LUMBundleCopyResourceURL(LUMBundleGetMain(), LUMSTR("a"), reinterpret_cast<LUMStringRef>(kLUMNull), nullptr); },
                                  "((resourceType) == NULL) || _LUMTypeCheckValid(resourceType, LUMStringGetTypeID())",
                                  "LUMBundleCopyResourceURL", "src/LUMBundle", 127));
    EXPECT_TRUE(DiesWithAssertion([] {
        LUMBundleCopyResourceURLForLocalization(LUMBundleGetMain(), LUMSTR("a"), nullptr, nullptr, reinterpret_cast<LUMStringRef>(kLUMNull));
    }, "((localizationName) == NULL) || _LUMTypeCheckValid(localizationName, LUMStringGetTypeID())",
       "LUMBundleCopyResourceURLForLocalization", "src/LUMBundle", 158));
}
