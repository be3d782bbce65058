// C_KOfdStabTable: the stab section, 12-byte KEL_STAB records (n_strx, n_type, n_other, n_desc,
// n_value) indexed by name (several stabs may share one), names in the linked ".stabstr".
#pragma once

#include "sections/hash_section_table.h"
#include "sections/named_records.h"

class I_KOfdStabTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetStabCount(DWORD* pdwCount) = 0;
  // Stab dwIndex and its name; E_FAIL past the end.
  virtual HRESULT GetStabAt(DWORD dwIndex, const char** ppszName, KEL_STAB** ppStab) = 0;
  // The dwNth (0-based) stab named pszName; E_FAIL when there is none.
  virtual HRESULT FindStab(const char* pszName, DWORD dwNth, KEL_STAB** ppStab) = 0;
  // Stores a copy of the stab with its name appended to ".stabstr" and sets pStab->n_strx to the
  // name's offset.
  virtual HRESULT AddStab(KEL_STAB* pStab, const char* pszName) = 0;
};

class C_KOfdStabTable : public virtual I_KOfdStabTable, public virtual C_KOfdMultiHashSectionTable<WORD, KEL_STAB> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetStabCount(DWORD* pdwCount) override;
  HRESULT GetStabAt(DWORD dwIndex, const char** ppszName, KEL_STAB** ppStab) override;
  HRESULT FindStab(const char* pszName, DWORD dwNth, KEL_STAB** ppStab) override;
  HRESULT AddStab(KEL_STAB* pStab, const char* pszName) override;

  HRESULT SetNameOffset(KEL_STAB* pStab, DWORD dwOffset) override;
  DWORD GetNameOffset(const KEL_STAB* pStab) override { return pStab->n_strx; }
  // Type 0 marks an undefined or header stab; any other type is a real entry.
  WORD GetSelector(const KEL_STAB* pStab) override { return pStab->n_type; }

  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
};
