// C_KOfdShareRomTable: the share ROM section, a block of 32-bit words (size = count x 4) that
// the system carries unchanged.
#pragma once

#include "sections/storage.h"

class I_KOfdShareRomTable : public virtual I_Unknown {
 public:
  // The address of word dwIndex; 0x800403F1, with *ppWord untouched, past the count.
  virtual HRESULT GetWord(DWORD dwIndex, DWORD** ppWord) = 0;
  // The first word and the byte count (null and 0 when nothing is loaded).
  virtual HRESULT GetData(DWORD** ppWords, DWORD* pdwBytes) = 0;
  virtual HRESULT GetCount(DWORD* pdwCount) = 0;
};

class C_KOfdShareRomTable : public virtual I_KOfdShareRomTable, public virtual C_KOfdSectionStorage<DWORD> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetWord(DWORD dwIndex, DWORD** ppWord) override;
  HRESULT GetData(DWORD** ppWords, DWORD* pdwBytes) override;
  HRESULT GetCount(DWORD* pdwCount) override;

  // "Share Rom Raw Data": eight-digit words, six on the first line and five on each later one.
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
  HRESULT DumpAll() override;
};
