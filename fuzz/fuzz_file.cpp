#include "fuzz_file.h"

#include <unistd.h>

#include <cstdio>

const std::string& WriteFuzzInput(const std::uint8_t* pData, std::size_t nSize) {
  static const std::string sPath = [] {
    const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(dir) + "/kofd_fuzz_" + std::to_string(getpid());
  }();
  FILE* file = fopen(sPath.c_str(), "wb");
  if (file) {
    if (nSize) fwrite(pData, 1, nSize, file);
    fclose(file);
  }
  return sPath;
}
