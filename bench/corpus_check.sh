#!/usr/bin/env bash
# Converts the members of libc.a into KELF objects (bench/make_corpus.cpp) and checks, on every
# one, that `kofd edit X -o Y` without an edit is byte-identical, that each edit kind changes
# the dump only where the edit says, and that `kofd dump --json --contents X` built back with
# `kofd build` gives X's bytes (json-roundtrip). Prints one line per failure and a summary; exit 1 on any.
#
# Usage: bench/corpus_check.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/default/cli/kofd, build/default/bench/kofd_make_corpus, every member.
#   Exit 77 (skipped) when libc.a is absent.
set -uo pipefail
# shellcheck source=corpus_lib.sh
. "$(dirname "$0")/corpus_lib.sh"
begin_kelf_corpus default 0 "$@"
printf 'PATCHED!' >"$work/eight.bin"
printf '0123456789abcdef' >"$work/sixteen.bin"

# Each dump line labelled by where it is: EH:field, SH:index, SYM:index, or the block's ordinal
# and heading for everything else.
label() {
  "$kofd" dump "$1" | tr -d '\000' | awk '
    /^-----/ { h = $0; gsub(/^-+ *| *-+$/, "", h); ord++; next }
    h ~ /ELF Header/ && /^[A-Za-z]+\t+= / { split($0, f, "\t"); print "EH:" f[1] "\t" $0; next }
    h ~ /Section Header/ && /^ *\[ *[0-9]+\]/ { match($0, /[0-9]+/); print "SH:" substr($0, RSTART, RLENGTH) "\t" $0; next }
    h ~ /Symbol Table/ && /^ *\[ *[0-9]+\]/ { match($0, /[0-9]+/); print "SYM:" substr($0, RSTART, RLENGTH) "\t" $0; next }
    { print "B" ord ":" h "\t" $0 }'
}
# The changed lines, "<" (only in the original) or ">" (only in the result), each with its label;
# compared as sets, since a line diff may pair a removed record with its unmoved neighbour.
changes() { LC_ALL=C comm -3 <(LC_ALL=C sort "$1") <(LC_ALL=C sort "$2") | sed 's/^\t/> /; t; s/^/< /'; }

fail() { echo "FAIL $name $kind: $*"; failures=$((failures + 1)); }
# Every changed line's label must match the pattern.
only() {
  local bad
  bad=$(changes "$work/d0" "$work/d1" | grep -av -E "^[<>] ($1)(	|$)" | head -3)
  [ -z "$bad" ] || fail "unexpected change: $bad"
}
# Old and new section-header or symbol line differ in the given columns (1 is the index) only.
column_only() {
  local a b
  a=$(grep -a "^$1	" "$work/d0" | cut -f2- | awk -v c="$2" '{ n = split(c, cs, ","); for (i = 1; i <= n; i++) $cs[i] = "*"; print }')
  b=$(grep -a "^$1	" "$work/d1" | cut -f2- | awk -v c="$2" '{ n = split(c, cs, ","); for (i = 1; i <= n; i++) $cs[i] = "*"; print }')
  [ "$a" = "$b" ] || fail "$1 changed outside columns $2"
}
edit() {
  rm -f "$work/y"
  if ! "$kofd" edit "$x" -o "$work/y" "$@" 2>"$work/err"; then fail "refused: $(head -1 "$work/err")"; return 1; fi
  label "$work/y" >"$work/d1"
}

objects=0 failures=0 checks=0
for x in "$work/kelf"/*.kelf; do
  name=$(basename "$x")
  objects=$((objects + 1))
  kind=identity
  "$kofd" edit "$x" -o "$work/y" 2>"$work/err" && cmp -s "$x" "$work/y" || fail "not byte-identical $(head -1 "$work/err")"
  kind=json-roundtrip
  rm -f "$work/y"
  if ! "$kofd" dump --json --contents "$x" >"$work/x.json" 2>"$work/err"; then
    fail "dump --json --contents: $(head -1 "$work/err")"
  elif ! "$kofd" build "$work/x.json" -o "$work/y" 2>"$work/err"; then
    fail "build refused: $(head -1 "$work/err")"
  else
    cmp -s "$x" "$work/y" || fail "built bytes differ: $(cmp "$x" "$work/y" 2>&1 | head -1)"
  fi
  label "$x" >"$work/d0"
  shstrndx=$(awk -F'\t' '$1 == "EH:SHStrndex" { split($0, v, "= "); print v[2] }' "$work/d0")
  # Sections targeted by a relocation table (Info of a Relxeb) or with a link to them.
  targets=" $(awk -F'\t' '$1 ~ /^SH:/ { split($2, f, " +"); if (f[3] == "Relxeb") print f[9]; else if (f[8] > 0) print f[8] }' FS='\t' "$work/d0" | sed 's/^ *//' | tr '\n' ' ') "
  # A section of raw bytes, 8 bytes or more, that no relocation rewrites.
  plain=$(awk -F'\t' -v t="$targets" '$1 ~ /^SH:/ { n = split($2, f, " +"); i = substr($1, 4); if (f[3] == "Prgbit" && (length(f[7]) > 1 || f[7] ~ /[89a-f]/) && index(t, " " i " ") == 0) { print i; exit } }' "$work/d0")
  # Symbol table: the symbols relocations name, and the last symbol when its name is unique.
  refs=" $(awk -F'\t' '$1 ~ /Relocation/ && $2 ~ /^ +[0-9a-f]+ +[0-9a-f]+ / { split($2, f, " +"); print f[3] }' "$work/d0" | sort -u | tr '\n' ' ') "
  # (A nameless symbol's line ends in a space; wide sizes run into the type, so count from the end.)
  lastsym=$(awk -F'\t' '$1 ~ /^SYM:/ { last = substr($1, 5); nm = ""; if ($2 !~ / $/) { n = split($2, f, " +"); nm = f[n] } lname = nm; cnt[nm]++ } END { if (lname ~ /^[A-Za-z_][A-Za-z0-9_.]*$/ && cnt[lname] == 1) print last, lname }' "$work/d0")
  symtab=$(awk -F'\t' '$1 ~ /^SH:/ && $2 ~ / Symtab / { print substr($1, 4); exit }' "$work/d0")

  kind=rename-section; checks=$((checks + 1))
  edit --rename-section 1=.corpus.renamed && { only "SH:1|SH:$shstrndx|EH:SHOff|B[0-9]+:String Table Information"; column_only SH:1 11; }
  kind=set-section-address; checks=$((checks + 1))
  edit --set-section-address 1=0x1234 && { only "SH:1"; column_only SH:1 4; }
  kind=add-section; checks=$((checks + 1))
  edit --add-section .corpus.added="$work/sixteen.bin" && only "SH:[0-9]+|EH:SHOff|EH:SHNum|B[0-9]+:.*"
  [ -n "$(changes "$work/d0" "$work/d1" | grep -a '^<' | grep -av -E "^< (SH:$shstrndx|EH:SHOff|EH:SHNum)	")" ] && fail "add-section changed an existing line"
  kind=add-bank; checks=$((checks + 1))
  edit --add-bank 0x100=3 && only "SH:[0-9]+|EH:SHOff|EH:SHNum|B[0-9]+:.*"
  [ -n "$(changes "$work/d0" "$work/d1" | grep -a '^<' | grep -av -E "^< (SH:$shstrndx|EH:SHOff|EH:SHNum)	")" ] && fail "add-bank changed an existing line"
  grep -a -q -E 'Bank Information	 +100 +3$' "$work/d1" || fail "add-bank: no record 100 3 in the dump"
  kind=compact; checks=$((checks + 1))
  edit --compact && { only "SH:[0-9]+|EH:SHOff"; for s in $(grep -a -o '^SH:[0-9]*' "$work/d0"); do column_only "$s" 5; done; }
  if [ -n "$plain" ]; then
    kind=patch; checks=$((checks + 1))
    edit --patch "$plain:0=a5a5a5a5" && only "B[0-9]+:Program Raw Data"
    [ "$(changes "$work/d0" "$work/d1" | wc -l)" -le 2 ] || fail "patch changed more than one line"
    kind=set-contents; checks=$((checks + 1))
    edit --set-contents "$plain=$work/eight.bin" && { only "SH:$plain|EH:SHOff|B[0-9]+:Program Raw Data"; column_only "SH:$plain" 5,6; }
  fi
  # A section nothing links to, targets, or holds a symbol: removing it renumbers the later
  # sections, so the expected dump is the original's with that renumbering applied.
  shndxs=" $(awk -F'\t' '$1 ~ /^SYM:/ { n = split($2, f, " +"); print f[n - 2] }' "$work/d0" | sort -u | tr '\n' ' ') "
  lone=$(awk -F'\t' -v t="$targets" -v s="$shndxs" -v k="$shstrndx" '$1 ~ /^SH:/ { i = substr($1, 4); split($2, f, " +"); if (i > 0 && i != k && (f[3] == "Prgbit" || f[3] == "Nobits") && index(t, " " i " ") == 0 && index(s, " " i " ") == 0) { print i; exit } }' "$work/d0")
  if [ -n "$lone" ]; then
    kind=remove-section; checks=$((checks + 1))
    if edit --remove-section "$lone"; then
      awk -F'\t' -v r="$lone" '
        function down(v) { return (v + 0 > r + 0 && v + 0 < 65280) ? v - 1 : v }
        $1 ~ /^SH:/ { i = substr($1, 4); if (i == r) next; n = split($2, f, " +"); f[2] = "[" down(i) "]"; f[8] = down(f[8]); if (f[3] == "Relxeb") f[9] = down(f[9]);
                      $0 = "SH:" down(i) "\t"; for (j = 2; j <= n; j++) $0 = $0 " " f[j]; print; next }
        $1 ~ /^SYM:/ { n = split($2, f, " +"); m = n - 2; f[m] = down(f[m]); $0 = $1 "\t"; for (j = 2; j <= n; j++) $0 = $0 " " f[j]; print; next }
        { sub(/^B[0-9]+:/, "B:"); print }' "$work/d0" >"$work/e0"
      awk -F'\t' '$1 ~ /^(SH|SYM):/ { n = split($2, f, " +"); $0 = $1 "\t"; for (j = 2; j <= n; j++) $0 = $0 " " f[j]; print; next } { sub(/^B[0-9]+:/, "B:"); print }' "$work/d1" >"$work/e1"
      bad=$(changes "$work/e0" "$work/e1" | grep -av -E "^[<>] (EH:SHNum|EH:SHOff|EH:SHStrndex)	|^< B:Program Raw Data	" | head -3)
      [ -z "$bad" ] || fail "unexpected change: $bad"
    fi
  fi
  if [ -n "$lastsym" ] && [ -n "$symtab" ]; then
    set -- $lastsym; idx=$1 sym=$2
    kind=set-symbol; checks=$((checks + 1))
    edit --set-symbol "$sym=0x4321" && { only "SYM:$idx"; column_only "SYM:$idx" 2; }
    kind=rename-symbol; checks=$((checks + 1))
    edit --rename-symbol "$sym=${sym}_corpus" && only "SYM:$idx|SH:[0-9]+|EH:SHOff|B[0-9]+:String Table Information|B[0-9]+:Arithmatic Expression	 *\\[ *[0-9]+\\] +SYM +[0-9a-f]+ ${sym}(_corpus)?$"
    kind=add-symbol; checks=$((checks + 1))
    edit --add-symbol "corpus_added=1:0x10" && only "SYM:[0-9]+|SH:[0-9]+|EH:SHOff|B[0-9]+:String Table Information"
    [ -n "$(changes "$work/d0" "$work/d1" | grep -a '^< SYM')" ] && fail "add-symbol changed an existing symbol"
    if [ "${refs#* $idx }" = "$refs" ]; then
      kind=remove-symbol; checks=$((checks + 1))
      edit --remove-symbol "$sym" && only "SYM:$idx|SH:$symtab|SH:[0-9]+|EH:SHOff|B[0-9]+:String Table Information"
      [ "$(changes "$work/d0" "$work/d1" | grep -a -c '^[<>] SYM')" -eq 1 ] || fail "remove-symbol changed other symbols"
    fi
  fi
done
echo "$objects objects, $checks edit checks (plus one identity and one json-roundtrip check each), $failures failures"
[ "$failures" -eq 0 ]
