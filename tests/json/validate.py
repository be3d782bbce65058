#!/usr/bin/env python3
"""Runs kofd with --json as each line of a cases file says and checks every document it writes.

usage: validate.py KOFD_PATH CASES_FILE

A case line is SCHEMA_FILE<TAB>EXPECTED_EXIT<TAB>ARGS[<TAB>GOLDEN]; blank lines and lines starting
with '#' are skipped. ARGS are split as a shell splits words; in them @DATA@ is the directory of
the bundled examples, @TMP@ a directory made for this run (the cases run in order and share it),
and \\xHH one byte, so that names which are not valid UTF-8 can be given. For each case:
  - the exit status is the one expected;
  - after exit 0 (or exit 1 with a document: ar find's "no", a question's "found"), standard output is exactly one JSON document,
    no byte before or after it, no key twice in an object, valid UTF-8, its first keys "schema",
    "command", "file" ("files" for several files), and it is valid against docs/schema/SCHEMA_FILE;
  - after any other failure standard output is empty and standard error says "kofd: ...";
  - with GOLDEN, the document equals tests/golden/json/GOLDEN once parsed, the data and temporary
    directories in its strings read as @DATA@ and @TMP@.
"""
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
from pathlib import Path

import jsonschema

ROOT = Path(__file__).resolve().parents[2]
SCHEMA_DIR = ROOT / "docs" / "schema"
DATA_DIR = ROOT / "examples"
GOLDEN_DIR = ROOT / "tests" / "golden" / "json"


def load_schemas():
    schemas = {}
    for path in sorted(SCHEMA_DIR.glob("*.schema.json")):
        schema = json.loads(path.read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        schemas[path.name] = schema
    return schemas


def make_validator(schemas, name):
    """A draft 2020-12 validator for one schema that resolves the others by their $id."""
    schema = schemas[name]
    try:
        from referencing import Registry, Resource
        from referencing.jsonschema import DRAFT202012
    except ImportError:
        # Older jsonschema (Debian's 4.10) resolves references through RefResolver instead.
        store = {s["$id"]: s for s in schemas.values()}
        resolver = jsonschema.RefResolver.from_schema(schema, store=store)
        return jsonschema.Draft202012Validator(schema, resolver=resolver)
    registry = Registry().with_resources(
        (s["$id"], Resource.from_contents(s, default_specification=DRAFT202012)) for s in schemas.values())
    return jsonschema.Draft202012Validator(schema, registry=registry)


class Pairs(list):
    """An object's members in the order written."""


def no_duplicate_keys(pairs):
    keys = [key for key, _ in pairs]
    if len(keys) != len(set(keys)):
        raise ValueError("a key appears twice in one object: %r" % keys)
    return Pairs(pairs)


def parse_document(data):
    """The one JSON document that data holds, its objects as lists of pairs; raises ValueError."""
    text = data.decode("utf-8")  # strict: the writer escapes every byte that is not valid UTF-8

    def refuse(token):
        raise ValueError("not JSON: " + token)

    decoder = json.JSONDecoder(object_pairs_hook=no_duplicate_keys, parse_constant=refuse)
    if not text or text[0].isspace():
        raise ValueError("standard output does not start with the document")
    value, end = decoder.raw_decode(text)
    if end != len(text):
        raise ValueError("%d bytes after the document: %r" % (len(text) - end, text[end:end + 40]))
    return value


def as_plain(value):
    if isinstance(value, Pairs):
        return {k: as_plain(v) for k, v in value}
    if isinstance(value, list):
        return [as_plain(v) for v in value]
    return value


def relocated(value, replacements):
    """value with each directory in its strings written as its placeholder."""
    if isinstance(value, dict):
        return {k: relocated(v, replacements) for k, v in value.items()}
    if isinstance(value, list):
        return [relocated(v, replacements) for v in value]
    if isinstance(value, str):
        for directory, placeholder in replacements:
            value = value.replace(directory, placeholder)
    return value


def expand(argument, tmp_dir):
    text = argument.replace("@DATA@", str(DATA_DIR)).replace("@TMP@", tmp_dir)
    return re.sub(rb"\\x([0-9a-fA-F]{2})", lambda m: bytes([int(m.group(1), 16)]), text.encode("utf-8"))


def check_lines(data, validator):
    """JSON Lines: every line one document valid against the schema, the first the opening."""
    if not data.endswith(b"\n"):
        return "JSON Lines output does not end with a line feed"
    for number, line in enumerate(data[:-1].split(b"\n"), 1):
        try:
            pairs = parse_document(line)
        except ValueError as error:
            return "line %d is not one JSON document: %s" % (number, error)
        if number == 1 and [k for k, _ in pairs[:3]] != ["schema", "command", "file"]:
            return "the first line does not open with schema, command, file"
        errors = list(validator.iter_errors(as_plain(pairs)))
        if errors:
            return "line %d not valid: %s" % (number, errors[0].message[:300])
    return None


def run_case(kofd, fields, validators, tmp_dir):
    schema_name, expected = fields[0], int(fields[1])
    args = [expand(a, tmp_dir) for a in shlex.split(fields[2])]
    golden = fields[3] if len(fields) > 3 and fields[3] else None
    done = subprocess.run([os.fsencode(kofd)] + args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    if done.returncode != expected:
        return "exit %d, expected %d; stderr: %r" % (done.returncode, expected, done.stderr[:300])
    # A command that answers a question writes its document with exit 1 too ("found", or ar find's "no").
    answered_no = expected == 1 and bool(done.stdout)
    if expected != 0 and not answered_no:
        if done.stdout:
            return "a failure wrote %d bytes on standard output" % len(done.stdout)
        if not done.stderr.startswith(b"kofd"):
            return "a failure without its message on standard error: %r" % done.stderr[:200]
        return None
    if schema_name.endswith("-lines.schema.json"):
        return check_lines(done.stdout, validators[schema_name])
    try:
        pairs = parse_document(done.stdout)
    except ValueError as error:
        return "standard output is not one JSON document: %s" % error
    # Several FILEs make one document of their documents: "files" in the place of "file".
    if not isinstance(pairs, Pairs) or [k for k, _ in pairs[:3]] not in (["schema", "command", "file"], ["schema", "command", "files"]):
        return "the document does not open with schema, command, file (or files)"
    document = as_plain(pairs)
    errors = sorted(validators[schema_name].iter_errors(document), key=lambda e: list(e.absolute_path))
    if errors:
        return "not valid against %s: %s at %s" % (schema_name, errors[0].message[:300], list(errors[0].absolute_path))
    if answered_no and schema_name == "kofd-ar-find.schema.json" and document.get("member") is not None:
        return "exit 1 from ar find with a member"
    if golden:
        golden_path = GOLDEN_DIR / golden
        if not golden_path.is_file():
            return "no golden file %s" % golden_path
        expected_document = json.loads(golden_path.read_text(encoding="utf-8"))
        seen = relocated(document, [(str(DATA_DIR), "@DATA@"), (tmp_dir, "@TMP@")])
        if seen != expected_document:
            return "differs from %s; got:\n%s" % (golden, json.dumps(seen, indent=2)[:2000])
    return None


def main(argv):
    if len(argv) != 3:
        print("usage: validate.py KOFD_PATH CASES_FILE", file=sys.stderr)
        return 2
    kofd, cases_path = argv[1], Path(argv[2])
    schemas = load_schemas()
    validators = {}
    failures = count = 0
    with tempfile.TemporaryDirectory(prefix="kofd-json-") as tmp_dir:
        for number, line in enumerate(cases_path.read_text(encoding="utf-8").splitlines(), 1):
            if not line.strip() or line.startswith("#"):
                continue
            fields = line.split("\t")
            if len(fields) < 3 or fields[0] not in schemas:
                print("%s:%d: a case needs SCHEMA<TAB>EXIT<TAB>ARGS with a known schema" % (cases_path, number))
                failures += 1
                continue
            if fields[0] not in validators:
                validators[fields[0]] = make_validator(schemas, fields[0])
            count += 1
            problem = run_case(kofd, fields, validators, tmp_dir)
            if problem:
                failures += 1
                print("%s:%d: kofd %s: %s" % (cases_path, number, fields[2], problem))
    print("%d cases, %d failed" % (count, failures))
    return 1 if failures or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
