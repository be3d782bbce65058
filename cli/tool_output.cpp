#include "tool_output.h"

#include <cstdio>
#include <iostream>

namespace cli {

namespace {
// Large enough that a system call writes many lines; stdio keeps using it until the process
// ends, so it is static. (The C library ignores the size asked for without a buffer.)
char g_szStdoutBuffer[1 << 16];
}  // namespace

C_ToolOutput::C_ToolOutput() : m_pCoutBuffer(nullptr) {
  setvbuf(stdout, g_szStdoutBuffer, _IOFBF, sizeof g_szStdoutBuffer);
  m_pCoutBuffer = std::cout.rdbuf(this);
}

C_ToolOutput::~C_ToolOutput() { std::cout.rdbuf(m_pCoutBuffer); }

std::streamsize C_ToolOutput::xsputn(const char_type* pText, std::streamsize nLength) {
  return static_cast<std::streamsize>(fwrite(pText, 1, static_cast<std::size_t>(nLength), stdout));
}

C_ToolOutput::int_type C_ToolOutput::overflow(int_type ch) {
  if (traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::not_eof(ch);
  return putc(traits_type::to_char_type(ch), stdout) == EOF ? traits_type::eof() : ch;
}

}  // namespace cli
