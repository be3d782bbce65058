#!/usr/bin/env bash
# The everyday command line over the converted corpus (bench/corpus_lib.sh):
#
#   - several files in one run: `kofd info|symbols|dump --section-headers|reloc` of every object
#     at once is each object's own output, headed by an empty line and "File: NAME", in order;
#   - standard input: `kofd dump - < OBJ` is `kofd dump OBJ`;
#   - one member: for every member of a KELF archive of the objects (`kofd ar LIB create`),
#     `kofd dump LIB --member M --file-header --section-headers` and `kofd reloc LIB --member M`
#     are those of the object M itself.
#
# Usage: bench/corpus_cli.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/ci/cli/kofd, build/ci/bench/kofd_make_corpus, 100 objects. Exit 77 (skipped)
#   when libc.a is absent, 1 on any failure.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=bench/corpus_lib.sh
. "$here/corpus_lib.sh"

begin_kelf_corpus ci 100 "$@"
cd "$work/kelf" || exit 1
mapfile -t objects < <(ls ./*.kelf | sed 's|^\./||')
count=${#objects[@]}

# Several files in one run against one run a file.
for command in info symbols "dump --section-headers" reloc; do
  # shellcheck disable=SC2086
  "$kofd" $command "${objects[@]}" >"$work/together" 2>"$work/err"
  status=$?
  : >"$work/apart"
  worst=0
  for k in "${objects[@]}"; do
    printf '\nFile: %s\n' "$k" >>"$work/apart"
    # shellcheck disable=SC2086
    "$kofd" $command "$k" >>"$work/apart" 2>/dev/null
    one=$?
    [ "$one" -gt "$worst" ] && worst=$one
  done
  cmp -s "$work/together" "$work/apart" || fail "$command: several files differ from one at a time"
  [ "$status" -eq "$worst" ] || fail "$command: exit $status with several files, $worst the worst alone"
done

# Standard input.
piped=0
for k in "${objects[@]}"; do
  "$kofd" dump - <"$k" >"$work/piped" 2>/dev/null
  "$kofd" dump "$k" >"$work/named" 2>/dev/null
  cmp -s "$work/piped" "$work/named" || fail "$k: dump - differs from dump $k"
  piped=$((piped + 1))
done

# One member of an archive of them.
"$kofd" ar ../lib.a create >/dev/null || { echo "ar create failed"; exit 1; }
members=0
for k in "${objects[@]}"; do
  "$kofd" ar ../lib.a add "$k" >/dev/null 2>&1 || continue
  members=$((members + 1))
done
checked=0
while IFS=$'\t' read -r _ _ name; do
  "$kofd" dump ../lib.a --member "$name" --file-header --section-headers >"$work/member" 2>/dev/null
  "$kofd" dump "$name" --file-header --section-headers >"$work/file" 2>/dev/null
  cmp -s "$work/member" "$work/file" || fail "$name: dump --member differs from the object"
  "$kofd" reloc ../lib.a --member "$name" >"$work/member" 2>/dev/null
  "$kofd" reloc "$name" >"$work/file" 2>/dev/null
  cmp -s "$work/member" "$work/file" || fail "$name: reloc --member differs from the object"
  checked=$((checked + 1))
done < <("$kofd" ar ../lib.a list)

echo "corpus_cli: objects $count (4 commands each, several at once against one at a time), $piped read from standard input, $checked of $members archive members selected; failures $failures"
[ $failures -eq 0 ]
