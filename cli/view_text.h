// The text form of a tree view and a list view, as `kofd browse` prints them, every text escaped
// as the tool shows names from a file. The DLL suite
// renders the real Win32 controls with the same code, so the two outputs compare byte for byte.
#pragma once

#include <string>
#include <vector>

namespace view_text {

struct TreeLine {
  int nDepth;
  std::string sText;
};

struct ListView {
  std::vector<std::string> vTitles;
  std::vector<std::vector<std::string>> vRows;  // one text per column
};

// One item a line, indented two blanks a level.
void AppendTree(std::string* psOut, const std::vector<TreeLine>& lines);
// The column titles, then one line per row, each column as wide as its widest text and two
// blanks between columns; trailing blanks are dropped.
void AppendList(std::string* psOut, const ListView& list);
// The heading of one item's list in the listing of every item: an empty line, "[CAPTION]".
void AppendListHeading(std::string* psOut, const std::string& sCaption);

}  // namespace view_text
