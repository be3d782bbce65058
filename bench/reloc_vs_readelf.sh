#!/usr/bin/env bash
# kofd reloc against readelf -rW on the same relocations: a KELF object whose relocation
# section of type 22 has N records (each SYM s, NUM n, +) and a standard ELF32 object with the
# same N relocations (i386, SHT_RELA), both written by bench/reloc_inputs.cpp.
# Usage: bench/reloc_vs_readelf.sh [N] (default 100000). Needs hyperfine.
set -euo pipefail
cd "$(dirname "$0")/.."
count=${1:-100000}

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_bench_reloc_inputs >/dev/null
mkdir -p build/bench
build/default/bench/kofd_bench_reloc_inputs "$count" build/bench/reloc.kelf build/bench/reloc.elf

hyperfine -N --warmup 3 --runs 20 \
  "build/default/cli/kofd reloc build/bench/reloc.kelf" \
  "readelf -rW build/bench/reloc.elf"
