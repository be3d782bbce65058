// The Win32 file handle token, shared by the file services and the replacing output.
#pragma once

#include <windows.h>

#include "platform/platform.h"

namespace platform {

struct FileToken {
  ::HANDLE hOs;
};

inline FileToken* Token(HANDLE hFile) { return static_cast<FileToken*>(hFile); }

}  // namespace platform
