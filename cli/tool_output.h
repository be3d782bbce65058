// The tool's standard output as a stream buffer whose flush is cheap.
//
// Dumps end every line with a flush. This buffer hands every write straight to the C library's
// stdout, which it also gives a large buffer: a flush has nothing left to do, text from
// std::cout, from the dump streams and from printf-style dumps keeps the order it was made in,
// and a dump of a million lines is not a million system calls.
//
// On a terminal the output is escaped as names are in the tool's one-line outputs (line feeds and
// tabs kept), so a hostile file cannot drive the terminal; to a file or a pipe it goes byte for
// byte.
#pragma once

#include <cstdio>
#include <streambuf>

namespace cli {

class C_ToolOutput : public std::streambuf {
 public:
  // Points std::cout at this buffer for the object's lifetime.
  C_ToolOutput();
  C_ToolOutput(const C_ToolOutput&) = delete;
  C_ToolOutput& operator=(const C_ToolOutput&) = delete;
  // Gives std::cout its own buffer back.
  ~C_ToolOutput() override;

 protected:
  std::streamsize xsputn(const char_type* pText, std::streamsize nLength) override;
  int_type overflow(int_type ch) override;

 private:
  std::streambuf* m_pCoutBuffer;
  // The terminal's own stream while stdout is the escaping one, else null.
  FILE* m_pTerminal;
};

}  // namespace cli
