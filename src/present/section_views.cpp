// The browse views of the sections: every section's tree item, and the list columns and rows of
// each section class. Rows show what the text dumps show of a record, except where the chip
// resource tables fix their own rows. The line table has no list of its own.
#include <cstdio>
#include <cstring>

#include "reloc/relocation_tables.h"
#include "sections/bank_table.h"
#include "sections/kmd_tables.h"
#include "sections/line_table.h"
#include "sections/share_rom_table.h"
#include "sections/stab_table.h"
#include "sections/string_table.h"
#include "sections/symbol_table.h"
#include "present/names.h"

namespace {

// Rows needed for dwCount units shown dwPerRow to a row.
DWORD RowsFor(DWORD dwCount, DWORD dwPerRow) { return dwCount / dwPerRow + (dwCount % dwPerRow != 0 ? 1 : 0); }

// The bytes that are letters or digits as themselves, every other byte as ".".
void AppendCharacters(std::string* psText, const BYTE* pBytes, std::size_t nCount) {
  for (std::size_t i = 0; i < nCount; ++i) {
    const char ch = static_cast<char>(pBytes[i]);
    psText->push_back(platform::IsAlphaNumeric(ch) ? ch : '.');
  }
}

// The length of the string at pszString, of which dwLeft bytes lie inside its table.
DWORD StringLength(const char* pszString, DWORD dwLeft) {
  const void* pNul = memchr(pszString, 0, dwLeft);
  return pNul ? static_cast<DWORD>(static_cast<const char*>(pNul) - pszString) : dwLeft;
}

std::intptr_t ItemData(const void* pRecord) { return reinterpret_cast<std::intptr_t>(pRecord); }

}  // namespace

// ---- Every section -------------------------------------------------------------------------

HRESULT C_KOfdSection::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem at C_KOfdSection::AddToTree");
  return Y_AddItem(GetName(), kSectionImage, phNewItem);
}

// ---- Program raw data: four words (16 bytes) a row, each as the raw-data dump writes it ------

HRESULT C_KOfdProgramTable::SetColumns() { return Y_SetColumns({"  Address         ", kRawDataTitle}); }

HRESULT C_KOfdProgramTable::ShowRow(DWORD dwRow) {
  const DWORD dwBytes = Y_GetData() ? Y_GetCount() : 0;
  if (dwRow >= RowsFor(dwBytes, 16)) return E_FAIL;
  std::string sWords;
  for (DWORD dwAt = dwRow * 16; dwAt < dwBytes && dwAt < dwRow * 16 + 16; dwAt += 4) {
    // A last word that the section does not fill is shown with zero bytes.
    const DWORD dwWord = Y_View().ReadZeroExtended<DWORD>(dwAt);
    char szWord[12];
    snprintf(szWord, sizeof szWord, sWords.empty() ? "%08x" : "  %08x", static_cast<unsigned>(dwWord));
    sWords += szWord;
  }
  return Y_InsertRow(dwRow, 0, {AddressCell(dwRow * 16), sWords.c_str()});
}

HRESULT C_KOfdProgramTable::FillList() { return Y_FillRows(RowsFor(Y_GetData() ? Y_GetCount() : 0, 16)); }

// ---- Share ROM: every row begins with the section's first word ------------------------------

HRESULT C_KOfdShareRomTable::SetColumns() {
  return Y_SetColumns({"  Address       ", kRawDataTitle, "                  "});
}

HRESULT C_KOfdShareRomTable::ShowRow(DWORD dwRow) {
  const DWORD dwCount = Y_GetData() ? Y_GetCount() : 0;
  if (dwRow >= RowsFor(dwCount, 4)) return E_FAIL;
  BYTE row[16];
  memset(row, 0x20, sizeof row);
  memcpy(row, Y_GetData(), 4);
  DWORD dwCopied = 1;
  for (DWORD dwWord = dwRow * 4 + 1; dwWord < dwRow * 4 + 4 && dwWord < dwCount; ++dwWord) {
    memcpy(row + 4 * dwCopied++, Y_GetData() + dwWord, 4);
  }
  char szHex[64];
  snprintf(szHex, sizeof szHex,
           "%02X %02X %02X %02X - %02X %02X %02X %02X -- %02X %02X %02X %02X - %02X %02X %02X %02X",
           row[0], row[1], row[2], row[3], row[4], row[5], row[6], row[7], row[8], row[9], row[10], row[11], row[12],
           row[13], row[14], row[15]);
  std::string sCharacters;
  AppendCharacters(&sCharacters, row, dwCopied * 4);
  return Y_InsertRow(dwRow, 0, {AddressCell(dwRow * 16), szHex, sCharacters.c_str()});
}

HRESULT C_KOfdShareRomTable::FillList() { return Y_FillRows(RowsFor(Y_GetData() ? Y_GetCount() : 0, 4)); }

// ---- String table: one row per string, walked from offset 0 as the dump walks it -------------

HRESULT C_KOfdStringTable::SetColumns() { return Y_SetColumns({"Index", "String"}); }

// Row dwRow is the string the walk meets dwRow-th; its index cell is its offset.
HRESULT C_KOfdStringTable::ShowRow(DWORD dwRow) {
  const DWORD dwLength = GetBuffer() ? GetLength() : 0;
  DWORD dwOffset = 0;
  for (DWORD i = 0; i < dwRow && dwOffset < dwLength; ++i) dwOffset += StringLength(GetBuffer() + dwOffset, dwLength - dwOffset) + 1;
  if (dwOffset >= dwLength) return E_FAIL;
  const std::string sText(GetBuffer() + dwOffset, StringLength(GetBuffer() + dwOffset, dwLength - dwOffset));
  return Y_InsertRow(dwRow, 0, {IndexCell(dwOffset), sText.c_str()});
}

HRESULT C_KOfdStringTable::FillList() {
  const DWORD dwLength = GetBuffer() ? GetLength() : 0;
  DWORD dwRow = 0;
  for (std::uint64_t qwOffset = 0; qwOffset < dwLength; ++dwRow) {
    const DWORD dwOffset = static_cast<DWORD>(qwOffset);
    const DWORD dwText = StringLength(GetBuffer() + dwOffset, dwLength - dwOffset);
    const std::string sText(GetBuffer() + dwOffset, dwText);
    Y_InsertRow(dwRow, 0, {IndexCell(dwOffset), sText.c_str()});
    qwOffset += static_cast<std::uint64_t>(dwText) + 1;
  }
  return S_OK;
}

// ---- Symbols -------------------------------------------------------------------------------

HRESULT C_KOfdSymbolTable::SetColumns() {
  return Y_SetColumns({"Index", "Value", "Size", "Type", "Bind", "Other", "Shndx", "Name Index", "Name"});
}

HRESULT C_KOfdSymbolTable::ShowRow(DWORD dwRow) {
  const char* pszName = nullptr;
  ELF32_SYM* pSymbol = nullptr;
  if (GetSymbolAt(dwRow, &pszName, &pSymbol) != S_OK) return E_FAIL;
  return Y_InsertRow(dwRow, ItemData(pSymbol),
                     {IndexCell(dwRow), HexOrUndefCell(pSymbol->st_value), HexCell(pSymbol->st_size),
                      SymbolTypeName(pSymbol->st_info), SymbolBindName(pSymbol->st_info), DecCell(pSymbol->st_other),
                      DecCell(pSymbol->st_shndx), DecCell(pSymbol->st_name), pszName});
}

HRESULT C_KOfdSymbolTable::FillList() { return Y_FillRows(GetCount()); }

// ---- Expressions ---------------------------------------------------------------------------

HRESULT C_KOfdExpressionTable::SetColumns() { return Y_SetColumns({"Index", "Type", "Value", "Symbol Name"}); }

// Only a SYM item names a symbol; one whose symbol cannot be found shows an empty name.
HRESULT C_KOfdExpressionTable::ShowRow(DWORD dwRow) {
  if (dwRow >= GetCount()) return E_FAIL;
  const KEL_EXP& item = *Y_Record(dwRow);
  const char* pszName = nullptr;
  if (item.Type != KEL_EXP_SYM || GetSymbol(dwRow, &pszName, nullptr) != S_OK || !pszName) pszName = "";
  return Y_InsertRow(dwRow, ItemData(&item),
                     {IndexCell(dwRow), ExpressionTypeName(item.Type), HexCell(item.Value), pszName});
}

HRESULT C_KOfdExpressionTable::FillList() { return Y_FillRows(GetCount()); }

// ---- Relocations ---------------------------------------------------------------------------

HRESULT C_KOfdRelxeTable::SetColumns() {
  return Y_SetColumns({"Index", "Offset", "Symndx", "Type", "to_start", "to_end", "exp_start", "exp_end"});
}

HRESULT C_KOfdRelxeTable::ShowRow(DWORD dwRow) {
  if (dwRow >= GetCount()) return E_FAIL;
  const KEL_RELXE& record = *Y_Record(dwRow);
  return Y_InsertRow(dwRow, ItemData(&record),
                     {IndexCell(dwRow), HexCell(record.Offset), DecCell(record.Info >> 8), DecCell(record.Info & 0xFF),
                      DecCell(record.t_start), DecCell(record.t_end), DecCell(record.e_start), DecCell(record.e_end)});
}

HRESULT C_KOfdRelxeTable::FillList() { return Y_FillRows(C_BaseTable<KEL_RELXE>::GetCount()); }

HRESULT C_KOfdRelxebTable::SetColumns() {
  return Y_SetColumns(
      {"Index", "Offset", "Symndx", "Type", "to_start", "to_end", "exp_start", "exp_end", "expression"});
}

HRESULT C_KOfdRelxebTable::ShowRow(DWORD dwRow) {
  if (dwRow >= GetCount()) return E_FAIL;
  const KEL_RELXEB& record = *Y_Record(dwRow);
  char szExpression[256];
  const char* pszExpression =
      GetExpressionText(dwRow, szExpression, sizeof szExpression) == S_OK ? szExpression : "Error!";
  return Y_InsertRow(dwRow, ItemData(&record),
                     {IndexCell(dwRow), HexCell(record.Offset), DecCell(record.Info >> 8), DecCell(record.Info & 0xFF),
                      DecCell(record.to_start), DecCell(record.to_end), DecCell(record.exp_start),
                      DecCell(record.exp_end), pszExpression});
}

HRESULT C_KOfdRelxebTable::FillList() {
  return Z_Remembering([&] { return Y_FillRows(GetCount()); });
}

// ---- Bank information: address and bank in lowercase hexadecimal ---------------------------

HRESULT C_KOfdBankTable::SetColumns() { return Y_SetColumns({"Address", "Bank"}); }

HRESULT C_KOfdBankTable::ShowRow(DWORD dwRow) {
  if (dwRow >= GetCount()) return E_FAIL;
  const KEL_BANKINFO& bank = *Y_Record(dwRow);
  return Y_InsertRow(dwRow, ItemData(&bank), {HexCell(bank.Address), HexCell(bank.Bank)});
}

HRESULT C_KOfdBankTable::FillList() { return Y_FillRows(GetCount()); }

// ---- KDM information: numbers in the list's own number form ---------------------------------

HRESULT C_KOfdKmdInfoTable::SetColumns() {
  return Y_SetColumns({"Index", "Value", "Size", "Gain", "Name Index", "Name"});
}

HRESULT C_KOfdKmdInfoTable::ShowRow(DWORD dwRow) {
  if (dwRow >= GetCount()) return E_FAIL;
  const char* pszName = nullptr;
  KEL_KMDINFO* pEntry = nullptr;
  if (GetKdmWithName(dwRow, &pszName, &pEntry) != S_OK || !pEntry) return E_FAIL;
  const int nRow = static_cast<int>(dwRow);
  Z_InsertListItem(nRow, IndexCell(dwRow), ItemData(pEntry));
  Z_SetSubItemNumber(nRow, 1, pEntry->Value);
  Z_SetSubItemNumber(nRow, 2, pEntry->Size);
  Z_SetSubItemNumber(nRow, 3, pEntry->Gain);
  Z_SetSubItemNumber(nRow, 4, pEntry->NameIndex);
  return Z_SetSubItemText(nRow, 5, pszName ? pszName : "");
}

HRESULT C_KOfdKmdInfoTable::FillList() { return Y_FillRows(GetCount()); }

// ---- KMD sound data: eight bytes a row -----------------------------------------------------

HRESULT C_KOfdKmdTable::SetColumns() { return Y_SetColumns({"Index", "0", "1", "2", "3", "4", "5", "6", "7"}); }

// The rows follow the section's recorded size, bounded by the bytes held; each byte column shows
// its byte as two uppercase hexadecimal digits.
HRESULT C_KOfdKmdTable::ShowRow(DWORD dwRow) {
  const DWORD dwHeld = Y_GetData() ? Y_GetCount() : 0;
  const DWORD dwSize = GetSize() < dwHeld ? GetSize() : dwHeld;
  if (dwRow >= RowsFor(dwSize, 8)) return E_FAIL;
  const int nRow = static_cast<int>(dwRow);
  Z_InsertListItem(nRow, IndexCell(dwRow), 0);
  for (DWORD i = 0; i < 8 && dwRow * 8 + i < dwSize; ++i) {
    char szByte[4];
    snprintf(szByte, sizeof szByte, "%02X", static_cast<unsigned>(Y_GetData()[dwRow * 8 + i]));
    Z_SetSubItemText(nRow, static_cast<int>(i) + 1, szByte);
  }
  return S_OK;
}

HRESULT C_KOfdKmdTable::FillList() {
  const DWORD dwHeld = Y_GetData() ? Y_GetCount() : 0;
  return Y_FillRows(RowsFor(GetSize() < dwHeld ? GetSize() : dwHeld, 8));
}

// ---- Source lines and stabs ----------------------------------------------------------------

HRESULT C_KOfdSourceLineTable::SetColumns() {
  return Y_SetColumns({"Index", "Offset", "Line", "Name Index", "File Name"});
}

HRESULT C_KOfdSourceLineTable::ShowRow(DWORD dwRow) {
  const char* pszFile = nullptr;
  KEL_SRCLINE* pLine = nullptr;
  if (GetSourceLineAt(dwRow, &pszFile, &pLine) != S_OK) return E_FAIL;
  return Y_InsertRow(dwRow, ItemData(pLine),
                     {IndexCell(dwRow), HexCell(pLine->Offset), DecCell(pLine->Line), DecCell(pLine->NameIndex), pszFile});
}

HRESULT C_KOfdSourceLineTable::FillList() { return Y_FillRows(GetCount()); }

HRESULT C_KOfdStabTable::SetColumns() {
  return Y_SetColumns({"Index", "NameIndex", "Type", "Other", "Desc", "Value", "Name"});
}

// Type and other are numbers here: the dump's raw characters would not show in a list.
HRESULT C_KOfdStabTable::ShowRow(DWORD dwRow) {
  const char* pszName = nullptr;
  KEL_STAB* pStab = nullptr;
  if (GetStabAt(dwRow, &pszName, &pStab) != S_OK) return E_FAIL;
  return Y_InsertRow(dwRow, ItemData(pStab),
                     {IndexCell(dwRow), HexCell(pStab->n_strx), DecCell(pStab->n_type), DecCell(pStab->n_other),
                      DecCell(pStab->n_desc), DecCell(pStab->n_value), pszName});
}

HRESULT C_KOfdStabTable::FillList() { return Y_FillRows(GetCount()); }
