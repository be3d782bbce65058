#include "reloc/expression_table.h"

#include "frame/text.h"

HRESULT C_KOfdExpressionTable::GetCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdExpressionTable::GetSymbol(DWORD dwIndex, const char** ppszName, ELF32_SYM** ppSymbol) {
  KEL_EXP* pRecord = nullptr;
  const HRESULT hr = GetAt(dwIndex, &pRecord);
  return hr != S_OK ? hr : Z_SymbolOf(*pRecord, ppszName, ppSymbol);
}

HRESULT C_KOfdExpressionTable::Z_SymbolOf(const KEL_EXP& token, const char** ppszName, ELF32_SYM** ppSymbol) {
  if (token.Type != KEL_EXP_SYM) return S_FALSE;
  // The linked symbol table, as GetSymbolTable hands it out.
  C_KOfdSymbolTable* pTable = m_Symbols.Get(GetLinkedSection());
  if (!pTable) return E_POINTER;
  return pTable->GetSymbolAt(token.Value, ppszName, ppSymbol);
}

HRESULT C_KOfdExpressionTable::GetToken(DWORD dwIndex, const KEL_EXP** ppToken, const char** ppszName,
                                        ELF32_SYM** ppSymbol) {
  const KEL_EXP& token = *Y_Record(dwIndex);
  *ppToken = &token;
  return token.Type == KEL_EXP_SYM ? Z_SymbolOf(token, ppszName, ppSymbol) : S_OK;
}

HRESULT C_KOfdExpressionTable::GetSymbolTable(I_KOfdSymbolTable** ppTable) {
  *ppTable = dynamic_cast<I_KOfdSymbolTable*>(GetLinkedSection());
  return S_OK;
}

bool C_KOfdExpressionTable::NamesSymbol(const char* pszName) {
  for (DWORD i = 0; i < GetCount(); ++i) {
    const char* pszNamed = nullptr;
    if (Y_Record(i)->Type == KEL_EXP_SYM && GetSymbol(i, &pszNamed, nullptr) == S_OK &&
        kofd_text::EqualIgnoringCase(pszNamed, pszName)) {
      return true;
    }
  }
  return false;
}
