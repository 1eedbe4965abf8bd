#!/usr/bin/env bash
# End to end: starts the example JSON server on a free loopback port, asks it
# with curl (installed here when missing and allowed), and checks the status
# line, the headers and that the body reads back with the library's reader.
#   e2e-jsonhttpd.sh <jsonhttpd> <json_check> ["<emulator>"]
set -euo pipefail
server="$1"; check="$2"; emulator="${3:-}"
emulator=${emulator//;/ }

if ! command -v curl >/dev/null; then
  if [ "$(id -u)" -eq 0 ]; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q curl >/dev/null 2>&1 || \
      { apt-get update -q >/dev/null && DEBIAN_FRONTEND=noninteractive apt-get install -y -q curl >/dev/null; }
  fi
  command -v curl >/dev/null || { echo "curl is missing (install it, or run as root)"; exit 1; }
fi

work=$(mktemp -d)
pid=
cleanup() { [ -n "$pid" ] && kill "$pid" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

$emulator "$server" 127.0.0.1:0 >"$work/server.out" 2>"$work/server.err" &
pid=$!
for _ in $(seq 1 100); do
  grep -q 'listening on' "$work/server.out" 2>/dev/null && break
  sleep 0.05
done
port=$(sed -n 's/^jsonhttpd listening on 127.0.0.1:\([0-9]*\)$/\1/p' "$work/server.out")
[ -n "$port" ] || { echo "server did not start"; cat "$work/server.out" "$work/server.err"; exit 1; }
url="http://127.0.0.1:$port"

fail() { echo "FAIL: $*"; exit 1; }

# A good request.
curl -s -D "$work/headers" -o "$work/body" "$url/e2e?x=1"
tr -d '\r' < "$work/headers" > "$work/h"
head -n 1 "$work/h" | grep -qx 'HTTP/1.1 200 OK' || fail "status line: $(head -n 1 "$work/h")"
grep -qx 'Content-Type: application/json' "$work/h" || fail "no JSON content type"
grep -qx 'Connection: close' "$work/h" || fail "no Connection: close"
length=$(sed -n 's/^Content-Length: //p' "$work/h")
[ "$length" = "$(wc -c < "$work/body")" ] || fail "Content-Length $length for $(wc -c < "$work/body") bytes"
$emulator "$check" request "GET /e2e?x=1 HTTP/1.1" < "$work/body" || fail "body does not read back"
$emulator "$check" greeting "Hello from LumBase" < "$work/body" >/dev/null || fail "settings from Resources not used"

# A bad request line and an oversized request get 400, and the server lives on.
code=$(curl -s -o "$work/bad" -w '%{http_code}' -X 'get' "$url/")
[ "$code" = 400 ] || fail "lower-case method gave $code"
$emulator "$check" error "bad request" < "$work/bad" >/dev/null || fail "400 body"
big=$(head -c 10000 /dev/zero | tr '\0' 'a')
code=$(curl -s -o /dev/null -w '%{http_code}' -H "X-Big: $big" "$url/" || true)
[ "$code" = 400 ] || fail "oversized request gave $code"
code=$(curl -s -o /dev/null -w '%{http_code}' "$url/again")
[ "$code" = 200 ] || fail "server stopped answering ($code)"

# SIGTERM stops it cleanly.
kill -TERM "$pid"
wait "$pid"
status=$?
pid=
[ "$status" -eq 0 ] || fail "exit status $status"
grep -q '^jsonhttpd stopped after 4 requests (2 bad, 0 timed out)$' "$work/server.out" || fail "$(cat "$work/server.out")"
echo "jsonhttpd end to end: ok (port $port)"
