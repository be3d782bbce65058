#!/usr/bin/env bash
# Times kofd ar against the standard tools on an archive of 2,000 members with 20,000 global
# symbols and its twin, a standard ar archive of ELF32 objects with the same code and symbols:
#   kofd ar list / find      against  ar t
#   kofd ar add / remove     against  llvm-ar r / llvm-ar d   (one member each)
# Usage: bench/archive_bench.sh [MEMBERS [SYMBOLS_PER_MEMBER]]   (default 2000 10)
set -euo pipefail
cd "$(dirname "$0")/.."
members=${1:-2000}
symbols=${2:-10}

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_bench_archive_inputs >/dev/null
kofd=$(realpath build/default/cli/kofd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kofd_archive_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/kelf" "$work/elf"

build/default/bench/kofd_bench_archive_inputs "$work" "$members" "$symbols"
objects=$(cd "$work/kelf" && ls m*.o)
# Both archives are made beside their objects, so that members are named by their file names.
(cd "$work/kelf" && "$kofd" ar ../lib.a create $objects)
(cd "$work/elf" && ar rc ../twin.a $objects)
last=$(printf 'mod%04u_function_%u' $((members - 1)) $((symbols - 1)))
middle=$(printf 'm%04u.o' $((members / 2)))
echo "kofd archive: $(stat -c %s "$work/lib.a") bytes, $("$kofd" ar "$work/lib.a" list | wc -l) members," \
     "$("$kofd" ar "$work/lib.a" symbols | wc -l) symbols; twin: $(stat -c %s "$work/twin.a") bytes," \
     "$(ar t "$work/twin.a" | wc -l) members"

bench() { hyperfine -N --warmup 5 --min-runs 40 --style basic --export-markdown "$work/$1.md" "${@:2}" | grep -v '^ *$'; cat "$work/$1.md"; }

cd "$work"
bench read "ar t twin.a" "$kofd ar lib.a list" "$kofd ar lib.a find $last"
cd "$work/kelf"
bench add --prepare "cp ../lib.a ../work.a" "$kofd ar ../work.a add extra.o"
bench remove --prepare "cp ../lib.a ../work.a" "$kofd ar ../work.a remove $middle"
cd "$work/elf"
bench llvm-add --prepare "cp ../twin.a ../work.a" "llvm-ar r ../work.a extra.o"
bench llvm-remove --prepare "cp ../twin.a ../work.a" "llvm-ar d ../work.a $middle"
