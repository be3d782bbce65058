// The listings of the header records to std::cout, the parts of an object's whole dump, and the
// whole-file dump of the extended revision to a file of its own.
#include "present/object_dumps.h"

#include <iostream>

#include "frame/replacing_file.h"
#include "platform/platform.h"
#include "present/record_writers.h"
#include "sections/symbol_table.h"

HRESULT C_KElfHeader::DumpAll() {
  if (!m_pRecord) return E_POINTER;
  std::cout << "\n---------------- ELF Header Information -----------------\n";
  WriteFileHeaderBlock(std::cout, *m_pRecord);
  EndLine(std::cout);
  return S_OK;
}

HRESULT C_KElfProgramHeader::DumpAll() {
  if (Held() == 0) return E_POINTER;
  std::cout << "\n---------------- ELF Program Header -----------------\n";
  C_DumpLine line(std::cout);
  AppendProgramHeaderFields(line, *Record(0));
  line.End();
  EndLine(std::cout);
  return S_OK;
}

HRESULT C_KElfSectionHeader::DumpAll() {
  WriteSectionHeaderTable(std::cout, Held() ? Record(0) : nullptr, Held());
  return S_OK;
}

std::vector<I_KOfdDump*> GetDumpParts(I_KOfdELF& document) {
  I_KElfHeader* pHeader = nullptr;
  I_KElfProgramHeader* pPrograms = nullptr;
  I_KElfSectionHeader* pSections = nullptr;
  document.GetFileHeader(&pHeader);
  document.GetProgramHeader(&pPrograms);
  document.GetSectionHeader(&pSections);
  std::vector<I_KOfdDump*> vParts;
  auto add = [&vParts](I_Unknown* pPart) {
    if (I_KOfdDump* pDump = dynamic_cast<I_KOfdDump*>(pPart)) vParts.push_back(pDump);
  };
  add(pHeader);
  add(pPrograms);
  add(pSections);
  DWORD dwCount = 0;
  document.GetSectionCount(&dwCount);
  for (DWORD i = 0; i < dwCount; ++i) {
    I_KOfdSection* pSection = nullptr;
    if (document.GetSection(i, &pSection) != S_OK) break;
    add(pSection);
  }
  return vParts;
}

HRESULT C_KOfdELFX2::DumpFile(const char* pszFileName) {
  I_KElfHeader* pHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  GetFileHeader(&pHeader);
  if (!pszFileName || pHeader->GetRecord(&pRecord) != S_OK || !pRecord) return E_POINTER;
  // A symbol table read on demand is read before the file is touched; its failure is recorded.
  I_KOfdSymbolTable* pSymbols = nullptr;
  if (GetSymbolTable(&pSymbols) < 0) return E_FAIL;
  // The dump is appended to what the file holds, and the whole replaces it at once.
  try {
    C_ReplacingFile output(pszFileName, platform::kReplaceKeepContents);
    C_ReplacingStreamBuf buffer(output);
    std::ostream file(&buffer);
    Z_DumpWholeFile(file, *pRecord);
    buffer.Drain();
    output.Commit();
  } catch (const C_Exception& error) {
    SetCodeAndMessage(error.Code(), error.Message().c_str());
    return E_FAIL;
  }
  return S_OK;
}

void C_KOfdELFX2::Z_DumpWholeFile(std::ostream& file, const KEL_EHDR& header) {
  file << "\n---------------- ELF Header Information -----------------\n";
  WriteFileHeaderBlock(file, header);
  EndLine(file);

  I_KElfProgramHeader* pPrograms = nullptr;
  GetProgramHeader(&pPrograms);
  file << "--------------- Program Header --------------------";
  EndLine(file);
  WriteProgramHeaderTitles(file);
  KEL_PHDR* pProgram = nullptr;
  for (DWORD i = 0; pPrograms->GetAt(i, &pProgram) == S_OK; ++i) {
    C_DumpLine line(file);
    line.Index(i, kHeaderIndexBuffer);
    AppendProgramHeaderFields(line, *pProgram);
    line.End();
  }

  I_KElfSectionHeader* pSections = nullptr;
  GetSectionHeader(&pSections);
  KEL_SHDR* pFirst = nullptr;
  DWORD dwSections = 0;
  if (pSections->GetAt(0, &pFirst) == S_OK) pSections->GetCount(&dwSections);
  EndLine(file);
  WriteSectionHeaderTable(file, pFirst, dwSections);

  // The symbol table keeps its two lists, the local symbols and then the others from its first
  // global on, one after the other: numbering runs through both.
  EndLine(file);
  WriteSymbolHeading(file);
  I_KOfdSymbolTable* pSymbolTable = nullptr;
  GetSymbolTable(&pSymbolTable);
  if (C_KOfdSymbolTable* pSymbols = dynamic_cast<C_KOfdSymbolTable*>(pSymbolTable)) {
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    for (DWORD i = 0; pSymbols->GetSymbolAt(i, &pszName, &pSymbol) == S_OK; ++i) {
      C_DumpLine line(file);
      line.Index(i, kSectionIndexBuffer);
      AppendSymbolFields(line, *pSymbol);
      line.Text(" ").Text(pszName).End();
    }
  }
  EndLine(file);
}
