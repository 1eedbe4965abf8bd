/* jsonhttpd.cpp — examples/jsonhttpd.c with the C++ layer: the same settings,
 * answers, limits, timeouts and shutdown. A connection lives in its socket's
 * callback and goes with the socket; the server keeps weak references to it.
 *   jsonhttpd-cpp [host:]port   (default 127.0.0.1:8080; port 0 picks one)
 * Part of LumBase; MIT licence. */
#include <LumBase.hpp>

#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <list>
#include <memory>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace lum::literals;

namespace {

struct Connection {
    std::string request; // the bytes received so far
    LUMSocketRef socket; // not retained: the socket owns the callback that owns this
    LUMMachTime opened = LUMMachTimeGetCurrent();
};

struct {
    LUMMachTime started = LUMMachTimeGetCurrent();
    long requests = 0, badRequests = 0, timedOut = 0;
    size_t maxRequestBytes = 8192;
    double requestTimeout = 5.0;
    lum::Ref<LUMDictionaryRef> settings;
    std::list<std::weak_ptr<Connection>> open;
} server;

void loadSettings()
{
    auto url = lum::adopt(LUMBundleCopyResourceURL(LUMBundleGetMain(), "jsonhttpd"_lum, "json"_lum, nullptr));
    LUMDataRef bytes = nullptr;
    if (!LUMURLCreateDataAndPropertiesFromResource(nullptr, url.get(), &bytes, nullptr, nullptr, nullptr)) {
        LUMLog(0, "jsonhttpd: no settings at %@, using defaults"_lum, url.get());
        return;
    }
    auto data = lum::adopt(bytes);
    auto read = lum::readJSON({reinterpret_cast<const char *>(LUMDataGetBytePtr(data.get())), size_t(LUMDataGetLength(data.get()))});
    if (!read) return LUMLog(0, "jsonhttpd: settings: %@"_lum, lum::string(read.message()).get());
    server.settings = lum::retain(lum::cast<LUMDictionaryRef>(read.value.get()));
    server.maxRequestBytes = lum::value<size_t>(lum::get<LUMNumberRef>(server.settings, "maxRequestBytes"_lum)).value_or(8192);
    server.requestTimeout = lum::value<double>(lum::get<LUMNumberRef>(server.settings, "requestTimeout"_lum)).value_or(5.0);
}

/* "METHOD target HTTP/1.x": upper-case method, a target, a version. */
bool isRequestLine(const std::string &line)
{
    size_t i = 0;
    while (i < line.size() && line[i] >= 'A' && line[i] <= 'Z') i++;
    if (i == 0 || i >= line.size() || line[i] != ' ') return false;
    size_t target = ++i;
    while (i < line.size() && line[i] > ' ' && line[i] < 127) i++;
    if (i == target || i >= line.size() || line[i] != ' ') return false;
    return line.substr(i + 1) == "HTTP/1.0" || line.substr(i + 1) == "HTTP/1.1";
}

/* Answers the request (its header ends at end, or npos for a bad one) and closes. */
void respond(LUMSocketRef s, const std::string &request, size_t end)
{
    std::string line = request.substr(0, std::min(request.find('\r'), end));
    bool ok = end != std::string::npos && isRequestLine(line);
    server.requests++;
    if (!ok) server.badRequests++;
    auto body = lum::mutableDictionary({{"uptime", LUMMachTimeGetInterval(LUMMachTimeGetCurrent(), server.started)},
                                        {"requests", server.requests},
                                        {"counters", lum::array({server.requests, server.badRequests})}});
    for (LUMStringRef key : {"server"_lum, "greeting"_lum})
        if (auto v = LUMDictionaryGetValue(raw(server.settings), key)) LUMDictionarySetValue(body.get(), key, v);
    LUMDictionarySetValue(body.get(), ok ? "request"_lum : "error"_lum, ok ? lum::string(line).get() : "bad request"_lum);
    std::string json = lum::writeJSON(body).value;
    auto response = lum::adopt(LUMHTTPMessageCreateResponse(nullptr, ok ? 200 : 400, ok ? "OK"_lum : "Bad Request"_lum, kLUMHTTPVersion1_1));
    LUMHTTPMessageSetHeaderFieldValue(response.get(), "Content-Type"_lum, "application/json"_lum);
    LUMHTTPMessageSetHeaderFieldValue(response.get(), "Content-Length"_lum, lum::format("%d", int(json.size())).get());
    LUMHTTPMessageSetHeaderFieldValue(response.get(), "Connection"_lum, "close"_lum);
    auto bodyData = lum::adopt(LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(json.data()), LUMIndex(json.size())));
    LUMHTTPMessageSetBody(response.get(), bodyData.get());
    LUMSocketSendData(s, nullptr, lum::adopt(LUMHTTPMessageCopySerializedMessage(response.get())).get(), 5.0);
    LUMSocketInvalidate(s); // closes the descriptor; the socket and its connection go
}

void accept(int descriptor)
{
    auto connection = std::make_shared<Connection>();
    server.open.push_front(connection);
    auto s = lum::socket(descriptor, kLUMSocketDataCallBack, [connection](LUMSocketRef s, LUMSocketCallBackType, LUMDataRef, const void *data) {
        auto received = static_cast<LUMDataRef>(data);
        if (!LUMSocketIsValid(s)) return;
        if (LUMDataGetLength(received) == 0) return LUMSocketInvalidate(s); // the peer went away
        std::string &request = connection->request;
        request.append(reinterpret_cast<const char *>(LUMDataGetBytePtr(received)), size_t(LUMDataGetLength(received)));
        size_t end = request.find("\r\n\r\n");
        // Requests larger than the limit are refused, complete or not.
        bool tooLarge = request.size() > server.maxRequestBytes || (end != std::string::npos && end + 4 > server.maxRequestBytes);
        if (tooLarge || end != std::string::npos) respond(s, request, tooLarge ? std::string::npos : end);
    });
    connection->socket = s.get();
    lum::watch(s);
}

/* Closes every connection for which keep(connection) is false. */
template <typename Keep>
void closeConnections(Keep keep)
{
    for (auto it = server.open.begin(); it != server.open.end();) {
        auto connection = it->lock();
        bool stays = connection && keep(*connection);
        it = stays ? std::next(it) : server.open.erase(it);
        if (connection && !stays) LUMSocketInvalidate(connection->socket);
    }
}

} // namespace

int main(int argc, char **argv)
{
    std::string where = argc > 1 ? argv[argc - 1] : "127.0.0.1:8080";
    size_t colon = where.rfind(':');
    std::string host = colon != std::string::npos && colon > 0 ? where.substr(0, colon) : "127.0.0.1";
    int port = std::atoi(where.c_str() + (colon == std::string::npos ? 0 : colon + 1));
    if (!LUMInitialize(argc, argv)) return 1;
    loadSettings();

    auto listener = lum::socket(AF_INET, SOCK_STREAM, 0, kLUMSocketAcceptCallBack,
                                [](LUMSocketRef, auto, auto, const void *data) { accept(*static_cast<const int *>(data)); });
    int one = 1; // the port can be reused at once after a restart
    setsockopt(LUMSocketGetNative(listener.get()), SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in address{AF_INET, htons(uint16_t(port)), {inet_addr(host.c_str())}, {}};
    if (LUMSocketSetAddress(listener.get(), lum::adopt(LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(&address), sizeof(address))).get()) !=
        kLUMSocketSuccess) {
        std::fprintf(stderr, "jsonhttpd: cannot listen on %s:%d\n", host.c_str(), port);
        return 1;
    }
    listen(LUMSocketGetNative(listener.get()), SOMAXCONN); // bursts queue instead of being dropped
    auto bound = lum::adopt(LUMSocketCopyAddress(listener.get()));
    std::printf("jsonhttpd listening on %s:%d\n", host.c_str(), ntohs(reinterpret_cast<const sockaddr_in *>(LUMDataGetBytePtr(bound.get()))->sin_port));
    std::fflush(stdout);
    lum::watch(listener);

    // Signals arrive as readable bytes, not as interruptions of select.
    sigset_t mask;
    sigemptyset(&mask), sigaddset(&mask, SIGINT), sigaddset(&mask, SIGTERM), sigprocmask(SIG_BLOCK, &mask, nullptr);
    auto signals = lum::watch(lum::socket(signalfd(-1, &mask, 0), kLUMSocketReadCallBack, [](LUMSocketRef s, auto...) {
        signalfd_siginfo signal;
        if (read(LUMSocketGetNative(s), &signal, sizeof(signal)) == ssize_t(sizeof(signal)))
            LUMLog(0, "jsonhttpd: signal %d, stopping"_lum, int(signal.ssi_signo));
        LUMRunLoopStop(LUMRunLoopGetCurrent());
    }));
    // Every half second: connections that have not sent their request in time are closed unanswered.
    auto idle = lum::timer(LUMAbsoluteTimeGetCurrent() + 0.5, 0.5, [] {
        LUMMachTime now = LUMMachTimeGetCurrent();
        closeConnections([now](const Connection &c) {
            bool late = LUMMachTimeGetInterval(now, c.opened) >= server.requestTimeout;
            server.timedOut += late;
            return !late;
        });
    });
    LUMRunLoopAddTimer(LUMRunLoopGetCurrent(), idle.get(), kLUMRunLoopCommonModes);

    LUMRunLoopRun();

    closeConnections([](const Connection &) { return false; }); // shutdown: every connection still open
    LUMRunLoopTimerInvalidate(idle.get());
    LUMSocketInvalidate(signals.get());
    LUMSocketInvalidate(listener.get());
    server.settings.reset();
    std::printf("jsonhttpd stopped after %ld requests (%ld bad, %ld timed out)\n", server.requests, server.badRequests, server.timedOut);
    return 0;
}
