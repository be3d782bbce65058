#!/usr/bin/env bash
# Save time: `kofd edit in.o -o out.o` on a KELF object of N symbols against `objcopy` on the
# standard ELF32 object with the same symbols (bench/make_symbol_objects.cpp writes both), then
# kofd's save of 10,000 / 100,000 / 1,000,000 relocations (bench/reloc_inputs.cpp), with hyperfine.
#
# Usage: bench/save_bench.sh [N] [RUNS]     (defaults: 1000000 symbols, 10 runs)
set -euo pipefail
cd "$(dirname "$0")/.."
symbols=${1:-1000000}
runs=${2:-10}

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_make_symbol_objects kofd_bench_reloc_inputs >/dev/null
kofd=build/default/cli/kofd
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build/default/bench/kofd_make_symbol_objects "$symbols" "$work/in.o" "$work/in32.o"
hyperfine -N --warmup 2 --runs "$runs" \
  "$kofd edit $work/in.o -o $work/out.o" \
  "objcopy $work/in32.o $work/out32.o"

for n in 10000 100000 1000000; do
  build/default/bench/kofd_bench_reloc_inputs "$n" "$work/reloc$n.o" "$work/reloc$n.elf"
done
hyperfine -N --warmup 2 --runs "$runs" \
  "$kofd edit $work/reloc10000.o -o $work/out.o" \
  "$kofd edit $work/reloc100000.o -o $work/out.o" \
  "$kofd edit $work/reloc1000000.o -o $work/out.o"
