#include "report.h"

#include <cstdio>

namespace cli {

int ReportFailure(const std::string& sFile, const C_Exception& error) { return ReportFailure(sFile, error.Message()); }

int ReportFailure(const std::string& sFile, HRESULT hrCode) { return ReportFailure(sFile, FormatCode(hrCode)); }

int ReportFailure(const std::string& sFile, const std::string& sMessage) {
  fflush(stdout);
  fprintf(stderr, "kofd: %s: %s\n", sFile.c_str(), sMessage.c_str());
  return kExitFailure;
}

std::string FormatCode(HRESULT hrCode) {
  char szCode[16];
  snprintf(szCode, sizeof szCode, "0x%08x", static_cast<unsigned>(hrCode));
  return szCode;
}

}  // namespace cli
