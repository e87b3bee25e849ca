#!/usr/bin/env bash
# Compares what orvane-replay prints through two builds of the library (a
# reference and a change): every event's page and every log line, over the
# shared recordings, the bundled sample and generated traces, at each log
# level. Source line numbers are dropped from log lines; nothing else is.
#
#   tests/transcript/replay_identity.sh REF_BUILD_DIR NEW_BUILD_DIR
#
# Both builds need orvane-replay; the new one also orvane_bench_events
# (-DORVANE_BUILD_BENCH=ON) for the generated traces.
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
ref="${1:?usage: replay_identity.sh REF_BUILD_DIR NEW_BUILD_DIR}"
new="${2:?usage: replay_identity.sh REF_BUILD_DIR NEW_BUILD_DIR}"
shared="$root/../shared"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$new/tools/replay/orvane-replay" --sample >"$work/sample.jsonl"
"$new/bench/orvane_bench_events" jsonl 3000 sample >"$work/sample3k.jsonl"
"$new/bench/orvane_bench_events" jsonl 20000 browsing >"$work/browsing.jsonl"

# run BUILD ARGS... -> stdout and stderr, line numbers and version cut
run() {
  local build="$1"
  shift
  { "$build/tools/replay/orvane-replay" "$@" 2>&1 || true; } |
    sed -E 's/\.(cpp|hpp|h):[0-9]+/.\1/; /"generator"/d'
}

fails=0
check() {
  if ! cmp -s <(run "$ref" "$@") <(run "$new" "$@"); then
    echo "DIFFERS: $*"
    fails=$((fails + 1))
  fi
}

hars=("$shared"/har/*.har)
caps=("$shared"/pcap/*.pcap)
for level in trace info error; do
  check --json --events --log "$level" "${hars[@]}"
  check --json --events --log "$level" --keep-slash "${hars[@]}"
  check --json --events --log "$level" "${caps[@]}"
  check --json --events --log "$level" "$work/sample.jsonl" "$work/sample3k.jsonl"
  check --json --events --log "$level" "$work/browsing.jsonl"
done
check --json --events "${hars[@]}" "${caps[@]}" "$work/sample3k.jsonl"
check --json --events --log trace --timeout 7 "$work/browsing.jsonl"
if [ "$fails" -ne 0 ]; then
  echo "$fails replay(s) differ"
  exit 1
fi
echo "replay output identical"
