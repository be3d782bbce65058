// The control requests of the browse views on POSIX, answered by the in-memory control models.
#include <ctype.h>
#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/control_model.h"
#include "platform/platform.h"

namespace platform {
namespace {

std::string Quoted(const char* pszText) { return std::string("\"") + (pszText ? pszText : "") + "\""; }

// The model a window designates, or null when it is no model of that kind.
template <class Model>
Model* ModelOf(Window hWindow, ControlModel::Kind kind) {
  ControlModel* pModel = static_cast<ControlModel*>(hWindow);
  return pModel && pModel->GetKind() == kind ? static_cast<Model*>(pModel) : nullptr;
}

TreeModel* Tree(Window hWindow) { return ModelOf<TreeModel>(hWindow, ControlModel::kTree); }
ListModel* List(Window hWindow) { return ModelOf<ListModel>(hWindow, ControlModel::kList); }

bool FoldedPrefix(const std::string& sText, const char* pszPrefix) {
  const std::size_t nLength = strlen(pszPrefix);
  if (sText.size() < nLength) return false;
  for (std::size_t i = 0; i < nLength; ++i) {
    if (tolower(static_cast<unsigned char>(sText[i])) != tolower(static_cast<unsigned char>(pszPrefix[i]))) return false;
  }
  return true;
}

}  // namespace

// The value of TVI_ROOT: ((HTREEITEM)(ULONG_PTR)-0x10000).
const TreeItem kTreeRoot = reinterpret_cast<TreeItem>(static_cast<std::intptr_t>(-0x10000));

bool ControlModel::Y_Accept(const char* pszRequest, const std::string& sArguments) {
  if (m_pLog) m_pLog->push_back(sArguments.empty() ? std::string(pszRequest) : std::string(pszRequest) + " " + sArguments);
  if (m_Refused.count(pszRequest) == 0) return true;
  errno = EPERM;
  return false;
}

// ---- Tree --------------------------------------------------------------------------------

TreeModel::TreeModel() : ControlModel(kTree) { m_Items[kTreeRoot]; }

std::string TreeModel::Z_Name(TreeItem hItem) const {
  if (hItem == kTreeRoot) return "root";
  return std::to_string(reinterpret_cast<std::uintptr_t>(hItem));
}

TreeModel::Item* TreeModel::Z_Find(TreeItem hItem) {
  auto it = m_Items.find(hItem);
  return it == m_Items.end() ? nullptr : &it->second;
}

const TreeModel::Item* TreeModel::Find(TreeItem hItem) const {
  if (hItem == kTreeRoot) return nullptr;
  auto it = m_Items.find(hItem);
  return it == m_Items.end() ? nullptr : &it->second;
}

const std::vector<TreeItem>& TreeModel::Children(TreeItem hItem) const {
  static const std::vector<TreeItem> kNone;
  auto it = m_Items.find(hItem);
  return it == m_Items.end() ? kNone : it->second.vChildren;
}

// A null parent inserts at the top, as TVI_ROOT does.
TreeItem TreeModel::Insert(TreeItem hParent, const char* pszText, int nImage, std::intptr_t lParam) {
  if (!hParent) hParent = kTreeRoot;
  if (!Y_Accept("TVM_INSERTITEMA", Z_Name(hParent) + " " + Quoted(pszText) + " " + std::to_string(nImage))) return nullptr;
  Item* pParent = Z_Find(hParent);
  if (!pParent) return nullptr;
  TreeItem hItem = reinterpret_cast<TreeItem>(m_nNext++);
  pParent->vChildren.push_back(hItem);
  Item& item = m_Items[hItem];
  item.sText = pszText ? pszText : "";
  item.nImage = nImage;
  item.lParam = lParam;
  item.hParent = hParent;
  return hItem;
}

void TreeModel::Z_Erase(TreeItem hItem) {
  const std::vector<TreeItem> vChildren = m_Items[hItem].vChildren;
  for (TreeItem hChild : vChildren) Z_Erase(hChild);
  if (hItem == kTreeRoot) {
    m_Items[kTreeRoot].vChildren.clear();
  } else {
    m_Items.erase(hItem);
  }
}

// Deleting the root empties the tree.
bool TreeModel::Delete(TreeItem hItem) {
  if (!Y_Accept("TVM_DELETEITEM", Z_Name(hItem))) return false;
  Item* pItem = Z_Find(hItem);
  if (!pItem) return false;
  if (hItem != kTreeRoot) {
    std::vector<TreeItem>& siblings = m_Items[pItem->hParent].vChildren;
    siblings.erase(std::find(siblings.begin(), siblings.end(), hItem));
  }
  Z_Erase(hItem);
  return true;
}

// As the common control answers: only an item that has children can be expanded.
bool TreeModel::Expand(TreeItem hItem, unsigned uFlags) {
  char szFlags[16];
  snprintf(szFlags, sizeof szFlags, "0x%x", uFlags);
  if (!Y_Accept("TVM_EXPAND", Z_Name(hItem) + " " + szFlags)) return false;
  Item* pItem = hItem == kTreeRoot ? nullptr : Z_Find(hItem);
  if (!pItem || pItem->vChildren.empty()) return false;
  pItem->bExpanded = true;
  return true;
}

// ---- List --------------------------------------------------------------------------------

int ListModel::InsertColumn(int nColumn, const char* pszTitle, int nWidth) {
  if (!Y_Accept("LVM_INSERTCOLUMNA", std::to_string(nColumn) + " " + Quoted(pszTitle) + " " + std::to_string(nWidth))) {
    return -1;
  }
  if (nColumn < 0) return -1;
  const std::size_t nAt = std::min<std::size_t>(static_cast<std::size_t>(nColumn), m_vColumns.size());
  m_vColumns.insert(m_vColumns.begin() + static_cast<std::ptrdiff_t>(nAt), Column{pszTitle ? pszTitle : "", nWidth});
  for (Row& row : m_vRows) {
    if (row.vCells.size() >= nAt) row.vCells.insert(row.vCells.begin() + static_cast<std::ptrdiff_t>(nAt), std::string());
  }
  return static_cast<int>(nAt);
}

bool ListModel::DeleteColumn(int nColumn) {
  if (!Y_Accept("LVM_DELETECOLUMN", std::to_string(nColumn))) return false;
  if (nColumn < 0 || static_cast<std::size_t>(nColumn) >= m_vColumns.size()) return false;
  m_vColumns.erase(m_vColumns.begin() + nColumn);
  for (Row& row : m_vRows) {
    if (static_cast<std::size_t>(nColumn) < row.vCells.size()) row.vCells.erase(row.vCells.begin() + nColumn);
  }
  return true;
}

bool ListModel::SetColumnWidth(int nColumn, int nWidth) {
  if (!Y_Accept("LVM_SETCOLUMNWIDTH", std::to_string(nColumn) + " " + std::to_string(nWidth))) return false;
  if (nColumn < 0 || static_cast<std::size_t>(nColumn) >= m_vColumns.size()) return false;
  Column& column = m_vColumns[static_cast<std::size_t>(nColumn)];
  if (nWidth >= 0) {
    column.nWidth = nWidth;
    return true;
  }
  std::size_t nWidest = nWidth == -2 ? column.sTitle.size() : 0;
  for (const Row& row : m_vRows) {
    if (static_cast<std::size_t>(nColumn) < row.vCells.size()) nWidest = std::max(nWidest, row.vCells[static_cast<std::size_t>(nColumn)].size());
  }
  column.nWidth = static_cast<int>(nWidest) * m_nCharWidth;
  return true;
}

int ListModel::InsertItem(int nRow, const char* pszText, std::intptr_t lParam) {
  if (!Y_Accept("LVM_INSERTITEMA", std::to_string(nRow) + " " + Quoted(pszText))) return -1;
  if (nRow < 0) return -1;
  const std::size_t nAt = std::min<std::size_t>(static_cast<std::size_t>(nRow), m_vRows.size());
  Row row;
  row.lParam = lParam;
  row.vCells.assign(std::max<std::size_t>(m_vColumns.size(), 1), std::string());
  row.vCells[0] = pszText ? pszText : "";
  m_vRows.insert(m_vRows.begin() + static_cast<std::ptrdiff_t>(nAt), std::move(row));
  return static_cast<int>(nAt);
}

// A sub-item exists only under a column; the item text (column 0) always does.
bool ListModel::SetItemText(int nRow, int nColumn, const char* pszText) {
  if (!Y_Accept("LVM_SETITEMTEXTA", std::to_string(nRow) + " " + std::to_string(nColumn) + " " + Quoted(pszText))) {
    return false;
  }
  if (nRow < 0 || static_cast<std::size_t>(nRow) >= m_vRows.size() || nColumn < 0) return false;
  if (nColumn > 0 && static_cast<std::size_t>(nColumn) >= m_vColumns.size()) return false;
  std::vector<std::string>& cells = m_vRows[static_cast<std::size_t>(nRow)].vCells;
  if (cells.size() <= static_cast<std::size_t>(nColumn)) cells.resize(static_cast<std::size_t>(nColumn) + 1);
  cells[static_cast<std::size_t>(nColumn)] = pszText ? pszText : "";
  return true;
}

int ListModel::FindItem(int nStart, const char* pszText) {
  if (!Y_Accept("LVM_FINDITEMA", std::to_string(nStart) + " " + Quoted(pszText))) return -1;
  if (!pszText) return -1;
  for (std::size_t i = nStart < 0 ? 0 : static_cast<std::size_t>(nStart) + 1; i < m_vRows.size(); ++i) {
    if (FoldedPrefix(m_vRows[i].vCells[0], pszText)) return static_cast<int>(i);
  }
  return -1;
}

bool ListModel::DeleteAllItems() {
  if (!Y_Accept("LVM_DELETEALLITEMS", "")) return false;
  m_vRows.clear();
  return true;
}

int ListModel::AverageCharWidth() {
  if (!Y_Accept("GetTextMetricsA", "")) return 0;
  return m_nCharWidth;
}

// ---- The platform's requests --------------------------------------------------------------

TreeItem TreeInsertItem(Window hTree, TreeItem hParent, const char* pszText, int nImage, std::intptr_t lParam) {
  TreeModel* pTree = Tree(hTree);
  return pTree ? pTree->Insert(hParent, pszText, nImage, lParam) : nullptr;
}

bool TreeDeleteItem(Window hTree, TreeItem hItem) {
  TreeModel* pTree = Tree(hTree);
  return pTree && pTree->Delete(hItem);
}

bool TreeExpand(Window hTree, TreeItem hItem, unsigned uFlags) {
  TreeModel* pTree = Tree(hTree);
  return pTree && pTree->Expand(hItem, uFlags);
}

int ListInsertColumn(Window hList, int nColumn, const char* pszTitle, int nWidth) {
  ListModel* pList = List(hList);
  return pList ? pList->InsertColumn(nColumn, pszTitle, nWidth) : -1;
}

bool ListDeleteColumn(Window hList, int nColumn) {
  ListModel* pList = List(hList);
  return pList && pList->DeleteColumn(nColumn);
}

bool ListSetColumnWidth(Window hList, int nColumn, int nWidth) {
  ListModel* pList = List(hList);
  return pList && pList->SetColumnWidth(nColumn, nWidth);
}

int ListInsertItem(Window hList, int nRow, const char* pszText, std::intptr_t lParam) {
  ListModel* pList = List(hList);
  return pList ? pList->InsertItem(nRow, pszText, lParam) : -1;
}

bool ListSetItemText(Window hList, int nRow, int nColumn, const char* pszText) {
  ListModel* pList = List(hList);
  return pList && pList->SetItemText(nRow, nColumn, pszText);
}

int ListFindItem(Window hList, int nStart, const char* pszText) {
  ListModel* pList = List(hList);
  return pList ? pList->FindItem(nStart, pszText) : -1;
}

bool ListDeleteAllItems(Window hList) {
  ListModel* pList = List(hList);
  return pList && pList->DeleteAllItems();
}

int AverageCharWidth(Window hList) {
  ListModel* pList = List(hList);
  return pList ? pList->AverageCharWidth() : 0;
}

}  // namespace platform
