#!/usr/bin/env python3
"""Writes the JSON Schema files of the object document and of kofd dump --json / --json-lines
(docs/schema/kofd-object.schema.json, kofd-dump.schema.json, kofd-dump-lines.schema.json).
The object's shape is stated once here; run it after changing cli/json_object.cpp."""
import copy
import json
import os

here = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "docs", "schema")
DRAFT = "https://json-schema.org/draft/2020-12/schema"
BASE = "https://kofd.invalid/schema/"


COMMON = {"named": "named", "hex": "hex", "u32": "uint32"}  # kept in kofd-common.schema.json


def ref(name):
    if name in COMMON:
        return {"$ref": BASE + "kofd-common.schema.json#/$defs/" + COMMON[name]}
    return {"$ref": "#/$defs/" + name}


def obj(props, required=None, extra=None):
    d = {"type": "object", "properties": props, "additionalProperties": False,
         "required": list(props) if required is None else required}
    if extra:
        d.update(extra)
    return d


def named_key(key):
    # A name, and its exact bytes when they are not valid UTF-8.
    return {key: {"type": "string"}, key + "_hex": ref("hex")}


U32, U16, U8 = ref("u32"), ref("u16"), ref("u8")
common = {
    "u16": {"type": "integer", "minimum": 0, "maximum": 65535},
    "u8": {"type": "integer", "minimum": 0, "maximum": 255},
    "pair": {"type": "array", "items": ref("u32"), "minItems": 2, "maxItems": 2},
}
N = ref("named")
items = {
    "header": obj({"ident": {"type": "string", "pattern": "^[0-9a-f]{32}$"}, "class": N, "data": N, "type": N,
                   "reserved": U16, "chip": N, "version": U32, "entry": U32, "phoff": U32, "shoff": U32,
                   "flags": U32, "ehsize": U16, "phentsize": U16, "phnum": U16, "shentsize": U16, "shnum": U16,
                   "shstrndx": U16}),
    "program_header": obj({"index": U32, "type": N, "offset": U32, "vaddr": U32, "paddr": U32, "filesz": U32,
                           "memsz": U32, "flags": N, "align": U32}),
    "section": obj(dict({"index": U32, "name": {"type": ["string", "null"]}, "name_hex": ref("hex"),
                         "name_offset": U32, "type": N, "flags": N, "address": U32, "offset": U32, "size": U32,
                         "link": U32, "info": U32, "align": U32, "entsize": U32, "records": ref("records"),
                         "contents": ref("hex")}),
                   ["index", "name", "name_offset", "type", "flags", "address", "offset", "size", "link", "info",
                    "align", "entsize"]),
    "symbol": obj(dict({"index": U32, "value": U32, "size": U32, "bind": N, "type": N, "other": U8,
                        "section": U16}, **named_key("name")),
                  ["index", "name", "value", "size", "bind", "type", "other", "section"]),
    "relocation": obj({"section": U32, "index": U32, "offset": U32, "symbol": U32, "type": U8, "bits": ref("pair"),
                       "run": ref("pair"), "value": U32, "error": U32, "expression": {"type": ["string", "null"]},
                       "expression_hex": ref("hex")},
                      ["section", "index", "offset", "symbol", "type", "bits", "run", "expression"],
                      {"oneOf": [{"required": ["value"]}, {"required": ["error"]}]}),
    "gap": obj({"offset": U32, "size": U32, "bytes": ref("hex")}),
}


def record(props, required=None):
    return obj(dict({"index": U32}, **props), required)


string_record = obj(dict({"offset": U32}, **named_key("string")), ["offset", "string"])
records = {"type": "array", "items": {"anyOf": [
    string_record,
    record({"type": N, "value": U32}),
    record({"offset": U32, "symbol": U32, "type": U8, "bits": ref("pair"), "expression": ref("pair")}),
    record({"offset": U32, "line": U32}),
    record(dict({"offset": U32, "line": U32, "name_index": U32}, **named_key("file")),
           ["index", "offset", "line", "name_index"]),
    record({"address": U32, "bank": U32}),
    record({"name_index": U32, "value": U32, "size": U32, "gain": U32}),
    record({"strx": U32, "type": U8, "other": U8, "desc": U16, "value": U32}),
]}}
lists = {"program_headers": "program_header", "sections": "section", "symbols": "symbol",
         "relocations": "relocation", "gaps": "gap"}
object_def = obj(dict({"header": ref("header"), "symbol_table": U32},
                      **{key: {"type": "array", "items": ref(item)} for key, item in lists.items()}), [])

defs = dict(common, **items, records=records, string_record=string_record, object=object_def)
schemas = {
    "kofd-object.schema.json": {"$schema": DRAFT, "$id": BASE + "kofd-object.schema.json",
                                "title": "kofd/1: one KELF object as kofd dump --json shows it",
                                "$ref": "#/$defs/object", "$defs": defs},
}

OBJECT = {"$ref": BASE + "kofd-object.schema.json#/$defs/object"}
member = obj(dict({"index": U32, "offset": U32, "size": U32, "date": U32, "object": OBJECT}, **named_key("name")),
             ["index", "name", "offset", "size", "date", "object"])
archive = obj({
    "linker_member": obj({"version": U32, "symbols": {"type": "array", "items": obj(
        dict({"member": {"type": ["integer", "null"], "minimum": 0}}, **named_key("name")), ["name", "member"])}}),
    "name_member": obj({"names": {"type": "array", "items": string_record}}),
    "members": {"type": "array", "items": member}}, [])
head_props = dict({"schema": {"const": "kofd/1"}, "command": {"const": "dump"},
                   "kind": {"enum": ["object", "archive", "unknown"]}}, **named_key("file"))
# Several FILEs make one document whose "files" are the documents each file alone gives.
dump_document = obj(dict(head_props, object=OBJECT, archive=archive,
                         raw=obj({"size": {"type": "integer", "minimum": 0}, "bytes": ref("hex")})),
                    ["schema", "command", "file", "kind"])
schemas["kofd-dump.schema.json"] = {
    "$schema": DRAFT, "$id": BASE + "kofd-dump.schema.json",
    "title": "kofd/1: kofd dump --json (several FILEs: one document of their documents)",
    "oneOf": [{"$ref": "#/$defs/document"},
              obj({"schema": {"const": "kofd/1"}, "command": {"const": "dump"},
                   "files": {"type": "array", "items": {"$ref": "#/$defs/document"}}},
                  ["schema", "command", "files"])],
    "$defs": dict(common, string_record=string_record, document=dump_document)}

# One line of kofd dump --json-lines: the opening, or one item with its "record" kind.
line_kinds = []
for name, item in items.items():
    variant = copy.deepcopy(item)
    variant["properties"] = dict({"record": {"const": name}}, **variant["properties"])
    variant["required"] = ["record"] + variant["required"]
    line_kinds.append(variant)
schemas["kofd-dump-lines.schema.json"] = {
    "$schema": DRAFT, "$id": BASE + "kofd-dump-lines.schema.json",
    "title": "kofd/1: one line of kofd dump --json-lines",
    "oneOf": [obj(dict(head_props), ["schema", "command", "file", "kind"])] + line_kinds,
    "$defs": dict(common, records=records, string_record=string_record)}

for file_name, schema in schemas.items():
    with open(os.path.join(here, file_name), "w") as out:
        json.dump(schema, out, indent=1)
        out.write("\n")
