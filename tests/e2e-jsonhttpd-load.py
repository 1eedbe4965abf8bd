#!/usr/bin/env python3
"""e2e-jsonhttpd-load.py — the example server under a flood and under idle
clients, on loopback.

  e2e-jsonhttpd-load.py <jsonhttpd>

1. Flood: more connections than select can watch (1,100) are opened and held
   at once, then each sends a request; every one must be answered, and the
   server's descriptors must come back to where they were.
2. Idle clients: 50 connections send half a request and stop; while they
   wait, normal requests keep being answered; after the request timeout the
   server closes all 50, and its descriptors come back again.
Part of LumBase; MIT licence."""
import json
import os
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import time

FLOOD = 1100
IDLE = 50
REQUEST = b"GET /load HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def start(server, resources, timeout):
    with open(os.path.join(resources, "jsonhttpd.json"), "w") as f:
        json.dump({"server": "jsonhttpd", "greeting": "load", "maxRequestBytes": 8192, "requestTimeout": timeout}, f)
    def raise_limit():
        resource.setrlimit(resource.RLIMIT_NOFILE, (4096, max(4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1])))
    process = subprocess.Popen([server, "--LUMResourcesPath", resources, "127.0.0.1:0"], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, preexec_fn=raise_limit, text=True)
    line = process.stdout.readline()
    if "listening on" not in line:
        fail("server did not start: " + line + process.stderr.read())
    return process, int(line.strip().rsplit(":", 1)[1])


def descriptors(process):
    return len(os.listdir("/proc/%d/fd" % process.pid))


def settle(process, baseline, what):
    deadline = time.time() + 10
    while time.time() < deadline:
        if descriptors(process) <= baseline:
            return
        time.sleep(0.05)
    fail("%s: the server holds %d descriptors, %d before" % (what, descriptors(process), baseline))


def connect(port):
    s = socket.create_connection(("127.0.0.1", port), timeout=10)
    return s


def read_all(s):
    chunks = []
    while True:
        chunk = s.recv(65536)
        if not chunk:
            return b"".join(chunks)
        chunks.append(chunk)


def ask(port):
    s = connect(port)
    s.sendall(REQUEST)
    reply = read_all(s)
    s.close()
    return reply


def flood(server, resources):
    process, port = start(server, resources, 30.0)
    ask(port)
    baseline = descriptors(process)
    clients = [connect(port) for _ in range(FLOOD)]
    # All are open at once: wait until the server has accepted every one.
    deadline = time.time() + 20
    while descriptors(process) < baseline + FLOOD and time.time() < deadline:
        time.sleep(0.05)
    peak = descriptors(process)
    if peak < baseline + FLOOD or peak <= 1024:
        fail("the server holds only %d descriptors for %d connections" % (peak, FLOOD))
    for s in clients:
        s.sendall(REQUEST)
    answered = sum(1 for s in clients if read_all(s).startswith(b"HTTP/1.1 200 OK"))
    for s in clients:
        s.close()
    if answered != FLOOD:
        fail("%d of %d concurrent connections answered" % (answered, FLOOD))
    settle(process, baseline, "after the flood")
    process.send_signal(signal.SIGTERM)
    out = process.communicate(timeout=10)[0]
    if process.returncode != 0:
        fail("server exit %d" % process.returncode)
    print("flood: %d concurrent connections answered (server peak %d descriptors), all closed" % (FLOOD, peak))


def idle(server, resources):
    process, port = start(server, resources, 2.0)
    ask(port)
    baseline = descriptors(process)
    started = time.time()
    idlers = [connect(port) for _ in range(IDLE)]
    for s in idlers:
        s.sendall(REQUEST[:20])  # half a request, then nothing
    answered = 0
    while time.time() - started < 1.5:
        if ask(port).startswith(b"HTTP/1.1 200 OK"):
            answered += 1
    if answered == 0:
        fail("no request answered while idle connections waited")
    closed = 0
    for s in idlers:
        s.settimeout(10)
        try:
            if s.recv(1) == b"":
                closed += 1
        except (socket.timeout, ConnectionResetError):
            pass
        s.close()
    waited = time.time() - started
    if closed != IDLE:
        fail("%d of %d idle connections closed by the server" % (closed, IDLE))
    if waited < 2.0:
        fail("idle connections closed after %.1f s, before the 2 s timeout" % waited)
    settle(process, baseline, "after the idle clients")
    process.send_signal(signal.SIGTERM)
    out = process.communicate(timeout=10)[0]
    if "(0 bad, %d timed out)" % IDLE not in out:
        fail("summary: " + out)
    print("idle: %d half requests closed after %.1f s; %d normal requests answered meanwhile" % (IDLE, waited, answered))


def main():
    server = sys.argv[1]
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if hard != resource.RLIM_INFINITY and hard < 4096:
        print("descriptor limit %d is below 4096: skipped" % hard)
        sys.exit(77)
    resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, 4096), hard))
    with tempfile.TemporaryDirectory() as resources:
        flood(server, resources)
        idle(server, resources)
    print("2 passed, 0 failed")


if __name__ == "__main__":
    main()
