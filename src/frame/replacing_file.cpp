#include "frame/replacing_file.h"

#include "frame/error.h"
#include "frame/fileio.h"
#include "platform/platform.h"

namespace {

constexpr std::size_t kStreamBlock = 1u << 16;

[[noreturn]] void ThrowReplaceFailure(platform::ReplaceFailure failure, const std::string& sTarget) {
  switch (failure) {
    case platform::kReplaceTarget: ThrowLibraryError(true, KE_OPEN_FAILED, sTarget.c_str());
    case platform::kReplaceTemporary: ThrowLibraryError(true, KofdCode(IDS_TEMPORARY_FILE_FAILED), nullptr);
    case platform::kReplaceRename: ThrowLibraryError(true, KofdCode(IDS_MOVE_TEMPORARY_FAILED), sTarget.c_str());
    default: ThrowLibraryError(true, KE_WRITE_FAILED, sTarget.c_str());
  }
}

}  // namespace

C_ReplacingFile::C_ReplacingFile(const char* pszTarget, unsigned uFlags) : m_sTarget(pszTarget ? pszTarget : "") {
  platform::ReplaceFailure failure = platform::kReplaceDone;
  m_hOutput = platform::ReplaceBegin(pszTarget, uFlags, &failure);
  if (!m_hOutput) ThrowReplaceFailure(failure, m_sTarget);
}

C_ReplacingFile::~C_ReplacingFile() {
  if (m_hOutput) platform::ReplaceAbandon(m_hOutput);
}

void C_ReplacingFile::Write(const void* pData, DWORD dwSize, const char* pszContext) {
  if (dwSize != 0 && WriteFileBlock(m_hOutput, pData, 1, dwSize) != S_OK) {
    ThrowLibraryError(true, KE_WRITE_FAILED, pszContext ? pszContext : m_sTarget.c_str());
  }
}

std::vector<BYTE> C_ReplacingFile::ReadBack(DWORD dwSize) {
  std::vector<BYTE> vBytes(dwSize);
  DWORD dwDone = 0;
  bool bRead = platform::FileSeek(m_hOutput, 0);
  while (bRead && dwDone < dwSize) {
    DWORD dwRead = 0;
    bRead = platform::FileRead(m_hOutput, vBytes.data() + dwDone, dwSize - dwDone, &dwRead);
    if (bRead && dwRead == 0) {
      platform::SetEndOfFileError();
      bRead = false;
    }
    dwDone += dwRead;
  }
  if (!bRead || !platform::FileSeek(m_hOutput, dwSize)) ThrowLibraryError(true, KE_READ_FAILED, m_sTarget.c_str());
  return vBytes;
}

void C_ReplacingFile::Commit() {
  HANDLE hOutput = m_hOutput;
  m_hOutput = nullptr;
  const platform::ReplaceFailure failure = platform::ReplaceCommit(hOutput);
  if (failure != platform::kReplaceDone) ThrowReplaceFailure(failure, m_sTarget);
}

C_ReplacingStreamBuf::C_ReplacingStreamBuf(C_ReplacingFile& output) : m_Output(output), m_vBlock(kStreamBlock) {
  setp(m_vBlock.data(), m_vBlock.data() + m_vBlock.size());
}

bool C_ReplacingStreamBuf::Z_WriteBlock() {
  const DWORD dwUsed = static_cast<DWORD>(pptr() - pbase());
  setp(m_vBlock.data(), m_vBlock.data() + m_vBlock.size());
  if (m_bFailed) return false;
  DWORD dwWritten = 0;
  if (dwUsed != 0 && (!platform::FileWrite(m_Output.Handle(), m_vBlock.data(), dwUsed, &dwWritten) || dwWritten != dwUsed)) {
    m_bFailed = true;
    m_dwError = platform::LastSystemError();
  }
  return !m_bFailed;
}

C_ReplacingStreamBuf::int_type C_ReplacingStreamBuf::overflow(int_type ch) {
  if (!Z_WriteBlock()) return traits_type::eof();
  if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
  *pptr() = traits_type::to_char_type(ch);
  pbump(1);
  return ch;
}

void C_ReplacingStreamBuf::Drain() {
  if (Z_WriteBlock()) return;
  platform::SetLastSystemError(m_dwError);
  ThrowLibraryError(true, KE_WRITE_FAILED, m_Output.Target().c_str());
}
