#include "object_file.h"

#include <cstdlib>

#include "frame/fileio.h"
#include "frame/text.h"

namespace cli {

FileKind KindOfFile(const std::string& sPath) {
  if (IsObjectFile(sPath.c_str()) == S_OK) return FileKind::kObject;
  return IsArchiveFile(sPath.c_str()) == S_OK ? FileKind::kArchive : FileKind::kOther;
}

void OpenArchive(C_KOfdArchive& archive, const std::string& sPath) {
  archive.AttachPath(sPath.c_str(), 0);
  archive.Open();
}

std::unique_ptr<C_KOfdELF4> OpenObject(const std::string& sPath) {
  auto document = std::make_unique<C_KOfdELF4>();
  document->AttachPath(sPath.c_str(), 0);
  document->Read();
  return document;
}

bool ResolveSection(I_KOfdELF& document, const std::string& sSelector, DWORD* pdwIndex) {
  DWORD dwCount = 0;
  document.GetSectionCount(&dwCount);
  if (!sSelector.empty() && sSelector.find_first_not_of("0123456789") == std::string::npos) {
    const unsigned long long index = std::strtoull(sSelector.c_str(), nullptr, 10);
    if (sSelector.size() > 10 || index >= dwCount) return false;
    *pdwIndex = static_cast<DWORD>(index);
    return true;
  }
  for (DWORD i = 0; i < dwCount; ++i) {
    if (kofd_text::EqualIgnoringCase(SectionName(document, i).c_str(), sSelector.c_str())) {
      *pdwIndex = i;
      return true;
    }
  }
  return false;
}

std::string SectionName(I_KOfdELF& document, DWORD dwIndex) {
  const char* pszName = nullptr;
  return document.GetSectionName(dwIndex, &pszName) == S_OK && pszName ? pszName : "";
}

}  // namespace cli
