// How the tool reports a failure: "kofd: FILE: MESSAGE" on standard error, exit status 1.
#pragma once

#include <string>

#include "frame/exception.h"

namespace cli {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// MESSAGE is the exception's text.
int ReportFailure(const std::string& sFile, const C_Exception& error);
// MESSAGE is the bare code as 0x%08x.
int ReportFailure(const std::string& sFile, HRESULT hrCode);
// MESSAGE is the tool's own text.
int ReportFailure(const std::string& sFile, const std::string& sMessage);
// A bare code as the messages show it: 0x%08x.
std::string FormatCode(HRESULT hrCode);

// Runs a command body; a C_Exception that escapes it is reported against sFile.
template <class Body>
int RunReporting(const std::string& sFile, Body&& body) {
  try {
    return body();
  } catch (const C_Exception& error) {
    return ReportFailure(sFile, error);
  }
}

}  // namespace cli
