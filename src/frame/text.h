// Small text helpers shared by the readers.
#pragma once

namespace kofd_text {

inline char FoldAsciiCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Names (of sections, of symbols named by expressions) compare ignoring the case of ASCII letters.
inline bool EqualIgnoringCase(const char* pszFirst, const char* pszSecond) {
  for (;; ++pszFirst, ++pszSecond) {
    const char first = FoldAsciiCase(*pszFirst);
    if (first != FoldAsciiCase(*pszSecond)) return false;
    if (first == 0) return true;
  }
}

}  // namespace kofd_text
