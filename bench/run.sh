#!/usr/bin/env bash
# Runs bench_read and python3-xlrd on the same workbooks in the same run and
# prints their figures side by side, with our figure over theirs.
#   bench/run.sh [BUILD_DIR] [WORKBOOK...]
# Default workbooks: the .xls files of ../shared/bench.  Needs python3-xlrd.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
shift || true
files=("$@")
if [ ${#files[@]} -eq 0 ]; then files=("$root"/../shared/bench/*.xls); fi
bench="$build/bench/bench_read"
[ -x "$bench" ] || { echo "no $bench: build first" >&2; exit 1; }
/usr/bin/python3 -c "import xlrd" 2>/dev/null || { echo "python3-xlrd is needed" >&2; exit 1; }

for file in "${files[@]}"; do
  ours=$("$bench" "$file" 2>/dev/null)
  theirs=$(/usr/bin/python3 "$root/bench/xlrd_read.py" "$file")
  echo "== $(basename "$file")"
  printf '%-16s %12s %12s %8s\n' figure tabulon xlrd ratio
  paste <(echo "$ours") <(echo "$theirs") |
    awk '{ r = ($4 + 0 != 0) ? sprintf("%.2f", $2 / $4) : "-";
           printf "%-16s %12s %12s %8s\n", $1, $2, $4, r }'
done
