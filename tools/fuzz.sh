#!/usr/bin/env bash
# Builds the fuzz targets with clang's libFuzzer, ASan and UBSan, and runs one
# for the given seconds, seeded from the corpus's workbooks.  Findings land in
# build-fuzz/findings/.
#   tools/fuzz.sh [TARGET] [SECONDS]      (default fuzz_xls_open, 1200)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
target=${1:-fuzz_xls_open}
seconds=${2:-1200}
out=$root/build-fuzz
CC=clang CXX=clang++ cmake -S "$root" -B "$out" -DTABULON_FUZZ=ON -DTABULON_WITH_CAIRO=OFF \
    -DTABULON_BUILD_TESTS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo > "$out.configure.log"
cmake --build "$out" --target "$target" -j "$(nproc)"
mkdir -p "$out/corpus-$target" "$out/findings"
seeds=$root/../shared/corpus/xls
[ -d "$seeds" ] && cp -n "$seeds"/* "$out/corpus-$target/" 2>/dev/null || true
"$out/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$out/findings/" -print_final_stats=1 "$out/corpus-$target"
