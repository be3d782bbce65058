// Win32 file services.
#include <windows.h>

#include <new>
#include <string>

#include "platform/win32/file_token.h"

namespace platform {
namespace {

bool Usable(FileToken* token) {
  if (token && token->hOs != INVALID_HANDLE_VALUE) return true;
  ::SetLastError(ERROR_INVALID_HANDLE);
  return false;
}

// FILETIME counts 100 ns steps from 1601-01-01.
std::int64_t UnixSeconds(const FILETIME& ft) {
  ULARGE_INTEGER value;
  value.LowPart = ft.dwLowDateTime;
  value.HighPart = ft.dwHighDateTime;
  return static_cast<std::int64_t>(value.QuadPart / 10000000ULL) - 11644473600LL;
}

}  // namespace

HANDLE FileOpen(const char* pszPath, DWORD dwAccess, DWORD dwCreation) {
  ::HANDLE hOs = ::CreateFileA(pszPath, dwAccess, FILE_SHARE_READ, nullptr, dwCreation,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
  if (hOs == INVALID_HANDLE_VALUE) return nullptr;
  LARGE_INTEGER size;
  DWORD dwRefusal = ERROR_SUCCESS;
  if (::GetFileType(hOs) != FILE_TYPE_DISK) {
    dwRefusal = kErrorNotOrdinaryFile;
  } else if (!::GetFileSizeEx(hOs, &size)) {
    dwRefusal = ::GetLastError();
  } else if (static_cast<std::uint64_t>(size.QuadPart) > 0xFFFFFFFFu) {
    dwRefusal = kErrorFileTooLarge;
  }
  if (dwRefusal != ERROR_SUCCESS) {
    ::CloseHandle(hOs);
    ::SetLastError(dwRefusal);
    return nullptr;
  }
  FileToken* token = new (std::nothrow) FileToken{hOs};
  if (!token) {
    ::CloseHandle(hOs);
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  }
  return token;
}

bool FileSeek(HANDLE hFile, std::uint64_t qwOffset) {
  FileToken* token = Token(hFile);
  if (!Usable(token)) return false;
  LARGE_INTEGER distance;
  distance.QuadPart = static_cast<LONGLONG>(qwOffset);
  return ::SetFilePointerEx(token->hOs, distance, nullptr, FILE_BEGIN) != 0;
}

bool FileRead(HANDLE hFile, void* pBuffer, DWORD dwBytes, DWORD* pdwRead) {
  *pdwRead = 0;
  FileToken* token = Token(hFile);
  if (!Usable(token)) return false;
  return ::ReadFile(token->hOs, pBuffer, dwBytes, pdwRead, nullptr) != 0;
}

bool FileWrite(HANDLE hFile, const void* pBuffer, DWORD dwBytes, DWORD* pdwWritten) {
  *pdwWritten = 0;
  FileToken* token = Token(hFile);
  if (!Usable(token)) return false;
  return ::WriteFile(token->hOs, pBuffer, dwBytes, pdwWritten, nullptr) != 0;
}

// Windows copies between handles only as whole files (CopyFileEx): the caller reads and writes.
bool FileCopy(HANDLE, HANDLE, DWORD, DWORD* pdwCopied) {
  *pdwCopied = 0;
  ::SetLastError(kErrorCopyUnsupported);
  return false;
}

// The cache manager writes behind on its own; there is no request to start it.
bool FileStartWriteBack(HANDLE, std::uint64_t, std::uint64_t) { return true; }

void FileRelease(HANDLE hFile) {
  FileToken* token = Token(hFile);
  if (token && token->hOs != INVALID_HANDLE_VALUE) {
    const DWORD saved = ::GetLastError();
    ::CloseHandle(token->hOs);
    token->hOs = INVALID_HANDLE_VALUE;
    ::SetLastError(saved);
  }
}

bool FileClose(HANDLE hFile) {
  FileToken* token = Token(hFile);
  if (!token) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  bool ok = true;
  if (token->hOs != INVALID_HANDLE_VALUE) ok = ::CloseHandle(token->hOs) != 0;
  delete token;
  return ok;
}

bool FileSize(HANDLE hFile, std::uint64_t* pqwSize) {
  FileToken* token = Token(hFile);
  if (!Usable(token)) return false;
  LARGE_INTEGER size;
  if (!::GetFileSizeEx(token->hOs, &size)) return false;
  *pqwSize = static_cast<std::uint64_t>(size.QuadPart);
  return true;
}

bool FileWriteDate(HANDLE hFile, CalendarDate* pDate) {
  FileToken* token = Token(hFile);
  if (!Usable(token)) return false;
  FILETIME ftWrite;
  SYSTEMTIME st;
  if (!::GetFileTime(token->hOs, nullptr, nullptr, &ftWrite)) return false;
  if (!::FileTimeToSystemTime(&ftWrite, &st)) return false;
  pDate->year = st.wYear;
  pDate->month = st.wMonth;
  pDate->day = st.wDay;
  return true;
}

bool PathStatus(const char* pszPath, std::uint64_t* pqwSize, std::int64_t* pllWriteTime) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!::GetFileAttributesExA(pszPath, GetFileExInfoStandard, &data)) return false;
  *pqwSize = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
  *pllWriteTime = UnixSeconds(data.ftLastWriteTime);
  return true;
}

bool PathRemove(const char* pszPath) { return ::DeleteFileA(pszPath) != 0; }

bool PathTaken(const char* pszPath) { return ::GetFileAttributesA(pszPath) != INVALID_FILE_ATTRIBUTES; }

bool PathSearch(const char* pszDirectory, const char* pszName, char* pszOut, DWORD cchOut) {
  char* pszFilePart = nullptr;
  const DWORD length = ::SearchPathA(pszDirectory, pszName, nullptr, cchOut, pszOut, &pszFilePart);
  return length != 0 && length < cchOut;
}

}  // namespace platform
