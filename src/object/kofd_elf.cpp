#include "object/kofd_elf.h"

#include <type_traits>

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
  return HandOut(dynamic_cast<I_KOfdSymbolTable*>(m_pSymbolTable), ppTable);
}

HRESULT C_KOfdELF::GetExpressionTable(I_KOfdExpressionTable** ppTable) {
  return HandOut(AsExpressionTable(m_pExpressionTable), ppTable);
}

I_KOfdSymbolReferences* C_KOfdELF::GetSymbolReferences() {
  return dynamic_cast<I_KOfdSymbolReferences*>(m_pExpressionTable);
}

HRESULT C_KOfdELF::GetSectionCount(DWORD* pdwCount) { return m_SectionHeader.GetCount(pdwCount); }

HRESULT C_KOfdELF::GetProgramHeaderCount(DWORD* pdwCount) { return m_ProgramHeader.GetCount(pdwCount); }

HRESULT C_KOfdELF::GetSection(DWORD dwIndex, I_KOfdSection** ppSection) {
  if (!ppSection) return E_POINTER;
  if (dwIndex >= Z_SectionCount()) return RecordOutOfRange(*this);
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
  for (DWORD i = 0; i < Z_SectionCount(); ++i) {
    const char* pszSection = nullptr;
    if (m_SectionHeader.GetSectionName(i, &pszSection) == S_OK && kofd_text::EqualIgnoringCase(pszSection, pszName)) {
      *ppSection = m_vSections[i];
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
HRESULT C_KOfdELF::Z_OnDisk(Work work) {
  const HRESULT hrOpen = Open(1);
  if (hrOpen != S_OK && hrOpen != S_FALSE) ThrowLibraryError(true, KE_OPEN_FAILED, GetPath());
  const bool bOpened = hrOpen == S_OK;
  struct BudgetGuard {
    C_File& file;
    ~BudgetGuard() { file.ClearReadBudget(); }
  } guard{*this};
  HRESULT hr = S_OK;
  try {
    hr = GuardAllocation(*this, [&] {
      Z_ReadFileHeaderIfEmpty();
      // The tables, sections and segments of a sound object do not overlap (nor do they the file
      // header): what one operation reads after the header is at most the object's own bytes.
      std::uint64_t qwFileSize = 0;
      platform::FileSize(GetHandle(), &qwFileSize);
      const std::uint64_t qwHeld = qwFileSize > m_dwBase ? qwFileSize - m_dwBase : 0;
      SetReadBudget(m_qwExtent < qwHeld ? m_qwExtent : qwHeld);
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
  return Z_OnDisk([&] {
    if (m_ProgramHeader.IsEmpty()) ThrowIfFailed(m_ProgramHeader.Read(this, m_dwBase), m_ProgramHeader);
    if (m_SectionHeader.IsEmpty()) ThrowIfFailed(m_SectionHeader.Read(this, m_dwBase), m_SectionHeader);
    Z_CreateSections();
    Z_AttachAll();
    Z_ResolveSectionNames();
    for (DWORD i = 0; i < Z_SectionCount(); ++i) Z_ReadWithLinks(i);
    return S_OK;
  });
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
