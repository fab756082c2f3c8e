#!/usr/bin/env bash
# The page feed's HTTP server in the real program, over real sockets: the
# headless application with private folders and the feed on a free port;
# feed_http.py then checks every route and its exact head, the feed through
# feedparser, the index in headless Chromium (a screenshot is kept at
# BUILD_DIR/screenshots/feed-index.png), paths out of the folder, the head
# limit, clients that trickle or idle, and a flood of malformed requests while
# valid ones keep being answered; last, a new port told to the running
# instance.
#   feed_http.sh BUILD_DIR
# Exit 77 (skipped) when a tool it needs is missing.
set -uo pipefail

build="$(cd "${1:?usage: feed_http.sh BUILD_DIR}" && pwd)"
here="$(cd "$(dirname "$0")" && pwd)"
QP="$build/bin/quirepad"
[ -x "$QP" ] || { echo "feed_http: $QP is not built"; exit 1; }

# A Python that has feedparser (Debian's python3-feedparser is for
# /usr/bin/python3, which another python3 on the PATH may hide).
PY=
for p in python3 /usr/bin/python3; do
    if command -v "$p" >/dev/null && "$p" -c 'import feedparser' 2>/dev/null; then PY="$(command -v "$p")"; break; fi
done
[ -n "$PY" ] || { echo "SKIP: python3 with feedparser is missing (apt-get install python3-feedparser)"; exit 77; }
command -v chromium >/dev/null || command -v chromium-browser >/dev/null \
    || { echo "SKIP: chromium is not installed (scripts/install-deps.sh installs it)"; exit 77; }

D="$(mktemp -d /tmp/quirepad-feedhttp.XXXXXX)"
APP_PID=
CLIENT_PID=
cleanup() {
    [ -n "$CLIENT_PID" ] && kill -TERM "$CLIENT_PID" 2>/dev/null && wait "$CLIENT_PID" 2>/dev/null
    if [ -n "$APP_PID" ] && kill -0 "$APP_PID" 2>/dev/null; then
        kill -TERM "$APP_PID" 2>/dev/null
        for _ in $(seq 50); do kill -0 "$APP_PID" 2>/dev/null || break; sleep 0.1; done
        kill -KILL "$APP_PID" 2>/dev/null
    fi
    [ -n "$APP_PID" ] && wait "$APP_PID" 2>/dev/null
    rm -rf "$D"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP

mkdir -p "$D/run" "$D/config" "$D/data" "$D/cache" "$D/shared" "$D/home"
chmod 700 "$D/run"
export HOME="$D/home" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" XDG_DATA_HOME="$D/data" \
    XDG_CACHE_HOME="$D/cache" QUIREPAD_SHARED_DIR="$D/shared"
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0"   # leaks are the unit tests' business
unset DISPLAY WAYLAND_DISPLAY

port="$("$PY" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')"
"$QP" defaults write HTTPServer_enabled true || { echo "feed_http: FAIL: cannot turn the feed on"; exit 1; }
"$QP" defaults write HTTPServer_serverPort "$port" || { echo "feed_http: FAIL: cannot set the port"; exit 1; }

"$QP" --headless > "$D/app.log" 2>&1 &
APP_PID=$!
url=
for _ in $(seq 150); do
    kill -0 "$APP_PID" 2>/dev/null || break
    url="$("$QP" feed url 2>/dev/null)"
    [ -n "$url" ] && break
    sleep 0.1
done
if [ "$url" != "http://127.0.0.1:$port/" ]; then
    echo "feed_http: FAIL: the feed is not at http://127.0.0.1:$port/ (feed url: '$url')"
    "$QP" feed status; tail -20 "$D/app.log"
    exit 1
fi
folder="$("$QP" feed status | sed -n 's/^folder: //p')"
if [ "$folder" != "$XDG_CACHE_HOME/Quirepad/RSS Files" ] || [ ! -d "$folder" ]; then
    echo "feed_http: FAIL: the feed serves '$folder', not \$XDG_CACHE_HOME/Quirepad/RSS Files"
    exit 1
fi
echo "feed_http: quirepad $APP_PID serves $url from $folder"

# In the background, so that a signal reaches the trap at once.
"$PY" "$here/feed_http.py" --port "$port" --folder "$folder" --pid "$APP_PID" --quirepad "$QP" --out "$build" &
CLIENT_PID=$!
wait "$CLIENT_PID"
rc=$?
CLIENT_PID=

if ! kill -0 "$APP_PID" 2>/dev/null; then
    echo "feed_http: FAIL: quirepad is gone"; rc=1
fi
if grep -qE "ERROR: AddressSanitizer|runtime error:" "$D/app.log"; then
    echo "feed_http: FAIL: sanitizer report in the application's log"; rc=1
fi
if [ "$rc" -ne 0 ]; then
    echo "---- application log (last lines) ----"; tail -30 "$D/app.log"
fi
exit "$rc"
