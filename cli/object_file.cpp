#include "object_file.h"

#include <cstdint>
#include <string>
#include <vector>

#include "escape.h"
#include "frame/error.h"
#include "frame/fileio.h"
#include "frame/text.h"
#include "report.h"
#include "suggest.h"

namespace cli {

FileKind KindOfFile(const std::string& sPath) {
  if (IsObjectFile(sPath.c_str()) == S_OK) return FileKind::kObject;
  return IsArchiveFile(sPath.c_str()) == S_OK ? FileKind::kArchive : FileKind::kOther;
}

void OpenArchive(C_KOfdArchive& archive, const std::string& sPath) {
  archive.AttachPath(sPath.c_str(), 0);
  ThrowIfFailed(archive.Open(), &archive);
}

C_KOfdELF4& MemberDocument(C_KArcObjectMember& member) {
  I_KOfdELF* pElf = nullptr;
  const HRESULT hr = member.GetDocument(&pElf);
  C_KOfdELF4* pDocument = hr == S_OK ? dynamic_cast<C_KOfdELF4*>(pElf) : nullptr;
  if (!pDocument) ThrowLibraryError(false, hr != S_OK ? hr : E_POINTER, member.GetName());
  return *pDocument;
}

C_KOfdELF4& MemberObject(C_KOfdArchive& archive, const std::string& sName) {
  DWORD dwIndex = 0;
  const HRESULT hr = archive.FindMember(sName.c_str(), &dwIndex);
  if (hr != S_OK) Fail("no member named " + EscapeText(sName), hr);
  return MemberDocument(archive.MemberAt(dwIndex));
}

namespace {

std::unique_ptr<C_KOfdELF4> OpenWith(const std::string& sPath, HRESULT (C_KOfdELF::*read)()) {
  auto document = std::make_unique<C_KOfdELF4>();
  document->AttachPath(sPath.c_str(), 0);
  ThrowIfFailed(((*document).*read)(), document.get());
  return document;
}

}  // namespace

std::unique_ptr<C_KOfdELF4> OpenObject(const std::string& sPath) { return OpenWith(sPath, &C_KOfdELF::Read); }

std::unique_ptr<C_KOfdELF4> OpenObjectHeaders(const std::string& sPath) {
  return OpenWith(sPath, &C_KOfdELF::ReadHeaders);
}

I_KOfdSection* SelectSection(C_KOfdELF& document, const std::string& sSelector) {
  DWORD dwIndex = 0;
  std::uint64_t qwIndex = 0;
  if (!kofd_text::SelectorIndex(sSelector, &qwIndex)) {
    const HRESULT hr = document.FindSectionIndex(sSelector.c_str(), &dwIndex);
    if (hr != S_OK) {
      // The nearest name, when one is close enough to be the one meant.
      std::vector<std::string> vNames;
      DWORD dwCount = 0;
      document.GetSectionCount(&dwCount);
      for (DWORD i = 0; i < dwCount; ++i) vNames.push_back(SectionName(document, i));
      const std::string sNearest = NearestName(sSelector, vNames);
      Fail("no section named " + EscapeText(sSelector) + (sNearest.empty() ? "" : "; did you mean \"" + EscapeText(sNearest) + "\"?"), hr);
    }
  } else {
    DWORD dwCount = 0;
    document.GetSectionCount(&dwCount);
    if (qwIndex >= dwCount) Fail("no section " + sSelector + ", the object has " + std::to_string(dwCount), KE_OUT_OF_RANGE);
    dwIndex = static_cast<DWORD>(qwIndex);
  }
  I_KOfdSection* pSection = nullptr;
  ThrowIfFailed(document.GetSection(dwIndex, &pSection), &document);
  return pSection;
}

std::string SectionName(I_KOfdELF& document, DWORD dwIndex) {
  const char* pszName = nullptr;
  return document.GetSectionName(dwIndex, &pszName) == S_OK && pszName ? pszName : "";
}

}  // namespace cli
