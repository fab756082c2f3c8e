#!/usr/bin/env bash
# Installs the Quirepad print driver: the CUPS backend, its PPD, the shared
# folder the backend and the application meet in, and the shared queue
# "Print_to_Quirepad". Safe to run again: every step brings the system to
# the same state.
#
# The files it installs lie beside this script (the application's
# Resources/driver/ folder): quirepad (the backend), quirepad.ppd.
#
# The queue is private by default: it is not shared, and it runs under the
# policy "quirepad" (written into cupsd.conf), which makes every local client
# authenticate by its peer credentials, so the backend gets the real user
# and nobody can print in another user's name (lp -U). --share switches the
# queue to shared under the stock policy, so phones and other machines can
# print to it; local users can then print in each other's name.
#
# Usage: install-driver.sh [options]
#   --shared-dir DIR     shared folder (default /var/spool/quirepad). The
#                        backend reads it from $QUIREPAD_SHARED_DIR; for any
#                        other folder, CUPS must set that variable (see
#                        --cups-files-conf), and the application must see it
#                        too.
#   --cups-files-conf FILE
#                        also write "SetEnv QUIREPAD_SHARED_DIR DIR" into FILE,
#                        usually /etc/cups/cups-files.conf (CUPS 2.4 honours
#                        SetEnv there only; in cupsd.conf it is ignored
#                        without a word). Removes the line when DIR is the
#                        default. CUPS must be restarted after.
#   --cupsd-conf FILE    the scheduler's configuration, where the policy goes
#                        (default /etc/cups/cupsd.conf); the scheduler that
#                        reads it is told to reload.
#   --share              share the queue (stock policy) instead of keeping it
#                        private.
#   --no-queue           install the files only; leave the CUPS queues alone.
#   --destdir DIR        install under DIR instead of / (packaging, tests);
#                        implies --no-queue.
#   --remove-queue       remove the queue (when the scheduler runs) and the
#                        policy "quirepad" from the configuration (see
#                        --cupsd-conf); installs nothing and leaves the files.
#   -h, --help           this text.
set -euo pipefail

readonly QUEUE=Print_to_Quirepad
readonly DEFAULT_SHARED_DIR=/var/spool/quirepad

say() { printf 'install-driver: %s\n' "$*"; }
die() {
    printf 'install-driver: error: %s\n' "$*" >&2
    exit 1
}
usage() { sed -n '/^# Usage:/,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$0"; }

shared_dir=$DEFAULT_SHARED_DIR
cups_files_conf=
cupsd_conf=/etc/cups/cupsd.conf
share=0
make_queue=1
destdir=
remove_queue=0
while [ $# -gt 0 ]; do
    case $1 in
    --shared-dir)
        [ $# -ge 2 ] || die "--shared-dir needs a folder"
        shared_dir=$2
        shift 2
        ;;
    --cups-files-conf)
        [ $# -ge 2 ] || die "--cups-files-conf needs a file"
        cups_files_conf=$2
        shift 2
        ;;
    --cupsd-conf)
        [ $# -ge 2 ] || die "--cupsd-conf needs a file"
        cupsd_conf=$2
        shift 2
        ;;
    --share)
        share=1
        shift
        ;;
    --no-queue)
        make_queue=0
        shift
        ;;
    --destdir)
        [ $# -ge 2 ] || die "--destdir needs a folder"
        destdir=${2%/}
        make_queue=0
        shift 2
        ;;
    --remove-queue)
        remove_queue=1
        shift
        ;;
    -h | --help)
        usage
        exit 0
        ;;
    *)
        usage >&2
        die "unknown option: $1"
        ;;
    esac
done

case $shared_dir in
/*) ;;
*) die "--shared-dir must be an absolute path: $shared_dir" ;;
esac
shared_dir=${shared_dir%/}
[ -n "$shared_dir" ] || die "--shared-dir must not be /"

[ "$(id -u)" -eq 0 ] || die "must run as root (try: sudo $0 $*)"

# The policy of the private queue: like the stock default, but creating a
# job needs a valid user, which local clients prove by their peer
# credentials without being asked.
policy_block() {
    cat <<'POLICY'
# quirepad-policy-begin (written by install-driver.sh)
<Policy quirepad>
  JobPrivateAccess default
  JobPrivateValues default
  SubscriptionPrivateAccess default
  SubscriptionPrivateValues default
  <Limit Create-Job Print-Job Print-URI Validate-Job>
    AuthType Basic
    Require valid-user
    Order deny,allow
  </Limit>
  <Limit Send-Document Send-URI Hold-Job Release-Job Restart-Job Purge-Jobs Set-Job-Attributes Create-Job-Subscription Renew-Subscription Cancel-Subscription Get-Notifications Reprocess-Job Cancel-Current-Job Suspend-Current-Job Resume-Job Cancel-My-Jobs Close-Job CUPS-Move-Job>
    Require user @OWNER @SYSTEM
    Order deny,allow
  </Limit>
  <Limit CUPS-Get-Document>
    AuthType Default
    Require user @OWNER @SYSTEM
    Order deny,allow
  </Limit>
  <Limit CUPS-Add-Modify-Printer CUPS-Delete-Printer CUPS-Add-Modify-Class CUPS-Delete-Class CUPS-Set-Default CUPS-Get-Devices>
    AuthType Default
    Require user @SYSTEM
    Order deny,allow
  </Limit>
  <Limit Pause-Printer Resume-Printer Enable-Printer Disable-Printer Pause-Printer-After-Current-Job Hold-New-Jobs Release-Held-New-Jobs Deactivate-Printer Activate-Printer Restart-Printer Shutdown-Printer Startup-Printer Promote-Job Schedule-Job-After Cancel-Jobs CUPS-Accept-Jobs CUPS-Reject-Jobs>
    AuthType Default
    Require user @SYSTEM
    Order deny,allow
  </Limit>
  <Limit Cancel-Job CUPS-Authenticate-Job>
    Require user @OWNER @SYSTEM
    Order deny,allow
  </Limit>
  <Limit All>
    Order deny,allow
  </Limit>
</Policy>
# quirepad-policy-end
POLICY
}

# Tells the scheduler that reads $1 to load it again.
reload_scheduler() {
    local conf pid arg next found=0
    conf=$(readlink -f -- "$1")
    if [ -d /run/systemd/system ] && [ "$conf" = /etc/cups/cupsd.conf ]; then
        systemctl reload-or-restart cups && return 0
    fi
    for pid in $(pgrep -x cupsd); do
        arg=/etc/cups/cupsd.conf
        next=0
        while IFS= read -r -d '' word; do
            [ "$next" = 1 ] && { arg=$word; next=0; }
            [ "$word" = -c ] && next=1
        done <"/proc/$pid/cmdline"
        if [ "$(readlink -f -- "$arg")" = "$conf" ]; then
            kill -HUP "$pid" && found=1
        fi
    done
    [ "$found" = 1 ]
}

install_policy() {
    local conf=$1 tmp
    [ -f "$conf" ] || die "no such CUPS configuration file: $conf (see --cupsd-conf)"
    tmp=$(mktemp "$conf.XXXXXX")
    sed '/^# quirepad-policy-begin/,/^# quirepad-policy-end/d' "$conf" >"$tmp"
    policy_block >>"$tmp"
    if cmp -s "$tmp" "$conf"; then
        rm -f -- "$tmp"
        return 0
    fi
    chmod --reference="$conf" "$tmp"
    chown --reference="$conf" "$tmp"
    mv -f -- "$tmp" "$conf"
    say "policy \"quirepad\" written into $conf"
    reload_scheduler "$conf" || say "note: no running scheduler reads $conf; restart CUPS for the policy to take effect"
}

# Takes the queue and the policy away again; the files stay.
remove_queue_and_policy() {
    local conf=$cupsd_conf tmp
    if scheduler_runs; then
        if lpstat -v "$QUEUE" >/dev/null 2>&1; then
            lpadmin -x "$QUEUE" || die "lpadmin could not remove $QUEUE"
            say "queue $QUEUE removed"
        fi
    else
        say "note: the CUPS scheduler is not running: remove the queue once it runs (lpadmin -x $QUEUE)"
    fi
    [ -f "$conf" ] && grep -q '^# quirepad-policy-begin' "$conf" || return 0
    tmp=$(mktemp "$conf.XXXXXX")
    sed '/^# quirepad-policy-begin/,/^# quirepad-policy-end/d' "$conf" >"$tmp"
    chmod --reference="$conf" "$tmp"
    chown --reference="$conf" "$tmp"
    mv -f -- "$tmp" "$conf"
    say "policy \"quirepad\" removed from $conf"
    reload_scheduler "$conf" || true
}

# lpstat's answer is translated: ask in the C locale.
scheduler_runs() { [ "$(LC_ALL=C lpstat -r 2>/dev/null)" = "scheduler is running" ]; }

if [ "$remove_queue" -eq 1 ]; then
    remove_queue_and_policy
    say "done"
    exit 0
fi

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
backend_src=$here/quirepad
ppd_src=$here/quirepad.ppd
[ -f "$backend_src" ] && [ -x "$backend_src" ] || die "the backend is missing beside this script: $backend_src"
[ -f "$ppd_src" ] || die "the PPD is missing beside this script: $ppd_src"

backend_dst=$destdir/usr/lib/cups/backend/quirepad
ppd_dst=$destdir/usr/share/ppd/quirepad/quirepad.ppd
shared=$destdir$shared_dir
spool=$shared/quirepad_spool

# Installs $1 as $2 with mode $3, root's; leaves a file that is the same
# already (the one a package installed) as it is.
install_file() {
    local src=$1 dst=$2 mode=$3
    install -d -o root -g root -m 0755 "$(dirname "$dst")"
    if [ -f "$dst" ] && [ ! -L "$dst" ] && [ "$(stat -c %u:%g:%a "$dst")" = "0:0:${mode#0}" ] && cmp -s "$src" "$dst"; then
        return 0
    fi
    install -o root -g root -m "$mode" "$src" "$dst"
}

# The backend runs as root only when it is not readable by others (see
# `man backend`): root is needed to hand each job to its user.
install_file "$backend_src" "$backend_dst" 0700
say "backend installed: $backend_dst (root:root 0700)"

install_file "$ppd_src" "$ppd_dst" 0644
say "PPD installed: $ppd_dst"

# Sticky and writable by everyone, like /tmp: every user's Quirepad removes
# its own jobs and nobody else's. A folder that is already there must be
# root's: one that another user made first would let that user rename or
# remove everybody's jobs.
for dir in "$shared" "$spool"; do
    if [ -L "$dir" ] || { [ -e "$dir" ] && [ ! -d "$dir" ]; }; then
        die "$dir exists and is not a folder; remove it and run this again"
    fi
    if [ -d "$dir" ] && [ "$(stat -c %u "$dir")" != 0 ]; then
        die "$dir belongs to $(stat -c %U "$dir"), not to root; remove it and run this again"
    fi
    install -d -o root -g root -m 1777 "$dir"
    chmod 1777 "$dir"
done
say "shared folder ready: $shared (1777), spool: $spool (1777)"

# The trigger files are root's: whoever made them first would decide what
# they are. A fresh file is made under a random name and renamed over
# whatever stands at the name (a rename never follows a link).
for trigger in "$shared/.quirepad_trigger_file_end" "$shared/.quirepad_trigger_file_start"; do
    if [ -f "$trigger" ] && [ ! -L "$trigger" ] && [ "$(stat -c %u:%h "$trigger")" = 0:1 ]; then
        chmod 0777 "$trigger"
    else
        tmp=$(mktemp "$shared/.quirepad-trigger.XXXXXX")
        chmod 0777 "$tmp"
        mv -f -T -- "$tmp" "$trigger" || { rm -f -- "$tmp"; die "cannot replace $trigger; remove it and run this again"; }
    fi
done
say "trigger files ready in $shared (root, 0777)"

if [ -n "$cups_files_conf" ]; then
    conf=$cups_files_conf
    [ -f "$conf" ] || die "no such CUPS configuration file: $conf"
    tmp=$(mktemp "$conf.XXXXXX")
    grep -v '^[[:space:]]*SetEnv[[:space:]]\+QUIREPAD_SHARED_DIR[[:space:]]' "$conf" >"$tmp" || true
    if [ "$shared_dir" != "$DEFAULT_SHARED_DIR" ]; then
        printf 'SetEnv QUIREPAD_SHARED_DIR %s\n' "$shared_dir" >>"$tmp"
    fi
    if cmp -s "$tmp" "$conf"; then
        rm -f -- "$tmp"
        say "$conf already up to date"
    else
        chmod --reference="$conf" "$tmp"
        chown --reference="$conf" "$tmp"
        mv -f -- "$tmp" "$conf"
        say "$conf updated; restart CUPS for it to take effect (systemctl restart cups)"
    fi
elif [ "$shared_dir" != "$DEFAULT_SHARED_DIR" ]; then
    say "note: CUPS must pass QUIREPAD_SHARED_DIR=$shared_dir to the backend" \
        "(SetEnv in cups-files.conf, see --cups-files-conf)"
fi

if [ "$make_queue" -eq 0 ]; then
    say "queue left alone (--no-queue); done"
    exit 0
fi

for tool in lpadmin cupsenable cupsaccept lpstat; do
    command -v "$tool" >/dev/null 2>&1 || die "$tool not found: install the CUPS client programs (cups-client)"
done
scheduler_runs \
    || die "the CUPS scheduler is not running: start it (systemctl start cups) and run this again, or use --no-queue"

if [ "$share" -eq 1 ]; then
    queue_options=(-o printer-is-shared=true -o printer-op-policy=default)
else
    install_policy "$cupsd_conf"
    queue_options=(-o printer-is-shared=false -o printer-op-policy=quirepad)
fi

# lpadmin creates the queue or updates the existing one in place. CUPS 2.4
# warns that PPD drivers are deprecated; that warning is not ours to show.
# A scheduler that reloads waits for the job it prints: try for a while.
for attempt in $(seq 60); do
    if out=$(lpadmin -p "$QUEUE" -E -v quirepad:/ -P "$ppd_dst" "${queue_options[@]}" -D "Print to Quirepad" 2>&1); then
        break
    fi
    [ "$attempt" -lt 60 ] || {
        printf '%s\n' "$out" >&2
        die "lpadmin could not set up $QUEUE (see the CUPS error log)"
    }
    sleep 0.5
done
printf '%s\n' "$out" | grep -v -i 'drivers are deprecated' | grep . || true
cupsenable "$QUEUE" || die "cupsenable $QUEUE failed"
cupsaccept "$QUEUE" || die "cupsaccept $QUEUE failed"
if [ "$share" -eq 1 ]; then
    # A shared queue is only announced when the scheduler shares printers.
    # cupsctl reads a local scheduler's configuration from its folder.
    if [ "$(CUPS_SERVERROOT=$(dirname -- "$cupsd_conf") cupsctl 2>/dev/null | sed -n 's/^_share_printers=//p')" != 1 ]; then
        say "note: CUPS does not share printers with the network, so phones cannot see $QUEUE yet."
        say "      Turn sharing on with \"cupsctl --share-printers\" (as root), or on the CUPS page"
        say "      http://localhost:631/admin with \"Share printers connected to this system\"."
    fi
    say "queue $QUEUE ready (shared: local users can print in each other's name); done"
else
    say "queue $QUEUE ready (private: jobs belong to the user who prints them); done"
    say "to let phones print to it (AirPrint): quirepad install-driver --share, then turn AirPrint on in the preferences"
fi
