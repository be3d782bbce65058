// The sound resources of the chip: C_KOfdKmdTable, the KMD sound data section (raw bytes), and
// C_KOfdKmdInfoTable, the KDM info table of 16-byte KEL_KMDINFO records (NameIndex, Value, Size,
// Gain), one per name, names in the linked string table.
#pragma once

#include "sections/hash_section_table.h"
#include "sections/named_records.h"
#include "sections/storage.h"

class I_KOfdKmdInfoTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetKdmCount(DWORD* pdwCount) = 0;
  // Entry dwIndex and its name; past the end 0x800403F1 (recorded as the last error) and
  // nothing set.
  virtual HRESULT GetKdmWithName(DWORD dwIndex, const char** ppszName, KEL_KMDINFO** ppEntry) = 0;
  // Entry dwIndex, or null with 0x800403F1 past the end.
  virtual HRESULT GetKdm(DWORD dwIndex, KEL_KMDINFO** ppEntry) = 0;
  // Stores a copy of the entry under pszName; the copy's NameIndex is where the name lands.
  virtual HRESULT AddKdm(const char* pszName, const KEL_KMDINFO* pEntry) = 0;
  // The string table that holds the names.
  virtual HRESULT LinkStringTable(I_KOfdSection* pStrings) = 0;
};

class C_KOfdKmdInfoTable : public virtual I_KOfdKmdInfoTable, public virtual C_KOfdHashSectionTable<KEL_KMDINFO> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetKdmCount(DWORD* pdwCount) override;
  HRESULT GetKdmWithName(DWORD dwIndex, const char** ppszName, KEL_KMDINFO** ppEntry) override;
  HRESULT GetKdm(DWORD dwIndex, KEL_KMDINFO** ppEntry) override;
  HRESULT AddKdm(const char* pszName, const KEL_KMDINFO* pEntry) override;
  HRESULT LinkStringTable(I_KOfdSection* pStrings) override;

  HRESULT SetNameOffset(KEL_KMDINFO* pEntry, DWORD dwOffset) override;
  DWORD GetNameOffset(const KEL_KMDINFO* pEntry) override { return pEntry->NameIndex; }

  // The heading and titles go to std::cout, the record lines to this object's own stream.
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
};

class I_KOfdKmdTable : public virtual I_Unknown {
 public:
  // The sound bytes; E_FAIL when the section holds none.
  virtual HRESULT GetData(BYTE** ppData) = 0;
  // sh_addr, sh_size and sh_info of the section's own header.
  virtual HRESULT GetPlacement(DWORD* pdwAddress, DWORD* pdwSize, DWORD* pdwInfo) = 0;
};

class C_KOfdKmdTable : public virtual I_KOfdKmdTable, public virtual C_KOfdSectionStorage<BYTE> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetData(BYTE** ppData) override;
  HRESULT GetPlacement(DWORD* pdwAddress, DWORD* pdwSize, DWORD* pdwInfo) override;

  // All to std::cout: the heading, then the bytes as raw characters, 16 to a line.
  HRESULT DumpHead() override;
  HRESULT DumpAll() override;
};
