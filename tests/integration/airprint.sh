#!/usr/bin/env bash
# AirPrint end to end through real parts, on two hosts made of network
# namespaces joined by a veth pair:
#   host:  its own system bus and avahi-daemon, a private cupsd sharing
#          Print_to_Quirepad over DNS-SD, the headless application of a
#          test user;
#   phone: another bus and avahi-daemon, avahi-browse and ipptool.
# The application must find the queue, publish "AirPrint Quirepad"; the
# phone must discover it, resolve it and print to the address and rp it
# advertises, and the job must be delivered. Switching enable_airprinter off
# withdraws the record; a restarted avahi-daemon gets it back.
#   airprint.sh BUILD_DIR
# Exit 77 (skipped) when the machine cannot run it.
set -uo pipefail
# shellcheck source=/dev/null
. "$(dirname "$0")/../common/private_cupsd.sh"

build="$(cd "${1:?usage: airprint.sh BUILD_DIR}" && pwd)"
if [ "$(id -u)" -ne 0 ]; then echo "SKIP: the AirPrint test needs root (namespaces, cupsd, avahi-daemon)"; exit 77; fi
for tool in avahi-daemon avahi-browse dbus-daemon cupsd lpadmin ipptool ip unshare runuser useradd; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed (scripts/install-deps.sh installs it)"; exit 77; }
done

D="$(mktemp -d /tmp/quirepad-airprint.XXXXXX)"
chmod 755 "$D"
USER_NAME=qpair
SHARED="$D/shared"
HOSTNS=qpahost$$
PHONENS=qpaphone$$
HOST_IP=10.78.$(($$ % 200)).1
PHONE_IP=10.78.$(($$ % 200)).2
PIDS=()
CUPSD_PID=
APP_PID=
HOST_AVAHI=
failures=0

log() { echo "airprint: $*"; }
fail() { echo "airprint: FAIL: $*"; failures=$((failures + 1)); }
cleanup() {
    if [ -n "$APP_PID" ]; then
        pkill -TERM -f -- "$QP --headless" 2>/dev/null
        for _ in $(seq 50); do pgrep -f -- "$QP --headless" >/dev/null || break; sleep 0.1; done
        pkill -KILL -f -- "$QP --headless" 2>/dev/null
    fi
    [ -n "$CUPSD_PID" ] && kill -TERM "$CUPSD_PID" 2>/dev/null && wait "$CUPSD_PID" 2>/dev/null
    for pid in "${PIDS[@]}" $HOST_AVAHI; do kill -TERM "$pid" 2>/dev/null; done
    wait 2>/dev/null
    ip netns del "$HOSTNS" 2>/dev/null
    ip netns del "$PHONENS" 2>/dev/null
    if [ "$failures" -ne 0 ]; then
        echo "---- application log ----"; tail -40 "$D/app.log" 2>/dev/null
        echo "---- host avahi ----"; tail -20 "$D/avahi-host.log" 2>/dev/null
        echo "---- cupsd error_log ----"; tail -20 "$D/log/error_log" 2>/dev/null
    fi
    rm -rf "$D"
}
trap cleanup EXIT

# Two hosts.
ip netns add "$HOSTNS" 2>/dev/null && ip netns add "$PHONENS" 2>/dev/null \
    || { echo "SKIP: network namespaces cannot be made here"; exit 77; }
ip link add qpa$$h type veth peer name qpa$$p || { echo "SKIP: no veth pairs here"; exit 77; }
ip link set qpa$$h netns "$HOSTNS"; ip link set qpa$$p netns "$PHONENS"
ip -n "$HOSTNS" addr add "$HOST_IP/24" dev qpa$$h; ip -n "$PHONENS" addr add "$PHONE_IP/24" dev qpa$$p
for ns in "$HOSTNS" "$PHONENS"; do ip -n "$ns" link set lo up; done
ip -n "$HOSTNS" link set qpa$$h up; ip -n "$PHONENS" link set qpa$$p up

# A system bus of each host's own, from the system's configuration.
start_bus() { # NAME
    sed -e "s|<listen>.*</listen>|<listen>unix:path=$D/$1.bus</listen>|" -e '/<pidfile>/d' -e '/<servicehelper>/d' \
        -e '/<standard_system_servicedirs/d' \
        -e 's|<includedir>system.d</includedir>|<includedir>/usr/share/dbus-1/system.d</includedir>|' \
        /usr/share/dbus-1/system.conf > "$D/$1.conf"
    dbus-daemon --config-file="$D/$1.conf" --nofork --nopidfile > "$D/$1-bus.log" 2>&1 &
    PIDS+=($!)
    for _ in $(seq 50); do [ -S "$D/$1.bus" ] && return 0; sleep 0.1; done
    return 1
}
start_bus host && start_bus phone || { echo "SKIP: a private system bus did not start"; exit 77; }
HOST_BUS="unix:path=$D/host.bus"
PHONE_BUS="unix:path=$D/phone.bus"

# avahi-daemon NS BUS INTERFACE LOG: in the namespace, on its bus, with a
# runtime folder of its own (the daemon keeps its pid file there).
mkdir -p /run/avahi-daemon
start_avahi() {
    local name=$1 ns=$2 bus=$3 interface=$4
    cat > "$D/avahi-$name.conf" <<CONF
[server]
host-name=qp$name$$
use-ipv4=yes
use-ipv6=no
allow-interfaces=$interface
enable-dbus=yes
ratelimit-interval-usec=1000000
ratelimit-burst=1000
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
[reflector]
[rlimits]
CONF
    ip netns exec "$ns" unshare -m --propagation private sh -c \
        "mount -t tmpfs tmpfs /run/avahi-daemon && DBUS_SYSTEM_BUS_ADDRESS=$bus exec avahi-daemon --no-drop-root --no-chroot --no-rlimits -f $D/avahi-$name.conf" \
        >> "$D/avahi-$name.log" 2>&1 &
    echo $!
}
avahi_up() { # BUS
    for _ in $(seq 100); do
        DBUS_SYSTEM_BUS_ADDRESS=$1 avahi-browse -pt _nothing._tcp >/dev/null 2>&1 && return 0
        sleep 0.1
    done
    return 1
}
HOST_AVAHI=$(start_avahi host "$HOSTNS" "$HOST_BUS" qpa$$h)
PIDS+=("$(start_avahi phone "$PHONENS" "$PHONE_BUS" qpa$$p)")
avahi_up "$HOST_BUS" && avahi_up "$PHONE_BUS" || { cat "$D"/avahi-*.log; echo "SKIP: avahi-daemon did not start here"; exit 77; }
host_browse() { DBUS_SYSTEM_BUS_ADDRESS=$HOST_BUS avahi-browse "$@"; }
phone_browse() { ip netns exec "$PHONENS" env DBUS_SYSTEM_BUS_ADDRESS="$PHONE_BUS" avahi-browse "$@"; }

# The program, installed where every user can read it.
cmake --install "$build" --prefix "$D/prefix" >/dev/null || { echo "airprint: install failed"; exit 1; }
QP="$D/prefix/bin/quirepad"
id "$USER_NAME" >/dev/null 2>&1 || useradd -m -s /bin/bash "$USER_NAME"
mkdir -p "$D/run" "$D/data" "$D/cache-user" "$D/out-remote"
chown "$USER_NAME" "$D/run" "$D/data" "$D/cache-user" "$D/out-remote"
chmod 700 "$D/run"
as_user() {
    ip netns exec "$HOSTNS" runuser -u "$USER_NAME" -- env HOME="/home/$USER_NAME" XDG_RUNTIME_DIR="$D/run" \
        XDG_CONFIG_HOME="/home/$USER_NAME/.config" XDG_DATA_HOME="$D/data" XDG_CACHE_HOME="$D/cache-user" \
        QUIREPAD_SHARED_DIR="$SHARED" DBUS_SYSTEM_BUS_ADDRESS="$HOST_BUS" ASAN_OPTIONS=detect_leaks=0 \
        CUPS_SERVER="$D/cups.sock" "$@"
}

# The host's cupsd on port 631, sharing the queue over DNS-SD.
CUPSD_BROWSING=dnssd CUPSD_RUNNER="ip netns exec $HOSTNS env DBUS_SYSTEM_BUS_ADDRESS=$HOST_BUS" \
    start_private_cupsd "$D" info "$SHARED" "$USER_NAME" "$HOST_IP:631" \
    || { echo "SKIP: cupsd did not start here"; exit 77; }
bash "$D/prefix/share/quirepad/Resources/driver/install-driver.sh" --share --shared-dir "$SHARED" \
    --cupsd-conf "$D/etc/cupsd.conf" > "$D/install.log" 2>&1 || { cat "$D/install.log"; fail "the driver installer failed"; exit 1; }
lpstat -p Print_to_Quirepad >/dev/null 2>&1 || fail "no Print_to_Quirepad queue"
grep -q 'queue Print_to_Quirepad ready (shared' "$D/install.log" || fail "the installer did not share the queue"
grep -q 'does not share printers' "$D/install.log" && fail "the installer says CUPS does not share printers, but it does here"

# Where remote jobs go, and the switch on.
as_user "$QP" destinations add F Remote >/dev/null
as_user "$QP" destinations set Remote name_pattern=%u-%t.pdf "config.output_dir=file://$D/out-remote/" || fail "cannot set Remote"
as_user "$QP" defaults write remote_destination_name Remote
as_user "$QP" defaults write enable_airprinter true
# The page feed, for other devices and published over DNS-SD.
for setting in "HTTPServer_enabled true" "HTTPServer_bind_all true" "HTTPServer_serverPort 8631" \
    "HTTPServer_serviceType http"; do
    # shellcheck disable=SC2086
    as_user "$QP" defaults write $setting >/dev/null || fail "cannot write $setting"
done
as_user "$QP" defaults write HTTPServer_serviceName "Quirepad Pages" >/dev/null || fail "cannot name the feed's service"

# The queue as CUPS announces it (before the application runs).
cups_seen=no
for _ in $(seq 100); do
    host_browse -rpt _ipp._tcp 2>/dev/null | grep '^=' | grep -q 'rp=printers/Print_to_Quirepad' && { cups_seen=yes; break; }
    sleep 0.1
done
[ "$cups_seen" = yes ] || { host_browse -rpt _ipp._tcp; fail "cupsd does not announce the shared queue"; }

as_user "$QP" --headless > "$D/app.log" 2>&1 &
APP_PID=$!

# record BROWSE_FN TYPE [NAME]: the resolved line of "AirPrint Quirepad" (or
# NAME, escaped as avahi-browse prints it) over IPv4, if any.
record() {
    "$1" -rpt "$2" 2>/dev/null | grep "^=;[^;]*;IPv4;${3:-AirPrint\\\\032Quirepad};" | head -1
}
wait_record_named() { # BROWSE_FN TYPE NAME SECONDS
    local line
    for _ in $(seq $(($4 * 2))); do
        line=$(record "$1" "$2" "$3")
        [ -n "$line" ] && { echo "$line"; return 0; }
        sleep 0.5
    done
    return 1
}
wait_record() { # BROWSE_FN TYPE SECONDS
    local line
    for _ in $(seq $(($3 * 2))); do
        line=$(record "$1" "$2")
        [ -n "$line" ] && { echo "$line"; return 0; }
        sleep 0.5
    done
    return 1
}
wait_gone() { # SECONDS
    for _ in $(seq $(($1 * 2))); do
        [ -z "$(record host_browse _ipp._tcp)" ] && return 0
        sleep 0.5
    done
    return 1
}

# 1. Published on the host, with every TXT key, in its order.
line=$(wait_record host_browse _ipp._tcp 15) || fail "\"AirPrint Quirepad\" was not published"
log "host sees: $line"
txt=$(echo "$line" | cut -d';' -f10-)
first_qpid=$(echo "$txt" | grep -o '"qpid=[^"]*"' | head -1)
for pair in '"txtvers=1"' '"qtotal=1"' '"rp=/printers/Print_to_Quirepad"' '"adminurl=https\{0,1\}://[^"]*:631/printers/Print_to_Quirepad"' \
    '"pdl=application/pdf,application/postscript,image/jpeg,image/png,image/pwg-raster,image/urf"' \
    '"product=(CUPS v1.1)"' '"ty=Quirepad Printer"' '"note=Quirepad Printer @ [^"]*"' '"URF=none"' \
    '"qpid=[0-9A-F]\{8\}-[0-9A-F]\{4\}-[0-9A-F]\{4\}-[0-9A-F]\{4\}-[0-9A-F]\{12\}"'; do
    echo "$txt" | grep -q "$pair" || fail "TXT lacks $pair: $txt"
done
# The keys in their order on the wire, as the phone's query gets them.
order=$(ip netns exec "$PHONENS" python3 "$(dirname "$0")/mdns_txt.py" "$HOST_IP" "AirPrint Quirepad._ipp._tcp.local" \
    | cut -d= -f1 | tr '\n' ' ')
[ "$order" = "txtvers qtotal rp adminurl pdl product ty note URF qpid " ] || fail "TXT keys out of order on the wire: $order"
echo "$line" | grep -q ";631;" || fail "the record does not point at port 631: $line"
[ -n "$(wait_record host_browse _universal._sub._ipp._tcp 5)" ] || fail "not found under the _universal subtype"
status=$(as_user "$QP" airprint status)
echo "$status" | grep -q '^published: yes, as "AirPrint Quirepad"' || fail "airprint status says: $status"

# 2. The phone discovers it under the subtype, resolves it and prints to it.
pline=$(wait_record phone_browse _universal._sub._ipp._tcp 15) || fail "the phone does not see \"AirPrint Quirepad\""
if [ -n "$pline" ]; then
    log "phone sees: $pline"
    address=$(echo "$pline" | cut -d';' -f8)
    port=$(echo "$pline" | cut -d';' -f9)
    rp=$(echo "$pline" | grep -o '"rp=[^"]*"' | sed 's/^"rp=//; s/"$//')
    [ "$address" = "$HOST_IP" ] || fail "the phone resolved $address, not $HOST_IP"
    gs -dSAFER -dBATCH -dNOPAUSE -dQUIET -sDEVICE=pdfwrite -sOutputFile="$D/phone.pdf" \
        -c "/Helvetica findfont 24 scalefont setfont 72 700 moveto (From the phone) show showpage"
    ip netns exec "$PHONENS" ipptool -q -f "$D/phone.pdf" -d filetype=application/pdf \
        "ipp://$address:$port${rp}" /usr/share/cups/ipptool/print-job.test \
        || fail "ipptool could not print to ipp://$address:$port$rp"
    delivered=""
    for _ in $(seq 300); do
        delivered=$(ls "$D/out-remote" 2>/dev/null | head -1)
        [ -n "$delivered" ] && break
        sleep 0.1
    done
    if [ -n "$delivered" ]; then
        pdftotext "$D/out-remote/$delivered" - 2>/dev/null | grep -q "From the phone" \
            || fail "the delivered file is not the phone's page"
        log "the phone's job was delivered as $delivered"
    else
        fail "the phone's job was not delivered"
    fi
fi

# The feed: published as "_http._tcp" and read from the phone.
fline=$(wait_record_named phone_browse _http._tcp 'Quirepad\\032Pages' 15) || fail "the page feed is not published"
echo "$fline" | grep -q ";$HOST_IP;8631;" || fail "the feed's record does not point at $HOST_IP:8631: $fline"
ip netns exec "$PHONENS" curl -sf "http://$HOST_IP:8631/index.html" | grep -q 'Quirepad::all printed pages' \
    || fail "the phone cannot read the page feed's index"

# 3. Switched off: withdrawn. On again: back with a new qpid.
as_user "$QP" defaults write enable_airprinter false
wait_gone 10 || fail "the record stays after enable_airprinter was turned off"
as_user "$QP" airprint status | grep -q 'switched off' || fail "airprint status does not say it is switched off"
as_user "$QP" defaults write enable_airprinter true
line=$(wait_record host_browse _ipp._tcp 15) || fail "not published again after switching on"
second_qpid=$(echo "$line" | grep -o '"qpid=[^"]*"' | head -1)
[ -n "$second_qpid" ] && [ "$second_qpid" != "$first_qpid" ] || fail "the new publication kept its qpid ($second_qpid)"

# 4. The daemon stops: the program keeps running and says so once; it
# publishes again when the daemon is back.
kill -TERM "$HOST_AVAHI"; wait "$HOST_AVAHI" 2>/dev/null
sleep 2
kill -0 "$APP_PID" 2>/dev/null || fail "the application ended when avahi-daemon stopped"
as_user "$QP" airprint status | grep -q 'published: no' || fail "airprint status does not notice the daemon is gone"
HOST_AVAHI=$(start_avahi host "$HOSTNS" "$HOST_BUS" qpa$$h)
avahi_up "$HOST_BUS" || fail "avahi-daemon did not come back"
line=$(wait_record host_browse _ipp._tcp 20) || fail "not published again after avahi-daemon restarted"
said=$(grep -c 'DNS-SD is unavailable' "$D/app.log")
[ "$said" -eq 1 ] || fail "the outage was reported $said times, not once"
[ -n "$(wait_record phone_browse _universal._sub._ipp._tcp 15)" ] || fail "the phone does not see the record after the restart"

kill -0 "$APP_PID" 2>/dev/null || fail "the application is gone"
[ "$failures" -eq 0 ] && log "all AirPrint checks passed"
[ "$failures" -eq 0 ]
