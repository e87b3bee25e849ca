#!/usr/bin/env bash
# CI stage: a shortened soak (ORVANE_SOAK_EVENTS, default 200000 events) of a
# generated browsing stream through one thread in an optimised build; fails
# when a pool count drifts, a page goes unreported or the resident size grows.
# The full run is `orvane_soak 10000000` (see the README).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="${ORVANE_BUILD_ROOT:-$root/build}/soak"

cmake -G Ninja -S "$root" -B "$out" -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_TOOLS=OFF -DORVANE_BUILD_TESTS=OFF -DORVANE_BUILD_BENCH=ON >/dev/null
cmake --build "$out" --target orvane_soak
"$out/bench/orvane_soak" "${ORVANE_SOAK_EVENTS:-200000}" | tail -n 4
