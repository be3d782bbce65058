#include "present/browse.h"

#include <cstdio>
#include <cstring>

#include "frame/error.h"

namespace {

// The host's two controls, shared by every browsable object of the module.
platform::Window g_hTreeWindow = nullptr;
platform::Window g_hListWindow = nullptr;

// A refused control request: 1012 with the request and the system's text for it.
[[noreturn]] void ThrowRefused(const char* pszWhat) { ThrowLibraryError(true, KE_SYSTEM_ERROR, pszWhat); }

// The cell as "%x", "%u", "%X", "[%u]" or "%08X"; the formats stay literal so that the
// compiler checks them.
enum CellFormat { kHex, kDec, kUpperHex, kIndex, kAddress };

CellText FormatCell(CellFormat format, DWORD dwValue) {
  CellText cell;
  const unsigned uValue = dwValue;
  switch (format) {
    case kHex: snprintf(cell.text, sizeof cell.text, "%x", uValue); break;
    case kDec: snprintf(cell.text, sizeof cell.text, "%u", uValue); break;
    case kUpperHex: snprintf(cell.text, sizeof cell.text, "%X", uValue); break;
    case kIndex: snprintf(cell.text, sizeof cell.text, "[%u]", uValue); break;
    case kAddress: snprintf(cell.text, sizeof cell.text, "%08X", uValue); break;
  }
  return cell;
}

}  // namespace

const char kRawDataTitle[] =
    "                                                    Raw Data                        ";

LabelText LoadLabel(unsigned nId, const char* pszFallback) {
  LabelText label;
  if (platform::ResourceString(platform::LibraryModule(), nId, label.text, sizeof label.text) == 0) {
    snprintf(label.text, sizeof label.text, "%s", pszFallback);
  }
  return label;
}

CellText HexCell(DWORD dwValue) { return FormatCell(kHex, dwValue); }
CellText DecCell(DWORD dwValue) { return FormatCell(kDec, dwValue); }
CellText IndexCell(DWORD dwIndex) { return FormatCell(kIndex, dwIndex); }
CellText AddressCell(DWORD dwAddress) { return FormatCell(kAddress, dwAddress); }

CellText HexOrUndefCell(DWORD dwValue) {
  if (dwValue != 0xFFFFFFFFu) return HexCell(dwValue);
  CellText cell;
  snprintf(cell.text, sizeof cell.text, "UNDEF");
  return cell;
}

// ---- I_Browse ----------------------------------------------------------------------------

HRESULT C_Browse::SetWindows(platform::Window hTree, platform::Window hList) {
  g_hTreeWindow = hTree;
  g_hListWindow = hList;
  return S_OK;
}

HRESULT C_Browse::SetRootItem(platform::TreeItem hItem) {
  m_hRootItem = hItem;
  return S_OK;
}

HRESULT C_Browse::AddToTree(platform::TreeItem*) { return E_FAIL; }

HRESULT C_Browse::RemoveFromTree() {
  return platform::TreeDeleteItem(g_hTreeWindow, m_hRootItem) ? S_OK : KE_SYSTEM_ERROR;
}

HRESULT C_Browse::ShowInList() {
  HRESULT hr = SetColumns();
  if (hr < 0) return hr;
  hr = FillList();
  if (hr < 0) return hr;
  return platform::TreeExpand(g_hTreeWindow, m_hRootItem, kExpandPartial) ? S_OK : KE_SYSTEM_ERROR;
}

HRESULT C_Browse::HideAll() {
  if (!platform::ListDeleteAllItems(g_hListWindow)) ThrowRefused("function ListView_DeleteAllItems at C_Browse::HideAll()");
  for (int i = 0; i < m_nColumns; ++i) {
    if (!platform::ListDeleteColumn(g_hListWindow, 0)) ThrowRefused("function ListView_DeleteColumn at C_Browse::HideAll()");
  }
  m_nColumns = 0;
  return S_OK;
}

// ---- The defaults of a class that shows nothing -------------------------------------------

HRESULT C_Browse::SetColumns() { return Y_SetColumns({"Browse Interface Message"}); }

HRESULT C_Browse::ShowRow(DWORD) { return E_FAIL; }

HRESULT C_Browse::FillList() {
  Z_InsertListItem(0, "This Class does not support for Browse Interface!", 0);
  return S_OK;
}

// ---- Control requests --------------------------------------------------------------------

platform::TreeItem C_Browse::Z_InsertTreeItem(platform::TreeItem hParent, platform::TreeItem, const char* pszText,
                                              int nImage, std::intptr_t lParam) {
  platform::TreeItem hItem = platform::TreeInsertItem(g_hTreeWindow, hParent, pszText, nImage, lParam);
  if (!hItem) ThrowRefused("function TreeView_InsertItem at C_Browse::Z_InsertTreeItem(...)");
  return hItem;
}

// The font is measured here as for a column, though a search does not need it.
int C_Browse::Z_FindItem(int nStart, const char* pszText) {
  platform::AverageCharWidth(g_hListWindow);
  const int nIndex = platform::ListFindItem(g_hListWindow, nStart, pszText);
  if (nIndex == -1) ThrowRefused("function ListViewFindItem at C_Browse::Z_FindItem(...)");
  return nIndex;
}

// Titles with leading and trailing blanks make wider columns on purpose.
int C_Browse::Z_InsertColumn(int nColumn, const char* pszTitle) {
  const int nWidth = static_cast<int>(strlen(pszTitle)) * platform::AverageCharWidth(g_hListWindow);
  const int nIndex = platform::ListInsertColumn(g_hListWindow, nColumn, pszTitle, nWidth);
  if (nIndex == -1) ThrowRefused("function ListViewInsertColumn at C_Browse::Z_InsertColumn(...)");
  ++m_nColumns;
  return nIndex;
}

HRESULT C_Browse::Z_LayoutColumnHead() {
  for (int i = 0; i < m_nColumns; ++i) {
    if (!platform::ListSetColumnWidth(g_hListWindow, i, kAutoSizeUseHeader)) {
      ThrowRefused("function ListView_SetColumnWidth at C_Browse::Z_LayoutColumnHead()");
    }
  }
  return S_OK;
}

int C_Browse::Z_InsertListNumber(int nRow, DWORD dwNumber, std::intptr_t lParam) {
  return Z_InsertListItem(nRow, FormatCell(kUpperHex, dwNumber), lParam);
}

int C_Browse::Z_InsertListItem(int nRow, const char* pszText, std::intptr_t lParam) {
  const int nIndex = platform::ListInsertItem(g_hListWindow, nRow, pszText, lParam);
  if (nIndex == -1) ThrowRefused("function ListView_InsertItem at C_Browse::Z_InsertListItem(...)");
  return nIndex;
}

HRESULT C_Browse::Z_SetSubItemNumber(int nRow, int nColumn, DWORD dwNumber) {
  return Z_SetSubItemText(nRow, nColumn, FormatCell(kUpperHex, dwNumber));
}

HRESULT C_Browse::Z_SetSubItemText(int nRow, int nColumn, const char* pszText) {
  platform::ListSetItemText(g_hListWindow, nRow, nColumn, pszText);
  return S_OK;
}

// ---- Helpers of the browsable classes ------------------------------------------------------

void C_Browse::Y_RequireRootItem(const char* pszWhere) const {
  if (!m_hRootItem) ThrowLibraryError(false, E_POINTER, pszWhere);
}

HRESULT C_Browse::Y_AddItem(const char* pszLabel, int nImage, platform::TreeItem* phNewItem) {
  const I_Browse* pSelf = this;
  platform::TreeItem hItem =
      Z_InsertTreeItem(m_hRootItem, nullptr, pszLabel, nImage, reinterpret_cast<std::intptr_t>(pSelf));
  if (phNewItem) *phNewItem = hItem;
  return S_OK;
}

HRESULT C_Browse::Y_SetColumns(std::initializer_list<const char*> titles) {
  int nColumn = 0;
  for (const char* pszTitle : titles) Z_InsertColumn(nColumn++, pszTitle);
  return Z_LayoutColumnHead();
}

HRESULT C_Browse::Y_InsertRow(DWORD dwRow, std::intptr_t lParam, std::initializer_list<const char*> cells) {
  const int nRow = static_cast<int>(dwRow);
  int nColumn = 0;
  for (const char* pszCell : cells) {
    if (nColumn == 0) {
      Z_InsertListItem(nRow, pszCell, lParam);
    } else {
      Z_SetSubItemText(nRow, nColumn, pszCell);
    }
    ++nColumn;
  }
  return S_OK;
}

HRESULT C_Browse::Y_FillRows(DWORD dwCount) {
  for (DWORD i = 0; i < dwCount; ++i) {
    const HRESULT hr = ShowRow(i);
    if (hr < 0) return hr;
  }
  return S_OK;
}
