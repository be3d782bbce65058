// C_KOfdBankTable: the ".bankinfo" section, 8-byte KEL_BANKINFO records (Address, Bank) in the
// order they were added, carried unchanged: no sorting, no merging of duplicates, no lookup.
#pragma once

#include "sections/base_table.h"

class I_KOfdBankTable : public virtual I_BaseTable<KEL_BANKINFO> {};

class C_KOfdBankTable : public virtual I_KOfdBankTable, public virtual C_KOfdSectionTable<KEL_BANKINFO> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  ~C_KOfdBankTable() override;

  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
};
