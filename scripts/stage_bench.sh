#!/usr/bin/env bash
# Smoke-runs every benchmark program once, briefly, from the native build
# (which builds bench/ when it exists). Nothing here judges a time: the stage
# fails only when a program fails.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${ORVANE_BUILD_ROOT:-$root/build}/native"
bin="$build/bench"

# Run on its own (ORVANE_STAGES=bench) the native build may be missing.
if [ ! -x "$bin/orvane_bench_webpage" ]; then
  cmake -G Ninja -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_BUILD_BENCH=ON >/dev/null
  cmake --build "$build" -j "$(nproc 2>/dev/null || echo 2)"
fi

failed=0
run() {
  echo "--- $*"
  if ! "$@" >"$build/bench_stage.log" 2>&1; then
    cat "$build/bench_stage.log"
    echo "FAILED: $*"
    failed=1
  else
    tail -n 25 "$build/bench_stage.log"
  fi
}

for b in orvane_bench_webpage orvane_bench_webpage_nolog orvane_bench_ott; do
  run "$bin/$b" --benchmark_min_time=0.01 --benchmark_color=false
done
for mode in floor typical typical_log0 worst rss; do
  run "$bin/orvane_bench_events" "$mode" 2000
done
run "$bin/orvane_bench_events_nolog" typical 2000
run "$bin/orvane_bench_events_shared" typical 2000
run "$bin/orvane_bench_events" typical 2000 browsing
echo "--- orvane_bench_events jsonl 1000"
"$bin/orvane_bench_events" jsonl 1000 >/dev/null || { echo "FAILED: jsonl"; failed=1; }

[ "$failed" -eq 0 ] && echo "benchmarks ran" || echo "a benchmark program failed"
exit "$failed"
