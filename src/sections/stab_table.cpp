#include "sections/stab_table.h"

HRESULT C_KOfdStabTable::GetStabCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdStabTable::GetStabAt(DWORD dwIndex, const char** ppszName, KEL_STAB** ppStab) {
  return GetNamedRecordAt(*this, dwIndex, ppszName, ppStab);
}

HRESULT C_KOfdStabTable::FindStab(const char* pszName, DWORD dwNth, KEL_STAB** ppStab) {
  return FindNth(pszName, dwNth, ppStab);
}

HRESULT C_KOfdStabTable::AddStab(KEL_STAB* pStab, const char* pszName) { return Y_AddNamedInPlace(pszName, pStab); }

HRESULT C_KOfdStabTable::SetNameOffset(KEL_STAB* pStab, DWORD dwOffset) {
  pStab->n_strx = dwOffset;
  return S_OK;
}
