#!/usr/bin/env bash
# Compares `kofd dump --section .symtab` on a KELF object of N symbols with `readelf -sW` on a
# standard ELF32 object holding the same symbols: wall time (median of RUNS) and peak memory
# (maximum resident set size). Both write to /dev/null.
#
# Usage: bench/dump_symbols.sh [N] [RUNS]     (defaults: 1000000 symbols, 5 runs)
set -euo pipefail
cd "$(dirname "$0")/.."
symbols=${1:-1000000}
runs=${2:-5}

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_make_symbol_objects >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
build/default/bench/kofd_make_symbol_objects "$symbols" "$work/symbols.o" "$work/symbols32.o"

# One line per run: elapsed seconds and maximum resident set size in KiB.
measure() {
  for _ in $(seq "$runs"); do
    /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null
    cat "$work/time"
  done
}
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# The two commands take turns, so that a change in the machine's load touches both alike.
: >"$work/kofd"
: >"$work/readelf"
for _ in $(seq "$runs"); do
  runs=1 measure build/default/cli/kofd dump "$work/symbols.o" --section .symtab >>"$work/kofd"
  runs=1 measure readelf -sW "$work/symbols32.o" >>"$work/readelf"
done

report() {
  local name=$1 file=$2
  printf '%-8s wall %ss (median of %s: %s)  peak RSS %s KiB (max)\n' "$name" \
    "$(cut -d' ' -f1 "$file" | median)" "$runs" "$(cut -d' ' -f1 "$file" | tr '\n' ' ' | sed 's/ $//')" \
    "$(cut -d' ' -f2 "$file" | sort -n | tail -1)"
}
echo "$symbols symbols, $(stat -c %s "$work/symbols.o") bytes (KELF), $(stat -c %s "$work/symbols32.o") bytes (ELF32)"
report kofd "$work/kofd"
report readelf "$work/readelf"
awk -v k="$(cut -d' ' -f1 "$work/kofd" | median)" -v r="$(cut -d' ' -f1 "$work/readelf" | median)" \
    -v km="$(cut -d' ' -f2 "$work/kofd" | sort -n | tail -1)" -v rm="$(cut -d' ' -f2 "$work/readelf" | sort -n | tail -1)" \
    'BEGIN { printf "ratios   wall %.2f (target <= 0.25)  memory %.2f (target <= 1.50)\n", k / r, km / rm }'
