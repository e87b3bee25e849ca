#!/usr/bin/env bash
# CI stage: builds the test suite under ThreadSanitizer and runs the thread
# tests (sixteen threads feeding their contexts at once) and the replay
# tool's parallel runs (--jobs, mixes, tuning). Any report fails it.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="${ORVANE_BUILD_ROOT:-$root/build}/tsan"

cmake -G Ninja -S "$root" -B "$out" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANE_SANITIZE=thread >/dev/null
cmake --build "$out" --target orvane_tests orvane-replay orvane_replay_tests
# Recent kernels randomise mmap more than this ThreadSanitizer expects;
# running without address randomisation avoids its "unexpected memory mapping".
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  setarch "$(uname -m)" -R ctest --test-dir "$out" -R 'Thread|Parallel|Mix|Tune' --output-on-failure --no-tests=error
