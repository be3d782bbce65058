#include "object_file.h"

#include <string>

#include "frame/fileio.h"

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

HRESULT FindSelectedSection(I_KOfdELF& document, const std::string& sSelector, I_KOfdSection** ppSection) {
  const bool bIndex = !sSelector.empty() && sSelector.size() <= 9 && sSelector.find_first_not_of("0123456789") == std::string::npos;
  if (!bIndex) return document.FindSection(sSelector.c_str(), ppSection);
  return document.GetSection(static_cast<DWORD>(std::stoul(sSelector)), ppSection);
}

std::string SectionName(I_KOfdELF& document, DWORD dwIndex) {
  const char* pszName = nullptr;
  return document.GetSectionName(dwIndex, &pszName) == S_OK && pszName ? pszName : "";
}

}  // namespace cli
