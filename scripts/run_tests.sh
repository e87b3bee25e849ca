#!/usr/bin/env bash
# The test command: installs what it needs, then builds and runs the suite
#   1. natively, warnings as errors (plus the C consumer and the export check);
#   2. under AddressSanitizer and UndefinedBehaviorSanitizer;
#   3. cross-compiled for AArch64 and run under qemu;
# and, where present, smoke-runs the benchmarks, the fuzzers, the thread test
# under ThreadSanitizer and a shortened soak.
# ORVANE_STAGES selects stages (default: all), e.g. ORVANE_STAGES="native asan".
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="${ORVANE_BUILD_ROOT:-$root/build}"
stages="${ORVANE_STAGES:-native asan aarch64 bench fuzz tsan soak}"
jobs="$(nproc 2>/dev/null || echo 2)"

"$root/scripts/install_deps.sh"

has() { [[ " $stages " == *" $1 "* ]]; }
banner() { printf '\n===== %s =====\n' "$*"; }
configure_build() {  # dir, extra cmake args...
  local dir="$1"; shift
  cmake -G Ninja -S "$root" -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}
run_ctest() { ctest --test-dir "$1" --output-on-failure -j "$jobs" "${@:2}"; }

start=$SECONDS
if has native; then
  banner "native (RelWithDebInfo, -Werror)"
  configure_build "$out/native" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DORVANE_BUILD_BENCH="$( [ -f "$root/bench/CMakeLists.txt" ] && echo ON || echo OFF )"
  run_ctest "$out/native"
fi

if has asan; then
  banner "AddressSanitizer + UndefinedBehaviorSanitizer"
  configure_build "$out/asan" -DCMAKE_BUILD_TYPE=Debug -DORVANE_SANITIZE=address,undefined
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_ctest "$out/asan"
fi

if has aarch64; then
  banner "AArch64 cross build under qemu-aarch64"
  configure_build "$out/aarch64" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" \
    -DORVANE_GTEST_FROM_SOURCE=ON -DORVANE_BUILD_TOOLS=OFF
  file "$out/aarch64/liborvaneSDK.so.1.0.0" 2>/dev/null || true
  QEMU_LD_PREFIX=/usr/aarch64-linux-gnu run_ctest "$out/aarch64"
fi

for extra in bench fuzz tsan soak; do
  if has "$extra" && [ -x "$root/scripts/stage_$extra.sh" ]; then
    banner "$extra"
    ORVANE_BUILD_ROOT="$out" "$root/scripts/stage_$extra.sh"
  fi
done

banner "all stages passed in $((SECONDS - start)) s"
