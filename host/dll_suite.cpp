// The DLL suite: loads kofd.dll as a host does and checks what crosses the module boundary:
// the exports, the string resources, interface conversion, exceptions thrown inside the DLL, and
// the browse views filling real comctl32 tree and list controls.
// Prints one line per failed check and ends with "N passed, N failed".
#include <windows.h>

#include <commctrl.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "frame/exception.h"
#include "frame/exports.h"
#include "frame/file.h"
#include "archive/archive.h"
#include "host_views.h"
#include "object/kofd_elf.h"
#include "reloc/relocation_tables.h"
#include "sections/symbol_table.h"

namespace {

int g_nPassed = 0;
int g_nFailed = 0;

void Check(bool bOk, const char* pszWhat, const std::string& sDetail = std::string()) {
  if (bOk) {
    ++g_nPassed;
    return;
  }
  ++g_nFailed;
  printf("FAILED: %s%s%s\n", pszWhat, sDetail.empty() ? "" : ": ", sDetail.c_str());
}

void CheckStringResources(HMODULE hDll) {
  struct Expected {
    unsigned id;
    const char* text;
  };
#define KOFD_STRING(id, text) {id, text},
  static const Expected kExpected[] = {
#include "resources/strings.def"
  };
#undef KOFD_STRING
  for (const Expected& expected : kExpected) {
    char szText[1024] = {0};
    LoadStringA(hDll, expected.id, szText, sizeof szText);
    Check(strcmp(szText, expected.text) == 0, "string resource",
          std::to_string(expected.id) + " reads \"" + szText + "\"");
  }
  char szMissing[64] = {0};
  Check(LoadStringA(hDll, 1023, szMissing, sizeof szMissing) == 0, "string 1023 has no text");
}

void CheckBanner(const Exports& dll) {
  char buffer[64];
  memset(buffer, 0xCC, sizeof buffer);
  Check(dll.pfnEnumBodyNames(0, buffer) == S_OK, "EnumBodyNames returns S_OK");
  Check(strcmp(buffer, "Quillbox object file descriptor Ver. 3.00.01-122499") == 0, "banner text");
  Check(buffer[51] == 0 && buffer[52] == 0 && static_cast<unsigned char>(buffer[53]) == 0xCC,
        "EnumBodyNames writes exactly 53 bytes");
}

void CheckCreateInstance(const Exports& dll) {
  for (const char* pszName : {"I_KOfdELF", "I_KOfdArchive", "I_UnknownObject", "I_KOfdELFX", "I_Factory"}) {
    I_Unknown* pObject = dll.pfnCreateInstance(pszName);
    Check(pObject != nullptr, "CreateInstance builds", pszName);
    if (pObject) Check(pObject->Destroy() == S_OK, "Destroy", pszName);
  }
  for (const char* pszName : {"I_KOfdELF ", "i_kofdelf", "", "I_File"}) {
    I_Unknown* pObject = dll.pfnCreateInstance(pszName);
    Check(pObject == nullptr, "CreateInstance refuses", std::string("\"") + pszName + "\"");
    if (pObject) pObject->Destroy();
  }
}

void CheckFactory(const Exports& dll) {
  I_Factory* pFactory = dll.pfnCreateFactory();
  Check(pFactory != nullptr, "CreateFactory");
  if (!pFactory) return;
  I_Unknown* pObject = reinterpret_cast<I_Unknown*>(1);
  Check(pFactory->CreateInstance("I_Factory", &pObject) == E_FAIL, "factory refuses I_Factory");
  Check(pObject == reinterpret_cast<I_Unknown*>(1), "a refusal leaves the output untouched");

  pObject = nullptr;
  Check(pFactory->CreateInstance("I_KOfdArchive", &pObject) == S_OK && pObject, "factory builds I_KOfdArchive");
  Check(pFactory->ReleaseInstance(pObject) == S_OK, "factory releases its own object");

  const char* pszInterface = nullptr;
  pObject = nullptr;
  Check(pFactory->CreateInstance("Z:\\no\\such\\file.o", &pObject, &pszInterface) == E_FAIL,
        "by-path form on a missing file returns E_FAIL");
  Check(pObject == nullptr, "by-path form builds nothing for a missing file");
  pFactory->ReleaseAll();
  pFactory->Destroy();
}

// A failure inside the DLL reaches the host as the library's exception, with its resource text.
void CheckExceptionCrossesBoundary(const Exports& dll) {
  I_Unknown* pObject = dll.pfnCreateInstance("I_KOfdELF");
  I_File* pFile = dynamic_cast<I_File*>(pObject);
  Check(pFile != nullptr, "an object document converts to I_File");
  if (!pFile) {
    if (pObject) pObject->Destroy();
    return;
  }
  const char* pszPath = "Z:\\no\\such\\file.o";
  bool bCaught = false;
  try {
    pFile->AttachWithSize(pszPath, pszPath, 0);
  } catch (C_Exception& error) {
    bCaught = true;
    HRESULT hrCode = S_OK;
    const char* pszText = nullptr;
    error.GetCodeAndMessage(&hrCode, &pszText);
    const std::string sText = pszText ? pszText : "";
    const std::string sExpected = std::string("error 1013: failed to open file specified(") + pszPath + "). " +
                                  "\nSystem Error: ";
    Check(hrCode == static_cast<HRESULT>(0x800403F5), "exception code 0x800403F5");
    Check(sText.compare(0, sExpected.size(), sExpected) == 0, "exception text from the DLL's resources", sText);
    Check(sText.size() > sExpected.size(), "system text appended", sText);
  } catch (...) {
    Check(false, "exception type", "not a C_Exception");
  }
  Check(bCaught, "a failure inside the DLL is thrown to the host");
  Check(dynamic_cast<I_File*>(pObject) == pFile, "the object survives the failure");
  pObject->Destroy();
}

// The sample object opens end to end inside the DLL.
void CheckObjectOpens(const Exports& dll) {
  I_Unknown* pObject = dll.pfnCreateInstance("I_KOfdELF");
  I_KOfdELF* pElf = dynamic_cast<I_KOfdELF*>(pObject);
  I_File* pFile = dynamic_cast<I_File*>(pObject);
  Check(pElf && pFile, "an object document converts to I_KOfdELF and I_File");
  if (pElf && pFile) {
    try {
      pFile->AttachPath("sample.o", 0);
      Check(pElf->Read() == S_OK, "the sample object opens");
      DWORD dwCount = 0;
      pElf->GetSectionCount(&dwCount);
      Check(dwCount == 16, "the sample object has 16 sections", std::to_string(dwCount));
      I_KOfdSection* pSection = nullptr;
      Check(pElf->FindSection(".SYMTAB", &pSection) == S_OK && pSection, "sections are found by name ignoring case");
      pElf->FindSection(".relxeb.text", &pSection);
      I_KOfdRelxebTable* pRelocations = dynamic_cast<I_KOfdRelxebTable*>(pSection);
      char szText[256] = "";
      DWORD dwValue = 0;
      Check(pRelocations && pRelocations->GetExpressionText(0, szText, sizeof szText) == S_OK &&
                pRelocations->Evaluate(0, &dwValue) == S_OK,
            "relocations evaluate and print inside the DLL");
      Check(std::string(szText) == "(led_toggle>>2)" && dwValue == 0x38, "the first relocation's expression",
            std::string(szText) + " = " + std::to_string(dwValue));
    } catch (C_Exception& error) {
      Check(false, "opening the sample object", error.Message());
    }
  }
  if (pObject) pObject->Destroy();
}

std::string FileBytes(const char* pszPath) {
  std::ifstream in(pszPath, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The archive saves through the Win32 replacing output: a new file, then a replaced one, each the
// same bytes as the archive read, and no temporary file left beside them.
void CheckArchiveSaves(const Exports& dll) {
  I_Unknown* pObject = dll.pfnCreateInstance("I_KOfdArchive");
  I_KOfdArchive* pArchive = dynamic_cast<I_KOfdArchive*>(pObject);
  I_File* pFile = dynamic_cast<I_File*>(pObject);
  if (pArchive && pFile) {
    try {
      DeleteFileA("saved.a");
      pFile->AttachPath("sample.a", 0);
      pArchive->Open();
      const bool bSaved = pArchive->SaveAs("saved.a") == S_OK && pArchive->SaveAs("saved.a") == S_OK;
      Check(bSaved && FileBytes("saved.a") == FileBytes("sample.a"), "the sample archive saves over an existing file byte for byte");
      WIN32_FIND_DATAA found;
      const HANDLE hFind = FindFirstFileA("saved.a.kofd-*", &found);
      Check(hFind == INVALID_HANDLE_VALUE, "no temporary file is left beside the saved archive");
      if (hFind != INVALID_HANDLE_VALUE) FindClose(hFind);
    } catch (C_Exception& error) {
      Check(false, "saving the sample archive", error.Message());
    }
  }
  if (pObject) pObject->Destroy();
}

// A 60-byte member header: name field, size, the rest blank.
std::string MemberHeader(const std::string& sName, unsigned uSize) {
  std::string sHeader(60, ' ');
  sHeader.replace(0, sName.size(), sName);
  const std::string sSize = std::to_string(uSize);
  sHeader.replace(48, sSize.size(), sSize);
  sHeader[58] = '\'';
  sHeader[59] = '\n';
  return sHeader;
}

// An archive whose member is larger than the library's copy block and the size it copies inside
// the system: saved over itself, it copies the member from the file it replaces (Windows reads
// and writes) and keeps every byte.
void CheckLargeArchiveSavesOverItself(const Exports& dll) {
  const unsigned uSize = 3u * 1024 * 1024 + 7;
  std::string sMember(uSize, '\0');
  for (unsigned i = 0; i < uSize; ++i) sMember[i] = static_cast<char>((i * 2654435761u) >> 24);
  const std::string sLink = std::string("\x01\0\0\0\x01\0\0\0", 8) + std::string("\x96\0\0\0\0\0\0\0", 8);
  const std::string sNames("big.o\0", 6);
  const std::string sArchive = "!<arch>\n" + MemberHeader("/", 16) + sLink + MemberHeader("/", 6) + sNames +
                               MemberHeader("0", uSize) + sMember;
  std::ofstream("large.a", std::ios::binary).write(sArchive.data(), static_cast<std::streamsize>(sArchive.size()));
  I_Unknown* pObject = dll.pfnCreateInstance("I_KOfdArchive");
  I_KOfdArchive* pArchive = dynamic_cast<I_KOfdArchive*>(pObject);
  I_File* pFile = dynamic_cast<I_File*>(pObject);
  if (pArchive && pFile) {
    try {
      pFile->AttachPath("large.a", 0);
      pArchive->Open();
      DWORD dwCount = 0;
      pArchive->GetMemberCount(&dwCount);
      Check(dwCount == 1 && pArchive->Save() == S_OK && FileBytes("large.a") == sArchive,
            "an archive of a 3 MiB member saves over itself byte for byte");
      WIN32_FIND_DATAA found;
      const HANDLE hFind = FindFirstFileA("large.a.kofd-*", &found);
      Check(hFind == INVALID_HANDLE_VALUE, "no temporary file is left beside the large archive");
      if (hFind != INVALID_HANDLE_VALUE) FindClose(hFind);
    } catch (C_Exception& error) {
      Check(false, "saving the large archive", error.Message());
    }
  }
  if (pObject) pObject->Destroy();
  DeleteFileA("large.a");
}

// An object edited and saved through the library's interfaces, read back by a fresh document:
// the edits are there, the rest is as it was, and a save without an edit keeps every byte.
void CheckObjectEditsAndSaves(const Exports& dll) {
  DeleteFileA("edited.o");
  DeleteFileA("copied.o");
  I_Unknown* pObject = dll.pfnCreateInstance("I_KOfdELFX");
  I_KOfdELFX* pEdit = dynamic_cast<I_KOfdELFX*>(pObject);
  I_File* pFile = dynamic_cast<I_File*>(pObject);
  Check(pEdit && pFile, "an edit document converts to I_KOfdELFX and I_File");
  if (pEdit && pFile) {
    try {
      pFile->AttachPath("sample.o", 0);
      Check(pEdit->Read() == S_OK && pEdit->SaveAs("copied.o") == S_OK, "the sample object saves unedited");
      Check(FileBytes("copied.o") == FileBytes("sample.o"), "an unedited save keeps every byte");
      Check(pEdit->RenameSection(".data", ".vars") == S_OK, "a section is renamed");
      Check(pEdit->AddSymbol("added_here", ".text", 0x24, 1) == S_OK, "a symbol is added");
      Check(pEdit->SetSymbolValue("led_toggle", 0x1234) == S_OK, "a symbol's value is set");
      const HRESULT hrRefused = pEdit->RemoveSection(".text");
      const char* pszText = nullptr;
      dynamic_cast<I_Exception*>(pObject)->GetMessageText(&pszText);
      Check(hrRefused == E_FAIL && pszText && strstr(pszText, "cannot remove section 1 (.text): "), "a refused edit says why", pszText ? pszText : "");
      Check(pEdit->SaveAs("edited.o") == S_OK, "the edited object saves");
    } catch (C_Exception& error) {
      Check(false, "editing the sample object", error.Message());
    }
  }
  if (pObject) pObject->Destroy();

  I_Unknown* pSample = dll.pfnCreateInstance("I_KOfdELF");
  I_KOfdELF* pOriginal = dynamic_cast<I_KOfdELF*>(pSample);
  I_Unknown* pSaved = dll.pfnCreateInstance("I_KOfdELF");
  I_KOfdELF* pElf = dynamic_cast<I_KOfdELF*>(pSaved);
  I_File* pSavedFile = dynamic_cast<I_File*>(pSaved);
  if (pElf && pSavedFile && pOriginal) {
    try {
      dynamic_cast<I_File*>(pSample)->AttachPath("sample.o", 0);
      Check(pOriginal->Read() == S_OK, "the sample object opens beside the edited one");
      pSavedFile->AttachPath("edited.o", 0);
      Check(pElf->Read() == S_OK, "the edited object opens");
      DWORD dwCount = 0;
      pElf->GetSectionCount(&dwCount);
      const char* pszName = nullptr;
      pElf->GetSectionName(2, &pszName);
      Check(dwCount == 16 && pszName && strcmp(pszName, ".vars") == 0, "the renamed section keeps its place", pszName ? pszName : "");
      I_KOfdSymbolTable* pSymbols = nullptr;
      ELF32_SYM* pAdded = nullptr;
      ELF32_SYM* pSet = nullptr;
      Check(pElf->GetSymbolTable(&pSymbols) == S_OK && pSymbols && pSymbols->FindSymbol("added_here", &pAdded) == S_OK &&
                pSymbols->FindSymbol("led_toggle", &pSet) == S_OK,
            "the added and the set symbols are found");
      Check(pAdded && pAdded->st_value == 0x24 && pAdded->st_shndx == 1, "the added symbol's value and section");
      Check(pSet && pSet->st_value == 0x1234, "the set symbol's value");
      I_KOfdSection* pSection = nullptr;
      pElf->FindSection(".relxeb.text", &pSection);
      I_KOfdRelxebTable* pRelocations = dynamic_cast<I_KOfdRelxebTable*>(pSection);
      char szText[256] = "";
      Check(pRelocations && pRelocations->GetExpressionText(0, szText, sizeof szText) == S_OK &&
                std::string(szText) == "(led_toggle>>2)",
            "the relocations still name their symbols", szText);
      // The symbol tables and the section names grew; every other section is as it was.
      std::string sChanged;
      for (DWORD i = 0; i < dwCount; ++i) {
        const char* pszNow = nullptr;
        const char* pszWas = nullptr;
        pElf->GetSectionName(i, &pszNow);
        pOriginal->GetSectionName(i, &pszWas);
        const bool bRenamed = i == 2, bGrew = i == 3 || i == 4 || i == 15;
        if (!bRenamed && (!pszNow || !pszWas || strcmp(pszNow, pszWas) != 0)) sChanged += " name of " + std::to_string(i);
        I_KOfdSection* pNow = nullptr;
        I_KOfdSection* pWas = nullptr;
        pElf->GetSection(i, &pNow);
        pOriginal->GetSection(i, &pWas);
        if (!bGrew && pNow && pWas && pNow->GetSize() != pWas->GetSize()) sChanged += " size of " + std::to_string(i);
      }
      Check(sChanged.empty(), "the sections not edited are as they were", sChanged);
    } catch (C_Exception& error) {
      Check(false, "reading the edited object", error.Message());
    }
  }
  if (pSaved) pSaved->Destroy();
  if (pSample) pSample->Destroy();
}

// The first line where two texts differ, for the report of a failed comparison.
std::string FirstDifference(const std::string& sActual, const std::string& sExpected) {
  std::size_t nStart = 0;
  for (;;) {
    const std::size_t nActualEnd = sActual.find('\n', nStart), nExpectedEnd = sExpected.find('\n', nStart);
    const std::string sLeft = sActual.substr(nStart, nActualEnd - nStart);
    const std::string sRight = sExpected.substr(nStart, nExpectedEnd - nStart);
    if (sLeft != sRight || nActualEnd == std::string::npos) return "\"" + sLeft + "\" where \"" + sRight + "\" was expected";
    nStart = nActualEnd + 1;
  }
}

// The document's items and lists (an object's, an archive's with its members' objects) on real
// comctl32 controls read back as the text the portable
// control models gave `kofd browse FILE --all` for the same file (the golden text beside the
// suite).
void CheckBrowseOnRealControls(const Exports& dll, const char* pszFile, const char* pszGolden) {
  HostDocument document;
  Check(document.Open(dll, pszFile), "the document to browse opens", document.Error());
  if (!document.Browse()) return;
  HWND hWindow = CreateWindowExA(0, "STATIC", "kofd", WS_OVERLAPPEDWINDOW, 0, 0, 800, 600, nullptr, nullptr,
                                 GetModuleHandleA(nullptr), nullptr);
  HWND hTree = CreateTreeControl(hWindow);
  HWND hList = CreateListControl(hWindow);
  Check(hTree && hList, "real tree and list controls are created");
  // The last column is sized to fill what is left of the list's width, which comctl32 refuses
  // when the columns before it already reach past the edge: a wide list leaves room for all.
  MoveWindow(hList, 0, 0, 4000, 600, FALSE);
  Check(AddDocumentToTree(hTree, hList, document.Browse(), pszFile) != nullptr, "the document fills the tree", pszFile);
  std::ifstream golden(pszGolden, std::ios::binary);
  const std::string sExpected((std::istreambuf_iterator<char>(golden)), std::istreambuf_iterator<char>());
  Check(!sExpected.empty(), "the portable model's listing is beside the suite", pszGolden);
  const std::string sActual = RenderControls(hTree, hList, true);
  Check(sActual == sExpected, "the real controls show what the portable model showed", FirstDifference(sActual, sExpected));
  DestroyWindow(hWindow);
}

}  // namespace

int main(int argc, char** argv) {
  const char* pszDll = argc > 1 ? argv[1] : "kofd.dll";
  HMODULE hDll = LoadLibraryA(pszDll);
  Check(hDll != nullptr, "LoadLibrary", pszDll);
  if (!hDll) {
    printf("%d passed, %d failed\n", g_nPassed, g_nFailed);
    return 1;
  }
  Exports dll;
  const bool bExports = FindExports(hDll, &dll);
  Check(bExports, "the four exports are found");
  if (bExports) {
    CheckStringResources(hDll);
    CheckBanner(dll);
    CheckCreateInstance(dll);
    CheckFactory(dll);
    CheckExceptionCrossesBoundary(dll);
    CheckObjectOpens(dll);
    CheckArchiveSaves(dll);
    CheckLargeArchiveSavesOverItself(dll);
    CheckObjectEditsAndSaves(dll);
    INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_TREEVIEW_CLASSES | ICC_LISTVIEW_CLASSES};
    Check(InitCommonControlsEx(&controls) != FALSE, "common controls load");
    CheckBrowseOnRealControls(dll, "sample.o", "browse_sample_o.txt");
    CheckBrowseOnRealControls(dll, "sample.a", "browse_sample_a.txt");
    dll.pfnStop();
  }
  FreeLibrary(hDll);
  printf("%d passed, %d failed\n", g_nPassed, g_nFailed);
  return g_nFailed == 0 ? 0 : 1;
}
