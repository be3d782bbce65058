#include "archive/archive_io.h"

#include <cstring>

#include "frame/error.h"
#include "frame/fileio.h"
#include "platform/platform.h"

C_KArcReadWindow::C_KArcReadWindow(I_File* pFile, DWORD dwWindowSize) : m_pFile(pFile) {
  m_vWindow.resize(dwWindowSize);
}

bool C_KArcReadWindow::Holds(std::uint64_t qwOffset, DWORD dwSize) {
  HANDLE hFile = m_pFile ? m_pFile->GetHandle() : nullptr;
  if (!hFile) return false;
  if (!m_bSized) {
    if (!platform::FileSize(hFile, &m_qwFileSize)) return false;
    m_bSized = true;
  }
  if (qwOffset > m_qwFileSize || dwSize > m_qwFileSize - qwOffset) {
    platform::SetEndOfFileError();
    return false;
  }
  return true;
}

bool C_KArcReadWindow::ReadAt(std::uint64_t qwOffset, void* pOut, DWORD dwSize) {
  if (!Holds(qwOffset, dwSize)) return false;
  if (dwSize == 0) return true;
  HANDLE hFile = m_pFile->GetHandle();
  const bool bInWindow = qwOffset >= m_qwWindowStart && qwOffset - m_qwWindowStart <= m_dwWindowUsed &&
                         dwSize <= m_dwWindowUsed - (qwOffset - m_qwWindowStart);
  if (!bInWindow) {
    if (dwSize > m_vWindow.size()) {
      DWORD dwRead = 0;
      return SeekFileTo(hFile, qwOffset) == S_OK && ReadFileBlockCounted(hFile, pOut, dwSize, 1, &dwRead) == S_OK &&
             dwRead == dwSize;
    }
    const std::uint64_t qwLeft = m_qwFileSize - qwOffset;
    const DWORD dwWanted = qwLeft < m_vWindow.size() ? static_cast<DWORD>(qwLeft) : static_cast<DWORD>(m_vWindow.size());
    DWORD dwRead = 0;
    m_dwWindowUsed = 0;
    if (SeekFileTo(hFile, qwOffset) != S_OK || ReadFileBlockCounted(hFile, m_vWindow.data(), dwWanted, 1, &dwRead) != S_OK) {
      return false;
    }
    m_qwWindowStart = qwOffset;
    m_dwWindowUsed = dwRead;
    if (dwRead < dwSize) {
      platform::SetEndOfFileError();
      return false;
    }
  }
  memcpy(pOut, m_vWindow.data() + (qwOffset - m_qwWindowStart), dwSize);
  return true;
}

C_KArcWriter::C_KArcWriter(I_File* pFile, DWORD dwBufferSize)
    : C_KArcWriter(pFile ? pFile->GetHandle() : nullptr, dwBufferSize) {}

C_KArcWriter::C_KArcWriter(HANDLE hFile, DWORD dwBufferSize) : m_hFile(hFile) { m_vBuffer.resize(dwBufferSize); }

void C_KArcWriter::Z_Write(const void* pData, DWORD dwSize, const char* pszContext) {
  if (dwSize == 0) return;
  if (WriteFileBlock(m_hFile, pData, 1, dwSize) != S_OK) {
    ThrowLibraryError(true, KE_WRITE_FAILED, pszContext);
  }
}

void C_KArcWriter::Put(const void* pData, DWORD dwSize, const char* pszContext) {
  if (m_vBuffer.size() - m_dwUsed < dwSize) Flush();
  if (dwSize > m_vBuffer.size()) {
    Z_Write(pData, dwSize, pszContext);
    return;
  }
  if (m_dwUsed == 0) m_sContext = pszContext;
  memcpy(m_vBuffer.data() + m_dwUsed, pData, dwSize);
  m_dwUsed += dwSize;
}

void C_KArcWriter::Flush() {
  const DWORD dwUsed = m_dwUsed;
  m_dwUsed = 0;
  Z_Write(m_vBuffer.data(), dwUsed, m_sContext.c_str());
}
