#include "sections/symbol_table.h"

HRESULT C_KOfdSymbolTable::GetSymbolCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdSymbolTable::FindSymbolName(const char* pszName, const char** ppszStored, ELF32_SYM** ppSymbol) {
  return FindName(pszName, ppszStored, ppSymbol);
}

HRESULT C_KOfdSymbolTable::GetSymbolSection(const char* pszName, I_KOfdSection** ppSection) {
  ELF32_SYM* pSymbol = nullptr;
  if (FindSymbolName(pszName, nullptr, &pSymbol) != S_OK) return E_FAIL;
  // Only these three are refused: every other index, reserved ones included, is asked for.
  const WORD wIndex = pSymbol->st_shndx;
  if (IsUndefinedSection(wIndex) || wIndex == SHN_KEL_ABS) return E_FAIL;
  I_KOfdSectionHost* pHost = GetHost();
  if (!pHost || pHost->GetSectionByIndex(wIndex, ppSection) != S_OK) return E_FAIL;
  return S_OK;
}

HRESULT C_KOfdSymbolTable::CheckUndefined(DWORD dwIndex) {
  if (dwIndex >= GetCount() || !IsUndefinedSection(Y_Record(dwIndex)->st_shndx)) return S_OK;
  // Expressions name symbols through the document's expression table; without one, nothing
  // refers to an undefined symbol.
  I_KOfdSectionHost* pHost = GetHost();
  I_KOfdSymbolReferences* pReferences = pHost ? pHost->GetSymbolReferences() : nullptr;
  return pReferences && pReferences->NamesSymbol(GetSymbolName(Y_Record(dwIndex))) ? E_FAIL : S_OK;
}

HRESULT C_KOfdSymbolTable::AddSymbol(ELF32_SYM* pSymbol, const char* pszName) {
  return Y_AddNamedInPlace(pszName, pSymbol);
}

HRESULT C_KOfdSymbolTable::GetFirstGlobal(DWORD* pdwIndex) {
  *pdwIndex = GetInfo() != 0 ? GetInfo() : GetCount();
  return S_OK;
}

HRESULT C_KOfdSymbolTable::FindSymbolNth(const char* pszName, DWORD dwNth, ELF32_SYM** ppSymbol) {
  return FindNth(pszName, dwNth, ppSymbol);
}

HRESULT C_KOfdSymbolTable::FindSymbol(const char* pszName, ELF32_SYM** ppSymbol) {
  return FindSymbolNth(pszName, 0, ppSymbol);
}

HRESULT C_KOfdSymbolTable::Rebase() {
  I_KOfdSectionHost* pHost = GetHost();
  for (DWORD i = 0; i < GetCount(); ++i) {
    ELF32_SYM* pSymbol = Y_Record(i);
    if (IsUndefinedSection(pSymbol->st_shndx) || pSymbol->st_shndx == SHN_KEL_ABS) continue;
    I_KOfdSection* pSection = nullptr;
    if (!pHost || pHost->GetSectionByIndex(pSymbol->st_shndx, &pSection) != S_OK || !pSection) return E_FAIL;
    pSymbol->st_value += pSection->GetAddress();
  }
  return S_OK;
}

HRESULT C_KOfdSymbolTable::ProbeHash(const char* pszName, DWORD* pdwHash) {
  if (!pszName) return E_FAIL;
  if (pdwHash) *pdwHash = HashName(pszName);
  return CountOf(pszName) != 0 ? S_OK : E_FAIL;
}

HRESULT C_KOfdSymbolTable::SetNameOffset(ELF32_SYM* pSymbol, DWORD dwOffset) {
  pSymbol->st_name = dwOffset;
  return S_OK;
}

HRESULT C_KOfdSymbolTable::GetSymbolAt(DWORD dwIndex, const char** ppszName, ELF32_SYM** ppSymbol) {
  if (dwIndex >= GetCount()) return E_FAIL;
  ELF32_SYM* pSymbol = Y_Record(dwIndex);
  if (ppszName) *ppszName = GetSymbolName(pSymbol);
  if (ppSymbol) *ppSymbol = pSymbol;
  return S_OK;
}

const char* C_KOfdSymbolTable::GetSymbolName(const ELF32_SYM* pSymbol) { return GetRecordName(pSymbol); }
