#!/usr/bin/env bash
# Page feed benchmark: the application's HTTP server against nginx on the
# same machine, and the application's event loop while it streams a large
# file.
#   bench_feed.sh BUILD_DIR        (a release build; about a minute)
# 1. wrk -t2 -c16 (a warm-up, then 10 s) against the application's
#    /file/page.pdf (2 KiB) and /index.html (50 files in the folder), and
#    against nginx serving the same file (one worker, keepalive_timeout 0:
#    both servers close every connection, so every request is a new one).
# 2. A 1 GiB file streamed to 8 clients at once (6 reading as fast as they
#    can, 2 slowly), once with the file out of the page cache and once with
#    it in: the longest event-loop stall the application reports
#    (QUIREPAD_LOOP_MONITOR) and, from a separate client, how long the index
#    page takes meanwhile.
# wrk and nginx are installed when missing (Debian packages wrk,
# nginx-light; as root). Environment: WRK_SECONDS (10), WARMUP_SECONDS (2),
# BIG_MB (1024), CLIENT_NICE (10: the clients yield the CPU to the servers),
# BENCH_TMPDIR (/tmp).
# Prints a table and one PASS/FAIL line per target; exit 0 when all pass,
# 1 when one fails, 77 when the machine cannot run it.
set -uo pipefail

build="$(cd "${1:?usage: bench_feed.sh BUILD_DIR}" && pwd)"
WRK_SECONDS=${WRK_SECONDS:-10}
WARMUP_SECONDS=${WARMUP_SECONDS:-2}
BIG_MB=${BIG_MB:-1024}
CLIENT_NICE=${CLIENT_NICE:-10}
RATIO_TARGET=0.5   # the application's requests/s at least half nginx's for the file
STALL_TARGET_MS=20 # the longest event-loop stall while streaming

say() { echo "bench: $*"; }

# What the run needs beyond the build: wrk and nginx (installed here only).
# shellcheck source=/dev/null
. "$(dirname "$0")/bench_tools.sh"
bench_need wrk:wrk nginx:nginx-light
NGINX=$(command -v nginx || echo /usr/sbin/nginx)
for tool in curl python3; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
QP="$build/bin/quirepad"
bench_check_build "$build"

D="$(mktemp -d "${BENCH_TMPDIR:-/tmp}/quirepad-feed-bench.XXXXXX")" || { say "cannot make a work folder"; exit 1; }
APP_PID=
NGINX_PID=
WATCH_PID=
cleanup() {
    trap - EXIT INT TERM
    [ -n "$WATCH_PID" ] && kill "$WATCH_PID" 2>/dev/null && wait "$WATCH_PID" 2>/dev/null
    [ -n "$NGINX_PID" ] && kill -QUIT "$NGINX_PID" 2>/dev/null && wait "$NGINX_PID" 2>/dev/null
    [ -n "$APP_PID" ] && kill -TERM "$APP_PID" 2>/dev/null && wait "$APP_PID" 2>/dev/null
    rm -rf "$D"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkdir -p "$D/run" "$D/config" "$D/data" "$D/cache" "$D/shared" "$D/nginx/tmp"
chmod 700 "$D/run"
app_env=(env XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" XDG_DATA_HOME="$D/data"
         XDG_CACHE_HOME="$D/cache" QUIREPAD_SHARED_DIR="$D/shared")
FOLDER="$D/cache/Quirepad/RSS Files"
mkdir -p "$FOLDER"

# Two free loopback ports.
read -r APP_PORT NGINX_PORT < <(python3 - <<'PY'
import socket
socks = [socket.socket() for _ in range(2)]
for s in socks:
    s.bind(("127.0.0.1", 0))
print(*(s.getsockname()[1] for s in socks))
PY
)

# The folder: the 2 KiB file, 48 more small ones (50 with the big one).
python3 - "$FOLDER" <<'PY'
import os, sys
folder = sys.argv[1]
page = b"%PDF-1.4\n" + bytes((i * 7 + 13) % 256 for i in range(2048 - 9 - 6)) + b"%%EOF\n"
assert len(page) == 2048
open(os.path.join(folder, "page.pdf"), "wb").write(page)
for i in range(1, 49):
    open(os.path.join(folder, f"Printed page {i:02d} & notes.pdf"), "wb").write(page[: 1000 + i * 10])
PY
# The big file, written past the page cache where dd can.
dd if=/dev/zero of="$FOLDER/big.pdf" bs=4M count=$((BIG_MB / 4)) oflag=direct status=none 2>/dev/null \
    || dd if=/dev/zero of="$FOLDER/big.pdf" bs=4M count=$((BIG_MB / 4)) status=none \
    || { say "cannot write the big file"; exit 1; }
BIG_BYTES=$(stat -c %s "$FOLDER/big.pdf")
FILES=$(find "$FOLDER" -maxdepth 1 -type f | wc -l)

# The application, its feed on APP_PORT, its event loop watched.
"${app_env[@]}" "$QP" defaults write HTTPServer_enabled true >/dev/null \
    && "${app_env[@]}" "$QP" defaults write HTTPServer_serverPort "$APP_PORT" >/dev/null \
    || { say "cannot write the settings"; exit 1; }
"${app_env[@]}" QUIREPAD_LOOP_MONITOR="$D/stalls" "$QP" --headless > "$D/app.log" 2>&1 &
APP_PID=$!
for _ in $(seq 100); do
    grep -q '^quirepad: running' "$D/app.log" && break
    kill -0 "$APP_PID" 2>/dev/null || { say "the application ended"; cat "$D/app.log"; exit 1; }
    sleep 0.1
done
grep -q '^quirepad: running' "$D/app.log" || { say "the application did not start"; tail -20 "$D/app.log"; exit 1; }
FEED_URL=$("${app_env[@]}" "$QP" feed url 2>&1) || { say "no feed: $FEED_URL"; tail -20 "$D/app.log"; exit 1; }
APP_BASE="http://127.0.0.1:$APP_PORT"
say "application (pid $APP_PID): feed at $FEED_URL"
MONITOR=no
for _ in $(seq 30); do [ -f "$D/stalls" ] && { MONITOR=yes; break; }; sleep 0.1; done
[ "$MONITOR" = yes ] || say "no stall report: this build does not start LoopStallMonitor (QUIREPAD_LOOP_MONITOR)"

# nginx on NGINX_PORT with the same folder at the same address.
nginx_user=""
[ "$(id -u)" -eq 0 ] && nginx_user="user root;"
cat > "$D/nginx/nginx.conf" <<CONF
daemon off;
worker_processes 1;
$nginx_user
pid $D/nginx/nginx.pid;
error_log $D/nginx/error.log;
events { worker_connections 1024; }
http {
    access_log off;
    keepalive_timeout 0;
    sendfile on;
    types { application/pdf pdf; text/html html; }
    default_type application/octet-stream;
    client_body_temp_path $D/nginx/tmp/body;
    proxy_temp_path $D/nginx/tmp/proxy;
    fastcgi_temp_path $D/nginx/tmp/fastcgi;
    uwsgi_temp_path $D/nginx/tmp/uwsgi;
    scgi_temp_path $D/nginx/tmp/scgi;
    server {
        listen 127.0.0.1:$NGINX_PORT;
        location /file/ { alias "$FOLDER/"; }
    }
}
CONF
"$NGINX" -p "$D/nginx" -c "$D/nginx/nginx.conf" -e "$D/nginx/error.log" > "$D/nginx/out.log" 2>&1 &
NGINX_PID=$!
for _ in $(seq 50); do curl -s -o /dev/null "http://127.0.0.1:$NGINX_PORT/file/page.pdf" && break; sleep 0.1; done

# Both answer the file whole and close the connection.
for base in "$APP_BASE" "http://127.0.0.1:$NGINX_PORT"; do
    head=$(curl -s -D - -o "$D/got" "$base/file/page.pdf") || { say "$base/file/page.pdf: no answer"; exit 1; }
    cmp -s "$D/got" "$FOLDER/page.pdf" || { say "$base/file/page.pdf: wrong body"; exit 1; }
    echo "$head" | grep -qi '^connection: close' || { say "$base does not close the connection"; echo "$head"; exit 1; }
    # Two requests through one curl: a server that closes makes it connect twice.
    connects=$(curl -sv -o /dev/null -o /dev/null "$base/file/page.pdf" "$base/file/page.pdf" 2>&1 | grep -c '^\* Connected to')
    [ "$connects" = 2 ] || { say "$base kept a connection open for a second request"; exit 1; }
done
curl -s "$APP_BASE/index.html" | grep -q 'big.pdf' || { say "the index page does not list the folder"; exit 1; }

# The stall report, followed through the run: one line per report in
# stall-log (its number; the longest stall in its window, the longest own
# part of one (the stall less the time the thread waited for a CPU), and of
# that the longest busy part (the CPU time it used) and blocked part (the
# rest: a call that waits); the stalls and own parts over 20 ms so far).
cat > "$D/bench.py" <<'PY'
import os, socket, statistics, subprocess, sys, threading, time

def read_report(path):
    try:
        return dict(l.split("=", 1) for l in open(path).read().split("\n") if "=" in l)
    except OSError:
        return {}

def watch(path, log):
    last = None
    with open(log, "a", buffering=1) as out:
        while True:
            r = read_report(path)
            if r.get("report") and r["report"] != last:
                last = r["report"]
                out.write(" ".join(r.get(k, "-") for k in (
                    "report", "window_longest_ms", "window_longest_own_ms", "window_longest_busy_ms",
                    "window_longest_blocked_ms", "stalls_over_20ms", "own_stalls_over_20ms")) + "\n")
            time.sleep(0.1)

def get(host, port, path, timeout=30):
    """Seconds from connecting to the end of the answer, and its size."""
    t0 = time.monotonic()
    with socket.create_connection((host, port), timeout=timeout) as s:
        s.sendall(f"GET {path} HTTP/1.1\r\nHost: {host}:{port}\r\n\r\n".encode())
        n = 0
        while True:
            b = s.recv(65536)
            if not b:
                break
            n += len(b)
    return time.monotonic() - t0, n

def pct(values, p):  # nearest rank
    s = sorted(values)
    return s[max(0, min(len(s) - 1, -(-len(s) * p // 100) - 1))]

def stream(args):
    """8 clients on the big file: 6 curl reading as fast as they can (at the
    clients' nice level), 2 sockets reading 64 KiB every 10 ms; an index
    request every 20 ms from another client meanwhile. Ends when the fast
    clients are done (or after max_s)."""
    host, port, path, size, max_s, report = args[0], int(args[1]), args[2], int(args[3]), float(args[4]), args[5]
    nice = args[6]
    url = f"http://{host}:{port}{path}"
    done = threading.Event()
    slow_bytes = [0, 0]

    def slow(i):
        with socket.socket() as s:
            s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)  # before connecting, or it is not kept
            s.settimeout(30)
            s.connect((host, port))
            s.sendall(f"GET {path} HTTP/1.1\r\nHost: {host}\r\n\r\n".encode())
            while not done.is_set():
                b = s.recv(65536)
                if not b:
                    break
                slow_bytes[i] += len(b)
                time.sleep(0.01)

    index_ms = []
    index_errors = [0]

    def prober():
        while not done.is_set():
            try:
                t, n = get(host, port, "/index.html")
                if n < 200:
                    index_errors[0] += 1
                index_ms.append(t * 1000)
            except OSError:
                index_errors[0] += 1
            time.sleep(0.02)

    threads = [threading.Thread(target=slow, args=(i,)) for i in range(2)] + [threading.Thread(target=prober)]
    t0 = time.monotonic()
    for t in threads:
        t.start()
    fast = [subprocess.Popen(["nice", "-n", nice, "curl", "-s", "-o", "/dev/null", "-w", "%{size_download} %{time_total}",
                              "--max-time", str(int(max_s)), url], stdout=subprocess.PIPE, text=True)
            for _ in range(6)]
    results = [p.communicate()[0].split() for p in fast]
    elapsed = time.monotonic() - t0
    done.set()
    for t in threads:
        t.join()
    got = [int(float(r[0])) if r else 0 for r in results]
    complete = sum(1 for g in got if g >= size)
    with open(report, "w") as f:
        f.write(f"stream_s={elapsed:.2f}\n")
        f.write(f"stream_complete={complete}\n")
        f.write(f"stream_fast_mb={sum(got) / 1e6:.0f}\n")
        f.write(f"stream_slow_mb={sum(slow_bytes) / 1e6:.0f}\n")
        f.write(f"stream_mbps={(sum(got) + sum(slow_bytes)) / 1e6 / elapsed:.0f}\n")
        f.write(f"index_n={len(index_ms)}\nindex_errors={index_errors[0]}\n")
        if index_ms:
            f.write(f"index_p50_ms={statistics.median(index_ms):.1f}\n")
            f.write(f"index_p99_ms={pct(index_ms, 99):.1f}\n")
            f.write(f"index_max_ms={max(index_ms):.1f}\n")

def evict(args):
    """Drops this one file's pages from the page cache."""
    fd = os.open(args[0], os.O_RDONLY)
    os.fsync(fd)
    os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED)
    os.close(fd)

def cached(args):
    """Reads the file once, so that its pages are in the cache."""
    with open(args[0], "rb") as f:
        while f.read(1 << 22):
            pass

def idle_index(args):
    """Latency of the index page on an idle server: 200 requests."""
    host, port = args[0], int(args[1])
    ms = [get(host, port, "/index.html")[0] * 1000 for _ in range(200)]
    print(f"{statistics.median(ms):.1f} {pct(ms, 99):.1f} {max(ms):.1f}")

{"watch": lambda a: watch(*a), "stream": stream, "evict": evict, "cached": cached,
 "idle_index": idle_index}[sys.argv[1]](sys.argv[2:])
PY
if [ "$MONITOR" = yes ]; then
    : > "$D/stall-log"
    python3 "$D/bench.py" watch "$D/stalls" "$D/stall-log" &
    WATCH_PID=$!
fi
current_report() { awk -F= '$1 == "report" {print $2}' "$D/stalls" 2>/dev/null || echo 0; }
# From report $1 (exclusive) to $2 (inclusive): the longest stall, own,
# busy and blocked part, and how many stalls and own parts went over 20 ms.
stall_between() {
    awk -v a="$1" -v b="$2" '
        $1 + 0 == a + 0 { over0 = $6; own0 = $7 }
        $1 + 0 > a + 0 && $1 + 0 <= b + 0 && $0 !~ / -/ {
            n++; for (i = 2; i <= 5; i++) if ($i + 0 > m[i]) m[i] = $i + 0; over1 = $6; own1 = $7 }
        END { if (n) printf "%.1f %.1f %.1f %.1f %d %d\n", m[2], m[3], m[4], m[5], over1 - over0, own1 - own0
              else print "n/a n/a n/a n/a n/a n/a" }' "$D/stall-log"
}
# Marks the end of a phase: waits for the report that covers it.
phase_end() {
    local start
    [ "$MONITOR" = yes ] || { echo 0; return; }
    start=$(current_report)
    for _ in $(seq 40); do [ "$(current_report)" -gt "$start" ] && break; sleep 0.05; done
    sleep 0.15 # the watcher has logged it
    current_report
}

# 1. Requests per second. Every server gets the same warm-up and run; the
#    CPU time its processes take over the run is noted too.
CLK_TCK=$(getconf CLK_TCK)
cpu_ticks() { # PIDS -> user + system clock ticks of those processes
    local pid total=0 t
    for pid in "$@"; do
        t=$(awk '{print $14 + $15}' "/proc/$pid/stat" 2>/dev/null) && total=$((total + t))
    done
    echo "$total"
}
wrk_rps() { # URL PIDS -> requests/s and server CPU microseconds a request; the output in $D/wrk-last
    local url=$1 c0 c1 rps
    shift
    nice -n "$CLIENT_NICE" wrk -t2 -c16 -d"${WARMUP_SECONDS}s" "$url" > /dev/null 2>&1
    c0=$(cpu_ticks "$@")
    nice -n "$CLIENT_NICE" wrk -t2 -c16 -d"${WRK_SECONDS}s" --latency "$url" > "$D/wrk-last" 2>&1
    c1=$(cpu_ticks "$@")
    rps=$(awk '/^Requests\/sec:/ {print $2}' "$D/wrk-last")
    awk -v r="$rps" -v c=$((c1 - c0)) -v hz="$CLK_TCK" -v s="$WRK_SECONDS" \
        'BEGIN { printf "%s %.0f\n", r, (r > 0 ? c / hz * 1e6 / (r * s) : 0) }'
}
wrk_notes() { # errors and non-2xx answers wrk saw, if any
    grep -E 'Socket errors|Non-2xx' "$D/wrk-last" | tr -s ' ' | sed 's/^ //' | paste -sd';' -
}
wrk_p99() { awk '$1 == "99%" {print $2}' "$D/wrk-last"; }
say "wrk -t2 -c16 -d${WRK_SECONDS}s (after ${WARMUP_SECONDS} s of warm-up) against each"
r0=$(current_report)
read -r APP_FILE_RPS APP_FILE_CPU < <(wrk_rps "$APP_BASE/file/page.pdf" "$APP_PID")
APP_FILE_NOTES=$(wrk_notes); APP_FILE_P99=$(wrk_p99)
read -r APP_INDEX_RPS APP_INDEX_CPU < <(wrk_rps "$APP_BASE/index.html" "$APP_PID")
APP_INDEX_NOTES=$(wrk_notes); APP_INDEX_P99=$(wrk_p99)
r1=$(phase_end)
# shellcheck disable=SC2046 # the master and its worker
read -r NGINX_FILE_RPS NGINX_FILE_CPU < <(wrk_rps "http://127.0.0.1:$NGINX_PORT/file/page.pdf" "$NGINX_PID" $(pgrep -P "$NGINX_PID"))
NGINX_FILE_NOTES=$(wrk_notes); NGINX_FILE_P99=$(wrk_p99)
WRK_STALL=""
[ "$MONITOR" = yes ] && read -r WRK_STALL WRK_OWN WRK_BUSY WRK_BLOCKED WRK_OVER WRK_OWN_OVER < <(stall_between "$r0" "$r1")
read -r IDLE_P50 IDLE_P99 IDLE_MAX < <(python3 "$D/bench.py" idle_index 127.0.0.1 "$APP_PORT")

# 2. Streaming, the file first out of the page cache, then in it.
STREAM_MAX_S=40
stream_run() { # NAME
    local a b
    a=$(current_report)
    python3 "$D/bench.py" stream 127.0.0.1 "$APP_PORT" /file/big.pdf "$BIG_BYTES" "$STREAM_MAX_S" "$D/stream-$1.txt" "$CLIENT_NICE" \
        || { say "the streaming run failed"; tail -20 "$D/app.log"; exit 1; }
    b=$(phase_end)
    if [ "$MONITOR" = yes ]; then
        read -r stall own busy blocked over own_over < <(stall_between "$a" "$b")
        printf 'stall_ms=%s\nstall_own_ms=%s\nstall_busy_ms=%s\nstall_blocked_ms=%s\nstall_over=%s\nstall_own_over=%s\n' \
            "$stall" "$own" "$busy" "$blocked" "$over" "$own_over" >> "$D/stream-$1.txt"
    fi
    printf 'hwm_kb=%s\n' "$(awk '/^VmHWM:/ {print $2}' "/proc/$APP_PID/status")" >> "$D/stream-$1.txt"
}
say "streaming $((BIG_BYTES >> 20)) MiB to 8 clients, the file not cached"
python3 "$D/bench.py" evict "$FOLDER/big.pdf"
stream_run cold
say "streaming $((BIG_BYTES >> 20)) MiB to 8 clients, the file cached"
python3 "$D/bench.py" cached "$FOLDER/big.pdf"
stream_run warm
load=$(cut -d' ' -f1-3 /proc/loadavg)

kill -TERM "$APP_PID" 2>/dev/null; wait "$APP_PID" 2>/dev/null; APP_PID=
TOTAL_STALL=""
if [ "$MONITOR" = yes ]; then # the last report, written as the application ended
    report() { awk -F= -v k="$1" '$1 == k {print $2}' "$D/stalls"; }
    TOTAL_STALL=$(report longest_stall_ms); TOTAL_CPU=$(report longest_stall_cpu_ms)
    TOTAL_WAIT=$(report longest_stall_wait_ms); TOTAL_OWN=$(report longest_own_ms); TOTAL_BUSY=$(report longest_busy_ms)
    TOTAL_BLOCKED=$(report longest_blocked_ms)
    TOTAL_OVER=$(report stalls_over_20ms); TOTAL_OWN_OVER=$(report own_stalls_over_20ms); WAIT_KNOWN=$(report wait_known)
fi

# The table.
val() { local k=$1 f=$2; awk -F= -v k="$k" '$1 == k {print $2}' "$f"; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "n/a" }'; }
FILE_RATIO=$(ratio "$APP_FILE_RPS" "$NGINX_FILE_RPS")
failed=0
verdicts=()
verdict() { # OK TEXT
    if [ "$1" = yes ]; then verdicts+=("PASS: $2"); else verdicts+=("FAIL: $2"); failed=1; fi
}
row() { printf '%-44s | %12s | %12s | %12s | %s\n' "$@"; }
ge() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a ~ /^[0-9.]+$/ && a + 0 >= b + 0) }'; }
le() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a ~ /^[0-9.]+$/ && a + 0 <= b + 0) }'; }

echo
echo "load average at the end: $load; clients at nice $CLIENT_NICE; $FILES files in the folder; work folder on $(findmnt -n -o FSTYPE -T "$D")"
row "measure" "app" "nginx" "target" "verdict"
row "--------------------------------------------" "------------" "------------" "------------" "-------"
file_ok=$(ge "$FILE_RATIO" "$RATIO_TARGET" && echo yes)
row "/file/page.pdf (2 KiB), requests/s" "$APP_FILE_RPS" "$NGINX_FILE_RPS" ">= 0.5 x" "$([ "$file_ok" = yes ] && echo PASS || echo FAIL) ($FILE_RATIO x)"
verdict "$file_ok" "2 KiB file: application $APP_FILE_RPS requests/s, nginx $NGINX_FILE_RPS: $FILE_RATIO x (target >= $RATIO_TARGET x)"
row "  wrk p99 latency" "$APP_FILE_P99" "$NGINX_FILE_P99" "" ""
row "  server CPU a request" "$APP_FILE_CPU us" "$NGINX_FILE_CPU us" "" ""
row "/index.html ($FILES files), requests/s" "$APP_INDEX_RPS" "" "" "($(ratio "$APP_INDEX_RPS" "$NGINX_FILE_RPS") x nginx's file)"
row "  wrk p99 latency" "$APP_INDEX_P99" "" "" ""
row "  server CPU a request" "$APP_INDEX_CPU us" "" "" ""
row "/index.html idle, 200 in turn, p50/p99/max" "$IDLE_P50/$IDLE_P99/$IDLE_MAX ms" "" "" ""
[ -n "$WRK_STALL" ] && row "event-loop stall under wrk, longest" "$WRK_STALL ms" "" "" \
    "(own part $WRK_OWN ms: busy $WRK_BUSY, blocked $WRK_BLOCKED; $WRK_OVER over 20 ms, $WRK_OWN_OVER own)"
for run in cold warm; do
    f="$D/stream-$run.txt"
    label="file not cached"; [ "$run" = warm ] && label="file cached"
    stall=$(val stall_ms "$f"); own=$(val stall_own_ms "$f"); busy=$(val stall_busy_ms "$f")
    blocked=$(val stall_blocked_ms "$f"); over=$(val stall_over "$f"); own_over=$(val stall_own_over "$f")
    echo "streaming $((BIG_BYTES >> 20)) MiB, 8 clients, $label: $(val stream_s "$f") s, $(val stream_complete "$f")/6 fast clients complete, $(val stream_mbps "$f") MB/s in all (slow clients $(val stream_slow_mb "$f") MB), VmHWM $(( $(val hwm_kb "$f") / 1024 )) MB"
    if [ "$MONITOR" = yes ]; then
        ok=$(le "$stall" "$STALL_TARGET_MS" && echo yes)
        row "  event-loop stall, longest" "$stall ms" "" "<= $STALL_TARGET_MS ms" "$([ "$ok" = yes ] && echo PASS || echo FAIL) ($over over 20 ms)"
        row "    less waiting for a CPU (own), longest" "$own ms" "" "" "($own_over over 20 ms)"
        row "    of it running / blocked, longest" "$busy/$blocked ms" "" "" ""
        verdict "$ok" "event-loop stall while streaming ($label): longest $stall ms (target <= $STALL_TARGET_MS ms), $over over 20 ms; own part at most $own ms ($own_over over 20 ms)"
    else
        row "  event-loop stall, longest" "n/a" "" "<= $STALL_TARGET_MS ms" "not measured"
        verdict no "event-loop stall while streaming ($label): not measured (LoopStallMonitor not started by this build)"
    fi
    row "  /index.html meanwhile, p99 / max" "$(val index_p99_ms "$f")/$(val index_max_ms "$f") ms" "" "" \
        "($(val index_n "$f") requests, $(val index_errors "$f") failed)"
    [ "$(val stream_complete "$f")" = 6 ] || verdict no "streaming ($label): only $(val stream_complete "$f") of 6 fast clients got the whole file within $STREAM_MAX_S s"
done
if [ -n "$TOTAL_STALL" ]; then
    row "event-loop stall, whole run, longest" "$TOTAL_STALL ms" "" "" \
        "(on a CPU $TOTAL_CPU ms, waiting for one $TOTAL_WAIT ms)"
    row "  own part, longest" "$TOTAL_OWN ms" "" "" "($TOTAL_OVER over 20 ms, $TOTAL_OWN_OVER own)"
    row "    of it running / blocked, longest" "$TOTAL_BUSY/$TOTAL_BLOCKED ms" "" "" ""
    [ "$WAIT_KNOWN" = 1 ] || echo "(no scheduler statistics here: the own part is the whole stall)"
fi
for notes in "app file:$APP_FILE_NOTES" "app index:$APP_INDEX_NOTES" "nginx file:$NGINX_FILE_NOTES"; do
    [ -n "${notes#*:}" ] && echo "wrk, ${notes%%:*}: ${notes#*:}"
done
echo
printf '%s\n' "${verdicts[@]}"
exit "$failed"
