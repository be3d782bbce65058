// The text dumps of the section tables. Record tables share their DumpAll (DumpRecordTable);
// each writes its own heading and record line here. The raw-data, string and sound dumps have
// DumpAll of their own.
#include <cstring>
#include <iomanip>
#include <iostream>

#include "present/record_writers.h"
#include "sections/bank_table.h"
#include "sections/kmd_tables.h"
#include "sections/line_table.h"
#include "sections/share_rom_table.h"
#include "sections/stab_table.h"
#include "sections/storage.h"
#include "sections/string_table.h"
#include "sections/symbol_table.h"

namespace {

const char kLineHeading[] = "\n---------------- Line Number Information ---------------------\n";

// The raw-data DumpAll: words as eight hexadecimal digits with leading zeros, separated by tabs.
// bCountFirst puts five words on every line; otherwise the line is broken before the counter is
// counted, which gives the first line six.
template <class Dump>
HRESULT DumpWords(Dump& dump, DWORD dwCount, bool bCountFirst) {
  dump.DumpHead();
  dump.fill('0');
  dump.setf(std::ios_base::hex, std::ios_base::basefield);
  DWORD dwOnLine = 0;
  for (DWORD i = 0; i < dwCount; ++i) {
    dump.DumpRecord(i);
    if (bCountFirst) ++dwOnLine;
    if (dwOnLine < 5) {
      dump.put('\t');
    } else {
      dwOnLine = 0;
      EndLine(dump);
    }
    if (!bCountFirst) ++dwOnLine;
  }
  dump.fill(' ');
  dump.setf(std::ios_base::dec, std::ios_base::basefield);
  EndLine(dump);
  return S_OK;
}

// The length of the string at pszString, of which dwLeft bytes lie inside its table.
std::size_t StringLength(const char* pszString, DWORD dwLeft) {
  const void* pNul = memchr(pszString, 0, dwLeft);
  return pNul ? static_cast<std::size_t>(static_cast<const char*>(pNul) - pszString) : dwLeft;
}

// A word in a field of 8 with the stream's own fill and base, and no separator.
void WriteWord(std::ostream& os, DWORD dwWord) { os << std::setw(8) << dwWord; }

}  // namespace

// ---- Raw data ----------------------------------------------------------------------------

HRESULT C_KOfdProgramTable::DumpHead() {
  WriteHeading(*this, "\n---------------- Program Raw Data -----------------------\n");
  return S_OK;
}

HRESULT C_KOfdProgramTable::DumpRecord(DWORD dwIndex) {
  const std::uint64_t qwOffset = static_cast<std::uint64_t>(dwIndex) * 4;
  if (!Y_GetData() || qwOffset >= Y_GetCount()) return E_FAIL;
  WriteWord(*this, Y_View().ReadZeroExtended<DWORD>(static_cast<DWORD>(qwOffset)));
  return S_OK;
}

HRESULT C_KOfdProgramTable::DumpAll() {
  const DWORD dwWords = Y_GetData() ? static_cast<DWORD>((static_cast<std::uint64_t>(Y_GetCount()) + 3) / 4) : 0;
  return DumpWords(*this, dwWords, true);
}

HRESULT C_KOfdShareRomTable::DumpHead() {
  WriteHeading(*this, "\n---------------- Share Rom Raw Data --------------------\n");
  return S_OK;
}

HRESULT C_KOfdShareRomTable::DumpRecord(DWORD dwIndex) {
  if (dwIndex >= Y_GetCount()) return E_FAIL;
  WriteWord(*this, Y_GetData()[dwIndex]);
  return S_OK;
}

HRESULT C_KOfdShareRomTable::DumpAll() { return DumpWords(*this, Y_GetCount(), false); }

// ---- Strings -----------------------------------------------------------------------------

HRESULT C_KOfdStringTable::DumpHead() {
  WriteHeading(*this, "\n---------------- String Table Information -------------------\n");
  return S_OK;
}

// A string that runs to the end of the table without its NUL is shown up to the end.
HRESULT C_KOfdStringTable::DumpRecord(DWORD dwOffset) {
  const DWORD dwLength = GetLength();
  if (!GetBuffer() || dwOffset >= dwLength) return E_FAIL;
  *this << '[' << std::dec << dwOffset << "]\t";
  write(GetBuffer() + dwOffset, static_cast<std::streamsize>(StringLength(GetBuffer() + dwOffset, dwLength - dwOffset)));
  put('\n');
  return S_OK;
}

HRESULT C_KOfdStringTable::DumpAll() {
  DumpHead();
  const DWORD dwLength = GetLength();
  for (std::uint64_t qwOffset = 0; qwOffset < dwLength;) {
    const DWORD dwOffset = static_cast<DWORD>(qwOffset);
    DumpRecord(dwOffset);
    qwOffset += StringLength(GetBuffer() + dwOffset, dwLength - dwOffset) + 1;
  }
  put('\n');
  return S_OK;
}

// ---- Record tables -----------------------------------------------------------------------

HRESULT C_KOfdBankTable::DumpHead() {
  WriteHeading(*this, "\n---------------- Bank Information ---------------------\n", {{"Address", 9}, {"Bank", 7}});
  return S_OK;
}

HRESULT C_KOfdBankTable::DumpRecord(DWORD dwIndex) {
  const KEL_BANKINFO* pBank = Y_RecordOrNull(dwIndex);
  if (!pBank) return E_FAIL;
  C_DumpLine(*this).Hex(pBank->Address, 9).Dec(pBank->Bank, 7).End();
  return S_OK;
}

HRESULT C_KOfdLineTable::DumpHead() {
  WriteHeading(*this, kLineHeading, {{"Offset", 9}, {"number", 7}});
  return S_OK;
}

HRESULT C_KOfdLineTable::DumpRecord(DWORD dwIndex) {
  const KEL_LINE* pLine = Y_RecordOrNull(dwIndex);
  if (!pLine) return E_FAIL;
  C_DumpLine(*this).Hex(pLine->Offset, 9).Dec(pLine->Line, 7).End();
  return S_OK;
}

// The source-line record shows no fields of its own: its number and its file name.
HRESULT C_KOfdSourceLineTable::DumpHead() {
  WriteHeading(*this, kLineHeading);
  return S_OK;
}

HRESULT C_KOfdSourceLineTable::DumpRecord(DWORD dwIndex) {
  const KEL_SRCLINE* pLine = Y_RecordOrNull(dwIndex);
  if (!pLine) return E_FAIL;
  C_DumpLine(*this).Index(dwIndex, kSectionIndexBuffer).Text(" ").Text(GetRecordName(pLine)).End();
  return S_OK;
}

HRESULT C_KOfdSymbolTable::DumpHead() {
  WriteSymbolHeading(*this);
  return S_OK;
}

HRESULT C_KOfdSymbolTable::DumpRecord(DWORD dwIndex) {
  const ELF32_SYM* pSymbol = Y_RecordOrNull(dwIndex);
  if (!pSymbol) return E_FAIL;
  C_DumpLine line(*this);
  line.Index(dwIndex, kSectionIndexBuffer);
  AppendSymbolFields(line, *pSymbol);
  line.Text(" ").Text(GetSymbolName(pSymbol)).End();
  return S_OK;
}

HRESULT C_KOfdSymbolTable::DumpAll() {
  DumpHead();
  const DWORD dwCount = GetCount();
  {
    C_DumpBlock block(*this);
    for (DWORD i = 0; i < dwCount; ++i) {
      const ELF32_SYM* pSymbol = Y_Record(i);
      const std::string_view sName = GetRecordNameView(pSymbol);
      C_DumpLine line(block);
      line.Index(i, kSectionIndexBuffer);
      AppendSymbolFields(line, *pSymbol);
      line.Char(' ', 0).Text(sName.data(), sName.size(), 0).End();
    }
  }
  EndLine(*this);
  return S_OK;
}

// The titles do not line up with the fields; that is the layout the listing has always had.
HRESULT C_KOfdStabTable::DumpHead() {
  WriteHeading(*this, "\n---------------- Stab Table Information -------------------\n",
               {{"Index", 0}, {"NameIndex", 9}, {"Type", 9}, {"Other", 8}, {"Desc", 7}, {"Value", 6}, {"Name", 9}});
  return S_OK;
}

HRESULT C_KOfdStabTable::DumpRecord(DWORD dwIndex) {
  const KEL_STAB* pStab = Y_RecordOrNull(dwIndex);
  if (!pStab) return E_FAIL;
  C_DumpLine(*this)
      .Index(dwIndex, kSectionIndexBuffer)
      .Hex(pStab->n_strx, 9)
      .Char(static_cast<char>(pStab->n_type), 8)
      .Char(static_cast<char>(pStab->n_other), 8)
      .Dec(pStab->n_desc, 8)
      .Dec(pStab->n_value, 8)
      .Text(" ")
      .Text(GetRecordName(pStab))
      .End();
  return S_OK;
}

// ---- Sound -------------------------------------------------------------------------------

HRESULT C_KOfdKmdInfoTable::DumpHead() {
  WriteHeading(std::cout, "\n---------------- KDM Table Information -------------------\n",
               {{"Index", 0}, {"Value", 9}, {"Size", 9}, {"Gain", 8}, {"Name", 5}});
  return S_OK;
}

HRESULT C_KOfdKmdInfoTable::DumpRecord(DWORD dwIndex) {
  const KEL_KMDINFO* pEntry = Y_RecordOrNull(dwIndex);
  if (!pEntry) return E_FAIL;
  C_DumpLine(*this)
      .Index(dwIndex, kSectionIndexBuffer)
      .HexOrUndef(pEntry->Value, 9)
      .Hex(pEntry->Size, 9)
      .Hex(pEntry->Gain, 8)
      .Hex(pEntry->NameIndex, 5)
      .Text(" ")
      .Text(GetRecordName(pEntry))
      .End();
  return S_OK;
}

HRESULT C_KOfdKmdTable::DumpHead() {
  WriteHeading(std::cout, "\n---------------- KMD Sound Data ---------------------\n");
  return S_OK;
}

// Lines are always whole: the bytes past the end of the data in the last one are zero bytes.
HRESULT C_KOfdKmdTable::DumpAll() {
  DumpHead();
  BYTE* pData = nullptr;
  if (GetData(&pData) != S_OK) return E_FAIL;
  std::cout.fill('0');
  std::cout.setf(std::ios_base::hex, std::ios_base::basefield);
  // The section header gives the size; the bytes held bound it.
  const DWORD dwSize = GetSize() < Y_GetCount() ? GetSize() : Y_GetCount();
  char szLine[16];
  for (DWORD dwOffset = 0; dwOffset < dwSize;) {
    const DWORD dwBytes = dwSize - dwOffset < sizeof szLine ? dwSize - dwOffset : sizeof szLine;
    memset(szLine, 0, sizeof szLine);
    memcpy(szLine, pData + dwOffset, dwBytes);
    std::cout.write(szLine, sizeof szLine);
    EndLine(std::cout);
    dwOffset += dwBytes;
  }
  std::cout.fill(' ');
  std::cout.setf(std::ios_base::dec, std::ios_base::basefield);
  EndLine(std::cout);
  return S_OK;
}
