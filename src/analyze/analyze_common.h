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

// visit(table) for every section of the document whose object is of class T.
template <class T, class Visit>
void ForEachSectionAs(I_KOfdELF& document, Visit&& visit) {
  const DWORD dwSections = SectionCount(document);
  for (DWORD s = 0; s < dwSections; ++s) {
    if (T* pTable = SectionAs<T>(document, s)) visit(*pTable);
  }
}

// visit(name, symbol) when token dwIndex of the expression table is a SYM token that indexes a
// symbol.
template <class Visit>
void VisitSymbolToken(C_KOfdExpressionTable& expressions, DWORD dwIndex, Visit& visit) {
  const KEL_EXP* pToken = nullptr;
  const char* pszName = nullptr;
  ELF32_SYM* pSymbol = nullptr;
  if (expressions.GetToken(dwIndex, &pToken, &pszName, &pSymbol) == S_OK && pToken && pToken->Type == KEL_EXP_SYM && pSymbol &&
      pszName) {
    visit(pszName, *pSymbol);
  }
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
  if (!pExpressions || record.exp_end >= pExpressions->GetCount()) return false;
  for (DWORD i = record.exp_start;; ++i) {
    VisitSymbolToken(*pExpressions, i, visit);
    if (i == record.exp_end) return true;
  }
}

// visit(name, symbol) for every SYM token of every expression table of the document that
// indexes a symbol.
template <class Visit>
void ForEachSymbolToken(I_KOfdELF& document, Visit&& visit) {
  ForEachSectionAs<C_KOfdExpressionTable>(document, [&](C_KOfdExpressionTable& expressions) {
    const DWORD dwCount = expressions.GetCount();
    for (DWORD i = 0; i < dwCount; ++i) VisitSymbolToken(expressions, i, visit);
  });
}

// visit(index, name, symbol) for every symbol of every symbol table of the document.
template <class Visit>
void ForEachSymbol(I_KOfdELF& document, Visit&& visit) {
  ForEachSectionAs<C_KOfdSymbolTable>(document, [&](C_KOfdSymbolTable& symbols) {
    const DWORD dwCount = symbols.GetCount();
    for (DWORD i = 0; i < dwCount; ++i) {
      const char* pszName = nullptr;
      ELF32_SYM* pSymbol = nullptr;
      if (symbols.GetSymbolAt(i, &pszName, &pSymbol) == S_OK && pSymbol) visit(i, pszName ? pszName : "", *pSymbol);
    }
  });
}

}  // namespace kofd_analyze
