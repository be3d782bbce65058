#include "analyze/xref.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>

#include "analyze/analyze_common.h"

namespace kofd_analyze {
namespace {

// Long enough for any run the walk accepts in practice; a longer text is left out.
constexpr DWORD kTextSize = 4096;

bool IsDefinedGlobal(const ELF32_SYM& symbol) {
  return (symbol.st_info >> 4) != kBindLocal && !IsUndefinedSection(symbol.st_shndx);
}

}  // namespace

std::vector<Reference> FindReferences(const std::vector<AnalyzedObject>& objects, const std::string& sSymbol) {
  std::vector<Reference> references;
  std::vector<char> vText(kTextSize);
  for (const AnalyzedObject& object : objects) {
    if (!object.pDocument) continue;
    I_KOfdELF& document = *object.pDocument;
    const DWORD dwSections = SectionCount(document);
    for (DWORD s = 0; s < dwSections; ++s) {
      C_KOfdRelxebTable* pTable = SectionAs<C_KOfdRelxebTable>(document, s);
      if (!pTable) continue;
      const C_RememberedRuns remembered(*pTable);
      // Records naming one run share its answer: each run is walked once, however many name it.
      std::map<std::uint64_t, bool> runs;
      const DWORD dwCount = pTable->GetCount();
      for (DWORD r = 0; r < dwCount; ++r) {
        KEL_RELXEB* pRecord = nullptr;
        if (pTable->GetAt(r, &pRecord) != S_OK || !pRecord) continue;
        const auto known = runs.emplace(static_cast<std::uint64_t>(pRecord->exp_start) << 32 | pRecord->exp_end, false);
        bool& bNames = known.first->second;
        if (known.second) {
          ForEachRunSymbol(*pTable, *pRecord, [&](const char* pszName, const ELF32_SYM&) { bNames = bNames || sSymbol == pszName; });
        }
        if (!bNames) continue;
        Reference reference;
        reference.sMember = object.sMember;
        reference.dwSection = s;
        reference.sSection = NameOfSection(document, s);
        reference.dwRecord = r;
        reference.dwOffset = pRecord->Offset;
        reference.bValue = pTable->Evaluate(r, &reference.dwValue) == S_OK;
        reference.bText = pTable->GetExpressionText(r, vText.data(), kTextSize) == S_OK;
        if (reference.bText) reference.sExpression = vText.data();
        references.push_back(std::move(reference));
      }
    }
  }
  return references;
}

std::vector<UndefinedSymbol> FindUndefined(const std::vector<AnalyzedObject>& objects) {
  std::set<std::string> defined;
  for (const AnalyzedObject& object : objects) {
    if (!object.pDocument) continue;
    ForEachSymbol(*object.pDocument, [&](DWORD, const char* pszName, const ELF32_SYM& symbol) {
      if (IsDefinedGlobal(symbol)) defined.insert(pszName);
    });
  }
  std::map<std::string, std::vector<std::string>> undefined;
  for (const AnalyzedObject& object : objects) {
    if (!object.pDocument) continue;
    ForEachSymbolToken(*object.pDocument, [&](const char* pszName, const ELF32_SYM& symbol) {
      if (!IsUndefinedSection(symbol.st_shndx) || defined.count(pszName)) return;
      std::vector<std::string>& members = undefined[pszName];
      if (members.empty() || members.back() != object.sMember) members.push_back(object.sMember);
    });
  }
  std::vector<UndefinedSymbol> result;
  for (auto& entry : undefined) result.push_back({entry.first, std::move(entry.second)});
  return result;
}

std::vector<UnreferencedSymbol> FindUnreferenced(const std::vector<AnalyzedObject>& objects) {
  std::set<std::string> named;
  for (const AnalyzedObject& object : objects) {
    if (!object.pDocument) continue;
    ForEachSymbolToken(*object.pDocument, [&](const char* pszName, const ELF32_SYM&) { named.insert(pszName); });
  }
  std::vector<UnreferencedSymbol> result;
  for (const AnalyzedObject& object : objects) {
    if (!object.pDocument) continue;
    ForEachSymbol(*object.pDocument, [&](DWORD, const char* pszName, const ELF32_SYM& symbol) {
      if (*pszName && IsDefinedGlobal(symbol) && !named.count(pszName)) result.push_back({pszName, object.sMember});
    });
  }
  return result;
}

}  // namespace kofd_analyze
