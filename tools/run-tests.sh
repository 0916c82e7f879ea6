#!/usr/bin/env bash
# Runs the whole test suite three ways: a native build, a build under
# AddressSanitizer and UBSan, and the 32-bit ARM soft-float cross build under
# qemu-arm.  Build trees go to $TABULON_TEST_DIR (default build-tests/).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${TABULON_TEST_DIR:-$root/build-tests}
jobs=$(nproc)

"$root/tools/install-deps.sh"

suite() {
  local name=$1; shift
  echo "== $name"
  cmake -S "$root" -B "$out/$name" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTABULON_GRADIENT_PATH="$out/$name/share/gradient.PNG" "$@" > "$out/$name.configure.log"
  cmake --build "$out/$name" -j "$jobs"
  ctest --test-dir "$out/$name" --output-on-failure -j "$jobs"
}

mkdir -p "$out"
suite native
suite sanitize -DTABULON_SANITIZE=ON
"$root/tools/arm-sysroot.sh" "$out/arm-sysroot"
suite arm -DCMAKE_TOOLCHAIN_FILE="$root/cmake/arm-linux-gnueabi.cmake" \
          -DTABULON_ARM_SYSROOT="$out/arm-sysroot"
echo "== all suites passed"
