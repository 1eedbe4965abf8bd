/** @file LUMVersion.h — the version of LumBase these headers belong to.
 * Part of LumBase; MIT licence.
 *
 * The one place the version is written: CMakeLists.txt reads it from here
 * for the project, the shared object's version and the packages. */
#ifndef LUMBASE_LUMVERSION_H
#define LUMBASE_LUMVERSION_H

/** The major version: raised by incompatible changes. */
#define LUMBASE_VERSION_MAJOR 0
/** The minor version: raised by compatible additions. */
#define LUMBASE_VERSION_MINOR 1
/** The patch version: raised by fixes. */
#define LUMBASE_VERSION_PATCH 0
/** The version as text, "MAJOR.MINOR.PATCH". */
#define LUMBASE_VERSION_STRING "0.1.0"

/** The version as one number, for comparisons in the preprocessor:
 * `#if LUMBASE_VERSION >= LUMBASE_VERSION_OF(0, 2, 0)` */
#define LUMBASE_VERSION_OF(major, minor, patch) ((major) * 10000 + (minor) * 100 + (patch))
/** The version of these headers as one number. */
#define LUMBASE_VERSION LUMBASE_VERSION_OF(LUMBASE_VERSION_MAJOR, LUMBASE_VERSION_MINOR, LUMBASE_VERSION_PATCH)

#endif
