/* jsonhttpd.c — a small HTTP server on the run loop that answers every
 * request with a JSON document: the library from the network to the
 * application and back.
 *
 *   jsonhttpd [host:]port        (default 127.0.0.1:8080; port 0 picks one)
 *
 * A listening socket accepts connections; each connection's data callback
 * collects the request until the blank line that ends its header, then a
 * response is built with an HTTP message and a JSON body, sent, and the
 * connection closed. A bad or oversized request gets 400. A connection that
 * has not sent its whole request within requestTimeout seconds is closed by
 * a run-loop timer, so idle or slow clients cannot use up the descriptors;
 * a peer that goes away is closed at once, and every connection still open
 * is closed at shutdown. SIGINT and SIGTERM arrive through a signalfd
 * watched by the same run loop and stop it. Its settings come from
 * Resources/jsonhttpd.json, found through the main bundle.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

/* One open connection; the socket's context owns it, and it is in the
 * server's list of open connections until its socket goes. */
typedef struct Connection {
    LUMMutableDataRef request; /* the bytes received so far */
    LUMSocketRef socket;       /* not retained: the socket owns this record */
    LUMMachTime opened;
    struct Connection *previous, *next;
} Connection;

static struct {
    LUMMachTime started;
    long requests;
    long badRequests;
    long timedOut;
    LUMIndex maxRequestBytes;
    double requestTimeout; /* seconds a connection may take to send its request */
    LUMDictionaryRef settings;
    Connection *open;      /* the open connections, newest first */
} server;

/* ---- Settings from the bundle's resources ------------------------------- */

static void loadSettings(void)
{
    LUMURLRef url = LUMBundleCopyResourceURL(LUMBundleGetMain(), LUMSTR("jsonhttpd"), LUMSTR("json"), NULL);
    LUMDataRef bytes = NULL;
    server.maxRequestBytes = 8192;
    server.requestTimeout = 5.0;
    if (LUMURLCreateDataAndPropertiesFromResource(NULL, url, &bytes, NULL, NULL, NULL)) {
        LUMPropertyListRef settings = LUMPropertyListCreateWithData(NULL, bytes, 0, NULL, NULL);
        if (LUMPropertyListIsValid(settings, kLUMPropertyListJSONFormat)) {
            LUMNumberRef limit = (LUMNumberRef)LUMDictionaryGetValue((LUMDictionaryRef)settings, LUMSTR("maxRequestBytes"));
            LUMNumberRef timeout = (LUMNumberRef)LUMDictionaryGetValue((LUMDictionaryRef)settings, LUMSTR("requestTimeout"));
            if (limit != NULL) LUMNumberGetValue(limit, kLUMNumberSInt32Type, &server.maxRequestBytes);
            if (timeout != NULL) LUMNumberGetValue(timeout, kLUMNumberDoubleType, &server.requestTimeout);
            server.settings = (LUMDictionaryRef)settings;
        } else {
            LUMRelease(settings);
        }
    } else {
        LUMLog(0, LUMSTR("jsonhttpd: no settings at %@, using defaults"), url);
    }
    LUMRelease(bytes);
    LUMRelease(url);
}

/* ---- Requests and responses ------------------------------------------------ */

/* The index of "\r\n\r\n" in the request, or -1. */
static LUMIndex headerEnd(LUMDataRef request)
{
    const UInt8 *bytes = LUMDataGetBytePtr(request);
    LUMIndex length = LUMDataGetLength(request);
    for (LUMIndex i = 0; i + 3 < length; i++) {
        if (bytes[i] == '\r' && bytes[i + 1] == '\n' && bytes[i + 2] == '\r' && bytes[i + 3] == '\n') return i;
    }
    return -1;
}

/* "METHOD target HTTP/1.x": upper-case method, a target, a version. */
static int isRequestLine(const UInt8 *line, LUMIndex length)
{
    LUMIndex i = 0, methodLength, targetStart;
    while (i < length && line[i] >= 'A' && line[i] <= 'Z') i++;
    methodLength = i;
    if (methodLength == 0 || i >= length || line[i] != ' ') return 0;
    targetStart = ++i;
    while (i < length && line[i] > ' ' && line[i] < 127) i++;
    if (i == targetStart || i >= length || line[i] != ' ') return 0;
    i++;
    return length - i == 8 && memcmp(line + i, "HTTP/1.", 7) == 0 && (line[i + 7] == '0' || line[i + 7] == '1');
}

static void setInteger(LUMMutableDictionaryRef dictionary, const char *key, long value)
{
    int32_t number = (int32_t)value;
    LUMNumberRef n = LUMNumberCreate(NULL, kLUMNumberSInt32Type, &number);
    LUMDictionarySetValue(dictionary, LUMSTR(key), n);
    LUMRelease(n);
}

/* The JSON body: the server's settings, uptime, request count and the
 * request line received (or the error). */
static LUMDataRef copyBody(LUMStringRef requestLine, int ok)
{
    LUMMutableDictionaryRef body = LUMDictionaryCreateMutable(NULL, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    double uptime = LUMMachTimeGetInterval(LUMMachTimeGetCurrent(), server.started);
    LUMNumberRef uptimeNumber = LUMNumberCreate(NULL, kLUMNumberDoubleType, &uptime);
    LUMMutableArrayRef counters = LUMArrayCreateMutable(NULL, 0, &kLUMTypeArrayCallBacks);
    LUMNumberRef requests, bad;
    int32_t value;
    LUMDataRef json;

    if (server.settings != NULL) {
        LUMDictionarySetValue(body, LUMSTR("server"), LUMDictionaryGetValue(server.settings, LUMSTR("server")));
        LUMDictionarySetValue(body, LUMSTR("greeting"), LUMDictionaryGetValue(server.settings, LUMSTR("greeting")));
    }
    LUMDictionarySetValue(body, LUMSTR("uptime"), uptimeNumber);
    setInteger(body, "requests", server.requests);
    value = (int32_t)server.requests;
    requests = LUMNumberCreate(NULL, kLUMNumberSInt32Type, &value);
    value = (int32_t)server.badRequests;
    bad = LUMNumberCreate(NULL, kLUMNumberSInt32Type, &value);
    LUMArrayAppendValue(counters, requests);
    LUMArrayAppendValue(counters, bad);
    LUMDictionarySetValue(body, LUMSTR("counters"), counters);
    if (ok) LUMDictionarySetValue(body, LUMSTR("request"), requestLine);
    else LUMDictionarySetValue(body, LUMSTR("error"), LUMSTR("bad request"));
    json = LUMPropertyListCreateData(NULL, body, kLUMPropertyListJSONFormat, 0, NULL);
    LUMRelease(requests);
    LUMRelease(bad);
    LUMRelease(counters);
    LUMRelease(uptimeNumber);
    LUMRelease(body);
    return json;
}

static void respond(LUMSocketRef s, Connection *connection, LUMIndex end)
{
    const UInt8 *bytes = LUMDataGetBytePtr(connection->request);
    LUMIndex lineLength = 0;
    LUMStringRef requestLine = NULL;
    LUMHTTPMessageRef response;
    LUMDataRef body, serialized;
    LUMStringRef length;
    int ok;

    while (end >= 0 && lineLength < end && bytes[lineLength] != '\r') lineLength++;
    ok = end >= 0 && isRequestLine(bytes, lineLength);
    server.requests++;
    if (!ok) server.badRequests++;
    if (ok) requestLine = LUMStringCreateWithBytes(NULL, bytes, lineLength, kLUMStringEncodingUTF8);
    body = copyBody(requestLine, ok);
    response = LUMHTTPMessageCreateResponse(NULL, ok ? 200 : 400, ok ? LUMSTR("OK") : LUMSTR("Bad Request"), kLUMHTTPVersion1_1);
    length = LUMStringCreateWithFormat(NULL, NULL, LUMSTR("%d"), (int)LUMDataGetLength(body));
    LUMHTTPMessageSetHeaderFieldValue(response, LUMSTR("Content-Type"), LUMSTR("application/json"));
    LUMHTTPMessageSetHeaderFieldValue(response, LUMSTR("Content-Length"), length);
    LUMHTTPMessageSetHeaderFieldValue(response, LUMSTR("Connection"), LUMSTR("close"));
    LUMHTTPMessageSetBody(response, body);
    serialized = LUMHTTPMessageCopySerializedMessage(response);
    LUMSocketSendData(s, NULL, serialized, 5.0);
    LUMSocketInvalidate(s); /* closes the descriptor */
    LUMRelease(serialized);
    LUMRelease(length);
    LUMRelease(response);
    LUMRelease(body);
    LUMRelease(requestLine);
}

/* ---- Callbacks ----------------------------------------------------------------- */

/* The socket's context release: the socket is gone, and so is its record. */
static void releaseConnection(const void *info)
{
    Connection *connection = (Connection *)info;
    if (connection->previous != NULL) connection->previous->next = connection->next;
    else server.open = connection->next;
    if (connection->next != NULL) connection->next->previous = connection->previous;
    LUMRelease(connection->request);
    free(connection);
}

/* Closes the connection: its source leaves the run loop, which releases the
 * socket, which releases the record. */
static void closeConnection(Connection *connection) { LUMSocketInvalidate(connection->socket); }

/* Every half second: connections that have not sent their whole request in
 * time are closed without an answer. */
static void closeIdleConnections(LUMRunLoopTimerRef timer, void *info)
{
    LUMMachTime now = LUMMachTimeGetCurrent();
    Connection *connection = server.open;
    (void)timer;
    (void)info;
    while (connection != NULL) {
        Connection *next = connection->next; /* closing frees the record */
        if (LUMMachTimeGetInterval(now, connection->opened) >= server.requestTimeout) {
            server.timedOut++;
            closeConnection(connection);
        }
        connection = next;
    }
}

static void onData(LUMSocketRef s, LUMSocketCallBackType type, LUMDataRef address, const void *data, void *info)
{
    Connection *connection = (Connection *)info;
    LUMDataRef received = (LUMDataRef)data;
    LUMIndex end;
    (void)type;
    (void)address;
    if (!LUMSocketIsValid(s)) return;
    if (LUMDataGetLength(received) == 0) { /* the peer went away */
        LUMSocketInvalidate(s);
        return;
    }
    LUMDataAppendBytes(connection->request, LUMDataGetBytePtr(received), LUMDataGetLength(received));
    end = headerEnd(connection->request);
    /* Requests larger than the limit are refused, complete or not. */
    if (LUMDataGetLength(connection->request) > server.maxRequestBytes || (end >= 0 && end + 4 > server.maxRequestBytes))
        respond(s, connection, -1);
    else if (end >= 0)
        respond(s, connection, end);
}

static void onAccept(LUMSocketRef listener, LUMSocketCallBackType type, LUMDataRef address, const void *data, void *info)
{
    Connection *connection = (Connection *)calloc(1, sizeof(Connection));
    LUMSocketContext context = {0, NULL, NULL, releaseConnection, NULL};
    LUMSocketRef s;
    LUMRunLoopSourceRef source;
    (void)listener;
    (void)type;
    (void)address;
    (void)info;
    if (connection == NULL) {
        close(*(const int *)data);
        return;
    }
    connection->request = LUMDataCreateMutable(NULL, 0);
    connection->opened = LUMMachTimeGetCurrent();
    context.info = connection;
    s = LUMSocketCreateWithNative(NULL, *(const int *)data, kLUMSocketDataCallBack, onData, &context);
    connection->socket = s;
    connection->next = server.open;
    if (server.open != NULL) server.open->previous = connection;
    server.open = connection;
    source = LUMSocketCreateRunLoopSource(NULL, s, 0);
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopCommonModes);
    /* The source in its mode keeps the socket alive until it is invalidated. */
    LUMRelease(source);
    LUMRelease(s);
}

static void onSignal(LUMSocketRef s, LUMSocketCallBackType type, LUMDataRef address, const void *data, void *info)
{
    struct signalfd_siginfo signal;
    (void)type;
    (void)address;
    (void)data;
    (void)info;
    if (read(LUMSocketGetNative(s), &signal, sizeof(signal)) == (ssize_t)sizeof(signal))
        LUMLog(0, LUMSTR("jsonhttpd: signal %d, stopping"), (int)signal.ssi_signo);
    LUMRunLoopStop(LUMRunLoopGetCurrent());
}

/* ---- Start-up --------------------------------------------------------------------- */

static LUMSocketRef watch(LUMSocketRef s)
{
    LUMRunLoopSourceRef source = LUMSocketCreateRunLoopSource(NULL, s, 0);
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopCommonModes);
    LUMRelease(source);
    return s;
}

int main(int argc, char **argv)
{
    const char *where = argc > 1 ? argv[argc - 1] : "127.0.0.1:8080";
    char host[64] = "127.0.0.1";
    const char *colon = strrchr(where, ':');
    int port = atoi(colon != NULL ? colon + 1 : where);
    struct sockaddr_in address;
    LUMDataRef addressData, bound;
    LUMSocketRef listener, signals;
    LUMRunLoopTimerRef idleTimer;
    sigset_t mask;
    int one = 1;

    if (!LUMInitialize(argc, argv)) return 1;
    if (colon != NULL && (size_t)(colon - where) < sizeof(host)) {
        memcpy(host, where, (size_t)(colon - where));
        host[colon - where] = '\0';
    }
    server.started = LUMMachTimeGetCurrent();
    loadSettings();

    listener = LUMSocketCreate(NULL, AF_INET, SOCK_STREAM, 0, kLUMSocketAcceptCallBack, onAccept, NULL);
    setsockopt(LUMSocketGetNative(listener), SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons((uint16_t)port);
    address.sin_addr.s_addr = inet_addr(host);
    addressData = LUMDataCreate(NULL, (const UInt8 *)&address, sizeof(address));
    if (LUMSocketSetAddress(listener, addressData) != kLUMSocketSuccess) {
        fprintf(stderr, "jsonhttpd: cannot listen on %s:%d\n", host, port);
        return 1;
    }
    LUMRelease(addressData);
    /* The library listens with a backlog of 5; a server meant for many
     * clients raises it on the descriptor, so that bursts of connections
     * queue instead of being dropped and retried by TCP a second later. */
    listen(LUMSocketGetNative(listener), SOMAXCONN);
    bound = LUMSocketCopyAddress(listener);
    printf("jsonhttpd listening on %s:%d\n", host, ntohs(((const struct sockaddr_in *)LUMDataGetBytePtr(bound))->sin_port));
    fflush(stdout);
    LUMRelease(bound);
    watch(listener);

    /* Signals arrive as readable bytes, not as interruptions of select. */
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGTERM);
    sigprocmask(SIG_BLOCK, &mask, NULL);
    signals = watch(LUMSocketCreateWithNative(NULL, signalfd(-1, &mask, 0), kLUMSocketReadCallBack, onSignal, NULL));

    idleTimer = LUMRunLoopTimerCreate(NULL, LUMAbsoluteTimeGetCurrent() + 0.5, 0.5, 0, 0, closeIdleConnections, NULL);
    LUMRunLoopAddTimer(LUMRunLoopGetCurrent(), idleTimer, kLUMRunLoopCommonModes);

    LUMRunLoopRun();

    /* Shutdown: every connection still open is closed and released. */
    while (server.open != NULL) closeConnection(server.open);
    LUMRunLoopTimerInvalidate(idleTimer);
    LUMRelease(idleTimer);
    LUMSocketInvalidate(signals);
    LUMSocketInvalidate(listener);
    LUMRelease(signals);
    LUMRelease(listener);
    LUMRelease(server.settings);
    printf("jsonhttpd stopped after %ld requests (%ld bad, %ld timed out)\n", server.requests, server.badRequests, server.timedOut);
    return 0;
}
