#include "object/kofd_elf.h"

#include <algorithm>
#include <type_traits>
#include <unordered_set>

#include "frame/error.h"
#include "frame/text.h"
#include "platform/platform.h"
#include "sections/string_table.h"
#include "sections/symbol_table.h"

namespace {

// A section whose Link field holds this value has its Info section read with the program data.
constexpr DWORD kProgramLink = 32;

// Writes an interface pointer to the caller's out argument.
template <class Interface>
HRESULT HandOut(std::common_type_t<Interface*> pObject, Interface** ppOut) {
  if (!ppOut) return E_POINTER;
  *ppOut = pObject;
  return S_OK;
}

// A record that failed without throwing (an allocation failure it caught) is thrown as a copy
// of what it recorded.
void ThrowIfFailed(HRESULT hr, const C_Exception& record) {
  if (hr < 0) throw C_Exception(record.Code(), record.Message().c_str());
}

}  // namespace

C_KOfdELF::~C_KOfdELF() { Z_DestroySections(); }

// ---- Accessors ---------------------------------------------------------------------------

HRESULT C_KOfdELF::GetFileHeader(I_KElfHeader** ppHeader) { return HandOut(&m_Header, ppHeader); }

HRESULT C_KOfdELF::GetProgramHeader(I_KElfProgramHeader** ppTable) { return HandOut(&m_ProgramHeader, ppTable); }

HRESULT C_KOfdELF::GetSectionHeader(I_KElfSectionHeader** ppTable) { return HandOut(&m_SectionHeader, ppTable); }

HRESULT C_KOfdELF::GetSymbolTable(I_KOfdSymbolTable** ppTable) {
  if (!ppTable) return E_POINTER;
  *ppTable = nullptr;
  const HRESULT hr = Z_ReadKept(m_pSymbolTable, m_dwSymbolIndex);
  if (hr < 0) return hr;
  return HandOut(dynamic_cast<I_KOfdSymbolTable*>(m_pSymbolTable), ppTable);
}

HRESULT C_KOfdELF::GetExpressionTable(I_KOfdExpressionTable** ppTable) {
  if (!ppTable) return E_POINTER;
  *ppTable = nullptr;
  const HRESULT hr = Z_ReadKept(m_pExpressionTable, m_dwExpressionIndex);
  if (hr < 0) return hr;
  return HandOut(AsExpressionTable(m_pExpressionTable), ppTable);
}

I_KOfdSymbolReferences* C_KOfdELF::GetSymbolReferences() {
  return dynamic_cast<I_KOfdSymbolReferences*>(Z_Kept(m_pExpressionTable, m_dwExpressionIndex));
}

I_KOfdSection* C_KOfdELF::GetProgramTable() { return Z_Kept(m_pProgramTable, m_dwProgramIndex); }

I_KOfdSection* C_KOfdELF::Z_Kept(I_KOfdSection* pTable, DWORD dwIndex) {
  return pTable && Z_ReadKept(pTable, dwIndex) >= 0 ? pTable : nullptr;
}

HRESULT C_KOfdELF::Z_ReadKept(I_KOfdSection* pTable, DWORD dwIndex) {
  // A table built by CreateSectionForType outside the open is no section of the document.
  if (!pTable || dwIndex >= Z_SectionCount() || m_vSections[dwIndex] != pTable) return S_OK;
  return Z_ReadOnDemand(dwIndex);
}

DWORD C_KOfdELF::CountSymbols() {
  auto* pTable = dynamic_cast<C_KOfdSymbolTable*>(m_pSymbolTable);
  if (!pTable) return 0;
  if (m_dwSymbolIndex >= Z_SectionCount() || m_vSections[m_dwSymbolIndex] != m_pSymbolTable ||
      (m_vSectionWords[m_dwSymbolIndex] & kSectionRead)) {
    return pTable->GetCount();
  }
  // What C_KOfdSectionTable::ReadRecords would hold.
  const DWORD dwSize = m_SectionHeader.Record(m_dwSymbolIndex)->sh_size;
  return dwSize % sizeof(ELF32_SYM) == 0 ? dwSize / static_cast<DWORD>(sizeof(ELF32_SYM)) : 0;
}

HRESULT C_KOfdELF::GetSectionCount(DWORD* pdwCount) { return m_SectionHeader.GetCount(pdwCount); }

HRESULT C_KOfdELF::GetProgramHeaderCount(DWORD* pdwCount) { return m_ProgramHeader.GetCount(pdwCount); }

HRESULT C_KOfdELF::GetSection(DWORD dwIndex, I_KOfdSection** ppSection) {
  if (!ppSection) return E_POINTER;
  if (dwIndex >= Z_SectionCount()) return RecordOutOfRange(*this);
  *ppSection = nullptr;
  const HRESULT hr = Z_ReadOnDemand(dwIndex);
  if (hr < 0) return hr;
  *ppSection = m_vSections[dwIndex];
  return S_OK;
}

HRESULT C_KOfdELF::GetSectionByIndex(DWORD dwIndex, I_KOfdSection** ppSection) {
  return GetSection(dwIndex, ppSection);
}

HRESULT C_KOfdELF::GetSectionWord(DWORD dwIndex, DWORD* pdwWord) {
  if (!pdwWord) return E_POINTER;
  if (dwIndex >= Z_SectionCount()) return RecordOutOfRange(*this);
  *pdwWord = m_vSectionWords[dwIndex];
  return S_OK;
}

HRESULT C_KOfdELF::FindSection(const char* pszName, I_KOfdSection** ppSection) {
  if (!pszName || !ppSection) return E_POINTER;
  DWORD dwIndex = 0;
  const HRESULT hr = FindSectionIndex(pszName, &dwIndex);
  return hr == S_OK ? GetSection(dwIndex, ppSection) : hr;
}

HRESULT C_KOfdELF::FindSectionIndex(const char* pszName, DWORD* pdwIndex) {
  if (!pszName || !pdwIndex) return E_POINTER;
  for (DWORD i = 0; i < Z_SectionCount(); ++i) {
    const char* pszSection = nullptr;
    if (m_SectionHeader.GetSectionName(i, &pszSection) == S_OK && kofd_text::EqualIgnoringCase(pszSection, pszName)) {
      *pdwIndex = i;
      return S_OK;
    }
  }
  return E_FAIL;
}

HRESULT C_KOfdELF::GetSectionName(DWORD dwIndex, const char** ppszName) {
  return m_SectionHeader.GetSectionName(dwIndex, ppszName);
}

HRESULT C_KOfdELF::GetLoadableMemorySize(DWORD* pdwSize) { return m_ProgramHeader.GetLoadableMemorySize(pdwSize); }

// ---- Disk operations ---------------------------------------------------------------------

template <class Work>
HRESULT C_KOfdELF::Z_OnDisk(Work work, Budget budget) {
  const HRESULT hrOpen = Open(1);
  if (hrOpen != S_OK && hrOpen != S_FALSE) ThrowLibraryError(true, KE_OPEN_FAILED, GetPath());
  const bool bOpened = hrOpen == S_OK;
  struct BudgetGuard {
    C_KOfdELF& document;
    bool bKeepRest;
    ~BudgetGuard() {
      if (bKeepRest) document.m_qwBudgetLeft = document.ReadBudget();
      document.ClearReadBudget();
    }
  } guard{*this, budget != Budget::kWhole};
  HRESULT hr = S_OK;
  try {
    hr = GuardAllocation(*this, [&] {
      Z_ReadFileHeaderIfEmpty();
      // The tables, sections and segments of a sound object do not overlap (nor do they the file
      // header): what one operation reads after the header is at most the object's own bytes.
      std::uint64_t qwFileSize = 0;
      platform::FileSize(GetHandle(), &qwFileSize);
      const std::uint64_t qwHeld = qwFileSize > m_dwBase ? qwFileSize - m_dwBase : 0;
      const std::uint64_t qwWhole = std::min(m_qwExtent, qwHeld);
      SetReadBudget(budget == Budget::kRest ? std::min(qwWhole, m_qwBudgetLeft) : qwWhole);
      return work();
    });
  } catch (...) {
    if (bOpened) Close();
    throw;
  }
  if (bOpened && Close() != S_OK) ThrowLibraryError(true, KE_CLOSE_FAILED, GetPath());
  return hr;
}

void C_KOfdELF::Z_ReadFileHeaderIfEmpty() {
  if (!m_Header.IsEmpty()) return;
  // The tables below take their counts and offsets from a new header: nothing read under the
  // old one may survive it.
  Z_DestroySections();
  m_ProgramHeader.Clear();
  m_SectionHeader.Clear();
  ThrowIfFailed(m_Header.Read(this, m_dwBase), m_Header);
  const KEL_EHDR& header = *m_Header.Record();
  m_ProgramHeader.SetTable(header.e_phnum, header.e_phoff);
  m_SectionHeader.SetTable(header.e_shnum, header.e_shoff);
  m_wStringIndex = header.e_shstrndx;
}

HRESULT C_KOfdELF::ReadFileHeader() {
  return Z_OnDisk([] { return S_OK; });
}

HRESULT C_KOfdELF::ReadProgramHeader() {
  return Z_OnDisk([&] {
    if (m_ProgramHeader.IsEmpty()) ThrowIfFailed(m_ProgramHeader.Read(this, m_dwBase), m_ProgramHeader);
    return S_OK;
  });
}

HRESULT C_KOfdELF::ReadSectionHeader() {
  return Z_OnDisk([&] {
    if (m_SectionHeader.IsEmpty()) ThrowIfFailed(m_SectionHeader.Read(this, m_dwBase), m_SectionHeader);
    return S_OK;
  });
}

HRESULT C_KOfdELF::ReadSegment(DWORD dwIndex) {
  return Z_OnDisk([&] {
    if (m_ProgramHeader.IsEmpty()) ThrowIfFailed(m_ProgramHeader.Read(this, m_dwBase), m_ProgramHeader);
    if (dwIndex >= m_ProgramHeader.Held()) return RecordOutOfRange(*this);
    ThrowIfFailed(m_ProgramHeader.ReadSegment(this, m_dwBase, dwIndex), m_ProgramHeader);
    return S_OK;
  });
}

HRESULT C_KOfdELF::ReadSegments() {
  return Z_OnDisk([&] {
    if (m_ProgramHeader.IsEmpty()) ThrowIfFailed(m_ProgramHeader.Read(this, m_dwBase), m_ProgramHeader);
    for (DWORD i = 0; i < m_ProgramHeader.Held(); ++i) {
      ThrowIfFailed(m_ProgramHeader.ReadSegment(this, m_dwBase, i), m_ProgramHeader);
    }
    return S_OK;
  });
}

HRESULT C_KOfdELF::Read() {
  m_bOnDemand = false;
  return Z_OnDisk([&] {
    Z_OpenHeaders();
    for (DWORD i = 0; i < Z_SectionCount(); ++i) Z_ReadWithLinks(i);
    return S_OK;
  });
}

HRESULT C_KOfdELF::ReadHeaders() {
  m_bOnDemand = false;
  const HRESULT hr = Z_OnDisk(
      [&] {
        Z_OpenHeaders();
        return S_OK;
      },
      Budget::kWholeKeepRest);
  m_bOnDemand = hr == S_OK;
  return hr;
}

void C_KOfdELF::Z_OpenHeaders() {
  if (m_ProgramHeader.IsEmpty()) ThrowIfFailed(m_ProgramHeader.Read(this, m_dwBase), m_ProgramHeader);
  if (m_SectionHeader.IsEmpty()) ThrowIfFailed(m_SectionHeader.Read(this, m_dwBase), m_SectionHeader);
  Z_CreateSections();
  Z_AttachAll();
  Z_ResolveSectionNames();
}

HRESULT C_KOfdELF::Z_ReadOnDemand(DWORD dwIndex) {
  if (!m_bOnDemand || dwIndex >= Z_SectionCount() || !m_vSections[dwIndex] || (m_vSectionWords[dwIndex] & kSectionRead)) {
    return S_OK;
  }
  // What the section's Link and Info fields name, and what theirs name: a section reaches
  // those (its strings, symbols, expressions, program data) without asking the document. A
  // symbol table's Info counts its local symbols and names no section.
  try {
    return GuardAllocation(*this, [&] {
      std::vector<DWORD> vNamed(1, dwIndex);
      std::unordered_set<DWORD> seen(vNamed.begin(), vNamed.end());
      for (std::size_t n = 0; n < vNamed.size(); ++n) {
        const KEL_SHDR& header = *m_SectionHeader.Record(vNamed[n]);
        const DWORD dwInfo = header.sh_type == SHT_KEL_SYMTAB ? 0 : header.sh_info;
        for (DWORD dwNamed : {header.sh_link, dwInfo}) {
          if (Z_Named(dwNamed, vNamed[n]) && seen.insert(dwNamed).second) vNamed.push_back(dwNamed);
        }
      }
      std::sort(vNamed.begin(), vNamed.end());
      return Z_OnDisk(
          [&] {
            for (DWORD i : vNamed) Z_ReadWithLinks(i);
            return S_OK;
          },
          Budget::kRest);
    });
  } catch (const C_Exception& error) {
    SetCodeAndMessage(error.Code(), error.Message().c_str());
    return error.Code() < 0 ? error.Code() : E_FAIL;
  }
}

HRESULT C_KOfdELF::Link() {
  return Z_OnDisk([&] {
    Z_Link();
    return S_OK;
  });
}

// ---- Sections ----------------------------------------------------------------------------

void C_KOfdELF::Z_DestroySections() {
  m_SectionHeader.SetStringTable(nullptr);
  m_pProgramTable = nullptr;
  m_pSymbolTable = nullptr;
  m_pExpressionTable = nullptr;
  m_dwProgramIndex = m_dwSymbolIndex = m_dwExpressionIndex = kNoSection;
  m_bOnDemand = false;
  for (I_KOfdSection* pSection : m_vSections) {
    if (pSection) pSection->Destroy();
  }
  m_vSections.clear();
  m_vSectionWords.clear();
}

void C_KOfdELF::Z_CreateSections() {
  Z_DestroySections();
  const DWORD dwCount = m_SectionHeader.Held();
  m_vSections.assign(dwCount, nullptr);
  m_vSectionWords.assign(dwCount, 0);
  // Section keys carry the document's identifier above the section index.
  const DWORD dwKeyHigh = (m_dwIdentifier & 0xFFFFu) << 16;
  for (DWORD i = 0; i < dwCount; ++i) {
    KEL_SHDR* pHeader = m_SectionHeader.Record(i);
    I_KOfdSection* pSection = nullptr;
    CreateSectionForType(pHeader->sh_type, &pSection);
    m_vSections[i] = pSection;
    if (!pSection) continue;
    // Each build of a kept type replaces the kept table: the last one built stays.
    if (pSection == m_pProgramTable) m_dwProgramIndex = i;
    if (pSection == m_pSymbolTable) m_dwSymbolIndex = i;
    if (pSection == m_pExpressionTable) m_dwExpressionIndex = i;
    if (C_KOfdSection* pBase = dynamic_cast<C_KOfdSection*>(pSection)) {
      pBase->SetKey(static_cast<WORD>(i), dwKeyHigh | i, static_cast<WORD>(m_dwIdentifier >> 16));
      pBase->SetHeader(pHeader);
      pBase->SetOrigin(m_dwBase);
      pBase->SetHost(this);
    }
  }
}

I_KOfdSection* C_KOfdELF::Z_Named(DWORD dwIndex, DWORD dwSelf) const {
  if (dwIndex == 0 || dwIndex >= Z_SectionCount() || dwIndex == dwSelf) return nullptr;
  return m_vSections[dwIndex];
}

void C_KOfdELF::Z_AttachAll() {
  for (DWORD i = 0; i < Z_SectionCount(); ++i) {
    C_KOfdSection* pSection = dynamic_cast<C_KOfdSection*>(m_vSections[i]);
    if (!pSection) continue;
    const KEL_SHDR& header = *m_SectionHeader.Record(i);
    I_KOfdSection* pLinked = Z_Named(header.sh_link, i);
    // A symbol table's names come from its linked section, which must be a string table.
    if (header.sh_type == SHT_KEL_SYMTAB && !dynamic_cast<I_KOfdStringTable*>(pLinked)) pLinked = nullptr;
    pSection->Attach(pLinked, Z_Named(header.sh_info, i));
  }
}

void C_KOfdELF::Z_ResolveSectionNames() {
  if (m_vSections.empty()) return;
  I_KOfdStringTable* pStrings =
      m_wStringIndex < Z_SectionCount() ? dynamic_cast<I_KOfdStringTable*>(m_vSections[m_wStringIndex]) : nullptr;
  if (!pStrings) ThrowLibraryError(false, E_POINTER, "Invalid string table pointer");
  Z_ReadWithLinks(m_wStringIndex);
  m_SectionHeader.SetStringTable(pStrings);
  for (DWORD i = 0; i < Z_SectionCount(); ++i) {
    if (m_vSections[i]) m_vSections[i]->SetName(pStrings->GetString(m_SectionHeader.Record(i)->sh_name));
  }
}

void C_KOfdELF::Z_ReadWithLinks(DWORD dwIndex) {
  if (!m_vSections[dwIndex] || (m_vSectionWords[dwIndex] & kSectionRead)) return;
  // A chain of Link fields may be as long as the section list and may loop: walk it with a
  // stack of our own, and let a section met again on the way be read as it stands.
  std::vector<DWORD> vPending(1, dwIndex);
  m_vSectionWords[dwIndex] |= kSectionPending;
  try {
    while (!vPending.empty()) {
      const DWORD dwTop = vPending.back();
      const DWORD dwLink = m_SectionHeader.Record(dwTop)->sh_link;
      if (Z_Named(dwLink, dwTop) && !(m_vSectionWords[dwLink] & (kSectionRead | kSectionPending))) {
        m_vSectionWords[dwLink] |= kSectionPending;
        vPending.push_back(dwLink);
        continue;
      }
      Z_ReadAt(dwTop);
      vPending.pop_back();
    }
  } catch (...) {
    for (DWORD dwPending : vPending) m_vSectionWords[dwPending] &= ~static_cast<DWORD>(kSectionPending);
    throw;
  }
}

void C_KOfdELF::Z_ReadAt(DWORD dwIndex) {
  I_KOfdSection* pSection = m_vSections[dwIndex];
  I_KOfdStorage* pStorage = dynamic_cast<I_KOfdStorage*>(pSection);
  if (!pStorage) ThrowLibraryError(false, E_POINTER, "pSection at C_KOfdELF::Z_ReadAt");
  const HRESULT hr = pStorage->Read(this, m_dwBase);
  if (hr < 0) {
    if (C_Exception* pRecord = dynamic_cast<C_Exception*>(pSection)) ThrowIfFailed(hr, *pRecord);
    ThrowLibraryError(false, hr, "pSection at C_KOfdELF::Z_ReadAt");
  }
  m_vSectionWords[dwIndex] = kSectionRead;
}

void C_KOfdELF::Z_Link() {
  Z_AttachAll();
  for (DWORD i = 0; i < Z_SectionCount(); ++i) {
    const KEL_SHDR& header = *m_SectionHeader.Record(i);
    if (header.sh_type != SHT_KEL_SYMTAB || !m_vSections[i]) continue;
    if (dynamic_cast<I_KOfdStringTable*>(Z_Named(header.sh_link, i))) Z_ReadWithLinks(header.sh_link);
  }
  for (DWORD i = 0; i < Z_SectionCount(); ++i) {
    const KEL_SHDR& header = *m_SectionHeader.Record(i);
    if (header.sh_type != SHT_KEL_PROGBITS && header.sh_link != kProgramLink) continue;
    if (Z_Named(header.sh_info, i)) Z_ReadWithLinks(header.sh_info);
  }
}
