#include "reloc/expression_table.h"

#include "frame/text.h"

HRESULT C_KOfdExpressionTable::GetCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdExpressionTable::GetSymbol(DWORD dwIndex, const char** ppszName, ELF32_SYM** ppSymbol) {
  KEL_EXP* pRecord = nullptr;
  const HRESULT hr = GetAt(dwIndex, &pRecord);
  if (hr != S_OK) return hr;
  if (pRecord->Type != KEL_EXP_SYM) return S_FALSE;
  I_KOfdSymbolTable* pSymbols = nullptr;
  GetSymbolTable(&pSymbols);
  C_KOfdSymbolTable* pTable = dynamic_cast<C_KOfdSymbolTable*>(pSymbols);
  if (!pTable) return E_POINTER;
  return pTable->GetSymbolAt(pRecord->Value, ppszName, ppSymbol);
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
