#include "frame/error.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/platform.h"

#if defined(__GNUC__)
#include <cxxabi.h>
#include <cstdlib>
#endif

namespace {

constexpr size_t kMessageSize = 1024;

// Appends pszText to the buffer, never letting it hold more than kMessageSize - 1 characters.
void AppendBounded(char* pszBuffer, const char* pszText) {
  const size_t used = strlen(pszBuffer);
  if (used >= kMessageSize - 1) return;
  const size_t room = kMessageSize - 1 - used;
  const size_t length = strlen(pszText);
  const size_t copied = length < room ? length : room;
  memcpy(pszBuffer + used, pszText, copied);
  pszBuffer[used + copied] = '\0';
}

// Fills the message text: "%s" takes the argument and "%%" stands for "%". The texts of the
// string table use nothing else, and anything else is copied as it stands, so no text can make
// the formatting read arguments that were not passed.
void FillMessage(char* pszOut, const char* pszFormat, const char* pszArgument) {
  size_t used = 0;
  auto put = [&](char ch) {
    if (used < kMessageSize - 1) pszOut[used++] = ch;
  };
  for (const char* p = pszFormat; *p; ++p) {
    if (p[0] == '%' && p[1] == 's') {
      for (const char* a = pszArgument; *a; ++a) put(*a);
      ++p;
    } else if (p[0] == '%' && p[1] == '%') {
      put('%');
      ++p;
    } else {
      put(*p);
    }
  }
  pszOut[used] = '\0';
}

HRESULT RecordHandled(I_ExceptionWriter& record, unsigned nMessage, const char* pszFallback,
                      HRESULT hrCode) {
  char szText[kMessageSize] = {0};
  if (platform::ResourceString(platform::LibraryModule(), nMessage, szText, sizeof szText) <= 0) {
    strncpy(szText, pszFallback, kMessageSize - 1);
    szText[kMessageSize - 1] = '\0';
  }
  record.SetCodeAndMessage(hrCode, szText);
  return hrCode;
}

}  // namespace

void ThrowError(bool bAppendSystemText, ModuleHandle hModule, HRESULT hrCode, const char* pszArgument) {
  // The last error first: anything below may change it.
  const DWORD dwLastError = platform::LastSystemError();

  char szFormat[kMessageSize] = {0};
  char szMessage[kMessageSize] = {0};
  if (platform::ResourceString(hModule, static_cast<unsigned>(hrCode) & 0xFFFFu, szFormat,
                               sizeof szFormat) <= 0) {
    snprintf(szFormat, sizeof szFormat, "Exception: %#x. %%s", static_cast<unsigned>(hrCode));
  }
  FillMessage(szMessage, szFormat, pszArgument ? pszArgument : "");

  if (bAppendSystemText) {
    std::string sSystemText;
    if (!platform::SystemErrorMessage(dwLastError, &sSystemText)) {
      platform::ShowMessageBox("Can not get last error message from system!", "Fatal Error",
                               KOFD_MB_ICONSTOP);
    }
    AppendBounded(szMessage, "\nSystem Error: ");
    AppendBounded(szMessage, sSystemText.c_str());
  }
  throw C_Exception(hrCode, szMessage);
}

void ThrowLibraryError(bool bAppendSystemText, HRESULT hrCode, const char* pszArgument) {
  ThrowError(bAppendSystemText, platform::LibraryModule(), hrCode, pszArgument);
}

ContextText FormatContext(const char* pszFormat, const char* pszTypeName) {
  ContextText context;
  context.text[0] = '\0';
  const char* percent = strstr(pszFormat, "%s");
  std::string text = percent ? std::string(pszFormat, percent) + pszTypeName + (percent + 2) : pszFormat;
  strncpy(context.text, text.c_str(), sizeof context.text - 1);
  context.text[sizeof context.text - 1] = '\0';
  return context;
}

std::string DisplayTypeName(const std::type_info& type) {
  std::string name = type.name();
#if defined(__GNUC__)
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  if (status == 0 && demangled) name = demangled;
  free(demangled);
#endif
  if (name.rfind("KEL_", 0) == 0 || name.rfind("ELF32_", 0) == 0) return "struct " + name;
  if (name.rfind("C_", 0) == 0 || name.rfind("I_", 0) == 0) return "class " + name;
  return name;
}

HRESULT RecordOutOfMemory(I_ExceptionWriter& record) {
  return RecordHandled(record, IDS_OUT_OF_MEMORY, "Error: E_OUTOFMEMORY. ", E_OUTOFMEMORY);
}

HRESULT RecordOutOfRange(I_ExceptionWriter& record) {
  return RecordHandled(record, IDS_OUT_OF_RANGE, "Error: E_OUTOFRANGE. ", KE_OUT_OF_RANGE);
}
