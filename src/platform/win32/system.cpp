// Win32 errors, string resources, message boxes and character classes.
#include <windows.h>

#include <string>

#include "platform/platform.h"

namespace platform {
namespace {

HINSTANCE g_hLibrary = nullptr;

}  // namespace

void RecordLibraryModule(HINSTANCE hInstance) { g_hLibrary = hInstance; }

DWORD LastSystemError() { return ::GetLastError(); }

void SetLastSystemError(DWORD dwError) { ::SetLastError(dwError); }

void SetEndOfFileError() { ::SetLastError(ERROR_HANDLE_EOF); }

bool SystemErrorMessage(DWORD dwError, std::string* psText) {
  if (const char* pszOwn = OwnErrorText(dwError)) {
    *psText = pszOwn;
    return true;
  }
  char* pszBuffer = nullptr;
  const DWORD length = ::FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, dwError, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
      reinterpret_cast<char*>(&pszBuffer), 0, nullptr);
  if (length == 0 || !pszBuffer) return false;
  psText->assign(pszBuffer, length);
  ::LocalFree(pszBuffer);
  return true;
}

ModuleHandle LibraryModule() { return g_hLibrary; }

int ResourceString(ModuleHandle hModule, unsigned nId, char* pszBuffer, int cchBuffer) {
  if (!pszBuffer || cchBuffer <= 0) return 0;
  pszBuffer[0] = '\0';
  HINSTANCE hInstance = static_cast<HINSTANCE>(const_cast<void*>(hModule));
  return ::LoadStringA(hInstance, nId, pszBuffer, cchBuffer);
}

void ShowMessageBox(const char* pszText, const char* pszCaption, unsigned uStyle) {
  ::MessageBoxA(nullptr, pszText, pszCaption, uStyle);
}

bool IsAlphaNumeric(char ch) { return ::IsCharAlphaNumericA(ch) != 0; }

}  // namespace platform
