#!/usr/bin/env bash
# Web pages to PDF through the program's own doors: the command line
# without a running instance, the running instance's D-Bus method
# PrintWebView on a private session bus (gdbus as the client), and
# print-web-view --deliver into a destination. Pages come from a local
# HTTP server of the test's own.
#   webcapture.sh BUILD_DIR
# Exit 77 (skipped) when the machine cannot run it.
set -uo pipefail

build="$(cd "${1:?usage: webcapture.sh BUILD_DIR}" && pwd)"
QP="$build/bin/quirepad"
for tool in dbus-daemon gdbus python3 pdftotext; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done
[ -x "$build/bin/quirepad-webcapture" ] || { echo "SKIP: quirepad-webcapture was not built (Qt WebEngine missing?)"; exit 77; }

D="$(mktemp -d /tmp/quirepad-webcapture.XXXXXX)"
SERVER_PID=
BUS_PID=
APP_PID=
failures=0
log() { echo "webcapture: $*"; }
fail() { echo "webcapture: FAIL: $*"; failures=$((failures + 1)); }
cleanup() {
    [ -n "$APP_PID" ] && kill -TERM "$APP_PID" 2>/dev/null && wait "$APP_PID" 2>/dev/null
    [ -n "$SERVER_PID" ] && kill "$SERVER_PID" 2>/dev/null
    [ -n "$BUS_PID" ] && kill "$BUS_PID" 2>/dev/null
    if [ "$failures" -ne 0 ]; then echo "---- application log ----"; tail -30 "$D/app.log" 2>/dev/null; fi
    rm -rf "$D"
}
trap cleanup EXIT

# The user's private folders; the web engine refuses its sandbox as root.
# Under AddressSanitizer, Chromium's own sized deletes inside Qt WebEngine
# mismatch (not ours): that check is off for it, as in the capture suite.
mkdir -p "$D/run" "$D/home" "$D/pages" "$D/out"
chmod 700 "$D/run"
export XDG_RUNTIME_DIR="$D/run" HOME="$D/home" XDG_CONFIG_HOME="$D/home/.config" XDG_DATA_HOME="$D/home/.local/share" \
    XDG_CACHE_HOME="$D/home/.cache" QUIREPAD_SHARED_DIR="$D/shared" QT_QPA_PLATFORM=offscreen \
    ASAN_OPTIONS=detect_leaks=0:new_delete_type_mismatch=0
[ "$(id -u)" -eq 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1
unset DISPLAY WAYLAND_DISPLAY

cat > "$D/pages/plain.html" <<'HTML'
<html><head><title>Quarterly notes</title></head><body><h1>Capture me please</h1><p>Second line.</p></body></html>
HTML
cat > "$D/pages/untitled.html" <<'HTML'
<html><body><p>No title here</p></body></html>
HTML
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
(cd "$D/pages" && exec python3 -m http.server "$port" --bind 127.0.0.1 >/dev/null 2>&1) &
SERVER_PID=$!
for _ in $(seq 50); do python3 -c "import urllib.request; urllib.request.urlopen('http://127.0.0.1:$port/plain.html')" 2>/dev/null && break; sleep 0.1; done
URL="http://127.0.0.1:$port"

pdf_text() { pdftotext "$1" - 2>/dev/null | tr -s '[:space:]' ' '; }

# 1. No instance: the command captures by itself.
path=$("$QP" print-web-view "$URL/plain.html" 2>"$D/cli.err") || fail "print-web-view failed: $(tail -3 "$D/cli.err")"
[ "$(basename "$path")" = "Quarterly notes.pdf" ] || fail "the PDF is named $(basename "$path")"
pdf_text "$path" | grep -q "Capture me please" || fail "the PDF lacks the page's text"
[ "$(cat "$path.title" 2>/dev/null)" = "Quarterly notes" ] || fail "no title file beside the PDF"
case "$path" in "$XDG_CACHE_HOME"/*) ;; *) fail "the PDF is not in the user's private folder: $path" ;; esac
"$QP" print-web-view "http://127.0.0.1:1/" >/dev/null 2>&1 && fail "a refused connection gave a PDF"
"$QP" print-web-view 2>/dev/null; [ $? -eq 2 ] || fail "print-web-view without an address is not a usage error"

# 2. The running instance on a private session bus.
eval "$(dbus-daemon --session --fork --print-address=1 --print-pid=3 3>"$D/bus.pid" | sed 's/^/DBUS_SESSION_BUS_ADDRESS=/; s/$/; export DBUS_SESSION_BUS_ADDRESS/')"
BUS_PID=$(cat "$D/bus.pid")
"$QP" --headless > "$D/app.log" 2>&1 &
APP_PID=$!
call() {
    gdbus call --session --dest com.halvern.Quirepad --object-path /com/halvern/Quirepad \
        --method com.halvern.Quirepad.PrintWebView "$1" 2>&1
}
for _ in $(seq 100); do gdbus introspect --session --dest com.halvern.Quirepad --object-path /com/halvern/Quirepad >/dev/null 2>&1 && break; sleep 0.1; done
answer=$(call "$URL/plain.html")
file=$(echo "$answer" | sed -n "s|^('file://\(.*\)',)$|\1|p")
[ -n "$file" ] && [ -f "$file" ] || fail "PrintWebView answered $answer"
answer=$(call "$URL/untitled.html")
echo "$answer" | grep -q "/Untitled.pdf'" || fail "a page without a title is not Untitled.pdf: $answer"
start=$(date +%s%N)
answer=$(call "http://127.0.0.1:1/")
took=$(( ($(date +%s%N) - start) / 1000000 ))
[ "$answer" = "('',)" ] || fail "a refused connection answered $answer"
[ "$took" -lt 10000 ] || fail "a refused connection took $took ms, not at once"
# A tab, then a property list of parameters in base64: the script runs.
params=$(printf '<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>javascript_code</key><string>document.body.innerHTML="Changed by the script"</string></dict></plist>' | base64 -w0)
answer=$(call "$URL/plain.html	$params")
file=$(echo "$answer" | sed -n "s|^('file://\(.*\)',)$|\1|p")
pdf_text "$file" | grep -q "Changed by the script" || fail "the parameters did not reach the capture ($answer)"
starts=$(grep -c "web capture worker started" "$D/app.log")
[ "$starts" -eq 1 ] || fail "the worker was started $starts times for four captures, not kept warm"

# 3. Forwarded to the instance, and delivered into a destination.
"$QP" destinations add F Web >/dev/null && "$QP" destinations set Web name_pattern=%t.pdf "config.output_dir=file://$D/out/" \
    || fail "cannot make the destination"
"$QP" print-web-view "$URL/plain.html" --deliver Web > "$D/deliver.out" 2>&1 || fail "--deliver failed: $(cat "$D/deliver.out")"
[ -f "$D/out/Quarterly notes.pdf" ] || fail "nothing delivered into the destination: $(cat "$D/deliver.out"; ls "$D/out")"
kill -0 "$APP_PID" 2>/dev/null || fail "the instance is gone"

# 4. As a normal user the web engine keeps its sandbox.
if [ "$(id -u)" -eq 0 ] && command -v runuser >/dev/null; then
    id qpweb >/dev/null 2>&1 || useradd -m -s /bin/bash qpweb
    U="$D/user"; mkdir -p "$U"; chown qpweb "$U"; chmod 700 "$U"; chmod 755 "$D"
    upath=$(runuser -u qpweb -- env -i PATH=/usr/bin:/bin HOME="$U" XDG_RUNTIME_DIR="$U" XDG_CACHE_HOME="$U/cache" \
        XDG_CONFIG_HOME="$U/config" XDG_DATA_HOME="$U/data" QT_QPA_PLATFORM=offscreen \
        ASAN_OPTIONS=detect_leaks=0:new_delete_type_mismatch=0 \
        QT_LOGGING_RULES="quirepad.capture.debug=true" \
        "$QP" print-web-view "$URL/plain.html" 2>"$D/user.err") || fail "print-web-view as a user failed: $(tail -3 "$D/user.err")"
    pdf_text "$upath" | grep -q "Capture me please" || fail "the user's PDF lacks the page's text"
    # The engine says so when it runs without its sandbox.
    grep -E 'Sandboxing disabled|\*  no-sandbox' "$D/user.err" \
        && fail "the web engine ran without its sandbox for a normal user"
    [ "$(stat -c %U "$upath" 2>/dev/null)" = qpweb ] || fail "the user's PDF does not belong to the user"
fi

[ "$failures" -eq 0 ] && log "all web capture checks passed"
[ "$failures" -eq 0 ]
