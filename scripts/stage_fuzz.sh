#!/usr/bin/env bash
# CI stage: builds the libFuzzer targets with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer, then runs each for ORVANE_FUZZ_SECONDS (default
# 60) on a scratch copy of its seed corpus. A crash, a sanitizer report or a
# broken invariant fails the stage; the input that caused it is kept under
# "$ORVANE_BUILD_ROOT/fuzz/artifacts/" for the regression tests.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="${ORVANE_BUILD_ROOT:-$root/build}/fuzz"
seconds="${ORVANE_FUZZ_SECONDS:-60}"

CC=clang CXX=clang++ cmake -G Ninja -S "$root" -B "$out" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DORVANE_FUZZ=ON -DORVANE_SANITIZE=address,undefined \
  -DORVANE_BUILD_TESTS=OFF -DORVANE_BUILD_TOOLS=OFF >/dev/null
cmake --build "$out" --target webpage_fuzz ott_fuzz har_fuzz jsonl_fuzz capture_tcp_fuzz capture_http_fuzz

status=0
# fuzz TARGET MAX_LEN [libFuzzer options...]
fuzz() {
  local target="$1" max_len="$2"; shift 2
  local corpus="$out/corpus/$target" artifacts="$out/artifacts/$target" log="$out/${target}_fuzz.log"
  rm -rf "$corpus"
  mkdir -p "$corpus" "$artifacts"
  cp "$root/fuzz/corpus/$target/"* "$corpus/"
  echo "fuzzing $target for ${seconds}s"
  if ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
     "$out/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len="$max_len" -timeout=30 -rss_limit_mb=2048 \
       -print_final_stats=1 -artifact_prefix="$artifacts/" "$@" "$corpus" >"$log" 2>&1; then
    grep -E '^#[0-9]+[[:space:]]+DONE|^stat::number_of_executed_units|^stat::average_exec_per_sec' "$log" || tail -n 3 "$log"
  else
    echo "FINDING in ${target}_fuzz (input saved under $artifacts):"
    grep -v -E '^#[0-9]+[[:space:]]+(NEW|REDUCE|pulse|RELOAD)' "$log" | tail -n 80
    status=1
  fi
}

# The library: sequences of calls with invariants checked after each.
fuzz webpage 4096
fuzz ott 4096
# The replay tool's readers: whole small files, with the formats' tokens.
fuzz har 16384 -dict="$root/fuzz/readers.dict"
fuzz jsonl 16384 -dict="$root/fuzz/readers.dict"
# The capture reader: TCP reassembly and HTTP/1.x reading.
fuzz capture_tcp 4096
fuzz capture_http 4096
exit "$status"
