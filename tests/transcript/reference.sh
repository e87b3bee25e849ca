#!/usr/bin/env bash
# Builds the stress transcript against the library sources of another commit
# (the reference) and prints that code's digests, or with a seed its full
# transcript, for recording tests/transcript/golden.txt or diffing a change:
#
#   tests/transcript/reference.sh COMMIT                > golden.txt
#   tests/transcript/reference.sh COMMIT --dump SEED    > reference.txt
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
commit="${1:?usage: reference.sh COMMIT [--dump SEED]}"
shift
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
git -C "$root" archive "$commit" common webpage sessionspeed | tar -x -C "$work"
"${CXX:-g++}" -std=c++17 -O1 -fno-exceptions -fno-rtti -I"$work/common" -I"$work/webpage" -I"$work/sessionspeed" \
  -I"$root/tests" -I"$root/fuzz" "$work"/common/*.cpp "$work"/webpage/*.cpp "$work"/sessionspeed/*.cpp \
  "$root/tests/transcript/stress_transcript.cpp" -o "$work/reference_transcript"
"$work/reference_transcript" "${@:---record}"
