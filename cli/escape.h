// Names from a file are shown safely: a member or symbol name may hold line feeds, tabs and
// terminal escape sequences. Escaped text shows every control byte (below 0x20, 0x7F, and the
// C1 controls U+0080..U+009F), and every byte that is not part of valid UTF-8, as \xHH, and a
// backslash as \\; so one record stays one line and a hostile name cannot drive a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

// All of sText escaped, for the tool's one-line outputs.
std::string EscapeText(std::string_view sText);

// True when EscapeText(sText) is sText itself because every byte is printable ASCII other than
// the backslash: the common case, which a listing writes without building a string.
inline bool IsPlainText(std::string_view sText) {
  for (const char ch : sText) {
    const auto byte = static_cast<unsigned char>(ch);
    if (byte < 0x20 || byte >= 0x7F || byte == '\\') return false;
  }
  return true;
}

// Escapes text that arrives in pieces, for a dump shown on a terminal: line feeds and tabs lay
// the dump out and are kept; a UTF-8 sequence split between two pieces is held until it is whole.
class C_TextEscaper {
 public:
  explicit C_TextEscaper(bool bKeepLayout) : m_bKeepLayout(bKeepLayout) {}
  // Appends the escaped form of the bytes that are complete to *psOut.
  void Feed(std::string_view sPiece, std::string* psOut);
  // Appends whatever is still held, as escaped bytes.
  void Finish(std::string* psOut);

 private:
  bool m_bKeepLayout;
  std::string m_sHeld;  // the start of a UTF-8 sequence that has not ended yet
};

}  // namespace cli
