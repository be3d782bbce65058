// One object as a JSON value of the "kofd/1" documents: what the object document read, in the
// keys docs/schema/kofd-common.schema.json names ("object"):
//
//   header            the file header, enumerated fields as {value, name}
//   program_headers   every program header
//   sections          every section header with its name; "records" for the tables the library
//                     reads as records; "contents" (hex) with --contents
//   symbols           the symbol table the document keeps
//   relocations       every record of the relocation tables of type 22, evaluated
//   gaps              with --contents: every byte of the file no header, table or section holds
//
// When the writer writes JSON Lines, the same items come one a line, each with "record": "header",
// "program_header", "section", "symbol", "relocation" or "gap", in that order.
#pragma once

#include <vector>

#include "frame/byte_view.h"
#include "json_writer.h"
#include "object/kofd_elf.h"
#include "reloc/relocation_tables.h"

namespace cli {

struct ObjectJsonParts {
  bool bHeader = true;
  bool bProgramHeaders = true;
  bool bSectionHeaders = true;     // every section's header
  std::vector<DWORD> vSections;    // sections shown whole (header and records); all when bAll
  bool bAll = true;                // every section whole, the symbols and the relocations
  bool bContents = false;          // contents and gaps, from the object's bytes
};

// Writes the object as the value of the key the caller wrote. bytes are the object's own bytes
// (its file, or its archive member's data), read for contents and gaps.
void WriteObjectJson(C_JsonWriter& json, I_KOfdELF& document, const C_ByteView& bytes, const ObjectJsonParts& parts);

// One record of a relocation table of type 22, evaluated, as "relocations" lists it; the caller
// keeps the table's runs remembered (C_RememberedRuns) for a whole listing.
void WriteRelocationJson(C_JsonWriter& json, C_KOfdRelxebTable& table, DWORD dwSection, DWORD dwRecord);

// KEY: every NUL-terminated string of the bytes with its offset (an unterminated end as it stands).
void WriteStringsJson(C_JsonWriter& json, std::string_view sKey, const C_ByteView& bytes);

}  // namespace cli
