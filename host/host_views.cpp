#include "host_views.h"

#include <commctrl.h>

#include <algorithm>
#include <vector>

#include "archive/archive.h"
#include "archive/unknown_object.h"
#include "frame/file.h"
#include "object/kofd_elf.h"
#include "view_text.h"

namespace {

template <class T>
T Find(HMODULE hDll, const char* pszName) {
  return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(hDll, pszName)));
}

std::string ItemText(HWND hTree, HTREEITEM hItem, LPARAM* plParam) {
  char szText[1024] = "";
  TVITEMA item = {};
  item.mask = TVIF_TEXT | TVIF_PARAM;
  item.hItem = hItem;
  item.pszText = szText;
  item.cchTextMax = sizeof szText;
  SendMessageA(hTree, TVM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
  *plParam = item.lParam;
  return szText;
}

struct Entry {
  int nDepth;
  std::string sText;
  I_Browse* pBrowse;
};

void Walk(HWND hTree, HTREEITEM hFirst, int nDepth, std::vector<Entry>* pEntries) {
  for (HTREEITEM hItem = hFirst; hItem; hItem = TreeView_GetNextSibling(hTree, hItem)) {
    LPARAM lParam = 0;
    const std::string sText = ItemText(hTree, hItem, &lParam);
    pEntries->push_back({nDepth, sText, reinterpret_cast<I_Browse*>(lParam)});
    Walk(hTree, TreeView_GetChild(hTree, hItem), nDepth + 1, pEntries);
  }
}

view_text::ListView ReadList(HWND hList) {
  view_text::ListView view;
  char szText[1024];
  for (int nColumn = 0;; ++nColumn) {
    LVCOLUMNA column = {};
    column.mask = LVCF_TEXT;
    column.pszText = szText;
    column.cchTextMax = sizeof szText;
    szText[0] = '\0';
    if (!SendMessageA(hList, LVM_GETCOLUMNA, static_cast<WPARAM>(nColumn), reinterpret_cast<LPARAM>(&column))) break;
    view.vTitles.push_back(szText);
  }
  const int nRows = static_cast<int>(SendMessageA(hList, LVM_GETITEMCOUNT, 0, 0));
  for (int nRow = 0; nRow < nRows; ++nRow) {
    std::vector<std::string> cells;
    for (std::size_t nColumn = 0; nColumn < std::max<std::size_t>(view.vTitles.size(), 1); ++nColumn) {
      LVITEMA item = {};
      item.iSubItem = static_cast<int>(nColumn);
      item.pszText = szText;
      item.cchTextMax = sizeof szText;
      szText[0] = '\0';
      SendMessageA(hList, LVM_GETITEMTEXTA, static_cast<WPARAM>(nRow), reinterpret_cast<LPARAM>(&item));
      cells.push_back(szText);
    }
    view.vRows.push_back(cells);
  }
  return view;
}

}  // namespace

bool FindExports(HMODULE hDll, Exports* pExports) {
  *pExports = {Find<PFN_CreateFactory>(hDll, "CreateFactory"), Find<PFN_CreateInstance>(hDll, "CreateInstance"),
               Find<PFN_EnumBodyNames>(hDll, "EnumBodyNames"), Find<PFN_Stop>(hDll, "Stop")};
  return pExports->pfnCreateFactory && pExports->pfnCreateInstance && pExports->pfnEnumBodyNames && pExports->pfnStop;
}

HostDocument::~HostDocument() {
  if (m_pUnknown) m_pUnknown->Destroy();
  if (m_pFactory) m_pFactory->Destroy();
}

// The factory tells objects from archives; any other file is shown as an unknown object, which
// the host owns itself.
bool HostDocument::Open(const Exports& dll, const char* pszPath) {
  m_pFactory = dll.pfnCreateFactory();
  if (!m_pFactory) return false;
  try {
    I_Unknown* pObject = nullptr;
    const char* pszInterface = nullptr;
    if (m_pFactory->CreateInstance(pszPath, &pObject, &pszInterface) != S_OK || !pObject) {
      pObject = m_pUnknown = dll.pfnCreateInstance("I_UnknownObject");
    }
    I_File* pFile = dynamic_cast<I_File*>(pObject);
    if (!pFile) return false;
    pFile->AttachPath(pszPath, 0);
    if (I_KOfdELF* pElf = dynamic_cast<I_KOfdELF*>(pObject)) pElf->Read();
    if (I_KOfdArchive* pArchive = dynamic_cast<I_KOfdArchive*>(pObject)) pArchive->Open();
    if (I_UnknownObject* pRaw = dynamic_cast<I_UnknownObject*>(pObject)) pRaw->Load();
    m_pBrowse = dynamic_cast<I_Browse*>(pObject);
  } catch (C_Exception& error) {
    m_sError = error.Message();
    return false;
  }
  return m_pBrowse != nullptr;
}

HWND CreateTreeControl(HWND hParent) {
  return CreateWindowExA(WS_EX_CLIENTEDGE, WC_TREEVIEWA, "",
                         WS_CHILD | WS_VISIBLE | TVS_HASLINES | TVS_HASBUTTONS | TVS_LINESATROOT | TVS_SHOWSELALWAYS,
                         0, 0, 100, 100, hParent, nullptr, GetModuleHandleA(nullptr), nullptr);
}

HWND CreateListControl(HWND hParent) {
  return CreateWindowExA(WS_EX_CLIENTEDGE, WC_LISTVIEWA, "", WS_CHILD | WS_VISIBLE | LVS_REPORT, 0, 0, 100, 100,
                         hParent, nullptr, GetModuleHandleA(nullptr), nullptr);
}

HTREEITEM AddDocumentToTree(HWND hTree, HWND hList, I_Browse* pBrowse, const char* pszPath) {
  const char* pszName = pszPath;
  for (const char* p = pszPath; *p; ++p) {
    if (*p == '/' || *p == '\\') pszName = p + 1;
  }
  TVINSERTSTRUCTA insert = {};
  insert.hParent = TVI_ROOT;
  insert.hInsertAfter = TVI_LAST;
  insert.item.mask = TVIF_TEXT | TVIF_PARAM;
  insert.item.pszText = const_cast<char*>(pszName);
  insert.item.lParam = 0;
  HTREEITEM hFile = reinterpret_cast<HTREEITEM>(SendMessageA(hTree, TVM_INSERTITEMA, 0, reinterpret_cast<LPARAM>(&insert)));
  if (!hFile) return nullptr;
  pBrowse->SetWindows(hTree, hList);
  pBrowse->SetRootItem(hFile);
  try {
    if (pBrowse->AddToTree(nullptr) < 0) return nullptr;
  } catch (C_Exception&) {
    return nullptr;
  }
  return hFile;
}

std::string RenderControls(HWND hTree, HWND hList, bool bAll) {
  std::vector<Entry> entries;
  Walk(hTree, TreeView_GetRoot(hTree), 0, &entries);
  std::vector<view_text::TreeLine> lines;
  for (const Entry& entry : entries) lines.push_back({entry.nDepth, entry.sText});
  std::string sOut;
  view_text::AppendTree(&sOut, lines);
  for (const Entry& entry : entries) {
    if (!bAll || !entry.pBrowse) continue;
    view_text::AppendListHeading(&sOut, entry.sText);
    try {
      const HRESULT hr = entry.pBrowse->ShowInList();
      if (hr < 0) sOut += "ShowInList failed\n";
      view_text::AppendList(&sOut, ReadList(hList));
      entry.pBrowse->HideAll();
    } catch (C_Exception& error) {
      sOut += error.Message() + "\n";
    }
  }
  return sOut;
}
