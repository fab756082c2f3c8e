#!/usr/bin/env bash
# Installs what is missing, builds with AddressSanitizer and UBSan, and runs
# every test suite through CTest. Tests start the services they need
# themselves (a private D-Bus, ...).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
scripts/build.sh sanitize
cd build-asan
ctest --output-on-failure -j "$(nproc)"
