#include "report.h"

#include <cstdio>
#include <utility>
#include <vector>

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

namespace {
std::vector<std::pair<std::string, std::string>>& ShownPaths() {
  static std::vector<std::pair<std::string, std::string>> paths;
  return paths;
}
}  // namespace

void ShowPathAs(const std::string& sOpened, const std::string& sShown) { ShownPaths().emplace_back(sOpened, sShown); }

std::string OneLine(const std::string& sMessage) {
  std::string sLine;
  for (std::size_t i = 0; i < sMessage.size();) {
    const char ch = sMessage[i];
    if (ch == '\n' || ch == '\r') {
      // The blanks before the break and after it go with it.
      while (!sLine.empty() && (sLine.back() == ' ' || sLine.back() == '\t')) sLine.pop_back();
      while (i < sMessage.size() && (sMessage[i] == '\n' || sMessage[i] == '\r' || sMessage[i] == ' ' || sMessage[i] == '\t')) ++i;
      if (!sLine.empty() && i < sMessage.size()) sLine += ' ';
      continue;
    }
    sLine += ch;
    ++i;
  }
  for (const auto& path : ShownPaths()) {
    for (std::size_t at = 0; (at = sLine.find(path.first, at)) != std::string::npos; at += path.second.size()) {
      sLine.replace(at, path.first.size(), path.second);
    }
  }
  return sLine;
}

int ReportFailure(const std::string& sFile, const std::string& sMessage) {
  fflush(stdout);
  fprintf(stderr, "kofd: %s: %s\n", OneLine(sFile).c_str(), OneLine(sMessage).c_str());
  return kExitFailure;
}

int UsageFailure(const std::string& sCommand, const std::string& sText) {
  fflush(stdout);
  fprintf(stderr, "kofd: %s: %s\nRun kofd %s --help for more information.\n", sCommand.c_str(), OneLine(sText).c_str(),
          sCommand.c_str());
  return kExitUsage;
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
