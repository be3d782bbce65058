// POSIX replacing output: an exclusive temporary beside the target, renamed over it.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <string>

#include "platform/posix/file_token.h"
#include "platform/replace_steps.h"

namespace platform {

// The temporary's descriptor is the FileToken part, so that FileWrite and FileSeek work on it.
struct ReplaceToken : FileToken {
  std::string sTarget;     // the target, or the file its symbolic link names
  std::string sTemporary;  // empty once renamed
  int lockFd = -1;         // the existing target, open and locked; -1 for a new file
  struct stat held = {};   // the locked target's status, for its mode, owner and group
  unsigned uFlags = 0;
};

namespace {

void CloseKeepingError(int fd) {
  const int saved = errno;
  ::close(fd);
  errno = saved;
}

// The file to replace: a symbolic link is followed to the file it names, and refused when that
// file does not exist; with kReplaceNew nothing at all may have the name.
bool FindTarget(ReplaceToken& out) {
  struct stat st;
  const std::string sNamed = out.sTarget;
  if (::lstat(sNamed.c_str(), &st) != 0) return errno == ENOENT;
  if (out.uFlags & kReplaceNew) {
    errno = EEXIST;
    return false;
  }
  if (!S_ISLNK(st.st_mode)) return true;
  char* pszResolved = ::realpath(sNamed.c_str(), nullptr);
  if (!pszResolved) {
    if (errno == ENOENT) errno = static_cast<int>(kErrorDanglingLink);
    return false;
  }
  out.sTarget = pszResolved;
  ::free(pszResolved);
  return true;
}

// Locks the existing target. A process that waited while another renamed a new file over the
// name holds the lock of the old, unlinked file: it then locks the file the name has now.
bool LockTarget(ReplaceToken& out) {
  for (;;) {
    const int fd = ::open(out.sTarget.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT;
    struct stat named;
    // flock belongs to the open file, so the library's own opens and closes do not drop it.
    while (::flock(fd, LOCK_EX) != 0) {
      if (errno != EINTR) {
        CloseKeepingError(fd);
        return false;
      }
    }
    if (::fstat(fd, &out.held) != 0) {
      CloseKeepingError(fd);
      return false;
    }
    if (!S_ISREG(out.held.st_mode)) {
      ::close(fd);
      errno = S_ISDIR(out.held.st_mode) ? EISDIR : static_cast<int>(kErrorNotOrdinaryFile);
      return false;
    }
    if (::stat(out.sTarget.c_str(), &named) == 0 && named.st_dev == out.held.st_dev && named.st_ino == out.held.st_ino) {
      out.lockFd = fd;
      return true;
    }
    ::close(fd);
  }
}

bool RandomBytes(unsigned char* pBytes, std::size_t nBytes) {
  while (nBytes > 0) {
    const ssize_t n = ::getrandom(pBytes, nBytes, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    pBytes += n;
    nBytes -= static_cast<std::size_t>(n);
  }
  return true;
}

bool SyncDirectory(const std::string& sTarget) {
  const std::size_t nSlash = sTarget.rfind('/');
  const std::string sDirectory = nSlash == std::string::npos ? "." : nSlash == 0 ? "/" : sTarget.substr(0, nSlash);
  const int fd = ::open(sDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  // Some file systems cannot sync a directory; their rename is as durable as they make it.
  const bool bSynced = ::fsync(fd) == 0 || errno == EINVAL;
  CloseKeepingError(fd);
  return bSynced;
}

// The replaced file's owner and group where the process may give them, then its mode (a change
// of owner clears the set-user-ID bits that the mode restores).
bool KeepOwnerAndMode(const ReplaceToken& out) {
  if (::fchown(out.fd, out.held.st_uid, out.held.st_gid) != 0) {
    if (errno != EPERM) return false;
    if (::fchown(out.fd, static_cast<uid_t>(-1), out.held.st_gid) != 0 && errno != EPERM) return false;
  }
  return ::fchmod(out.fd, out.held.st_mode & 07777) == 0;
}

}  // namespace

// O_EXCL with O_NOFOLLOW refuses anything planted at the temporary's name, a link included.
bool CreateTemporary(ReplaceToken& out) {
  for (int attempt = 0; attempt < kTemporaryAttempts; ++attempt) {
    unsigned char random[8];
    if (!RandomBytes(random, sizeof random)) return false;
    const std::string sName = TemporaryName(out.sTarget, "/", random);
    const int fd = ::open(sName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0) {
      out.fd = fd;
      out.sTemporary = sName;
      return true;
    }
    if (errno != EEXIST) return false;
  }
  return false;
}

bool CopyTarget(ReplaceToken& out) {
  if (out.lockFd < 0) return true;
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyChunk]);
  if (!buffer) {
    errno = ENOMEM;
    return false;
  }
  FileToken source{out.lockFd};
  for (;;) {
    DWORD dwRead = 0, dwWritten = 0;
    if (!FileRead(&source, buffer.get(), kCopyChunk, &dwRead)) return false;
    if (dwRead == 0) return true;
    if (!FileWrite(static_cast<FileToken*>(&out), buffer.get(), dwRead, &dwWritten)) return false;
  }
}

ReplaceFailure FinishReplace(ReplaceToken& out) {
  // A write that failed gave back the descriptor.
  if (out.fd < 0) {
    errno = EBADF;
    return kReplaceWrite;
  }
  if (out.lockFd >= 0 && !KeepOwnerAndMode(out)) return kReplaceWrite;
  if (::fsync(out.fd) != 0) return kReplaceWrite;
  const int fd = out.fd;
  out.fd = -1;
  if (::close(fd) != 0) return kReplaceWrite;
  // link fails when the name was taken meanwhile, where rename would replace it.
  if (out.uFlags & kReplaceNew) {
    if (::link(out.sTemporary.c_str(), out.sTarget.c_str()) != 0) return kReplaceRename;
    ::unlink(out.sTemporary.c_str());
  } else if (::rename(out.sTemporary.c_str(), out.sTarget.c_str()) != 0) {
    return kReplaceRename;
  }
  out.sTemporary.clear();
  return SyncDirectory(out.sTarget) ? kReplaceDone : kReplaceWrite;
}

ReplaceToken* NewReplaceToken(const char* pszTarget, unsigned uFlags) {
  if (!pszTarget || !*pszTarget) {
    errno = EINVAL;
    return nullptr;
  }
  ReplaceToken* pOut = new (std::nothrow) ReplaceToken;
  if (!pOut) {
    errno = ENOMEM;
    return nullptr;
  }
  pOut->fd = -1;
  pOut->sTarget = pszTarget;
  pOut->uFlags = uFlags;
  return pOut;
}

HANDLE ReplaceHandle(ReplaceToken* pOut) { return static_cast<FileToken*>(pOut); }

ReplaceToken* ReplaceTokenOf(HANDLE hOutput) {
  if (!hOutput) errno = EBADF;
  return static_cast<ReplaceToken*>(Token(hOutput));
}

bool PrepareTarget(ReplaceToken& out) { return FindTarget(out) && ((out.uFlags & kReplaceNew) || LockTarget(out)); }

void ReleaseReplace(ReplaceToken* pOut) {
  const int saved = errno;
  if (pOut->fd >= 0) ::close(pOut->fd);
  if (!pOut->sTemporary.empty()) ::unlink(pOut->sTemporary.c_str());
  if (pOut->lockFd >= 0) ::close(pOut->lockFd);
  delete pOut;
  errno = saved;
}

}  // namespace platform
