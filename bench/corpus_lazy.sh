#!/usr/bin/env bash
# The commands that open an object on its headers alone (dump's selectors, info) over the converted
# corpus (bench/corpus_lib.sh), checked against the whole dump, which reads every section at open:
#
#   - text: `dump --file-header --section-headers` and then `dump --section I` of every section
#     that has something to dump, one command each, make up exactly the whole `dump` output;
#   - JSON: `dump --json --file-header --section-headers` shows the whole JSON dump's header and
#     sections without their records; `dump --json --section I` shows section I as the whole dump
#     does, with the symbols for the symbol table and the relocations for a table of type 22;
#   - `info --json`: the symbol count, taken from the table's header, equals the symbols the
#     whole JSON dump lists, and the sections' names, types and sizes are its sections'.
#
# Usage: bench/corpus_lazy.sh [KOFD] [MAKE_CORPUS] [LIMIT]
#   defaults: build/ci/cli/kofd, build/ci/bench/kofd_make_corpus, 100 objects. Exit 77 (skipped)
#   when libc.a is absent, 1 on any failure.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=bench/corpus_lib.sh
. "$here/corpus_lib.sh"
command -v python3 >/dev/null || { echo "no python3: skipped"; exit 77; }

begin_kelf_corpus ci 100 "$@"
python3 - "$kofd" "$work/kelf" <<'EOF'
import json, os, subprocess, sys

kofd, folder = sys.argv[1], sys.argv[2]
failures = 0
sections_dumped = 0
tables_compared = 0


def run(*arguments):
    done = subprocess.run([kofd, *arguments], capture_output=True)
    return done.returncode, done.stdout, done.stderr.decode(errors="replace")


def fail(text):
    global failures
    failures += 1
    print("FAIL", text)


def without_records(section):
    return {k: v for k, v in section.items() if k != "records"}


objects = sorted(f for f in os.listdir(folder) if f.endswith(".kelf"))
for name in objects:
    path = os.path.join(folder, name)
    status, whole_text, err = run("dump", path)
    if status != 0:
        fail(f"{name}: dump exit {status}: {err}")
        continue
    status, whole_json, err = run("dump", "--json", path)
    if status != 0:
        fail(f"{name}: dump --json exit {status}: {err}")
        continue
    whole = json.loads(whole_json)["object"]
    sections = whole["sections"]

    status, text, err = run("dump", "--file-header", "--section-headers", path)
    pieces = [text] if status == 0 else []
    if status != 0:
        fail(f"{name}: header listings exit {status}: {err}")
    status, headers_json, err = run("dump", "--json", "--file-header", "--section-headers", path)
    headers = json.loads(headers_json)["object"] if status == 0 else {}
    if headers.get("header") != whole["header"] or headers.get("sections") != [without_records(s) for s in sections]:
        fail(f"{name}: the JSON header listings differ from the whole dump's")

    for section in sections:
        index = section["index"]
        status, text, err = run("dump", "--section", str(index), path)
        if status != 0:
            if "has nothing to dump" not in err:
                fail(f"{name}: --section {index} exit {status}: {err}")
            continue
        pieces.append(text)
        sections_dumped += 1
        status, one_json, err = run("dump", "--json", "--section", str(index), path)
        one = json.loads(one_json)["object"] if status == 0 else {}
        if one.get("sections") != [section]:
            fail(f"{name}: JSON of section {index} differs from the whole dump's")
        if whole.get("symbol_table") == index and one.get("symbols") != whole["symbols"]:
            fail(f"{name}: the symbols shown with section {index} differ")
        relocations = [r for r in whole["relocations"] if r["section"] == index]
        if relocations and one.get("relocations") != relocations:
            fail(f"{name}: the relocations of section {index} differ")
        tables_compared += whole.get("symbol_table") == index or bool(relocations)
    if b"".join(pieces) != whole_text:
        fail(f"{name}: the selected dumps do not make up the whole dump")

    status, info_json, err = run("info", "--json", path)
    info = json.loads(info_json)["object"] if status == 0 else {}
    if info.get("symbols") != len(whole["symbols"]):
        fail(f"{name}: info counts {info.get('symbols')} symbols, the dump lists {len(whole['symbols'])}")
    shown = [(s["name"], s["type"]["value"], s["size"]) for s in info.get("sections", [])]
    if shown != [(s["name"], s["type"]["value"], s["size"]) for s in sections]:
        fail(f"{name}: info's sections differ from the dump's")

print(f"objects {len(objects)}, sections dumped one by one {sections_dumped}, "
      f"symbol and relocation tables compared {tables_compared}, failures {failures}")
sys.exit(1 if failures else 0)
EOF
