#!/usr/bin/env bash
# Printing benchmark on one private cupsd: how fast a printed job (1 page and
# 20 pages) reaches its folder through Print_to_Quirepad compared with a
# cups-pdf queue and with the floor, a raw queue whose 5-line backend only
# copies the file; how fast a spool of 1,000 jobs is delivered compared with
# a plain cp of the same files; how soon a job waiting at start is
# delivered; and how much memory the idle application holds.
#   bench_print.sh BUILD_DIR        (as root; a release build, about two minutes)
# Environment: LATENCY_JOBS (20), BATCH_JOBS (1000), BATCH_KB (100),
# BENCH_TMPDIR (/tmp: the file system the spool and the folders are on).
# Prints a table and one PASS/FAIL line per target; exit 0 when all pass,
# 1 when one fails, 77 when the machine cannot run it (not root, no cupsd).
set -uo pipefail
# shellcheck source=/dev/null
. "$(dirname "$0")/../tests/common/private_cupsd.sh"

build="$(cd "${1:?usage: bench_print.sh BUILD_DIR}" && pwd)"
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: the print benchmark needs root (cupsd runs backends as root)"; exit 77; fi
for tool in cupsd lpadmin lp lpstat runuser useradd userdel gs python3; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
CUPS_PDF_BACKEND=/usr/lib/cups/backend/cups-pdf
CUPS_PDF_CONF=/etc/cups/cups-pdf.conf
if [ ! -x "$CUPS_PDF_BACKEND" ] || [ ! -f "$CUPS_PDF_CONF" ]; then
    echo "SKIP: the reference printer cups-pdf is not installed (apt-get install printer-driver-cups-pdf)"; exit 77
fi

LATENCY_JOBS=${LATENCY_JOBS:-20}
BATCH_JOBS=${BATCH_JOBS:-1000}
BATCH_KB=${BATCH_KB:-100}
RSS_LIMIT_KB=$((60 * 1024))
BATCH_FACTOR_TENTHS=15 # the batch within 1.5 x cp
FLOOR_MARGIN_MS=20     # lp -> file within the floor + 20 ms
START_LIMIT_MS=60      # start -> a waiting job delivered

# Everything the run writes (cupsd's files, the spool, the folders) lives
# under one temporary folder; BENCH_TMPDIR picks the file system for it.
D="$(mktemp -d "${BENCH_TMPDIR:-/tmp}/quirepad-bench.XXXXXX")" || { echo "bench: cannot make a work folder"; exit 1; }
chmod 755 "$D"
USER_NAME=qpbench
USER_CREATED=no
SHARED="$D/shared"
SPOOL="$SHARED/quirepad_spool"
CUPSD_PID=
APP_PID=
SAVED=()      # system files replaced for the run: "path|backup" or "path|" (absent before)
CUPS_PDF_CONF_SAVED=
CUPS_PDF_SPOOL_EXISTED=no
[ -d /var/spool/cups-pdf/SPOOL ] && CUPS_PDF_SPOOL_EXISTED=yes

say() { echo "bench: $*"; }

cleanup() {
    trap - EXIT INT TERM
    [ -n "$APP_PID" ] && stop_app
    if [ -n "$CUPSD_PID" ]; then
        CUPS_SERVER="$D/cups.sock" lpadmin -x CupsPdfBench 2>/dev/null
        CUPS_SERVER="$D/cups.sock" lpadmin -x FloorBench 2>/dev/null
        CUPS_SERVER="$D/cups.sock" lpadmin -x Print_to_Quirepad 2>/dev/null
        kill -TERM "$CUPSD_PID" 2>/dev/null && wait "$CUPSD_PID" 2>/dev/null
    fi
    if [ -n "$CUPS_PDF_CONF_SAVED" ] && [ -f "$CUPS_PDF_CONF_SAVED" ]; then
        cat "$CUPS_PDF_CONF_SAVED" > "$CUPS_PDF_CONF"
    fi
    local entry path backup
    for entry in "${SAVED[@]+"${SAVED[@]}"}"; do
        path=${entry%%|*}; backup=${entry#*|}
        if [ -n "$backup" ]; then cp -p "$backup" "$path"; else rm -f "$path"; fi
    done
    rmdir /usr/share/ppd/quirepad 2>/dev/null
    # What cups-pdf made for our queue: its log, and its work folder when
    # it was not there before.
    rm -f "/var/log/cups/cups-pdf-CupsPdfBench_log"
    [ "$CUPS_PDF_SPOOL_EXISTED" = yes ] || rmdir /var/spool/cups-pdf/SPOOL 2>/dev/null
    if [ "$USER_CREATED" = yes ]; then
        userdel -r "$USER_NAME" 2>/dev/null || userdel "$USER_NAME" 2>/dev/null
        rm -rf "/home/$USER_NAME"
    fi
    rm -rf "$D"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Keeps a copy of a system file the run replaces, to put back on exit.
save_system_file() {
    local path=$1 backup=
    if [ -e "$path" ]; then
        backup="$D/saved/$(echo "$path" | tr / _)"
        mkdir -p "$D/saved" && cp -p "$path" "$backup" || { say "cannot back up $path"; exit 1; }
    fi
    SAVED+=("$path|$backup")
}

# The program, installed into a prefix every user can read.
cmake --install "$build" --prefix "$D/prefix" >/dev/null || { say "install of $build failed"; exit 1; }
QP="$D/prefix/bin/quirepad"
grep -q '^CMAKE_BUILD_TYPE:STRING=\(Release\|RelWithDebInfo\|MinSizeRel\)$' "$build/CMakeCache.txt" 2>/dev/null \
    || say "warning: $build is not a release build; the figures will not be representative"

if ! id "$USER_NAME" >/dev/null 2>&1; then
    useradd -m -s /bin/bash "$USER_NAME" || { say "cannot create the user $USER_NAME"; exit 1; }
    USER_CREATED=yes
fi
USER_UID=$(id -u "$USER_NAME")
as_user() {
    runuser -u "$USER_NAME" -- env HOME="/home/$USER_NAME" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" \
        XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache-user" QUIREPAD_SHARED_DIR="$SHARED" \
        CUPS_SERVER="$D/cups.sock" "$@"
}
mkdir -p "$D/run" "$D/config" "$D/data" "$D/cache-user" "$D/out-latency" "$D/out-batch" "$D/out-cupspdf" "$D/out-cp" \
    "$D/out-floor" "$D/out-start"
# cups-pdf writes as the job's user: its folder is the user's too.
chown "$USER_NAME" "$D/run" "$D/config" "$D/data" "$D/cache-user" "$D/out-latency" "$D/out-batch" "$D/out-cupspdf" \
    "$D/out-start"
chmod 700 "$D/run"

# A private cupsd at the default log level (debug logging would slow both
# queues down).
start_private_cupsd "$D" warn "$SHARED" "$USER_NAME"
if ! lpstat -r 2>/dev/null | grep -q "is running"; then
    echo "SKIP: the private cupsd did not start here"; tail -5 "$D/log/error_log" 2>/dev/null; exit 77
fi

# Quirepad's driver, through the installer the application ships. It writes
# the backend and the PPD into the system folders: the ones there before the
# run come back on exit.
save_system_file /usr/lib/cups/backend/quirepad
save_system_file /usr/share/ppd/quirepad/quirepad.ppd
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" > "$D/install.log" 2>&1 \
    || { cat "$D/install.log"; say "the driver installer failed"; exit 1; }
lpstat -p Print_to_Quirepad >/dev/null 2>&1 || { say "no Print_to_Quirepad queue after installing"; exit 1; }

# The reference: a cups-pdf queue writing into a folder of ours.
CUPS_PDF_CONF_SAVED="$D/saved-cups-pdf.conf"
cp -p "$CUPS_PDF_CONF" "$CUPS_PDF_CONF_SAVED" || { say "cannot back up $CUPS_PDF_CONF"; exit 1; }
if grep -q '^[[:space:]]*Out[[:space:]]' "$CUPS_PDF_CONF"; then
    sed -i "s|^[[:space:]]*Out[[:space:]].*|Out $D/out-cupspdf|" "$CUPS_PDF_CONF"
else
    echo "Out $D/out-cupspdf" >> "$CUPS_PDF_CONF"
fi
[ "$(stat -c %a "$CUPS_PDF_BACKEND")" = 700 ] && [ "$(stat -c %U "$CUPS_PDF_BACKEND")" = root ] \
    || say "warning: $CUPS_PDF_BACKEND is not root-only 0700; cups-pdf will not run as root"
ppd=$(lpinfo -m 2>/dev/null | awk '/CUPS-PDF_noopt\.ppd/ {print $1; exit}')
if [ -n "$ppd" ]; then
    lpadmin -p CupsPdfBench -E -v cups-pdf:/ -m "$ppd" 2>&1 | grep -v -i 'deprecated'
else
    ppd=$(ls /usr/share/ppd/cups-pdf/CUPS-PDF_noopt.ppd 2>/dev/null)
    [ -n "$ppd" ] || { say "no cups-pdf PPD found"; exit 1; }
    lpadmin -p CupsPdfBench -E -v cups-pdf:/ -P "$ppd" 2>&1 | grep -v -i 'deprecated'
fi
lpstat -p CupsPdfBench >/dev/null 2>&1 || { say "no CupsPdfBench queue"; exit 1; }

# The floor: a raw queue whose backend does nothing but copy the job's file
# into a folder under its title (root-only, so CUPS runs it as root).
FLOOR_BACKEND=/usr/lib/cups/backend/qpbenchfloor
save_system_file "$FLOOR_BACKEND"
cat > "$FLOOR_BACKEND" <<FLOOR
#!/bin/sh
[ \$# -eq 0 ] && { echo 'direct qpbenchfloor "Floor" "Copy"'; exit 0; }
cat "\${6:--}" > "$D/out-floor/.\$1.part" || exit 1
mv "$D/out-floor/.\$1.part" "$D/out-floor/\$3.pdf"
FLOOR
chmod 700 "$FLOOR_BACKEND"
lpadmin -p FloorBench -E -v qpbenchfloor:/ -m raw 2>&1 | grep -v -i 'deprecated'
lpstat -p FloorBench >/dev/null 2>&1 || { say "no FloorBench queue"; exit 1; }

# The user's destinations: one folder for printed jobs, one for the batch.
as_user "$QP" destinations add F BenchLatency >/dev/null
as_user "$QP" destinations set BenchLatency name_pattern=%t.pdf "config.output_dir=file://$D/out-latency/" \
    || { say "cannot set up the destination BenchLatency"; exit 1; }
as_user "$QP" destinations add F BenchBatch >/dev/null
as_user "$QP" destinations set BenchBatch name_pattern=%t.pdf "config.output_dir=file://$D/out-batch/" \
    || { say "cannot set up the destination BenchBatch"; exit 1; }

# The documents: a small one-page PDF for printing, and a ~100 KB one for
# the batch (an uncompressed image, so that its size is its content).
gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$D/sample.pdf" \
   -c "/Helvetica findfont 24 scalefont setfont 72 700 moveto (Benchmark sample) show showpage" \
   || { say "cannot make the sample PDF"; exit 1; }
gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$D/sample20.pdf" \
   -c "1 1 20 { /Helvetica findfont 14 scalefont setfont 0 20 760 { 72 exch moveto (A page of a twenty-page benchmark document) show } for showpage pop } for" \
   || { say "cannot make the 20-page PDF"; exit 1; }
chmod 644 "$D/sample.pdf" "$D/sample20.pdf"

# The application runs under runuser (a direct child of this shell, so that
# its id is known); stopping it asks the application itself, then runuser
# goes with it.
start_app() {
    touch "$D/app.log"
    local before
    before=$(grep -c '^quirepad: running' "$D/app.log")
    runuser -u "$USER_NAME" -- env HOME="/home/$USER_NAME" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" \
        XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache-user" QUIREPAD_SHARED_DIR="$SHARED" \
        CUPS_SERVER="$D/cups.sock" "$QP" --headless >> "$D/app.log" 2>&1 &
    APP_PID=$!
    for _ in $(seq 100); do
        [ -S "$D/run/quirepad/quirepad.sock" ] && [ "$(grep -c '^quirepad: running' "$D/app.log")" -gt "$before" ] && return 0
        sleep 0.1
    done
    say "the application did not start"; tail -20 "$D/app.log"; exit 1
}
stop_app() {
    [ -n "$APP_PID" ] || return 0
    local pid
    pid=$(app_pid)
    [ -n "$pid" ] && kill -TERM "$pid" 2>/dev/null
    kill -TERM "$APP_PID" 2>/dev/null
    wait "$APP_PID" 2>/dev/null
    APP_PID=
}
# The application's own process id, as it reports it when it starts.
app_pid() { sed -n 's/^quirepad: running.* as process \([0-9]*\);.*/\1/p' "$D/app.log" | tail -1; }
rss_kb() { awk '/^VmRSS:/ {print $2}' "/proc/$1/status"; }
hwm_kb() { awk '/^VmHWM:/ {print $2}' "/proc/$1/status"; }

cat > "$D/bench.py" <<'PY'
import math, os, statistics, subprocess, sys, time

def queue_idle(queue, timeout=60):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        out = subprocess.run(["lpstat", "-o", queue], capture_output=True, text=True).stdout
        if not out.strip():
            return True
        time.sleep(0.05)
    return False

def clear(folder):
    for e in os.scandir(folder):
        os.unlink(e.path)

STABLE = 0.3  # a file unchanged this long is taken as written (checked after)

def one_job(as_user, queue, title, sample, folder, timeout=30):
    """Seconds from starting lp to the moment a PDF in folder was first seen
    with the size it has once the job is over, polling every 5 ms."""
    cmd = as_user + ["lp", "-d", queue, "-t", title]
    if queue == "FloorBench":
        cmd += ["-o", "raw"]
    if queue == "Print_to_Quirepad":
        cmd += ["-o", "quirepad-destination=BenchLatency"]
    cmd.append(sample)
    t0 = time.monotonic()
    lp = subprocess.Popen(cmd, stdout=subprocess.DEVNULL)
    first_seen = {}  # (name, size) -> first time seen
    last_change = None
    last_state = None
    while True:
        now = time.monotonic()
        state = []
        for e in os.scandir(folder):
            if e.name.endswith(".pdf"):
                try:
                    state.append((e.name, e.stat().st_size))
                except FileNotFoundError:
                    pass
        for key in state:
            first_seen.setdefault(key, now - t0)
        if state != last_state:
            last_state, last_change = state, now
        if state and now - last_change >= STABLE:
            break
        if now - t0 > timeout:
            sys.exit(f"{queue}: job {title} was not delivered within {timeout} s")
        time.sleep(0.005)
    if lp.wait() != 0:
        sys.exit(f"lp failed for {queue}")
    # The job is over once CUPS says so: the file must not have changed since.
    queue_idle(queue)
    time.sleep(0.05)
    final = [(e.name, e.stat().st_size) for e in os.scandir(folder) if e.name.endswith(".pdf")]
    if len(final) != 1 or final[0] not in first_seen or final != last_state:
        sys.exit(f"{queue}: job {title}: expected one finished PDF, found {final} (seen {last_state})")
    if queue != "CupsPdfBench" and final[0] != (title + ".pdf", os.path.getsize(sample)):
        sys.exit(f"Quirepad delivered {final[0]} for {title}")
    clear(folder)
    return first_seen[final[0]], final[0][1]

def median(values):
    return statistics.median(values)

def p90(values):  # nearest rank
    s = sorted(values)
    return s[max(0, math.ceil(0.9 * len(s)) - 1)]

def latency(args):
    as_user = args[:args.index("::")]
    sample, qp_out, pdf_out, floor_out, n, prefix, report = args[args.index("::") + 1:]
    n = int(n)
    queues = (("qp", "Print_to_Quirepad", qp_out), ("pdf", "CupsPdfBench", pdf_out), ("floor", "FloorBench", floor_out))
    # Warm-up jobs on every queue: filters, Ghostscript, the page cache.
    for i in range(2):
        for _, queue, folder in queues:
            one_job(as_user, queue, f"wrm{i:02d}", sample, folder)
    times = {name: [] for name, _, _ in queues}
    for i in range(n):  # interleaved, so that all see the same machine
        for name, queue, folder in queues:
            time.sleep(0.2)
            t, _ = one_job(as_user, queue, f"lat{i:02d}", sample, folder)
            times[name].append(t)
    with open(report, "a") as f:
        for name, values in times.items():
            f.write(f"{prefix}{name}_median={median(values) * 1000:.0f}\n")
            f.write(f"{prefix}{name}_p90={p90(values) * 1000:.0f}\n")
            f.write(f"{prefix}{name}_all=\"{' '.join(f'{t * 1000:.0f}' for t in sorted(values))}\"\n")
        f.write(f"{prefix}sample_size={os.path.getsize(sample)}\n")

def count_pdfs(folder):
    return sum(1 for e in os.scandir(folder) if e.name.endswith(".pdf"))

def batch(args):
    user, uid, spool, trigger, cp_out, out, n, kb, report = args
    uid, n, kb = int(uid), int(n), int(kb)
    # One PDF page with an uncompressed grey image, padded to kb KiB.
    side = 1
    while (side + 1) * (side + 1) <= kb * 1024 - 1024:
        side += 1
    pixels = os.urandom(side * side)
    objs = [b"<< /Type /Catalog /Pages 2 0 R >>",
            b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
            b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Resources << /XObject << /Im1 4 0 R >> >> /Contents 5 0 R >>",
            b"<< /Type /XObject /Subtype /Image /Width %d /Height %d /ColorSpace /DeviceGray /BitsPerComponent 8 /Length %d >>\nstream\n" % (side, side, len(pixels)) + pixels + b"\nendstream",
            b"<< /Length 35 >>\nstream\nq 500 0 0 500 47 171 cm /Im1 Do Q\nendstream"]
    pdf = bytearray(b"%PDF-1.4\n%\xe2\xe3\xcf\xd3\n")
    offsets = []
    for i, body in enumerate(objs, 1):
        offsets.append(len(pdf))
        pdf += b"%d 0 obj\n" % i + body + b"\nendobj\n"
    xref = len(pdf)
    pdf += b"xref\n0 %d\n0000000000 65535 f \n" % (len(objs) + 1)
    pdf += b"".join(b"%010d 00000 n \n" % o for o in offsets)
    pdf += b"trailer\n<< /Size %d /Root 1 0 R >>\nstartxref\n%d\n" % (len(objs) + 1, xref)
    tail = b"%%EOF\n"
    pad = kb * 1024 - len(pdf) - len(tail)
    if pad > 2:
        pdf += b"%" + b" " * (pad - 2) + b"\n"
    pdf += tail

    # The spool as the backend leaves it: job and .info owned by the user, 0600.
    jobs = []
    for i in range(1, n + 1):
        base = f"{spool}/{user}-D3F2UG-job{i:04d}.pdf"
        for path, data in ((base + ".info", f"NAME=BenchBatch\nTITLE=job{i:04d}\nUSER={user}\nHOST=localhost\n".encode()),
                           (base, bytes(pdf))):
            fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
            os.write(fd, data); os.fchown(fd, uid, -1); os.close(fd)
        jobs.append(base)
    os.sync()

    # Plain cp, twice into fresh folders; the faster one is the yardstick
    # (file creation time on a busy file system varies from run to run).
    cp_runs = []
    for k in range(2):
        target = os.path.join(cp_out, f"run{k}")
        os.mkdir(target)
        os.sync()
        t0 = time.monotonic()
        subprocess.run(["cp", "--"] + jobs + [target], check=True)
        cp_runs.append(time.monotonic() - t0)
        if count_pdfs(target) != n:
            sys.exit("cp did not copy every file")
    cp_s = min(cp_runs)
    # The same copy made durable, for scale: the application syncs what it delivers.
    cp_sync_out = os.path.join(os.path.dirname(cp_out), "out-cp-sync")
    os.mkdir(cp_sync_out)
    os.sync()
    t0 = time.monotonic()
    subprocess.run(["cp", "--"] + jobs + [cp_sync_out], check=True)
    os.sync()
    cp_sync_s = time.monotonic() - t0

    # The application has been idle since it started: nothing may have moved.
    if count_pdfs(out) != 0 or sum(1 for j in jobs if os.path.exists(j)) != n:
        sys.exit("the application took jobs before the batch was started")
    t0 = time.monotonic()
    with open(trigger, "w") as f:  # what the backend does after each job
        f.write("x")
    done = None
    while time.monotonic() - t0 < 240:
        if count_pdfs(out) >= n:
            done = time.monotonic() - t0
            break
        time.sleep(0.01)
    spool_left = sum(1 for e in os.scandir(spool) if e.name.startswith(user + "-D3F2UG-job"))
    with open(report, "w") as f:
        f.write(f"batch_file_size={len(pdf)}\n")
        f.write(f"cp_ms={cp_s * 1000:.0f}\ncp_sync_ms={cp_sync_s * 1000:.0f}\n")
        f.write(f"cp_runs=\"{', '.join(f'{t * 1000:.0f}' for t in cp_runs)}\"\n")
        f.write(f"qp_batch_ms={'' if done is None else f'{done * 1000:.0f}'}\n")
        f.write(f"qp_batch_delivered={count_pdfs(out)}\nspool_left={spool_left}\n")

def start(args):
    """A job waits in the spool; the application starts: milliseconds to
    ready (its "running" line) and to the delivered file."""
    spool, user, uid, sample, out, log, report = args[:7]
    # After "::": VAR=value settings, then the command. It is started as
    # the user straight from here (set ids, then exec), as a desktop
    # session starts it: runuser would add its PAM session (about 20 ms
    # here) to the figure.
    rest = args[args.index("::") + 1:]
    settings = [a for a in rest if "=" in a and not a.startswith("/")]
    command = rest[len(settings):]
    env = {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8"}
    env.update(a.split("=", 1) for a in settings)
    import pwd
    account = pwd.getpwuid(int(uid))
    data = open(sample, "rb").read()
    base = f"{spool}/{user}-D3F2UG-waiting.pdf"
    for path, body in ((base + ".info", b"NAME=BenchStart\nTITLE=waiting\n"), (base, data)):
        if os.path.exists(path):
            os.unlink(path)
        fd = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
        os.write(fd, body); os.fchown(fd, int(uid), -1); os.close(fd)
    # The log is read from where it ends now: the poll stays cheap.
    logged = open(log, "rb")
    logged.seek(0, os.SEEK_END)
    seen = b""
    t0 = time.monotonic()
    subprocess.Popen(command, stdout=open(log, "a"), stderr=subprocess.STDOUT, env=env, cwd=account.pw_dir if os.path.isdir(account.pw_dir) else "/",
                     user=account.pw_uid, group=account.pw_gid, extra_groups=[])
    ready = delivered = None
    target = os.path.join(out, "waiting.pdf")
    while time.monotonic() - t0 < 30 and delivered is None:
        now = time.monotonic() - t0
        if ready is None:
            seen += logged.read()
            if b"quirepad: running" in seen:
                ready = now
        if os.path.exists(target) and os.path.getsize(target) == len(data):
            delivered = now
        time.sleep(0.002)
    with open(report, "a") as f:
        f.write(f"start_ready_ms={'' if ready is None else f'{ready * 1000:.0f}'}\n")
        f.write(f"start_delivered_ms={'' if delivered is None else f'{delivered * 1000:.0f}'}\n")
    os.unlink(target) if delivered is not None else None

{"latency": latency, "batch": batch, "start": start}[sys.argv[1]](sys.argv[2:])
PY

# 1. Idle memory: a fresh application that has just taken its start-up look
#    at the (empty) spool.
start_app
sleep 3
PID=$(app_pid)
[ -n "$PID" ] || { say "cannot find the application's process"; exit 1; }
RSS_IDLE=$(rss_kb "$PID")
say "idle application: VmRSS ${RSS_IDLE} kB (pid $PID)"

# 2. Latency, lp to delivered file, both queues alternating.
say "printing $LATENCY_JOBS jobs to each queue (after 2 warm-up jobs each)"
AS_USER_CMD=(runuser -u "$USER_NAME" -- env HOME="/home/$USER_NAME" CUPS_SERVER="$D/cups.sock")
for pages in 1 20; do
    sample="$D/sample.pdf"; [ "$pages" = 20 ] && sample="$D/sample20.pdf"
    python3 "$D/bench.py" latency "${AS_USER_CMD[@]}" :: "$sample" "$D/out-latency" "$D/out-cupspdf" "$D/out-floor" \
        "$LATENCY_JOBS" "p${pages}_" "$D/latency.txt" \
        || { say "the latency run failed"; tail -20 "$D/app.log"; tail -20 "$D/log/error_log"; exit 1; }
done
. "$D/latency.txt"

# 3. The batch. A fresh application (the rescans that follow printed jobs
#    are over) that sits idle while the spool is filled, then the trigger.
stop_app
start_app
sleep 1
PID=$(app_pid)
[ -n "$PID" ] || { say "cannot find the application's process"; exit 1; }
say "batch: $BATCH_JOBS jobs of $BATCH_KB KiB"
python3 "$D/bench.py" batch "$USER_NAME" "$USER_UID" "$SPOOL" "$SHARED/.quirepad_trigger_file_end" "$D/out-cp" \
    "$D/out-batch" "$BATCH_JOBS" "$BATCH_KB" "$D/batch.txt" || { say "the batch run failed"; tail -20 "$D/app.log"; exit 1; }
. "$D/batch.txt"
sleep 3
RSS_BATCH=$(rss_kb "$PID")
HWM_BATCH=$(hwm_kb "$PID")
rm -rf "$D/out-cp" "$D/out-cp-sync" "$D/out-batch"

# 4. Start with a job waiting: the median of 5 starts.
stop_app
as_user "$QP" destinations add F BenchStart >/dev/null
as_user "$QP" destinations set BenchStart name_pattern=%t.pdf "config.output_dir=file://$D/out-start/" \
    || { say "cannot set up the destination BenchStart"; exit 1; }
starts_ready=(); starts_delivered=()
for _ in 1 2 3 4 5; do
    : > "$D/start.txt"
    python3 "$D/bench.py" start "$SPOOL" "$USER_NAME" "$USER_UID" "$D/sample.pdf" "$D/out-start" "$D/app.log" "$D/start.txt" \
        :: HOME="/home/$USER_NAME" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="$D/config" \
        XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache-user" QUIREPAD_SHARED_DIR="$SHARED" "$QP" --headless \
        || { say "the start run failed"; exit 1; }
    . "$D/start.txt"
    starts_ready+=("${start_ready_ms:-99999}"); starts_delivered+=("${start_delivered_ms:-99999}")
    pkill -TERM -u "$USER_NAME" -f -- "$QP --headless"
    for _ in $(seq 50); do pgrep -u "$USER_NAME" -f -- "$QP --headless" >/dev/null || break; sleep 0.1; done
    [ -n "$start_delivered_ms" ] || { say "a waiting job was not delivered at start"; tail -15 "$D/app.log"; }
done
median_of() { printf '%s\n' "$@" | sort -n | sed -n "$(( ($# + 1) / 2 ))p"; }
start_ready=$(median_of "${starts_ready[@]}")
start_delivered=$(median_of "${starts_delivered[@]}")

ms() { [ -n "$1" ] && printf '%s ms' "$1" || printf 'n/a'; }
mb() { awk -v k="$1" 'BEGIN {printf "%.1f MB", k / 1024}'; }
echo
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%-44s %12s %12s %12s\n' "measure (medians)" "Quirepad" "floor" "cups-pdf"
printf '%-44s %12s %12s %12s\n' "--------------------------------------------" "------------" "------------" "------------"
printf '%-44s %12s %12s %12s\n' "lp -> file, 1 page, $LATENCY_JOBS jobs" "$(ms "$p1_qp_median")" "$(ms "$p1_floor_median")" "$(ms "$p1_pdf_median")"
printf '%-44s %12s %12s %12s\n' "lp -> file, 20 pages, $LATENCY_JOBS jobs" "$(ms "$p20_qp_median")" "$(ms "$p20_floor_median")" "$(ms "$p20_pdf_median")"
printf '%-44s %12s %12s\n' "$BATCH_JOBS x $((batch_file_size / 1024)) KiB spooled -> folder (cp)" "$(ms "$qp_batch_ms")" "$(ms "$cp_ms")"
printf '%-44s %12s %12s\n' "  cp runs (the faster one counts)" "" "$cp_runs ms"
printf '%-44s %12s %12s\n' "  same files, cp + sync" "" "$(ms "$cp_sync_ms")"
printf '%-44s %12s\n' "start -> ready" "$(ms "$start_ready")"
printf '%-44s %12s\n' "start -> a waiting job delivered" "$(ms "$start_delivered")"
printf '%-44s %12s\n' "VmRSS idle, 3 s after start" "$(mb "$RSS_IDLE")"
printf '%-44s %12s\n' "VmRSS idle, 3 s after the batch" "$(mb "$RSS_BATCH")"
printf '%-44s %12s\n' "VmHWM (peak) over the batch" "$(mb "$HWM_BATCH")"
echo
for pages in 1 20; do
    for name in qp floor pdf; do
        eval "all=\$p${pages}_${name}_all"
        echo "lp -> file, $pages page(s), $name (ms): $all"
    done
done
echo "starts (ms): ready ${starts_ready[*]}; delivered ${starts_delivered[*]}"
echo "batch delivered $qp_batch_delivered, spool left $spool_left"
echo "work folder on: $(findmnt -n -o SOURCE,FSTYPE,OPTIONS -T "$D" 2>/dev/null | tr -s ' ')"
echo

failed=0
verdict() { # OK TEXT
    if [ "$1" = yes ]; then echo "PASS: $2"; else echo "FAIL: $2"; failed=1; fi
}
for pages in 1 20; do
    eval "qp=\$p${pages}_qp_median floor=\$p${pages}_floor_median pdf=\$p${pages}_pdf_median"
    verdict "$([ "$qp" -le $((floor + FLOOR_MARGIN_MS)) ] && echo yes)" \
        "latency, $pages page(s): Quirepad ${qp} ms <= floor ${floor} ms + ${FLOOR_MARGIN_MS} ms (cups-pdf ${pdf} ms)"
done
if [ -n "$qp_batch_ms" ] && [ "$qp_batch_delivered" -eq "$BATCH_JOBS" ]; then
    verdict "$([ $((qp_batch_ms * 10)) -le $((cp_ms * BATCH_FACTOR_TENTHS)) ] && echo yes)" \
        "batch: Quirepad ${qp_batch_ms} ms <= 1.5 x cp ${cp_ms} ms ($((cp_ms * BATCH_FACTOR_TENTHS / 10)) ms)"
else
    verdict no "batch: Quirepad delivered $qp_batch_delivered of $BATCH_JOBS jobs within 240 s"
fi
verdict "$([ "$start_delivered" -le "$START_LIMIT_MS" ] && echo yes)" \
    "start: a waiting job delivered ${start_delivered} ms after start <= ${START_LIMIT_MS} ms"
verdict "$([ "$RSS_IDLE" -lt "$RSS_LIMIT_KB" ] && [ "$RSS_BATCH" -lt "$RSS_LIMIT_KB" ] && echo yes)" \
    "memory: idle VmRSS $(mb "$RSS_IDLE") and $(mb "$RSS_BATCH") after the batch < 60 MB"
exit "$failed"
