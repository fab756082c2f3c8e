#!/usr/bin/env bash
# End to end through real parts: a private cupsd with our backend and queue,
# the headless application of a test user, jobs printed with lp (a PDF and a
# text file CUPS converts) and over IPP from another network namespace.
#   cups_e2e.sh BUILD_DIR
# Exit 77 (skipped) when the machine cannot run it (not root, no cupsd).
set -uo pipefail
# shellcheck source=/dev/null
. "$(dirname "$0")/../common/private_cupsd.sh"

build="$(cd "${1:?usage: cups_e2e.sh BUILD_DIR}" && pwd)"
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: the CUPS end-to-end test needs root (cupsd runs backends as root)"; exit 77; fi
for tool in cupsd lpadmin lp ipptool runuser useradd pdftotext; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done

D="$(mktemp -d /tmp/quirepad-e2e.XXXXXX)"
chmod 755 "$D"
USER_NAME=qpe2e
OTHER=qpe2eother
SHARED="$D/shared"
NETNS=qpe2e$$
CUPSD_PID=
APP_PID=
failures=0

log() { echo "e2e: $*"; }
fail() { echo "e2e: FAIL: $*"; failures=$((failures + 1)); }
cleanup() {
    # runuser does not pass signals on: stop the application itself.
    if [ -n "$APP_PID" ]; then
        pkill -TERM -f -- "$QP --headless" 2>/dev/null
        for _ in $(seq 50); do pgrep -f -- "$QP --headless" >/dev/null || break; sleep 0.1; done
        pkill -KILL -f -- "$QP --headless" 2>/dev/null
        wait "$APP_PID" 2>/dev/null
    fi
    [ -n "$CUPSD_PID" ] && kill -TERM "$CUPSD_PID" 2>/dev/null && wait "$CUPSD_PID" 2>/dev/null
    ip netns del "$NETNS" 2>/dev/null
    ip link del qpe2e0 2>/dev/null
    rm -f /usr/lib/cups/backend/quirepad.e2e-saved
    if [ "${failures}" -ne 0 ] && [ -f "$D/log/error_log" ]; then
        echo "---- cupsd error_log (last lines) ----"; tail -40 "$D/log/error_log"
        echo "---- application log ----"; tail -40 "$D/app.log" 2>/dev/null
    fi
    rm -rf "$D"
}
trap cleanup EXIT

# The program, installed into a prefix every user can read.
cmake --install "$build" --prefix "$D/prefix" >/dev/null || { echo "e2e: install failed"; exit 1; }
QP="$D/prefix/bin/quirepad"
APP_PID=
export ASAN_OPTIONS=detect_leaks=0   # leaks are the unit tests' business

# Users: the one who prints and runs Quirepad, and another one.
for u in "$USER_NAME" "$OTHER"; do id "$u" >/dev/null 2>&1 || useradd -m -s /bin/bash "$u"; done
as_user() {
    runuser -u "$USER_NAME" -- env HOME="/home/$USER_NAME" XDG_RUNTIME_DIR="$D/run" XDG_CONFIG_HOME="/home/$USER_NAME/.config" \
        XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache-user" QUIREPAD_SHARED_DIR="$SHARED" ASAN_OPTIONS=detect_leaks=0 \
        CUPS_SERVER="$D/cups.sock" "$@"
}
mkdir -p "$D/run" "$D/data" "$D/cache-user" "$D/out" "$D/out-remote"
chown "$USER_NAME" "$D/run" "$D/data" "$D/cache-user" "$D/out" "$D/out-remote"
chmod 700 "$D/run"

# A network namespace for the "other machine", when the kernel allows it.
REMOTE=no
if ip netns add "$NETNS" 2>/dev/null; then
    if ip link add qpe2e0 type veth peer name qpe2e1 && ip link set qpe2e1 netns "$NETNS" \
        && ip addr add 10.77.91.1/24 dev qpe2e0 && ip link set qpe2e0 up \
        && ip -n "$NETNS" addr add 10.77.91.2/24 dev qpe2e1 && ip -n "$NETNS" link set qpe2e1 up \
        && ip -n "$NETNS" link set lo up; then
        REMOTE=yes
    fi
fi
[ "$REMOTE" = yes ] || log "network namespaces are not available here: the remote job is not tested"

# A private cupsd, reachable from the other namespace too when there is one.
if [ "$REMOTE" = yes ]; then
    start_private_cupsd "$D" debug "$SHARED" "$USER_NAME" 127.0.0.1:8631 10.77.91.1:8631
else
    start_private_cupsd "$D" debug "$SHARED" "$USER_NAME" 127.0.0.1:8631
fi
lpstat -r | grep -q "is running" || { echo "SKIP: cupsd did not start here"; failures=0; exit 77; }

# The driver, through the installer the application ships.
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --cupsd-conf "$D/etc/cupsd.conf" > "$D/install.log" 2>&1 \
    || { cat "$D/install.log"; fail "the driver installer failed"; exit 1; }
lpstat -p Print_to_Quirepad >/dev/null 2>&1 || fail "no Print_to_Quirepad queue after installing"
SPOOL="$SHARED/quirepad_spool"

# The user's destinations: one by id for local jobs, one for remote jobs,
# and one whose folder the user cannot write.
as_user "$QP" destinations add F E2E >/dev/null
as_user "$QP" destinations set E2E name_pattern=%t.pdf "config.output_dir=file://$D/out/" || fail "cannot set E2E"
as_user "$QP" destinations add F Remote >/dev/null
as_user "$QP" destinations set Remote name_pattern=%u-%t.pdf "config.output_dir=file://$D/out-remote/" || fail "cannot set Remote"
as_user "$QP" defaults write remote_destination_name Remote
mkdir -p "$D/locked" && chmod 700 "$D/locked"
as_user "$QP" destinations add F Locked >/dev/null
as_user "$QP" destinations set Locked "config.output_dir=file://$D/locked/sub/" || fail "cannot set Locked"

# Another user's job in the spool must never be touched.
printf '%%PDF-1.4 not yours' > "$SPOOL/$OTHER-D3F2UG-private.pdf"
chown "$OTHER" "$SPOOL/$OTHER-D3F2UG-private.pdf"; chmod 600 "$SPOOL/$OTHER-D3F2UG-private.pdf"

# The application, headless, for the test user.
as_user "$QP" --headless > "$D/app.log" 2>&1 &
APP_PID=$!
for _ in $(seq 100); do [ -S "$D/run/quirepad/quirepad.sock" ] && break; sleep 0.1; done
[ -S "$D/run/quirepad/quirepad.sock" ] || fail "the application did not start"

wait_for() { # FILE SECONDS
    for _ in $(seq $(($2 * 10))); do [ -s "$1" ] && return 0; sleep 0.1; done
    return 1
}

# 1. A PDF printed with lp arrives unchanged under the title's name.
gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$D/sample.pdf" \
   -c "/Helvetica findfont 24 scalefont setfont 72 700 moveto (End to end sample) show showpage" \
   || fail "cannot make the sample PDF"
chmod 644 "$D/sample.pdf"
as_user lp -d Print_to_Quirepad -t "Quarterly: plan" -o quirepad-destination=E2E "$D/sample.pdf" >/dev/null \
    || fail "lp refused the PDF"
if wait_for "$D/out/Quarterly; plan.pdf" 30; then
    cmp -s "$D/sample.pdf" "$D/out/Quarterly; plan.pdf" || fail "the delivered PDF differs from the printed one"
    log "PDF delivered: $D/out/Quarterly; plan.pdf"
else
    fail "the PDF was not delivered"
fi

# 2. A text file is converted by CUPS and delivered as PDF.
printf 'Plain text through CUPS\n' > "$D/note.txt"; chmod 644 "$D/note.txt"
as_user lp -d Print_to_Quirepad -t "Text note" -o quirepad-destination=E2E "$D/note.txt" >/dev/null || fail "lp refused the text file"
if wait_for "$D/out/Text note.pdf" 60; then
    # texttopdf embeds its font without a text map, so the words cannot be
    # read back; what it made must be a one-page PDF it titled for the job.
    info="$(pdfinfo "$D/out/Text note.pdf" 2>&1)"
    echo "$info" | grep -q "^Creator: *texttopdf" || fail "the text file was not converted by CUPS: $info"
    echo "$info" | grep -q "^Pages: *1$" || fail "the converted text is not a one-page PDF"
    log "text delivered as PDF"
else
    fail "the text file was not delivered"
fi

# 3. A job whose folder cannot be written stays in the spool.
as_user lp -d Print_to_Quirepad -t "Kept job" -o quirepad-destination=Locked "$D/sample.pdf" >/dev/null || fail "lp refused the kept job"
kept=""
for _ in $(seq 150); do
    kept="$(ls "$SPOOL" 2>/dev/null | grep -F -- "-D3F2UG-Kept job.pdf" | grep -v '\.info$' || true)"
    [ -n "$kept" ] && grep -q "Kept job" "$D/app.log" && break
    sleep 0.1
done
sleep 3   # a few rescans
if ls "$SPOOL" | grep -qF -- "$USER_NAME-D3F2UG-Kept job.pdf"; then
    log "undeliverable job kept in the spool"
else
    fail "the job for an unwritable folder left the spool"
fi

# 4. Over IPP from another machine: a "remote:" job for remote_destination_name.
# The private queue refuses anonymous IPP; sharing (as AirPrint does) opens it.
if [ "$REMOTE" = yes ]; then
    ip netns exec "$NETNS" ipptool -q -f "$D/sample.pdf" -d filetype=application/pdf \
        "ipp://10.77.91.1:8631/printers/Print_to_Quirepad" /usr/share/cups/ipptool/print-job.test 2>/dev/null \
        && fail "the private queue took an anonymous job from another machine"
    bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --shared-dir "$SHARED" --share >> "$D/install.log" 2>&1 \
        || fail "the installer could not share the queue"
    ip netns exec "$NETNS" ipptool -q -f "$D/sample.pdf" -d filetype=application/pdf \
        "ipp://10.77.91.1:8631/printers/Print_to_Quirepad" /usr/share/cups/ipptool/print-job.test \
        || fail "ipptool could not print from the other namespace"
    remote_file=""
    for _ in $(seq 300); do
        remote_file="$(ls "$D/out-remote" 2>/dev/null | head -1)"
        [ -n "$remote_file" ] && break
        sleep 0.1
    done
    if [ -n "$remote_file" ]; then
        log "remote job delivered as $remote_file"
        grep -q "remote:" "$D/log/error_log" "$D/app.log" 2>/dev/null || true
    else
        fail "the remote job was not delivered to the remote destination"
        ls -la "$SPOOL"
    fi
fi

# A package: a zip holding an executable workflow and a property list
# naming it, under FOLDER/ inside the archive (the installer junks it).
make_package() { # FILE NAME FOLDER SCRIPT
    python3 - "$@" <<'PY'
import sys, zipfile
path, name, folder, script = sys.argv[1:5]
with zipfile.ZipFile(path, "w") as z:
    run = zipfile.ZipInfo(folder + name + ".workflow")
    run.external_attr = 0o100755 << 16
    z.writestr(run, "#!/bin/sh\n" + script + "\n")
    z.writestr(folder + name + ".plist", '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict>'
               '<key>name</key><string>' + name + '</string></dict></plist>\n')
PY
    chmod 644 "$1"
}
# 5. A plugin package opened with the program is installed by the running
# instance (without windows there is nobody to ask: opening it is the
# user's word), and listed.
make_package "$D/Stamp.qpdplugin" Stamp Stamp/ 'printf "%s\n" "$1"'
# Opened as a file manager opens it: its type from the installed MIME
# package, the program from the desktop entry (chosen as the default, as a
# user does with "Open With"), started by gio.
if command -v gio >/dev/null && command -v update-mime-database >/dev/null; then
    update-mime-database "$D/prefix/share/mime" >/dev/null 2>&1
    opener=(env PATH="$D/prefix/bin:$PATH" XDG_DATA_DIRS="$D/prefix/share:/usr/share")
    as_user "${opener[@]}" xdg-mime default com.halvern.Quirepad.desktop application/x-quirepad-plugin
    type="$(as_user "${opener[@]}" gio info -a standard::content-type "$D/Stamp.qpdplugin" | sed -n 's/.*content-type: //p')"
    [ "$type" = application/x-quirepad-plugin ] || fail "the package's type is $type"
    as_user "${opener[@]}" gio open "$D/Stamp.qpdplugin" > "$D/open.log" 2>&1 || fail "gio could not open the package: $(cat "$D/open.log")"
else
    log "gio or update-mime-database missing: the package is opened with the program directly"
    as_user "$QP" "$D/Stamp.qpdplugin" > "$D/open.log" 2>&1 || fail "opening the package failed: $(cat "$D/open.log")"
fi
installed=no
for _ in $(seq 50); do as_user "$QP" plugins list 2>&1 | grep -q "Stamp" && installed=yes && break; sleep 0.2; done
if [ "$installed" = yes ]; then
    log "plugin package opened and installed"
else
    fail "the opened package is not listed: $(as_user "$QP" plugins list 2>&1 | head -5)"
fi

# A filter package installed from the command line lands among the filters.
make_package "$D/Toner.qpdfilter" Toner "" 'cp "$1" "$1.out.pdf" && printf "%s\n" "$1.out.pdf"'
as_user "$QP" filters install "$D/Toner.qpdfilter" > "$D/filter.log" 2>&1 || fail "filters install failed: $(cat "$D/filter.log")"
as_user "$QP" filters list 2>&1 | grep -q "Toner" && log "filter package installed from the command line" \
    || fail "the filter is not listed: $(as_user "$QP" filters list 2>&1 | head -5)"
as_user "$QP" plugins list 2>&1 | grep -q "Toner" && fail "the filter was listed among the plugins"

# The other user's job is still there, untouched.
[ "$(cat "$SPOOL/$OTHER-D3F2UG-private.pdf" 2>/dev/null)" = "%PDF-1.4 not yours" ] || fail "another user's job was touched"
# Nothing of ours is left but the kept job.
left="$(ls -A "$SPOOL" | grep -v -e "^$OTHER-" -e "Kept job" || true)"
[ -z "$left" ] || fail "left in the spool: $left"

if [ "$failures" -eq 0 ]; then echo "e2e: all checks passed"; exit 0; fi
echo "e2e: $failures check(s) failed"; exit 1
