#!/usr/bin/env bash
# kofd reloc against readelf -rW on a real toolchain's object: an ELF64 relocatable object with
# many relocation sections and long C++ names, converted into a KELF object by
# bench/make_corpus.cpp (each RELA section becomes a table of type 22, SYM s, NUM addend, +).
# readelf reads the ELF64 original: what a user would otherwise run.
#
# Usage: bench/reloc_real_world.sh [ELF64_OBJECT] [RUNS]
#   Without an object, compiles GoogleTest's own unit test (gtest_unittest.cc, from the
#   googletest sources in /usr/src) with g++ -O0 -g -c: about 146,000 relocations in 3,870
#   sections over 17,000 symbols. Exits 77 (skipped) when neither is at hand. Needs hyperfine.
set -euo pipefail
cd "$(dirname "$0")/.."
object=${1:-}
runs=${2:-20}
work=build/bench/real
mkdir -p "$work"

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_make_corpus >/dev/null

if [ -z "$object" ]; then
  gtest=/usr/src/googletest/googletest
  [ -r "$gtest/test/gtest_unittest.cc" ] || { echo "no $gtest/test/gtest_unittest.cc: skipped"; exit 77; }
  object=$work/gtest_unittest.o
  if [ ! -s "$object" ]; then
    echo "compiling gtest_unittest.cc (g++ -O0 -g -c)"
    g++ -O0 -g -c -I"$gtest" -I"$gtest/include" "$gtest/test/gtest_unittest.cc" -o "$object"
  fi
fi

relocations=$(readelf -rW "$object" | grep -c '^[0-9a-f]\{16\} ' || true)
sections=$(readelf -SW "$object" | grep -c ' RELA ' || true)
if [ "$relocations" -lt 100000 ]; then
  echo "$object has $relocations relocations; at least 100,000 are wanted"
  exit 1
fi
name=$(basename "$object" .o)
build/default/bench/kofd_make_corpus "$work" "$object" >/dev/null
converted=$work/$name.kelf
[ -s "$converted" ] || { echo "$object could not be converted"; exit 1; }

echo "$object: $relocations relocations in $sections RELA sections, $(stat -c %s "$object") bytes;" \
  "$converted: $(stat -c %s "$converted") bytes"
echo "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
hyperfine -N --warmup 3 --runs "$runs" \
  "build/default/cli/kofd reloc $converted" \
  "readelf -rW $object"
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"
