// Line-number sections: C_KOfdLineTable maps 8-byte KEL_LINE records (Offset, Line) to places in
// one program section; C_KOfdSourceLineTable holds 12-byte KEL_SRCLINE records (Offset, Line,
// NameIndex) indexed by the source file name they name in the linked ".filestrtab".
#pragma once

#include "sections/hash_section_table.h"
#include "sections/named_records.h"
#include "sections/storage.h"

class I_KOfdLineTable : public virtual I_Unknown {
 public:
  // The program section's sh_addr plus record dwIndex's Offset, unscaled. Throws
  // std::out_of_range for a bad index.
  virtual DWORD GetLineAddress(DWORD dwIndex) = 0;
  // The program word at byte Offset x 4; null with S_OK past the contents, null with E_POINTER
  // when there is no program section.
  virtual HRESULT GetLineCode(DWORD dwIndex, DWORD** ppWord) = 0;
  // The referenced program section, or null; always S_OK.
  virtual HRESULT GetProgramTable(I_KOfdProgramTable** ppProgram) = 0;
};

class C_KOfdLineTable : public virtual I_KOfdLineTable, public virtual C_KOfdSectionTable<KEL_LINE> {
 public:
  DWORD GetLineAddress(DWORD dwIndex) override;
  HRESULT GetLineCode(DWORD dwIndex, DWORD** ppWord) override;
  HRESULT GetProgramTable(I_KOfdProgramTable** ppProgram) override;

  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
};

class I_KOfdSourceLineTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetSourceLineCount(DWORD* pdwCount) = 0;
  // Record dwIndex and its file name; E_FAIL past the end.
  virtual HRESULT GetSourceLineAt(DWORD dwIndex, const char** ppszFile, KEL_SRCLINE** ppLine) = 0;
  // The dwNth (0-based) record of the file pszFile; E_FAIL when there is none.
  virtual HRESULT FindSourceLine(const char* pszFile, DWORD dwNth, KEL_SRCLINE** ppLine) = 0;
  // Stores a copy of the record under pszFile and sets pLine->NameIndex to the name's offset.
  virtual HRESULT AddSourceLine(KEL_SRCLINE* pLine, const char* pszFile) = 0;
};

class C_KOfdSourceLineTable : public virtual I_KOfdSourceLineTable,
                              public virtual C_KOfdMultiHashSectionTable<DWORD, KEL_SRCLINE> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetSourceLineCount(DWORD* pdwCount) override;
  HRESULT GetSourceLineAt(DWORD dwIndex, const char** ppszFile, KEL_SRCLINE** ppLine) override;
  HRESULT FindSourceLine(const char* pszFile, DWORD dwNth, KEL_SRCLINE** ppLine) override;
  HRESULT AddSourceLine(KEL_SRCLINE* pLine, const char* pszFile) override;

  HRESULT SetNameOffset(KEL_SRCLINE* pLine, DWORD dwOffset) override;
  DWORD GetNameOffset(const KEL_SRCLINE* pLine) override { return pLine->NameIndex; }
  // Line 0 marks a record that belongs to no source line.
  DWORD GetSelector(const KEL_SRCLINE* pLine) override { return pLine->Line; }

  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
};
