#!/usr/bin/env bash
# An archive of the real-world corpus (libc.a's members converted into KELF objects), made with
# `kofd ar LIB create`, checked, damaged (a stale index restored over a removal, a bad offset, a
# truncation), found damaged, repaired with `check --fix`, found clean; then every member extracted
# and compared with its object byte for byte, and one member replaced and compared. Prints the
# times and one line per failure; exit 1 on any.
#
# Usage: bench/corpus_ar.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/ci/cli/kofd, build/ci/bench/kofd_make_corpus, every member.
#   Exit 77 (skipped) when libc.a is absent.
set -uo pipefail
here=$(dirname "$0")
# shellcheck source=bench/corpus_lib.sh
. "$here/corpus_lib.sh"

begin_kelf_corpus ci 0 "$@"

exec 3>&1
# Runs a command, printing its wall time as "LABEL: N.NNN s".
timed() {
  local label=$1 start end
  shift
  start=$(date +%s.%N)
  "$@"
  local rc=$?
  end=$(date +%s.%N)
  printf '%s: %.3f s\n' "$label" "$(echo "$end - $start" | bc)" >&3
  return $rc
}
# Expects the check's exit status and, for a damaged archive, the kind of finding.
expect_check() {
  local want=$1 kind=${2:-} rc
  "$kofd" ar lib.a check >"$work/check.out" 2>&1
  rc=$?
  [ $rc -eq "$want" ] || fail "check exit $rc, expected $want: $(tail -n 3 "$work/check.out")"
  [ -z "$kind" ] || grep -q "^$kind	" "$work/check.out" || fail "check did not find $kind"
}

cd "$work/kelf" || exit 1
objects=$(ls | sort)
count=$(echo "$objects" | wc -l)
# shellcheck disable=SC2086
timed "create ($count members)" "$kofd" ar lib.a create $objects 2>"$work/create.err" || fail "create failed: $(head -n 3 "$work/create.err")"
echo "create warnings (strong duplicates outside section groups): $(grep -c warning "$work/create.err")"
echo "archive: $(stat -c %s lib.a) bytes, $("$kofd" ar lib.a symbols | wc -l) index entries"
timed "check" "$kofd" ar lib.a check >"$work/check.out" || fail "check of the new archive: $(tail -n 3 "$work/check.out")"
tail -n 1 "$work/check.out"
# Duplicate definitions: the index lists each, the lookup answers the first member.
dups=$("$kofd" ar lib.a symbols | cut -f1 | sort | uniq -d | wc -l)
echo "symbols defined by more than one member: $dups"
cp lib.a good.a

# A stale index: a member removed, the old index (from a copy) put back in front of the rest.
victim=$(echo "$objects" | sed -n "$(( (count + 1) / 2 ))p")
cp lib.a old.a
"$kofd" ar lib.a remove "$victim" || fail "remove $victim"
python3 - old.a lib.a <<'EOF'
import sys
old, new = (open(p, 'rb').read() for p in sys.argv[1:3])
def member(b, at):
    size = int(b[at + 48:at + 58].split()[0])
    return at + 60 + size
# the old linker member, then the new archive's name member and members
old_end, new_end = member(old, 8), member(new, 8)
open(sys.argv[2], 'wb').write(old[:old_end] + new[new_end:])
EOF
expect_check 1 symbol-stale
timed "fix (stale index)" "$kofd" ar lib.a check --fix >/dev/null || fail "fix of the stale index"
expect_check 0
! "$kofd" ar lib.a symbols | grep -qP "\t$victim\$" || fail "the fixed index still names $victim"
[ "$("$kofd" ar lib.a list | wc -l)" -eq $((count - 1)) ] || fail "the fixed archive has the wrong member count"

# A wrong offset: the second member's offset word in the linker member bumped.
cp good.a lib.a
python3 - lib.a <<'EOF'
import sys, struct
b = bytearray(open(sys.argv[1], 'rb').read())
at = 68 + 4 + 4 + 4  # version, N, offset 0, then offset 1
struct.pack_into('<I', b, at, struct.unpack_from('<I', b, at)[0] + 2)
open(sys.argv[1], 'wb').write(b)
EOF
expect_check 1 offset-wrong
"$kofd" ar lib.a check --fix >/dev/null || fail "fix of the wrong offset"
expect_check 0

# A truncation: the last member cut short; the fix keeps the members that are whole.
cp good.a lib.a
truncate -s -100 lib.a
expect_check 1 member-past-end
"$kofd" ar lib.a check --fix >/dev/null || fail "fix of the truncation"
expect_check 0
[ "$("$kofd" ar lib.a list | wc -l)" -eq $((count - 1)) ] || fail "the truncated archive kept the wrong members"

# The fix is deterministic and leaves a good archive's members and index as they were.
cp good.a a1.a
cp good.a a2.a
timed "fix (good archive)" "$kofd" ar a1.a check --fix >/dev/null || fail "fix of the good archive"
"$kofd" ar a2.a check --fix >/dev/null
cmp -s a1.a a2.a || fail "two fixes of one archive differ"
[ "$("$kofd" ar a1.a symbols)" = "$("$kofd" ar good.a symbols)" ] || fail "the fix changed a good index"

# Every member extracted and compared byte for byte.
mkdir out
# shellcheck disable=SC2086
timed "extract ($count members)" "$kofd" ar good.a extract $objects -C out || fail "extract"
bad=0
for o in $objects; do cmp -s "$o" "out/$o" || bad=$((bad + 1)); done
[ $bad -eq 0 ] || fail "$bad extracted members differ from their objects"
echo "extracted and identical: $((count - bad))/$count"

# A member replaced by another object's bytes keeps its place; the index follows it.
cp good.a lib.a
first=$(echo "$objects" | head -n 1)
other=$(echo "$objects" | tail -n 1)
mkdir repl
cp "$other" "repl/$first"
timed "replace" "$kofd" ar lib.a replace "repl/$first" || fail "replace"
[ "$("$kofd" ar lib.a list | head -n 1 | cut -f3)" = "$first" ] || fail "the replaced member moved"
mkdir out2
"$kofd" ar lib.a extract "$first" -C out2 && cmp -s "out2/$first" "$other" || fail "the replaced member's bytes differ"
expect_check 0

echo "failures: $failures"
[ $failures -eq 0 ]
