// C_KOfdSymbolTable: the symbol section, 16-byte ELF32_SYM records indexed by name (several
// symbols may share one), names in the linked string table.
#pragma once

#include "sections/hash_section_table.h"

class I_KOfdSymbolTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetSymbolCount(DWORD* pdwCount) = 0;
  virtual HRESULT FindSymbolName(const char* pszName, const char** ppszStored, ELF32_SYM** ppSymbol) = 0;
  // The section the named symbol belongs to; E_FAIL for undefined (0, 0xFFFF) and absolute
  // (0xFFF1) symbols, and when the document has no such section.
  virtual HRESULT GetSymbolSection(const char* pszName, I_KOfdSection** ppSection) = 0;
  // E_FAIL when symbol dwIndex is undefined and an expression of the document names it.
  virtual HRESULT CheckUndefined(DWORD dwIndex) = 0;
  virtual HRESULT AddSymbol(ELF32_SYM* pSymbol, const char* pszName) = 0;
  virtual HRESULT GetFirstGlobal(DWORD* pdwIndex) = 0;
  virtual HRESULT FindSymbolNth(const char* pszName, DWORD dwNth, ELF32_SYM** ppSymbol) = 0;
  virtual HRESULT FindSymbol(const char* pszName, ELF32_SYM** ppSymbol) = 0;
  // Adds each defined symbol's section address to its value (again on every call).
  virtual HRESULT Rebase() = 0;
  // The string hash of pszName; S_OK when the index holds a symbol of that name, else E_FAIL.
  virtual HRESULT ProbeHash(const char* pszName, DWORD* pdwHash) = 0;
};

class C_KOfdSymbolTable : public virtual I_KOfdSymbolTable, public virtual C_KOfdMultiHashSectionTable<WORD, ELF32_SYM> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetSymbolCount(DWORD* pdwCount) override;
  HRESULT FindSymbolName(const char* pszName, const char** ppszStored, ELF32_SYM** ppSymbol) override;
  HRESULT GetSymbolSection(const char* pszName, I_KOfdSection** ppSection) override;
  HRESULT CheckUndefined(DWORD dwIndex) override;
  HRESULT AddSymbol(ELF32_SYM* pSymbol, const char* pszName) override;
  HRESULT GetFirstGlobal(DWORD* pdwIndex) override;
  HRESULT FindSymbolNth(const char* pszName, DWORD dwNth, ELF32_SYM** ppSymbol) override;
  HRESULT FindSymbol(const char* pszName, ELF32_SYM** ppSymbol) override;
  HRESULT Rebase() override;
  HRESULT ProbeHash(const char* pszName, DWORD* pdwHash) override;

  HRESULT SetNameOffset(ELF32_SYM* pSymbol, DWORD dwOffset) override;
  DWORD GetNameOffset(const ELF32_SYM* pSymbol) override { return pSymbol->st_name; }
  WORD GetSelector(const ELF32_SYM* pSymbol) override { return pSymbol->st_shndx; }

  // Symbol dwIndex and its name; E_FAIL past the end.
  HRESULT GetSymbolAt(DWORD dwIndex, const char** ppszName, ELF32_SYM** ppSymbol);
  // The name of a symbol record of this table ("" when the string table has none).
  const char* GetSymbolName(const ELF32_SYM* pSymbol);

  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
  // The lines of DumpRecord, collected into blocks: a million symbols take a few thousand writes.
  HRESULT DumpAll() override;
};

// True for the section indexes that name no section: undefined (0, 0xFFFF) and absolute.
inline bool IsUndefinedSection(WORD wIndex) { return wIndex == SHN_KEL_UNDEF || wIndex == SHN_KEL_UNDEF2; }
