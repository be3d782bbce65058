#include "edit/object_image.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "frame/error.h"
#include "frame/fileio.h"
#include "frame/text.h"
#include "object/kofd_elf.h"
#include "platform/platform.h"

namespace {

constexpr WORD kFirstReservedIndex = 0xFF00;
constexpr DWORD kSymbolRecord = sizeof(ELF32_SYM);
constexpr DWORD kTokenRecord = sizeof(KEL_EXP);
constexpr DWORD kSymToken = 13;
constexpr BYTE kBigEndianData = 2;


template <class Record>
Record RecordAt(const std::vector<BYTE>& vData, std::size_t nIndex) {
  Record record;
  memcpy(&record, vData.data() + nIndex * sizeof(Record), sizeof(Record));
  return record;
}

template <class Record>
void AppendRecord(std::vector<BYTE>& vData, const Record& record) {
  const BYTE* pBytes = reinterpret_cast<const BYTE*>(&record);
  vData.insert(vData.end(), pBytes, pBytes + sizeof(Record));
}

// Relocation records of the two modelled types, in one shape.
DWORD RelocationRecordSize(DWORD dwType) {
  return dwType == SHT_KEL_RELXEB ? sizeof(KEL_RELXEB) : dwType == SHT_KEL_RELXE ? sizeof(KEL_RELXE) : 0;
}

// The shorter record in the shape of the longer one, so that one path reads both.
KEL_RELXEB Widened(const KEL_RELXE& record) {
  return KEL_RELXEB{record.Offset, record.Info, record.t_start, record.t_end, record.e_start, record.e_end};
}

}  // namespace

bool ReadImageString(const std::vector<BYTE>& vTable, DWORD dwOffset, std::string* psText) {
  if (dwOffset >= vTable.size()) return false;
  const void* pEnd = memchr(vTable.data() + dwOffset, 0, vTable.size() - dwOffset);
  if (!pEnd) return false;
  psText->assign(reinterpret_cast<const char*>(vTable.data() + dwOffset), static_cast<const BYTE*>(pEnd) - (vTable.data() + dwOffset));
  return true;
}

void StoreImageName(C_ImageSection& table, C_ImageName& name) {
  if (name.m_bRaw) return;
  std::string sThere;
  if (name.m_dwOffset != kNoNameOffset && ReadImageString(table.m_vData, name.m_dwOffset, &sThere) && sThere == name.m_sText) return;
  if (table.m_vData.size() + name.m_sText.size() + 1 > 0xFFFFFFFFu) ThrowImageFailure("string table past 4 GiB");
  name.m_dwOffset = static_cast<DWORD>(table.m_vData.size());
  table.m_vData.insert(table.m_vData.end(), name.m_sText.begin(), name.m_sText.end());
  table.m_vData.push_back(0);
}

void ThrowImageFailure(const std::string& sReason) { throw C_ImageFailure(sReason); }

// ---- Building ------------------------------------------------------------------------------

C_ObjectImage::C_ObjectImage(DWORD dwChip, WORD wType) {
  const BYTE kIdent[] = {0x7F, 'E', 'L', 'F', 1, 1, 1};
  memcpy(m_Header.e_ident, kIdent, sizeof kIdent);
  m_Header.e_type = wType;
  m_Header.e_chip = dwChip;
  m_Header.e_version = 1;
  m_Header.e_ehsize = sizeof(KEL_EHDR);
  m_Header.e_phentsize = sizeof(KEL_PHDR);
  m_Header.e_shentsize = sizeof(KEL_SHDR);
  m_vSections.push_back(std::make_unique<C_ImageSection>());
  m_vSections.front()->m_Name.m_dwOffset = 0;
  AddNameTable();
}

C_ImageSection& C_ObjectImage::AddNameTable() {
  auto pNames = std::make_unique<C_ImageSection>();
  pNames->m_Name.m_sText = FreeSectionName(".shstrtab");
  pNames->m_Header.sh_type = SHT_KEL_STRTAB;
  pNames->m_Header.sh_addralign = 1;
  pNames->m_vData.push_back(0);
  m_pNameTable = pNames.get();
  m_vSections.push_back(std::move(pNames));
  return *m_pNameTable;
}

std::string C_ObjectImage::FreeSectionName(const std::string& sBase) const {
  const auto folded = [](std::string sName) {
    for (char& ch : sName) ch = kofd_text::FoldAsciiCase(ch);
    return sName;
  };
  // The names taken, gathered once: a search among many sections stays linear.
  std::unordered_set<std::string> taken;
  for (const auto& pSection : m_vSections) {
    if (!pSection->m_Name.m_bRaw) taken.insert(folded(pSection->m_Name.m_sText));
  }
  std::string sName = sBase;
  // Each taken name is one section, so the count bounds the search.
  std::vector<char> vBuffer(sBase.size() + 24);
  for (std::size_t n = 1; taken.count(folded(sName)) != 0 && n <= m_vSections.size(); ++n) {
    std::snprintf(vBuffer.data(), vBuffer.size(), "%s%d", sBase.c_str(), static_cast<int>(n));
    sName = vBuffer.data();
  }
  return sName;
}

C_ObjectImage::C_ObjectImage(I_KOfdELF& document, const char* pszPath) {
  I_KElfHeader* pHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  if (document.GetFileHeader(&pHeader) != S_OK || !pHeader || pHeader->GetRecord(&pRecord) != S_OK || !pRecord) {
    ThrowLibraryError(false, E_POINTER, "file header at C_ObjectImage");
  }
  m_Header = *pRecord;
  m_vOriginal = ReadFileBytes(pszPath);
  DWORD dwCount = 0;
  I_KElfSectionHeader* pTable = nullptr;
  document.GetSectionCount(&dwCount);
  document.GetSectionHeader(&pTable);
  std::vector<KEL_SHDR> vHeaders;
  for (DWORD i = 0; i < dwCount; ++i) {
    KEL_SHDR* pSection = nullptr;
    if (!pTable || pTable->GetAt(i, &pSection) != S_OK || !pSection) ThrowLibraryError(false, E_POINTER, "section header at C_ObjectImage");
    vHeaders.push_back(*pSection);
  }
  Z_LoadSections(vHeaders);
}

C_ObjectImage::C_ObjectImage(std::vector<BYTE> vBytes) : m_vOriginal(std::move(vBytes)) {
  if (m_vOriginal.size() < sizeof(KEL_EHDR)) ThrowImageFailure("the object is shorter than its file header");
  memcpy(&m_Header, m_vOriginal.data(), sizeof m_Header);
  if (m_Header.e_ident[5] == kBigEndianData) SwapHeaderFields(m_Header);
  const std::uint64_t qwTableEnd = m_Header.e_shoff + std::uint64_t(m_Header.e_shnum) * sizeof(KEL_SHDR);
  if (m_Header.e_shnum != 0 && qwTableEnd > m_vOriginal.size()) ThrowImageFailure("the section header table lies outside the object");
  std::vector<KEL_SHDR> vHeaders(m_Header.e_shnum);
  for (std::size_t i = 0; i < vHeaders.size(); ++i) {
    memcpy(&vHeaders[i], m_vOriginal.data() + m_Header.e_shoff + i * sizeof(KEL_SHDR), sizeof(KEL_SHDR));
  }
  Z_LoadSections(vHeaders);
}

void SwapHeaderFields(KEL_EHDR& header) {
  const auto swap16 = [](WORD w) { return static_cast<WORD>((w >> 8) | (w << 8)); };
  const auto swap32 = [](DWORD dw) { return (dw >> 24) | ((dw >> 8) & 0xFF00u) | ((dw << 8) & 0xFF0000u) | (dw << 24); };
  for (WORD* pw : {&header.e_type, &header.e_ehsize, &header.e_phentsize, &header.e_phnum, &header.e_shentsize,
                   &header.e_shnum, &header.e_shstrndx}) {
    *pw = swap16(*pw);
  }
  for (DWORD* pdw : {&header.e_chip, &header.e_version, &header.e_entry, &header.e_phoff, &header.e_shoff, &header.e_flags}) {
    *pdw = swap32(*pdw);
  }
}

std::vector<BYTE> ReadFileBytes(const char* pszPath) {
  HANDLE hFile = nullptr;
  if (OpenFileForRead(pszPath, &hFile) != S_OK) ThrowLibraryError(true, KE_OPEN_FAILED, pszPath);
  std::vector<BYTE> vBytes;
  std::uint64_t qwSize = 0;
  DWORD dwRead = 0;
  bool bRead = platform::FileSize(hFile, &qwSize) && qwSize <= 0xFFFFFFFFu;
  if (bRead) {
    vBytes.resize(static_cast<std::size_t>(qwSize));
    bRead = qwSize == 0 || (ReadFileBlockCounted(hFile, vBytes.data(), 1, static_cast<DWORD>(qwSize), &dwRead) == S_OK && dwRead == qwSize);
    if (!bRead && dwRead != 0) platform::SetEndOfFileError();
  }
  CloseFileHandle(hFile);
  if (!bRead) ThrowLibraryError(true, KE_READ_FAILED, pszPath);
  return vBytes;
}

C_ImageSection* C_ObjectImage::Z_Named(DWORD dwIndex) const {
  if (dwIndex == 0 || dwIndex >= m_vSections.size()) return nullptr;
  return m_vSections[dwIndex].get();
}

void C_ObjectImage::Z_LoadSections(const std::vector<KEL_SHDR>& vHeaders) {
  const DWORD dwCount = static_cast<DWORD>(vHeaders.size());
  m_bHadSectionTable = dwCount != 0;
  m_dwOriginalShoff = m_Header.e_shoff;
  m_dwOriginalShnum = dwCount;
  for (DWORD i = 0; i < dwCount; ++i) {
    const KEL_SHDR* pRecord = &vHeaders[i];
    auto pSection = std::make_unique<C_ImageSection>();
    pSection->m_Header = *pRecord;
    pSection->m_bPlaced = true;
    pSection->m_dwPlacedOffset = pRecord->sh_offset;
    if (pSection->HasFileBytes()) {
      if (std::uint64_t(pRecord->sh_offset) + pRecord->sh_size > m_vOriginal.size()) {
        ThrowLibraryError(false, KE_CORRUPT_FILE, ("section " + std::to_string(i) + " lies outside the file").c_str());
      }
      pSection->m_dwPlacedSize = pRecord->sh_size;
      m_vOriginalRanges.emplace_back(pRecord->sh_offset, pRecord->sh_size);
      pSection->m_vData.assign(m_vOriginal.begin() + pRecord->sh_offset, m_vOriginal.begin() + pRecord->sh_offset + pRecord->sh_size);
    }
    m_vSections.push_back(std::move(pSection));
  }
  for (auto& pSection : m_vSections) {
    pSection->m_pLink = Z_Named(pSection->m_Header.sh_link);
    // Info names a section only in a relocation table or where the flag 0x40 (info link) says
    // so; elsewhere (a symbol table's count, a group's symbol, an unknown type's own use) it is
    // a number that removing a section must not renumber.
    const DWORD dwType = pSection->m_Header.sh_type;
    const bool bInfoNamesSection = dwType == SHT_KEL_RELX || dwType == SHT_KEL_RELXE || dwType == SHT_KEL_RELXEB ||
                                   (pSection->m_Header.sh_flags & 0x40) != 0;
    if (bInfoNamesSection) pSection->m_pInfo = Z_Named(pSection->m_Header.sh_info);
  }
  m_pNameTable = Z_Named(m_Header.e_shstrndx);
  m_wRawNameTable = m_Header.e_shstrndx;
  for (auto& pSection : m_vSections) {
    C_ImageName& name = pSection->m_Name;
    name.m_dwOffset = pSection->m_Header.sh_name;
    name.m_bRaw = !m_pNameTable || !ReadImageString(m_pNameTable->m_vData, name.m_dwOffset, &name.m_sText);
  }
  for (auto& pSection : m_vSections) {
    if (pSection->m_Header.sh_type == SHT_KEL_SYMTAB) Z_LoadSymbols(*pSection);
  }
  for (auto& pSection : m_vSections) {
    if (pSection->m_Header.sh_type == SHT_KEL_EXPR) Z_LoadTokens(*pSection);
  }
  for (auto& pSection : m_vSections) {
    if (RelocationRecordSize(pSection->m_Header.sh_type) != 0) Z_LoadRelocations(*pSection);
  }
}

void C_ObjectImage::Z_LoadSymbols(C_ImageSection& table) {
  const C_ImageSection* pStrings = table.m_pLink;
  if (table.m_vData.size() % kSymbolRecord != 0 || !pStrings || pStrings->m_Header.sh_type != SHT_KEL_STRTAB) return;
  const std::size_t nCount = table.m_vData.size() / kSymbolRecord;
  table.m_eModel = SectionModel::kSymbols;
  DWORD dwFirstGlobal = static_cast<DWORD>(nCount);
  for (std::size_t i = 0; i < nCount; ++i) {
    const ELF32_SYM record = RecordAt<ELF32_SYM>(table.m_vData, i);
    auto pSymbol = std::make_unique<C_ImageSymbol>();
    pSymbol->m_Name.m_dwOffset = record.st_name;
    pSymbol->m_Name.m_bRaw = !ReadImageString(pStrings->m_vData, record.st_name, &pSymbol->m_Name.m_sText);
    pSymbol->m_dwValue = record.st_value;
    pSymbol->m_dwSize = record.st_size;
    pSymbol->m_byInfo = record.st_info;
    pSymbol->m_byOther = record.st_other;
    pSymbol->m_wIndex = record.st_shndx;
    if (record.st_shndx < kFirstReservedIndex) pSymbol->m_pSection = Z_Named(record.st_shndx);
    if (!pSymbol->IsLocal() && dwFirstGlobal == nCount) dwFirstGlobal = static_cast<DWORD>(i);
    table.m_vSymbols.push_back(std::move(pSymbol));
  }
  // Info is recomputed only where it held what it stands for; any other value is kept.
  table.m_bInfoFirstGlobal = table.m_Header.sh_info == dwFirstGlobal;
}

void C_ObjectImage::Z_LoadTokens(C_ImageSection& table) {
  if (table.m_vData.size() % kTokenRecord != 0) return;
  table.m_eModel = SectionModel::kTokens;
  const C_ImageSection* pSymbols = table.m_pLink && table.m_pLink->m_eModel == SectionModel::kSymbols ? table.m_pLink : nullptr;
  for (std::size_t i = 0; i < table.m_vData.size() / kTokenRecord; ++i) {
    const KEL_EXP record = RecordAt<KEL_EXP>(table.m_vData, i);
    auto pToken = std::make_unique<C_ImageToken>();
    pToken->m_dwType = record.Type;
    pToken->m_dwValue = record.Value;
    if (record.Type == kSymToken && pSymbols && record.Value < pSymbols->m_vSymbols.size()) {
      pToken->m_pSymbol = pSymbols->m_vSymbols[record.Value].get();
    }
    table.m_vTokens.push_back(std::move(pToken));
  }
}

void C_ObjectImage::Z_LoadRelocations(C_ImageSection& table) {
  const DWORD dwRecord = RelocationRecordSize(table.m_Header.sh_type);
  if (table.m_vData.size() % dwRecord != 0) return;
  table.m_eModel = SectionModel::kRelocations;
  C_ImageSection* pTokens = table.m_pLink && table.m_pLink->m_eModel == SectionModel::kTokens ? table.m_pLink : nullptr;
  C_ImageSection* pSymbols = pTokens && pTokens->m_pLink && pTokens->m_pLink->m_eModel == SectionModel::kSymbols ? pTokens->m_pLink : nullptr;
  for (std::size_t i = 0; i < table.m_vData.size() / dwRecord; ++i) {
    const KEL_RELXEB record = dwRecord == sizeof(KEL_RELXEB) ? RecordAt<KEL_RELXEB>(table.m_vData, i)
                                                             : Widened(RecordAt<KEL_RELXE>(table.m_vData, i));
    C_ImageRelocation relocation;
    const DWORD dwInfo = record.Info;
    relocation.m_dwOffset = record.Offset;
    relocation.m_wBitStart = record.to_start;
    relocation.m_wBitEnd = record.to_end;
    relocation.m_dwFirst = record.exp_start;
    relocation.m_dwLast = record.exp_end;
    relocation.m_byType = static_cast<BYTE>(dwInfo & 0xFF);
    relocation.m_dwSymbolIndex = dwInfo >> 8;
    if (pSymbols && relocation.m_dwSymbolIndex < pSymbols->m_vSymbols.size()) {
      relocation.m_pSymbol = pSymbols->m_vSymbols[relocation.m_dwSymbolIndex].get();
    }
    if (pTokens && relocation.m_dwFirst < pTokens->m_vTokens.size() && relocation.m_dwLast < pTokens->m_vTokens.size()) {
      relocation.m_pFirst = pTokens->m_vTokens[relocation.m_dwFirst].get();
      relocation.m_pLast = pTokens->m_vTokens[relocation.m_dwLast].get();
    }
    table.m_vRelocations.push_back(relocation);
  }
}

// ---- Finalize ------------------------------------------------------------------------------

void C_ObjectImage::Finalize() {
  if (m_vSections.size() > 0xFFFF) ThrowImageFailure("more than 65535 sections");
  for (std::size_t i = 0; i < m_vSections.size(); ++i) {
    C_ImageSection& section = *m_vSections[i];
    section.m_dwPosition = static_cast<DWORD>(i);
    for (std::size_t j = 0; j < section.m_vSymbols.size(); ++j) section.m_vSymbols[j]->m_dwPosition = static_cast<DWORD>(j);
    for (std::size_t j = 0; j < section.m_vTokens.size(); ++j) section.m_vTokens[j]->m_dwPosition = static_cast<DWORD>(j);
  }
  for (auto& pSection : m_vSections) {
    if (pSection->m_Name.m_bRaw) continue;
    if (!m_pNameTable) ThrowImageFailure("no section-name table for " + pSection->m_Name.m_sText);
    StoreImageName(*m_pNameTable, pSection->m_Name);
  }
  for (auto& pSection : m_vSections) {
    if (pSection->m_eModel != SectionModel::kSymbols) continue;
    for (auto& pSymbol : pSection->m_vSymbols) StoreImageName(*pSection->m_pLink, pSymbol->m_Name);
  }
  for (auto& pSection : m_vSections) {
    switch (pSection->m_eModel) {
      case SectionModel::kSymbols: Z_EncodeSymbols(*pSection); break;
      case SectionModel::kTokens: Z_EncodeTokens(*pSection); break;
      case SectionModel::kRelocations: Z_EncodeRelocations(*pSection); break;
      case SectionModel::kBytes: break;
    }
  }
  for (auto& pSection : m_vSections) {
    KEL_SHDR& header = pSection->m_Header;
    header.sh_name = pSection->m_Name.m_dwOffset;
    if (pSection->HasFileBytes()) header.sh_size = static_cast<DWORD>(pSection->m_vData.size());
    if (pSection->m_pLink) header.sh_link = pSection->m_pLink->m_dwPosition;
    if (pSection->m_pInfo) header.sh_info = pSection->m_pInfo->m_dwPosition;
  }
  m_Header.e_shnum = static_cast<WORD>(m_vSections.size());
  m_Header.e_shstrndx = m_pNameTable ? static_cast<WORD>(m_pNameTable->m_dwPosition) : m_wRawNameTable;
}

void C_ObjectImage::Z_EncodeSymbols(C_ImageSection& table) {
  table.m_vData.clear();
  DWORD dwFirstGlobal = static_cast<DWORD>(table.m_vSymbols.size());
  for (const auto& pSymbol : table.m_vSymbols) {
    ELF32_SYM record{};
    record.st_name = pSymbol->m_Name.m_dwOffset;
    record.st_value = pSymbol->m_dwValue;
    record.st_size = pSymbol->m_dwSize;
    record.st_info = pSymbol->m_byInfo;
    record.st_other = pSymbol->m_byOther;
    record.st_shndx = pSymbol->m_wIndex;
    if (pSymbol->m_pSection) {
      if (pSymbol->m_pSection->m_dwPosition >= kFirstReservedIndex) {
        ThrowImageFailure("symbol " + pSymbol->m_Name.m_sText + " lives in a section whose index is reserved");
      }
      record.st_shndx = static_cast<WORD>(pSymbol->m_pSection->m_dwPosition);
    }
    if (!pSymbol->IsLocal() && dwFirstGlobal == table.m_vSymbols.size()) dwFirstGlobal = pSymbol->m_dwPosition;
    AppendRecord(table.m_vData, record);
  }
  if (table.m_bInfoFirstGlobal) table.m_Header.sh_info = dwFirstGlobal;
}

void C_ObjectImage::Z_EncodeTokens(C_ImageSection& table) {
  table.m_vData.clear();
  for (const auto& pToken : table.m_vTokens) {
    AppendRecord(table.m_vData, KEL_EXP{pToken->m_dwType, pToken->m_pSymbol ? pToken->m_pSymbol->m_dwPosition : pToken->m_dwValue});
  }
}

void C_ObjectImage::Z_EncodeRelocations(C_ImageSection& table) {
  table.m_vData.clear();
  const bool bWide = table.m_Header.sh_type == SHT_KEL_RELXEB;
  for (const C_ImageRelocation& relocation : table.m_vRelocations) {
    const DWORD dwSymbol = relocation.m_pSymbol ? relocation.m_pSymbol->m_dwPosition : relocation.m_dwSymbolIndex;
    const DWORD dwFirst = relocation.m_pFirst ? relocation.m_pFirst->m_dwPosition : relocation.m_dwFirst;
    const DWORD dwLast = relocation.m_pLast ? relocation.m_pLast->m_dwPosition : relocation.m_dwLast;
    if (dwSymbol > 0xFFFFFF) ThrowImageFailure("a relocation's symbol index past 24 bits in section " + Describe(table));
    const DWORD dwInfo = (dwSymbol << 8) | relocation.m_byType;
    if (bWide) {
      AppendRecord(table.m_vData, KEL_RELXEB{relocation.m_dwOffset, dwInfo, relocation.m_wBitStart, relocation.m_wBitEnd, dwFirst, dwLast});
      continue;
    }
    if (dwFirst > 0xFFFF || dwLast > 0xFFFF) ThrowImageFailure("an expression run past 65535 in section " + Describe(table));
    AppendRecord(table.m_vData, KEL_RELXE{relocation.m_dwOffset, dwInfo, relocation.m_wBitStart, relocation.m_wBitEnd,
                                          static_cast<WORD>(dwFirst), static_cast<WORD>(dwLast)});
  }
}

// ---- Queries -------------------------------------------------------------------------------

C_ImageSection* C_ObjectImage::SymbolTable() const {
  for (auto it = m_vSections.rbegin(); it != m_vSections.rend(); ++it) {
    if ((*it)->m_eModel == SectionModel::kSymbols) return it->get();
  }
  return nullptr;
}

DWORD C_ObjectImage::IndexOf(const C_ImageSection& section) const {
  for (std::size_t i = 0; i < m_vSections.size(); ++i) {
    if (m_vSections[i].get() == &section) return static_cast<DWORD>(i);
  }
  return 0xFFFFFFFFu;
}

std::string C_ObjectImage::Describe(const C_ImageSection& section) const {
  return std::to_string(IndexOf(section)) + " (" + section.m_Name.m_sText + ")";
}
