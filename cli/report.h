// How the tool reports a failure: "kofd: FILE: MESSAGE" on standard error, exit status 1; and a
// usage error: "kofd: CMD: TEXT", exit status 2.
#pragma once

#include <exception>
#include <new>
#include <string>

#include "frame/exception.h"

namespace cli {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// MESSAGE is the exception's text.
int ReportFailure(const std::string& sFile, const C_Exception& error);
// MESSAGE says in words what the bare code means, followed by the code as " (0x%08x)".
int ReportFailure(const std::string& sFile, HRESULT hrCode);
// MESSAGE is sWhat, which says what went wrong, followed by the code as " (0x%08x)".
int ReportFailure(const std::string& sFile, const std::string& sWhat, HRESULT hrCode);
// MESSAGE is the library's out-of-memory text.
int ReportOutOfMemory(const std::string& sFile);
// MESSAGE is the tool's own text. Every failure is one line: a line break in MESSAGE (the
// library puts one before the system's text) and the blanks around it become one blank.
int ReportFailure(const std::string& sFile, const std::string& sMessage);
// sMessage as one line, with every path the tool opened in the place of a given name (standard
// input's copy) shown as that name.
std::string OneLine(const std::string& sMessage);
// Records that the tool opens sOpened where the user named sShown: messages show sShown.
void ShowPathAs(const std::string& sOpened, const std::string& sShown);

// A usage error found by a command itself: "kofd: CMD: TEXT" and a hint, exit 2.
int UsageFailure(const std::string& sCommand, const std::string& sText);
// A bare code as the messages show it: 0x%08x.
std::string FormatCode(HRESULT hrCode);
// sWhat followed by the code: "no section 99, the object has 16 (0x800403f1)".
std::string WithCode(const std::string& sWhat, HRESULT hrCode);
// Words for a bare code, then the code: "out of memory (0x8007000e)".
std::string DescribeCode(HRESULT hrCode);

// A failure the tool itself finds, thrown to be reported like the library's: the tool's own
// text with E_FAIL, or words for what went wrong followed by the code.
[[noreturn]] void Fail(const std::string& sMessage);
[[noreturn]] void Fail(const std::string& sWhat, HRESULT hrCode);

// A failed result of pObject's operation, thrown: the object's own last-error record when it
// holds this failure with a text, else the words for the bare code.
void ThrowIfFailed(HRESULT hr, I_Unknown* pObject);

// Runs a command body; whatever escapes it is reported against sFile. Running out of memory
// anywhere is the library's out-of-memory failure, never an abort.
template <class Body>
int RunReporting(const std::string& sFile, Body&& body) {
  try {
    return body();
  } catch (const C_Exception& error) {
    return ReportFailure(sFile, error);
  } catch (const std::bad_alloc&) {
    return ReportOutOfMemory(sFile);
  } catch (const std::exception& error) {
    return ReportFailure(sFile, std::string(error.what()));
  }
}

// The commands that answer a question (xref, ar check, diff...) exit 0 when all is well, 1 when
// they found something (the body's own status) and 2 on trouble: whatever RunReporting would
// report as a failure.
constexpr int kExitFound = 1;
constexpr int kExitTrouble = 2;

template <class Body>
int RunFinding(const std::string& sFile, Body&& body) {
  bool bFailed = true;
  const int status = RunReporting(sFile, [&] {
    const int bodyStatus = body();
    bFailed = false;
    return bodyStatus;
  });
  return bFailed ? kExitTrouble : status;
}

}  // namespace cli
