// "Did you mean": the nearest of some names to a word typed wrong.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace cli {

// The edit distance between two words (inserting, deleting or changing one character, or
// swapping two neighbours, is one step), letters compared ignoring case.
std::size_t EditDistance(const std::string& sFrom, const std::string& sTo);

// The name of vNames nearest to sWord, when it is close enough to be the one meant: at most one
// step for a word of up to four characters, two up to eight, three beyond (leading dashes not
// counted); the first of equally near names; "" when none is close.
std::string NearestName(const std::string& sWord, const std::vector<std::string>& vNames);

// ";did you mean "NAME"?" for NearestName, or "" when there is none.
std::string DidYouMean(const std::string& sWord, const std::vector<std::string>& vNames);

}  // namespace cli
