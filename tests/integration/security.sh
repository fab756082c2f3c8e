#!/usr/bin/env bash
# The shared spool against a hostile neighbour. Two real local users: the
# victim prints and runs Quirepad, the attacker plants links, FIFOs and files
# in the folders everyone can write. Every case checks that the victim's
# files are untouched, that nothing of the victim's is readable by others,
# and that the victim's jobs are delivered or kept, never lost.
#   security.sh BUILD_DIR
# Exit 77 (skipped) where the machine cannot run it (not root, no cupsd, no
# useradd).
set -uo pipefail
# shellcheck source=/dev/null
. "$(dirname "$0")/../common/private_cupsd.sh"

build="$(cd "${1:?usage: security.sh BUILD_DIR}" && pwd)"
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: the security test creates users and runs cupsd: it needs root"; exit 77; fi
for tool in cupsd lpadmin lp lpstat runuser useradd userdel mkfifo sha256sum; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done

VICTIM=qpvictim
ATTACKER=qpattacker
D="$(mktemp -d /tmp/quirepad-sec.XXXXXX)"
chmod 755 "$D"
SHARED="$D/shared"
SPOOL="$SHARED/quirepad_spool"
CUPSD_PID=
APP_PID=
passed=0
failures=0
case_name=

log() { echo "security: $*"; }
fail() { echo "security: FAIL [$case_name]: $*"; failures=$((failures + 1)); }
cleanup() {
    stop_app
    [ -n "$CUPSD_PID" ] && kill -TERM "$CUPSD_PID" 2>/dev/null && wait "$CUPSD_PID" 2>/dev/null
    if [ "$failures" -ne 0 ]; then
        echo "---- application log (last lines) ----"; tail -30 "$D/app.log" 2>/dev/null
        echo "---- cupsd error_log (last lines) ----"; tail -20 "$D/log/error_log" 2>/dev/null
    fi
    rm -rf "$D"
    for u in "$VICTIM" "$ATTACKER"; do userdel -r "$u" >/dev/null 2>&1; done
}
trap cleanup EXIT

for u in "$VICTIM" "$ATTACKER"; do
    userdel -r "$u" >/dev/null 2>&1
    useradd -m -s /bin/bash "$u" 2>/dev/null || { echo "SKIP: cannot create the local user $u here"; exit 77; }
done
VH=/home/$VICTIM
AH=/home/$ATTACKER
log "kernel: $(sysctl -n fs.protected_symlinks fs.protected_hardlinks fs.protected_fifos fs.protected_regular 2>/dev/null \
    | paste -sd' ' | awk '{print "protected_symlinks=" $1 " protected_hardlinks=" $2 " protected_fifos=" $3 " protected_regular=" $4}')"

cmake --install "$build" --prefix "$D/prefix" >/dev/null || { echo "security: install failed"; exit 1; }
QP="$D/prefix/bin/quirepad"
BACKEND=/usr/lib/cups/backend/quirepad
export ASAN_OPTIONS=detect_leaks=0

mkdir -p "$D/run-victim" "$D/run-attacker"
chown "$VICTIM" "$D/run-victim"; chown "$ATTACKER" "$D/run-attacker"
chmod 700 "$D/run-victim" "$D/run-attacker"
as() { # USER COMMAND...: the user's own login environment, our shared folder and scheduler
    local u=$1
    shift
    runuser -u "$u" -- env -i PATH=/usr/bin:/bin HOME="/home/$u" USER="$u" LOGNAME="$u" \
        XDG_RUNTIME_DIR="$D/run-${u#qp}" QUIREPAD_SHARED_DIR="$SHARED" CUPS_SERVER="$D/cups.sock" \
        ASAN_OPTIONS=detect_leaks=0 "$@"
}
victim() { as "$VICTIM" "$@"; }
attacker() { as "$ATTACKER" "$@"; }
# One scan of the victim's spool jobs, bounded in time (a FIFO must not hang it).
scan() { (cd "${1:-$VH}" && timeout 20 runuser -u "$VICTIM" -- env -i PATH=/usr/bin:/bin HOME="$VH" USER="$VICTIM" \
    LOGNAME="$VICTIM" XDG_RUNTIME_DIR="$D/run-victim" QUIREPAD_SHARED_DIR="$SHARED" CUPS_SERVER="$D/cups.sock" \
    ASAN_OPTIONS=detect_leaks=0 "$QP" scan >>"$D/app.log" 2>&1); }

stop_app() {
    [ -n "$APP_PID" ] || return 0
    pkill -TERM -u "$VICTIM" -f -- "$QP --headless" 2>/dev/null
    for _ in $(seq 30); do pgrep -u "$VICTIM" -f -- "$QP --headless" >/dev/null || break; sleep 0.1; done
    pkill -KILL -u "$VICTIM" -f -- "$QP --headless" 2>/dev/null
    wait "$APP_PID" 2>/dev/null
    APP_PID=
}
start_app() {
    victim "$QP" --headless >>"$D/app.log" 2>&1 &
    APP_PID=$!
    for _ in $(seq 100); do [ -S "$D/run-victim/quirepad/quirepad.sock" ] && return 0; sleep 0.1; done
    fail "the victim's Quirepad did not start"
}

# The scheduler, the driver and its private queue.
start_private_cupsd "$D" info "$SHARED" "$VICTIM" || { echo "SKIP: cupsd did not start here"; exit 77; }
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" \
    --cupsd-conf "$D/etc/cupsd.conf" >"$D/install.log" 2>&1 || { cat "$D/install.log"; echo "security: installer failed"; exit 1; }

# The victim's world: precious files, an output folder with an existing
# contract, and destinations for every road.
victim mkdir -p "$VH/Documents" "$VH/Out" "$VH/Remote"
victim sh -c "echo report > '$VH/Documents/report.txt'; echo plan > '$VH/Documents/plan.txt'; \
    echo secret > '$VH/secret.txt'; chmod 600 '$VH/secret.txt'; echo signed > '$VH/Out/Contract.pdf'"
victim "$QP" destinations add F Work >/dev/null
victim "$QP" destinations set Work name_pattern=%t.pdf "config.output_dir=file://$VH/Out/" >/dev/null
victim "$QP" destinations add F Squeeze >/dev/null
victim "$QP" destinations set Squeeze name_pattern=%t.pdf do_compress=yes "config.output_dir=file://$VH/Out/" >/dev/null
victim "$QP" destinations add F Remote >/dev/null
victim "$QP" destinations set Remote name_pattern=%t.pdf "config.output_dir=file://$VH/Remote/" >/dev/null
victim "$QP" destinations add X Imager >/dev/null
victim "$QP" destinations set Imager "config.plugin_name=Save as Image" "config.output_dir=file://$VH/Out/" >/dev/null
victim "$QP" destinations add X Ghost >/dev/null
victim "$QP" destinations set Ghost "config.plugin_name=No Such Workflow" >/dev/null
victim "$QP" defaults write remote_destination_name Remote >/dev/null

gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$D/doc.pdf" \
    -c "/Helvetica findfont 20 scalefont setfont 72 700 moveto (Security sample) show showpage" || exit 1
chmod 644 "$D/doc.pdf"

# What the victim has, to compare after every case (contents and modes).
fingerprint() {
    (cd "$VH" && find Documents secret.txt Out/Contract.pdf .profile .bashrc -xdev -printf '%p %m %U %s\n' 2>/dev/null \
        && sha256sum Documents/* secret.txt Out/Contract.pdf .profile .bashrc 2>/dev/null) | sort
}
BASELINE="$(fingerprint)"
MARK="$D/case-start"

begin() {
    case_name=$1
    failures_before=$failures
    touch "$MARK"
    sleep 0.01
}
end() {
    [ "$(fingerprint)" = "$BASELINE" ] || fail "the victim's files changed"
    # Nothing of the victim's appeared where others can read it: /tmp
    # (outside this test's folder) and the shared folder.
    local leaked
    leaked="$(find /tmp "$SHARED" -xdev -user "$VICTIM" -newer "$MARK" -not -path "$D/run-*" \
        \( -perm -o=r -o -perm -g=r \) -print 2>/dev/null | grep -v "^$D/run-" || true)"
    leaked="$leaked$(find /tmp -xdev -maxdepth 1 -user "$VICTIM" -newer "$MARK" -not -path "$D" -print 2>/dev/null)"
    [ -z "$leaked" ] || fail "the victim left files others can see: $leaked"
    if [ "$failures" -eq "$failures_before" ]; then
        log "ok: $case_name"
        passed=$((passed + 1))
    fi
}
print_job() { # TITLE DESTINATION: printed by the victim through CUPS; waits for the job file
    victim lp -d Print_to_Quirepad -t "$1" -o "quirepad-destination=$2" "$D/doc.pdf" >/dev/null || { fail "lp refused $1"; return 1; }
    for _ in $(seq 100); do ls "$SPOOL" | grep -qF -- "$VICTIM-D3F2UG-$1" && return 0; sleep 0.1; done
    fail "the job $1 did not reach the spool"
    return 1
}
in_spool() { [ -e "$SPOOL/$1" ]; }
delivered() { [ -s "$VH/Out/$1" ] && cmp -s "$D/doc.pdf" "$VH/Out/$1"; }

# 1. A link at the start trigger (made before the installer ran on an older
# system): starting Quirepad neither writes nor chmods the linked file.
begin "link at the start trigger"
rm -f "$SHARED/.quirepad_trigger_file_start"
attacker ln -s "$VH/secret.txt" "$SHARED/.quirepad_trigger_file_start"
start_app
for _ in $(seq 100); do grep -q "quirepad_trigger_file_start is left alone" "$D/app.log" && break; sleep 0.1; done
stop_app
grep -q "quirepad_trigger_file_start is left alone" "$D/app.log" || fail "the planted link was not reported: $(grep -m3 trigger_file "$D/app.log")"
rm -f "$SHARED/.quirepad_trigger_file_start"
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" >/dev/null 2>&1
[ "$(stat -c %U:%a "$SHARED/.quirepad_trigger_file_start")" = root:777 ] || fail "the installer did not make the start trigger root's"
end

# 2. A link at the end trigger: the root backend must not write through it.
begin "link at the end trigger"
rm -f "$SHARED/.quirepad_trigger_file_end"
attacker ln -s "$VH/secret.txt" "$SHARED/.quirepad_trigger_file_end"
print_job "Through the link" Work && scan && delivered "Through the link.pdf" || fail "the job was not delivered"
rm -f "$SHARED/.quirepad_trigger_file_end"
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" >/dev/null 2>&1
end

# 3. Links named like the victim's jobs, to a folder and to a file, with an
# info that asks to open them; then clear-queue: nothing is followed,
# opened, copied or emptied, and the links stay (they are not the victim's).
begin "links named like the victim's jobs"
attacker ln -s "$VH/Documents" "$SPOOL/$VICTIM-D3F2UG-Docs.pdf"
attacker ln -s "$VH/secret.txt" "$SPOOL/$VICTIM-D3F2UG-Secret.pdf"
attacker sh -c "printf 'NAME=Work\nTITLE=Stolen\n' > '$SPOOL/$VICTIM-D3F2UG-Secret.pdf.info'"
scan
victim "$QP" clear-queue >>"$D/app.log" 2>&1
[ -e "$VH/Out/Stolen.pdf" ] || [ -e "$VH/Out/Docs.pdf" ] && fail "a planted link was delivered"
[ -L "$SPOOL/$VICTIM-D3F2UG-Docs.pdf" ] || fail "the attacker's link was removed by the victim"
rm -f "$SPOOL/$VICTIM-D3F2UG-"*
end

# 4. Files named like the victim's jobs but owned by the attacker (one of
# them a hard link to the victim's own file when the kernel allows it).
begin "the attacker's files named like the victim's"
attacker sh -c "cp '$D/doc.pdf' '$SPOOL/$VICTIM-D3F2UG-Invoice.pdf'; printf 'NAME=Work\n' > '$SPOOL/$VICTIM-D3F2UG-Invoice.pdf.info'"
attacker ln "$VH/.profile" "$SPOOL/$VICTIM-D3F2UG-Profile.pdf" 2>/dev/null && log "(hard link to the victim's file made)"
scan
scan
[ -e "$VH/Out/Invoice.pdf" ] && fail "the attacker's file was delivered to the victim"
[ -e "$VH/Out/Profile.pdf" ] && fail "a hard link to the victim's file was delivered"
in_spool "$VICTIM-D3F2UG-Invoice.pdf" || fail "the attacker's file was removed"
rm -f "$SPOOL/$VICTIM-D3F2UG-"*
end

# 5. An info file of the attacker's waiting at the name of the victim's next
# job, with a NUL in the title: the backend takes the next name, the
# application never reads the attacker's info, the existing contract stays.
begin "planted info with a NUL in TITLE"
attacker sh -c "printf 'NAME=Work\nTITLE=Contract.pdf\000.x\n' > '$SPOOL/$VICTIM-D3F2UG-Contract.pdf.info'"
print_job "Contract" Work && scan
delivered "Contract 1.pdf" || fail "the victim's contract job was not delivered beside the existing one"
rm -f "$SPOOL/$VICTIM-D3F2UG-Contract.pdf.info"
end

# 6. FIFOs named like a job, its info and a remote job: a scan ends, and
# the running instance still ends on SIGTERM.
begin "FIFOs in the spool"
attacker mkfifo "$SPOOL/$VICTIM-D3F2UG-Hang.pdf" "$SPOOL/remote:x@far-D3F2UG-Hang.pdf"
print_job "Beside a FIFO" Work
attacker mkfifo "$SPOOL/$VICTIM-D3F2UG-Beside a FIFO.pdf.info" 2>/dev/null # too late: the real info is there
started=$(date +%s)
scan || fail "the scan did not finish (status $?)"
delivered "Beside a FIFO.pdf" || fail "the job beside the FIFOs was not delivered"
start_app
sleep 0.5
victim "$QP" scan >>"$D/app.log" 2>&1 &
sleep 0.5
t0=$(date +%s%N)
stop_app
[ $(( ($(date +%s%N) - t0) / 1000000 )) -lt 3000 ] || fail "the instance did not end within 3 s of SIGTERM"
[ $(( $(date +%s) - started )) -lt 20 ] || fail "the scans took too long"
rm -f "$SPOOL/$VICTIM-D3F2UG-Hang.pdf" "$SPOOL/remote:x@far-D3F2UG-Hang.pdf"
end

# 7. Compression: the working files are private (no /tmp/<job name>, no
# per-page files from a "%d" title); a name planted in /tmp changes nothing.
begin "compression with planted temporary names"
attacker sh -c "echo trap > '/tmp/$VICTIM-D3F2UG-Pages %d.pdf'; echo trap > '/tmp/$VICTIM-D3F2UG-Squeezed.pdf'"
print_job "Pages %d" Squeeze && print_job "Squeezed" Squeeze && scan
[ -s "$VH/Out/Pages %d.pdf" ] && [ -s "$VH/Out/Squeezed.pdf" ] || fail "the compressed jobs were not delivered"
in_spool "$VICTIM-D3F2UG-Squeezed.pdf" && fail "the delivered job stayed in the spool"
[ "$(cat "/tmp/$VICTIM-D3F2UG-Squeezed.pdf")" = trap ] || fail "the planted /tmp file was changed"
ls /tmp | grep -q "Pages 1" && fail "per-page files appeared in /tmp"
left="$(find "$VH/.cache/Quirepad/tmp" -mindepth 1 -maxdepth 1 2>/dev/null)"
[ -z "$left" ] || fail "temporary files were left behind: $left"
[ "$(stat -c %a "$VH/.cache/Quirepad/tmp")" = 700 ] || fail "the private temporary folder is not 0700"
rm -f "/tmp/$VICTIM-D3F2UG-Pages %d.pdf" "/tmp/$VICTIM-D3F2UG-Squeezed.pdf"
end

# 8. Temporary files of a killed run are removed at the next start.
begin "leftovers of a killed run"
victim mkdir -p "$VH/.cache/Quirepad/tmp/run-dead01/job-x"
victim sh -c "echo old > '$VH/.cache/Quirepad/tmp/run-dead01/job-x/copy.pdf'; touch -d '1 hour ago' '$VH/.cache/Quirepad/tmp/run-dead01'"
scan
[ -e "$VH/.cache/Quirepad/tmp/run-dead01" ] && fail "the killed run's files were not removed"
end

# 9. A workflow planted in the current folder under the plugin's name.
begin "workflow planted in the current folder"
attacker sh -c "printf '#!/bin/sh\ntouch $D/pwned\n' > '/tmp/Save as Image'; chmod 755 '/tmp/Save as Image'"
print_job "Imaged" Imager && scan /tmp
[ -e "$D/pwned" ] && fail "the planted workflow ran"
in_spool "$VICTIM-D3F2UG-Imaged.pdf" && fail "the plugin job was not delivered by the real workflow"
rm -f "/tmp/Save as Image"
end

# 10. A missing workflow keeps the job.
begin "missing workflow keeps the job"
print_job "Kept for later" Ghost && scan
in_spool "$VICTIM-D3F2UG-Kept for later.pdf" || fail "the job of a missing workflow was deleted"
in_spool "$VICTIM-D3F2UG-Kept for later.pdf.info" || fail "its info was deleted"
[ "$(stat -c %U:%a "$SPOOL/$VICTIM-D3F2UG-Kept for later.pdf")" = "$VICTIM:600" ] || fail "the kept job's mode changed"
victim "$QP" clear-queue >>"$D/app.log" 2>&1
end

# 11. Printing in the victim's name.
begin "lp -U victim from the attacker"
out="$(attacker setsid -w lp -d Print_to_Quirepad -U "$VICTIM" -t "Forged" -o quirepad-destination=Work "$D/doc.pdf" </dev/null 2>&1)" \
    && fail "the queue took a job in the victim's name: $out"
sleep 1
ls "$SPOOL" | grep -qF "Forged" && fail "a forged job reached the spool"
attacker lp -d Print_to_Quirepad -t "Own job" "$D/doc.pdf" >/dev/null 2>&1 || fail "the attacker cannot print in their own name"
for _ in $(seq 50); do ls "$SPOOL" | grep -qF "$ATTACKER-D3F2UG-Own job" && break; sleep 0.1; done
[ "$(stat -c %U:%a "$SPOOL/$ATTACKER-D3F2UG-Own job.pdf" 2>/dev/null)" = "$ATTACKER:600" ] \
    || fail "the attacker's own job is not theirs alone"
rm -f "$SPOOL/$ATTACKER-D3F2UG-"*
end

# 12. A reserved key with a trailing no-break space among the options, as
# CUPS hands them to the backend: it must not pass for NAME.
begin "reserved key with a no-break space"
env -i PATH=/usr/bin:/bin QUIREPAD_SHARED_DIR="$SHARED" "$BACKEND" 91 "$VICTIM" "Nbsp" 1 \
    $'quirepad-destination=Work NAME\xc2\xa0=Ghost' "$D/doc.pdf" 2>"$D/backend.err" || fail "the backend refused the job"
grep -q "Ghost" "$SPOOL/$VICTIM-D3F2UG-Nbsp.pdf.info" && fail "the look-alike key reached the info file"
scan
delivered "Nbsp.pdf" || fail "the job went elsewhere than its destination"
end

# 13. Remote jobs, run through the installed backend as CUPS would: with
# nobody at the console the job is held (nothing written); with the victim
# at the console it is the victim's alone, and a remote job that stays does
# not hold back a local one.
begin "remote jobs"
: >"$D/utmp-empty"
status=0
env -i PATH=/usr/bin:/bin QUIREPAD_SHARED_DIR="$SHARED" QUIREPAD_UTMP_FILE="$D/utmp-empty" \
    "$BACKEND" 71 anonymous "Far away" 1 "job-originating-host-name=10.1.2.3" "$D/doc.pdf" 2>"$D/backend.err" || status=$?
[ "$status" -eq 3 ] || fail "a remote job with nobody at the console ended with status $status, not held (3)"
ls "$SPOOL" | grep -q "^remote:" && fail "a remote job with nobody at the console was written"
env -i PATH=/usr/bin:/bin QUIREPAD_SHARED_DIR="$SHARED" QUIREPAD_CONSOLE_USER="$VICTIM" \
    "$BACKEND" 72 anonymous "Phone page" 1 "job-originating-host-name=10.1.2.3 quirepad-destination=Ghost" "$D/doc.pdf" 2>>"$D/backend.err" \
    || fail "the backend refused a remote job for the console user"
remote="$(ls "$SPOOL" | grep '^remote:.*Phone page.pdf$')"
[ "$(stat -c %U:%a "$SPOOL/$remote" 2>/dev/null)" = "$VICTIM:600" ] || fail "the remote job is not the console user's alone"
as "$ATTACKER" "$QP" scan >/dev/null 2>&1
in_spool "$remote" || fail "the attacker's instance took the victim's remote job"
print_job "Local after remote" Work && scan
delivered "Local after remote.pdf" || fail "a kept remote job held back the local one"
in_spool "$remote" || fail "the remote job for a missing workflow was not kept"
victim "$QP" clear-queue >>"$D/app.log" 2>&1
end

# 14. Spool folders planted by the attacker: a link, and a folder of theirs.
begin "planted spool folder"
rm -rf "$SPOOL"
attacker mkdir -p "$AH/catch"
attacker ln -s "$AH/catch" "$SPOOL"
status=0
env -i PATH=/usr/bin:/bin QUIREPAD_SHARED_DIR="$SHARED" "$BACKEND" 81 "$VICTIM" "Linked" 1 "" "$D/doc.pdf" 2>"$D/backend.err" || status=$?
[ "$status" -eq 4 ] || fail "the backend took a linked spool (status $status)"
grep -q "symbolic link" "$D/backend.err" || fail "the backend did not say why: $(cat "$D/backend.err")"
[ -z "$(ls -A "$AH/catch")" ] || fail "the backend wrote into the attacker's folder"
rm -f "$SPOOL"
attacker mkdir -m 1777 "$SPOOL"
status=0
env -i PATH=/usr/bin:/bin QUIREPAD_SHARED_DIR="$SHARED" "$BACKEND" 82 "$VICTIM" "Theirs" 1 "" "$D/doc.pdf" 2>"$D/backend.err" || status=$?
[ "$status" -eq 4 ] || fail "the backend took a spool folder of the attacker's (status $status)"
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" \
    >"$D/install2.log" 2>&1 && fail "the installer accepted a spool folder of the attacker's"
rm -rf "$SPOOL"
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" >/dev/null 2>&1 \
    || fail "the installer could not mend the spool"
[ "$(stat -c %U:%a "$SPOOL")" = root:1777 ] || fail "the mended spool is not root's 1777"
end

echo "security: $passed passed, $failures failed"
[ "$failures" -eq 0 ]
