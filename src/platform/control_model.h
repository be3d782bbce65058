// The portable stand-ins for the host's tree-view and list-view controls. On POSIX a browse
// "window" is a pointer to one of these models; the platform's control requests change the model
// as the real control would, and each request can be recorded as one line of text, so that a test
// compares what reached the controls and not only where they ended up.
//
//   tree   items under an invisible root (kTreeRoot), each with text, image and item data;
//          children keep their insertion order
//   list   columns (title, width) and rows (item data, one text per column)
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace platform {

// The root of every tree, the value a Win32 host passes as TVI_ROOT.
extern const TreeItem kTreeRoot;

class ControlModel {
 public:
  enum Kind { kTree, kList };

  explicit ControlModel(Kind kind) : m_kind(kind) {}
  ControlModel(const ControlModel&) = delete;
  ControlModel& operator=(const ControlModel&) = delete;
  virtual ~ControlModel() = default;

  Kind GetKind() const { return m_kind; }
  // Requests are appended to pLog as lines such as `LVM_INSERTCOLUMNA 0 "Index" 30`; null
  // records nothing (the default: a large listing should not cost a line per cell).
  void SetLog(std::vector<std::string>* pLog) { m_pLog = pLog; }
  // Makes every later request of that name (`LVM_INSERTITEMA`...) fail as a refused message
  // does, with the system error set; it is still recorded.
  void Refuse(const std::string& sRequest) { m_Refused.insert(sRequest); }

 protected:
  // Records the request; false when it is to be refused.
  bool Y_Accept(const char* pszRequest, const std::string& sArguments);

 private:
  Kind m_kind;
  std::vector<std::string>* m_pLog = nullptr;
  std::set<std::string> m_Refused;
};

class TreeModel : public ControlModel {
 public:
  struct Item {
    std::string sText;
    int nImage = 0;
    std::intptr_t lParam = 0;
    TreeItem hParent = nullptr;
    bool bExpanded = false;
    std::vector<TreeItem> vChildren;
  };

  TreeModel();

  TreeItem Insert(TreeItem hParent, const char* pszText, int nImage, std::intptr_t lParam);
  bool Delete(TreeItem hItem);
  bool Expand(TreeItem hItem, unsigned uFlags);

  // The item, or null for an item the tree does not hold (the root included).
  const Item* Find(TreeItem hItem) const;
  // The children of hItem in order (kTreeRoot for the top level).
  const std::vector<TreeItem>& Children(TreeItem hItem) const;

 private:
  Item* Z_Find(TreeItem hItem);
  void Z_Erase(TreeItem hItem);
  std::string Z_Name(TreeItem hItem) const;

  std::map<TreeItem, Item> m_Items;
  std::uintptr_t m_nNext = 1;
};

class ListModel : public ControlModel {
 public:
  struct Column {
    std::string sTitle;
    int nWidth = 0;
  };
  struct Row {
    std::intptr_t lParam = 0;
    std::vector<std::string> vCells;  // one per column, "" until set
  };

  // The average character width the model's font reports.
  explicit ListModel(int nCharWidth = 6) : ControlModel(kList), m_nCharWidth(nCharWidth) {}

  int InsertColumn(int nColumn, const char* pszTitle, int nWidth);
  bool DeleteColumn(int nColumn);
  // -1 sizes to the widest cell, -2 to the widest cell or the title.
  bool SetColumnWidth(int nColumn, int nWidth);
  int InsertItem(int nRow, const char* pszText, std::intptr_t lParam);
  bool SetItemText(int nRow, int nColumn, const char* pszText);
  // The first row after nStart (-1: from the top) whose text begins with pszText, ignoring case.
  int FindItem(int nStart, const char* pszText);
  bool DeleteAllItems();
  int AverageCharWidth();

  const std::vector<Column>& Columns() const { return m_vColumns; }
  const std::vector<Row>& Rows() const { return m_vRows; }

 private:
  int m_nCharWidth;
  std::vector<Column> m_vColumns;
  std::vector<Row> m_vRows;
};

}  // namespace platform
