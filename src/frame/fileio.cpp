#include "frame/fileio.h"

#include <cstring>

#include "platform/platform.h"

HRESULT OpenFileWith(const char* pszPath, DWORD dwAccess, DWORD dwCreation, HANDLE* phFile) {
  *phFile = platform::FileOpen(pszPath, dwAccess, dwCreation);
  return *phFile ? S_OK : E_FAIL;
}

HRESULT OpenFileForRead(const char* pszPath, HANDLE* phFile) {
  return OpenFileWith(pszPath, KOFD_GENERIC_READ, KOFD_OPEN_EXISTING, phFile);
}

HRESULT OpenFileForWrite(const char* pszPath, HANDLE* phFile) {
  return OpenFileWith(pszPath, KOFD_GENERIC_WRITE, KOFD_CREATE_ALWAYS, phFile);
}

HRESULT SeekFileTo(HANDLE hFile, std::uint64_t qwOffset) {
  return platform::FileSeek(hFile, qwOffset) ? S_OK : E_FAIL;
}

HRESULT ReadFileBlock(HANDLE hFile, void* pBuffer, DWORD dwSize, DWORD dwCount) {
  DWORD dwRead = 0;
  return ReadFileBlockCounted(hFile, pBuffer, dwSize, dwCount, &dwRead);
}

HRESULT ReadFileBlockCounted(HANDLE hFile, void* pBuffer, DWORD dwSize, DWORD dwCount, DWORD* pdwRead) {
  DWORD& dwRead = *pdwRead;
  dwRead = 0;
  if (dwSize == 0 || dwCount == 0) return S_OK;
  const std::uint64_t qwBytes = static_cast<std::uint64_t>(dwSize) * dwCount;
  bool bRead = qwBytes <= 0xFFFFFFFFu && platform::FileRead(hFile, pBuffer, static_cast<DWORD>(qwBytes), &dwRead);
  if (bRead && dwRead == 0) {
    platform::SetEndOfFileError();
    bRead = false;
  }
  if (!bRead) {
    platform::FileRelease(hFile);
    return E_FAIL;
  }
  return S_OK;
}

HRESULT WriteFileBlock(HANDLE hFile, const void* pBuffer, DWORD dwSize, DWORD dwCount) {
  const std::uint64_t qwBytes = static_cast<std::uint64_t>(dwSize) * dwCount;
  DWORD dwWritten = 0;
  if (qwBytes > 0xFFFFFFFFu ||
      !platform::FileWrite(hFile, pBuffer, static_cast<DWORD>(qwBytes), &dwWritten) ||
      dwWritten != qwBytes) {
    platform::FileRelease(hFile);
    return E_FAIL;
  }
  return S_OK;
}

HRESULT CloseFileHandle(HANDLE hFile) { return platform::FileClose(hFile) ? S_OK : E_FAIL; }

HRESULT DeleteFilePath(const char* pszPath) { return platform::PathRemove(pszPath) ? S_OK : E_FAIL; }

namespace {

// Reads the first cb bytes at dwOffset and compares them with pMagic (only the first cbCompared).
HRESULT ProbeAt(HANDLE hFile, DWORD dwOffset, const char* pMagic, DWORD cb, DWORD cbCompared) {
  char buffer[8] = {0};
  if (SeekFileTo(hFile, dwOffset) != S_OK) return E_FAIL;
  if (ReadFileBlock(hFile, buffer, cb, 1) != S_OK) return E_FAIL;
  return memcmp(buffer, pMagic, cbCompared) == 0 ? S_OK : S_FALSE;
}

template <class Probe>
HRESULT ProbePath(const char* pszPath, Probe probe) {
  HANDLE hFile = nullptr;
  if (OpenFileForRead(pszPath, &hFile) != S_OK) return E_FAIL;
  const HRESULT hr = probe(hFile);
  CloseFileHandle(hFile);
  return hr;
}

}  // namespace

HRESULT IsObjectFileAt(HANDLE hFile, DWORD dwOffset) { return ProbeAt(hFile, dwOffset, "\x7F" "ELF", 4, 4); }
HRESULT IsArchiveFileAt(HANDLE hFile, DWORD dwOffset) { return ProbeAt(hFile, dwOffset, "!<arch>\n", 8, 8); }
HRESULT IsNameFileAt(HANDLE hFile, DWORD dwOffset) { return ProbeAt(hFile, dwOffset, "NF", 4, 2); }

HRESULT IsObjectFile(const char* pszPath) {
  return ProbePath(pszPath, [](HANDLE h) { return IsObjectFileAt(h, 0); });
}
HRESULT IsArchiveFile(const char* pszPath) {
  return ProbePath(pszPath, [](HANDLE h) { return IsArchiveFileAt(h, 0); });
}
HRESULT IsNameFile(const char* pszPath) {
  return ProbePath(pszPath, [](HANDLE h) { return IsNameFileAt(h, 0); });
}

HRESULT GetChipOfObjectFile(const char* pszPath, DWORD* pdwChip) {
  return ProbePath(pszPath, [pdwChip](HANDLE hFile) {
    const HRESULT hr = IsObjectFileAt(hFile, 0);
    if (hr != S_OK) return hr;
    BYTE header[56] = {0};
    if (SeekFileTo(hFile, 0) != S_OK || ReadFileBlock(hFile, header, sizeof header, 1) != S_OK) return E_FAIL;
    const BYTE* p = header + 20;
    // DATA 2 marks a big-endian header.
    *pdwChip = header[5] == 2 ? (DWORD(p[0]) << 24) | (DWORD(p[1]) << 16) | (DWORD(p[2]) << 8) | p[3]
                              : (DWORD(p[3]) << 24) | (DWORD(p[2]) << 16) | (DWORD(p[1]) << 8) | p[0];
    return S_OK;
  });
}

HRESULT GetDateOfFile(const char* pszPath, WORD* pwYear, WORD* pwMonth, WORD* pwDay) {
  return ProbePath(pszPath, [=](HANDLE hFile) {
    platform::CalendarDate date;
    if (!platform::FileWriteDate(hFile, &date)) return E_FAIL;
    *pwYear = static_cast<WORD>(date.year);
    *pwMonth = static_cast<WORD>(date.month);
    *pwDay = static_cast<WORD>(date.day);
    return S_OK;
  });
}

HRESULT FilesDiffer(const char* pszFirst, const char* pszSecond) {
  HANDLE hFirst = nullptr;
  HANDLE hSecond = nullptr;
  HRESULT hr = E_FAIL;
  if (OpenFileForRead(pszFirst, &hFirst) == S_OK && OpenFileForRead(pszSecond, &hSecond) == S_OK) {
    std::uint64_t qwFirst = 0, qwSecond = 0;
    BYTE bFirst = 0, bSecond = 0;
    if (!platform::FileSize(hFirst, &qwFirst) || !platform::FileSize(hSecond, &qwSecond)) {
      hr = E_FAIL;
    } else if (qwFirst != qwSecond) {
      hr = 1;
    } else if (ReadFileBlock(hFirst, &bFirst, 1, 1) != S_OK || ReadFileBlock(hSecond, &bSecond, 1, 1) != S_OK) {
      hr = E_FAIL;
    } else {
      hr = bFirst != bSecond ? 1 : 0;
    }
  }
  if (hFirst) CloseFileHandle(hFirst);
  if (hSecond) CloseFileHandle(hSecond);
  return hr;
}

HRESULT SearchFileIn(char* pszOut, const char* pszName, const char* const* ppszDirectories) {
  for (const char* const* dir = ppszDirectories; dir && *dir; ++dir) {
    if (platform::PathSearch(*dir, pszName, pszOut, kMaxPath)) return S_OK;
  }
  return platform::PathSearch(nullptr, pszName, pszOut, kMaxPath) ? S_OK : E_FAIL;
}
