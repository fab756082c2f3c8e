#!/usr/bin/env bash
# Configures and builds one build tree.
#   scripts/build.sh [release|sanitize]
#   release  -> build/       (RelWithDebInfo; what run-main.sh runs)
#   sanitize -> build-asan/  (Debug with AddressSanitizer + UBSan; what the tests run)
set -euo pipefail
cd "$(dirname "$0")/.."

kind="${1:-release}"
case "$kind" in
    release)  dir=build;      args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
    sanitize) dir=build-asan; args=(-DCMAKE_BUILD_TYPE=Debug -DQUIREPAD_SANITIZE=ON) ;;
    *) echo "usage: $0 [release|sanitize]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${args[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)"
echo "built $dir"
