#!/usr/bin/env bash
# Runs a test binary on a virtual X server: run_under_xvfb.sh BINARY ARGS...
# Exits 77 (skipped) where no X server can be started.
set -u
if ! command -v xvfb-run >/dev/null 2>&1; then
    echo "SKIP: xvfb-run is not installed (scripts/install-deps.sh installs it)"
    exit 77
fi
export QT_QPA_PLATFORM=xcb
exec xvfb-run -a -s "-screen 0 1280x800x24 -nolisten tcp" "$@"
