#include "sections/section.h"

#include <cstring>
#include <new>

#include "frame/fileio.h"
#include "platform/platform.h"

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

BYTE* ReadFileRegion(I_File* pFile, DWORD dwBase, DWORD dwOffset, DWORD dwSize) {
  if (!pFile || !pFile->GetHandle()) return nullptr;
  // Reading nothing cannot fail, wherever the region is said to begin.
  if (dwSize == 0) return new BYTE[kRegionPadding]();
  const std::uint64_t qwPosition = static_cast<std::uint64_t>(dwBase) + dwOffset;
  std::uint64_t qwFileSize = 0;
  if (!platform::FileSize(pFile->GetHandle(), &qwFileSize)) return nullptr;
  C_File* pBudget = dynamic_cast<C_File*>(pFile);
  if (qwPosition > qwFileSize || dwSize > qwFileSize - qwPosition ||
      (pBudget && !pBudget->TakeFromReadBudget(dwSize))) {
    platform::SetEndOfFileError();
    return nullptr;
  }
  // Zero padding behind the bytes: a block of size 0 is still a block, and a word that begins
  // inside the block ends inside it. Whatever a short read leaves is zeroed too.
  BYTE* pData = new BYTE[static_cast<std::size_t>(dwSize) + kRegionPadding];
  DWORD dwRead = 0;
  if (SeekFileTo(pFile->GetHandle(), qwPosition) != S_OK ||
      ReadFileBlockCounted(pFile->GetHandle(), pData, dwSize, 1, &dwRead) != S_OK) {
    delete[] pData;
    return nullptr;
  }
  memset(pData + dwRead, 0, static_cast<std::size_t>(dwSize) + kRegionPadding - dwRead);
  return pData;
}
