#include "suggest.h"

#include <algorithm>
#include <cctype>

namespace cli {
namespace {

char Lower(char ch) { return static_cast<char>(std::tolower(static_cast<unsigned char>(ch))); }

std::string WithoutDashes(const std::string& sWord) {
  const std::size_t nAt = sWord.find_first_not_of('-');
  return nAt == std::string::npos ? std::string() : sWord.substr(nAt);
}

}  // namespace

std::size_t EditDistance(const std::string& sFrom, const std::string& sTo) {
  const std::size_t n = sFrom.size(), m = sTo.size();
  // Three rows of the table: two back, one back, this one.
  std::vector<std::size_t> vBefore(m + 1), vLast(m + 1), vRow(m + 1);
  for (std::size_t j = 0; j <= m; ++j) vLast[j] = j;
  for (std::size_t i = 1; i <= n; ++i) {
    vRow[0] = i;
    for (std::size_t j = 1; j <= m; ++j) {
      const bool bSame = Lower(sFrom[i - 1]) == Lower(sTo[j - 1]);
      vRow[j] = std::min({vLast[j] + 1, vRow[j - 1] + 1, vLast[j - 1] + (bSame ? 0 : 1)});
      if (i > 1 && j > 1 && Lower(sFrom[i - 1]) == Lower(sTo[j - 2]) && Lower(sFrom[i - 2]) == Lower(sTo[j - 1])) {
        vRow[j] = std::min(vRow[j], vBefore[j - 2] + 1);
      }
    }
    std::swap(vBefore, vLast);
    std::swap(vLast, vRow);
  }
  return vLast[m];
}

std::string NearestName(const std::string& sWord, const std::vector<std::string>& vNames) {
  const std::string sBare = WithoutDashes(sWord);
  if (sBare.empty()) return {};
  const std::size_t nAllowed = sBare.size() <= 4 ? 1 : sBare.size() <= 8 ? 2 : 3;
  std::string sBest;
  std::size_t nBest = nAllowed + 1;
  for (const std::string& sName : vNames) {
    // Names far longer or shorter cannot be near; the table is not worth making for them.
    const std::string sNameBare = WithoutDashes(sName);
    const std::size_t nGap = sNameBare.size() > sBare.size() ? sNameBare.size() - sBare.size() : sBare.size() - sNameBare.size();
    if (nGap > nAllowed || sNameBare.size() > 4096) continue;
    const std::size_t nDistance = EditDistance(sBare, sNameBare);
    if (nDistance < nBest) {
      nBest = nDistance;
      sBest = sName;
    }
  }
  return sBest;
}

std::string DidYouMean(const std::string& sWord, const std::vector<std::string>& vNames) {
  const std::string sNearest = NearestName(sWord, vNames);
  return sNearest.empty() ? std::string() : "; did you mean \"" + sNearest + "\"?";
}

}  // namespace cli
