#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time from its committed
# seed corpus, with the format's dictionary and inputs long enough to hold the size-driven
# shapes of the seeds (bench/hostile_inputs.cpp "seeds" writes them).
# Usage: scripts/fuzz.sh [SECONDS_PER_TARGET] (default 60).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
# Four times the largest seed: room to grow any of them.
max_len=65536

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

for target in build/fuzz/fuzz/fuzz_*; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  seeds=fuzz/corpus/${name#fuzz_}
  work=build/fuzz/corpus/${name#fuzz_}
  mkdir -p "$work"
  # A target may have a dictionary of its own (fuzz/build.dict: the JSON documents).
  dict=fuzz/${name#fuzz_}.dict
  [ -f "$dict" ] || dict=fuzz/kelf.dict
  echo "fuzz: $name for ${seconds}s"
  # New inputs go to the work corpus; the committed seeds are only read.
  "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -max_len="$max_len" -dict="$dict" \
    -artifact_prefix="build/fuzz/$name-" "$work" "$seeds" 2>&1 | tail -n 12
done
