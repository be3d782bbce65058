// Helpers the analyses share: the sections of a document by class, names of symbols.
#pragma once

#include <string>

#include "object/kofd_elf.h"
#include "reloc/expression_table.h"
#include "reloc/relocation_tables.h"
#include "sections/symbol_table.h"

namespace kofd_analyze {

constexpr BYTE kBindLocal = 0;

inline DWORD SectionCount(I_KOfdELF& document) {
  DWORD dwCount = 0;
  return document.GetSectionCount(&dwCount) == S_OK ? dwCount : 0;
}

// The section object at dwIndex as class T, or null.
template <class T>
T* SectionAs(I_KOfdELF& document, DWORD dwIndex) {
  I_KOfdSection* pSection = nullptr;
  if (document.GetSection(dwIndex, &pSection) != S_OK || !pSection) return nullptr;
  return dynamic_cast<T*>(pSection);
}

inline std::string NameOfSection(I_KOfdELF& document, DWORD dwIndex) {
  const char* pszName = nullptr;
  return document.GetSectionName(dwIndex, &pszName) == S_OK && pszName ? pszName : "";
}

// visit(name, symbol) for every token of the run that indexes a symbol; false when the run cannot
// be walked: no expression table, an index past its end, a run longer than kMaxExpressionRun.
template <class Visit>
bool ForEachRunSymbol(C_KOfdRelxebTable& table, const KEL_RELXEB& record, Visit&& visit) {
  if (record.exp_start > record.exp_end) return true;
  if (record.exp_end - record.exp_start >= kMaxExpressionRun) return false;
  I_KOfdExpressionTable* pInterface = nullptr;
  table.GetExpressionTable(&pInterface);
  C_KOfdExpressionTable* pExpressions = dynamic_cast<C_KOfdExpressionTable*>(pInterface);
  if (!pExpressions) return false;
  const DWORD dwCount = pExpressions->GetCount();
  if (record.exp_end >= dwCount) return false;
  for (DWORD i = record.exp_start;; ++i) {
    const KEL_EXP* pToken = nullptr;
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    if (pExpressions->GetToken(i, &pToken, &pszName, &pSymbol) == S_OK && pToken && pToken->Type == KEL_EXP_SYM &&
        pSymbol && pszName) {
      visit(pszName, *pSymbol);
    }
    if (i == record.exp_end) return true;
  }
}

// visit(name, symbol) for every SYM token of every expression table of the document that
// indexes a symbol.
template <class Visit>
void ForEachSymbolToken(I_KOfdELF& document, Visit&& visit) {
  const DWORD dwSections = SectionCount(document);
  for (DWORD s = 0; s < dwSections; ++s) {
    C_KOfdExpressionTable* pExpressions = SectionAs<C_KOfdExpressionTable>(document, s);
    if (!pExpressions) continue;
    const DWORD dwCount = pExpressions->GetCount();
    for (DWORD i = 0; i < dwCount; ++i) {
      const KEL_EXP* pToken = nullptr;
      const char* pszName = nullptr;
      ELF32_SYM* pSymbol = nullptr;
      if (pExpressions->GetToken(i, &pToken, &pszName, &pSymbol) == S_OK && pToken && pToken->Type == KEL_EXP_SYM &&
          pSymbol && pszName) {
        visit(pszName, *pSymbol);
      }
    }
  }
}

// visit(index, name, symbol) for every symbol of every symbol table of the document.
template <class Visit>
void ForEachSymbol(I_KOfdELF& document, Visit&& visit) {
  const DWORD dwSections = SectionCount(document);
  for (DWORD s = 0; s < dwSections; ++s) {
    C_KOfdSymbolTable* pSymbols = SectionAs<C_KOfdSymbolTable>(document, s);
    if (!pSymbols) continue;
    const DWORD dwCount = pSymbols->GetCount();
    for (DWORD i = 0; i < dwCount; ++i) {
      const char* pszName = nullptr;
      ELF32_SYM* pSymbol = nullptr;
      if (pSymbols->GetSymbolAt(i, &pszName, &pSymbol) == S_OK && pSymbol) visit(i, pszName ? pszName : "", *pSymbol);
    }
  }
}

}  // namespace kofd_analyze
