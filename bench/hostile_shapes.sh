#!/usr/bin/env bash
# Measures the costly shapes with the real tool: elapsed time, peak memory and output size of
# each command, once per kofd given (for example an older build and this one).
#
# Usage: bench/hostile_shapes.sh KOFD [KOFD...]
#   builds kofd_make_hostile_inputs (preset ci) and writes its "full" inputs to build/hostile;
#   each command runs under a 12 GiB address-space limit, so a runaway shows as a failure.
set -uo pipefail
cd "$(dirname "$0")/.."
cmake --build --preset ci -j2 --target kofd_make_hostile_inputs >/dev/null
inputs=build/hostile
mkdir -p "$inputs"
build/ci/bench/kofd_make_hostile_inputs full "$inputs"
build/ci/bench/kofd_make_hostile_inputs seeds "$inputs/small" >/dev/null

measure() {  # label, command...
  local label=$1; shift
  local out
  out=$( { ulimit -v $((12 * 1024 * 1024)); /usr/bin/time -f '%e s %M KB' "$@" >/dev/null 2>"$inputs/err"; } 2>&1; echo "exit $?")
  printf '  %-34s %s (%s)\n' "$label" "$(tail -n 1 "$inputs/err")" "$(echo "$out" | tr '\n' ' ')"
}

for kofd in "$@"; do
  echo "$kofd"
  cp "$inputs/repeated.a" "$inputs/work.a"
  measure "ar add, repeated member" "$kofd" ar "$inputs/work.a" add "$inputs/small/object/run.o"
  echo "    written: $(stat -c %s "$inputs/work.a") bytes from $(stat -c %s "$inputs/repeated.a")"
  measure "dump, repeated member" "$kofd" dump "$inputs/repeated.a"
  measure "browse --all, repeated member" "$kofd" browse "$inputs/repeated.a" --all
  cp "$inputs/overlap.a" "$inputs/work.a"
  measure "ar add, overlapping members" "$kofd" ar "$inputs/work.a" add "$inputs/small/object/run.o"
  echo "    written: $(stat -c %s "$inputs/work.a") bytes from $(stat -c %s "$inputs/overlap.a")"
  measure "browse --all, overlapping members" "$kofd" browse "$inputs/overlap.a" --all
  measure "info, sparse 4 GiB sections" "$kofd" info "$inputs/sparse.o"
  measure "reloc, 20,000 x 4,095 tokens" "$kofd" reloc "$inputs/run.o"
  measure "reloc, 380,000 x 4,095 tokens" "$kofd" reloc "$inputs/run8m.o"
  rm -f "$inputs/new.a" "$inputs/work.a"
  measure "ar create, 65,536 colliding" "$kofd" ar "$inputs/new.a" create "$inputs/names.o"
  measure "ar find absent, 65,536 colliding" "$kofd" ar "$inputs/names.a" find absent_name
done
