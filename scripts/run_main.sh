#!/usr/bin/env bash
# The main job: builds the shared library and orvane-replay, then replays the bundled
# sample browsing session (or the files given) and prints the page report.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/install_deps.sh"
build="${ORVANE_BUILD_DIR:-$root/build/release}"
cmake -G Ninja -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target orvaneSDK orvane-replay >/dev/null
exec "$build/tools/replay/orvane-replay" "$@"
