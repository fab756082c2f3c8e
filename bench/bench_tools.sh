# Sourced by the benchmarks. bench_need TOOL:PACKAGE...
# Installs the Debian packages of the tools that are missing (as root; the
# test machines do not need them) without starting any service while apt
# runs, and exits 77 (skipped) when a tool stays missing.
bench_need() {
    local missing=() pair tool package
    for pair in "$@"; do
        tool=${pair%%:*} package=${pair#*:}
        command -v "$tool" >/dev/null || [ -x "/usr/sbin/$tool" ] || [[ " ${missing[*]} " == *" $package "* ]] \
            || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ] || ! command -v apt-get >/dev/null; then
        echo "SKIP: ${missing[*]} not installed (apt-get install ${missing[*]} as root)"; exit 77
    fi
    echo "bench: installing ${missing[*]}"
    local policy=/usr/sbin/policy-rc.d made_policy=no
    if [ ! -e "$policy" ]; then
        printf '#!/bin/sh\nexit 101\n' > "$policy" && chmod 755 "$policy" && made_policy=yes
    fi
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null 2>&1 \
        || { DEBIAN_FRONTEND=noninteractive apt-get update -q >/dev/null 2>&1
             DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null 2>&1; }
    [ "$made_policy" = yes ] && rm -f "$policy"
    for pair in "$@"; do
        tool=${pair%%:*}
        command -v "$tool" >/dev/null || [ -x "/usr/sbin/$tool" ] || { echo "SKIP: cannot install ${missing[*]} ($tool missing)"; exit 77; }
    done
}

# bench_check_build BUILD_DIR: the program must be there; figures from a
# build without optimisation are said to be unrepresentative.
bench_check_build() {
    [ -x "$1/bin/quirepad" ] || { echo "bench: no $1/bin/quirepad"; exit 1; }
    grep -q '^CMAKE_BUILD_TYPE:STRING=\(Release\|RelWithDebInfo\|MinSizeRel\)$' "$1/CMakeCache.txt" 2>/dev/null \
        || echo "bench: warning: $1 is not a release build; the figures will not be representative"
}
