#include "report.h"

#include <cstdio>

#include "frame/error.h"

namespace cli {

int ReportFailure(const std::string& sFile, const C_Exception& error) { return ReportFailure(sFile, error.Message()); }

int ReportFailure(const std::string& sFile, HRESULT hrCode) { return ReportFailure(sFile, DescribeCode(hrCode)); }

int ReportFailure(const std::string& sFile, const std::string& sWhat, HRESULT hrCode) {
  return ReportFailure(sFile, WithCode(sWhat, hrCode));
}

int ReportOutOfMemory(const std::string& sFile) {
  C_Exception record;
  RecordOutOfMemory(record);
  return ReportFailure(sFile, record);
}

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

std::string WithCode(const std::string& sWhat, HRESULT hrCode) { return sWhat + " (" + FormatCode(hrCode) + ")"; }

std::string DescribeCode(HRESULT hrCode) {
  const char* pszWords = "the operation failed";
  switch (static_cast<DWORD>(hrCode)) {
    case static_cast<DWORD>(E_OUTOFMEMORY): pszWords = "out of memory"; break;
    case static_cast<DWORD>(E_POINTER): pszWords = "there is no such table or item in the file"; break;
    case static_cast<DWORD>(E_INVALIDARG): pszWords = "an argument the file cannot take"; break;
    case static_cast<DWORD>(KE_OUT_OF_RANGE): pszWords = "an index past the end of its table"; break;
    default:
      if ((static_cast<DWORD>(hrCode) & 0xFFFF0000u) == 0x80040000u) pszWords = "the file is damaged or cannot be read";
      break;
  }
  return WithCode(pszWords, hrCode);
}

void Fail(const std::string& sMessage) { throw C_Exception(E_FAIL, sMessage.c_str()); }

void Fail(const std::string& sWhat, HRESULT hrCode) {
  throw C_Exception(hrCode, WithCode(sWhat, hrCode).c_str());
}

void ThrowIfFailed(HRESULT hr, I_Unknown* pObject) {
  if (hr >= 0) return;
  if (const C_Exception* pRecord = dynamic_cast<const C_Exception*>(pObject)) {
    if (pRecord->Code() == hr && !pRecord->Message().empty()) throw C_Exception(*pRecord);
  }
  throw C_Exception(hr, DescribeCode(hr).c_str());
}

}  // namespace cli
