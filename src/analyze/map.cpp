#include "analyze/map.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <utility>

#include "object/kofd_elf.h"
#include "sections/bank_table.h"
#include "sections/line_table.h"
#include "sections/section.h"
#include "sections/share_rom_table.h"
#include "sections/stab_table.h"
#include "sections/storage.h"
#include "sections/string_table.h"

namespace kofd_analyze {
namespace {

constexpr BYTE kStabSourceFile = 0x64;     // N_SO
constexpr BYTE kStabIncludedFile = 0x84;   // N_SOL
constexpr BYTE kStabLine = 0x44;           // N_SLINE

// The address a table's Offset stands for: its program section's sh_addr plus Offset, 32-bit.
DWORD ProgramAddress(I_KOfdSection* pTable, DWORD dwOffset) {
  C_KOfdSection* pSection = dynamic_cast<C_KOfdSection*>(pTable);
  I_KOfdSection* pProgram = pSection ? pSection->GetInfoSection() : nullptr;
  return (pProgram ? pProgram->GetAddress() : 0) + dwOffset;
}

void ReadLineTable(C_KOfdLineTable& table, DWORD dwSection, std::vector<LineEntry>* pvEntries) {
  for (DWORD i = 0; i < table.GetCount(); ++i) {
    KEL_LINE* pRecord = nullptr;
    if (table.GetAt(i, &pRecord) != S_OK || !pRecord) continue;
    LineEntry entry;
    entry.dwAddress = ProgramAddress(&table, pRecord->Offset);
    entry.dwLine = pRecord->Line;
    entry.source = LineSource::kLine;
    entry.dwSection = dwSection;
    entry.dwRecord = i;
    pvEntries->push_back(std::move(entry));
  }
}

void ReadSourceLineTable(I_KOfdSourceLineTable& table, I_KOfdSection* pSection, DWORD dwSection,
                         std::vector<LineEntry>* pvEntries) {
  DWORD dwCount = 0;
  table.GetSourceLineCount(&dwCount);
  for (DWORD i = 0; i < dwCount; ++i) {
    const char* pszFile = nullptr;
    KEL_SRCLINE* pRecord = nullptr;
    if (table.GetSourceLineAt(i, &pszFile, &pRecord) != S_OK || !pRecord) continue;
    LineEntry entry;
    entry.dwAddress = ProgramAddress(pSection, pRecord->Offset);
    entry.dwLine = pRecord->Line;
    // A NameIndex that names no text (or empty text) leaves the file unknown.
    entry.bFileKnown = pszFile && *pszFile;
    if (entry.bFileKnown) entry.sFile = pszFile;
    entry.source = LineSource::kSourceLine;
    entry.dwSection = dwSection;
    entry.dwRecord = i;
    pvEntries->push_back(std::move(entry));
  }
}

// Stabs one at a time: the record and its name (null when there is none).
using StabAt = std::function<bool(DWORD, KEL_STAB*, const char**)>;

void ReadStabs(DWORD dwCount, const StabAt& stabAt, DWORD dwSection, std::vector<LineEntry>* pvEntries) {
  bool bFileKnown = false;
  std::string sFile;
  for (DWORD i = 0; i < dwCount; ++i) {
    const char* pszName = nullptr;
    KEL_STAB stab;
    if (!stabAt(i, &stab, &pszName)) continue;
    const KEL_STAB* pStab = &stab;
    if (pStab->n_type == kStabSourceFile || pStab->n_type == kStabIncludedFile) {
      bFileKnown = pszName && *pszName;
      sFile = bFileKnown ? pszName : "";
      continue;
    }
    if (pStab->n_type != kStabLine) continue;
    LineEntry entry;
    entry.dwAddress = pStab->n_value;
    entry.dwLine = pStab->n_desc;
    entry.bFileKnown = bFileKnown;
    entry.sFile = sFile;
    entry.source = LineSource::kStab;
    entry.dwSection = dwSection;
    entry.dwRecord = i;
    pvEntries->push_back(std::move(entry));
  }
}

void ReadStabTable(I_KOfdStabTable& table, DWORD dwSection, std::vector<LineEntry>* pvEntries) {
  DWORD dwCount = 0;
  table.GetStabCount(&dwCount);
  ReadStabs(dwCount, [&](DWORD i, KEL_STAB* pOut, const char** ppszName) {
    KEL_STAB* pStab = nullptr;
    if (table.GetStabAt(i, ppszName, &pStab) != S_OK || !pStab) return false;
    *pOut = *pStab;
    return true;
  }, dwSection, pvEntries);
}

// A ".stab" section the document holds as program bytes: 12-byte records, their names in the
// linked string table (else the section ".stabstr").
void ReadStabBytes(I_KOfdELF& document, I_KOfdSection& section, I_KOfdProgramTable& program, DWORD dwSection,
                   std::vector<LineEntry>* pvEntries) {
  BYTE* pData = nullptr;
  DWORD dwHeld = 0;
  if (program.GetData(&pData, &dwHeld) != S_OK || !pData) return;
  I_KOfdSection* pLinked = nullptr;
  DWORD dwCount = 0;
  document.GetSectionCount(&dwCount);
  if (section.GetLink() != 0 && section.GetLink() < dwCount) document.GetSection(section.GetLink(), &pLinked);
  auto* pNames = dynamic_cast<I_KOfdStringTable*>(pLinked);
  if (!pNames && document.FindSection(".stabstr", &pLinked) == S_OK) pNames = dynamic_cast<I_KOfdStringTable*>(pLinked);
  ReadStabs(dwHeld / sizeof(KEL_STAB), [&](DWORD i, KEL_STAB* pOut, const char** ppszName) {
    memcpy(pOut, pData + std::size_t(i) * sizeof(KEL_STAB), sizeof(KEL_STAB));
    *ppszName = pNames ? pNames->GetString(pOut->n_strx) : nullptr;
    return true;
  }, dwSection, pvEntries);
}

bool IsStabSection(I_KOfdSection& section) {
  const char* pszName = section.GetName();
  return pszName && strcmp(pszName, ".stab") == 0;
}

bool SaysTheSame(const LineEntry& a, const LineEntry& b) {
  if (a.dwLine != b.dwLine) return false;
  return !a.bFileKnown || !b.bFileKnown || a.sFile == b.sFile;
}

// Program sections as address intervals, sorted by start, with the furthest end reached so far,
// so that the end of the sections holding an address is one search.
class ProgramExtents {
 public:
  void Add(std::uint64_t qwFrom, std::uint64_t qwTo) {
    if (qwTo > qwFrom) m_vExtents.push_back({qwFrom, qwTo});
  }
  void Finish() {
    std::sort(m_vExtents.begin(), m_vExtents.end());
    std::uint64_t qwFurthest = 0;
    for (auto& extent : m_vExtents) {
      qwFurthest = std::max(qwFurthest, extent.second);
      extent.second = qwFurthest;
    }
  }
  // The furthest end of the sections that hold qwAddress; 0 when none does.
  std::uint64_t EndOf(std::uint64_t qwAddress) const {
    auto it = std::upper_bound(m_vExtents.begin(), m_vExtents.end(), std::make_pair(qwAddress, UINT64_MAX));
    if (it == m_vExtents.begin()) return 0;
    --it;
    return it->second > qwAddress ? it->second : 0;
  }

 private:
  std::vector<std::pair<std::uint64_t, std::uint64_t>> m_vExtents;
};

}  // namespace

const char* LineSourceName(LineSource source) {
  switch (source) {
    case LineSource::kSourceLine: return "srcline";
    case LineSource::kLine: return "line";
    case LineSource::kStab: return "stab";
  }
  return "line";
}

std::size_t AddressMap::ConflictCount() const {
  std::size_t n = 0;
  for (const MapRange& range : vRanges) n += range.vConflicts.empty() ? 0 : 1;
  return n;
}

AddressMap BuildAddressMap(I_KOfdELF& document) {
  AddressMap map;
  std::vector<LineEntry> vEntries;
  std::map<DWORD, DWORD> banks;  // Address -> Bank, the last listed of equal Addresses
  std::vector<ShareRomWord> vWords;
  ProgramExtents programs;
  DWORD dwCount = 0;
  document.GetSectionCount(&dwCount);
  for (DWORD i = 0; i < dwCount; ++i) {
    I_KOfdSection* pSection = nullptr;
    if (document.GetSection(i, &pSection) != S_OK || !pSection) continue;
    const bool bStabs = IsStabSection(*pSection);
    if (pSection->GetType() == SHT_KEL_PROGBITS && !bStabs) {
      programs.Add(pSection->GetAddress(), std::uint64_t(pSection->GetAddress()) + pSection->GetSize());
    }
    auto* pProgram = dynamic_cast<I_KOfdProgramTable*>(pSection);
    if (bStabs && pProgram) {
      ReadStabBytes(document, *pSection, *pProgram, i, &vEntries);
    } else if (auto* pLines = dynamic_cast<C_KOfdLineTable*>(pSection)) {
      ReadLineTable(*pLines, i, &vEntries);
    } else if (auto* pSource = dynamic_cast<I_KOfdSourceLineTable*>(pSection)) {
      ReadSourceLineTable(*pSource, pSection, i, &vEntries);
    } else if (auto* pStabs = dynamic_cast<I_KOfdStabTable*>(pSection)) {
      ReadStabTable(*pStabs, i, &vEntries);
    } else if (auto* pBanks = dynamic_cast<C_KOfdBankTable*>(pSection)) {
      for (DWORD r = 0; r < pBanks->GetCount(); ++r) {
        KEL_BANKINFO* pRecord = nullptr;
        if (pBanks->GetAt(r, &pRecord) == S_OK && pRecord) banks[pRecord->Address] = pRecord->Bank;
      }
    } else if (auto* pRom = dynamic_cast<I_KOfdShareRomTable*>(pSection)) {
      DWORD* pWords = nullptr;
      DWORD dwBytes = 0;
      pRom->GetData(&pWords, &dwBytes);
      const std::uint64_t qwBase = pSection->GetAddress();
      for (DWORD w = 0; pWords && w < dwBytes / 4; ++w) {
        const std::uint64_t qwAddress = qwBase + 4ull * w;
        if (qwAddress > 0xFFFFFFFFu) break;
        vWords.push_back({static_cast<DWORD>(qwAddress), pWords[w], i});
      }
    }
  }
  programs.Finish();
  map.nEntries = vEntries.size();
  std::stable_sort(vEntries.begin(), vEntries.end(), [](const LineEntry& a, const LineEntry& b) {
    if (a.dwAddress != b.dwAddress) return a.dwAddress < b.dwAddress;
    return static_cast<int>(a.source) < static_cast<int>(b.source);
  });
  std::stable_sort(vWords.begin(), vWords.end(),
                   [](const ShareRomWord& a, const ShareRomWord& b) { return a.dwAddress < b.dwAddress; });

  const auto bankAt = [&](std::uint64_t qwAddress, MapRange* pRange) {
    auto it = banks.upper_bound(static_cast<DWORD>(qwAddress));
    if (it == banks.begin()) return;
    --it;
    pRange->bBankKnown = true;
    pRange->dwBank = it->second;
  };
  for (std::size_t i = 0; i < vEntries.size();) {
    std::size_t j = i + 1;
    while (j < vEntries.size() && vEntries[j].dwAddress == vEntries[i].dwAddress) ++j;
    MapRange range;
    range.line = vEntries[i];
    for (std::size_t k = i + 1; k < j; ++k) {
      (SaysTheSame(vEntries[i], vEntries[k]) ? range.vAgreeing : range.vConflicts).push_back(vEntries[k]);
    }
    range.qwFrom = vEntries[i].dwAddress;
    const std::uint64_t qwNext = j < vEntries.size() ? vEntries[j].dwAddress : 0x100000000ull;
    const std::uint64_t qwEnd = programs.EndOf(range.qwFrom);
    range.qwTo = qwEnd == 0 ? range.qwFrom + 1 : std::min(qwNext, qwEnd);
    // One range a bank: split where a bank-table Address falls inside.
    for (;;) {
      bankAt(range.qwFrom, &range);
      // Only a bank-table Address that changes the bank ends the range.
      auto next = banks.upper_bound(static_cast<DWORD>(range.qwFrom));
      while (range.bBankKnown && next != banks.end() && next->first < range.qwTo && next->second == range.dwBank) ++next;
      const std::uint64_t qwSplit = next == banks.end() ? range.qwTo : std::min<std::uint64_t>(next->first, range.qwTo);
      if (qwSplit >= range.qwTo) {
        map.vRanges.push_back(std::move(range));
        break;
      }
      MapRange rest;
      rest.line = range.line;
      rest.qwFrom = qwSplit;
      rest.qwTo = range.qwTo;
      range.qwTo = qwSplit;
      map.vRanges.push_back(std::move(range));
      range = std::move(rest);
    }
    i = j;
  }
  for (MapRange& range : map.vRanges) {
    auto it = std::lower_bound(vWords.begin(), vWords.end(), range.qwFrom,
                               [](const ShareRomWord& word, std::uint64_t qw) { return word.dwAddress < qw; });
    for (; it != vWords.end() && it->dwAddress < range.qwTo; ++it) range.vShareRom.push_back(*it);
  }
  return map;
}

const MapRange* FindAddress(const AddressMap& map, DWORD dwAddress) {
  auto it = std::upper_bound(map.vRanges.begin(), map.vRanges.end(), std::uint64_t(dwAddress),
                             [](std::uint64_t qw, const MapRange& range) { return qw < range.qwFrom; });
  if (it == map.vRanges.begin()) return nullptr;
  --it;
  return dwAddress < it->qwTo ? &*it : nullptr;
}

}  // namespace kofd_analyze
