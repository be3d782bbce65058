// The text dumps of the expression table and of both relocation tables. The two relocation
// records print alike: their expression indices differ only in width.
#include "present/dump.h"
#include "present/names.h"
#include "reloc/relocation_tables.h"

namespace {

void WriteRelocationHeading(std::ostream& os) {
  WriteHeading(os, "\n---------------- Relocation Information ---------------------\n",
               {{"Offset", 9}, {"Symndx", 7}, {"Type", 5}, {"t_start", 8}, {"t_end", 6}, {"e_start", 8}, {"e_end", 6}});
}

// No record number: the line starts with the Offset.
template <class Record>
HRESULT WriteRelocation(std::ostream& os, const Record* pRecord, DWORD dwFirst, DWORD dwLast, DWORD dwStart, DWORD dwEnd) {
  C_DumpLine(os)
      .Hex(pRecord->Offset, 9)
      .Dec(pRecord->Info >> 8, 7)
      .Dec(pRecord->Info & 0xFF, 5)
      .Dec(dwFirst, 8)
      .Dec(dwLast, 6)
      .Dec(dwStart, 8)
      .Dec(dwEnd, 6)
      .End();
  return S_OK;
}

}  // namespace

HRESULT C_KOfdExpressionTable::DumpHead() {
  WriteHeading(*this, "\n---------------- Arithmatic Expression ---------------------\n",
               {{"Index", 0}, {"Type", 5}, {"Value", 9}, {" SymName", 0}});
  return S_OK;
}

HRESULT C_KOfdExpressionTable::DumpRecord(DWORD dwIndex) {
  const KEL_EXP* pToken = Y_RecordOrNull(dwIndex);
  if (!pToken) return E_FAIL;
  C_DumpLine line(*this);
  line.Index(dwIndex, kSectionIndexBuffer).Text(ExpressionTypeName(pToken->Type), 5).Hex(pToken->Value, 9);
  if (pToken->Type == KEL_EXP_SYM) {
    const char* pszName = "";
    if (Z_SymbolOf(*pToken, &pszName, nullptr) != S_OK || !pszName) pszName = "";
    line.Text(" ").Text(pszName);
  }
  line.End();
  return S_OK;
}

HRESULT C_KOfdRelxeTable::DumpHead() {
  WriteRelocationHeading(*this);
  return S_OK;
}

HRESULT C_KOfdRelxeTable::DumpRecord(DWORD dwIndex) {
  const KEL_RELXE* pRecord = Y_RecordOrNull(dwIndex);
  return pRecord ? WriteRelocation(*this, pRecord, pRecord->t_start, pRecord->t_end, pRecord->e_start, pRecord->e_end)
                 : E_FAIL;
}

HRESULT C_KOfdRelxebTable::DumpHead() {
  WriteRelocationHeading(*this);
  return S_OK;
}

HRESULT C_KOfdRelxebTable::DumpRecord(DWORD dwIndex) {
  const KEL_RELXEB* pRecord = Y_RecordOrNull(dwIndex);
  return pRecord ? WriteRelocation(*this, pRecord, pRecord->to_start, pRecord->to_end, pRecord->exp_start, pRecord->exp_end)
                 : E_FAIL;
}
