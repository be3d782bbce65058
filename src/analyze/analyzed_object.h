// One object as the analyses see it: its document, its bytes and, inside an archive, the
// member's name. The caller keeps the document and the bytes alive while an analysis runs.
#pragma once

#include <string>

#include "frame/byte_view.h"
#include "object/kofd_elf.h"

namespace kofd_analyze {

struct AnalyzedObject {
  std::string sMember;       // "" for an object that is a file of its own
  I_KOfdELF* pDocument = nullptr;
  C_ByteView bytes;          // the object's own bytes (its file, or its member's data)
};

}  // namespace kofd_analyze
