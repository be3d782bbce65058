#include "json_object.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <cstring>
#include <utility>

#include "present/names.h"
#include "reloc/expression_table.h"
#include "reloc/relocation_tables.h"
#include "sections/base_table.h"
#include "sections/line_table.h"
#include "sections/string_table.h"
#include "sections/symbol_table.h"

namespace cli {
namespace {

constexpr DWORD kNoBitsType = 8;

// In JSON Lines every item (header, program header, section, symbol, relocation, gap) is a line
// of its own that names what it is; otherwise items are the elements of their key's array.
void BeginItem(C_JsonWriter& json, const char* pszRecord) {
  json.BeginObject();
  if (json.Lines()) json.Key("record").String(pszRecord);
}

// KEY: [first, second], as bit ranges and expression runs are shown.
void WritePair(C_JsonWriter& json, const char* pszKey, DWORD dwFirst, DWORD dwSecond) {
  json.Key(pszKey).BeginArray();
  json.Number(dwFirst);
  json.Number(dwSecond);
  json.EndArray();
}

void BeginList(C_JsonWriter& json, const char* pszKey) {
  if (!json.Lines()) json.Key(pszKey).BeginArray();
}

void EndList(C_JsonWriter& json) {
  if (!json.Lines()) json.EndArray();
}

}  // namespace

void WriteStringsJson(C_JsonWriter& json, std::string_view sKey, const C_ByteView& contents) {
  json.Key(sKey).BeginArray();
  const char* p = reinterpret_cast<const char*>(contents.Data());
  DWORD dwAt = 0;
  while (p && dwAt < contents.Size()) {
    const char* pStart = p + dwAt;
    const void* pNul = memchr(pStart, 0, contents.Size() - dwAt);
    const DWORD dwLength = pNul ? static_cast<DWORD>(static_cast<const char*>(pNul) - pStart) : contents.Size() - dwAt;
    json.BeginObject();
    json.Key("offset").Number(dwAt);
    json.Name("string", std::string_view(pStart, dwLength));
    json.EndObject();
    dwAt += dwLength + 1;
  }
  json.EndArray();
}

void WriteRelocationJson(C_JsonWriter& json, C_KOfdRelxebTable& table, DWORD dwSection, DWORD dwRecord) {
  KEL_RELXEB* p = nullptr;
  if (table.GetAt(dwRecord, &p) != S_OK || !p) return;
  BeginItem(json, "relocation");
  json.Key("section").Number(dwSection);
  json.Key("index").Number(dwRecord);
  json.Key("offset").Number(p->Offset);
  json.Key("symbol").Number(p->Info >> 8);
  json.Key("type").Number(p->Info & 0xFF);
  WritePair(json, "bits", p->to_start, p->to_end);
  WritePair(json, "run", p->exp_start, p->exp_end);
  DWORD dwValue = 0;
  const HRESULT hr = table.Evaluate(dwRecord, &dwValue);
  if (hr == S_OK) json.Key("value").Number(dwValue);
  else json.Key("error").Number(static_cast<DWORD>(hr));
  char szText[256] = "";
  if (table.GetExpressionText(dwRecord, szText, sizeof szText) == S_OK) json.Name("expression", szText);
  else json.Key("expression").Null();
  json.EndObject();
}

namespace {

void WriteHeader(C_JsonWriter& json, const KEL_EHDR& header) {
  if (!json.Lines()) json.Key("header");
  BeginItem(json, "header");
  json.Key("ident").Hex(header.e_ident, sizeof header.e_ident);
  json.Key("class").Named(header.e_ident[4], FileClassName(header.e_ident[4]));
  json.Key("data").Named(header.e_ident[5], DataEncodingName(header.e_ident[5]));
  json.Key("type").Named(header.e_type, FileTypeName(header.e_type));
  json.Key("reserved").Number(header.e_reserved);
  json.Key("chip").Named(header.e_chip, ChipName(header.e_chip));
  json.Key("version").Number(header.e_version);
  json.Key("entry").Number(header.e_entry);
  json.Key("phoff").Number(header.e_phoff);
  json.Key("shoff").Number(header.e_shoff);
  json.Key("flags").Number(header.e_flags);
  json.Key("ehsize").Number(header.e_ehsize);
  json.Key("phentsize").Number(header.e_phentsize);
  json.Key("phnum").Number(header.e_phnum);
  json.Key("shentsize").Number(header.e_shentsize);
  json.Key("shnum").Number(header.e_shnum);
  json.Key("shstrndx").Number(header.e_shstrndx);
  json.EndObject();
}

void WriteProgramHeaders(C_JsonWriter& json, I_KElfProgramHeader* pTable) {
  DWORD dwCount = 0;
  if (pTable) pTable->GetCount(&dwCount);
  BeginList(json, "program_headers");
  for (DWORD i = 0; i < dwCount; ++i) {
    KEL_PHDR* p = nullptr;
    if (pTable->GetAt(i, &p) != S_OK || !p) continue;
    BeginItem(json, "program_header");
    json.Key("index").Number(i);
    json.Key("type").Named(p->p_type, SegmentTypeName(p->p_type));
    json.Key("offset").Number(p->p_offset);
    json.Key("vaddr").Number(p->p_vaddr);
    json.Key("paddr").Number(p->p_paddr);
    json.Key("filesz").Number(p->p_filesz);
    json.Key("memsz").Number(p->p_memsz);
    json.Key("flags").Named(p->p_flags, SegmentFlagsName(p->p_flags));
    json.Key("align").Number(p->p_align);
    json.EndObject();
  }
  EndList(json);
}

// The bytes of a section as its header places them in the object, clipped to the object.
C_ByteView SectionBytes(const C_ByteView& bytes, const KEL_SHDR& header) {
  if (header.sh_type == kNoBitsType || header.sh_offset > bytes.Size()) return C_ByteView();
  return bytes.Slice(header.sh_offset, std::min<DWORD>(header.sh_size, bytes.Size() - header.sh_offset));
}

template <class Record, class Body>
bool WriteRecordsOf(C_JsonWriter& json, I_KOfdSection* pSection, Body body) {
  auto* pTable = dynamic_cast<I_BaseTable<Record>*>(pSection);
  if (!pTable) return false;
  json.Key("records").BeginArray();
  const DWORD dwCount = pTable->GetCount();
  for (DWORD i = 0; i < dwCount; ++i) {
    Record* pRecord = nullptr;
    if (pTable->GetAt(i, &pRecord) != S_OK || !pRecord) continue;
    json.BeginObject();
    json.Key("index").Number(i);
    body(*pRecord, i);
    json.EndObject();
  }
  json.EndArray();
  return true;
}


// The records of the tables the library reads as records; a symbol table's are "symbols" and a
// relocation table of type 22's are "relocations", beside the sections.
void WriteRecords(C_JsonWriter& json, I_KOfdSection* pSection, const KEL_SHDR& header) {
  if (auto* pStrings = dynamic_cast<I_KOfdStringTable*>(pSection)) {
    return WriteStringsJson(json, "records", C_ByteView(reinterpret_cast<const BYTE*>(pStrings->GetBuffer()), pStrings->GetLength()));
  }
  if (!pSection || header.sh_type == SHT_KEL_SYMTAB || header.sh_type == SHT_KEL_RELXEB) return;
  if (WriteRecordsOf<KEL_EXP>(json, pSection, [&](const KEL_EXP& r, DWORD) {
        json.Key("type").Named(r.Type, ExpressionTypeName(r.Type));
        json.Key("value").Number(r.Value);
      })) {
    return;
  }
  if (WriteRecordsOf<KEL_RELXE>(json, pSection, [&](const KEL_RELXE& r, DWORD) {
        json.Key("offset").Number(r.Offset);
        json.Key("symbol").Number(r.Info >> 8);
        json.Key("type").Number(r.Info & 0xFF);
        WritePair(json, "bits", r.t_start, r.t_end);
        WritePair(json, "expression", r.e_start, r.e_end);
      })) {
    return;
  }
  if (WriteRecordsOf<KEL_LINE>(json, pSection, [&](const KEL_LINE& r, DWORD) {
        json.Key("offset").Number(r.Offset);
        json.Key("line").Number(r.Line);
      })) {
    return;
  }
  auto* pSource = dynamic_cast<I_KOfdSourceLineTable*>(pSection);
  if (WriteRecordsOf<KEL_SRCLINE>(json, pSection, [&](const KEL_SRCLINE& r, DWORD i) {
        json.Key("offset").Number(r.Offset);
        json.Key("line").Number(r.Line);
        json.Key("name_index").Number(r.NameIndex);
        const char* pszFile = nullptr;
        KEL_SRCLINE* pLine = nullptr;
        if (pSource && pSource->GetSourceLineAt(i, &pszFile, &pLine) == S_OK && pszFile) json.Name("file", pszFile);
      })) {
    return;
  }
  if (WriteRecordsOf<KEL_BANKINFO>(json, pSection, [&](const KEL_BANKINFO& r, DWORD) {
        json.Key("address").Number(r.Address);
        json.Key("bank").Number(r.Bank);
      })) {
    return;
  }
  if (WriteRecordsOf<KEL_KMDINFO>(json, pSection, [&](const KEL_KMDINFO& r, DWORD) {
        json.Key("name_index").Number(r.NameIndex);
        json.Key("value").Number(r.Value);
        json.Key("size").Number(r.Size);
        json.Key("gain").Number(r.Gain);
      })) {
    return;
  }
  WriteRecordsOf<KEL_STAB>(json, pSection, [&](const KEL_STAB& r, DWORD) {
    json.Key("strx").Number(r.n_strx);
    json.Key("type").Number(r.n_type);
    json.Key("other").Number(r.n_other);
    json.Key("desc").Number(r.n_desc);
    json.Key("value").Number(r.n_value);
  });
}

void WriteSection(C_JsonWriter& json, I_KOfdELF& document, DWORD dwIndex, const KEL_SHDR& header, const C_ByteView& bytes,
                  bool bWhole, bool bContents) {
  const char* pszName = nullptr;
  document.GetSectionName(dwIndex, &pszName);
  BeginItem(json, "section");
  json.Key("index").Number(dwIndex);
  if (pszName) json.Name("name", pszName);
  else json.Key("name").Null();
  json.Key("name_offset").Number(header.sh_name);
  json.Key("type").Named(header.sh_type, SectionTypeName(header.sh_type));
  json.Key("flags").Named(header.sh_flags, SectionFlagsName(header.sh_flags));
  json.Key("address").Number(header.sh_addr);
  json.Key("offset").Number(header.sh_offset);
  json.Key("size").Number(header.sh_size);
  json.Key("link").Number(header.sh_link);
  json.Key("info").Number(header.sh_info);
  json.Key("align").Number(header.sh_addralign);
  json.Key("entsize").Number(header.sh_entsize);
  const C_ByteView contents = SectionBytes(bytes, header);
  if (bWhole) {
    I_KOfdSection* pSection = nullptr;
    document.GetSection(dwIndex, &pSection);
    WriteRecords(json, pSection, header);
  }
  if (bContents && header.sh_type != kNoBitsType) json.Key("contents").Hex(contents.Data(), contents.Size());
  json.EndObject();
}

void WriteSymbols(C_JsonWriter& json, I_KOfdELF& document) {
  I_KOfdSymbolTable* pInterface = nullptr;
  document.GetSymbolTable(&pInterface);
  auto* pTable = dynamic_cast<C_KOfdSymbolTable*>(pInterface);
  BeginList(json, "symbols");
  const DWORD dwCount = pTable ? pTable->GetCount() : 0;
  for (DWORD i = 0; i < dwCount; ++i) {
    ELF32_SYM* p = nullptr;
    if (pTable->GetAt(i, &p) != S_OK || !p) continue;
    BeginItem(json, "symbol");
    json.Key("index").Number(i);
    const char* pszName = pTable->GetSymbolName(p);
    json.Name("name", pszName ? pszName : "");
    json.Key("value").Number(p->st_value);
    json.Key("size").Number(p->st_size);
    json.Key("bind").Named(p->st_info >> 4, SymbolBindName(p->st_info));
    json.Key("type").Named(p->st_info & 0xF, SymbolTypeName(p->st_info));
    json.Key("other").Number(p->st_other);
    json.Key("section").Number(p->st_shndx);
    json.EndObject();
  }
  EndList(json);
  if (pTable && !json.Lines()) json.Key("symbol_table").Number(pTable->GetKeyIndex());
}


void WriteRelocationsOf(C_JsonWriter& json, C_KOfdRelxebTable& table, DWORD dwSection) {
  DWORD dwCount = 0;
  table.GetCount(&dwCount);
  // Records naming one expression run share its value and text: each run is walked once.
  const C_RememberedRuns remembered(table);
  for (DWORD i = 0; i < dwCount; ++i) WriteRelocationJson(json, table, dwSection, i);
}

// Every byte of the object outside the file header, the two header tables and the sections.
void WriteGaps(C_JsonWriter& json, const KEL_EHDR& header, I_KElfSectionHeader* pSections, const C_ByteView& bytes) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> held{
      {0, sizeof(KEL_EHDR)},
      {header.e_phoff, header.e_phoff + std::uint64_t(header.e_phnum) * sizeof(KEL_PHDR)},
      {header.e_shoff, header.e_shoff + std::uint64_t(header.e_shnum) * sizeof(KEL_SHDR)}};
  DWORD dwCount = 0;
  if (pSections) pSections->GetCount(&dwCount);
  for (DWORD i = 0; i < dwCount; ++i) {
    KEL_SHDR* p = nullptr;
    if (pSections->GetAt(i, &p) == S_OK && p && p->sh_type != kNoBitsType) held.emplace_back(p->sh_offset, std::uint64_t(p->sh_offset) + p->sh_size);
  }
  std::sort(held.begin(), held.end());
  BeginList(json, "gaps");
  std::uint64_t qwAt = 0;
  const auto gap = [&](std::uint64_t qwTo) {
    qwTo = std::min<std::uint64_t>(qwTo, bytes.Size());
    if (qwTo <= qwAt) return;
    BeginItem(json, "gap");
    json.Key("offset").Number(qwAt);
    json.Key("size").Number(qwTo - qwAt);
    json.Key("bytes").Hex(bytes.Data() + qwAt, static_cast<std::size_t>(qwTo - qwAt));
    json.EndObject();
  };
  for (const auto& part : held) {
    if (part.second == part.first) continue;
    gap(part.first);
    qwAt = std::max(qwAt, part.second);
  }
  gap(bytes.Size());
  EndList(json);
}

}  // namespace

void WriteObjectJson(C_JsonWriter& json, I_KOfdELF& document, const C_ByteView& bytes, const ObjectJsonParts& parts) {
  I_KElfHeader* pHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  document.GetFileHeader(&pHeader);
  if (pHeader) pHeader->GetRecord(&pRecord);
  I_KElfSectionHeader* pSections = nullptr;
  document.GetSectionHeader(&pSections);
  if (!json.Lines()) json.BeginObject();
  if (parts.bHeader && pRecord) WriteHeader(json, *pRecord);
  if (parts.bProgramHeaders) {
    I_KElfProgramHeader* pPrograms = nullptr;
    document.GetProgramHeader(&pPrograms);
    WriteProgramHeaders(json, pPrograms);
  }
  DWORD dwCount = 0;
  if (pSections) pSections->GetCount(&dwCount);
  const auto shownWhole = [&](DWORD i) {
    return parts.bAll || std::find(parts.vSections.begin(), parts.vSections.end(), i) != parts.vSections.end();
  };
  if (parts.bSectionHeaders || parts.bAll || !parts.vSections.empty()) {
    BeginList(json, "sections");
    const auto write = [&](DWORD i) {
      KEL_SHDR* p = nullptr;
      if (pSections->GetAt(i, &p) == S_OK && p) WriteSection(json, document, i, *p, bytes, shownWhole(i), parts.bContents);
    };
    if (parts.bSectionHeaders || parts.bAll) {
      for (DWORD i = 0; i < dwCount; ++i) write(i);
    } else {
      for (DWORD i : parts.vSections) write(i);
    }
    EndList(json);
  }
  // The symbols and relocations of the sections shown whole.
  // Sections not shown whole are not asked for: a document opened on its headers reads them then.
  const bool bSymbolsShown = parts.bAll || std::any_of(parts.vSections.begin(), parts.vSections.end(), [&](DWORD i) {
    KEL_SHDR* p = nullptr;
    return pSections->GetAt(i, &p) == S_OK && p && p->sh_type == SHT_KEL_SYMTAB;
  });
  I_KOfdSymbolTable* pSymbols = nullptr;
  if (bSymbolsShown) document.GetSymbolTable(&pSymbols);
  auto* pSymbolTable = dynamic_cast<C_KOfdSymbolTable*>(pSymbols);
  if (parts.bAll || (pSymbolTable && shownWhole(pSymbolTable->GetKeyIndex()))) WriteSymbols(json, document);
  std::vector<DWORD> vRelocations;
  for (DWORD i = 0; i < dwCount; ++i) {
    if (!shownWhole(i)) continue;
    I_KOfdSection* pSection = nullptr;
    document.GetSection(i, &pSection);
    if (dynamic_cast<C_KOfdRelxebTable*>(pSection)) vRelocations.push_back(i);
  }
  if (parts.bAll || !vRelocations.empty()) {
    BeginList(json, "relocations");
    for (DWORD i : vRelocations) {
      I_KOfdSection* pSection = nullptr;
      document.GetSection(i, &pSection);
      WriteRelocationsOf(json, *dynamic_cast<C_KOfdRelxebTable*>(pSection), i);
    }
    EndList(json);
  }
  if (parts.bContents && pRecord) WriteGaps(json, *pRecord, pSections, bytes);
  if (!json.Lines()) json.EndObject();
}

}  // namespace cli
