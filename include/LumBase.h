/** @file LumBase.h — the umbrella header: includes every public module header.
 * Part of LumBase; MIT licence. */
#ifndef LUMBASE_H
#define LUMBASE_H

#include <LumBase/LUMVersion.h>
#include <LumBase/LUMBase.h>
#include <LumBase/LUMType.h>
#include <LumBase/LUMAllocator.h>
#include <LumBase/LUMNull.h>
#include <LumBase/LUMBoolean.h>
#include <LumBase/LUMString.h>
#include <LumBase/LUMArray.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMSet.h>
#include <LumBase/LUMNumber.h>
#include <LumBase/LUMData.h>
#include <LumBase/LUMAutoreleasePool.h>
#include <LumBase/LUMAbsoluteTime.h>
#include <LumBase/LUMMachTime.h>
#include <LumBase/LUMDate.h>
#include <LumBase/LUMTimeZone.h>
#include <LumBase/LUMLocale.h>
#include <LumBase/LUMDateFormatter.h>
#include <LumBase/LUMRunLoop.h>
#include <LumBase/LUMRunLoopSource.h>
#include <LumBase/LUMRunLoopTimer.h>
#include <LumBase/LUMError.h>
#include <LumBase/LUMStream.h>
#include <LumBase/LUMReadStream.h>
#include <LumBase/LUMWriteStream.h>
#include <LumBase/LUMPropertyList.h>
#include <LumBase/LUMJSON.h>
#include <LumBase/LUMSocket.h>
#include <LumBase/LUMHTTPMessage.h>
#include <LumBase/LUMHTTPStream.h>
#include <LumBase/LUMURL.h>
#include <LumBase/LUMBundle.h>
#include <LumBase/LUMTest.h>

#endif
