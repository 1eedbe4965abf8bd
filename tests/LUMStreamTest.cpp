/* LUMStreamTest.cpp — read and write streams, their generic callbacks, the
 * memory streams and the bound pair.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

using namespace lumtest;

namespace {

std::vector<std::string> gLog;

struct Client {
    explicit Client(const char *n) : name(n) {}
    std::string name;
    int events = 0;
    LUMStreamEventType lastEvent = 0;
};

const void *clientRetain(const void *info)
{
    gLog.push_back("retain " + static_cast<const Client *>(info)->name);
    return info;
}
void clientRelease(const void *info) { gLog.push_back("release " + static_cast<const Client *>(info)->name); }

void readClientCallBack(LUMReadStreamRef, LUMStreamEventType event, void *info)
{
    auto *client = static_cast<Client *>(info);
    client->events++;
    client->lastEvent = event;
}
void writeClientCallBack(LUMWriteStreamRef, LUMStreamEventType event, void *info)
{
    auto *client = static_cast<Client *>(info);
    client->events++;
    client->lastEvent = event;
}

LUMStreamClientContext ContextFor(Client *client) { return LUMStreamClientContext{0, client, clientRetain, clientRelease, nullptr}; }

std::string Bytes(LUMDataRef data) { return std::string(reinterpret_cast<const char *>(LUMDataGetBytePtr(data)), LUMDataGetLength(data)); }

} // namespace

TEST(LUMStream, ReadStreamOverNoBytes)
{
    LUMReadStreamRef stream = LUMReadStreamCreateWithBytesNoCopy(nullptr, nullptr, 0, kLUMAllocatorNull);
    EXPECT_FALSE(LUMReadStreamHasBytesAvailable(stream));
    UInt8 buffer[4];
    EXPECT_EQ(LUMReadStreamRead(stream, buffer, 4), 0);
    EXPECT_FALSE(LUMReadStreamOpen(stream));
    EXPECT_EQ(LUMReadStreamGetStatus(stream), kLUMStreamStatusNotOpen);
    LUMRelease(stream);
}

TEST(LUMStream, ReadStreamOverBytesReadsAndLendsItsBuffer)
{
    const UInt8 bytes[] = {'h', 'e', 'l', 'l', 'o'};
    LUMReadStreamRef stream = LUMReadStreamCreateWithBytesNoCopy(nullptr, bytes, 5, kLUMAllocatorNull);
    UInt8 buffer[8];
    EXPECT_TRUE(LUMReadStreamHasBytesAvailable(stream)); // reads without being opened
    EXPECT_EQ(LUMReadStreamRead(stream, buffer, 2), 2);
    EXPECT_EQ(memcmp(buffer, "he", 2), 0);
    LUMIndex count = -1;
    const UInt8 *lent = LUMReadStreamGetBuffer(stream, 10, &count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(lent, bytes + 2);
    EXPECT_FALSE(LUMReadStreamHasBytesAvailable(stream));
    EXPECT_EQ(LUMReadStreamRead(stream, buffer, 8), 0);
    // It never calls a client and cannot be scheduled.
    Client client("c");
    LUMStreamClientContext context = ContextFor(&client);
    EXPECT_FALSE(LUMReadStreamSetClient(stream, kLUMStreamEventHasBytesAvailable, readClientCallBack, &context));
    LUMReadStreamScheduleWithRunLoop(stream, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultFinished);
    LUMRelease(stream);
}

TEST(LUMStream, ReadStreamKeepsItsBytesAliveAndFreesThemOnce)
{
    CountingAllocator counting;
    UInt8 *bytes = static_cast<UInt8 *>(malloc(4));
    memcpy(bytes, "data", 4);
    LUMReadStreamRef stream = LUMReadStreamCreateWithBytesNoCopy(nullptr, bytes, 4, counting.allocator);
    UInt8 buffer[4];
    EXPECT_EQ(LUMReadStreamRead(stream, buffer, 4), 4);
    EXPECT_EQ(counting.deallocations, 0);
    LUMRelease(stream);
    EXPECT_EQ(counting.deallocations, 1);
}

TEST(LUMStream, FixedBufferOfThreeIsFullAfterThreeBytes)
{
    UInt8 buffer[3] = {};
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithBuffer(nullptr, buffer, 3);
    EXPECT_TRUE(LUMWriteStreamOpen(stream));
    EXPECT_EQ(LUMWriteStreamGetStatus(stream), kLUMStreamStatusOpen);
    EXPECT_TRUE(LUMWriteStreamCanAcceptBytes(stream));
    EXPECT_EQ(LUMWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("abc"), 3), 3);
    EXPECT_EQ(LUMWriteStreamGetStatus(stream), kLUMStreamStatusAtEnd);
    EXPECT_FALSE(LUMWriteStreamCanAcceptBytes(stream));
    EXPECT_EQ(LUMWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("d"), 1), 0);
    EXPECT_EQ(memcmp(buffer, "abc", 3), 0);
    EXPECT_EQ(LUMWriteStreamCopyProperty(stream, kLUMStreamPropertyDataWritten), nullptr);
    LUMRelease(stream);

    UInt8 small[2];
    stream = LUMWriteStreamCreateWithBuffer(nullptr, small, 2);
    EXPECT_EQ(LUMWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("xyz"), 3), 2); // as much as fits
    EXPECT_EQ(LUMWriteStreamGetStatus(stream), kLUMStreamStatusAtEnd);
    LUMRelease(stream);
}

TEST(LUMStream, AllocatedBuffersCollectEverythingWritten)
{
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    EXPECT_TRUE(LUMWriteStreamCanAcceptBytes(stream));
    EXPECT_EQ(LUMWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("hello "), 6), 6);
    auto first = static_cast<LUMDataRef>(LUMWriteStreamCopyProperty(stream, kLUMStreamPropertyDataWritten));
    EXPECT_EQ(LUMWriteStreamWrite(stream, reinterpret_cast<const UInt8 *>("world"), 5), 5);
    auto second = static_cast<LUMDataRef>(LUMWriteStreamCopyProperty(stream, LUMSTR("kLUMStreamPropertyDataWritten")));
    EXPECT_EQ(Bytes(first), "hello "); // a copy: later writes do not change it
    EXPECT_EQ(Bytes(second), "hello world");
    EXPECT_EQ(LUMWriteStreamCopyProperty(stream, LUMSTR("anything else")), nullptr);
    EXPECT_EQ(Text(kLUMStreamPropertyDataWritten), "kLUMStreamPropertyDataWritten");
    LUMRelease(first);
    LUMRelease(second);
    LUMRelease(stream);
}

TEST(LUMStream, BoundPairOfFourWrapsAroundTheRing)
{
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 4);
    EXPECT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("abcd"), 4), 4);
    EXPECT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("e"), 1), 0);
    EXPECT_FALSE(LUMWriteStreamCanAcceptBytes(writer));
    UInt8 buffer[8];
    EXPECT_EQ(LUMReadStreamRead(reader, buffer, 2), 2);
    EXPECT_EQ(memcmp(buffer, "ab", 2), 0);
    EXPECT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("efg"), 3), 2);
    EXPECT_EQ(LUMReadStreamRead(reader, buffer, 8), 4);
    EXPECT_EQ(memcmp(buffer, "cdef", 4), 0);
    EXPECT_FALSE(LUMReadStreamHasBytesAvailable(reader));
    EXPECT_EQ(LUMReadStreamGetBuffer(reader, 4, nullptr), nullptr);
    LUMRelease(reader);
    LUMRelease(writer);
}

TEST(LUMStream, SchedulingSignalsTheSourceSoTheClientHearsAtTheNextPass)
{
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 16);
    Client readClient("reader"), writeClient("writer");
    LUMStreamClientContext readContext = ContextFor(&readClient), writeContext = ContextFor(&writeClient);
    EXPECT_TRUE(LUMReadStreamSetClient(reader, kLUMStreamEventHasBytesAvailable, readClientCallBack, &readContext));
    EXPECT_TRUE(LUMWriteStreamSetClient(writer, kLUMStreamEventCanAcceptBytes, writeClientCallBack, &writeContext));
    LUMWriteStreamScheduleWithRunLoop(writer, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    LUMReadStreamScheduleWithRunLoop(reader, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    EXPECT_EQ(writeClient.events, 1); // room was there
    EXPECT_EQ(writeClient.lastEvent, kLUMStreamEventCanAcceptBytes);
    EXPECT_EQ(readClient.events, 0); // nothing to read at that pass
    LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("x"), 1);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
    EXPECT_EQ(readClient.events, 0); // writing does not signal the reader
    LUMReadStreamScheduleWithRunLoop(reader, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode); // again
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
    EXPECT_EQ(readClient.events, 1);
    EXPECT_EQ(readClient.lastEvent, kLUMStreamEventHasBytesAvailable);
    LUMReadStreamClose(reader);
    LUMWriteStreamClose(writer);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultFinished);
    LUMRelease(reader);
    LUMRelease(writer);
}

TEST(LUMStream, ClosingTakesTheSourceOutOfEveryModeForGood)
{
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 4);
    LUMReadStreamScheduleWithRunLoop(reader, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    LUMReadStreamScheduleWithRunLoop(reader, LUMRunLoopGetCurrent(), LUMSTR("other"));
    LUMRunLoopSourceRef source = _LUMReadStreamGetRunLoopSource(reader);
    ASSERT_NE(source, nullptr);
    LUMRetain(source);
    EXPECT_TRUE(LUMRunLoopContainsSource(LUMRunLoopGetCurrent(), source, LUMSTR("other")));
    EXPECT_TRUE(LUMReadStreamOpen(reader));
    LUMReadStreamClose(reader);
    EXPECT_EQ(LUMReadStreamGetStatus(reader), kLUMStreamStatusClosed);
    EXPECT_EQ(_LUMReadStreamGetRunLoopSource(reader), nullptr);
    EXPECT_FALSE(LUMRunLoopContainsSource(LUMRunLoopGetCurrent(), source, __kLUMRunLoopAllModes));
    EXPECT_FALSE(LUMRunLoopSourceIsValid(source));
    EXPECT_EQ(LUMGetRetainCount(source), 1);
    LUMRelease(source);
    LUMReadStreamScheduleWithRunLoop(reader, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode); // a new source, but closed stays closed
    EXPECT_EQ(LUMReadStreamGetStatus(reader), kLUMStreamStatusClosed);
    LUMReadStreamClose(reader);
    EXPECT_TRUE(LUMReadStreamOpen(reader)); // the order is not checked
    LUMRelease(reader);
    LUMRelease(writer);
}

TEST(LUMStream, SchedulingAStreamWithoutASourceDoesNothing)
{
    UInt8 buffer[4];
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithBuffer(nullptr, buffer, 4);
    LUMWriteStreamScheduleWithRunLoop(stream, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    EXPECT_EQ(_LUMWriteStreamGetRunLoopSource(stream), nullptr);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultFinished);
    LUMWriteStreamUnscheduleWithRunLoop(stream, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    LUMRelease(stream);
}

TEST(LUMStream, ClientWithAnEmptyMaskIsRemoved)
{
    gLog.clear();
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 4);
    Client first("first"), second("second");
    LUMStreamClientContext firstContext = ContextFor(&first), secondContext = ContextFor(&second);
    EXPECT_TRUE(LUMReadStreamSetClient(reader, kLUMStreamEventHasBytesAvailable, readClientCallBack, &firstContext));
    EXPECT_TRUE(LUMReadStreamSetClient(reader, kLUMStreamEventHasBytesAvailable, readClientCallBack, &secondContext));
    EXPECT_TRUE(LUMReadStreamSetClient(reader, 0, readClientCallBack, &firstContext));
    // The old client is released once, before the new one is retained.
    EXPECT_EQ(gLog, (std::vector<std::string>{"retain first", "release first", "retain second", "release second"}));
    LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("x"), 1);
    _LUMReadStreamNotifyClient(reader, kLUMStreamEventHasBytesAvailable);
    EXPECT_EQ(first.events + second.events, 0);
    LUMRelease(reader);
    LUMRelease(writer);
    EXPECT_EQ(gLog.size(), 4u);
}

TEST(LUMStream, FinalisationReleasesTheClient)
{
    gLog.clear();
    UInt8 buffer[2];
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithBuffer(nullptr, buffer, 2);
    Client client("client");
    LUMStreamClientContext context = ContextFor(&client);
    LUMWriteStreamSetClient(stream, kLUMStreamEventCanAcceptBytes, writeClientCallBack, &context);
    _LUMWriteStreamNotifyClient(stream, kLUMStreamEventHasBytesAvailable); // not asked for
    _LUMWriteStreamNotifyClient(stream, kLUMStreamEventCanAcceptBytes);
    EXPECT_EQ(client.events, 1);
    LUMRelease(stream);
    EXPECT_EQ(gLog, (std::vector<std::string>{"retain client", "release client"}));
}

TEST(LUMStream, GenericCopyErrorIsFatal)
{
    UInt8 buffer[2];
    EXPECT_TRUE(DiesWithFatal([&] { LUMWriteStreamCopyError(LUMWriteStreamCreateWithBuffer(nullptr, buffer, 2)); }, "NYI",
                              "_LUMWriteStreamGenericCopyError", "src/LUMWriteStream", 206));
    EXPECT_TRUE(DiesWithFatal([] {
        LUMReadStreamRef reader = nullptr;
        LUMWriteStreamRef writer = nullptr;
        LUMStreamCreateBoundPair(nullptr, &reader, &writer, 1);
        LUMReadStreamCopyError(reader);
    }, "NYI", "_LUMReadStreamGenericCopyError", "src/LUMReadStream", 183));
}

TEST(LUMStream, StreamWithoutCallbacksAnswersNothing)
{
    LUMReadStreamContext none = {};
    LUMReadStreamRef stream = _LUMReadStreamCreateWithContext(nullptr, &none);
    UInt8 buffer[2];
    EXPECT_FALSE(LUMReadStreamOpen(stream));
    EXPECT_EQ(LUMReadStreamRead(stream, buffer, 2), 0);
    EXPECT_EQ(LUMReadStreamGetStatus(stream), 0);
    EXPECT_EQ(LUMReadStreamCopyError(stream), nullptr);
    EXPECT_EQ(LUMReadStreamCopyProperty(stream, kLUMStreamPropertyDataWritten), nullptr);
    EXPECT_FALSE(LUMReadStreamSetProperty(stream, kLUMStreamPropertyDataWritten, kLUMNull));
    EXPECT_FALSE(LUMReadStreamHasBytesAvailable(stream));
    LUMReadStreamClose(stream);
    LUMRelease(stream);
    LUMWriteStreamContext noWrite = {};
    LUMWriteStreamRef writer = _LUMWriteStreamCreateWithContext(nullptr, &noWrite);
    EXPECT_EQ(LUMWriteStreamWrite(writer, buffer, 2), 0);
    EXPECT_FALSE(LUMWriteStreamCanAcceptBytes(writer));
    LUMRelease(writer);
}

TEST(LUMStream, GenericPropertiesAreEmpty)
{
    UInt8 buffer[2];
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithBuffer(nullptr, buffer, 2);
    EXPECT_FALSE(LUMWriteStreamSetProperty(stream, LUMSTR("p"), kLUMNull));
    EXPECT_EQ(LUMWriteStreamCopyProperty(stream, LUMSTR("p")), nullptr);
    LUMWriteStreamClose(stream);
    EXPECT_EQ(LUMWriteStreamGetStatus(stream), kLUMStreamStatusClosed);
    LUMRelease(stream);
}

namespace {

LUMReadStreamRef gStreamOfSource = nullptr;
std::vector<const void *> gSourceSeenByCancel;

void cancelSeeingTheStream(void *, LUMRunLoopRef, LUMStringRef)
{
    gSourceSeenByCancel.push_back(_LUMReadStreamGetRunLoopSource(gStreamOfSource));
}

LUMRunLoopSourceRef SourceWithCancel()
{
    LUMRunLoopSourceContext context = {0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, cancelSeeingTheStream, nullptr};
    return LUMRunLoopSourceCreate(nullptr, 0, &context);
}

/* A bound pair's read stream whose source is one with the cancel above,
 * scheduled in the default mode. */
LUMReadStreamRef ReaderWithCancellingSource(LUMRunLoopSourceRef *sourceOut)
{
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 4);
    LUMRelease(writer);
    LUMRunLoopSourceRef source = SourceWithCancel();
    _LUMReadStreamSetRunLoopSource(reader, source);
    LUMRelease(source);
    LUMReadStreamScheduleWithRunLoop(reader, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode);
    gStreamOfSource = reader;
    gSourceSeenByCancel.clear();
    *sourceOut = source;
    return reader;
}

LUMRunLoopSourceRef gNewSource = nullptr;
LUMIndex gNewSourceCountWhenOldWent = -1;

void oldSourceInfoReleased(const void *) { gNewSourceCountWhenOldWent = LUMGetRetainCount(gNewSource); }

} // namespace

TEST(LUMStream, CloseClearsTheSourceFieldAfterTheCancel)
{
    LUMRunLoopSourceRef source = nullptr;
    LUMReadStreamRef reader = ReaderWithCancellingSource(&source);
    LUMReadStreamClose(reader);
    EXPECT_EQ(gSourceSeenByCancel, std::vector<const void *>({source}));
    EXPECT_EQ(_LUMReadStreamGetRunLoopSource(reader), nullptr);
    LUMRelease(reader);
}

TEST(LUMStream, FinalizationClearsTheSourceFieldAfterTheCancel)
{
    LUMRunLoopSourceRef source = nullptr;
    LUMReadStreamRef reader = ReaderWithCancellingSource(&source);
    LUMRelease(reader);
    EXPECT_EQ(gSourceSeenByCancel, std::vector<const void *>({source}));
}

TEST(LUMStream, ReplacingTheSourceReleasesTheOldOneFirst)
{
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreateBoundPair(nullptr, &reader, &writer, 4);
    LUMRunLoopSourceContext oldContext = {0, nullptr, nullptr, oldSourceInfoReleased, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    LUMRunLoopSourceRef oldSource = LUMRunLoopSourceCreate(nullptr, 0, &oldContext);
    _LUMReadStreamSetRunLoopSource(reader, oldSource);
    LUMRelease(oldSource); // the stream holds the last reference
    LUMRunLoopSourceContext newContext = {};
    gNewSource = LUMRunLoopSourceCreate(nullptr, 0, &newContext);
    _LUMReadStreamSetRunLoopSource(reader, gNewSource);
    // The old source went before the new one was retained by the stream.
    EXPECT_EQ(gNewSourceCountWhenOldWent, 1);
    EXPECT_EQ(LUMGetRetainCount(gNewSource), 2);
    EXPECT_EQ(_LUMReadStreamGetRunLoopSource(reader), gNewSource);
    LUMRelease(gNewSource);
    LUMRelease(reader);
    LUMRelease(writer);
}
