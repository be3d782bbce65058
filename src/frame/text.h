// Small text helpers shared by the readers.
#pragma once

#include <cstdint>
#include <string>

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

// A section selector that is all digits, of any length, is an index: true with *pqwIndex set,
// saturated at 2^32 so that an index too large for 32 bits names no section like any other
// index past the end. Anything else is a name.
inline bool SelectorIndex(const std::string& sSelector, std::uint64_t* pqwIndex) {
  if (sSelector.empty() || sSelector.find_first_not_of("0123456789") != std::string::npos) return false;
  std::uint64_t qwIndex = 0;
  for (char ch : sSelector) {
    qwIndex = qwIndex * 10 + static_cast<unsigned>(ch - '0');
    if (qwIndex > (1ull << 32)) qwIndex = 1ull << 32;
  }
  *pqwIndex = qwIndex;
  return true;
}

}  // namespace kofd_text
