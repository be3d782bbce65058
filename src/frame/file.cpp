#include "frame/file.h"

#include "frame/error.h"
#include "frame/fileio.h"
#include "platform/platform.h"

C_File::~C_File() { Close(); }

void C_File::Z_Store(const char* pszPath, const char* pszName, DWORD dwAttributeB) {
  m_sPath = pszPath ? pszPath : "";
  m_sName = pszName ? pszName : "";
  m_dwAttributeB = dwAttributeB;
}

HRESULT C_File::Attach(const char* pszPath, const char* pszName, DWORD dwAttributeB, DWORD dwAttributeA,
                       DWORD dwSizeLow) {
  Reset();
  Z_Store(pszPath, pszName, dwAttributeB);
  m_dwAttributeA = dwAttributeA;
  m_dwSizeLow = dwSizeLow;
  return S_OK;
}

HRESULT C_File::AttachWithSize(const char* pszPath, const char* pszName, DWORD dwAttributeB) {
  Reset();
  Z_Store(pszPath, pszName, dwAttributeB);
  if (Open(1) != S_OK) ThrowLibraryError(true, KE_OPEN_FAILED, m_sPath.c_str());
  std::uint64_t qwSize = 0;
  const bool bSized = platform::FileSize(m_hFile, &qwSize);
  Close();
  if (!bSized) ThrowLibraryError(true, KE_READ_FAILED, m_sPath.c_str());
  m_dwSizeLow = static_cast<DWORD>(qwSize & 0xFFFFFFFFu);
  m_dwSizeHigh = static_cast<DWORD>(qwSize >> 32);
  return S_OK;
}

HRESULT C_File::AttachPath(const char* pszPath, DWORD dwAttributeB) {
  return AttachWithSize(pszPath, pszPath, dwAttributeB);
}

HRESULT C_File::AssignFrom(I_File* pOther) {
  if (!pOther) return E_POINTER;
  if (pOther == static_cast<I_File*>(this)) return S_OK;
  Close();
  // The interface shows only the short name; another C_File gives its stored name as it is.
  C_File* pFile = dynamic_cast<C_File*>(pOther);
  m_sName = pFile ? pFile->m_sName : std::string(pOther->GetFileName() ? pOther->GetFileName() : "");
  m_dwAttributeA = pOther->GetAttributeA();
  m_hFile = pOther->GetHandle();
  m_bOwnsHandle = false;
  m_dwSizeLow = pOther->GetSize(&m_dwSizeHigh);
  m_dwAttributeB = pOther->GetAttributeB();
  m_sPath = pOther->GetPath() ? pOther->GetPath() : "";
  return S_OK;
}

const char* C_File::GetFileName() {
  const std::string::size_type slash = m_sName.rfind('\\');
  return slash == std::string::npos ? m_sName.c_str() : m_sName.c_str() + slash + 1;
}

DWORD C_File::GetSize(DWORD* pdwSizeHigh) {
  if (pdwSizeHigh) *pdwSizeHigh = m_dwSizeHigh;
  return m_dwSizeLow;
}

HRESULT C_File::Open(DWORD dwMode) {
  if (m_hFile) return S_FALSE;
  const DWORD dwAccess = (dwMode + 1) * KOFD_GENERIC_WRITE;
  const DWORD dwCreation = dwMode + 2;
  if (OpenFileWith(m_sPath.c_str(), dwAccess, dwCreation, &m_hFile) != S_OK) {
    m_hFile = nullptr;
    return KE_OPEN_FAILED;
  }
  m_bOwnsHandle = true;
  return S_OK;
}

HRESULT C_File::Close() {
  if (!m_hFile) return S_OK;
  HANDLE hFile = m_hFile;
  const bool bOwned = m_bOwnsHandle;
  // The token is gone after a close, whether the system reported success or not.
  m_hFile = nullptr;
  m_bOwnsHandle = false;
  if (bOwned && CloseFileHandle(hFile) != S_OK) return KE_CLOSE_FAILED;
  return S_OK;
}

HRESULT C_File::Reset() {
  m_sPath.clear();
  m_sName.clear();
  m_dwAttributeA = 0;
  m_dwAttributeB = 0;
  m_dwSizeLow = 0;
  m_dwSizeHigh = 0;
  return Close();
}
