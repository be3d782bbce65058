#include "archive/archive_io.h"

#include <cstring>

#include "frame/error.h"
#include "frame/fileio.h"
#include "platform/platform.h"

namespace {

// Members at least this large are copied inside the system: the copy then saves more than the
// write of the buffer in front of it costs.
constexpr DWORD kSystemCopy = 256 * 1024;

}  // namespace

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
  Z_Written(dwSize);
}

void C_KArcWriter::Z_Written(DWORD dwSize) {
  constexpr std::uint64_t kWriteBackStep = 16u << 20;
  m_qwWritten += dwSize;
  if (!m_bWriteBack || m_qwWritten - m_qwHanded < kWriteBackStep) return;
  // Only a hint: a system that refuses it still syncs everything at the end.
  platform::FileStartWriteBack(m_hFile, m_qwHanded, m_qwWritten - m_qwHanded);
  m_qwHanded = m_qwWritten;
}

DWORD C_KArcWriter::CopyFrom(HANDLE hSource, DWORD dwSize, const char* pszContext) {
  if (m_bCopyUnsupported || dwSize == 0) return PutFrom(hSource, dwSize, pszContext);
  Flush();
  DWORD dwCopied = 0;
  if (platform::FileCopy(hSource, m_hFile, dwSize, &dwCopied)) {
    Z_Written(dwCopied);
    return dwCopied;
  }
  if (dwCopied == 0 && platform::LastSystemError() == platform::kErrorCopyUnsupported) {
    m_bCopyUnsupported = true;
    return PutFrom(hSource, dwSize, pszContext);
  }
  ThrowLibraryError(true, KE_WRITE_FAILED, pszContext);
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

DWORD C_KArcWriter::PutFrom(HANDLE hSource, DWORD dwSize, const char* pszContext) {
  constexpr DWORD kCopyBlock = 1024 * 1024;
  if (m_vBuffer.empty()) m_vBuffer.resize(kCopyBlock);
  DWORD dwDone = 0;
  while (dwDone < dwSize) {
    if (m_dwUsed == m_vBuffer.size()) Flush();
    if (m_dwUsed == 0) m_sContext = pszContext;
    const DWORD dwRoom = static_cast<DWORD>(m_vBuffer.size()) - m_dwUsed;
    const DWORD dwWanted = dwSize - dwDone < dwRoom ? dwSize - dwDone : dwRoom;
    DWORD dwRead = 0;
    if (!platform::FileRead(hSource, m_vBuffer.data() + m_dwUsed, dwWanted, &dwRead)) {
      ThrowLibraryError(true, KE_READ_FAILED, pszContext);
    }
    if (dwRead == 0) break;
    m_dwUsed += dwRead;
    dwDone += dwRead;
  }
  return dwDone;
}

void C_KArcWriter::Flush() {
  const DWORD dwUsed = m_dwUsed;
  m_dwUsed = 0;
  Z_Write(m_vBuffer.data(), dwUsed, m_sContext.c_str());
}

C_KArcSources::Source& C_KArcSources::Z_Open(const std::string& sPath) {
  for (Source& source : m_vSources) {
    if (source.sPath == sPath) return source;
  }
  // The oldest file but the first (the archive itself, as a rule) makes room.
  if (m_vSources.size() >= kOpenSources) {
    Source& oldest = m_vSources[1];
    const HANDLE hFile = oldest.hFile;
    const std::string sOld = oldest.sPath;
    m_vSources.erase(m_vSources.begin() + 1);
    if (!platform::FileClose(hFile)) ThrowLibraryError(true, KE_CLOSE_FAILED, sOld.c_str());
  }
  m_vSources.reserve(kOpenSources);
  Source source;
  source.sPath = sPath;
  if (OpenFileForRead(sPath.c_str(), &source.hFile) != S_OK) ThrowLibraryError(true, KE_OPEN_FAILED, sPath.c_str());
  if (!platform::FileSize(source.hFile, &source.qwSize)) {
    platform::FileClose(source.hFile);
    ThrowLibraryError(true, KE_OPEN_FAILED, sPath.c_str());
  }
  m_vSources.push_back(source);
  return m_vSources.back();
}

std::uint64_t C_KArcSources::SizeOf(const std::string& sPath) { return Z_Open(sPath).qwSize; }

void C_KArcSources::Copy(const std::string& sPath, std::uint64_t qwOffset, DWORD dwSize, C_KArcWriter& writer,
                         const char* pszContext) {
  if (dwSize == 0) return;
  Source& source = Z_Open(sPath);
  if (!platform::FileSeek(source.hFile, qwOffset)) ThrowLibraryError(true, KE_READ_FAILED, pszContext);
  // Small members gather in the buffer; a large one is copied inside the system where it can.
  const DWORD dwCopied = dwSize >= kSystemCopy ? writer.CopyFrom(source.hFile, dwSize, pszContext)
                                               : writer.PutFrom(source.hFile, dwSize, pszContext);
  if (dwCopied != dwSize) {
    platform::SetEndOfFileError();
    ThrowLibraryError(true, KE_READ_FAILED, pszContext);
  }
}

C_KArcSources::~C_KArcSources() {
  for (Source& source : m_vSources) platform::FileClose(source.hFile);
}

void C_KArcSources::Close() {
  std::string sFailed;
  for (Source& source : m_vSources) {
    if (!platform::FileClose(source.hFile) && sFailed.empty()) sFailed = source.sPath;
  }
  m_vSources.clear();
  if (!sFailed.empty()) ThrowLibraryError(true, KE_CLOSE_FAILED, sFailed.c_str());
}
