#!/usr/bin/env bash
# How long a capture waits between the page having loaded and its printing,
# with wait_time 0 and 5: measured inside the capture program from its own
# log (the "loaded" and "printing" lines, stamped with the process clock),
# three captures each through one warm worker.
#   bench_capture_settle.sh BUILD_DIR
set -uo pipefail
build="$(cd "${1:?usage: bench_capture_settle.sh BUILD_DIR}" && pwd)"
worker="$build/bin/quirepad-webcapture"
[ -x "$worker" ] || { echo "SKIP: $worker was not built"; exit 77; }
PY=/usr/bin/python3
D="$(mktemp -d /tmp/quirepad-settle.XXXXXX)"
trap 'kill $SERVER_PID 2>/dev/null; rm -rf "$D"' EXIT
mkdir -p "$D/pages" "$D/run" && chmod 700 "$D/run"
echo '<html><head><title>Settle</title></head><body><p>Settling time</p></body></html>' > "$D/pages/p.html"
port=$($PY -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
(cd "$D/pages" && exec $PY -m http.server "$port" --bind 127.0.0.1 >/dev/null 2>&1) &
SERVER_PID=$!
sleep 0.5
[ "$(id -u)" -eq 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1
{
    for wait in 0 5 0 5 0 5; do
        printf '{"id":%d,"url":"http://127.0.0.1:%s/p.html","parameters":{"wait_time":%d}}\n' "$RANDOM" "$port" "$wait"
    done
} | env HOME="$D" XDG_RUNTIME_DIR="$D/run" XDG_CACHE_HOME="$D/cache" QT_QPA_PLATFORM=offscreen \
    QT_LOGGING_RULES="quirepad.capture.debug=true" QT_MESSAGE_PATTERN='%{time process} %{message}' \
    "$worker" --serve > "$D/answers" 2> "$D/log"
$PY - "$D/log" <<'PY'
import re, statistics, sys
loaded = None
rows = {}
for line in open(sys.argv[1], errors="replace"):
    m = re.match(r"\s*([\d.]+) loaded .* printing in (\d+) ms", line)
    if m:
        loaded = (float(m.group(1)), int(m.group(2)))
        continue
    m = re.match(r"\s*([\d.]+) printing ", line)
    if m and loaded:
        rows.setdefault(loaded[1], []).append((float(m.group(1)) - loaded[0]) * 1000)
        loaded = None
print("| wait_time | settle asked (ms) | loaded -> printing, median of %d (ms) |" % min(len(v) for v in rows.values()))
print("|---|---:|---:|")
for asked, values in sorted(rows.items()):
    print("| %d | %d | %.0f |" % (asked // 1000 if asked > 1000 else 0, asked, statistics.median(values)))
PY
