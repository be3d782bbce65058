#!/usr/bin/env bash
# JSON listing speed: `kofd dump --json --section .symtab` on a KELF object of N symbols against
# `readelf -sW` on the standard ELF32 object holding the same symbols
# (bench/make_symbol_objects.cpp writes both), with hyperfine; both write to /dev/null.
#
# Usage: bench/json_dump_bench.sh [N] [RUNS]     (defaults: 1000000 symbols, 10 runs)
set -euo pipefail
cd "$(dirname "$0")/.."
symbols=${1:-1000000}
runs=${2:-10}

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_make_symbol_objects >/dev/null
kofd=build/default/cli/kofd
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build/default/bench/kofd_make_symbol_objects "$symbols" "$work/symbols.o" "$work/symbols32.o"
"$kofd" dump --json --section .symtab "$work/symbols.o" | python3 -c 'import json, sys; print(len(json.load(sys.stdin)["object"]["symbols"]), "symbols in the document")'
hyperfine -N --warmup 2 --runs "$runs" \
  "$kofd dump --json --section .symtab $work/symbols.o" \
  "readelf -sW $work/symbols32.o"
