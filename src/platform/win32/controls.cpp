// The control requests of the browse views on Win32: window messages to the host's tree-view and
// list-view common controls, and the text metrics of the list view's window.
#include <windows.h>

#include <commctrl.h>

#include "platform/platform.h"

namespace platform {
namespace {

LRESULT Send(Window hWindow, UINT uMessage, WPARAM wParam, LPARAM lParam) {
  return ::SendMessageA(static_cast<HWND>(hWindow), uMessage, wParam, lParam);
}

template <class T>
LPARAM Address(T* pValue) {
  return reinterpret_cast<LPARAM>(pValue);
}

}  // namespace

// The item goes last under its parent (insert-after 0); its selected image is given but not
// masked in, so the control shows the same picture when the item is selected.
TreeItem TreeInsertItem(Window hTree, TreeItem hParent, const char* pszText, int nImage, std::intptr_t lParam) {
  TVINSERTSTRUCTA insert = {};
  insert.hParent = static_cast<HTREEITEM>(hParent);
  insert.hInsertAfter = nullptr;
  insert.item.mask = TVIF_TEXT | TVIF_IMAGE | TVIF_PARAM;
  insert.item.pszText = const_cast<char*>(pszText);
  insert.item.iImage = nImage;
  insert.item.iSelectedImage = nImage;
  insert.item.lParam = lParam;
  return reinterpret_cast<TreeItem>(Send(hTree, TVM_INSERTITEMA, 0, Address(&insert)));
}

bool TreeDeleteItem(Window hTree, TreeItem hItem) {
  return Send(hTree, TVM_DELETEITEM, 0, reinterpret_cast<LPARAM>(hItem)) != 0;
}

bool TreeExpand(Window hTree, TreeItem hItem, unsigned uFlags) {
  return Send(hTree, TVM_EXPAND, uFlags, reinterpret_cast<LPARAM>(hItem)) != 0;
}

int ListInsertColumn(Window hList, int nColumn, const char* pszTitle, int nWidth) {
  LVCOLUMNA column = {};
  column.mask = LVCF_FMT | LVCF_WIDTH | LVCF_TEXT;
  column.fmt = LVCFMT_LEFT;
  column.cx = nWidth;
  column.pszText = const_cast<char*>(pszTitle);
  return static_cast<int>(Send(hList, LVM_INSERTCOLUMNA, static_cast<WPARAM>(nColumn), Address(&column)));
}

bool ListDeleteColumn(Window hList, int nColumn) {
  return Send(hList, LVM_DELETECOLUMN, static_cast<WPARAM>(nColumn), 0) != 0;
}

bool ListSetColumnWidth(Window hList, int nColumn, int nWidth) {
  return Send(hList, LVM_SETCOLUMNWIDTH, static_cast<WPARAM>(nColumn), MAKELPARAM(nWidth, 0)) != 0;
}

int ListInsertItem(Window hList, int nRow, const char* pszText, std::intptr_t lParam) {
  LVITEMA item = {};
  item.mask = LVIF_TEXT | LVIF_PARAM;
  item.iItem = nRow;
  item.iSubItem = 0;
  item.pszText = const_cast<char*>(pszText);
  item.lParam = lParam;
  return static_cast<int>(Send(hList, LVM_INSERTITEMA, 0, Address(&item)));
}

bool ListSetItemText(Window hList, int nRow, int nColumn, const char* pszText) {
  LVITEMA item = {};
  item.iSubItem = nColumn;
  item.pszText = const_cast<char*>(pszText);
  return Send(hList, LVM_SETITEMTEXTA, static_cast<WPARAM>(nRow), Address(&item)) != 0;
}

int ListFindItem(Window hList, int nStart, const char* pszText) {
  LVFINDINFOA find = {};
  find.flags = LVFI_STRING | LVFI_PARTIAL;
  find.psz = pszText;
  return static_cast<int>(Send(hList, LVM_FINDITEMA, static_cast<WPARAM>(nStart), Address(&find)));
}

bool ListDeleteAllItems(Window hList) { return Send(hList, LVM_DELETEALLITEMS, 0, 0) != 0; }

// The metrics of the font a device context of the list view's window starts with.
int AverageCharWidth(Window hList) {
  HWND hWindow = static_cast<HWND>(hList);
  HDC hdc = ::GetDC(hWindow);
  if (!hdc) return 0;
  TEXTMETRICA metrics = {};
  const BOOL bOk = ::GetTextMetricsA(hdc, &metrics);
  ::ReleaseDC(hWindow, hdc);
  return bOk ? metrics.tmAveCharWidth : 0;
}

}  // namespace platform
