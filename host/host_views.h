// What the Win32 host programs share: reaching kofd.dll, opening a document through it, and
// reading the real tree-view and list-view controls back as the text `kofd browse` prints.
#pragma once

#include <windows.h>

#include <commctrl.h>

#include <string>

#include "frame/exports.h"
#include "present/browse.h"

struct Exports {
  PFN_CreateFactory pfnCreateFactory;
  PFN_CreateInstance pfnCreateInstance;
  PFN_EnumBodyNames pfnEnumBodyNames;
  PFN_Stop pfnStop;
};

// The four exports, or false when one is missing.
bool FindExports(HMODULE hDll, Exports* pExports);

// A document opened from a path: an object or an archive, which the factory builds and owns, or
// else an unknown object.
class HostDocument {
 public:
  HostDocument() = default;
  HostDocument(const HostDocument&) = delete;
  HostDocument& operator=(const HostDocument&) = delete;
  ~HostDocument();

  // Opens pszPath; false with the reason in Error() when it cannot.
  bool Open(const Exports& dll, const char* pszPath);
  I_Browse* Browse() const { return m_pBrowse; }
  const std::string& Error() const { return m_sError; }

 private:
  I_Factory* m_pFactory = nullptr;
  I_Unknown* m_pUnknown = nullptr;
  I_Browse* m_pBrowse = nullptr;
  std::string m_sError;
};

// A tree view and a report-style list view, children of hParent.
HWND CreateTreeControl(HWND hParent);
HWND CreateListControl(HWND hParent);

// Inserts an item for the file (its base name) at the top of the tree, hands it to the document
// and lets the document add its items; the new top item, or null.
HTREEITEM AddDocumentToTree(HWND hTree, HWND hList, I_Browse* pBrowse, const char* pszPath);

// The tree as `kofd browse FILE` prints it and, with bAll, every item's list after it, each
// shown through its browse interface and read back with TVM_GETITEM, LVM_GETCOLUMN and
// LVM_GETITEMTEXT. Failures of ShowInList are written into the text.
std::string RenderControls(HWND hTree, HWND hList, bool bAll);
