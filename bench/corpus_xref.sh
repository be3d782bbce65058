#!/usr/bin/env bash
# kofd xref and kofd diff over the converted corpus (bench/corpus_lib.sh).
#
#   - the objects made into a KELF archive with `kofd ar LIB create`; `kofd xref LIB --undefined`
#     timed and counted;
#   - for a few symbols (undefined ones and defined ones the archive's expressions name), xref
#     finds exactly the relocations whose runs hold a SYM token naming them, as computed here
#     from `kofd dump --json` of the archive (each relocation's run over its expression table's
#     records, each SYM token's value an index into the symbols);
#   - `kofd diff X X` is 0 for every object; for Y = `kofd edit X --compact -o Y`, `kofd diff X Y`
#     is 0 and `kofd diff --layout X Y` is 1 (unless the compaction left X's bytes as they were).
#
# Usage: bench/corpus_xref.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/ci/cli/kofd, build/ci/bench/kofd_make_corpus, 100 objects. Exit 77 (skipped)
#   when libc.a is absent, 1 on any failure.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=bench/corpus_lib.sh
. "$here/corpus_lib.sh"

begin_kelf_corpus ci 100 "$@"
now() { date +%s.%N; }

# The archive: members added one at a time, a member whose global symbols another already
# defines left out (the archive refuses it).
objects=$(cd "$work/kelf" && ls ./*.kelf | sed 's|^\./||')
count=$(echo "$objects" | wc -l)
(cd "$work/kelf" && "$kofd" ar ../lib.a create >/dev/null) || { echo "ar create failed"; exit 1; }
added=0
for o in $objects; do
  (cd "$work/kelf" && "$kofd" ar ../lib.a add "$o" >/dev/null 2>&1) && added=$((added + 1))
done
lib=$work/lib.a

t0=$(now)
"$kofd" xref "$lib" --undefined >"$work/undefined"
undefined_status=$?
t1=$(now)
undefined=$(wc -l <"$work/undefined")
[ "$undefined_status" -eq $([ "$undefined" -gt 0 ] && echo 1 || echo 0) ] || fail "xref --undefined exit $undefined_status with $undefined symbols"
"$kofd" xref "$lib" --unreferenced >"$work/unreferenced"
unreferenced=$(wc -l <"$work/unreferenced")

# Every reference computed from the dump: SYMBOL<TAB>MEMBER<TAB>SECTION<TAB>RECORD, sorted.
"$kofd" dump --json "$lib" >"$work/dump.json" || fail "dump --json of the archive"
python3 - "$work/dump.json" >"$work/expected" <<'PY'
import json, sys
archive = json.load(open(sys.argv[1]))["archive"]
for member in archive["members"]:
    obj = member["object"]
    sections = {s["index"]: s for s in obj["sections"]}
    names = {s["index"]: s["name"] for s in obj["symbols"]}
    for r in obj["relocations"]:
        expr = sections.get(sections[r["section"]]["link"], {})
        records = expr.get("records", [])
        start, end = r["run"]
        if start > end or end >= len(records) or end - start >= 4096:
            continue
        named = set()
        for token in records[start:end + 1]:
            if token["type"]["value"] == 13 and token["value"] in names:
                named.add(names[token["value"]])
        for name in named:
            print("%s\t%s\t%d\t%d" % (name, member["name"], r["section"], r["index"]))
PY
LC_ALL=C sort -o "$work/expected" "$work/expected"
# Three undefined symbols and three of the most named ones.
symbols=$( (head -3 "$work/undefined" | cut -f1; cut -f1 "$work/expected" | LC_ALL=C sort | uniq -c | sort -rn | awk '$2 != "" { print $2 }' | head -3) | awk 'NF' | sort -u)
checked=0
references=0
for s in $symbols; do
  "$kofd" xref "$lib" "$s" --json >"$work/xref.json"
  st=$?
  python3 -c '
import json, sys
d = json.load(open(sys.argv[1]))
for r in d["references"]:
    print("%s\t%s\t%d\t%d" % (d["symbol"], r["member"], r["section"], r["index"]))' "$work/xref.json" | LC_ALL=C sort >"$work/got"
  grep -a -P "^\Q$s\E\t" "$work/expected" >"$work/want"
  if ! cmp -s "$work/got" "$work/want"; then
    fail "xref $s: $(wc -l <"$work/got") references, the dump names $(wc -l <"$work/want")"
  fi
  [ "$st" -eq $([ -s "$work/want" ] && echo 0 || echo 1) ] || fail "xref $s exit $st"
  checked=$((checked + 1))
  references=$((references + $(wc -l <"$work/got")))
done

# diff: each object with itself, and with its compacted copy.
same=0 compact_equal=0 compact_layout=0 unchanged=0
t2=$(now)
for o in $objects; do
  x=$work/kelf/$o
  "$kofd" diff "$x" "$x" >/dev/null
  st=$?
  [ $st -eq 0 ] && same=$((same + 1)) || fail "diff $o $o: exit $st"
  "$kofd" edit "$x" --compact -o "$work/y.kelf" >/dev/null 2>&1 || { fail "edit --compact $o"; continue; }
  "$kofd" diff "$x" "$work/y.kelf" >"$work/diff.txt"
  st=$?
  [ $st -eq 0 ] && compact_equal=$((compact_equal + 1)) || fail "diff $o compacted: exit $st: $(head -1 "$work/diff.txt")"
  "$kofd" diff --layout "$x" "$work/y.kelf" >/dev/null
  st=$?
  if cmp -s "$x" "$work/y.kelf"; then
    unchanged=$((unchanged + 1))
    [ $st -eq 0 ] || fail "diff --layout $o compacted to the same bytes: exit $st"
  else
    [ $st -eq 1 ] && compact_layout=$((compact_layout + 1)) || fail "diff --layout $o compacted: exit $st"
  fi
done
t3=$(now)

echo "objects: $count, archive members: $added"
echo "xref --undefined: $undefined symbols ($(echo "$t1 - $t0" | bc) s); --unreferenced: $unreferenced globals"
echo "xref SYMBOL: $checked symbols checked against the dump ($(echo $symbols)), $references references"
echo "diff X X equal: $same/$count; compacted equal: $compact_equal/$count, layout differs: $compact_layout (same bytes: $unchanged) ($(echo "$t3 - $t2" | bc) s)"
echo "failures: $failures"
[ "$failures" -eq 0 ]
