// POSIX file services.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <new>
#include <string>

#include "platform/posix/file_token.h"

namespace platform {
namespace {

int OpenFlags(DWORD dwAccess, DWORD dwCreation) {
  int flags = O_CLOEXEC;
  const bool read = (dwAccess & KOFD_GENERIC_READ) != 0;
  const bool write = (dwAccess & KOFD_GENERIC_WRITE) != 0;
  flags |= read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY;
  switch (dwCreation) {
    case KOFD_CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    case KOFD_CREATE_ALWAYS: flags |= O_CREAT | O_TRUNC; break;
    case KOFD_OPEN_EXISTING: break;
    case KOFD_OPEN_ALWAYS: flags |= O_CREAT; break;
    case KOFD_TRUNCATE_EXISTING: flags |= O_TRUNC; break;
    default: return -1;
  }
  return flags;
}

}  // namespace

bool CheckOrdinaryFile(int fd) {
  struct stat st;
  if (::fstat(fd, &st) != 0) return false;
  if (S_ISDIR(st.st_mode)) {
    errno = EISDIR;
  } else if (!S_ISREG(st.st_mode)) {
    errno = static_cast<int>(kErrorNotOrdinaryFile);
  } else if (static_cast<std::uint64_t>(st.st_size) > 0xFFFFFFFFu) {
    errno = static_cast<int>(kErrorFileTooLarge);
  } else {
    return true;
  }
  return false;
}

HANDLE FileOpen(const char* pszPath, DWORD dwAccess, DWORD dwCreation) {
  const int flags = OpenFlags(dwAccess, dwCreation);
  if (!pszPath || flags < 0) {
    errno = EINVAL;
    return nullptr;
  }
  // Without O_NONBLOCK the open of a FIFO waits for a writer; the check comes first.
  const int fd = ::open(pszPath, flags | O_NONBLOCK, 0666);
  if (fd < 0) return nullptr;
  if (!CheckOrdinaryFile(fd) || ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return nullptr;
  }
  FileToken* token = new (std::nothrow) FileToken{fd};
  if (!token) {
    ::close(fd);
    errno = ENOMEM;
  }
  return token;
}

bool FileSeek(HANDLE hFile, std::uint64_t qwOffset) {
  FileToken* token = Token(hFile);
  if (!token || token->fd < 0) {
    errno = EBADF;
    return false;
  }
  if (qwOffset > static_cast<std::uint64_t>(INT64_MAX)) {
    errno = EINVAL;
    return false;
  }
  return ::lseek(token->fd, static_cast<off_t>(qwOffset), SEEK_SET) >= 0;
}

bool FileRead(HANDLE hFile, void* pBuffer, DWORD dwBytes, DWORD* pdwRead) {
  *pdwRead = 0;
  FileToken* token = Token(hFile);
  if (!token || token->fd < 0) {
    errno = EBADF;
    return false;
  }
  // One request in the Win32 sense: keep reading until the bytes are in or the file ends.
  char* p = static_cast<char*>(pBuffer);
  DWORD done = 0;
  while (done < dwBytes) {
    const ssize_t n = ::read(token->fd, p + done, dwBytes - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      *pdwRead = done;
      return false;
    }
    if (n == 0) break;
    done += static_cast<DWORD>(n);
  }
  *pdwRead = done;
  return true;
}

bool FileWrite(HANDLE hFile, const void* pBuffer, DWORD dwBytes, DWORD* pdwWritten) {
  *pdwWritten = 0;
  FileToken* token = Token(hFile);
  if (!token || token->fd < 0) {
    errno = EBADF;
    return false;
  }
  const char* p = static_cast<const char*>(pBuffer);
  DWORD done = 0;
  while (done < dwBytes) {
    const ssize_t n = ::write(token->fd, p + done, dwBytes - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      *pdwWritten = done;
      return false;
    }
    done += static_cast<DWORD>(n);
  }
  *pdwWritten = done;
  return true;
}

bool FileCopy(HANDLE hSource, HANDLE hTarget, DWORD dwBytes, DWORD* pdwCopied) {
  *pdwCopied = 0;
  FileToken* source = Token(hSource);
  FileToken* target = Token(hTarget);
  if (!source || source->fd < 0 || !target || target->fd < 0) {
    errno = EBADF;
    return false;
  }
  DWORD done = 0;
  while (done < dwBytes) {
    const ssize_t n = ::copy_file_range(source->fd, nullptr, target->fd, nullptr, dwBytes - done, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      // Systems or file pairs without the call: nothing copied yet, the caller reads and writes.
      if (done == 0 && (errno == ENOSYS || errno == EXDEV || errno == EOPNOTSUPP || errno == EINVAL)) {
        errno = static_cast<int>(kErrorCopyUnsupported);
      }
      *pdwCopied = done;
      return false;
    }
    if (n == 0) break;
    done += static_cast<DWORD>(n);
  }
  *pdwCopied = done;
  return true;
}

bool FileStartWriteBack(HANDLE hFile, std::uint64_t qwOffset, std::uint64_t qwBytes) {
  FileToken* token = Token(hFile);
  if (!token || token->fd < 0) {
    errno = EBADF;
    return false;
  }
#if defined(__linux__)
  return ::sync_file_range(token->fd, static_cast<off_t>(qwOffset), static_cast<off_t>(qwBytes), SYNC_FILE_RANGE_WRITE) == 0;
#else
  (void)qwOffset;
  (void)qwBytes;
  return true;
#endif
}

void FileRelease(HANDLE hFile) {
  FileToken* token = Token(hFile);
  if (token && token->fd >= 0) {
    const int saved = errno;
    ::close(token->fd);
    token->fd = -1;
    errno = saved;
  }
}

bool FileClose(HANDLE hFile) {
  FileToken* token = Token(hFile);
  if (!token) {
    errno = EBADF;
    return false;
  }
  bool ok = true;
  if (token->fd >= 0) ok = ::close(token->fd) == 0;
  delete token;
  return ok;
}

bool FileSize(HANDLE hFile, std::uint64_t* pqwSize) {
  FileToken* token = Token(hFile);
  struct stat st;
  if (!token || token->fd < 0) {
    errno = EBADF;
    return false;
  }
  if (::fstat(token->fd, &st) != 0) return false;
  *pqwSize = static_cast<std::uint64_t>(st.st_size);
  return true;
}

bool FileWriteDate(HANDLE hFile, CalendarDate* pDate) {
  FileToken* token = Token(hFile);
  struct stat st;
  if (!token || token->fd < 0) {
    errno = EBADF;
    return false;
  }
  if (::fstat(token->fd, &st) != 0) return false;
  struct tm tmUtc;
  if (!::gmtime_r(&st.st_mtime, &tmUtc)) return false;
  pDate->year = static_cast<unsigned>(tmUtc.tm_year + 1900);
  pDate->month = static_cast<unsigned>(tmUtc.tm_mon + 1);
  pDate->day = static_cast<unsigned>(tmUtc.tm_mday);
  return true;
}

bool PathStatus(const char* pszPath, std::uint64_t* pqwSize, std::int64_t* pllWriteTime) {
  struct stat st;
  if (!pszPath || ::stat(pszPath, &st) != 0) return false;
  *pqwSize = static_cast<std::uint64_t>(st.st_size);
  *pllWriteTime = static_cast<std::int64_t>(st.st_mtime);
  return true;
}

bool PathRemove(const char* pszPath) { return pszPath && ::unlink(pszPath) == 0; }

bool PathTaken(const char* pszPath) {
  struct stat st;
  return pszPath && ::lstat(pszPath, &st) == 0;
}

bool PathSearch(const char* pszDirectory, const char* pszName, char* pszOut, DWORD cchOut) {
  if (!pszName || !pszOut || cchOut == 0) return false;
  auto tryPath = [&](const std::string& candidate) {
    struct stat st;
    if (::stat(candidate.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
    if (candidate.size() >= cchOut) return false;
    memcpy(pszOut, candidate.c_str(), candidate.size() + 1);
    return true;
  };
  if (pszDirectory) {
    std::string dir(pszDirectory);
    if (!dir.empty() && dir.back() != '/') dir += '/';
    return tryPath(pszName[0] == '/' ? std::string(pszName) : dir + pszName);
  }
  // The default search: the name as given (relative to the current directory), then PATH.
  if (tryPath(pszName)) return true;
  const char* path = ::getenv("PATH");
  if (!path) return false;
  std::string list(path);
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    std::string dir = list.substr(start, end - start);
    if (dir.empty()) dir = ".";
    if (tryPath(dir + "/" + pszName)) return true;
    start = end + 1;
  }
  return false;
}

}  // namespace platform
