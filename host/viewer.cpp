// kofd_viewer: a small Win32 window over kofd.dll, the tree of a document on the left and the list
// of the chosen item on the right, filled through the browse interfaces as a development
// environment fills its own controls.
//
// Usage: kofd_viewer FILE [ITEM] [--quit-after SECONDS]
//   ITEM          the caption of the item to choose at start (a header, a section or a member)
//   --quit-after  close by itself, for scripted screenshots
#include <windows.h>

#include <commctrl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host_views.h"

namespace {

constexpr int kTreeWidth = 240;
constexpr UINT_PTR kQuitTimer = 1;

struct Viewer {
  HWND hTree = nullptr;
  HWND hList = nullptr;
  I_Browse* pShown = nullptr;
};

Viewer g_viewer;

// One small square a picture, coloured by what the library's image indexes stand for: sections,
// headers, raw data and archive members.
HIMAGELIST CreateImages() {
  HIMAGELIST hImages = ImageList_Create(16, 16, ILC_COLOR24, 23, 0);
  HDC hScreen = GetDC(nullptr);
  HDC hDraw = CreateCompatibleDC(hScreen);
  for (int i = 0; i <= kMemberImage; ++i) {
    const COLORREF colour = i == kSectionImage    ? RGB(60, 110, 200)
                            : i == kHeaderImage   ? RGB(40, 160, 80)
                            : i == kRawDataImage  ? RGB(150, 150, 150)
                            : i == kMemberImage   ? RGB(220, 140, 40)
                                                  : RGB(255, 255, 255);
    HBITMAP hBitmap = CreateCompatibleBitmap(hScreen, 16, 16);
    HGDIOBJ hOld = SelectObject(hDraw, hBitmap);
    RECT all = {0, 0, 16, 16}, inner = {3, 3, 13, 13};
    FillRect(hDraw, &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    HBRUSH hBrush = CreateSolidBrush(colour);
    FillRect(hDraw, &inner, hBrush);
    DeleteObject(hBrush);
    SelectObject(hDraw, hOld);
    ImageList_Add(hImages, hBitmap, nullptr);
    DeleteObject(hBitmap);
  }
  DeleteDC(hDraw);
  ReleaseDC(nullptr, hScreen);
  return hImages;
}

int TextWidth(HWND hList, const char* pszText) {
  return static_cast<int>(SendMessageA(hList, LVM_GETSTRINGWIDTHA, 0, reinterpret_cast<LPARAM>(pszText)));
}

// The library sizes the columns to their titles before any row is in; once the rows are there
// the viewer widens each column to its widest text, in the list's own font.
void FitColumns(HWND hList) {
  char szText[1024];
  const int nRows = static_cast<int>(SendMessageA(hList, LVM_GETITEMCOUNT, 0, 0));
  for (int nColumn = 0;; ++nColumn) {
    LVCOLUMNA column = {};
    column.mask = LVCF_TEXT;
    column.pszText = szText;
    column.cchTextMax = sizeof szText;
    if (!SendMessageA(hList, LVM_GETCOLUMNA, static_cast<WPARAM>(nColumn), reinterpret_cast<LPARAM>(&column))) break;
    int nWidth = TextWidth(hList, szText);
    for (int nRow = 0; nRow < nRows; ++nRow) {
      LVITEMA item = {};
      item.iSubItem = nColumn;
      item.pszText = szText;
      item.cchTextMax = sizeof szText;
      SendMessageA(hList, LVM_GETITEMTEXTA, static_cast<WPARAM>(nRow), reinterpret_cast<LPARAM>(&item));
      nWidth = std::max(nWidth, TextWidth(hList, szText));
    }
    SendMessageA(hList, LVM_SETCOLUMNWIDTH, static_cast<WPARAM>(nColumn), MAKELPARAM(nWidth + 16, 0));
  }
}

// The list follows the tree: the item shown before is hidden, the chosen one shown.
void ShowItem(HWND hWindow, LPARAM lParam) {
  try {
    if (g_viewer.pShown) g_viewer.pShown->HideAll();
    g_viewer.pShown = reinterpret_cast<I_Browse*>(lParam);
    if (g_viewer.pShown) g_viewer.pShown->ShowInList();
    FitColumns(g_viewer.hList);
  } catch (C_Exception& error) {
    MessageBoxA(hWindow, error.Message().c_str(), "kofd viewer", MB_OK | MB_ICONWARNING);
  }
}

HTREEITEM FindItem(HWND hTree, HTREEITEM hFirst, const char* pszCaption) {
  for (HTREEITEM hItem = hFirst; hItem; hItem = TreeView_GetNextSibling(hTree, hItem)) {
    char szText[1024] = "";
    TVITEMA item = {};
    item.mask = TVIF_TEXT;
    item.hItem = hItem;
    item.pszText = szText;
    item.cchTextMax = sizeof szText;
    SendMessageA(hTree, TVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
    if (lstrcmpiA(szText, pszCaption) == 0) return hItem;
    if (HTREEITEM hFound = FindItem(hTree, TreeView_GetChild(hTree, hItem), pszCaption)) return hFound;
  }
  return nullptr;
}

LRESULT CALLBACK WindowProc(HWND hWindow, UINT uMessage, WPARAM wParam, LPARAM lParam) {
  switch (uMessage) {
    case WM_SIZE: {
      const int nWidth = LOWORD(lParam), nHeight = HIWORD(lParam);
      MoveWindow(g_viewer.hTree, 0, 0, kTreeWidth, nHeight, TRUE);
      MoveWindow(g_viewer.hList, kTreeWidth, 0, nWidth - kTreeWidth, nHeight, TRUE);
      return 0;
    }
    case WM_NOTIFY: {
      const NMHDR* pHeader = reinterpret_cast<const NMHDR*>(lParam);
      if (pHeader->hwndFrom == g_viewer.hTree && pHeader->code == TVN_SELCHANGEDA) {
        ShowItem(hWindow, reinterpret_cast<const NMTREEVIEWA*>(lParam)->itemNew.lParam);
      }
      return 0;
    }
    case WM_TIMER:
      if (wParam == kQuitTimer) DestroyWindow(hWindow);
      return 0;
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
    default:
      return DefWindowProcA(hWindow, uMessage, wParam, lParam);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* pszFile = nullptr;
  const char* pszItem = nullptr;
  int nQuitAfter = 0;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--quit-after") == 0 && i + 1 < argc) {
      nQuitAfter = atoi(argv[++i]);
    } else if (!pszFile) {
      pszFile = argv[i];
    } else {
      pszItem = argv[i];
    }
  }
  if (!pszFile) {
    fprintf(stderr, "usage: kofd_viewer FILE [ITEM] [--quit-after SECONDS]\n");
    return 2;
  }
  HMODULE hDll = LoadLibraryA("kofd.dll");
  Exports dll;
  if (!hDll || !FindExports(hDll, &dll)) {
    fprintf(stderr, "kofd_viewer: kofd.dll cannot be loaded\n");
    return 1;
  }
  HostDocument document;
  if (!document.Open(dll, pszFile)) {
    fprintf(stderr, "kofd_viewer: %s: %s\n", pszFile, document.Error().c_str());
    return 1;
  }

  INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_TREEVIEW_CLASSES | ICC_LISTVIEW_CLASSES};
  InitCommonControlsEx(&controls);
  WNDCLASSA windowClass = {};
  windowClass.lpfnWndProc = WindowProc;
  windowClass.hInstance = GetModuleHandleA(nullptr);
  windowClass.hCursor = LoadCursor(nullptr, IDC_ARROW);
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  windowClass.lpszClassName = "KofdViewer";
  RegisterClassA(&windowClass);
  const std::string sTitle = std::string("kofd viewer - ") + pszFile;
  HWND hWindow = CreateWindowExA(0, "KofdViewer", sTitle.c_str(), WS_OVERLAPPEDWINDOW, 0, 0, 1240, 720, nullptr,
                                 nullptr, windowClass.hInstance, nullptr);
  g_viewer.hTree = CreateTreeControl(hWindow);
  g_viewer.hList = CreateListControl(hWindow);
  SendMessageA(g_viewer.hList, LVM_SETEXTENDEDLISTVIEWSTYLE, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES,
               LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
  TreeView_SetImageList(g_viewer.hTree, CreateImages(), TVSIL_NORMAL);
  ShowWindow(hWindow, SW_SHOW);

  HTREEITEM hFile = AddDocumentToTree(g_viewer.hTree, g_viewer.hList, document.Browse(), pszFile);
  if (hFile) TreeView_Expand(g_viewer.hTree, hFile, TVE_EXPAND);
  if (HTREEITEM hItem = pszItem ? FindItem(g_viewer.hTree, TreeView_GetRoot(g_viewer.hTree), pszItem) : nullptr) {
    TreeView_SelectItem(g_viewer.hTree, hItem);
  }
  if (nQuitAfter > 0) SetTimer(hWindow, kQuitTimer, static_cast<UINT>(nQuitAfter) * 1000, nullptr);

  MSG message;
  while (GetMessageA(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageA(&message);
  }
  return 0;
}
