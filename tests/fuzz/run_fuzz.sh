#!/usr/bin/env bash
# Builds the HTTP request parser's libFuzzer target with clang (ASan and
# UBSan, any UBSan report fatal) and runs it.
#   run_fuzz.sh SECONDS OUTDIR
# OUTDIR keeps the binary, the growing corpus and any crash-* input. The
# seed corpus is written there each run. Exit 77 (skipped) when clang or its
# fuzzer runtime is missing, 1 when the build fails or an input breaks an
# invariant.
set -uo pipefail

seconds="${1:?usage: run_fuzz.sh SECONDS OUTDIR}"
out="${2:?usage: run_fuzz.sh SECONDS OUTDIR}"
src="$(cd "$(dirname "$0")/../.." && pwd)"

CXX="${CXX_FUZZ:-}"
if [ -z "$CXX" ]; then
    for c in clang++ clang++-16 clang++-15 clang++-14; do
        command -v "$c" >/dev/null && { CXX="$c"; break; }
    done
fi
[ -n "$CXX" ] || { echo "SKIP: clang++ is not installed (scripts/install-deps.sh installs clang)"; exit 77; }
command -v pkg-config >/dev/null && pkg-config --exists Qt6Core \
    || { echo "SKIP: Qt6Core is not known to pkg-config (qt6-base-dev)"; exit 77; }
mkdir -p "$out" || exit 1
# The fuzzer runtime comes apart from the compiler (libclang-rt-*-dev): link
# an empty target to see whether it is there.
printf 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }\n' > "$out/probe.cpp"
if ! "$CXX" -fsanitize=fuzzer,address,undefined "$out/probe.cpp" -o "$out/probe" 2>"$out/probe.log"; then
    echo "SKIP: $CXX cannot link a libFuzzer target (libclang-rt-14-dev provides the runtime):"
    tail -3 "$out/probe.log"
    exit 77
fi
rm -f "$out/probe" "$out/probe.cpp" "$out/probe.log"

mkdir -p "$out/corpus" "$out/seeds" "$out/artifacts" || exit 1
bin="$out/fuzz_request_parser"

# The parser and what it takes from foundation (string helpers, their HTML
# tables, digests, the log category).
sources=(
    "$src/tests/fuzz/fuzz_request_parser.cpp"
    "$src/network/HTTPRequestParser.cpp"
    "$src/foundation/string_ext.cpp"
    "$src/foundation/html_entities.cpp"
    "$src/foundation/data_ext.cpp"
    "$src/foundation/Log.cpp"
)
newest=0
for f in "${sources[@]}" "$src/network/HTTPRequestParser.h" "$src/network/HTTPLimits.h" "$0"; do
    t="$(stat -c %Y "$f")"; [ "$t" -gt "$newest" ] && newest="$t"
done
if [ ! -x "$bin" ] || [ "$(stat -c %Y "$bin")" -lt "$newest" ]; then
    echo "fuzz: building $bin with $CXX"
    # shellcheck disable=SC2046
    "$CXX" -std=c++20 -g -O1 -fPIC -fno-omit-frame-pointer \
        -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
        -I"$src" $(pkg-config --cflags Qt6Core) "${sources[@]}" \
        $(pkg-config --libs Qt6Core) -lz -o "$bin.tmp" || { echo "fuzz: build failed"; exit 1; }
    mv "$bin.tmp" "$bin"
fi

# Seeds: byte 0 picks the limits (0x80 and up: the server's own, else small
# ones), byte 1 the chunk boundaries; the rest is what a client sends.
seed() { printf "$2" > "$out/seeds/$1"; }
seed get          '\x80\x01GET /feed.xml HTTP/1.1\r\nHost: box:8080\r\nUser-Agent: t\r\n\r\n'
seed file         '\x80\x02GET /file/My%%20Page.pdf HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n'
seed bare-lf      '\x80\x03GET /index.html HTTP/1.0\nHost: h\n\n'
seed post-body    '\x80\x04POST /p HTTP/1.1\r\nContent-Length: 10\r\n\r\nabcdefghijEXTRA'
seed post-short   '\x80\x05POST /p HTTP/1.1\r\nContent-Length: 10\r\n\r\nabc'
seed options      '\x80\x06OPTIONS * HTTP/1.1\r\nHost: h\r\n\r\n'
seed short-line   '\x80\x07GET /\r\n\r\n'
seed bad-method   '\x80\x08BREW /pot HTCPCP/1.0\r\nX: y: z\r\n\r\n'
seed huge-length  '\x80\x09POST / HTTP/1.1\r\nContent-Length: 99999999999999999999999\r\n\r\n'
seed small-head   '\x03\x0aGET / HTTP/1.1\r\nHost: a-rather-long-host-name.example\r\nX-Pad: aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\r\n\r\n'
seed small-body   '\x31\x0bPOST /u HTTP/1.1\r\nContent-Length: 5\r\n\r\n0123456789'
seed mixed-ends   '\x80\x0cGET / HTTP/1.1\r\n\r\r\nContent-Length: -4\n\r\n'
seed binary       '\x80\x0d\x00\xff\xfe\r\n\x16\x03\x01\x02\x00\x01\r\n\r\n'

dict="$out/request.dict"
cat > "$dict" <<'EOF'
"GET "
"POST "
"OPTIONS "
" HTTP/1.1"
"\x0d\x0a"
"\x0a"
"\x0d\x0a\x0d\x0a"
": "
"Host: "
"Content-Length: "
"/file/"
".html"
"%2e%2e%2f"
EOF

echo "fuzz: running for ${seconds}s (corpus $out/corpus)"
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=1:abort_on_error=0"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}print_stacktrace=1"
"$bin" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
    -dict="$dict" -artifact_prefix="$out/artifacts/" "$out/corpus" "$out/seeds" 2>"$out/fuzz.log"
rc=$?
grep -E "^#[0-9]+ *DONE|^stat::number_of_executed_units|^stat::peak_rss_mb|cov: " "$out/fuzz.log" | tail -3
if [ "$rc" -ne 0 ]; then
    echo "fuzz: FAIL (exit $rc); the log's end:"
    tail -40 "$out/fuzz.log"
    ls "$out/artifacts"
    exit 1
fi
echo "fuzz: no invariant broken in ${seconds}s; corpus holds $(ls "$out/corpus" | wc -l) inputs"
