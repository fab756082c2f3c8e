#!/usr/bin/env bash
# A long libFuzzer run of the HTTP request parser (ctest runs it for 30 s).
#   bash bench/fuzz_long.sh [SECONDS] [OUTDIR]
# Defaults: 600 seconds into /tmp/quirepad-fuzz-request-parser, whose corpus
# grows from run to run. An input that breaks the parser's promises is left
# as OUTDIR/artifacts/crash-*; replay it with
#   OUTDIR/fuzz_request_parser OUTDIR/artifacts/crash-...
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
exec bash "$here/../tests/fuzz/run_fuzz.sh" "${1:-600}" "${2:-/tmp/quirepad-fuzz-request-parser}"
