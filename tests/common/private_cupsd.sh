# Sourced by the end-to-end test and the print benchmark.
#
# start_private_cupsd DIR LOGLEVEL SHARED CONSOLE_USER [LISTEN...]
# Runs a cupsd of its own under DIR (configuration, spool, logs, the socket
# DIR/cups.sock) with a permissive policy, passing QUIREPAD_SHARED_DIR and
# QUIREPAD_CONSOLE_USER to backends (CUPS takes SetEnv only from
# cups-files.conf). Extra LISTEN addresses are added beside the socket.
# Sets CUPSD_PID and exports CUPS_SERVER; answers 1 when cupsd does not come up.
# With CUPSD_BROWSING=dnssd shared queues are announced over DNS-SD; cupsd
# runs under the command words in CUPSD_RUNNER when set (a network
# namespace, say).
start_private_cupsd() {
    local dir=$1 level=$2 shared=$3 console=$4
    shift 4
    mkdir -p "$dir/etc/ppd" "$dir/spool/tmp" "$dir/cache" "$dir/state/certs" "$dir/log"
    chown -R root:lp "$dir/spool" "$dir/cache" "$dir/state"
    chmod 0710 "$dir/spool"; chmod 1770 "$dir/spool/tmp"; chmod 0770 "$dir/cache" "$dir/state"
    {
        echo "LogLevel $level"
        echo "Listen $dir/cups.sock"
        for address in "$@"; do echo "Listen $address"; done
        [ $# -gt 0 ] && echo "ServerAlias *"
        if [ "${CUPSD_BROWSING:-}" = dnssd ]; then
            echo "Browsing On"
            echo "BrowseLocalProtocols dnssd"
        else
            echo "Browsing Off"
        fi
        echo "WebInterface No"
        echo "DefaultEncryption Never"
        echo "DefaultAuthType None"
        echo "<Location />"
        echo "  Order allow,deny"
        echo "  Allow all"
        echo "</Location>"
        echo "<Policy default>"
        echo "  <Limit All>"
        echo "    Order deny,allow"
        echo "  </Limit>"
        echo "</Policy>"
    } > "$dir/etc/cupsd.conf"
    cat > "$dir/etc/cups-files.conf" <<CONF
SystemGroup root
User lp
Group lp
ServerRoot $dir/etc
RequestRoot $dir/spool
TempDir $dir/spool/tmp
CacheDir $dir/cache
StateDir $dir/state
ServerBin /usr/lib/cups
DataDir /usr/share/cups
ErrorLog $dir/log/error_log
AccessLog $dir/log/access_log
PageLog $dir/log/page_log
SetEnv QUIREPAD_SHARED_DIR $shared
SetEnv QUIREPAD_CONSOLE_USER $console
CONF
    mkdir -p /run/cups
    # shellcheck disable=SC2086
    ${CUPSD_RUNNER:-} cupsd -f -c "$dir/etc/cupsd.conf" -s "$dir/etc/cups-files.conf" &
    CUPSD_PID=$!
    export CUPS_SERVER="$dir/cups.sock"
    for _ in $(seq 100); do lpstat -r 2>/dev/null | grep -q "is running" && return 0; sleep 0.1; done
    return 1
}
