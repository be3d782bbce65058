// POSIX errors, string resources, message boxes and character classes.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "platform/platform.h"
#include "platform/string_table.h"

namespace platform {
namespace {

MessageBoxHook g_pfnMessageBoxHook = nullptr;

}  // namespace

DWORD LastSystemError() { return static_cast<DWORD>(errno); }

void SetLastSystemError(DWORD dwError) { errno = static_cast<int>(dwError); }

void SetEndOfFileError() { errno = ENODATA; }

bool SystemErrorMessage(DWORD dwError, std::string* psText) {
  if (const char* pszOwn = OwnErrorText(dwError)) {
    *psText = pszOwn;
    return true;
  }
  char buffer[256] = {0};
  // The GNU variant returns the text, which may or may not be the buffer.
  const char* text = ::strerror_r(static_cast<int>(dwError), buffer, sizeof buffer);
  if (!text || !*text) return false;
  *psText = text;
  return true;
}

ModuleHandle LibraryModule() { return &g_LibraryStrings; }

int ResourceString(ModuleHandle hModule, unsigned nId, char* pszBuffer, int cchBuffer) {
  if (!pszBuffer || cchBuffer <= 0) return 0;
  pszBuffer[0] = '\0';
  const StringTable* table = static_cast<const StringTable*>(hModule);
  if (!table) return 0;
  for (size_t i = 0; i < table->count; ++i) {
    if (table->entries[i].id != nId) continue;
    const size_t length = strlen(table->entries[i].text);
    const size_t copied = length < static_cast<size_t>(cchBuffer - 1) ? length : static_cast<size_t>(cchBuffer - 1);
    memcpy(pszBuffer, table->entries[i].text, copied);
    pszBuffer[copied] = '\0';
    return static_cast<int>(copied);
  }
  return 0;
}

void ShowMessageBox(const char* pszText, const char* pszCaption, unsigned uStyle) {
  if (g_pfnMessageBoxHook) {
    g_pfnMessageBoxHook(pszText, pszCaption, uStyle);
    return;
  }
  fprintf(stderr, "%s: %s\n", pszCaption ? pszCaption : "", pszText ? pszText : "");
}

MessageBoxHook SetMessageBoxHook(MessageBoxHook pfnHook) {
  MessageBoxHook previous = g_pfnMessageBoxHook;
  g_pfnMessageBoxHook = pfnHook;
  return previous;
}

// The answer IsCharAlphaNumericA gives in Windows code page 1252, the ANSI code page of the
// systems the hosts run on, so that character columns read the same here as from the DLL: ASCII
// letters and digits, and above 0x7F the accented and other letters and the superscript digits.
bool IsAlphaNumeric(char ch) {
  static const unsigned short kHighBytes[8] = {0x5508, 0xD400, 0x0400, 0x062C, 0xFFFF, 0xFF7F, 0xFFFF, 0xFF7F};
  const unsigned char byte = static_cast<unsigned char>(ch);
  if (byte >= 0x80) return (kHighBytes[(byte - 0x80) >> 4] >> (byte & 0xF)) & 1;
  return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

}  // namespace platform
