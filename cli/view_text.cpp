#include "view_text.h"

#include <algorithm>

#include "escape.h"

namespace view_text {
namespace {

void AppendLine(std::string* psOut, const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) {
  std::string sLine;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    const std::string& sCell = i < cells.size() ? cells[i] : std::string();
    if (i > 0) sLine += "  ";
    sLine += sCell;
    sLine.append(widths[i] - sCell.size(), ' ');
  }
  sLine.erase(sLine.find_last_not_of(' ') + 1);
  *psOut += sLine;
  *psOut += '\n';
}

}  // namespace

void AppendTree(std::string* psOut, const std::vector<TreeLine>& lines) {
  for (const TreeLine& line : lines) {
    psOut->append(static_cast<std::size_t>(2 * line.nDepth), ' ');
    *psOut += cli::EscapeText(line.sText);
    *psOut += '\n';
  }
}

void AppendList(std::string* psOut, const ListView& shown) {
  // Texts from the file are escaped before the columns are measured.
  ListView list;
  for (const std::string& sTitle : shown.vTitles) list.vTitles.push_back(cli::EscapeText(sTitle));
  for (const std::vector<std::string>& row : shown.vRows) {
    list.vRows.emplace_back();
    for (const std::string& sCell : row) list.vRows.back().push_back(cli::EscapeText(sCell));
  }
  std::vector<std::size_t> widths;
  for (const std::string& sTitle : list.vTitles) widths.push_back(sTitle.size());
  for (const std::vector<std::string>& row : list.vRows) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  AppendLine(psOut, list.vTitles, widths);
  for (const std::vector<std::string>& row : list.vRows) AppendLine(psOut, row, widths);
}

void AppendListHeading(std::string* psOut, const std::string& sCaption) {
  *psOut += "\n[" + cli::EscapeText(sCaption) + "]\n";
}

}  // namespace view_text
