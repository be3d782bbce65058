// I_Browse / C_Browse: how a header, section, member or document fills the host's tree view and
// list view. The host hands in both windows once (they are module-wide); each object then adds
// its item(s) to the tree under its own tree item and, when chosen, lays out its list columns
// and fills the rows.
//
// A browsable class derives from C_Browse and overrides AddToTree, SetColumns, ShowRow and
// FillList; the Z_ operations are the only ones that talk to the controls.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "frame/exception.h"
#include "platform/platform.h"

class I_Browse : public virtual I_Unknown {
 public:
  // Stores both windows for the whole module; the last call wins for every object.
  virtual HRESULT SetWindows(platform::Window hTree, platform::Window hList) = 0;
  // The tree item under which this object inserts its own.
  virtual HRESULT SetRootItem(platform::TreeItem hItem) = 0;
  // Inserts this object's item(s); E_FAIL for a class that has none.
  virtual HRESULT AddToTree(platform::TreeItem* phNewItem) = 0;
  // Deletes the object's tree item; 0x800403F4 when the control refuses.
  virtual HRESULT RemoveFromTree() = 0;
  // Columns, then rows, then the object's tree item expanded (0x800403F4 when that is refused).
  virtual HRESULT ShowInList() = 0;
  // Deletes every row and the columns this object inserted.
  virtual HRESULT HideAll() = 0;
};

// TVE_EXPAND | TVE_EXPANDPARTIAL.
constexpr unsigned kExpandPartial = 0x4002;
// LVSCW_AUTOSIZE_USEHEADER.
constexpr int kAutoSizeUseHeader = -2;

// The pictures of the host's image list that the tree items name.
enum : int { kSectionImage = 5, kHeaderImage = 9, kRawDataImage = 11, kMemberImage = 22 };

// The title of the raw-data column of the share ROM and unknown-object lists: its blanks make
// the column as wide as a row of sixteen bytes.
extern const char kRawDataTitle[];

class C_Browse : public virtual I_Browse, public virtual C_Exception {
 public:
  // An object's tree item and column count are its own: they are never copied to another.
  C_Browse() = default;
  C_Browse(const C_Browse&) = delete;
  C_Browse& operator=(const C_Browse&) = delete;

  HRESULT SetWindows(platform::Window hTree, platform::Window hList) override;
  HRESULT SetRootItem(platform::TreeItem hItem) override;
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT RemoveFromTree() override;
  HRESULT ShowInList() override;
  HRESULT HideAll() override;

  // Column set-up; by default the one column "Browse Interface Message".
  virtual HRESULT SetColumns();
  // Inserts list row dwRow; E_FAIL by default and for a row the object does not have.
  virtual HRESULT ShowRow(DWORD dwRow);
  // Inserts every row; by default the one row that says the class shows nothing.
  virtual HRESULT FillList();

  platform::TreeItem GetRootItem() const { return m_hRootItem; }
  int GetColumnCount() const { return m_nColumns; }

 protected:
  virtual platform::TreeItem Z_InsertTreeItem(platform::TreeItem hParent, platform::TreeItem hIgnored,
                                              const char* pszText, int nImage, std::intptr_t lParam);
  virtual int Z_FindItem(int nStart, const char* pszText);
  virtual int Z_InsertColumn(int nColumn, const char* pszTitle);
  virtual HRESULT Z_LayoutColumnHead();
  // The number as "%X".
  virtual int Z_InsertListNumber(int nRow, DWORD dwNumber, std::intptr_t lParam);
  virtual int Z_InsertListItem(int nRow, const char* pszText, std::intptr_t lParam);
  virtual HRESULT Z_SetSubItemNumber(int nRow, int nColumn, DWORD dwNumber);
  virtual HRESULT Z_SetSubItemText(int nRow, int nColumn, const char* pszText);

  // Throws E_POINTER with pszWhere ("m_hRootItem at C_X::AddToTree") when no tree item is set.
  void Y_RequireRootItem(const char* pszWhere) const;
  // Inserts this object's one item under its tree item: the label, its own browse interface as
  // item data.
  HRESULT Y_AddItem(const char* pszLabel, int nImage, platform::TreeItem* phNewItem);
  // The columns in order, then the column heads laid out.
  HRESULT Y_SetColumns(std::initializer_list<const char*> titles);
  // Row dwRow: the item text and data, then the sub-items 1, 2, ... in order.
  HRESULT Y_InsertRow(DWORD dwRow, std::intptr_t lParam, std::initializer_list<const char*> cells);
  // ShowRow for rows 0 .. dwCount - 1; the first failure stops the fill.
  HRESULT Y_FillRows(DWORD dwCount);

 private:
  platform::TreeItem m_hRootItem = nullptr;
  int m_nColumns = 0;
};

// The tree label of string resource nId, or pszFallback when the module has none.
struct LabelText {
  char text[1024];
};
LabelText LoadLabel(unsigned nId, const char* pszFallback);

// The texts of list cells: numbers as the dumps write them (lowercase hexadecimal, decimal),
// "UNDEF" for 0xFFFFFFFF where the dumps show it, the record number as "[i]".
struct CellText {
  char text[24];
  operator const char*() const { return text; }
};
CellText HexCell(DWORD dwValue);
CellText DecCell(DWORD dwValue);
CellText HexOrUndefCell(DWORD dwValue);
CellText IndexCell(DWORD dwIndex);
// Eight uppercase hexadecimal digits ("%0.8X"), the address column of the raw-data lists.
CellText AddressCell(DWORD dwAddress);
