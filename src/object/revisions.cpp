// Which section class each document revision builds for a section type. Each revision asks
// the one it builds on first and adds its own types only where that one gives nothing.
//
//   C_KOfdELF    1 program data, 2 symbols, 3 strings, 17 relocations, 18 expressions
//   C_KOfdELF2   + 19 lines, 20 bank information, 21 share ROM, 22 relocations (32-bit)
//   C_KOfdELF3   + 23 KMD data, 24 KMD information
//   C_KOfdELF4   + 25 source lines
#include "frame/error.h"
#include "object/kofd_elf.h"
#include "reloc/relocation_tables.h"
#include "sections/bank_table.h"
#include "sections/kmd_tables.h"
#include "sections/line_table.h"
#include "sections/share_rom_table.h"
#include "sections/storage.h"
#include "sections/string_table.h"
#include "sections/symbol_table.h"

namespace {

template <class T>
I_KOfdSection* Build() {
  return static_cast<I_KOfdSection*>(new T);
}

// Runs create, recording an allocation failure in the document and giving null for it.
template <class Create>
HRESULT CreateGuarded(C_KOfdELF& document, I_KOfdSection** ppSection, Create create) {
  if (!ppSection) return E_POINTER;
  *ppSection = nullptr;
  return GuardAllocation(document, [&] {
    *ppSection = create();
    return S_OK;
  });
}

}  // namespace

I_KOfdExpressionTable* AsExpressionTable(I_KOfdSection* pSection) {
  return dynamic_cast<I_KOfdExpressionTable*>(pSection);
}

I_KOfdSection* C_KOfdELF::Y_CreateBaseSection(DWORD dwType) {
  switch (dwType) {
    case SHT_KEL_PROGBITS:
      // Cleared first, so that a failed allocation leaves no stale kept reference.
      m_pProgramTable = nullptr;
      return m_pProgramTable = Build<C_KOfdProgramTable>();
    case SHT_KEL_SYMTAB:
      m_pSymbolTable = nullptr;
      return m_pSymbolTable = Build<C_KOfdSymbolTable>();
    case SHT_KEL_STRTAB:
      return Build<C_KOfdStringTable>();
    case SHT_KEL_RELXE:
      return Build<C_KOfdRelxeTable>();
    case SHT_KEL_EXPR:
      m_pExpressionTable = nullptr;
      return m_pExpressionTable = Build<C_KOfdExpressionTable>();
    default:
      return nullptr;
  }
}

I_KOfdSection* C_KOfdELF2::Y_CreateSecondSection(DWORD dwType) {
  switch (dwType) {
    case SHT_KEL_LINE:
      return Build<C_KOfdLineTable>();
    case SHT_KEL_BNKINFO:
      return Build<C_KOfdBankTable>();
    case SHT_KEL_SROM:
      return Build<C_KOfdShareRomTable>();
    case SHT_KEL_RELXEB:
      return Build<C_KOfdRelxebTable>();
    default:
      return nullptr;
  }
}

HRESULT C_KOfdELF::CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) {
  return CreateGuarded(*this, ppSection, [&] { return Y_CreateBaseSection(dwType); });
}

HRESULT C_KOfdELF2::CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) {
  const HRESULT hr = C_KOfdELF::CreateSectionForType(dwType, ppSection);
  if (hr != S_OK || *ppSection) return hr;
  return CreateGuarded(*this, ppSection, [&] { return Y_CreateSecondSection(dwType); });
}

// Built on the base revision directly, with the second revision's types added by hand.
HRESULT C_KOfdELF3::CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) {
  const HRESULT hr = C_KOfdELF::CreateSectionForType(dwType, ppSection);
  if (hr != S_OK || *ppSection) return hr;
  return CreateGuarded(*this, ppSection, [&]() -> I_KOfdSection* {
    if (I_KOfdSection* pSection = Y_CreateSecondSection(dwType)) return pSection;
    if (dwType == SHT_KEL_KDM) return Build<C_KOfdKmdTable>();
    if (dwType == SHT_KEL_KDMINFO) return Build<C_KOfdKmdInfoTable>();
    return nullptr;
  });
}

HRESULT C_KOfdELF4::CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) {
  const HRESULT hr = C_KOfdELF3::CreateSectionForType(dwType, ppSection);
  if (hr != S_OK || *ppSection || dwType != SHT_KEL_SRCLINE) return hr;
  return CreateGuarded(*this, ppSection, [] { return Build<C_KOfdSourceLineTable>(); });
}
