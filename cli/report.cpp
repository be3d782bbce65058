#include "report.h"

#include <cstdio>

namespace cli {

int ReportFailure(const std::string& sFile, const C_Exception& error) {
  fflush(stdout);
  fprintf(stderr, "kofd: %s: %s\n", sFile.c_str(), error.Message().c_str());
  return kExitFailure;
}

int ReportFailure(const std::string& sFile, HRESULT hrCode) {
  fflush(stdout);
  fprintf(stderr, "kofd: %s: 0x%08x\n", sFile.c_str(), static_cast<unsigned>(hrCode));
  return kExitFailure;
}

}  // namespace cli
