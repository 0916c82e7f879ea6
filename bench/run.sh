#!/usr/bin/env bash
# Runs bench_read, python3-xlrd and (when installed) LibreOffice on the same
# workbooks in the same run and prints their figures side by side, with our
# figure over theirs.  LibreOffice converts each workbook to CSV headless;
# it has only a total time and a peak memory.
#   bench/run.sh [BUILD_DIR] [WORKBOOK...]
# Default workbooks: the .xls files of ../shared/bench.  Needs python3-xlrd;
# LibreOffice is Debian's libreoffice-calc-nogui.  Each reader runs REPEAT
# times (default 3) and its fastest run counts, so that a busy moment of a
# shared machine weighs on no reader's figure.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
shift || true
files=("$@")
if [ ${#files[@]} -eq 0 ]; then files=("$root"/../shared/bench/*.xls); fi
bench="$build/bench/bench_read"
[ -x "$bench" ] || { echo "no $bench: build first" >&2; exit 1; }
/usr/bin/python3 -c "import xlrd" 2>/dev/null || { echo "python3-xlrd is needed" >&2; exit 1; }
office=$(command -v soffice || true)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Figures as "name value" lines, plus total_s = open_s + read_s.
with_total() {
  awk '{ print } $1 == "open_s" { t += $2 } $1 == "read_s" { t += $2 }
       END { printf "total_s %.3f\n", t }'
}

# LibreOffice's figures in the same form; a first run outside the timing
# makes its profile, so that every timed run starts alike.
libreoffice_figures() {
  local file=$1
  /usr/bin/time -f "%e %M" -o "$scratch/time" "$office" \
    -env:UserInstallation="file://$scratch/profile" --headless --convert-to csv \
    --outdir "$scratch/out" "$file" > /dev/null 2>&1
  read -r seconds peak < "$scratch/time"
  printf 'open_s -\nread_s -\npeak_rss_kb %s\ncells -\nbytes_per_cell -\ntotal_s %s\n' \
    "$peak" "$seconds"
}

# The run with the smallest total_s of REPEAT runs of a command; a run
# that fails (a workbook that can't be opened) doesn't count, and the
# failures are told on standard error.
fastest() {
  local best="" time failed=0
  for _ in $(seq "${REPEAT:-3}"); do
    local run
    if ! run=$("$@"); then failed=$((failed + 1)); continue; fi
    time=$(echo "$run" | awk '$1 == "total_s" { print $2 }')
    if [ -z "$best" ] || awk -v a="$time" -v b="$(echo "$best" | awk '$1 == "total_s" { print $2 }')" \
        'BEGIN { exit !(a < b) }'; then best=$run; fi
  done
  if [ "$failed" -gt 0 ]; then echo "${1%_figures}: $failed of ${REPEAT:-3} runs failed" >&2; fi
  [ -n "$best" ] && echo "$best"
}
ours_figures() { "$bench" "$1" 2>/dev/null | with_total; }
xlrd_figures() { /usr/bin/python3 "$root/bench/xlrd_read.py" "$1" | with_total; }

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b + 0 != 0 && a != "-") printf "%.3f", a / b; else printf "-" }'; }

if [ -n "$office" ]; then libreoffice_figures "${files[0]}" > /dev/null; fi
for file in "${files[@]}"; do
  if ! ours=$(fastest ours_figures "$file") || ! xlrd=$(fastest xlrd_figures "$file"); then
    echo "== $(basename "$file"): no run succeeded"
    continue
  fi
  if [ -z "$office" ] || ! lo=$(fastest libreoffice_figures "$file"); then
    lo=$(echo "$ours" | awk '{ print $1, "-" }')
  fi
  echo "== $(basename "$file")"
  printf '%-16s %10s %10s %8s %12s %8s\n' figure tabulon xlrd ratio libreoffice ratio
  paste -d' ' <(echo "$ours") <(echo "$xlrd") <(echo "$lo") |
    while read -r name a _ b _ c; do
      printf '%-16s %10s %10s %8s %12s %8s\n' "$name" "$a" "$b" "$(ratio "$a" "$b")" "$c" "$(ratio "$a" "$c")"
    done
done
