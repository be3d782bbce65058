#!/usr/bin/env bash
# kofd export-elf on the real-world corpus: each converted object is exported back to ELF32 and
# read by GNU readelf and nm; its symbols (name, value, size, type, bind, section), its relocations
# (section, offset, type, symbol, addend) and nm's listing must equal those of the original ELF64
# member the corpus was converted from. Then the objects as one KELF archive, exported as a
# standard archive, whose index nm must list.
#
# Usage: bench/corpus_export.sh [KOFD] [MAKE_CORPUS] [LIMIT]   (defaults as corpus_check.sh; LIMIT 0: all)
set -uo pipefail
here=$(dirname "$0")
# shellcheck source=corpus_lib.sh
. "$here/corpus_lib.sh"
begin_kelf_corpus default 0 "$@"

python3 - "$kofd" "$work" <<'PY'
import os, re, subprocess, sys

kofd, work = sys.argv[1], sys.argv[2]

def run(*args):
    return subprocess.run(args, capture_output=True, text=True, errors="replace")

def symbols(path):
    rows = []
    # The corpus's conversion keeps no OS ABI byte, so readelf names type 10 (GNU_IFUNC) only in
    # the original.
    for line in run("readelf", "-sW", path).stdout.replace("<OS specific>: 10", "IFUNC").splitlines():
        m = re.match(r"\s*(\d+): ([0-9a-f]+)\s+(\S+) (\S+)\s+(\S+)\s+\S+\s+(\S+)\s?(.*)$", line)
        if m:
            size = int(m.group(3), 16) if m.group(3).startswith("0x") else int(m.group(3))
            rows.append((int(m.group(1)), int(m.group(2), 16), size, m.group(4), m.group(5), m.group(6), m.group(7)))
    return rows

def relocations(path):
    rows, section = [], None
    for line in run("readelf", "-rW", path).stdout.splitlines():
        m = re.match(r"Relocation section '([^']*)'", line)
        if m:
            section = m.group(1)
            continue
        m = re.match(r"([0-9a-f]+)\s+([0-9a-f]+)\s+(?:unrecognized: [0-9a-f]+|\S+)\s+([0-9a-f]+ )?\s*(.*?)\s*([+-]) ([0-9a-f]+)$", line)
        if m:
            info = int(m.group(2), 16)
            kind = info & 0xFF if len(m.group(2)) <= 8 else info & 0xFFFFFFFF
            addend = int(m.group(6), 16) * (-1 if m.group(5) == "-" else 1)
            rows.append((section, int(m.group(1), 16), kind, m.group(4), addend))
    return rows

def nm(path):
    done = run("nm", path)
    # Values are 8 hex digits in ELF32 and 16 in ELF64: compared as numbers, columns as words.
    rows = []
    for line in done.stdout.splitlines():
        words = line.split()
        if len(words) == 3:
            words[0] = "%x" % int(words[0], 16)
        rows.append(tuple(words))
    return done.returncode, sorted(rows)

objects = failures = relocs = kept = 0
for name in sorted(os.listdir(os.path.join(work, "kelf"))):
    base = name[:-len(".kelf")]
    kelf, original, out = os.path.join(work, "kelf", name), os.path.join(work, "elf", base + ".o"), os.path.join(work, "out.elf")
    objects += 1
    done = run(kofd, "export-elf", kelf, "-o", out)
    if done.returncode not in (0, 1):
        print("FAIL %s: export-elf exit %d: %s" % (base, done.returncode, done.stderr.strip()))
        failures += 1
        continue
    kept += done.returncode
    problems = []
    if symbols(out) != symbols(original):
        problems.append("symbols differ")
    got, want = relocations(out), relocations(original)
    relocs += len(got)
    if got != want:
        problems.append("relocations differ (%d against %d)" % (len(got), len(want)))
    code, listing = nm(out)
    if code != 0 or listing != nm(original)[1]:
        problems.append("nm differs (exit %d)" % code)
    if problems:
        failures += 1
        print("FAIL %s: %s" % (base, "; ".join(problems)))

library, exported = os.path.join(work, "corpus.ka"), os.path.join(work, "corpus.a")
kelfs = sorted(os.path.join(work, "kelf", n) for n in os.listdir(os.path.join(work, "kelf")))
if run(kofd, "ar", library, "create", *kelfs).returncode == 0:
    done = run(kofd, "export-elf", library, "-o", exported)
    members = run("ar", "t", exported).stdout.split()
    index = [l for l in run("nm", "-s", exported).stdout.splitlines() if " in " in l]
    if done.returncode not in (0, 1) or len(members) != len(kelfs) or not index:
        failures += 1
        print("FAIL archive: exit %d, %d members of %d, %d index entries" % (done.returncode, len(members), len(kelfs), len(index)))
    else:
        print("archive: %d members, %d index entries" % (len(members), len(index)))
else:
    print("archive: kofd ar create refused the corpus (duplicate globals); not exported")
print("%d objects, %d relocations compared, %d objects with relocations kept as text, %d failures" % (objects, relocs, kept, failures))
sys.exit(1 if failures else 0)
PY
