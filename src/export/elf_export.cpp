#include "export/elf_export.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr DWORD kShtRela = 4, kShtNote = 7, kShtNobits = 8, kShtLoUser = 0x80000000u;
constexpr DWORD kElfHeaderSize = 52, kSectionHeaderSize = 40, kRelaSize = 12;
constexpr DWORD kTokenAdd = 1, kTokenSubtract = 2, kTokenNumber = 12, kTokenSymbol = 13;
constexpr DWORD kNoteChip = 1, kNoteRelocations = 2;
constexpr DWORD kMaxAlignment = 0x10000;  // larger alignments are padded as 1: no object of gigabytes
constexpr std::uint64_t kMaxFile = 0xFFFFFFFFull;

// Bytes in the object's byte order.
class C_ElfBytes {
 public:
  explicit C_ElfBytes(bool bBigEndian) : m_bBig(bBigEndian) {}
  void U8(DWORD dwValue) { m_vBytes.push_back(static_cast<BYTE>(dwValue)); }
  void U16(DWORD dwValue) { Put(dwValue, 2); }
  void U32(DWORD dwValue) { Put(dwValue, 4); }
  void Bytes(const BYTE* pData, std::size_t nSize) { m_vBytes.insert(m_vBytes.end(), pData, pData + nSize); }
  void PadTo(std::size_t nSize) { m_vBytes.resize(std::max(m_vBytes.size(), nSize), 0); }
  std::size_t Size() const { return m_vBytes.size(); }
  std::vector<BYTE>& Data() { return m_vBytes; }

 private:
  void Put(DWORD dwValue, int nBytes) {
    for (int i = 0; i < nBytes; ++i) {
      const int nShift = m_bBig ? 8 * (nBytes - 1 - i) : 8 * i;
      m_vBytes.push_back(static_cast<BYTE>(dwValue >> nShift));
    }
  }

  bool m_bBig;
  std::vector<BYTE> m_vBytes;
};

struct C_OutSection {
  std::string sName;
  KEL_SHDR header{};
  const std::vector<BYTE>* pData = nullptr;  // null for type 8
  std::vector<BYTE> vOwned;                   // the data of an appended section
  DWORD dwNameOffset = 0;
};

DWORD MapType(DWORD dwType) { return dwType < 16 || dwType >= kShtLoUser ? dwType : kShtLoUser + dwType; }

DWORD Alignment(DWORD dwAlign) {
  return dwAlign != 0 && (dwAlign & (dwAlign - 1)) == 0 && dwAlign <= kMaxAlignment ? dwAlign : 1;
}

std::string Hex(DWORD dwValue) {
  char szText[16];
  std::snprintf(szText, sizeof szText, "0x%x", static_cast<unsigned>(dwValue));
  return szText;
}

// A token as the note shows it: its type's word and its operand.
std::string TokenText(const C_ImageToken& token) {
  static const char* const kWords[] = {"Notype", "+", "-", "*", "/", "&", "|", "^", "~", "[]", "(", ")", "NUM", "SYM", ">>", "<<", "%"};
  std::string sText = token.m_dwType < sizeof kWords / sizeof kWords[0] ? kWords[token.m_dwType] : "type" + std::to_string(token.m_dwType);
  if (token.m_dwType == kTokenSymbol) sText += " " + (token.m_pSymbol ? token.m_pSymbol->m_Name.m_sText : "#" + std::to_string(token.m_dwValue));
  if (token.m_dwType == kTokenNumber) sText += " " + Hex(token.m_dwValue);
  return sText;
}

// The standard form of a run: SYM, NUM, SYM NUM +, NUM SYM +, SYM NUM -. False when it has none.
bool StandardForm(const std::vector<const C_ImageToken*>& vRun, DWORD* pdwSymbol, DWORD* pdwAddend) {
  const auto symbolIndex = [](const C_ImageToken& token) { return token.m_pSymbol ? token.m_pSymbol->m_dwPosition : token.m_dwValue; };
  *pdwSymbol = 0;
  *pdwAddend = 0;
  if (vRun.size() == 1 && vRun[0]->m_dwType == kTokenSymbol) return *pdwSymbol = symbolIndex(*vRun[0]), true;
  if (vRun.size() == 1 && vRun[0]->m_dwType == kTokenNumber) return *pdwAddend = vRun[0]->m_dwValue, true;
  if (vRun.size() != 3) return false;
  const C_ImageToken &a = *vRun[0], &b = *vRun[1], &op = *vRun[2];
  if (op.m_dwType == kTokenAdd && a.m_dwType == kTokenSymbol && b.m_dwType == kTokenNumber) {
    *pdwSymbol = symbolIndex(a);
    *pdwAddend = b.m_dwValue;
    return true;
  }
  if (op.m_dwType == kTokenAdd && a.m_dwType == kTokenNumber && b.m_dwType == kTokenSymbol) {
    *pdwSymbol = symbolIndex(b);
    *pdwAddend = a.m_dwValue;
    return true;
  }
  if (op.m_dwType == kTokenSubtract && a.m_dwType == kTokenSymbol && b.m_dwType == kTokenNumber) {
    *pdwSymbol = symbolIndex(a);
    *pdwAddend = 0u - b.m_dwValue;
    return true;
  }
  return false;
}

// The tokens of a relocation's run, or none when it names no run of its table's tokens.
std::vector<const C_ImageToken*> RunOf(const C_ImageSection& table, const C_ImageRelocation& relocation) {
  std::vector<const C_ImageToken*> vRun;
  const C_ImageSection* pTokens = table.m_pLink;
  if (!pTokens || !relocation.m_pFirst || !relocation.m_pLast) return vRun;
  const DWORD dwFirst = relocation.m_pFirst->m_dwPosition, dwLast = relocation.m_pLast->m_dwPosition;
  for (DWORD i = dwFirst; i <= dwLast && i < pTokens->m_vTokens.size(); ++i) vRun.push_back(pTokens->m_vTokens[i].get());
  return vRun;
}

void AppendNote(C_ElfBytes& note, DWORD dwType, const std::vector<BYTE>& vDescription) {
  static const char kOwner[] = "kofd";
  note.U32(sizeof kOwner);
  note.U32(static_cast<DWORD>(vDescription.size()));
  note.U32(dwType);
  note.Bytes(reinterpret_cast<const BYTE*>(kOwner), sizeof kOwner);
  note.PadTo((note.Size() + 3) & ~std::size_t(3));
  note.Bytes(vDescription.data(), vDescription.size());
  note.PadTo((note.Size() + 3) & ~std::size_t(3));
}

bool IsDefinedGlobal(const C_ImageSymbol& symbol) {
  const BYTE byBind = symbol.m_byInfo >> 4;
  const bool bDefined = symbol.m_pSection || (symbol.m_wIndex != 0 && symbol.m_wIndex >= 0xFF00);
  return (byBind == 1 || byBind == 2) && bDefined && !symbol.m_Name.m_sText.empty();
}

}  // namespace

C_ElfExport ExportElfObject(C_ObjectImage& image) {
  image.Finalize();
  const KEL_EHDR& kelf = image.Header();
  // Records (symbols, relocations) lie in the file little-endian whatever the header's byte
  // order, so the ELF object is little-endian: its own headers then agree with its records.
  const bool bBig = false;
  C_ElfExport result;
  std::vector<C_OutSection> vOut;
  for (const auto& pSection : image.Sections()) {
    C_OutSection out;
    out.sName = pSection->m_Name.m_sText;
    out.header = pSection->m_Header;
    out.header.sh_type = MapType(out.header.sh_type);
    if (pSection->HasFileBytes()) {
      out.pData = &pSection->m_vData;
      out.header.sh_size = static_cast<DWORD>(pSection->m_vData.size());
    }
    vOut.push_back(std::move(out));
  }
  if (const C_ImageSection* pSymbols = image.SymbolTable()) {
    result.m_dwSymbols = static_cast<DWORD>(pSymbols->m_vSymbols.size());
    for (const auto& pSymbol : pSymbols->m_vSymbols) {
      if (IsDefinedGlobal(*pSymbol)) result.m_vGlobals.push_back(pSymbol->m_Name.m_sText);
    }
  }

  // Relocations: the standard ones as Elf32_Rela beside their table, the others as text.
  std::string sKept;
  for (const auto& pTable : image.Sections()) {
    if (pTable->m_eModel != SectionModel::kRelocations) continue;
    C_ElfBytes rela(bBig);
    for (const C_ImageRelocation& relocation : pTable->m_vRelocations) {
      const std::vector<const C_ImageToken*> vRun = RunOf(*pTable, relocation);
      DWORD dwSymbol = 0, dwAddend = 0;
      if (!vRun.empty() && StandardForm(vRun, &dwSymbol, &dwAddend) && dwSymbol <= 0xFFFFFF) {
        rela.U32(relocation.m_dwOffset);
        rela.U32((dwSymbol << 8) | relocation.m_byType);
        rela.U32(dwAddend);
        ++result.m_dwRelocations;
        continue;
      }
      ++result.m_dwKeptRelocations;
      sKept += "section " + std::to_string(pTable->m_dwPosition) + " (" + pTable->m_Name.m_sText + ") offset " + Hex(relocation.m_dwOffset) +
               " type " + std::to_string(relocation.m_byType) + " bits " + std::to_string(relocation.m_wBitStart) + ".." +
               std::to_string(relocation.m_wBitEnd) + ":";
      if (vRun.empty()) sKept += " no run (" + std::to_string(relocation.m_dwFirst) + ".." + std::to_string(relocation.m_dwLast) + ")";
      for (const C_ImageToken* pToken : vRun) sKept += " " + TokenText(*pToken);
      sKept += "\n";
    }
    if (rela.Size() == 0) continue;
    const C_ImageSection* pTokens = pTable->m_pLink;
    C_OutSection out;
    out.sName = ".rela" + (pTable->m_pInfo ? pTable->m_pInfo->m_Name.m_sText : pTable->m_Name.m_sText);
    out.header.sh_type = kShtRela;
    out.header.sh_link = pTokens && pTokens->m_pLink ? pTokens->m_pLink->m_dwPosition : 0;
    out.header.sh_info = pTable->m_pInfo ? pTable->m_pInfo->m_dwPosition : 0;
    out.header.sh_addralign = 4;
    out.header.sh_entsize = kRelaSize;
    out.vOwned = std::move(rela.Data());
    vOut.push_back(std::move(out));
  }

  // The note: the chip and file type, then the relocations kept as text.
  C_ElfBytes note(bBig);
  C_ElfBytes chip(bBig);
  chip.U32(kelf.e_chip);
  chip.U32(kelf.e_type);
  AppendNote(note, kNoteChip, chip.Data());
  if (!sKept.empty()) AppendNote(note, kNoteRelocations, std::vector<BYTE>(sKept.begin(), sKept.end()));
  C_OutSection noteSection;
  noteSection.sName = ".note.kofd";
  noteSection.header.sh_type = kShtNote;
  noteSection.header.sh_addralign = 4;
  noteSection.vOwned = std::move(note.Data());
  vOut.push_back(std::move(noteSection));

  // Every name, in a table of its own that is the last section.
  C_OutSection names;
  names.sName = ".shstrtab.elf";
  names.header.sh_type = 3;
  names.header.sh_addralign = 1;
  vOut.push_back(std::move(names));
  std::vector<BYTE>& vNames = vOut.back().vOwned;
  vNames.push_back(0);
  for (C_OutSection& out : vOut) {
    if (out.sName.empty()) continue;
    out.dwNameOffset = static_cast<DWORD>(vNames.size());
    vNames.insert(vNames.end(), out.sName.begin(), out.sName.end());
    vNames.push_back(0);
  }
  if (vOut.size() > 0xFF00) ThrowImageFailure("an ELF object holds at most 65,279 sections without extended numbering");

  // Layout: the header, each section at its alignment in index order, the section headers.
  std::uint64_t qwAt = kElfHeaderSize;
  std::vector<DWORD> vOffsets(vOut.size());
  for (std::size_t i = 0; i < vOut.size(); ++i) {
    C_OutSection& out = vOut[i];
    const std::vector<BYTE>* pData = out.pData ? out.pData : &out.vOwned;
    if (!out.pData) out.header.sh_size = static_cast<DWORD>(out.vOwned.size());
    if (out.header.sh_type == kShtNobits || i == 0) {
      vOffsets[i] = i == 0 ? 0 : static_cast<DWORD>(std::min<std::uint64_t>(qwAt, kMaxFile));
      continue;
    }
    const DWORD dwAlign = Alignment(out.header.sh_addralign);
    qwAt = (qwAt + dwAlign - 1) / dwAlign * dwAlign;
    if (qwAt + pData->size() > kMaxFile) ThrowImageFailure("the ELF object would pass 4 GiB");
    vOffsets[i] = static_cast<DWORD>(qwAt);
    qwAt += pData->size();
  }
  qwAt = (qwAt + 3) & ~std::uint64_t(3);
  if (qwAt + std::uint64_t(vOut.size()) * kSectionHeaderSize > kMaxFile) ThrowImageFailure("the ELF object would pass 4 GiB");
  const DWORD dwSectionTable = static_cast<DWORD>(qwAt);

  C_ElfBytes elf(bBig);
  elf.Data().reserve(static_cast<std::size_t>(qwAt + vOut.size() * kSectionHeaderSize));
  const BYTE ident[16] = {0x7F, 'E', 'L', 'F', 1, static_cast<BYTE>(bBig ? 2 : 1), 1};
  elf.Bytes(ident, sizeof ident);
  elf.U16(kelf.e_type);
  elf.U16(0);  // no machine the standard names
  elf.U32(1);
  elf.U32(kelf.e_entry);
  elf.U32(0);  // no program headers
  elf.U32(dwSectionTable);
  elf.U32(kelf.e_flags);
  elf.U16(kElfHeaderSize);
  elf.U16(0);
  elf.U16(0);
  elf.U16(kSectionHeaderSize);
  elf.U16(static_cast<DWORD>(vOut.size()));
  elf.U16(static_cast<DWORD>(vOut.size() - 1));
  for (std::size_t i = 1; i < vOut.size(); ++i) {
    const C_OutSection& out = vOut[i];
    if (out.header.sh_type == kShtNobits) continue;
    const std::vector<BYTE>& vData = out.pData ? *out.pData : out.vOwned;
    elf.PadTo(vOffsets[i]);
    elf.Bytes(vData.data(), vData.size());
  }
  elf.PadTo(dwSectionTable);
  for (std::size_t i = 0; i < vOut.size(); ++i) {
    const KEL_SHDR& header = vOut[i].header;
    elf.U32(vOut[i].dwNameOffset);
    elf.U32(header.sh_type);
    elf.U32(header.sh_flags);
    elf.U32(header.sh_addr);
    elf.U32(vOffsets[i]);
    elf.U32(header.sh_size);
    elf.U32(header.sh_link);
    elf.U32(header.sh_info);
    elf.U32(header.sh_addralign);
    elf.U32(header.sh_entsize);
  }
  result.m_dwSections = static_cast<DWORD>(vOut.size());
  result.m_vBytes = std::move(elf.Data());
  return result;
}

namespace {

// One 60-byte member header: name, date, owner, group, mode, size, "`\n".
void AppendMemberHeader(std::vector<BYTE>& vOut, const std::string& sName, std::uint64_t qwSize) {
  char szHeader[61];
  std::snprintf(szHeader, sizeof szHeader, "%-16.16s%-12s%-6s%-6s%-8s%-10llu`\n", sName.c_str(), "0", "0", "0", "644",
                static_cast<unsigned long long>(qwSize));
  vOut.insert(vOut.end(), szHeader, szHeader + 60);
}

void PutBig32(std::vector<BYTE>& vOut, std::size_t nAt, DWORD dwValue) {
  for (int i = 0; i < 4; ++i) vOut[nAt + i] = static_cast<BYTE>(dwValue >> (24 - 8 * i));
}

}  // namespace

std::vector<BYTE> WriteElfArchive(const std::vector<C_ElfMember>& vMembers) {
  // Long names go to "//" as "NAME/\n"; a member's header then names "/OFFSET".
  std::string sLongNames;
  std::vector<std::string> vHeaderNames;
  for (const C_ElfMember& member : vMembers) {
    if (member.sName.size() <= 15 && member.sName.find('/') == std::string::npos) {
      vHeaderNames.push_back(member.sName + "/");
    } else {
      vHeaderNames.push_back("/" + std::to_string(sLongNames.size()));
      sLongNames += member.sName + "/\n";
    }
  }
  std::uint64_t qwSymbols = 0, qwNameBytes = 0;
  for (const C_ElfMember& member : vMembers) {
    qwSymbols += member.object.m_vGlobals.size();
    for (const std::string& sGlobal : member.object.m_vGlobals) qwNameBytes += sGlobal.size() + 1;
  }
  const std::uint64_t qwIndexSize = 4 + 4 * qwSymbols + qwNameBytes;
  std::uint64_t qwAt = 8 + 60 + qwIndexSize + (qwIndexSize & 1);
  if (!sLongNames.empty()) qwAt += 60 + sLongNames.size() + (sLongNames.size() & 1);
  std::vector<DWORD> vMemberAt;
  for (const C_ElfMember& member : vMembers) {
    if (qwAt > kMaxFile) ThrowImageFailure("the archive would pass 4 GiB");
    vMemberAt.push_back(static_cast<DWORD>(qwAt));
    qwAt += 60 + member.object.m_vBytes.size() + (member.object.m_vBytes.size() & 1);
  }
  if (qwAt > kMaxFile) ThrowImageFailure("the archive would pass 4 GiB");

  std::vector<BYTE> vOut;
  vOut.reserve(static_cast<std::size_t>(qwAt));
  const char kMagic[] = "!<arch>\n";
  vOut.insert(vOut.end(), kMagic, kMagic + 8);
  AppendMemberHeader(vOut, "/", qwIndexSize);
  std::size_t nAt = vOut.size();
  vOut.resize(nAt + 4 + 4 * qwSymbols);
  PutBig32(vOut, nAt, static_cast<DWORD>(qwSymbols));
  nAt += 4;
  for (std::size_t i = 0; i < vMembers.size(); ++i) {
    for (const std::string& sGlobal : vMembers[i].object.m_vGlobals) {
      PutBig32(vOut, nAt, vMemberAt[i]);
      nAt += 4;
      vOut.insert(vOut.end(), sGlobal.begin(), sGlobal.end());
      vOut.push_back(0);
    }
  }
  if (vOut.size() & 1) vOut.push_back('\n');
  if (!sLongNames.empty()) {
    AppendMemberHeader(vOut, "//", sLongNames.size());
    vOut.insert(vOut.end(), sLongNames.begin(), sLongNames.end());
    if (vOut.size() & 1) vOut.push_back('\n');
  }
  for (std::size_t i = 0; i < vMembers.size(); ++i) {
    const std::vector<BYTE>& vBytes = vMembers[i].object.m_vBytes;
    AppendMemberHeader(vOut, vHeaderNames[i], vBytes.size());
    vOut.insert(vOut.end(), vBytes.begin(), vBytes.end());
    if (vOut.size() & 1) vOut.push_back('\n');
  }
  return vOut;
}
