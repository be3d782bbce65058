#include "sections/section.h"

#include <cstring>

HRESULT C_KOfdSection::SetReference(DWORD dwValue) {
  m_dwReference = dwValue;
  return S_OK;
}

HRESULT C_KOfdSection::GetOrigin(DWORD* pdwOrigin) {
  if (pdwOrigin) *pdwOrigin = m_dwOrigin;
  return S_OK;
}

HRESULT C_KOfdSection::GetReference(DWORD* pdwReference) {
  if (pdwReference) *pdwReference = m_dwReference;
  return S_OK;
}

DWORD C_KOfdSection::GetEntryCount() {
  const KEL_SHDR& header = Y_Header();
  return header.sh_entsize ? header.sh_size / header.sh_entsize : 0;
}

HRESULT C_KOfdSection::SetAddress(DWORD dwAddress) {
  Y_Header().sh_addr = dwAddress;
  return S_OK;
}

HRESULT C_KOfdSection::SetLink(DWORD dwLink) {
  Y_Header().sh_link = dwLink;
  return S_OK;
}

HRESULT C_KOfdSection::SetInfo(DWORD dwInfo) {
  Y_Header().sh_info = dwInfo;
  return S_OK;
}

HRESULT C_KOfdSection::SetName(const char* pszName) {
  m_sName = pszName ? pszName : "";
  return S_OK;
}

HRESULT C_KOfdSection::SetAuxiliary(DWORD dwValue) {
  m_dwAuxiliary = dwValue;
  return S_OK;
}

HRESULT C_KOfdSection::GetHeader(KEL_SHDR** ppHeader) {
  if (ppHeader) *ppHeader = &Y_Header();
  return S_OK;
}

std::uint64_t C_KOfdSection::GetKey() {
  std::uint64_t qwKey = 0;
  memcpy(&qwKey, &m_Key, sizeof qwKey);
  return qwKey;
}

HRESULT C_KOfdSection::Attach(I_KOfdSection* pLinked, I_KOfdSection* pInfo) {
  m_pLinked = pLinked;
  m_pInfo = pInfo;
  return S_OK;
}

void C_KOfdSection::SetKey(WORD wIndex, DWORD dwValue, WORD wReserved) {
  m_Key.wIndex = wIndex;
  m_Key.dwValue = dwValue;
  m_Key.wReserved = wReserved;
}

KEL_SHDR& C_KOfdSection::Y_Header() {
  if (m_pHeader) return *m_pHeader;
  m_EmptyHeader = KEL_SHDR{};
  return m_EmptyHeader;
}
