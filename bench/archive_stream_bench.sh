#!/usr/bin/env bash
# Times kofd ar add on a large archive against llvm-ar r on its standard twin: MEMBERS KELF
# objects with a code section of CODE bytes each (default 1000 of 1 MiB: about 1 GB) in lib.a,
# made with kofd ar create, and their ELF32 twins in twin.a, made with GNU ar rc. Each run
# copies the archive afresh (not timed, then sync, so that no write-back of the copy is left to
# the command), then times one command with /usr/bin/time -f "%e %M" (wall seconds, peak KiB);
# the two tools take turns, the first one changing from run to run. Prints every run, then the
# medians. The files are in the page cache throughout: the copy has just written them.
# Usage: bench/archive_stream_bench.sh [MEMBERS [CODE [RUNS]]]   (default 1000 1048576 5)
set -euo pipefail
cd "$(dirname "$0")/.."
members=${1:-1000}
code=${2:-1048576}
runs=${3:-5}

cmake --preset default >/dev/null
cmake --build --preset default --target kofd_cli kofd_bench_archive_inputs >/dev/null
kofd=$(realpath build/default/cli/kofd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kofd_archive_stream.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/kelf" "$work/elf"

build/default/bench/kofd_bench_archive_inputs "$work" "$members" 10 "$code"
objects=$(cd "$work/kelf" && ls m*.o)
(cd "$work/kelf" && "$kofd" ar ../lib.a create $objects)
(cd "$work/elf" && ar rc ../twin.a $objects)
# The objects are not needed any more: only the archives and the extra objects stay.
find "$work/kelf" "$work/elf" -name 'm*.o' -delete
sync
echo "kofd archive: $(stat -c %s "$work/lib.a") bytes, $("$kofd" ar "$work/lib.a" list | wc -l) members;" \
     "twin: $(stat -c %s "$work/twin.a") bytes, $(ar t "$work/twin.a" | wc -l) members;" \
     "extra.o $(stat -c %s "$work/kelf/extra.o") / $(stat -c %s "$work/elf/extra.o") bytes"
echo "load average before: $(cut -d' ' -f1-3 /proc/loadavg)"

# Runs one tool's command on a fresh copy of its archive; appends "seconds KiB" to its list.
run() {
  local name=$1 archive=$2 dir=$3
  shift 3
  cp "$work/$archive" "$work/work.a"
  sync
  (cd "$work/$dir" && /usr/bin/time -f "%e %M" -o "$work/time" "$@")
  rm -f "$work/work.a"
  echo "$name $(cat "$work/time")" | tee -a "$work/runs"
}

: >"$work/runs"
for ((i = 0; i < runs; i++)); do
  if ((i % 2 == 0)); then
    run kofd lib.a kelf "$kofd" ar ../work.a add extra.o
    run llvm-ar twin.a elf llvm-ar r ../work.a extra.o
  else
    run llvm-ar twin.a elf llvm-ar r ../work.a extra.o
    run kofd lib.a kelf "$kofd" ar ../work.a add extra.o
  fi
done
echo "load average after: $(cut -d' ' -f1-3 /proc/loadavg)"

median() { grep "^$1 " "$work/runs" | cut -d' ' -f"$2" | sort -g | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }
kofd_s=$(median kofd 2) kofd_k=$(median kofd 3) llvm_s=$(median llvm-ar 2) llvm_k=$(median llvm-ar 3)
echo "| command | median wall | median peak RSS |"
echo "|---|---|---|"
echo "| \`llvm-ar r twin.a extra.o\` | ${llvm_s} s | $((llvm_k / 1024)) MiB |"
echo "| \`kofd ar lib.a add extra.o\` | ${kofd_s} s | $((kofd_k / 1024)) MiB |"
awk -v k="$kofd_s" -v l="$llvm_s" 'BEGIN {printf "kofd / llvm-ar wall: %.2f\n", k / l}'
