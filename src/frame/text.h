// Comparisons of narrow texts shared by the documents.
#pragma once

#include <cctype>

// True when the two texts are equal ignoring the case of ASCII letters.
inline bool EqualIgnoringCase(const char* pszFirst, const char* pszSecond) {
  for (;; ++pszFirst, ++pszSecond) {
    const int first = std::tolower(static_cast<unsigned char>(*pszFirst));
    const int second = std::tolower(static_cast<unsigned char>(*pszSecond));
    if (first != second) return false;
    if (first == 0) return true;
  }
}
