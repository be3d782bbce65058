#include "sections/kmd_tables.h"

HRESULT C_KOfdKmdInfoTable::GetKdmCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdKmdInfoTable::GetKdmWithName(DWORD dwIndex, const char** ppszName, KEL_KMDINFO** ppEntry) {
  return GuardAllocation(*this, [&] {
    KEL_KMDINFO* pEntry = nullptr;
    GetAt(dwIndex, &pEntry);
    if (ppszName) *ppszName = GetRecordName(pEntry);
    if (ppEntry) *ppEntry = pEntry;
    return S_OK;
  });
}

HRESULT C_KOfdKmdInfoTable::GetKdm(DWORD dwIndex, KEL_KMDINFO** ppEntry) {
  *ppEntry = nullptr;
  return GuardAllocation(*this, [&] { return GetAt(dwIndex, ppEntry); });
}

// A duplicate name is stored in the list all the same; the name index keeps the first entry.
HRESULT C_KOfdKmdInfoTable::AddKdm(const char* pszName, const KEL_KMDINFO* pEntry) {
  return Y_AddNamed(pszName ? pszName : "", pEntry);
}

HRESULT C_KOfdKmdInfoTable::LinkStringTable(I_KOfdSection* pStrings) {
  return Attach(pStrings, GetInfoSection());
}

HRESULT C_KOfdKmdInfoTable::SetNameOffset(KEL_KMDINFO* pEntry, DWORD dwOffset) {
  pEntry->NameIndex = dwOffset;
  return S_OK;
}

// An empty block (a section of size 0) counts as no data, like a section never loaded.
HRESULT C_KOfdKmdTable::GetData(BYTE** ppData) {
  if (!Y_GetData() || Y_GetCount() == 0) return E_FAIL;
  *ppData = Y_GetData();
  return S_OK;
}

HRESULT C_KOfdKmdTable::GetPlacement(DWORD* pdwAddress, DWORD* pdwSize, DWORD* pdwInfo) {
  if (pdwAddress) *pdwAddress = GetAddress();
  if (pdwSize) *pdwSize = GetSize();
  if (pdwInfo) *pdwInfo = GetInfo();
  return S_OK;
}
