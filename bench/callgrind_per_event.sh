#!/usr/bin/env bash
# Instructions per event, counted by callgrind over a fixed number of events
# after a warm-up: only measure_events() of orvane_bench_events is counted,
# so set-up, warm-up and the stream's repetition are left out.
#
#   bench/callgrind_per_event.sh [BUILD_DIR] [EVENTS]
#
# BUILD_DIR is a build with -DORVANE_BUILD_BENCH=ON (default build/native);
# EVENTS defaults to 30000 (worst case: a tenth of that).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build/native}"
events="${2:-30000}"
bin="$build/bench"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

command -v valgrind >/dev/null || { echo "valgrind is not installed" >&2; exit 1; }
for b in orvane_bench_events orvane_bench_events_nolog orvane_bench_events_shared; do
  [ -x "$bin/$b" ] || { echo "missing $bin/$b: build with -DORVANE_BUILD_BENCH=ON" >&2; exit 1; }
done

# count BINARY MODE N STREAM -> instructions per event
count() {
  local out="$work/cg.$RANDOM"
  valgrind --tool=callgrind --toggle-collect=measure_events --callgrind-out-file="$out" \
    "$bin/$1" "$2" "$3" "$4" >/dev/null 2>"$work/log" || { cat "$work/log" >&2; exit 1; }
  awk -v n="$3" '/^summary:/ { printf "%.0f", $2 / n }' "$out"
}

printf '%-40s %12s %8s\n' "case" "Ir/event" "x floor"
for stream in sample browsing; do
  floor=$(count orvane_bench_events floor "$events" "$stream")
  printf '%-40s %12s %8s\n' "floor/$stream" "$floor" "1.00"
  [ "$stream" = sample ] && sample_floor=$floor
  for c in "typical:orvane_bench_events:typical/$stream/log_level_3_off" \
           "typical_log0:orvane_bench_events:typical/$stream/log_level_0_noop_callback" \
           "typical:orvane_bench_events_nolog:typical/$stream/log_compiled_out"; do
    IFS=: read -r mode binary name <<<"$c"
    ir=$(count "$binary" "$mode" "$events" "$stream")
    printf '%-40s %12s %8.2f\n' "$name" "$ir" "$(awk -v a="$ir" -v b="$floor" 'BEGIN { print a / b }')"
  done
done
ir=$(count orvane_bench_events worst $((events / 10)) sample)
printf '%-40s %12s %8.2f\n' "worst/30_pages_300_strings" "$ir" \
  "$(awk -v a="$ir" -v b="$sample_floor" 'BEGIN { print a / b }')"
# The same through liborvaneSDK.so: the daemon's calls go through the PLT.
for stream in sample browsing; do
  printf '%-40s %12s\n' "shared_library/typical/$stream" "$(count orvane_bench_events_shared typical "$events" "$stream")"
done
printf '%-40s %12s\n' "shared_library/worst" "$(count orvane_bench_events_shared worst $((events / 10)) sample)"
