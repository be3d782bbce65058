#!/usr/bin/env bash
# kofd layout and kofd map over the converted corpus (bench/corpus_lib.sh): every object and a
# KELF archive of them (kofd ar LIB create) must be covered exactly by the layout's ranges (in
# order, contiguous, sizes summing to the file's) with nothing flagged, and map must answer 1
# (the corpus has no line tables) without trouble. Then damaged copies: each object cut short
# must flag a part out of the file, each object whose section 2 header is patched to start where
# section 1 does must flag an overlap, and the archive cut short must flag its last member.
# Prints one line per failure and a summary; exit 1 on any.
#
# Usage: bench/corpus_layout.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/ci/cli/kofd, build/ci/bench/kofd_make_corpus, 100 objects.
#   Exit 77 (skipped) when libc.a is absent.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=bench/corpus_lib.sh
. "$here/corpus_lib.sh"

begin_kelf_corpus ci 100 "$@"
mkdir -p "$work/json" "$work/damaged"


objects=("$work"/kelf/*.kelf)
# Layout of every good object: exit 0, the document kept for the coverage check.
for object in "${objects[@]}"; do
  name=$(basename "$object")
  "$kofd" layout --json "$object" >"$work/json/$name.json" 2>"$work/err"
  rc=$?
  [ "$rc" -eq 0 ] || fail "layout $name: exit $rc $(head -c 200 "$work/err")"
  "$kofd" map "$object" >/dev/null 2>"$work/err"
  rc=$?
  [ "$rc" -eq 1 ] || fail "map $name: exit $rc (1 expected: nothing maps) $(head -c 200 "$work/err")"
done

# The archive of them: created empty, then each object added; one that defines a global symbol
# an earlier one does is refused by ar and left out.
"$kofd" ar "$work/corpus.a" create >/dev/null 2>"$work/err" || fail "ar create: $(head -c 200 "$work/err")"
members=0
for object in "${objects[@]}"; do
  "$kofd" ar "$work/corpus.a" add "$object" >/dev/null 2>&1 && members=$((members + 1))
done
"$kofd" layout --json "$work/corpus.a" >"$work/json/corpus.a.json" 2>"$work/err"
rc=$?
[ "$rc" -eq 0 ] || fail "layout corpus.a: exit $rc $(head -c 200 "$work/err")"
"$kofd" map "$work/corpus.a" >/dev/null 2>"$work/err"
rc=$?
[ "$rc" -eq 1 ] || fail "map corpus.a: exit $rc (1 expected) $(head -c 200 "$work/err")"

# Coverage: contiguous from the start, sizes summing to the file's (each nested object to its
# member data's), no flag.
python3 - "$work/json" "$work/kelf" "$work/corpus.a" <<'PY' || failures=$((failures + 1))
import json, os, sys
json_dir, kelf_dir, archive = sys.argv[1:4]
bad = 0
ranges_seen = 0
def check(doc, size, where):
    global bad, ranges_seen
    at = doc["offset"]
    total = 0
    for r in doc["ranges"]:
        ranges_seen += 1
        if r["from"] != at or r["to"] - r["from"] != r["size"] or r["size"] <= 0:
            print("FAIL: %s: range %s does not follow %d" % (where, r, at)); bad += 1; return
        if r["overlap"] or r["out_of_file"]:
            print("FAIL: %s: flagged range %s" % (where, r)); bad += 1
        total += r["size"]
        at = r["to"]
    if total != size or doc["size"] != size:
        print("FAIL: %s: ranges sum to %d, the file has %d" % (where, total, size)); bad += 1
    if doc["overlaps"] or doc["out_of_file"]:
        print("FAIL: %s: %d overlaps, %d out of file" % (where, doc["overlaps"], doc["out_of_file"])); bad += 1
    for nested in doc.get("objects", []):
        part = doc["parts"][nested["part"]]
        check(nested, part["to"] - part["from"], where + ":" + part.get("name", "?"))
files = 0
for name in sorted(os.listdir(json_dir)):
    doc = json.load(open(os.path.join(json_dir, name)))
    path = archive if name == "corpus.a.json" else os.path.join(kelf_dir, name[:-5])
    check(doc, os.path.getsize(path), name[:-5])
    if doc.get("flags"):
        print("FAIL: %s: %d flags" % (name, doc["flags"])); bad += 1
    files += 1
print("coverage: %d documents, %d ranges checked, %d failures" % (files, ranges_seen, bad))
sys.exit(1 if bad else 0)
PY

# Damaged copies: cut short (the last 7 bytes gone), and section 2 moved onto section 1.
python3 - "$work/kelf" "$work/damaged" <<'PY'
import os, struct, sys
src, dst = sys.argv[1:3]
for name in sorted(os.listdir(src)):
    data = open(os.path.join(src, name), "rb").read()
    shoff, = struct.unpack_from("<I", data, 36)
    shnum, = struct.unpack_from("<H", data, 52)
    # Cut 7 bytes before the end of the part that ends last (bytes behind it are a gap).
    end = shoff + 40 * shnum
    for i in range(shnum):
        at = shoff + 40 * i
        if at + 40 <= len(data):
            kind, offset, size = struct.unpack_from("<I", data, at + 4)[0], *struct.unpack_from("<II", data, at + 16)
            if kind != 8:
                end = max(end, offset + size)
    open(os.path.join(dst, "cut-" + name), "wb").write(data[:min(end, len(data)) - 7])
    if shnum < 3 or shoff + 3 * 40 > len(data):
        continue
    one = shoff + 40
    two = shoff + 80
    size1, = struct.unpack_from("<I", data, one + 20)
    size2, = struct.unpack_from("<I", data, two + 20)
    type1, = struct.unpack_from("<I", data, one + 4)
    type2, = struct.unpack_from("<I", data, two + 4)
    if size1 == 0 or size2 == 0 or type1 == 8 or type2 == 8:
        continue
    patched = bytearray(data)
    patched[two + 16:two + 20] = data[one + 16:one + 20]
    open(os.path.join(dst, "overlap-" + name), "wb").write(bytes(patched))
PY
cut=0 overlap=0
for damaged in "$work"/damaged/*; do
  name=$(basename "$damaged")
  "$kofd" layout --json "$damaged" >"$work/doc.json" 2>"$work/err"
  rc=$?
  [ "$rc" -eq 1 ] || { fail "layout $name: exit $rc (1 expected) $(head -c 200 "$work/err")"; continue; }
  case $name in
    cut-*) key=out_of_file; cut=$((cut + 1)) ;;
    *) key=overlaps; overlap=$((overlap + 1)) ;;
  esac
  python3 -c "import json,sys; sys.exit(0 if json.load(open(sys.argv[1]))[sys.argv[2]] > 0 else 1)" "$work/doc.json" "$key" ||
    fail "layout $name: no $key flagged"
done
head -c -11 "$work/corpus.a" >"$work/cut.a"
"$kofd" layout --json "$work/cut.a" >"$work/doc.json" 2>"$work/err"
rc=$?
[ "$rc" -eq 1 ] || fail "layout cut.a: exit $rc (1 expected)"
python3 -c "import json,sys; d=json.load(open(sys.argv[1])); sys.exit(0 if d['out_of_file'] > 0 else 1)" "$work/doc.json" ||
  fail "layout cut.a: its last member is not flagged"

echo "corpus_layout: ${#objects[@]} objects and their archive ($members members, $(stat -c %s "$work/corpus.a") bytes) laid out; $cut cut and $overlap overlapping copies flagged; $failures failures"
[ "$failures" -eq 0 ]
