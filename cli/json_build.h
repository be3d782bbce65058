// An object made from a JSON document of schema "kofd/1": the inverse of `kofd dump --json`.
//
//   exact   a `dump --json --contents` object (offsets, every section's contents, the gaps):
//           its bytes are put back where they lay and saved through the image's kept layout,
//           so the object that was dumped comes back byte for byte
//   fresh   a hand-written object (no offsets): sections in order, a symbol table made from
//           "symbols", laid out compactly
//
// A document is accepted as `dump --json` writes it ({"schema": "kofd/1", ..., "object": {...}}),
// as {"object": {...}}, or as the object itself. A document that cannot be built is refused with
// words that name its JSON path ("object.sections[3].contents: odd number of hex digits") before
// anything is written.
#pragma once

#include <string>

#include "frame/types.h"

class C_ReplacingFile;

namespace cli {

struct BuildResult {
  bool bExact = false;
  DWORD dwSections = 0;
  DWORD dwSize = 0;
};

// Builds the object that sText describes and writes it through output (committed on success).
// Throws C_ImageFailure with the reason when the document is refused or the save fails.
BuildResult BuildObjectFromJson(const std::string& sText, C_ReplacingFile& output);

}  // namespace cli
