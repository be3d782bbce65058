#!/usr/bin/env bash
# kofd symbols over the converted corpus (bench/corpus_lib.sh), checked against GNU nm on the
# ELF64 members the objects were converted from.
#
#   - for every object: the names and class letters of `kofd symbols` equal nm's, once nm's
#     letters are read as kofd's classes (B/b, a NOBITS section, is D/d; V/v, a weak object, is
#     W/w; i, an indirect function, is T or W); the --defined and --undefined lists split the whole;
#   - the objects made into a KELF archive with `kofd ar LIB create`: the archive's listing is the
#     members' listings, each headed by its name.
#
# Usage: bench/corpus_symbols.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/ci/cli/kofd, build/ci/bench/kofd_make_corpus, 100 objects. Exit 77 (skipped)
#   when libc.a is absent, 1 on any failure.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=bench/corpus_lib.sh
. "$here/corpus_lib.sh"
command -v nm >/dev/null || { echo "no nm: skipped"; exit 77; }

begin_kelf_corpus ci 100 "$@"

objects=$(cd "$work/kelf" && ls ./*.kelf | sed 's|^\./||')
count=$(echo "$objects" | wc -l)
symbols=0
for k in $objects; do
  o=${k%.kelf}.o
  [ -f "$work/elf/$o" ] || { fail "$k: no ELF original $o"; continue; }
  "$kofd" symbols "$work/kelf/$k" >"$work/all" || { fail "$k: exit $?"; continue; }
  nm -P "$work/elf/$o" 2>/dev/null | awk '{
      l = $2
      if (l == "B") l = "D"; else if (l == "b") l = "d"
      else if (l == "V") l = "W"; else if (l == "v") l = "w"
      print $1, l }' | sort >"$work/nm_seen"
  # nm shows an indirect function i, global or weak: kofd's T or W.
  awk 'NR == FNR { if ($2 == "i") ifunc[$1] = 1; next }
       { l = $3; if (($4 in ifunc) && (l == "T" || l == "W")) l = "i"; print $4, l }' \
      "$work/nm_seen" "$work/all" | sort >"$work/kofd_seen"
  cmp -s "$work/kofd_seen" "$work/nm_seen" || fail "$k: differs from nm: $(diff "$work/nm_seen" "$work/kofd_seen" | head -4 | tr '\n' ' ')"
  defined=$("$kofd" symbols --defined "$work/kelf/$k" | wc -l)
  undefined=$("$kofd" symbols --undefined "$work/kelf/$k" | wc -l)
  all=$(wc -l <"$work/all")
  [ $((defined + undefined)) -eq "$all" ] || fail "$k: $defined defined + $undefined undefined != $all"
  symbols=$((symbols + all))
done

# The archive lists each member as the member's own listing, headed by its name.
(cd "$work/kelf" && "$kofd" ar ../lib.a create >/dev/null) || { echo "ar create failed"; exit 1; }
added=""
for k in $objects; do
  (cd "$work/kelf" && "$kofd" ar ../lib.a add "$k" >/dev/null 2>&1) && added="$added $k"
done
: >"$work/expected"
for k in $added; do
  printf '\n%s:\n' "$k" >>"$work/expected"
  "$kofd" symbols "$work/kelf/$k" >>"$work/expected"
done
"$kofd" symbols "$work/lib.a" >"$work/archive" || fail "symbols of the archive: exit $?"
cmp -s "$work/expected" "$work/archive" || fail "the archive's listing is not its members' listings"
members=$(echo "$added" | wc -w)

echo "objects $count, symbols $symbols, archive members $members, failures $failures"
[ $failures -eq 0 ]
