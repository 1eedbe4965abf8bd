/** @file LUMBundle.h — the main bundle: where the executable and its resources are.
 * Part of LumBase; MIT licence.
 *
 * Set up by LUMInitialize from the command line: "--LUMProcessPath <path>"
 * and "--LUMResourcesPath <path>" right after argv[0], in any order; the
 * first other argument ends the scan. The resources directory defaults to
 * "Resources" beside the executable. Lookups only build URLs; they never
 * check that a file exists. */
#ifndef LUMBASE_LUMBUNDLE_H
#define LUMBASE_LUMBUNDLE_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

/** The bundle class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMBundleGetTypeID(void);
/** The main bundle, not retained. */
LUM_EXPORT LUMBundleRef LUMBundleGetMain(void);
/** resources/[subDirName/]resourceName[.resourceType]; type and directory
 * may be NULL. */
LUM_EXPORT LUMURLRef LUMBundleCopyResourceURL(LUMBundleRef bundle, LUMStringRef resourceName, LUMStringRef resourceType,
                                              LUMStringRef subDirName);
/** The same inside "<localizationName>.lproj/" when localizationName is given. */
LUM_EXPORT LUMURLRef LUMBundleCopyResourceURLForLocalization(LUMBundleRef bundle, LUMStringRef resourceName, LUMStringRef resourceType,
                                                             LUMStringRef subDirName, LUMStringRef localizationName);
/** A copy of value: no strings file is read. */
LUM_EXPORT LUMStringRef LUMBundleCopyLocalizedString(LUMBundleRef bundle, LUMStringRef key, LUMStringRef value, LUMStringRef tableName);

LUM_EXTERN_C_END

#endif
