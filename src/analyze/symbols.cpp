#include "analyze/symbols.h"

#include <cctype>
#include <utility>

#include "analyze/analyze_common.h"
#include "object/kelf_header.h"

namespace kofd_analyze {
namespace {

constexpr BYTE kBindWeak = 2;
constexpr BYTE kTypeSection = 3;
constexpr BYTE kTypeFile = 4;
constexpr DWORD kFlagWrite = 1;
constexpr DWORD kFlagAlloc = 2;
constexpr DWORD kFlagExecute = 4;

// The class letter of a global symbol in section wSection, '?' when the object has no such
// section.
char SectionLetter(I_KOfdELF& document, WORD wSection) {
  I_KElfSectionHeader* pSections = nullptr;
  KEL_SHDR* pSection = nullptr;
  if (wSection >= SectionCount(document) || document.GetSectionHeader(&pSections) != S_OK || !pSections ||
      pSections->GetAt(wSection, &pSection) != S_OK || !pSection) {
    return '?';
  }
  if (pSection->sh_flags & kFlagExecute) return 'T';
  if (!(pSection->sh_flags & kFlagAlloc)) return 'N';
  return (pSection->sh_flags & kFlagWrite) ? 'D' : 'R';
}

}  // namespace

char SymbolLetter(I_KOfdELF& document, BYTE bInfo, WORD wSection) {
  const BYTE bBind = bInfo >> 4;
  const bool bUndefined = IsUndefinedSection(wSection);
  if (bBind == kBindWeak) return bUndefined ? 'w' : 'W';
  char cLetter = 'U';
  if (wSection == SHN_KEL_ABS) cLetter = 'A';
  else if (wSection == kSectionCommon) cLetter = 'C';
  else if (!bUndefined) cLetter = SectionLetter(document, wSection);
  // An undefined symbol stays U whatever its bind, as nm shows it; '?' has no lowercase.
  if (bBind == kBindLocal && !bUndefined) cLetter = static_cast<char>(std::tolower(static_cast<unsigned char>(cLetter)));
  return cLetter;
}

std::vector<ListedSymbol> ListSymbols(const std::vector<AnalyzedObject>& objects, SymbolFilter filter) {
  std::vector<ListedSymbol> symbols;
  for (std::size_t o = 0; o < objects.size(); ++o) {
    const AnalyzedObject& object = objects[o];
    if (!object.pDocument) continue;
    I_KOfdELF& document = *object.pDocument;
    ForEachSymbol(document, [&](DWORD dwIndex, const char* pszName, const ELF32_SYM& symbol) {
      const BYTE bType = symbol.st_info & 0xF;
      if (dwIndex == 0 || bType == kTypeSection || bType == kTypeFile) return;
      const bool bUndefined = IsUndefinedSection(symbol.st_shndx);
      if ((filter == SymbolFilter::kDefined && bUndefined) || (filter == SymbolFilter::kUndefined && !bUndefined)) return;
      ListedSymbol listed;
      listed.object = o;
      listed.sMember = object.sMember;
      listed.dwIndex = dwIndex;
      listed.sName = pszName;
      listed.dwValue = symbol.st_value;
      listed.dwSize = symbol.st_size;
      listed.bInfo = symbol.st_info;
      listed.wSection = symbol.st_shndx;
      listed.cLetter = SymbolLetter(document, symbol.st_info, symbol.st_shndx);
      symbols.push_back(std::move(listed));
    });
  }
  return symbols;
}

}  // namespace kofd_analyze
