#include "sections/share_rom_table.h"

HRESULT C_KOfdShareRomTable::GetWord(DWORD dwIndex, DWORD** ppWord) {
  if (dwIndex >= Y_GetCount()) return KE_OUT_OF_RANGE;
  *ppWord = Y_GetData() + dwIndex;
  return S_OK;
}

HRESULT C_KOfdShareRomTable::GetData(DWORD** ppWords, DWORD* pdwBytes) {
  if (ppWords) *ppWords = Y_GetData();
  if (pdwBytes) *pdwBytes = Y_GetByteSize();
  return S_OK;
}

HRESULT C_KOfdShareRomTable::GetCount(DWORD* pdwCount) {
  if (pdwCount) *pdwCount = Y_GetCount();
  return S_OK;
}
