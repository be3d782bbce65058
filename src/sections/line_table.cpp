#include "sections/line_table.h"

DWORD C_KOfdLineTable::GetLineAddress(DWORD dwIndex) {
  KEL_LINE* pLine = nullptr;
  GetAt(dwIndex, &pLine);
  // Without a program section the offset stands alone, as if sh_addr were 0.
  I_KOfdSection* pProgram = GetInfoSection();
  return (pProgram ? pProgram->GetAddress() : 0) + pLine->Offset;
}

HRESULT C_KOfdLineTable::GetLineCode(DWORD dwIndex, DWORD** ppWord) {
  KEL_LINE* pLine = nullptr;
  GetAt(dwIndex, &pLine);
  I_KOfdProgramTable* pProgram = nullptr;
  GetProgramTable(&pProgram);
  if (!pProgram) {
    *ppWord = nullptr;
    return E_POINTER;
  }
  // Offset counts words here; GetDword scales it in 64 bits, so a huge Offset cannot wrap.
  return pProgram->GetDword(pLine->Offset, ppWord);
}

// The document attaches the section at sh_info as the info section: that is the program
// section a line table describes.
HRESULT C_KOfdLineTable::GetProgramTable(I_KOfdProgramTable** ppProgram) {
  *ppProgram = dynamic_cast<I_KOfdProgramTable*>(GetInfoSection());
  return S_OK;
}

HRESULT C_KOfdSourceLineTable::GetSourceLineCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdSourceLineTable::GetSourceLineAt(DWORD dwIndex, const char** ppszFile, KEL_SRCLINE** ppLine) {
  return GetNamedRecordAt(*this, dwIndex, ppszFile, ppLine);
}

HRESULT C_KOfdSourceLineTable::FindSourceLine(const char* pszFile, DWORD dwNth, KEL_SRCLINE** ppLine) {
  return FindNth(pszFile, dwNth, ppLine);
}

// Many records name one file: a name already held is shared, not stored again.
HRESULT C_KOfdSourceLineTable::AddSourceLine(KEL_SRCLINE* pLine, const char* pszFile) {
  if (!pLine) return E_POINTER;
  if (!pszFile) pszFile = "";
  KEL_SRCLINE* pSameFile = nullptr;
  HRESULT hr = S_OK;
  if (FindName(pszFile, nullptr, &pSameFile) == S_OK) {
    KEL_SRCLINE line = *pLine;
    line.NameIndex = pSameFile->NameIndex;
    hr = AddRecord(&line);
  } else {
    hr = Y_AddNamed(pszFile, pLine);
  }
  if (hr == S_OK) pLine->NameIndex = Y_Record(GetCount() - 1)->NameIndex;
  return hr == S_OK ? S_OK : E_FAIL;
}

HRESULT C_KOfdSourceLineTable::SetNameOffset(KEL_SRCLINE* pLine, DWORD dwOffset) {
  pLine->NameIndex = dwOffset;
  return S_OK;
}
