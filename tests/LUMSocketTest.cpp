/* LUMSocketTest.cpp — sockets on the run loop and socket stream pairs, with
 * real peers on 127.0.0.1 and ports the kernel chooses.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace lumtest;

namespace {

LUMDataRef Loopback(uint16_t port)
{
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(&address), sizeof(address));
}

uint16_t PortOf(LUMSocketRef s)
{
    LUMDataRef address = LUMSocketCopyAddress(s);
    uint16_t port = ntohs(reinterpret_cast<const struct sockaddr_in *>(LUMDataGetBytePtr(address))->sin_port);
    LUMRelease(address);
    return port;
}

/* A plain blocking client connected to port. */
int Connect(uint16_t port)
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

struct Events {
    std::vector<LUMSocketCallBackType> types;
    std::vector<int> accepted;
    std::vector<std::string> received;
    std::vector<LUMIndex> capacities;
    std::vector<LUMIndex> addressLengths;
};

struct DataView {
    LUMRuntimeBase base;
    UInt8 *bytes;
    LUMIndex length;
    LUMIndex capacity;
};

void record(LUMSocketRef, LUMSocketCallBackType type, LUMDataRef address, const void *data, void *info)
{
    auto *events = static_cast<Events *>(info);
    events->types.push_back(type);
    if (type == kLUMSocketAcceptCallBack) events->accepted.push_back(*static_cast<const int *>(data));
    if (type == kLUMSocketDataCallBack) {
        auto bytes = static_cast<LUMDataRef>(data);
        events->received.push_back(std::string(reinterpret_cast<const char *>(LUMDataGetBytePtr(bytes)), LUMDataGetLength(bytes)));
        events->capacities.push_back(reinterpret_cast<const DataView *>(bytes)->capacity);
        events->addressLengths.push_back(LUMDataGetLength(address));
    }
}

/* Runs the default mode in short slices until done() or about two seconds. */
template <typename Done>
bool RunUntil(Done done)
{
    for (int i = 0; i < 200 && !done(); i++) LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.01, false);
    return done();
}

LUMSocketRef Listener(Events *events)
{
    LUMSocketContext context = {0, events, nullptr, nullptr, nullptr};
    LUMSocketRef listener = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, kLUMSocketAcceptCallBack, record, &context);
    LUMDataRef address = Loopback(0);
    EXPECT_EQ(LUMSocketSetAddress(listener, address), kLUMSocketSuccess);
    LUMRelease(address);
    return listener;
}

} // namespace

TEST(LUMSocket, WriteOnlySocketIsInTheWriteAndExceptionSets)
{
    LUMSocketRef s = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, kLUMSocketWriteCallBack, nullptr, nullptr);
    LUMSelectInfo info = {};
    _LUMSocketPrepareSelectInfo(&info);
    int fd = LUMSocketGetNative(s);
    EXPECT_FALSE(FD_ISSET(fd, &info.readSet));
    EXPECT_TRUE(FD_ISSET(fd, &info.writeSet));
    EXPECT_TRUE(FD_ISSET(fd, &info.exceptSet));
    EXPECT_GE(info.maxDescriptor, fd);
    LUMSocketInvalidate(s);
    LUMSelectInfo after = {};
    _LUMSocketPrepareSelectInfo(&after);
    EXPECT_FALSE(FD_ISSET(fd, &after.exceptSet)); // invalid sockets take no part
    LUMRelease(s);
}

TEST(LUMSocket, AcceptHandsTheNewDescriptorToTheCallback)
{
    Events events;
    LUMSocketRef listener = Listener(&events);
    LUMRunLoopSourceRef source = LUMSocketCreateRunLoopSource(nullptr, listener, 0);
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopCommonModes);
    int client = Connect(PortOf(listener));
    ASSERT_GE(client, 0);
    EXPECT_TRUE(RunUntil([&] { return !events.accepted.empty(); }));
    ASSERT_EQ(events.types.size(), 1u);
    EXPECT_EQ(events.types[0], kLUMSocketAcceptCallBack);
    int accepted = events.accepted[0];
    EXPECT_GE(accepted, 0);
    EXPECT_EQ(write(client, "ping", 4), 4);
    char buffer[8] = {};
    EXPECT_EQ(read(accepted, buffer, sizeof(buffer)), 4); // the callee owns a working descriptor
    close(accepted);
    close(client);
    LUMSocketInvalidate(listener);
    EXPECT_FALSE(LUMRunLoopSourceIsValid(source));
    LUMRelease(source);
    LUMRelease(listener);
}

TEST(LUMSocket, DataCallbackReceivesWhatWaits)
{
    Events serverEvents, dataEvents;
    LUMSocketRef listener = Listener(&serverEvents);
    int client = Connect(PortOf(listener));
    int accepted = accept(LUMSocketGetNative(listener), nullptr, nullptr);
    ASSERT_GE(accepted, 0);
    LUMSocketContext context = {0, &dataEvents, nullptr, nullptr, nullptr};
    LUMSocketRef connection = LUMSocketCreateWithNative(nullptr, accepted, kLUMSocketDataCallBack, record, &context);
    LUMRunLoopSourceRef source = LUMSocketCreateRunLoopSource(nullptr, connection, 0);
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopDefaultMode);

    std::string thousand(1000, 'k');
    ASSERT_EQ(write(client, thousand.data(), thousand.size()), 1000);
    usleep(20000);
    EXPECT_TRUE(RunUntil([&] { return !dataEvents.received.empty(); }));
    ASSERT_EQ(dataEvents.received.size(), 1u);
    EXPECT_EQ(dataEvents.received[0], thousand); // all of it in one callback
    EXPECT_EQ(dataEvents.capacities[0], 1024);
    EXPECT_EQ(dataEvents.addressLengths[0], 16);

    ASSERT_EQ(write(client, "0123456789", 10), 10);
    EXPECT_TRUE(RunUntil([&] { return dataEvents.received.size() == 2; }));
    EXPECT_EQ(dataEvents.received[1], "0123456789");
    EXPECT_EQ(dataEvents.capacities[1], 256); // a 256-byte receive for 10 bytes

    close(client); // the peer closes: an empty data object
    EXPECT_TRUE(RunUntil([&] { return dataEvents.received.size() >= 3; }));
    EXPECT_EQ(dataEvents.received[2], "");
    LUMSocketInvalidate(connection);
    LUMRelease(source);
    LUMRelease(connection);
    LUMSocketInvalidate(listener);
    LUMRelease(listener);
}

TEST(LUMSocket, ReadAndWriteCallbacksOnlyReport)
{
    Events serverEvents, events;
    LUMSocketRef listener = Listener(&serverEvents);
    int client = Connect(PortOf(listener));
    int accepted = accept(LUMSocketGetNative(listener), nullptr, nullptr);
    LUMSocketContext context = {0, &events, nullptr, nullptr, nullptr};
    LUMSocketRef connection = LUMSocketCreateWithNative(nullptr, accepted, kLUMSocketReadCallBack | kLUMSocketWriteCallBack, record, &context);
    LUMRunLoopSourceRef source = LUMSocketCreateRunLoopSource(nullptr, connection, 0);
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopDefaultMode);
    EXPECT_TRUE(RunUntil([&] { return !events.types.empty(); }));
    EXPECT_EQ(events.types[0], kLUMSocketWriteCallBack); // writable at once, nothing to read yet
    events.types.clear();
    ASSERT_EQ(write(client, "x", 1), 1);
    EXPECT_TRUE(RunUntil([&] {
        for (LUMSocketCallBackType t : events.types)
            if (t == kLUMSocketReadCallBack) return true;
        return false;
    }));
    char c;
    EXPECT_EQ(read(accepted, &c, 1), 1); // the callback reads by itself
    LUMSocketDisableCallBacks(connection, kLUMSocketWriteCallBack | kLUMSocketReadCallBack);
    LUMSelectInfo info = {};
    _LUMSocketPrepareSelectInfo(&info);
    EXPECT_FALSE(FD_ISSET(accepted, &info.readSet));
    EXPECT_FALSE(FD_ISSET(accepted, &info.writeSet));
    EXPECT_TRUE(FD_ISSET(accepted, &info.exceptSet));
    LUMSocketEnableCallBacks(connection, kLUMSocketReadCallBack);
    info = {};
    _LUMSocketPrepareSelectInfo(&info);
    EXPECT_TRUE(FD_ISSET(accepted, &info.readSet));
    close(client);
    LUMSocketInvalidate(connection);
    LUMRelease(source);
    LUMRelease(connection);
    LUMSocketInvalidate(listener);
    LUMRelease(listener);
}

TEST(LUMSocket, SendTimeOutRule)
{
    Events events;
    LUMSocketRef listener = Listener(&events);
    LUMSocketRef client = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, 0, nullptr, nullptr);
    LUMDataRef address = Loopback(PortOf(listener));
    EXPECT_EQ(LUMSocketConnectToAddress(client, address, 0.0), kLUMSocketSuccess);
    LUMDataRef payload = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("hello"), 5);
    for (double timeout : {0.0, -3.0, 3e9}) {
        EXPECT_EQ(LUMSocketSendData(client, nullptr, payload, timeout), kLUMSocketSuccess);
        EXPECT_EQ(lumtest_sndtimeo_sec, 2147483647L);
        EXPECT_EQ(lumtest_sndtimeo_usec, 0L);
    }
    EXPECT_EQ(LUMSocketSendData(client, nullptr, payload, 1.5), kLUMSocketSuccess);
    EXPECT_EQ(lumtest_sndtimeo_sec, 1L);
    EXPECT_EQ(lumtest_sndtimeo_usec, 500000L);
    LUMDataRef empty = LUMDataCreate(nullptr, nullptr, 0);
    EXPECT_EQ(LUMSocketSendData(client, nullptr, empty, 1.0), kLUMSocketError); // nothing sent counts as failure
    LUMDataRef peer = LUMSocketCopyPeerAddress(client);
    ASSERT_NE(peer, nullptr);
    EXPECT_EQ(ntohs(reinterpret_cast<const struct sockaddr_in *>(LUMDataGetBytePtr(peer))->sin_port), PortOf(listener));
    for (LUMTypeRef o : std::initializer_list<LUMTypeRef>{peer, empty, payload, address}) LUMRelease(o);
    LUMSocketInvalidate(client);
    LUMRelease(client);
    LUMSocketInvalidate(listener);
    LUMRelease(listener);
}

TEST(LUMSocket, DatagramSocketStillListensAndSucceeds)
{
    LUMSocketRef udp = LUMSocketCreate(nullptr, AF_INET, SOCK_DGRAM, 0, kLUMSocketDataCallBack, nullptr, nullptr);
    LUMDataRef address = Loopback(0);
    EXPECT_EQ(LUMSocketSetAddress(udp, address), kLUMSocketSuccess); // listen fails, which does not count
    LUMSocketRef second = LUMSocketCreate(nullptr, AF_INET, SOCK_DGRAM, 0, 0, nullptr, nullptr);
    LUMDataRef taken = LUMSocketCopyAddress(udp);
    EXPECT_EQ(LUMSocketSetAddress(second, taken), kLUMSocketError); // the port is taken: bind fails
    // sendto with an address.
    LUMDataRef payload = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("dgram"), 5);
    EXPECT_EQ(LUMSocketSendData(second, taken, payload, 1.0), kLUMSocketSuccess);
    char buffer[8] = {};
    EXPECT_EQ(recv(LUMSocketGetNative(udp), buffer, sizeof(buffer), 0), 5);
    for (LUMTypeRef o : std::initializer_list<LUMTypeRef>{payload, taken, address}) LUMRelease(o);
    for (LUMSocketRef s : {udp, second}) {
        LUMSocketInvalidate(s);
        LUMRelease(s);
    }
}

TEST(LUMSocket, InvalidationClosesOnlyWithTheFlag)
{
    LUMSocketRef s = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, 0, nullptr, nullptr);
    EXPECT_EQ(LUMSocketGetSocketFlags(s), 0x83u);
    int fd = LUMSocketGetNative(s);
    LUMSocketSetSocketFlags(s, 0);
    LUMSocketInvalidate(s);
    EXPECT_FALSE(LUMSocketIsValid(s));
    EXPECT_EQ(LUMSocketGetNative(s), fd);
    EXPECT_NE(fcntl(fd, F_GETFD), -1); // still open
    LUMRelease(s); // finalisation does not close either
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    close(fd);
    s = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, 0, nullptr, nullptr);
    fd = LUMSocketGetNative(s);
    LUMSocketInvalidate(s);
    EXPECT_EQ(LUMSocketGetNative(s), -1);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    LUMRelease(s);
}

namespace {
int gInfoRetains = 0, gInfoReleases = 0;
const void *infoRetain(const void *info)
{
    gInfoRetains++;
    return info;
}
void infoRelease(const void *) { gInfoReleases++; }
} // namespace

TEST(LUMSocket, ContextInfoIsRetainedAndReleasedOnce)
{
    int token = 0;
    LUMSocketContext context = {0, &token, infoRetain, infoRelease, nullptr};
    LUMSocketRef s = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, 0, nullptr, &context);
    EXPECT_EQ(gInfoRetains, 1);
    LUMSocketContext out;
    LUMSocketGetContext(s, &out);
    EXPECT_EQ(out.info, &token);
    LUMRunLoopSourceRef source = LUMSocketCreateRunLoopSource(nullptr, s, 3);
    EXPECT_EQ(LUMRunLoopSourceGetOrder(source), 3);
    EXPECT_EQ(LUMGetRetainCount(s), 2); // the source holds the socket until invalidated
    LUMSocketInvalidate(s); // the socket lets go of its source
    EXPECT_FALSE(LUMRunLoopSourceIsValid(source));
    LUMRelease(source);     // the caller's reference was the last: it lets go of the socket
    EXPECT_EQ(LUMGetRetainCount(s), 1);
    LUMRelease(s);
    EXPECT_EQ(gInfoReleases, 1);
}

TEST(LUMSocket, SecondRunLoopSourceAsserts)
{
    EXPECT_TRUE(DiesWithAssertion([] {
        LUMSocketRef s = LUMSocketCreate(nullptr, AF_INET, SOCK_STREAM, 0, 0, nullptr, nullptr);
        LUMSocketCreateRunLoopSource(nullptr, s, 0);
        LUMSocketCreateRunLoopSource(nullptr, s, 0);
    }, "socket->runLoopSource == NULL", "LUMSocketCreateRunLoopSource", "src/LUMSocket", 497));
}

TEST(LUMSocket, FailedSocketCallStillGivesAnObject)
{
    LUMSocketRef s = LUMSocketCreate(nullptr, -5, -5, -5, 0, nullptr, nullptr);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(LUMSocketGetNative(s), -1);
    EXPECT_TRUE(LUMSocketIsValid(s));
    EXPECT_EQ(LUMSocketCopyAddress(s), nullptr);
    LUMSocketInvalidate(s);
    LUMRelease(s);
}

TEST(LUMSocket, ConnectedToSignature)
{
    Events events;
    LUMSocketRef listener = Listener(&events);
    LUMDataRef address = Loopback(PortOf(listener));
    LUMSocketSignature signature = {AF_INET, SOCK_STREAM, 0, address};
    LUMSocketRef client = LUMSocketCreateConnectedToSocketSignature(nullptr, &signature, 0, nullptr, nullptr, 5.0);
    LUMDataRef peer = LUMSocketCopyPeerAddress(client);
    EXPECT_NE(peer, nullptr); // connected
    LUMRelease(peer);
    LUMRelease(address);
    for (LUMSocketRef s : {client, listener}) {
        LUMSocketInvalidate(s);
        LUMRelease(s);
    }
}

// ---- Socket stream pairs ----------------------------------------------------------

TEST(LUMSocketStream, PairToAHostExchangesBytes)
{
    Events events;
    LUMSocketRef listener = Listener(&events);
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreatePairWithSocketToHost(nullptr, LUMSTR("127.0.0.1"), PortOf(listener), &reader, &writer);
    ASSERT_NE(reader, nullptr);
    ASSERT_NE(writer, nullptr);
    int accepted = accept(LUMSocketGetNative(listener), nullptr, nullptr); // connected during creation
    ASSERT_GE(accepted, 0);
    EXPECT_EQ(LUMReadStreamGetStatus(reader), kLUMStreamStatusNotOpen);
    EXPECT_TRUE(LUMReadStreamOpen(reader));
    EXPECT_TRUE(LUMWriteStreamOpen(writer));
    EXPECT_EQ(LUMWriteStreamGetStatus(writer), kLUMStreamStatusOpen);
    EXPECT_TRUE(LUMWriteStreamCanAcceptBytes(writer));
    EXPECT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("request"), 7), 7);
    char buffer[16] = {};
    EXPECT_EQ(read(accepted, buffer, sizeof(buffer)), 7);
    EXPECT_EQ(write(accepted, "reply", 5), 5);
    UInt8 in[16];
    EXPECT_TRUE(LUMReadStreamHasBytesAvailable(reader));
    EXPECT_EQ(LUMReadStreamRead(reader, in, sizeof(in)), 5);
    close(accepted);
    EXPECT_EQ(LUMReadStreamRead(reader, in, sizeof(in)), 0); // end of file
    // Closing the read stream closes the shared descriptor.
    LUMReadStreamClose(reader);
    EXPECT_EQ(LUMReadStreamGetStatus(reader), kLUMStreamStatusClosed);
    EXPECT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("late"), 4), -1);
    LUMWriteStreamScheduleWithRunLoop(writer, LUMRunLoopGetCurrent(), kLUMRunLoopDefaultMode); // no source: nothing
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultFinished);
    LUMRelease(reader);
    LUMRelease(writer);
    LUMSocketInvalidate(listener);
    LUMRelease(listener);
}

TEST(LUMSocketStream, HostNamesAreNotLookedUp)
{
    LUMReadStreamRef reader = nullptr;
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreatePairWithSocketToHost(nullptr, LUMSTR("localhost"), 9, &reader, &writer);
    ASSERT_NE(reader, nullptr);
    ASSERT_NE(writer, nullptr);
    UInt8 buffer[4];
    EXPECT_EQ(LUMReadStreamRead(reader, buffer, 4), -1); // the connect failed silently
    LUMRelease(reader);
    LUMRelease(writer);
}

TEST(LUMSocketStream, OnlyTheAskedStreamIsMade)
{
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    LUMWriteStreamRef writer = nullptr;
    LUMStreamCreatePairWithSocket(nullptr, fds[0], nullptr, &writer);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(LUMWriteStreamWrite(writer, reinterpret_cast<const UInt8 *>("ab"), 2), 2);
    char buffer[4];
    EXPECT_EQ(read(fds[1], buffer, 4), 2);
    LUMWriteStreamClose(writer);
    EXPECT_EQ(fcntl(fds[0], F_GETFD), -1);
    LUMRelease(writer);
    LUMReadStreamRef reader = nullptr;
    LUMStreamCreatePairWithSocket(nullptr, fds[1], &reader, nullptr);
    ASSERT_NE(reader, nullptr);
    LUMReadStreamClose(reader);
    LUMRelease(reader);
    LUMReadStreamRef fromSignature = nullptr;
    LUMSocketSignature signature = {AF_INET, SOCK_STREAM, 0, nullptr};
    LUMStreamCreatePairWithPeerSocketSignature(nullptr, &signature, &fromSignature, nullptr);
    ASSERT_NE(fromSignature, nullptr);
    UInt8 in[2];
    EXPECT_EQ(LUMReadStreamRead(fromSignature, in, 2), -1); // never connected
    LUMReadStreamClose(fromSignature);
    LUMRelease(fromSignature);
}

namespace {

/* The lowest free descriptor number: the one the next socket() would get. */
int LowestFreeDescriptor()
{
    int fd = dup(0);
    close(fd);
    return fd;
}

} // namespace

TEST(LUMSocket, NoDescriptorIsOpenedWhenTheObjectCannotBeMade)
{
    int lowest = LowestFreeDescriptor();
    EXPECT_EQ(LUMSocketCreate(kLUMAllocatorNull, 2, 1, 0, 0, nullptr, nullptr), nullptr);
    LUMSocketSignature signature = {2, 1, 0, nullptr};
    EXPECT_EQ(LUMSocketCreateWithSocketSignature(kLUMAllocatorNull, &signature, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(LowestFreeDescriptor(), lowest);
    LUMSocketRef s = LUMSocketCreate(nullptr, 2, 1, 0, 0, nullptr, nullptr);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(LUMSocketGetNative(s), lowest);
    LUMSocketSetSocketFlags(s, LUMSocketGetSocketFlags(s) | kLUMSocketCloseOnInvalidate);
    LUMSocketInvalidate(s);
    LUMRelease(s);
    EXPECT_EQ(LowestFreeDescriptor(), lowest);
}

namespace {

/* Open descriptors of this process. */
int OpenDescriptors()
{
    int count = 0;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    while (struct dirent *entry = readdir(dir)) {
        if (entry->d_name[0] != '.') count++;
    }
    closedir(dir);
    return count - 1; // the directory's own descriptor
}

int gAnswered = 0;

void answerPing(LUMSocketRef s, LUMSocketCallBackType type, LUMDataRef, const void *data, void *)
{
    if (type != kLUMSocketDataCallBack || LUMDataGetLength(static_cast<LUMDataRef>(data)) == 0) return;
    LUMDataRef pong = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>("pong"), 4);
    if (LUMSocketSendData(s, nullptr, pong, 5.0) == kLUMSocketSuccess) gAnswered++;
    LUMRelease(pong);
}

} // namespace

TEST(LUMSocket, DescriptorsAboveTheSelectLimitAreServed)
{
    // More than FD_SETSIZE real loopback connections, each served by a
    // socket on the run loop; then every descriptor comes back.
    constexpr int kConnections = 1100;
    struct rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < 2 * kConnections + 64) GTEST_SKIP() << "descriptor limit too low";
    struct rlimit raised = limit;
    if (raised.rlim_cur < 2 * kConnections + 64) raised.rlim_cur = 2 * kConnections + 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    int before = OpenDescriptors();

    int listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(listener, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 2 * kConnections), 0);
    socklen_t length = sizeof(address);
    getsockname(listener, reinterpret_cast<struct sockaddr *>(&address), &length);

    std::vector<int> clients;
    std::vector<LUMSocketRef> served;
    int highest = 0;
    for (int i = 0; i < kConnections; i++) {
        int client = Connect(ntohs(address.sin_port));
        ASSERT_GE(client, 0);
        clients.push_back(client);
        int server = accept(listener, nullptr, nullptr);
        ASSERT_GE(server, 0);
        if (server > highest) highest = server;
        LUMSocketRef s = LUMSocketCreateWithNative(nullptr, server, kLUMSocketDataCallBack, answerPing, nullptr);
        LUMSocketSetSocketFlags(s, LUMSocketGetSocketFlags(s) | kLUMSocketCloseOnInvalidate);
        LUMRunLoopSourceRef source = LUMSocketCreateRunLoopSource(nullptr, s, 0);
        LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopDefaultMode);
        LUMRelease(source);
        served.push_back(s);
    }
    EXPECT_GE(highest, FD_SETSIZE);
    for (int client : clients) ASSERT_EQ(send(client, "ping", 4, 0), 4);
    gAnswered = 0;
    for (int i = 0; i < 3000 && gAnswered < kConnections; i++) LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.01, false);
    EXPECT_EQ(gAnswered, kConnections);
    int pongs = 0;
    for (int client : clients) {
        struct timeval wait = {5, 0};
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
        char reply[8] = {};
        if (recv(client, reply, sizeof(reply), 0) == 4 && memcmp(reply, "pong", 4) == 0) pongs++;
    }
    EXPECT_EQ(pongs, kConnections);

    for (LUMSocketRef s : served) {
        LUMSocketInvalidate(s); // closes the descriptor
        LUMRelease(s);
    }
    for (int client : clients) close(client);
    close(listener);
    EXPECT_EQ(OpenDescriptors(), before);
    setrlimit(RLIMIT_NOFILE, &limit);
}
