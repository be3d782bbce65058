#include "analyze/diff.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

#include "analyze/analyze_common.h"
#include "object/kelf_header.h"

namespace kofd_analyze {
namespace {

constexpr DWORD kNoBits = 8;
constexpr DWORD kInfoLinkFlag = 0x40;
constexpr WORD kFirstReserved = 0xFF00;

// Where the differences of one pair of objects go.
struct Collector {
  const DiffOptions& options;
  std::string sMember;
  std::vector<Difference>& out;
  bool bLayout = false;  // the differences added now are of layout alone

  Difference& Add(DiffPart part, DiffChange change, const std::string& sName, DWORD dwIndex = 0) {
    Difference d;
    d.sMember = sMember;
    d.part = part;
    d.change = change;
    d.sName = sName;
    d.dwIndex = dwIndex;
    d.bLayout = bLayout;
    out.push_back(std::move(d));
    return out.back();
  }
  void Field(DiffPart part, const std::string& sName, DWORD dwIndex, const char* pszField, const DiffValue& a,
             const DiffValue& b) {
    if (a == b) return;
    Difference& d = Add(part, DiffChange::kChanged, sName, dwIndex);
    d.sField = pszField;
    d.a = a;
    d.b = b;
  }
  void Number(DiffPart part, const std::string& sName, DWORD dwIndex, const char* pszField, DWORD a, DWORD b) {
    Field(part, sName, dwIndex, pszField, DiffValue::Number(a), DiffValue::Number(b));
  }
  // The differing runs of bytes of two contents, as ranges; a size difference is a range of its own.
  void Ranges(DiffPart part, const std::string& sName, const char* pszField, const C_ByteView& a, const C_ByteView& b) {
    const DWORD dwCommon = std::min(a.Size(), b.Size());
    const DWORD dwEnd = std::max(a.Size(), b.Size());
    std::vector<std::pair<DWORD, DWORD>> ranges;
    for (DWORD i = 0; i < dwCommon;) {
      if (a.Data()[i] == b.Data()[i]) {
        ++i;
        continue;
      }
      DWORD j = i;
      while (j < dwCommon && a.Data()[j] != b.Data()[j]) ++j;
      ranges.emplace_back(i, j);
      i = j;
    }
    if (dwCommon < dwEnd) {
      if (!ranges.empty() && ranges.back().second == dwCommon) ranges.back().second = dwEnd;
      else ranges.emplace_back(dwCommon, dwEnd);
    }
    if (options.dwMaxRanges && ranges.size() > options.dwMaxRanges) {
      ranges[options.dwMaxRanges - 1].second = ranges.back().second;
      ranges.resize(options.dwMaxRanges);
    }
    for (const auto& range : ranges) {
      Difference& d = Add(part, DiffChange::kChanged, sName);
      d.sField = pszField;
      d.bRange = true;
      d.dwFrom = range.first;
      d.dwTo = range.second;
    }
  }
};

// Items keyed by name, the nth of a name apart from the others of that name.
template <class T>
class Keyed {
 public:
  void Add(const std::string& sName, T item) {
    const DWORD dwNth = m_Counts[sName]++;
    m_vOrder.push_back({sName, dwNth});
    m_Items.emplace(std::make_pair(sName, dwNth), std::move(item));
  }
  const std::vector<std::pair<std::string, DWORD>>& Order() const { return m_vOrder; }
  const T* Find(const std::pair<std::string, DWORD>& key) const {
    auto it = m_Items.find(key);
    return it == m_Items.end() ? nullptr : &it->second;
  }

 private:
  std::map<std::string, DWORD> m_Counts;
  std::vector<std::pair<std::string, DWORD>> m_vOrder;
  std::map<std::pair<std::string, DWORD>, T> m_Items;
};

// Calls same(a, b) for the keys both hold, added(b) and removed(a) for the others.
template <class T, class Same, class Added, class Removed>
void Match(const Keyed<T>& a, const Keyed<T>& b, Same&& same, Added&& added, Removed&& removed) {
  for (const auto& key : a.Order()) {
    if (const T* pOther = b.Find(key)) same(*a.Find(key), *pOther);
    else removed(*a.Find(key));
  }
  for (const auto& key : b.Order()) {
    if (!a.Find(key)) added(*b.Find(key));
  }
}

struct SectionInfo {
  DWORD dwIndex = 0;
  KEL_SHDR header{};
  std::string sName;
  C_ByteView contents;
};

struct ObjectParts {
  I_KOfdELF* pDocument = nullptr;
  KEL_EHDR header{};
  bool bHeader = false;
  std::vector<KEL_PHDR> vProgramHeaders;
  std::vector<SectionInfo> vSections;
  Keyed<SectionInfo> sections;
};

ObjectParts Gather(const AnalyzedObject& object) {
  ObjectParts parts;
  parts.pDocument = object.pDocument;
  I_KOfdELF& document = *object.pDocument;
  I_KElfHeader* pFileHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  if (document.GetFileHeader(&pFileHeader) == S_OK && pFileHeader && pFileHeader->GetRecord(&pRecord) == S_OK && pRecord) {
    parts.header = *pRecord;
    parts.bHeader = true;
  }
  I_KElfProgramHeader* pProgram = nullptr;
  DWORD dwCount = 0;
  if (document.GetProgramHeader(&pProgram) == S_OK && pProgram && pProgram->GetCount(&dwCount) == S_OK) {
    for (DWORD i = 0; i < dwCount; ++i) {
      KEL_PHDR* p = nullptr;
      if (pProgram->GetAt(i, &p) == S_OK && p) parts.vProgramHeaders.push_back(*p);
    }
  }
  I_KElfSectionHeader* pSections = nullptr;
  if (document.GetSectionHeader(&pSections) == S_OK && pSections) {
    const DWORD dwSections = SectionCount(document);
    for (DWORD i = 0; i < dwSections; ++i) {
      KEL_SHDR* p = nullptr;
      if (pSections->GetAt(i, &p) != S_OK || !p) continue;
      SectionInfo info;
      info.dwIndex = i;
      info.header = *p;
      info.sName = NameOfSection(document, i);
      if (p->sh_type != kNoBits && p->sh_offset <= object.bytes.Size()) {
        info.contents = object.bytes.Slice(p->sh_offset, std::min(p->sh_size, object.bytes.Size() - p->sh_offset));
      }
      parts.vSections.push_back(info);
      parts.sections.Add(info.sName, info);
    }
  }
  return parts;
}

// A section index as its name, when it names a section; else the index itself.
DiffValue SectionRef(const ObjectParts& parts, DWORD dwIndex) {
  if (dwIndex == 0 || dwIndex >= parts.vSections.size()) return DiffValue::Number(dwIndex);
  return DiffValue::Text(parts.vSections[dwIndex].sName);
}

bool InfoNamesSection(const KEL_SHDR& header) {
  return header.sh_type == SHT_KEL_RELX || header.sh_type == SHT_KEL_RELXE || header.sh_type == SHT_KEL_RELXEB ||
         (header.sh_flags & kInfoLinkFlag) != 0;
}

// The sections whose bytes are compared through what they hold (symbols, names, relocations) and
// whose bytes move with the layout.
bool ContentsByMeaning(DWORD dwType) {
  return dwType == SHT_KEL_SYMTAB || dwType == SHT_KEL_STRTAB || dwType == SHT_KEL_EXPR || dwType == SHT_KEL_RELX ||
         dwType == SHT_KEL_RELXE || dwType == SHT_KEL_RELXEB;
}

void DiffHeader(Collector& c, const ObjectParts& a, const ObjectParts& b) {
  if (!a.bHeader || !b.bHeader) return;
  const KEL_EHDR& x = a.header;
  const KEL_EHDR& y = b.header;
  const DiffPart h = DiffPart::kHeader;
  for (int i = 0; i < 16; ++i) {
    if (x.e_ident[i] != y.e_ident[i]) c.Number(h, "", 0, ("ident[" + std::to_string(i) + "]").c_str(), x.e_ident[i], y.e_ident[i]);
  }
  c.Number(h, "", 0, "type", x.e_type, y.e_type);
  c.Number(h, "", 0, "reserved", x.e_reserved, y.e_reserved);
  c.Number(h, "", 0, "chip", x.e_chip, y.e_chip);
  c.Number(h, "", 0, "version", x.e_version, y.e_version);
  c.Number(h, "", 0, "entry", x.e_entry, y.e_entry);
  c.Number(h, "", 0, "flags", x.e_flags, y.e_flags);
  c.Number(h, "", 0, "ehsize", x.e_ehsize, y.e_ehsize);
  c.Number(h, "", 0, "phentsize", x.e_phentsize, y.e_phentsize);
  c.Number(h, "", 0, "phnum", x.e_phnum, y.e_phnum);
  c.Number(h, "", 0, "shentsize", x.e_shentsize, y.e_shentsize);
  c.Field(h, "", 0, "shstrndx", SectionRef(a, x.e_shstrndx), SectionRef(b, y.e_shstrndx));
  if (c.options.bLayout) {
    c.bLayout = true;
    c.Number(h, "", 0, "phoff", x.e_phoff, y.e_phoff);
    c.Number(h, "", 0, "shoff", x.e_shoff, y.e_shoff);
    c.Number(h, "", 0, "shnum", x.e_shnum, y.e_shnum);
    c.Number(h, "", 0, "shstrndx_index", x.e_shstrndx, y.e_shstrndx);
    c.bLayout = false;
  }
  const std::size_t nCommon = std::min(a.vProgramHeaders.size(), b.vProgramHeaders.size());
  const DiffPart p = DiffPart::kProgramHeader;
  for (std::size_t i = 0; i < nCommon; ++i) {
    const KEL_PHDR& u = a.vProgramHeaders[i];
    const KEL_PHDR& v = b.vProgramHeaders[i];
    const DWORD n = static_cast<DWORD>(i);
    c.Number(p, "", n, "type", u.p_type, v.p_type);
    c.Number(p, "", n, "vaddr", u.p_vaddr, v.p_vaddr);
    c.Number(p, "", n, "paddr", u.p_paddr, v.p_paddr);
    c.Number(p, "", n, "filesz", u.p_filesz, v.p_filesz);
    c.Number(p, "", n, "memsz", u.p_memsz, v.p_memsz);
    c.Number(p, "", n, "flags", u.p_flags, v.p_flags);
    c.Number(p, "", n, "align", u.p_align, v.p_align);
    if (c.options.bLayout) {
      c.bLayout = true;
      c.Number(p, "", n, "offset", u.p_offset, v.p_offset);
      c.bLayout = false;
    }
  }
  for (std::size_t i = nCommon; i < a.vProgramHeaders.size(); ++i) c.Add(p, DiffChange::kRemoved, "", static_cast<DWORD>(i));
  for (std::size_t i = nCommon; i < b.vProgramHeaders.size(); ++i) c.Add(p, DiffChange::kAdded, "", static_cast<DWORD>(i));
}

void DiffSections(Collector& c, const ObjectParts& a, const ObjectParts& b) {
  const DiffPart s = DiffPart::kSection;
  Match(
      a.sections, b.sections,
      [&](const SectionInfo& x, const SectionInfo& y) {
        const KEL_SHDR& u = x.header;
        const KEL_SHDR& v = y.header;
        const std::string& n = x.sName;
        c.Number(s, n, 0, "type", u.sh_type, v.sh_type);
        c.Number(s, n, 0, "flags", u.sh_flags, v.sh_flags);
        c.Number(s, n, 0, "address", u.sh_addr, v.sh_addr);
        const bool bMeaning = !ContentsByMeaning(u.sh_type) && !ContentsByMeaning(v.sh_type);
        // A table read through its records grows and shrinks with them: its size is layout.
        if (bMeaning) c.Number(s, n, 0, "size", u.sh_size, v.sh_size);
        c.Field(s, n, 0, "link", SectionRef(a, u.sh_link), SectionRef(b, v.sh_link));
        c.Field(s, n, 0, "info", InfoNamesSection(u) ? SectionRef(a, u.sh_info) : DiffValue::Number(u.sh_info),
                InfoNamesSection(v) ? SectionRef(b, v.sh_info) : DiffValue::Number(v.sh_info));
        c.Number(s, n, 0, "align", u.sh_addralign, v.sh_addralign);
        c.Number(s, n, 0, "entsize", u.sh_entsize, v.sh_entsize);
        if (bMeaning) c.Ranges(s, n, "contents", x.contents, y.contents);
        if (c.options.bLayout) {
          c.bLayout = true;
          c.Number(s, n, 0, "index", x.dwIndex, y.dwIndex);
          c.Number(s, n, 0, "offset", u.sh_offset, v.sh_offset);
          c.Number(s, n, 0, "name_offset", u.sh_name, v.sh_name);
          if (!bMeaning) c.Number(s, n, 0, "size", u.sh_size, v.sh_size);
          if (!bMeaning) c.Ranges(s, n, "contents", x.contents, y.contents);
          c.bLayout = false;
        }
      },
      [&](const SectionInfo& y) { c.Add(s, DiffChange::kAdded, y.sName); },
      [&](const SectionInfo& x) { c.Add(s, DiffChange::kRemoved, x.sName); });
}

struct SymbolInfo {
  DWORD dwIndex = 0;
  ELF32_SYM symbol{};
};

void DiffSymbols(Collector& c, const ObjectParts& a, const ObjectParts& b) {
  auto gather = [](const ObjectParts& parts) {
    Keyed<SymbolInfo> symbols;
    ForEachSymbol(*parts.pDocument, [&](DWORD dwIndex, const char* pszName, const ELF32_SYM& symbol) {
      symbols.Add(pszName, {dwIndex, symbol});
    });
    return symbols;
  };
  auto section = [](const ObjectParts& parts, WORD wIndex) {
    if (wIndex == 0 || wIndex >= kFirstReserved) return DiffValue::Number(wIndex);
    return SectionRef(parts, wIndex);
  };
  const Keyed<SymbolInfo> x = gather(a), y = gather(b);
  const DiffPart p = DiffPart::kSymbol;
  for (const auto& key : x.Order()) {
    const SymbolInfo& u = *x.Find(key);
    const SymbolInfo* v = y.Find(key);
    const std::string& n = key.first;
    if (!v) {
      c.Add(p, DiffChange::kRemoved, n);
      continue;
    }
    c.Number(p, n, 0, "value", u.symbol.st_value, v->symbol.st_value);
    c.Number(p, n, 0, "size", u.symbol.st_size, v->symbol.st_size);
    c.Number(p, n, 0, "bind", u.symbol.st_info >> 4, v->symbol.st_info >> 4);
    c.Number(p, n, 0, "type", u.symbol.st_info & 0xF, v->symbol.st_info & 0xF);
    c.Number(p, n, 0, "other", u.symbol.st_other, v->symbol.st_other);
    c.Field(p, n, 0, "section", section(a, u.symbol.st_shndx), section(b, v->symbol.st_shndx));
    if (c.options.bLayout) {
      c.bLayout = true;
      c.Number(p, n, 0, "index", u.dwIndex, v->dwIndex);
      c.Number(p, n, 0, "name_offset", u.symbol.st_name, v->symbol.st_name);
      c.bLayout = false;
    }
  }
  for (const auto& key : y.Order()) {
    if (!x.Find(key)) c.Add(p, DiffChange::kAdded, key.first);
  }
}

struct RelocationInfo {
  std::string sSection;
  DWORD dwRecord = 0;
  KEL_RELXEB record{};
  DiffValue value;
  DiffValue text;
};

std::string Hex(DWORD dw) {
  char sz[16];
  snprintf(sz, sizeof sz, "0x%08x", static_cast<unsigned>(dw));
  return sz;
}

Keyed<RelocationInfo> GatherRelocations(const ObjectParts& parts) {
  Keyed<RelocationInfo> relocations;
  I_KOfdELF& document = *parts.pDocument;
  std::vector<char> vText(4096);
  const DWORD dwSections = SectionCount(document);
  for (DWORD s = 0; s < dwSections; ++s) {
    C_KOfdRelxebTable* pTable = SectionAs<C_KOfdRelxebTable>(document, s);
    if (!pTable) continue;
    const C_RememberedRuns remembered(*pTable);
    const std::string sSection = NameOfSection(document, s);
    const DWORD dwCount = pTable->GetCount();
    for (DWORD r = 0; r < dwCount; ++r) {
      KEL_RELXEB* pRecord = nullptr;
      if (pTable->GetAt(r, &pRecord) != S_OK || !pRecord) continue;
      RelocationInfo info;
      info.sSection = sSection;
      info.dwRecord = r;
      info.record = *pRecord;
      DWORD dwValue = 0;
      const HRESULT hr = pTable->Evaluate(r, &dwValue);
      info.value = hr == S_OK ? DiffValue::Number(dwValue) : DiffValue::Text("error " + Hex(static_cast<DWORD>(hr)));
      info.text = pTable->GetExpressionText(r, vText.data(), static_cast<DWORD>(vText.size())) == S_OK
                      ? DiffValue::Text(vText.data())
                      : DiffValue();
      // Keyed by section name and offset: the name carries the offset so that the nth count is per pair.
      relocations.Add(sSection + '\0' + Hex(pRecord->Offset), info);
    }
  }
  return relocations;
}

void DiffRelocations(Collector& c, const ObjectParts& a, const ObjectParts& b) {
  const Keyed<RelocationInfo> x = GatherRelocations(a), y = GatherRelocations(b);
  const DiffPart p = DiffPart::kRelocation;
  Match(
      x, y,
      [&](const RelocationInfo& u, const RelocationInfo& v) {
        const std::string& n = u.sSection;
        const DWORD o = u.record.Offset;
        c.Field(p, n, o, "value", u.value, v.value);
        c.Field(p, n, o, "expression", u.text, v.text);
        c.Number(p, n, o, "type", u.record.Info & 0xFF, v.record.Info & 0xFF);
        c.Number(p, n, o, "first_bit", u.record.to_start, v.record.to_start);
        c.Number(p, n, o, "last_bit", u.record.to_end, v.record.to_end);
        if (c.options.bLayout) {
          c.bLayout = true;
          c.Number(p, n, o, "index", u.dwRecord, v.dwRecord);
          c.Number(p, n, o, "symbol_index", u.record.Info >> 8, v.record.Info >> 8);
          c.Number(p, n, o, "run_start", u.record.exp_start, v.record.exp_start);
          c.Number(p, n, o, "run_end", u.record.exp_end, v.record.exp_end);
          c.bLayout = false;
        }
      },
      [&](const RelocationInfo& v) { c.Add(p, DiffChange::kAdded, v.sSection, v.record.Offset); },
      [&](const RelocationInfo& u) { c.Add(p, DiffChange::kRemoved, u.sSection, u.record.Offset); });
}

void DiffPair(const AnalyzedObject& a, const AnalyzedObject& b, const DiffOptions& options, const std::string& sMember,
              std::vector<Difference>& out) {
  if (!a.pDocument || !b.pDocument) return;
  Collector c{options, sMember, out};
  const std::size_t nBefore = out.size();
  const ObjectParts x = Gather(a), y = Gather(b);
  DiffHeader(c, x, y);
  DiffSections(c, x, y);
  DiffSymbols(c, x, y);
  DiffRelocations(c, x, y);
  // What no part above holds (padding, gaps) still counts for the layout, as the object's bytes.
  if (options.bLayout && out.size() == nBefore) {
    c.bLayout = true;
    c.Ranges(DiffPart::kObject, "", "bytes", a.bytes, b.bytes);
  }
}

}  // namespace

std::vector<Difference> DiffObjects(const AnalyzedObject& a, const AnalyzedObject& b, const DiffOptions& options) {
  std::vector<Difference> out;
  DiffPair(a, b, options, a.sMember == b.sMember ? a.sMember : "", out);
  return out;
}

std::vector<Difference> DiffArchives(const std::vector<AnalyzedObject>& a, const std::vector<AnalyzedObject>& b,
                                     const DiffOptions& options) {
  std::vector<Difference> out;
  Keyed<std::pair<DWORD, const AnalyzedObject*>> x, y;
  for (DWORD i = 0; i < a.size(); ++i) x.Add(a[i].sMember, {i, &a[i]});
  for (DWORD i = 0; i < b.size(); ++i) y.Add(b[i].sMember, {i, &b[i]});
  Collector c{options, "", out};
  Match(
      x, y,
      [&](const std::pair<DWORD, const AnalyzedObject*>& u, const std::pair<DWORD, const AnalyzedObject*>& v) {
        if (options.bLayout) {
          c.bLayout = true;
          c.Number(DiffPart::kMember, u.second->sMember, 0, "index", u.first, v.first);
          c.bLayout = false;
        }
        DiffPair(*u.second, *v.second, options, u.second->sMember, out);
      },
      [&](const std::pair<DWORD, const AnalyzedObject*>& v) { c.Add(DiffPart::kMember, DiffChange::kAdded, v.second->sMember); },
      [&](const std::pair<DWORD, const AnalyzedObject*>& u) { c.Add(DiffPart::kMember, DiffChange::kRemoved, u.second->sMember); });
  return out;
}

const char* PartName(DiffPart part) {
  switch (part) {
    case DiffPart::kHeader: return "header";
    case DiffPart::kProgramHeader: return "program_header";
    case DiffPart::kSection: return "section";
    case DiffPart::kSymbol: return "symbol";
    case DiffPart::kRelocation: return "relocation";
    case DiffPart::kMember: return "member";
    case DiffPart::kObject: return "object";
  }
  return "";
}

const char* ChangeName(DiffChange change) {
  switch (change) {
    case DiffChange::kAdded: return "added";
    case DiffChange::kRemoved: return "removed";
    case DiffChange::kChanged: return "changed";
  }
  return "";
}

}  // namespace kofd_analyze
