#include "edit/image_editor.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <unordered_set>

#include "frame/text.h"

namespace {

constexpr BYTE kGlobalBind = 1;
constexpr DWORD kBankType = SHT_KEL_BNKINFO;

// The record size of a section type the library reads as a table of records, else 0.
DWORD RecordSizeOfType(DWORD dwType) {
  switch (dwType) {
    case SHT_KEL_SYMTAB: return sizeof(ELF32_SYM);
    case SHT_KEL_RELXE: return sizeof(KEL_RELXE);
    case SHT_KEL_EXPR: return sizeof(KEL_EXP);
    case SHT_KEL_LINE: return sizeof(KEL_LINE);
    case SHT_KEL_BNKINFO: return sizeof(KEL_BANKINFO);
    case SHT_KEL_RELXEB: return sizeof(KEL_RELXEB);
    case SHT_KEL_KDMINFO: return sizeof(KEL_KMDINFO);
    case SHT_KEL_SRCLINE: return sizeof(KEL_SRCLINE);
    default: return 0;
  }
}

std::string Hex(std::uint64_t qwValue) {
  std::string sDigits;
  do sDigits.insert(sDigits.begin(), "0123456789abcdef"[qwValue & 0xF]); while ((qwValue >>= 4) != 0);
  return "0x" + sDigits;
}

}  // namespace

C_ImageSection& C_ImageEditor::SelectSection(const std::string& sSelector) {
  auto& sections = m_Image.Sections();
  std::uint64_t qwIndex = 0;
  if (kofd_text::SelectorIndex(sSelector, &qwIndex)) {
    if (qwIndex >= sections.size()) {
      ThrowImageFailure("no section " + sSelector + ", the object has " + std::to_string(sections.size()));
    }
    return *sections[qwIndex];
  }
  for (auto& pSection : sections) {
    if (!pSection->m_Name.m_bRaw && kofd_text::EqualIgnoringCase(pSection->m_Name.m_sText.c_str(), sSelector.c_str())) return *pSection;
  }
  ThrowImageFailure("no section named " + sSelector);
}

// ---- Symbols -------------------------------------------------------------------------------

C_ImageSymbol& C_ImageEditor::Z_FindSymbol(const std::string& sName) {
  C_ImageSection* pTable = m_Image.SymbolTable();
  if (!pTable) ThrowImageFailure("no symbol named " + sName + ": the object has no symbol table");
  C_ImageSymbol* pFound = nullptr;
  std::size_t nFound = 0;
  for (auto& pSymbol : pTable->m_vSymbols) {
    if (pSymbol->m_Name.m_bRaw || pSymbol->m_Name.m_sText != sName) continue;
    pFound = pSymbol.get();
    ++nFound;
  }
  if (nFound == 0) ThrowImageFailure("no symbol named " + sName + " in section " + m_Image.Describe(*pTable));
  if (nFound > 1) ThrowImageFailure(std::to_string(nFound) + " symbols are named " + sName + "; only a name one symbol has is edited");
  return *pFound;
}

void C_ImageEditor::Z_RequireFollowed(std::initializer_list<DWORD> types, const std::string& sEdit) const {
  for (const auto& pSection : m_Image.Sections()) {
    if (pSection->m_eModel == SectionModel::kBytes && std::find(types.begin(), types.end(), pSection->m_Header.sh_type) != types.end()) {
      ThrowImageFailure("cannot " + sEdit + ": section " + m_Image.Describe(*pSection) +
                        " holds records whose size does not divide its size, so its references cannot be followed");
    }
  }
}

void C_ImageEditor::RemoveSymbol(const std::string& sName) {
  C_ImageSymbol& symbol = Z_FindSymbol(sName);
  for (const auto& pSection : m_Image.Sections()) {
    for (std::size_t i = 0; i < pSection->m_vTokens.size(); ++i) {
      if (pSection->m_vTokens[i]->m_pSymbol == &symbol) {
        ThrowImageFailure("cannot remove symbol " + sName + ": expression record " + std::to_string(i) + " of section " +
                          m_Image.Describe(*pSection) + " names it");
      }
    }
    for (std::size_t i = 0; i < pSection->m_vRelocations.size(); ++i) {
      if (pSection->m_vRelocations[i].m_pSymbol == &symbol) {
        ThrowImageFailure("cannot remove symbol " + sName + ": relocation record " + std::to_string(i) + " of section " +
                          m_Image.Describe(*pSection) + " names it");
      }
    }
  }
  Z_RequireFollowed({SHT_KEL_EXPR, SHT_KEL_RELXE, SHT_KEL_RELXEB}, "remove symbol " + sName);
  auto& symbols = m_Image.SymbolTable()->m_vSymbols;
  symbols.erase(std::find_if(symbols.begin(), symbols.end(), [&](const auto& p) { return p.get() == &symbol; }));
}

void C_ImageEditor::RenameSymbol(const std::string& sName, const std::string& sNewName) {
  if (sNewName.empty()) ThrowImageFailure("a symbol's new name is empty");
  C_ImageSymbol& symbol = Z_FindSymbol(sName);
  symbol.m_Name = C_ImageName{sNewName};
}

void C_ImageEditor::SetSymbolValue(const std::string& sName, DWORD dwValue) { Z_FindSymbol(sName).m_dwValue = dwValue; }

C_ImageSection& C_ImageEditor::Z_SymbolTableToAddTo() {
  if (C_ImageSection* pTable = m_Image.SymbolTable()) return *pTable;
  Z_RequireFollowed({SHT_KEL_SYMTAB}, "add a symbol table");
  C_ImageSection& strings = Z_AppendSection(m_Image.FreeSectionName(".symstrtab"), SHT_KEL_STRTAB);
  strings.m_vData.push_back(0);
  C_ImageSection& table = Z_AppendSection(m_Image.FreeSectionName(".symtab"), SHT_KEL_SYMTAB);
  table.m_Header.sh_addralign = 4;
  table.m_Header.sh_entsize = sizeof(ELF32_SYM);
  table.m_pLink = &strings;
  table.m_bInfoFirstGlobal = true;
  table.m_eModel = SectionModel::kSymbols;
  // Symbol 0 is the empty symbol, as every symbol table begins.
  auto pNull = std::make_unique<C_ImageSymbol>();
  pNull->m_Name.m_dwOffset = 0;
  table.m_vSymbols.push_back(std::move(pNull));
  return table;
}

void C_ImageEditor::AddSymbol(const std::string& sName, const std::string& sSection, DWORD dwValue, bool bGlobal) {
  if (sName.empty()) ThrowImageFailure("a new symbol's name is empty");
  C_ImageSection& section = SelectSection(sSection);
  if (C_ImageSection* pTable = m_Image.SymbolTable()) {
    for (const auto& pSymbol : pTable->m_vSymbols) {
      if (!pSymbol->m_Name.m_bRaw && pSymbol->m_Name.m_sText == sName) ThrowImageFailure("a symbol named " + sName + " exists already");
    }
  }
  if (!bGlobal) Z_RequireFollowed({SHT_KEL_EXPR, SHT_KEL_RELXE, SHT_KEL_RELXEB}, "add local symbol " + sName);
  C_ImageSection& table = Z_SymbolTableToAddTo();
  auto pSymbol = std::make_unique<C_ImageSymbol>();
  pSymbol->m_Name.m_sText = sName;
  pSymbol->m_dwValue = dwValue;
  pSymbol->m_byInfo = bGlobal ? static_cast<BYTE>(kGlobalBind << 4) : 0;
  pSymbol->m_pSection = &section;
  auto& symbols = table.m_vSymbols;
  auto at = bGlobal ? symbols.end() : std::find_if(symbols.begin(), symbols.end(), [](const auto& p) { return !p->IsLocal(); });
  symbols.insert(at, std::move(pSymbol));
}

void C_ImageEditor::AddSymbols(std::vector<std::unique_ptr<C_ImageSymbol>> vSymbols) {
  if (vSymbols.empty()) return;
  std::unordered_set<std::string> names;
  if (C_ImageSection* pTable = m_Image.SymbolTable()) {
    for (const auto& pSymbol : pTable->m_vSymbols) {
      if (!pSymbol->m_Name.m_bRaw) names.insert(pSymbol->m_Name.m_sText);
    }
  }
  const C_ImageSymbol* pLocal = nullptr;
  for (const auto& pSymbol : vSymbols) {
    const std::string& sName = pSymbol->m_Name.m_sText;
    if (sName.empty()) ThrowImageFailure("a new symbol's name is empty");
    if (!names.insert(sName).second) ThrowImageFailure("a symbol named " + sName + " exists already");
    if (!pLocal && pSymbol->IsLocal()) pLocal = pSymbol.get();
  }
  if (pLocal) Z_RequireFollowed({SHT_KEL_EXPR, SHT_KEL_RELXE, SHT_KEL_RELXEB}, "add local symbol " + pLocal->m_Name.m_sText);
  auto& symbols = Z_SymbolTableToAddTo().m_vSymbols;
  const auto firstGlobal = std::find_if(symbols.begin(), symbols.end(), [](const auto& p) { return !p->IsLocal(); });
  std::vector<std::unique_ptr<C_ImageSymbol>> vAll;
  vAll.reserve(symbols.size() + vSymbols.size());
  std::move(symbols.begin(), firstGlobal, std::back_inserter(vAll));
  for (auto& pSymbol : vSymbols) {
    if (pSymbol->IsLocal()) vAll.push_back(std::move(pSymbol));
  }
  std::move(firstGlobal, symbols.end(), std::back_inserter(vAll));
  for (auto& pSymbol : vSymbols) {
    if (pSymbol) vAll.push_back(std::move(pSymbol));
  }
  symbols = std::move(vAll);
}

// ---- Sections ------------------------------------------------------------------------------

void C_ImageEditor::Z_RequireNewSectionName(const std::string& sName) const {
  if (sName.empty()) ThrowImageFailure("a section's new name is empty");
  for (const auto& pSection : m_Image.Sections()) {
    if (!pSection->m_Name.m_bRaw && kofd_text::EqualIgnoringCase(pSection->m_Name.m_sText.c_str(), sName.c_str())) {
      ThrowImageFailure("section " + m_Image.Describe(*pSection) + " has the name " + sName + " already");
    }
  }
}

C_ImageSection& C_ImageEditor::Z_AppendSection(const std::string& sName, DWORD dwType) {
  if (!m_Image.NameTable()) m_Image.AddNameTable();
  auto pSection = std::make_unique<C_ImageSection>();
  pSection->m_Name.m_sText = sName;
  pSection->m_Header.sh_type = dwType;
  pSection->m_Header.sh_addralign = 1;
  m_Image.Sections().push_back(std::move(pSection));
  return *m_Image.Sections().back();
}

void C_ImageEditor::RemoveSection(const std::string& sSelector) {
  C_ImageSection& section = SelectSection(sSelector);
  const std::string sWhat = "cannot remove section " + m_Image.Describe(section);
  if (&section == m_Image.Sections().front().get()) ThrowImageFailure(sWhat + ": section 0 stands for no section");
  if (&section == m_Image.NameTable()) ThrowImageFailure(sWhat + ": it holds the section names");
  for (const auto& pOther : m_Image.Sections()) {
    if (pOther.get() == &section) continue;
    if (pOther->m_pLink == &section || pOther->m_pInfo == &section) {
      ThrowImageFailure(sWhat + ": section " + m_Image.Describe(*pOther) + " links to it");
    }
    for (const auto& pSymbol : pOther->m_vSymbols) {
      if (pSymbol->m_pSection == &section) ThrowImageFailure(sWhat + ": symbol " + pSymbol->m_Name.m_sText + " lives in it");
    }
  }
  Z_RequireFollowed({SHT_KEL_SYMTAB}, "renumber the sections after " + m_Image.Describe(section));
  auto& sections = m_Image.Sections();
  sections.erase(std::find_if(sections.begin(), sections.end(), [&](const auto& p) { return p.get() == &section; }));
}

void C_ImageEditor::RenameSection(const std::string& sSelector, const std::string& sNewName) {
  C_ImageSection& section = SelectSection(sSelector);
  Z_RequireNewSectionName(sNewName);
  section.m_Name = C_ImageName{sNewName};
}

void C_ImageEditor::SetSectionAddress(const std::string& sSelector, DWORD dwAddress) {
  SelectSection(sSelector).m_Header.sh_addr = dwAddress;
}

void C_ImageEditor::Z_RequireContentsFit(const std::string& sName, const std::vector<BYTE>& vData, DWORD dwType) {
  if (dwType == C_ImageSection::kNobitsType) ThrowImageFailure("a section of type 8 holds no bytes to add");
  const DWORD dwRecord = RecordSizeOfType(dwType);
  if (dwRecord != 0 && vData.size() % dwRecord != 0) {
    ThrowImageFailure("section " + sName + " of type " + std::to_string(dwType) + " needs a multiple of " +
                      std::to_string(dwRecord) + " bytes, not " + std::to_string(vData.size()));
  }
}

C_ImageSection& C_ImageEditor::Z_AddChecked(const std::string& sName, std::vector<BYTE> vData, DWORD dwType) {
  C_ImageSection& section = Z_AppendSection(sName, dwType);
  const DWORD dwRecord = RecordSizeOfType(dwType);
  section.m_Header.sh_entsize = dwRecord;
  if (dwRecord != 0 && dwType != kBankType) section.m_Header.sh_addralign = 4;
  // A bank section has no load address.
  if (dwType == kBankType) section.m_Header.sh_addr = 0xFFFFFFFFu;
  section.m_vData = std::move(vData);
  return section;
}

void C_ImageEditor::AddSection(const std::string& sName, std::vector<BYTE> vData, DWORD dwType) {
  Z_RequireNewSectionName(sName);
  Z_RequireContentsFit(sName, vData, dwType);
  Z_AddChecked(sName, std::move(vData), dwType);
}

std::vector<C_ImageSection*> C_ImageEditor::AddSections(std::vector<C_NewSection> vSections, std::size_t* pnRefused) {
  const auto folded = [](std::string sName) {
    for (char& ch : sName) ch = kofd_text::FoldAsciiCase(ch);
    return sName;
  };
  // Each name taken, ignoring case, with the index of the section that has it.
  std::unordered_map<std::string, std::size_t> taken;
  const auto& sections = m_Image.Sections();
  for (std::size_t i = 0; i < sections.size(); ++i) {
    if (!sections[i]->m_Name.m_bRaw) taken.emplace(folded(sections[i]->m_Name.m_sText), i);
  }
  // A name table is made before the first section when there is none.
  const std::size_t nFirst = sections.size() + (m_Image.NameTable() ? 0 : 1);
  for (std::size_t i = 0; i < vSections.size(); ++i) {
    *pnRefused = i;
    const C_NewSection& section = vSections[i];
    if (section.m_sName.empty()) ThrowImageFailure("a section's new name is empty");
    const auto at = taken.emplace(folded(section.m_sName), nFirst + i);
    if (!at.second) {
      const std::size_t nOther = at.first->second;
      const std::string sOther = nOther < sections.size() ? sections[nOther]->m_Name.m_sText : vSections[nOther - nFirst].m_sName;
      ThrowImageFailure("section " + std::to_string(nOther) + " (" + sOther + ") has the name " + section.m_sName + " already");
    }
    if (section.m_dwType != C_ImageSection::kNobitsType) Z_RequireContentsFit(section.m_sName, section.m_vData, section.m_dwType);
  }
  std::vector<C_ImageSection*> vAdded;
  for (C_NewSection& section : vSections) {
    if (section.m_dwType == C_ImageSection::kNobitsType) {
      vAdded.push_back(&Z_AppendSection(section.m_sName, section.m_dwType));
      vAdded.back()->m_Header.sh_size = section.m_dwNobitsSize;
    } else {
      vAdded.push_back(&Z_AddChecked(section.m_sName, std::move(section.m_vData), section.m_dwType));
    }
  }
  return vAdded;
}

void C_ImageEditor::AddBankRecord(DWORD dwAddress, DWORD dwBank) {
  C_ImageSection* pTable = nullptr;
  for (auto& pSection : m_Image.Sections()) {
    if (pSection->m_Header.sh_type == kBankType && pSection->HasFileBytes()) {
      pTable = pSection.get();
      break;
    }
  }
  if (!pTable) {
    pTable = &Z_AppendSection(m_Image.FreeSectionName(".bankinfo"), kBankType);
    pTable->m_Header.sh_addr = 0xFFFFFFFFu;
    pTable->m_Header.sh_entsize = sizeof(KEL_BANKINFO);
  }
  if (pTable->m_vData.size() % sizeof(KEL_BANKINFO) != 0) {
    ThrowImageFailure("cannot add a bank record: section " + m_Image.Describe(*pTable) + " holds " +
                      std::to_string(pTable->m_vData.size()) + " bytes, no whole number of 8-byte records");
  }
  // Records are kept in the order they were added, duplicates included.
  for (const DWORD dwField : {dwAddress, dwBank}) {
    for (int nShift = 0; nShift < 32; nShift += 8) pTable->m_vData.push_back(static_cast<BYTE>(dwField >> nShift));
  }
}

void C_ImageEditor::Z_RequireBytes(const C_ImageSection& section) const {
  const std::string sWhat = "the contents of section " + m_Image.Describe(section);
  if (section.m_eModel != SectionModel::kBytes) ThrowImageFailure(sWhat + " are records the image edits one by one");
  if (!section.HasFileBytes()) ThrowImageFailure(sWhat + " take no bytes in the file (type 8)");
  if (&section == m_Image.NameTable()) ThrowImageFailure(sWhat + " hold the section names");
  for (const auto& pOther : m_Image.Sections()) {
    if (pOther->m_eModel == SectionModel::kSymbols && pOther->m_pLink == &section) {
      ThrowImageFailure(sWhat + " hold the names of the symbols of section " + m_Image.Describe(*pOther));
    }
  }
}

void C_ImageEditor::SetContents(const std::string& sSelector, std::vector<BYTE> vData) {
  C_ImageSection& section = SelectSection(sSelector);
  Z_RequireBytes(section);
  section.m_vData = std::move(vData);
}

void C_ImageEditor::Z_RequireFreeBytes(const C_ImageSection& section, std::uint64_t qwFrom, std::uint64_t qwTo) const {
  for (const auto& pTable : m_Image.Sections()) {
    if (pTable->m_pInfo != &section || (pTable->m_Header.sh_type != SHT_KEL_RELXEB && pTable->m_Header.sh_type != SHT_KEL_RELXE)) continue;
    if (pTable->m_eModel != SectionModel::kRelocations) {
      ThrowImageFailure("section " + m_Image.Describe(*pTable) + " relocates section " + m_Image.Describe(section) +
                        " with records that cannot be read; only a forced patch is made");
    }
    for (std::size_t i = 0; i < pTable->m_vRelocations.size(); ++i) {
      // Offset counts bytes, 16-bit or 32-bit units as the one who relocates chooses: each unit
      // it can name is taken as rewritten.
      const std::uint64_t qwOffset = pTable->m_vRelocations[i].m_dwOffset;
      const std::pair<std::uint64_t, std::uint64_t> units[] = {{qwOffset, 4}, {qwOffset * 2, 2}, {qwOffset * 4, 4}};
      for (const auto& unit : units) {
        if (unit.first < qwTo && qwFrom < unit.first + unit.second) {
          ThrowImageFailure("bytes " + Hex(qwFrom) + ".." + Hex(qwTo - 1) + " of section " + m_Image.Describe(section) +
                            " overlap the unit at " + Hex(unit.first) + " that relocation record " + std::to_string(i) +
                            " of section " + m_Image.Describe(*pTable) + " rewrites; only a forced patch is made");
        }
      }
    }
  }
}

void C_ImageEditor::Patch(const std::string& sSelector, DWORD dwOffset, const std::vector<BYTE>& vBytes, bool bForce) {
  C_ImageSection& section = SelectSection(sSelector);
  Z_RequireBytes(section);
  const std::uint64_t qwTo = std::uint64_t(dwOffset) + vBytes.size();
  if (vBytes.empty()) ThrowImageFailure("a patch of no bytes");
  if (qwTo > section.m_vData.size()) {
    ThrowImageFailure("a patch of " + std::to_string(vBytes.size()) + " bytes at " + Hex(dwOffset) + " passes the end of section " +
                      m_Image.Describe(section) + " (" + std::to_string(section.m_vData.size()) + " bytes)");
  }
  if (!bForce) Z_RequireFreeBytes(section, dwOffset, qwTo);
  std::copy(vBytes.begin(), vBytes.end(), section.m_vData.begin() + dwOffset);
}

// ---- Expressions and relocations ----------------------------------------------------------

namespace {

constexpr DWORD kSymToken = 13;

// The symbol table a table of tokens links to, when the image models it.
C_ImageSection* LinkedSymbols(const C_ImageSection& tokens) {
  return tokens.m_pLink && tokens.m_pLink->m_eModel == SectionModel::kSymbols ? tokens.m_pLink : nullptr;
}

}  // namespace

DWORD C_ImageEditor::AddExpression(const std::vector<KEL_EXP>& vTokens) {
  if (vTokens.empty()) ThrowImageFailure("an expression of no tokens");
  C_ImageSection* pTable = nullptr;
  for (const auto& pSection : m_Image.Sections()) {
    if (pSection->m_eModel == SectionModel::kTokens) pTable = pSection.get();
  }
  if (!pTable) ThrowImageFailure("the object has no expression table whose records can be read");
  C_ImageSection* pSymbols = LinkedSymbols(*pTable);
  // Every token is checked before the first goes in, so that a refusal adds nothing.
  std::vector<std::unique_ptr<C_ImageToken>> vNew;
  for (std::size_t i = 0; i < vTokens.size(); ++i) {
    auto pToken = std::make_unique<C_ImageToken>();
    pToken->m_dwType = vTokens[i].Type;
    pToken->m_dwValue = vTokens[i].Value;
    if (vTokens[i].Type == kSymToken) {
      if (!pSymbols || vTokens[i].Value >= pSymbols->m_vSymbols.size()) {
        ThrowImageFailure("token " + std::to_string(i) + " names symbol " + std::to_string(vTokens[i].Value) + ", which section " +
                          m_Image.Describe(*pTable) + " cannot reach");
      }
      pToken->m_pSymbol = pSymbols->m_vSymbols[vTokens[i].Value].get();
    }
    vNew.push_back(std::move(pToken));
  }
  const DWORD dwFirst = static_cast<DWORD>(pTable->m_vTokens.size());
  for (auto& pToken : vNew) pTable->m_vTokens.push_back(std::move(pToken));
  return dwFirst;
}

void C_ImageEditor::AddRelocation(const std::string& sTarget, const KEL_RELXEB& record) {
  C_ImageSection& target = SelectSection(sTarget);
  C_ImageSection* pTable = nullptr;
  for (const auto& pSection : m_Image.Sections()) {
    if (pSection->m_eModel == SectionModel::kRelocations && pSection->m_pInfo == &target) {
      pTable = pSection.get();
      break;
    }
  }
  const std::string sWhat = "cannot relocate section " + m_Image.Describe(target);
  if (!pTable) ThrowImageFailure(sWhat + ": no relocation table whose records can be read relocates it");
  C_ImageSection* pTokens = pTable->m_pLink && pTable->m_pLink->m_eModel == SectionModel::kTokens ? pTable->m_pLink : nullptr;
  if (!pTokens) ThrowImageFailure(sWhat + ": section " + m_Image.Describe(*pTable) + " links to no expression table");
  if (record.exp_start > record.exp_end || record.exp_end >= pTokens->m_vTokens.size()) {
    ThrowImageFailure(sWhat + ": tokens " + std::to_string(record.exp_start) + ".." + std::to_string(record.exp_end) +
                      " are no run of the " + std::to_string(pTokens->m_vTokens.size()) + " of section " + m_Image.Describe(*pTokens));
  }
  // The shorter record holds 16-bit run bounds: a longer run would fail only at the save.
  if (pTable->m_Header.sh_type == SHT_KEL_RELXE && record.exp_end > 0xFFFF) {
    ThrowImageFailure(sWhat + ": section " + m_Image.Describe(*pTable) + " holds run bounds up to 65535 only");
  }
  const DWORD dwSymbol = record.Info >> 8;
  C_ImageSection* pSymbols = LinkedSymbols(*pTokens);
  if (dwSymbol != 0 && (!pSymbols || dwSymbol >= pSymbols->m_vSymbols.size())) {
    ThrowImageFailure(sWhat + ": symbol " + std::to_string(dwSymbol) + " is none that section " + m_Image.Describe(*pTokens) + " reaches");
  }
  C_ImageRelocation relocation;
  relocation.m_dwOffset = record.Offset;
  relocation.m_byType = static_cast<BYTE>(record.Info & 0xFF);
  relocation.m_pSymbol = pSymbols && dwSymbol < pSymbols->m_vSymbols.size() ? pSymbols->m_vSymbols[dwSymbol].get() : nullptr;
  relocation.m_wBitStart = record.to_start;
  relocation.m_wBitEnd = record.to_end;
  relocation.m_pFirst = pTokens->m_vTokens[record.exp_start].get();
  relocation.m_pLast = pTokens->m_vTokens[record.exp_end].get();
  pTable->m_vRelocations.push_back(relocation);
}
