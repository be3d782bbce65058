#include "fuzz_file.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <streambuf>

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

namespace {

class C_NullBuffer : public std::streambuf {
 protected:
  std::streamsize xsputn(const char*, std::streamsize nLength) override { return nLength; }
  int_type overflow(int_type ch) override { return traits_type::not_eof(ch); }
};

}  // namespace

std::ostream& NullStream() {
  static C_NullBuffer buffer;
  static std::ostream stream(&buffer);
  static const bool bSilenced = (std::cout.rdbuf(&buffer), std::freopen("/dev/null", "w", stdout) != nullptr);
  (void)bSilenced;
  return stream;
}
