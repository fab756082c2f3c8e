#!/usr/bin/env bash
# Web capture benchmark: `quirepad print-web-view` against Chromium's and
# wkhtmltopdf's print to PDF, on two local pages.
#   bench_capture.sh BUILD_DIR        (a release build; about two minutes)
# Pages (made here, served by python3 -m http.server on loopback): one
# picture of about 1 MB (a noisy PNG that does not compress away) and a long
# text page (200 paragraphs). For each page, in one run:
#   quirepad cold  `quirepad print-web-view URL` with no instance running:
#                  the command starts its own worker, a new process tree
#   chromium       chromium --headless --print-to-pdf, a fresh profile each run
#   wkhtmltopdf    wkhtmltopdf URL OUT
#   quirepad warm  `quirepad --headless` running (private session bus): the
#                  command forwarded to it (CLI), and gdbus calling its
#                  PrintWebView (D-Bus); the instance keeps its worker; the
#                  first capture of each page is left out
# RUNS (5) runs of each, interleaved; the median wall time, and the largest
# resident size (VmRSS) any single process of the tool's tree reached,
# sampled every SAMPLE_MS (20) ms (for warm captures the instance's tree:
# the instance, its worker and the worker's web engine processes; and the
# client). Every PDF is checked with pdfinfo, pdftotext and pdfimages.
# chromium, wkhtmltopdf, poppler-utils, dbus-daemon and libglib2.0-bin are
# installed when missing (as root). Environment: RUNS (5), WARM_RUNS (5),
# SAMPLE_MS (20), BENCH_TMPDIR (/tmp).
# Prints a table and one PASS/FAIL line per target; exit 0 when all pass,
# 1 when one fails, 77 when the machine cannot run it.
set -uo pipefail

build="$(cd "${1:?usage: bench_capture.sh BUILD_DIR}" && pwd)"
RUNS=${RUNS:-5}
WARM_RUNS=${WARM_RUNS:-5}
SAMPLE_MS=${SAMPLE_MS:-20}
WARM_RATIO=0.5 # a warm capture at most half wkhtmltopdf's cold wall time
LARGEST_MB=150 # no Quirepad process larger than this
BENCH_START=$(date +%s)

say() { echo "bench: $*"; }

# What the run needs beyond the build, installed here only.
# shellcheck source=/dev/null
. "$(dirname "$0")/bench_tools.sh"
bench_need chromium:chromium wkhtmltopdf:wkhtmltopdf pdfinfo:poppler-utils pdftotext:poppler-utils \
    pdfimages:poppler-utils dbus-daemon:dbus-daemon gdbus:libglib2.0-bin
# The system's Python: a version manager's shim would add its own start-up
# to every figure taken through it.
PY=/usr/bin/python3
[ -x "$PY" ] || PY=$(command -v python3) || { echo "SKIP: python3 is not installed"; exit 77; }
QP="$build/bin/quirepad"
bench_check_build "$build"
[ -x "$build/bin/quirepad-webcapture" ] || { echo "SKIP: quirepad-webcapture was not built (Qt WebEngine missing?)"; exit 77; }

D="$(mktemp -d "${BENCH_TMPDIR:-/tmp}/quirepad-capture-bench.XXXXXX")" || { say "cannot make a work folder"; exit 1; }
SERVER_PID=
BUS_PID=
APP_PID=
cleanup() {
    trap - EXIT INT TERM
    [ -n "$APP_PID" ] && kill -TERM "$APP_PID" 2>/dev/null && wait "$APP_PID" 2>/dev/null
    [ -n "$BUS_PID" ] && kill "$BUS_PID" 2>/dev/null
    [ -n "$SERVER_PID" ] && kill "$SERVER_PID" 2>/dev/null && wait "$SERVER_PID" 2>/dev/null
    rm -rf "$D"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The user's private folders; the web engines refuse their sandbox as root.
mkdir -p "$D/run" "$D/home" "$D/pages" "$D/out" "$D/log"
chmod 700 "$D/run"
export XDG_RUNTIME_DIR="$D/run" HOME="$D/home" XDG_CONFIG_HOME="$D/home/.config" XDG_DATA_HOME="$D/home/.local/share" \
    XDG_CACHE_HOME="$D/home/.cache" QUIREPAD_SHARED_DIR="$D/shared" QT_QPA_PLATFORM=offscreen
[ "$(id -u)" -eq 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS

# The helper: makes the pages, runs one command while sampling its process
# tree, checks a PDF, and sums up.
cat > "$D/bench.py" <<'PY'
import ctypes, json, math, os, random, re, signal, statistics, struct, subprocess, sys, threading, time, zlib

def make_pages(folder):
    # A photograph-like picture: smooth colour fields plus sensor noise,
    # stored as PNG with the Sub filter, about 1 MB.
    w, h, amp = 900, 600, 8
    rng = random.Random(20240607)
    rows = []
    for y in range(h):
        noise = rng.randbytes(w * 3)
        fy = y / h
        line = bytearray(w * 3)
        for x in range(w):
            fx = x / w
            i = 3 * x
            for c, base in enumerate((120 + 70 * math.sin(3.1 * fx + 1.7 * fy) + 40 * math.sin(7.3 * fx * fy),
                                      110 + 60 * math.sin(2.3 * fy - 1.1 * fx + 0.5) + 30 * math.cos(5.1 * fx),
                                      100 + 80 * math.cos(1.9 * fx + 2.9 * fy))):
                v = int(base) + noise[i + c] % (2 * amp + 1) - amp
                line[i + c] = 0 if v < 0 else 255 if v > 255 else v
        out = bytearray(1 + w * 3)
        out[0] = 1
        out[1:4] = line[0:3]
        for i in range(3, w * 3):
            out[1 + i] = (line[i] - line[i - 3]) & 255
        rows.append(bytes(out))
    def chunk(kind, data):
        return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data) & 0xffffffff)
    png = (b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', w, h, 8, 2, 0, 0, 0))
           + chunk(b'IDAT', zlib.compress(b''.join(rows), 6)) + chunk(b'IEND', b''))
    open(os.path.join(folder, 'photo.png'), 'wb').write(png)
    open(os.path.join(folder, 'image.html'), 'w').write(
        '<!DOCTYPE html>\n<html><head><meta charset="utf-8"><title>Harbour photograph</title></head>\n'
        '<body><h1>Harbour photograph</h1><p>Evening light over the breakwater, taken from the pier.</p>\n'
        f'<img src="photo.png" width="{w}" height="{h}" style="max-width:100%;height:auto" alt="harbour">\n'
        '</body></html>\n')

    # A long article: 200 paragraphs of varied sentences.
    words = ('harbour ledger quarterly river meadow lantern copper signal archive orchard timber granite '
             'weather compass parcel journey railway station bridge market village council garden winter '
             'summer autumn spring morning evening letter printer paper column margin chapter volume index '
             'figure table measure balance account invoice budget report survey sample method result '
             'question answer window shutter kitchen cellar attic stair corridor hallway doorway ceiling '
             'engine turbine valve piston boiler furnace chimney harvest grain barley wheat flour bakery '
             'violin cello melody rhythm chorus verse poem novel essay diary notebook pencil ink quill '
             'glacier canyon valley plateau desert island reef lagoon tide current anchor sail mast rudder').split()
    verbs = ('carries keeps follows measures crosses gathers records turns holds reaches shapes marks '
             'opens closes lifts draws names counts weighs finds').split()
    text = random.Random(42)
    def sentence():
        n = text.randint(6, 18)
        parts = [text.choice(words) for _ in range(n)]
        parts.insert(text.randint(1, n - 1), text.choice(verbs))
        s = ' '.join(parts)
        return s[0].upper() + s[1:] + text.choice(['.', '.', '.', '?', '!', ';'])[0]
    body = []
    for i in range(1, 201):
        if i % 25 == 1:
            body.append(f'<h2>Section {i // 25 + 1}: {text.choice(words).title()} and {text.choice(words)}</h2>')
        sentences = ' '.join(sentence() for _ in range(text.randint(3, 8)))
        if i == 1:
            sentences = 'Alphaquill opens the notes. ' + sentences
        if i == 200:
            sentences += ' Omegaquill closes the notes.'
        if i % 7 == 0:
            sentences = sentences.replace(' ', ' <em>', 1).replace('.', '</em>.', 1)
        body.append(f'<p>{i}. {sentences}</p>')
    open(os.path.join(folder, 'text.html'), 'w').write(
        '<!DOCTYPE html>\n<html><head><meta charset="utf-8"><title>Field notes</title>\n'
        '<style>body{font-family:serif;max-width:40em;margin:auto} p{line-height:1.4}</style></head>\n<body>\n'
        '<h1>Field notes</h1>\n' + '\n'.join(body) + '\n</body></html>\n')

def proc_table():
    table = {}
    for name in os.listdir('/proc'):
        if not name.isdigit():
            continue
        try:
            with open(f'/proc/{name}/stat', 'rb') as f:
                s = f.read()
        except OSError:
            continue
        r = s.rfind(b')')
        table[int(name)] = (int(s[r + 2:].split()[1]), s[s.find(b'(') + 1:r].decode(errors='replace'))
    return table

def descendants(roots, table):
    children = {}
    for pid, (ppid, _) in table.items():
        children.setdefault(ppid, []).append(pid)
    found, stack = [], [r for r in roots if r in table]
    while stack:
        pid = stack.pop()
        found.append(pid)
        stack.extend(children.get(pid, []))
    return found

def rss_kb(pid):
    try:
        with open(f'/proc/{pid}/status', 'rb') as f:
            for line in f:
                if line.startswith(b'VmRSS:'):
                    return int(line.split()[1])
    except OSError:
        pass
    return 0

def measure(args):
    # measure OUT_JSON STDOUT_FILE STDERR_FILE WATCH_PID|0 SAMPLE_MS -- COMMAND...
    out, stdout_file, stderr_file, watch, sample_ms = args[0], args[1], args[2], int(args[3]), int(args[4])
    command = args[6:]
    me = os.getpid()
    # Orphans of the command (daemons it forks off) come to this process
    # and stay in the tree that is sampled.
    ctypes.CDLL(None).prctl(36, 1, 0, 0, 0)  # PR_SET_CHILD_SUBREAPER
    table = proc_table()
    watched_before = set(descendants([watch], table)) if watch else set()
    peak = {}  # pid -> (largest VmRSS in kB, name)
    seen_watch = set()
    with open(stdout_file, 'wb') as so, open(stderr_file, 'wb') as se:
        t0 = time.monotonic()
        child = subprocess.Popen(command, stdout=so, stderr=se, stdin=subprocess.DEVNULL)
        ended = threading.Event()
        end = [0.0]
        def waiter():
            child.wait()
            end[0] = time.monotonic()
            ended.set()
        threading.Thread(target=waiter, daemon=True).start()
        samples = 0
        while True:
            table = proc_table()
            own = [p for p in descendants([me], table) if p != me]
            watched = descendants([watch], table) if watch else []
            seen_watch.update(watched)
            for pid in own + watched:
                kb = rss_kb(pid)
                if kb > peak.get(pid, (0, ''))[0]:
                    peak[pid] = (kb, table[pid][1])
            samples += 1
            if ended.wait(sample_ms / 1000.0):
                break
    t1 = end[0]
    # What the command left running is ended here (and counted).
    leftover = 0
    deadline = time.monotonic() + 2.0
    while True:
        rest = [p for p in descendants([me], proc_table()) if p != me]
        try:
            while os.waitpid(-1, os.WNOHANG)[0] > 0:
                pass
        except ChildProcessError:
            pass
        rest = [p for p in rest if os.path.exists(f'/proc/{p}/status') and rss_kb(p) > 0]
        if not rest:
            break
        if time.monotonic() > deadline:
            leftover = len(rest)
            for p in rest:
                try:
                    os.kill(p, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            time.sleep(0.1)
            deadline += 60
        time.sleep(0.05)
    largest = max(peak.items(), key=lambda kv: kv[1][0], default=(0, (0, '')))
    result = {'wall_ms': (t1 - t0) * 1000.0, 'rc': child.returncode, 'peak_kb': largest[1][0],
              'peak_name': largest[1][1], 'processes': len(peak), 'samples': samples,
              'new_in_tree': len(seen_watch - watched_before), 't0': t0, 't1': t1, 'leftover': leftover}
    with open(out, 'w') as f:
        json.dump(result, f)

def summary(args):
    results_file, app_log, runs_wanted = args[0], args[1], int(args[2])
    warm_ratio, largest_mb = float(args[3]), float(args[4])
    rows = [json.loads(line) for line in open(results_file)]
    pages = ['image', 'text']
    tools = ['quirepad cold', 'quirepad warm CLI', 'quirepad warm D-Bus', 'chromium', 'wkhtmltopdf']
    med, big = {}, {}
    print()
    print('| page | tool | runs ok | wall ms (median) | min–max ms | largest process MB (max) | in | processes | PDF pages |')
    print('|---|---|---:|---:|---:|---:|---|---:|---:|')
    for page in pages:
        for tool in tools:
            mine = [r for r in rows if r['page'] == page and r['tool'] == tool and not r.get('first')]
            good = [r for r in mine if r['ok']]
            if not mine:
                continue
            walls = [r['wall_ms'] for r in good]
            if walls:
                med[page, tool] = statistics.median(walls)
                top = max(good, key=lambda r: r['peak_kb'])
                big[page, tool] = top['peak_kb'] / 1024
                procs = statistics.median(r['processes'] for r in good)
                print(f"| {page} | {tool} | {len(good)}/{len(mine)} | {med[page, tool]:.0f} | {min(walls):.0f}–{max(walls):.0f} "
                      f"| {big[page, tool]:.1f} | {top['peak_name']} | {procs:g} | {statistics.median(r['pdf_pages'] for r in good):g} |")
            else:
                print(f'| {page} | {tool} | 0/{len(mine)} | | | | | | |')
    firsts = [r for r in rows if r.get('first')]
    for r in firsts:
        print(f"(left out: the first warm capture of the {r['page']} page, {r['wall_ms']:.0f} ms"
              f"{' with the worker starting' if r.get('worker_start') else ''})")
    bad = [r for r in rows if not r['ok']]
    for r in bad:
        print(f"check failed: {r['page']} {r['tool']} run {r['run']}: {r['why']}")
    leftovers = [r for r in rows if r.get('leftover')]
    for r in leftovers:
        print(f"note: {r['tool']} left {r['leftover']} process(es) running after it ended (ended by the bench)")
    warm = [r for r in rows if r['tool'].startswith('quirepad warm') and r['ok'] and not r.get('first')]
    if warm:
        print('largest process of the instance\'s tree, warm capture by capture (MB): '
              + ' '.join(f"{r['peak_kb'] / 1024:.0f}" for r in warm))
    new_procs = [r['new_in_tree'] for r in rows if r['tool'].startswith('quirepad warm') and not r.get('first')]
    if new_procs:
        print(f'processes started in the instance\'s tree per warm capture: median {statistics.median(new_procs):g}'
              f' (min {min(new_procs)}, max {max(new_procs)})')

    # Where a warm capture's time goes: the worker logs (with the
    # monotonic clock the runs are timed with) when it starts loading,
    # when it prints (after load and settling) and when the PDF is written.
    events = []
    pattern = re.compile(r'worker:\s+(\d+\.\d+) quirepad\.capture: (loading|printing|captured) ')
    for line in open(app_log, errors='replace'):
        m = pattern.search(line)
        if m:
            events.append((float(m.group(1)), m.group(2)))
    print()
    print('Warm capture, where the time goes (medians, ms; from the worker\'s log):')
    print('| page | road | to the worker | load | settle (fixed) | print to PDF | answer back | total |')
    print('|---|---|---:|---:|---:|---:|---:|---:|')
    for page in pages:
        for tool in ('quirepad warm CLI', 'quirepad warm D-Bus'):
            parts = []
            for r in rows:
                if r['page'] != page or r['tool'] != tool or r.get('first') or not r['ok']:
                    continue
                inside = [e for e in events if r['t0'] <= e[0] <= r['t1'] + 0.002]
                when = {k: t for t, k in inside}
                if set(when) != {'loading', 'printing', 'captured'}:
                    continue
                settle = r.get('settle_s', 1.0)
                parts.append(((when['loading'] - r['t0']) * 1000, (when['printing'] - when['loading'] - settle) * 1000,
                              settle * 1000, (when['captured'] - when['printing']) * 1000,
                              (r['t1'] - when['captured']) * 1000, r['wall_ms']))
            if parts:
                cols = [statistics.median(p[i] for p in parts) for i in range(6)]
                print(f'| {page} | {tool[len("quirepad warm "):]} | ' + ' | '.join(f'{c:.0f}' for c in cols) + ' |')
    print('("load" is from the request reaching the worker to the page\'s load finished, with the page\'s\n'
          ' scripts; "answer back" from the PDF written to the client\'s end, with the client\'s exit.)')

    # The targets.
    print()
    failures = 0
    def verdict(ok, text):
        nonlocal failures
        failures += 0 if ok else 1
        print(('PASS' if ok else 'FAIL') + ': ' + text)
    for page in pages:
        warm, wk = med.get((page, 'quirepad warm CLI')), med.get((page, 'wkhtmltopdf'))
        if warm is None or wk is None:
            verdict(False, f'{page}: warm capture ≤ {warm_ratio} × wkhtmltopdf cold: no figures')
        else:
            verdict(warm <= warm_ratio * wk, f'{page}: warm capture {warm:.0f} ms ≤ {warm_ratio} × wkhtmltopdf cold '
                    f'{wk:.0f} ms = {warm_ratio * wk:.0f} ms (ratio {warm / wk:.2f})')
        cold, chrome = med.get((page, 'quirepad cold')), med.get((page, 'chromium'))
        if cold is None or chrome is None:
            verdict(False, f'{page}: cold capture ≤ Chromium cold: no figures')
        else:
            verdict(cold <= chrome, f'{page}: cold capture {cold:.0f} ms ≤ Chromium cold {chrome:.0f} ms '
                    f'(ratio {cold / chrome:.2f})')
    ours = [v for (page, tool), v in big.items() if tool.startswith('quirepad')]
    if ours:
        verdict(max(ours) <= largest_mb, f'largest Quirepad process {max(ours):.1f} MB ≤ {largest_mb:g} MB')
    else:
        verdict(False, 'largest Quirepad process: no figures')
    if bad:
        verdict(False, f'{len(bad)} output(s) failed their checks')
    else:
        print(f'PASS: every PDF opens and holds its page ({len(rows)} outputs checked)')
    sys.exit(1 if failures else 0)

if __name__ == '__main__':
    {'pages': lambda a: make_pages(a[0]), 'measure': measure, 'summary': summary}[sys.argv[1]](sys.argv[2:])
PY

say "making the pages"
"$PY" "$D/bench.py" pages "$D/pages" || { say "cannot make the pages"; exit 1; }
say "picture $(stat -c %s "$D/pages/photo.png") bytes, text page $(stat -c %s "$D/pages/text.html") bytes"
port=$("$PY" -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
(cd "$D/pages" && exec "$PY" -m http.server "$port" --bind 127.0.0.1 >/dev/null 2>&1) &
SERVER_PID=$!
BASE="http://127.0.0.1:$port"
for _ in $(seq 50); do "$PY" -c "import urllib.request; urllib.request.urlopen('$BASE/image.html')" 2>/dev/null && break; sleep 0.1; done
"$PY" -c "import urllib.request; urllib.request.urlopen('$BASE/image.html')" 2>/dev/null || { say "the page server did not start"; exit 1; }

RESULTS="$D/results.jsonl"
: > "$RESULTS"
n=0

# check PAGE PDF: why the PDF is not right, or nothing.
check() {
    local page=$1 pdf=$2 text
    [ -n "$pdf" ] && [ -s "$pdf" ] || { echo "no PDF"; return; }
    pdfinfo "$pdf" 2>/dev/null | grep -q '^Pages: *[1-9]' || { echo "pdfinfo cannot read $pdf"; return; }
    text=$(pdftotext "$pdf" - 2>/dev/null | tr -s '[:space:]' ' ')
    case $page in
    image)
        grep -q "breakwater" <<<"$text" || { echo "the caption is missing"; return; }
        [ "$(pdfimages -list "$pdf" 2>/dev/null | tail -n +3 | wc -l)" -ge 1 ] || { echo "no picture in the PDF"; return; } ;;
    text)
        grep -q "Alphaquill" <<<"$text" && grep -q "Omegaquill" <<<"$text" \
            || { echo "the first or last paragraph is missing"; return; } ;;
    esac
}

# run PAGE TOOL RUN WATCH_PID EXTRA_JSON -- COMMAND...: one measured run;
# the PDF is named by OUT_PDF (set by the caller) or by the command's output.
run() {
    local page=$1 tool=$2 runno=$3 watch=$4 extra=$5
    shift 6
    n=$((n + 1))
    local json="$D/log/$n.json" so="$D/log/$n.out" se="$D/log/$n.err" pdf why pages
    "$PY" "$D/bench.py" measure "$json" "$so" "$se" "$watch" "$SAMPLE_MS" -- "$@"
    case $tool in
    "quirepad cold" | "quirepad warm CLI") pdf=$(head -1 "$so") ;;
    "quirepad warm D-Bus") pdf=$(sed -n "s|^('file://\(.*\)',)$|\1|p" "$so") ;;
    *) pdf=$OUT_PDF ;;
    esac
    why=$(check "$page" "$pdf")
    pages=$(pdfinfo "$pdf" 2>/dev/null | sed -n 's/^Pages: *//p')
    "$PY" - "$json" "$page" "$tool" "$runno" "$why" "$extra" "$se" "${pages:-0}" >> "$RESULTS" <<'PY'
import json, sys
path, page, tool, runno, why, extra, stderr_file, pages = sys.argv[1:]
try:
    r = json.load(open(path))
except Exception:
    r = {'wall_ms': 0, 'peak_kb': 0, 'peak_name': '', 'processes': 0, 'new_in_tree': 0, 't0': 0, 't1': 0, 'rc': -1}
    why = why or 'the measurement failed'
if not why and r['rc'] != 0:
    why = f"exit status {r['rc']}: " + ' '.join(open(stderr_file, errors='replace').read().split()[-20:])
r.update(page=page, tool=tool, run=int(runno), ok=not why, why=why, pdf_pages=int(pages), **json.loads(extra or '{}'))
print(json.dumps(r))
PY
    tail -1 "$RESULTS" | grep -q '"ok": false' && say "$page $tool run $runno: failed, $(tail -1 "$RESULTS" | sed 's/.*"why": "\([^"]*\)".*/\1/')"
    rm -f "$OUT_PDF"
}
OUT_PDF="$D/out/none.pdf"

chromium_run() {
    local page=$1 runno=$2 profile
    profile=$(mktemp -d "$D/chromium-profile.XXXXXX")
    OUT_PDF="$D/out/chromium.pdf"
    run "$page" chromium "$runno" 0 '' -- chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$profile" \
        --print-to-pdf="$OUT_PDF" "$BASE/$page.html"
    rm -rf "$profile"
}
wkhtmltopdf_run() {
    OUT_PDF="$D/out/wkhtmltopdf.pdf"
    run "$1" wkhtmltopdf "$2" 0 '' -- wkhtmltopdf "$BASE/$1.html" "$OUT_PDF"
}

# 1. Cold: a new process tree every time, the three tools in turn.
say "cold runs: $RUNS of each tool on each page"
for page in image text; do
    for r in $(seq "$RUNS"); do
        OUT_PDF="$D/out/none.pdf"
        run "$page" "quirepad cold" "$r" 0 '' -- "$QP" print-web-view "$BASE/$page.html"
        chromium_run "$page" "$r"
        wkhtmltopdf_run "$page" "$r"
    done
done

# 2. Warm: the running instance on a private session bus keeps its worker.
eval "$(dbus-daemon --session --fork --print-address=1 --print-pid=3 3>"$D/bus.pid" \
        | sed 's/^/DBUS_SESSION_BUS_ADDRESS=/; s/$/; export DBUS_SESSION_BUS_ADDRESS/')"
BUS_PID=$(cat "$D/bus.pid")
# Every log line of the instance and its worker carries the monotonic
# clock (Qt's "boot" time), so the worker's steps can be set against the
# runs; the worker's lines reach the instance's log as capture debug lines.
QT_MESSAGE_PATTERN='%{time boot} %{category}: %{message}' QT_LOGGING_RULES='quirepad.capture.debug=true' \
    "$QP" --headless > "$D/app.log" 2>&1 &
APP_PID=$!
for _ in $(seq 100); do
    gdbus introspect --session --dest com.halvern.Quirepad --object-path /com/halvern/Quirepad >/dev/null 2>&1 && break
    kill -0 "$APP_PID" 2>/dev/null || { say "the instance ended"; tail -20 "$D/app.log"; exit 1; }
    sleep 0.1
done
worker_pid() {
    local pid
    for pid in $(pgrep -P "$APP_PID"); do
        [ "$(basename "$(readlink "/proc/$pid/exe" 2>/dev/null)")" = quirepad-webcapture ] && { echo "$pid"; return; }
    done
    echo 0
}
say "warm runs: instance $APP_PID, $WARM_RUNS captures of each page through each road after a first one"
for page in image text; do
    OUT_PDF="$D/out/none.pdf"
    before=$(worker_pid)
    started=false
    [ "$before" = 0 ] && started=true
    run "$page" "quirepad warm CLI" 0 "$APP_PID" "{\"first\": true, \"worker_start\": $started}" -- "$QP" print-web-view "$BASE/$page.html"
    for r in $(seq "$WARM_RUNS"); do
        run "$page" "quirepad warm CLI" "$r" "$APP_PID" '' -- "$QP" print-web-view "$BASE/$page.html"
        run "$page" "quirepad warm D-Bus" "$r" "$APP_PID" '' -- gdbus call --session --dest com.halvern.Quirepad \
            --object-path /com/halvern/Quirepad --method com.halvern.Quirepad.PrintWebView "$BASE/$page.html"
    done
done
starts=$(grep -c "web capture worker started" "$D/app.log")
[ "$starts" -eq 1 ] || say "note: the instance started its worker $starts times"

say "load average $(cut -d' ' -f1-3 /proc/loadavg), $(nproc) CPUs; $(chromium --version 2>/dev/null | grep -m1 -i chromium);" \
    "wkhtmltopdf $(wkhtmltopdf --version 2>/dev/null | awk '{print $2}')"
"$PY" "$D/bench.py" summary "$RESULTS" "$D/app.log" "$RUNS" "$WARM_RATIO" "$LARGEST_MB"
status=$?
say "the whole run took $(( $(date +%s) - BENCH_START )) s"
exit $status
