#!/usr/bin/env bash
# Compares the header listings of kofd with readelf's on a KELF object of N symbols (about 39 MB
# by default) and its standard ELF32 twin: `kofd dump --section-headers` with `readelf -SW`,
# `kofd dump --file-header` with `readelf -hW`, `kofd info` with `readelf -hSW`. A listing takes a
# millisecond or two, so each measurement times a batch of BATCH runs; the figure is the median
# over RUNS batches, the two commands of a pair taking turns. Everything writes to /dev/null.
#
# Usage: bench/headers_vs_readelf.sh [N] [RUNS] [BATCH]   (defaults: 1060000 symbols, 7, 20)
# PRESET=default uses build/default instead of build/ci; KOFD=PATH times another build of the tool.
set -euo pipefail
cd "$(dirname "$0")/.."
symbols=${1:-1060000}
runs=${2:-7}
batch=${3:-20}
preset=${PRESET:-ci}

cmake --preset "$preset" >/dev/null
cmake --build "build/$preset" -j2 --target kofd_cli kofd_make_symbol_objects >/dev/null
kofd=${KOFD:-build/$preset/cli/kofd}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"build/$preset/bench/kofd_make_symbol_objects" "$symbols" "$work/symbols.o" "$work/symbols32.o"

# Milliseconds per run of one batch of the command.
batch_ms() {
  local start end
  start=$(date +%s%N)
  for _ in $(seq "$batch"); do "$@" >/dev/null; done
  end=$(date +%s%N)
  awk -v s="$start" -v e="$end" -v n="$batch" 'BEGIN { printf "%.3f\n", (e - s) / 1e6 / n }'
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

echo "$symbols symbols, $(stat -c %s "$work/symbols.o") bytes (KELF), $(stat -c %s "$work/symbols32.o") bytes (ELF32)"
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%-42s %-18s %10s %12s %7s\n' "kofd" "readelf" "kofd ms" "readelf ms" "ratio"
# compare KOFD_ARGUMENTS READELF_ARGUMENTS (split on blanks; the work directory has none).
compare() {
  : >"$work/a"
  : >"$work/b"
  for _ in $(seq "$runs"); do
    # shellcheck disable=SC2086
    batch_ms "$kofd" $1 >>"$work/a"
    # shellcheck disable=SC2086
    batch_ms readelf $2 >>"$work/b"
  done
  local a b
  a=$(median <"$work/a")
  b=$(median <"$work/b")
  printf '%-42s %-18s %10s %12s %7s\n' "${1/$work\//}" "${2/$work\//}" "$a" "$b" "$(awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f", a / b }')"
}
compare "dump $work/symbols.o --section-headers" "-SW $work/symbols32.o"
compare "dump $work/symbols.o --file-header" "-hW $work/symbols32.o"
compare "info $work/symbols.o" "-hSW $work/symbols32.o"
compare "dump --json $work/symbols.o --section-headers" "-SW $work/symbols32.o"
# What starting each program costs, reading no file: the floor under every figure above.
compare "--version" "--version"
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
