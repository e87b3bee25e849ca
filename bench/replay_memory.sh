#!/usr/bin/env bash
# Peak resident size against trace length: orvane-replay over generated
# traces of SMALL and LARGE events, and the library alone (orvane_bench_events
# rss) over the same numbers of events, which also checks that every pool
# node comes back once all pages are closed.
#
#   bench/replay_memory.sh [BUILD_DIR] [SMALL] [LARGE] [STREAM]
#
# BUILD_DIR is a build with -DORVANE_BUILD_BENCH=ON and the tools (default
# build/native); SMALL and LARGE default to 100000 and 1000000 events; STREAM
# is "sample" (the replay tool's bundled session, repeated; default) or
# "browsing" (the generated session).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build/native}"
small="${2:-100000}"
large="${3:-1000000}"
stream="${4:-sample}"
events_bin="$build/bench/orvane_bench_events"
replay_bin="$build/tools/replay/orvane-replay"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

[ -x "$events_bin" ] || { echo "missing $events_bin: build with -DORVANE_BUILD_BENCH=ON" >&2; exit 1; }
# peak KiB and elapsed seconds of a command; its output goes to $work/out.
# GNU time when installed, else Python's rusage (which also counts the
# interpreter the child was forked from: about 10 MiB more).
measure() {
  if [ -x /usr/bin/time ]; then
    /usr/bin/time -f '%M %e' -o "$work/time" "$@" >"$work/out" 2>"$work/err" || { cat "$work/err" >&2; return 1; }
  else
    python3 - "$work/time" "$@" >"$work/out" 2>"$work/err" <<'PY' || { cat "$work/err" >&2; return 1; }
import resource, subprocess, sys, time
start = time.monotonic()
rc = subprocess.call(sys.argv[2:])
peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
open(sys.argv[1], "w").write("%d %.2f\n" % (peak, time.monotonic() - start))
sys.exit(rc)
PY
  fi
  cat "$work/time"
}

status=0
printf '%-12s %10s %16s %10s %16s %s\n' events "trace MiB" "replay peak KiB" "replay s" "library peak KiB" "pool nodes lost"
for n in "$small" "$large"; do
  trace="$work/trace-$n.jsonl"
  "$events_bin" jsonl "$n" "$stream" >"$trace"
  mib=$(awk -v b="$(stat -c %s "$trace")" 'BEGIN { printf "%.1f", b / 1048576 }')
  replay="-"
  if [ -x "$replay_bin" ]; then
    read -r kib secs < <(measure "$replay_bin" "$trace")
    replay="$kib $secs"
  fi
  read -r lib _ < <(measure "$events_bin" rss "$n" "$stream") || status=1
  lost=$(grep -o 'lost: .*' "$work/out" | cut -d' ' -f2-)
  rm -f "$trace"
  read -r rkib rsecs <<<"$replay"
  printf '%-12s %10s %16s %10s %16s %s\n' "$n" "$mib" "$rkib" "${rsecs:--}" "$lib" "$lost"
done
exit $status
