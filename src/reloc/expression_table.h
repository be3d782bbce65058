// The expression section: postfix tokens, one 8-byte KEL_EXP record each, that compute the values
// of relocated fields. A relocation names its run of tokens by two inclusive indices.
//
//   record i at byte 8*i:  +0 Type (token code)   +4 Value (NUM literal, SYM symbol index)
#pragma once

#include "sections/base_table.h"
#include "sections/symbol_table.h"

// Token codes of KEL_EXP::Type.
enum : DWORD {
  KEL_EXP_NOTYPE = 0,
  KEL_EXP_ADD = 1,
  KEL_EXP_SUB = 2,
  KEL_EXP_MUL = 3,
  KEL_EXP_DIV = 4,
  KEL_EXP_AND = 5,
  KEL_EXP_OR = 6,
  KEL_EXP_XOR = 7,
  KEL_EXP_NOT = 8,
  KEL_EXP_NIBBLE = 9,
  KEL_EXP_OPEN = 10,
  KEL_EXP_CLOSE = 11,
  KEL_EXP_NUM = 12,
  KEL_EXP_SYM = 13,
  KEL_EXP_SHR = 14,
  KEL_EXP_SHL = 15,
  KEL_EXP_MOD = 16,
  KEL_EXP_ERR = 17,
};

class I_KOfdExpressionTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetCount(DWORD* pdwCount) = 0;
  // Throws std::out_of_range past the end, as every record table does.
  virtual HRESULT GetAt(DWORD dwIndex, KEL_EXP** ppRecord) = 0;
  // For a SYM record: the name and record of the symbol it names. S_FALSE (outputs untouched)
  // for any other record, E_POINTER when no symbol table is linked.
  virtual HRESULT GetSymbol(DWORD dwIndex, const char** ppszName, ELF32_SYM** ppSymbol) = 0;
  // The linked section as a symbol table, or null.
  virtual HRESULT GetSymbolTable(I_KOfdSymbolTable** ppTable) = 0;
};

class C_KOfdExpressionTable : public virtual I_KOfdExpressionTable,
                              public virtual I_KOfdSymbolReferences,
                              public C_KOfdSectionTable<KEL_EXP> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetCount(DWORD* pdwCount) override;
  using C_BaseTable<KEL_EXP>::GetCount;
  HRESULT GetAt(DWORD dwIndex, KEL_EXP** ppRecord) override { return C_BaseTable<KEL_EXP>::GetAt(dwIndex, ppRecord); }
  HRESULT GetSymbol(DWORD dwIndex, const char** ppszName, ELF32_SYM** ppSymbol) override;
  HRESULT GetSymbolTable(I_KOfdSymbolTable** ppTable) override;
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;

  // True when a SYM record names a symbol called pszName, letter case ignored.
  bool NamesSymbol(const char* pszName) override;
  // Token dwIndex, which must be below the count, and for SYM its symbol, as GetAt and
  // GetSymbol give them, in one call for the walks that read every token of a run.
  HRESULT GetToken(DWORD dwIndex, const KEL_EXP** ppToken, const char** ppszName, ELF32_SYM** ppSymbol);

 private:
  HRESULT Z_SymbolOf(const KEL_EXP& token, const char** ppszName, ELF32_SYM** ppSymbol);

  C_LinkAs<C_KOfdSymbolTable> m_Symbols;
};
