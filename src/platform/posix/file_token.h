// The POSIX file handle token, shared by the file services and the replacing output.
#pragma once

#include "platform/platform.h"

namespace platform {

struct FileToken {
  int fd;
};

inline FileToken* Token(HANDLE hFile) { return static_cast<FileToken*>(hFile); }

// Refuses, with the platform's own error, an open file that is not an ordinary file of at most
// 0xFFFFFFFF bytes; a directory is EISDIR.
bool CheckOrdinaryFile(int fd);

}  // namespace platform
