// An object or an archive opened whole for the analyses (xref, diff): each object with its
// document, its bytes and, in an archive, its member's name.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "analyze/analyzed_object.h"
#include "archive/archive.h"
#include "archive/object_member.h"
#include "object_file.h"

namespace cli {

struct AnalyzedFile {
  FileKind kind = FileKind::kOther;
  std::unique_ptr<C_KOfdELF4> object;
  std::unique_ptr<C_KOfdArchive> archive;
  std::vector<BYTE> vBytes;
  std::vector<kofd_analyze::AnalyzedObject> objects;  // the object, or every member in order
};

// Opens sPath and every member of it, with their bytes when bBytes; throws what the library
// reports, and a file that is neither an object nor an archive as the library's "not an object file".
void OpenForAnalysis(const std::string& sPath, AnalyzedFile& file, bool bBytes = true);

}  // namespace cli
