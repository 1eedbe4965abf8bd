/* LUMBundle.cpp — the main bundle, set up from the command line.
 * Part of LumBase; MIT licence.
 *
 * The bundle is a static object owned by the constant allocator; its two
 * URLs are made at start-up and never replaced. */
#define LUM_SOURCE_FILE "src/LUMBundle"
#include "LUMPrivate.h"

#include <LumBase/LUMBundle.h>
#include <LumBase/LUMURL.h>

struct __LUMBundle {
    LUMRuntimeBase base;
    LUMURLRef executableURL;
    LUMURLRef resourcesURL;
};

namespace {

LUMTypeID __kLUMBundleTypeID = 0;
__LUMBundle __bundleMainInstance = {};

Boolean __LUMBundleInitializeInstance(LUMTypeRef) { return true; }
void __LUMBundleFinalizeInstance(LUMTypeRef) {}

constexpr LUMRuntimeClass __kLUMBundleTypeClass = {
    0, "LUMBundle", sizeof(__LUMBundle), __LUMBundleInitializeInstance, __LUMBundleFinalizeInstance, nullptr, nullptr, nullptr,
};

LUMURLRef urlForPath(const char *path, Boolean isDirectory)
{
    LUMStringRef text = LUMStringCreateWithFileSystemRepresentation(nullptr, path);
    LUMURLRef url = LUMURLCreateWithFileSystemPath(nullptr, text, kLUMURLPOSIXPathStyle, isDirectory);
    LUMRelease(text);
    return url;
}

/* file = name[.type]; rel = [sub/]file; with a localisation, loc.lproj/rel. */
LUMURLRef copyResourceURL(LUMBundleRef bundle, LUMStringRef resourceName, LUMStringRef resourceType, LUMStringRef subDirName,
                          LUMStringRef localizationName)
{
    LUMStringRef file = resourceType != nullptr ? LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("%@.%@"), resourceName, resourceType)
                                                : static_cast<LUMStringRef>(LUMRetain(resourceName));
    LUMStringRef rel = subDirName != nullptr ? LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("%@/%@"), subDirName, file)
                                             : static_cast<LUMStringRef>(LUMRetain(file));
    if (localizationName != nullptr) {
        LUMStringRef localized = LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("%@.lproj/%@"), localizationName, rel);
        LUMRelease(rel);
        rel = localized;
    }
    LUMURLRef url = LUMURLCreateWithFileSystemPathRelativeToBase(nullptr, rel, kLUMURLPOSIXPathStyle, false, bundle->resourcesURL);
    LUMRelease(rel);
    LUMRelease(file);
    return url;
}

} // namespace

LUMTypeID LUMBundleGetTypeID(void) { return lum::registerClassOnce(__kLUMBundleTypeID, __kLUMBundleTypeClass); }

Boolean _LUMBundleInitializeModule(int argc, char **argv)
{
    _LUMTypeInitializeInstance(&__bundleMainInstance, _kLUMAllocatorConstant, LUMBundleGetTypeID());
    // A program that passes no arguments still gets a bundle: the executable
    // is then taken as an unnamed file in the working directory.
    const char *processPath = (argv != nullptr && argc >= 1 && argv[0] != nullptr) ? argv[0] : "";
    const char *resourcesPath = nullptr;
    // Options come first, right after argv[0], each with its value; the first
    // other argument ends the scan, and a later option replaces an earlier.
    for (int i = 1; i < argc; i += 2) {
        if (strcmp(argv[i], "--LUMProcessPath") == 0) {
            if (i + 1 < argc) processPath = argv[i + 1];
        } else if (strcmp(argv[i], "--LUMResourcesPath") == 0) {
            if (i + 1 < argc) resourcesPath = argv[i + 1];
        } else {
            break;
        }
    }
    LUMRelease(__bundleMainInstance.executableURL);
    LUMRelease(__bundleMainInstance.resourcesURL);
    __bundleMainInstance.executableURL = urlForPath(processPath, false);
    if (resourcesPath != nullptr) {
        __bundleMainInstance.resourcesURL = urlForPath(resourcesPath, true);
    } else {
        // Resolving against the executable (not a directory) drops its name:
        // "Resources" beside the executable.
        __bundleMainInstance.resourcesURL = LUMURLCreateWithFileSystemPathRelativeToBase(
            nullptr, LUMSTR("Resources"), kLUMURLPOSIXPathStyle, true, __bundleMainInstance.executableURL);
    }
    return true;
}

LUMBundleRef LUMBundleGetMain(void)
{
    LUM_ASSERT_AT(113, _LUMTypeCheckValid(&__bundleMainInstance, LUMBundleGetTypeID()));
    return &__bundleMainInstance;
}

LUMURLRef LUMBundleCopyResourceURL(LUMBundleRef bundle, LUMStringRef resourceName, LUMStringRef resourceType, LUMStringRef subDirName)
{
    LUM_ASSERT_AT(125, _LUMTypeCheckValid(bundle, LUMBundleGetTypeID()));
    LUM_ASSERT_AT(126, _LUMTypeCheckValid(resourceName, LUMStringGetTypeID()));
    LUM_ASSERT_AT(127, ((resourceType) == NULL) || _LUMTypeCheckValid(resourceType, LUMStringGetTypeID()));
    LUM_ASSERT_AT(128, ((subDirName) == NULL) || _LUMTypeCheckValid(subDirName, LUMStringGetTypeID()));
    return copyResourceURL(bundle, resourceName, resourceType, subDirName, nullptr);
}

LUMURLRef LUMBundleCopyResourceURLForLocalization(LUMBundleRef bundle, LUMStringRef resourceName, LUMStringRef resourceType,
                                                  LUMStringRef subDirName, LUMStringRef localizationName)
{
    LUM_ASSERT_AT(154, _LUMTypeCheckValid(bundle, LUMBundleGetTypeID()));
    LUM_ASSERT_AT(155, _LUMTypeCheckValid(resourceName, LUMStringGetTypeID()));
    LUM_ASSERT_AT(156, ((resourceType) == NULL) || _LUMTypeCheckValid(resourceType, LUMStringGetTypeID()));
    LUM_ASSERT_AT(157, ((subDirName) == NULL) || _LUMTypeCheckValid(subDirName, LUMStringGetTypeID()));
    LUM_ASSERT_AT(158, ((localizationName) == NULL) || _LUMTypeCheckValid(localizationName, LUMStringGetTypeID()));
    return copyResourceURL(bundle, resourceName, resourceType, subDirName, localizationName);
}

LUMStringRef LUMBundleCopyLocalizedString(LUMBundleRef bundle, LUMStringRef key, LUMStringRef value, LUMStringRef tableName)
{
    return LUMStringCreateCopy(nullptr, value);
}
