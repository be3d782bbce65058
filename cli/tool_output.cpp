#include "tool_output.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "escape.h"

namespace cli {

namespace {
// Large enough that a system call writes many lines; stdio keeps using it until the process
// ends, so it is static. (The C library ignores the size asked for without a buffer.)
char g_szStdoutBuffer[1 << 16];

// A dump on a terminal goes through the escaper to the terminal's own stream: the library's
// printf-style dumps write to stdout too, so stdout itself is the filtered stream.
struct TerminalFilter {
  FILE* pTerminal = nullptr;
  C_TextEscaper escaper{true};
  std::string sOut;
};

ssize_t FilterWrite(void* pCookie, const char* pText, size_t nLength) {
  auto* pFilter = static_cast<TerminalFilter*>(pCookie);
  pFilter->sOut.clear();
  pFilter->escaper.Feed(std::string_view(pText, nLength), &pFilter->sOut);
  if (fwrite(pFilter->sOut.data(), 1, pFilter->sOut.size(), pFilter->pTerminal) != pFilter->sOut.size()) return -1;
  return static_cast<ssize_t>(nLength);
}

int FilterClose(void* pCookie) {
  auto* pFilter = static_cast<TerminalFilter*>(pCookie);
  pFilter->sOut.clear();
  pFilter->escaper.Finish(&pFilter->sOut);
  fwrite(pFilter->sOut.data(), 1, pFilter->sOut.size(), pFilter->pTerminal);
  const int result = fflush(pFilter->pTerminal);
  delete pFilter;
  return result;
}

}  // namespace

C_ToolOutput::C_ToolOutput() : m_pCoutBuffer(nullptr), m_pTerminal(nullptr) {
  if (isatty(STDOUT_FILENO)) {
    auto* pFilter = new TerminalFilter;
    pFilter->pTerminal = stdout;
    cookie_io_functions_t functions{nullptr, FilterWrite, nullptr, FilterClose};
    if (FILE* pFiltered = fopencookie(pFilter, "w", functions)) {
      fflush(stdout);
      m_pTerminal = stdout;
      stdout = pFiltered;
    } else {
      delete pFilter;
    }
  }
  setvbuf(stdout, g_szStdoutBuffer, _IOFBF, sizeof g_szStdoutBuffer);
  m_pCoutBuffer = std::cout.rdbuf(this);
}

C_ToolOutput::~C_ToolOutput() {
  std::cout.rdbuf(m_pCoutBuffer);
  if (m_pTerminal) {
    fclose(stdout);
    stdout = m_pTerminal;
  }
}

std::streamsize C_ToolOutput::xsputn(const char_type* pText, std::streamsize nLength) {
  return static_cast<std::streamsize>(fwrite(pText, 1, static_cast<std::size_t>(nLength), stdout));
}

C_ToolOutput::int_type C_ToolOutput::overflow(int_type ch) {
  if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
  return putc(traits_type::to_char_type(ch), stdout) == EOF ? traits_type::eof() : ch;
}

}  // namespace cli
