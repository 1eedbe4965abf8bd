/* LUMRunLoop.cpp — the run loop.
 * Part of LumBase; MIT licence.
 *
 * For now this module only keeps the object the loop is handling, which the
 * backtrace prints; it stays NULL until the loop itself handles objects. */
#define LUM_SOURCE_FILE "src/LUMRunLoop"
#include "LUMPrivate.h"

namespace {
LUMTypeRef __LUMRunLoopCurrentObject = nullptr;
} // namespace

LUMTypeRef _LUMRunLoopGetCurrentObject(void) { return __LUMRunLoopCurrentObject; }
