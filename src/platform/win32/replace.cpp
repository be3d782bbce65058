// Win32 replacing output: an exclusive temporary beside the target, moved over it. Windows gives
// no symbolic-link following, mode or owner keeping here: the moved file takes the temporary's
// attributes and the directory's inherited security.
#define _CRT_RAND_S
#include <stdlib.h>
#include <windows.h>

#include <memory>
#include <new>
#include <string>

#include "platform/replace_steps.h"
#include "platform/win32/file_token.h"

namespace platform {

struct ReplaceToken : FileToken {
  std::string sTarget;
  std::string sTemporary;  // empty once moved
  ::HANDLE hLock = INVALID_HANDLE_VALUE;
  unsigned uFlags = 0;
};

namespace {

void CloseKeepingError(::HANDLE& hOs) {
  if (hOs == INVALID_HANDLE_VALUE) return;
  const DWORD saved = ::GetLastError();
  ::CloseHandle(hOs);
  hOs = INVALID_HANDLE_VALUE;
  ::SetLastError(saved);
}

bool SameFile(::HANDLE hFirst, const std::string& sPath) {
  ::HANDLE hSecond = ::CreateFileA(sPath.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (hSecond == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION first, second;
  const bool bSame = ::GetFileInformationByHandle(hFirst, &first) && ::GetFileInformationByHandle(hSecond, &second) &&
                     first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
                     first.nFileIndexHigh == second.nFileIndexHigh && first.nFileIndexLow == second.nFileIndexLow;
  ::CloseHandle(hSecond);
  return bSame;
}

// Locks one byte far past any data: Windows locks are mandatory, and readers must still read.
// A process that waited while another moved a new file over the name locks that file instead.
bool LockTarget(ReplaceToken& out) {
  for (;;) {
    ::HANDLE hLock = ::CreateFileA(out.sTarget.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hLock == INVALID_HANDLE_VALUE) return ::GetLastError() == ERROR_FILE_NOT_FOUND;
    OVERLAPPED place = {};
    place.Offset = 0xFFFFFFFFu;
    place.OffsetHigh = 0x7FFFFFFFu;
    if (::GetFileType(hLock) != FILE_TYPE_DISK) {
      ::CloseHandle(hLock);
      ::SetLastError(kErrorNotOrdinaryFile);
      return false;
    }
    if (!::LockFileEx(hLock, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &place)) {
      CloseKeepingError(hLock);
      return false;
    }
    if (SameFile(hLock, out.sTarget)) {
      out.hLock = hLock;
      return true;
    }
    ::CloseHandle(hLock);
  }
}

}  // namespace

bool CreateTemporary(ReplaceToken& out) {
  for (int attempt = 0; attempt < kTemporaryAttempts; ++attempt) {
    unsigned char random[8];
    for (unsigned char& byte : random) {
      unsigned int uRandom = 0;
      if (rand_s(&uRandom) != 0) {
        ::SetLastError(ERROR_GEN_FAILURE);
        return false;
      }
      byte = static_cast<unsigned char>(uRandom);
    }
    const std::string sName = TemporaryName(out.sTarget, "\\/", random);
    out.hOs = ::CreateFileA(sName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL,
                            nullptr);
    if (out.hOs != INVALID_HANDLE_VALUE) {
      out.sTemporary = sName;
      return true;
    }
    if (::GetLastError() != ERROR_FILE_EXISTS) return false;
  }
  return false;
}

bool CopyTarget(ReplaceToken& out) {
  if (out.hLock == INVALID_HANDLE_VALUE) return true;
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyChunk]);
  if (!buffer) {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return false;
  }
  for (;;) {
    DWORD dwRead = 0, dwWritten = 0;
    if (!::ReadFile(out.hLock, buffer.get(), kCopyChunk, &dwRead, nullptr)) return false;
    if (dwRead == 0) return true;
    if (!::WriteFile(out.hOs, buffer.get(), dwRead, &dwWritten, nullptr) || dwWritten != dwRead) return false;
  }
}

ReplaceFailure FinishReplace(ReplaceToken& out) {
  if (out.hOs == INVALID_HANDLE_VALUE) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return kReplaceWrite;
  }
  if (!::FlushFileBuffers(out.hOs)) return kReplaceWrite;
  const BOOL bClosed = ::CloseHandle(out.hOs);
  out.hOs = INVALID_HANDLE_VALUE;
  if (!bClosed) return kReplaceWrite;
  // Windows cannot move a file over one that is open: the lock ends just before the move.
  CloseKeepingError(out.hLock);
  const DWORD dwMove = MOVEFILE_WRITE_THROUGH | ((out.uFlags & kReplaceNew) ? 0 : MOVEFILE_REPLACE_EXISTING);
  if (!::MoveFileExA(out.sTemporary.c_str(), out.sTarget.c_str(), dwMove)) return kReplaceRename;
  out.sTemporary.clear();
  return kReplaceDone;
}

ReplaceToken* NewReplaceToken(const char* pszTarget, unsigned uFlags) {
  if (!pszTarget || !*pszTarget) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  ReplaceToken* pOut = new (std::nothrow) ReplaceToken;
  if (!pOut) {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  pOut->hOs = INVALID_HANDLE_VALUE;
  pOut->sTarget = pszTarget;
  pOut->uFlags = uFlags;
  return pOut;
}

HANDLE ReplaceHandle(ReplaceToken* pOut) { return static_cast<FileToken*>(pOut); }

ReplaceToken* ReplaceTokenOf(HANDLE hOutput) {
  if (!hOutput) ::SetLastError(ERROR_INVALID_HANDLE);
  return static_cast<ReplaceToken*>(Token(hOutput));
}

bool PrepareTarget(ReplaceToken& out) {
  if (!(out.uFlags & kReplaceNew)) return LockTarget(out);
  if (!PathTaken(out.sTarget.c_str())) return true;
  ::SetLastError(ERROR_FILE_EXISTS);
  return false;
}

void ReleaseReplace(ReplaceToken* pOut) {
  const DWORD saved = ::GetLastError();
  CloseKeepingError(pOut->hOs);
  if (!pOut->sTemporary.empty()) ::DeleteFileA(pOut->sTemporary.c_str());
  CloseKeepingError(pOut->hLock);
  delete pOut;
  ::SetLastError(saved);
}
}  // namespace platform
