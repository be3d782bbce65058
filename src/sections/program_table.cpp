#include "sections/storage.h"

// Words that straddle the end of the contents are handed out as they are: the block carries
// zero padding behind the contents, so reading them stays inside it.
HRESULT C_KOfdProgramTable::GetDword(DWORD dwIndex, DWORD** ppWord) {
  const std::uint64_t qwOffset = static_cast<std::uint64_t>(dwIndex) * 4;
  *ppWord = qwOffset < Y_GetCount() ? reinterpret_cast<DWORD*>(Y_GetData() + qwOffset) : nullptr;
  return S_OK;
}

HRESULT C_KOfdProgramTable::GetWord(DWORD dwIndex, WORD** ppHalf) {
  const std::uint64_t qwOffset = static_cast<std::uint64_t>(dwIndex) * 2;
  *ppHalf = qwOffset < Y_GetCount() ? reinterpret_cast<WORD*>(Y_GetData() + qwOffset) : nullptr;
  return S_OK;
}

HRESULT C_KOfdProgramTable::GetByte(DWORD dwOffset, BYTE** ppByte) {
  if (dwOffset >= Y_GetCount()) return KE_OUT_OF_RANGE;
  *ppByte = Y_GetData() + dwOffset;
  return S_OK;
}

HRESULT C_KOfdProgramTable::GetData(BYTE** ppData, DWORD* pdwSize) {
  if (ppData) *ppData = Y_GetData();
  if (pdwSize) *pdwSize = Y_GetCount();
  return S_OK;
}

HRESULT C_KOfdProgramTable::GetSize(DWORD* pdwSize) {
  if (pdwSize) *pdwSize = Y_GetCount();
  return S_OK;
}

HRESULT C_KOfdProgramTable::GetSectionAddress(DWORD* pdwAddress) {
  if (pdwAddress) *pdwAddress = GetAddress();
  return S_OK;
}

HRESULT C_KOfdProgramTable::GetSectionFlags(DWORD* pdwFlags) {
  if (pdwFlags) *pdwFlags = GetFlags();
  return S_OK;
}
