// Opens the input as a KELF object and walks every section and every record through the
// public interfaces, reading every byte and string they hand out; then runs every dump on it,
// writing to a stream that keeps nothing.
#include <cstdint>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "frame/exception.h"
#include "fuzz_file.h"
#include "object/kofd_elf.h"
#include "platform/control_model.h"
#include "reloc/relocation_tables.h"
#include "present/object_dumps.h"
#include "sections/bank_table.h"
#include "sections/kmd_tables.h"
#include "sections/line_table.h"
#include "sections/share_rom_table.h"
#include "sections/stab_table.h"
#include "sections/storage.h"
#include "sections/symbol_table.h"

namespace {

volatile std::uint32_t g_dwSink;

void Touch(const char* psz) { g_dwSink = g_dwSink + static_cast<std::uint32_t>(strlen(psz)); }
template <class T>
void Touch(const T* pRecord) {
  std::uint8_t bytes[sizeof(T)];
  memcpy(bytes, pRecord, sizeof(T));
  g_dwSink = g_dwSink + bytes[0] + bytes[sizeof(T) - 1];
}

// At most this many records of one table are visited, so that a large valid input stays fast.
constexpr DWORD kMaxRecords = 4096;
DWORD Bounded(DWORD dwCount) { return dwCount < kMaxRecords ? dwCount : kMaxRecords; }

// Every operation of a dump, records one past the end included.
void RunDump(I_KOfdDump* pDump, DWORD dwRecords) {
  pDump->SetStream(NullStream());
  pDump->DumpHead();
  for (DWORD i = 0; i <= Bounded(dwRecords); ++i) pDump->DumpRecord(i);
  pDump->DumpAll();
}

void RunEveryDump(C_KOfdELFX2& document) {
  for (I_KOfdDump* pDump : GetDumpParts(document)) {
    // Record numbers, word numbers and string offsets all lie below a section's size.
    I_KOfdSection* pSection = dynamic_cast<I_KOfdSection*>(pDump);
    RunDump(pDump, pSection ? pSection->GetSize() : 1);
  }
  document.DumpFile("/dev/null");
}

void WalkSymbols(C_KOfdSymbolTable* pSymbols) {
  DWORD dwCount = 0;
  pSymbols->GetSymbolCount(&dwCount);
  for (DWORD i = 0; i < Bounded(dwCount); ++i) {
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    if (pSymbols->GetSymbolAt(i, &pszName, &pSymbol) != S_OK) continue;
    Touch(pszName);
    Touch(pSymbol);
    ELF32_SYM* pFound = nullptr;
    const char* pszStored = nullptr;
    pSymbols->FindSymbolName(pszName, &pszStored, &pFound);
    I_KOfdSection* pSection = nullptr;
    if (pSymbols->GetSymbolSection(pszName, &pSection) == S_OK && pSection) g_dwSink = pSection->GetAddress();
    pSymbols->CheckUndefined(i);
  }
  DWORD dwFirst = 0;
  pSymbols->GetFirstGlobal(&dwFirst);
  pSymbols->Rebase();
}

void WalkSection(I_KOfdSection* pSection) {
  g_dwSink = pSection->GetEntryCount() + pSection->GetType() + pSection->GetLink() + pSection->GetInfo();
  Touch(pSection->GetName());
  if (auto* pStrings = dynamic_cast<I_KOfdStringTable*>(pSection)) {
    for (DWORD dwOffset = 0; dwOffset < pStrings->GetLength() && dwOffset < kMaxRecords; dwOffset += 7) {
      Touch(pStrings->GetStringAt(dwOffset));
    }
  }
  if (auto* pSymbols = dynamic_cast<C_KOfdSymbolTable*>(pSection)) WalkSymbols(pSymbols);
  if (auto* pProgram = dynamic_cast<I_KOfdProgramTable*>(pSection)) {
    DWORD dwSize = 0;
    pProgram->GetSize(&dwSize);
    for (DWORD i = 0; i <= Bounded(dwSize); ++i) {
      DWORD* pWord = nullptr;
      WORD* pHalf = nullptr;
      BYTE* pByte = nullptr;
      if (pProgram->GetDword(i, &pWord) == S_OK && pWord) g_dwSink = *pWord;
      if (pProgram->GetWord(i, &pHalf) == S_OK && pHalf) g_dwSink = *pHalf;
      if (pProgram->GetByte(i, &pByte) == S_OK && pByte) g_dwSink = *pByte;
    }
  }
  if (auto* pLines = dynamic_cast<C_KOfdLineTable*>(pSection)) {
    for (DWORD i = 0; i < Bounded(pLines->GetCount()); ++i) {
      DWORD* pWord = nullptr;
      g_dwSink = pLines->GetLineAddress(i);
      if (pLines->GetLineCode(i, &pWord) == S_OK && pWord) g_dwSink = *pWord;
    }
  }
  if (auto* pSource = dynamic_cast<I_KOfdSourceLineTable*>(pSection)) {
    DWORD dwCount = 0;
    pSource->GetSourceLineCount(&dwCount);
    for (DWORD i = 0; i < Bounded(dwCount); ++i) {
      const char* pszFile = nullptr;
      KEL_SRCLINE* pLine = nullptr;
      if (pSource->GetSourceLineAt(i, &pszFile, &pLine) != S_OK) continue;
      Touch(pszFile);
      Touch(pLine);
      pSource->FindSourceLine(pszFile, 1, &pLine);
    }
  }
  if (auto* pStabs = dynamic_cast<I_KOfdStabTable*>(pSection)) {
    DWORD dwCount = 0;
    pStabs->GetStabCount(&dwCount);
    for (DWORD i = 0; i < Bounded(dwCount); ++i) {
      const char* pszName = nullptr;
      KEL_STAB* pStab = nullptr;
      if (pStabs->GetStabAt(i, &pszName, &pStab) != S_OK) continue;
      Touch(pszName);
      pStabs->FindStab(pszName, 0, &pStab);
    }
  }
  if (auto* pBanks = dynamic_cast<C_KOfdBankTable*>(pSection)) {
    for (DWORD i = 0; i < Bounded(pBanks->GetCount()); ++i) {
      KEL_BANKINFO* pBank = nullptr;
      pBanks->GetAt(i, &pBank);
      Touch(pBank);
    }
  }
  if (auto* pRom = dynamic_cast<I_KOfdShareRomTable*>(pSection)) {
    DWORD dwCount = 0;
    pRom->GetCount(&dwCount);
    for (DWORD i = 0; i <= Bounded(dwCount); ++i) {
      DWORD* pWord = nullptr;
      if (pRom->GetWord(i, &pWord) == S_OK) g_dwSink = *pWord;
    }
  }
  if (auto* pSound = dynamic_cast<I_KOfdKmdTable*>(pSection)) {
    BYTE* pData = nullptr;
    DWORD dwAddress = 0, dwSize = 0, dwInfo = 0;
    pSound->GetPlacement(&dwAddress, &dwSize, &dwInfo);
    if (pSound->GetData(&pData) == S_OK && pData) g_dwSink = pData[0];
  }
  if (auto* pKdm = dynamic_cast<I_KOfdKmdInfoTable*>(pSection)) {
    DWORD dwCount = 0;
    pKdm->GetKdmCount(&dwCount);
    for (DWORD i = 0; i <= Bounded(dwCount); ++i) {
      const char* pszName = nullptr;
      KEL_KMDINFO* pEntry = nullptr;
      if (pKdm->GetKdmWithName(i, &pszName, &pEntry) == S_OK) {
        Touch(pszName);
        Touch(pEntry);
      }
    }
  }
}

void WalkRelocations(I_KOfdSection* pSection) {
  if (auto* pExpressions = dynamic_cast<C_KOfdExpressionTable*>(pSection)) {
    for (DWORD i = 0; i < Bounded(pExpressions->GetCount()); ++i) {
      const char* pszName = nullptr;
      ELF32_SYM* pSymbol = nullptr;
      if (pExpressions->GetSymbol(i, &pszName, &pSymbol) == S_OK) {
        Touch(pszName);
        Touch(pSymbol);
      }
    }
  }
  if (auto* pShort = dynamic_cast<C_KOfdRelxeTable*>(pSection)) {
    for (DWORD i = 0; i < Bounded(pShort->GetCount()); ++i) {
      BYTE* pByte = nullptr;
      DWORD* pWord = nullptr;
      if (pShort->GetByteTarget(i, &pByte) == S_OK) g_dwSink = *pByte;
      if (pShort->GetWordTarget(i, &pWord) == S_OK) Touch(pWord);
    }
  }
  if (auto* pLong = dynamic_cast<C_KOfdRelxebTable*>(pSection)) {
    // Remembered runs answer as fresh walks of them do.
    std::vector<std::pair<HRESULT, DWORD>> vValues;
    std::vector<std::pair<HRESULT, std::string>> vTexts;
    pLong->RememberRuns(true);
    for (DWORD i = 0; i < Bounded(pLong->GetCount()); ++i) {
      DWORD dwValue = 0;
      char szText[256];
      const HRESULT hrValue = pLong->Evaluate(i, &dwValue);
      vValues.emplace_back(hrValue, hrValue == S_OK ? dwValue : 0);
      const HRESULT hrText = pLong->GetExpressionText(i, szText, sizeof szText);
      vTexts.emplace_back(hrText, hrText == S_OK ? szText : "");
    }
    pLong->RememberRuns(false);
    for (DWORD i = 0; i < Bounded(pLong->GetCount()); ++i) {
      DWORD dwValue = 0;
      char szText[256];
      const HRESULT hrValue = pLong->Evaluate(i, &dwValue);
      if (hrValue != vValues[i].first || (hrValue == S_OK && dwValue != vValues[i].second)) __builtin_trap();
      g_dwSink = dwValue;
      const HRESULT hrText = pLong->GetExpressionText(i, szText, sizeof szText);
      if (hrText != vTexts[i].first || (hrText == S_OK && vTexts[i].second != szText)) __builtin_trap();
      if (hrText == S_OK) Touch(szText);
      BYTE* pByte = nullptr;
      WORD* pHalf = nullptr;
      DWORD* pWord = nullptr;
      if (pLong->GetByteTarget(i, &pByte) == S_OK) g_dwSink = *pByte;
      if (pLong->GetHalfTarget(i, &pHalf) == S_OK) Touch(pHalf);
      if (pLong->GetWordTarget(i, &pWord) == S_OK) Touch(pWord);
    }
  }
}

// Counts the reports; Relocate patches the document's own copy of the program bytes.
struct CountingSink : C_KOfdRelocationSink {
  HRESULT ReportHighByte(const DWORD* pPair) override {
    g_dwSink = pPair[0] + pPair[1];
    return S_OK;
  }
};

void Relocate(I_KOfdSection* pSection) {
  auto* pRelocation = dynamic_cast<C_KOfdRelxebTable*>(pSection);
  if (!pRelocation || pRelocation->GetCount() > kMaxRecords) return;
  CountingSink sink;
  for (DWORD dwMode = 0; dwMode < 4; ++dwMode) pRelocation->Relocate(dwMode, &sink);
}

// The tree, and every item's list shown and hidden in the portable control models; a row past the
// end is asked for directly as well.
void RunEveryView(C_KOfdELF& document) {
  platform::TreeModel tree;
  platform::ListModel list;
  document.SetWindows(&tree, &list);
  platform::TreeItem hFile = tree.Insert(platform::kTreeRoot, "input", 0, 0);
  document.SetRootItem(hFile);
  document.AddToTree(nullptr);
  for (platform::TreeItem hItem : tree.Children(hFile)) {
    C_Browse* pBrowse = dynamic_cast<C_Browse*>(reinterpret_cast<I_Browse*>(tree.Find(hItem)->lParam));
    pBrowse->ShowInList();
    pBrowse->ShowRow(static_cast<DWORD>(list.Rows().size()));
    pBrowse->HideAll();
  }
}

// The object opened on its headers, then every section asked for, last first, so that reads on
// demand meet their links in every order: a section handed out is read, a refused one is not,
// and the symbol count known before the table is read is the one it holds once read.
void WalkOnDemand(const std::string& sPath) {
  C_KOfdELF4 document;
  try {
    document.AttachPath(sPath.c_str(), 0);
    if (document.ReadHeaders() != S_OK) return;
  } catch (const C_Exception&) {
    return;
  }
  const DWORD dwSymbols = document.CountSymbols();
  I_KOfdSymbolTable* pSymbols = nullptr;
  if (document.GetSymbolTable(&pSymbols) == S_OK && pSymbols && document.CountSymbols() != dwSymbols) __builtin_trap();
  DWORD dwCount = 0;
  document.GetSectionCount(&dwCount);
  for (DWORD i = dwCount; i-- > 0;) {
    I_KOfdSection* pSection = nullptr;
    const HRESULT hr = document.GetSection(i, &pSection);
    DWORD dwWord = 0;
    document.GetSectionWord(i, &dwWord);
    if (hr == S_OK && pSection && !(dwWord & kSectionRead)) __builtin_trap();
    if (hr != S_OK && (pSection || (dwWord & kSectionRead) || document.Code() != hr)) __builtin_trap();
    if (hr == S_OK && pSection) WalkSection(pSection);
  }
  I_KOfdExpressionTable* pExpressions = nullptr;
  document.GetExpressionTable(&pExpressions);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  const std::string& sPath = WriteFuzzInput(pData, nSize);
  WalkOnDemand(sPath);
  C_KOfdELFX2 document;
  try {
    document.AttachPath(sPath.c_str(), 0);
    document.Read();
  } catch (const C_Exception&) {
    // A damaged object is refused with the library's own result; what was read is still walked.
  }
  DWORD dwCount = 0;
  document.GetSectionCount(&dwCount);
  for (DWORD i = 0; i < dwCount; ++i) {
    I_KOfdSection* pSection = nullptr;
    const char* pszName = nullptr;
    if (document.GetSectionName(i, &pszName) == S_OK && pszName) Touch(pszName);
    if (document.GetSection(i, &pSection) == S_OK && pSection) {
      WalkSection(pSection);
      WalkRelocations(pSection);
    }
  }
  // Relocations change program bytes, so they run once everything has been read as it was.
  for (DWORD i = 0; i < dwCount; ++i) {
    I_KOfdSection* pSection = nullptr;
    if (document.GetSection(i, &pSection) == S_OK && pSection) Relocate(pSection);
  }
  RunEveryView(document);

  DWORD dwMemory = 0;
  document.GetLoadableMemorySize(&dwMemory);
  RunEveryDump(document);
  return 0;
}
