#include "json_build.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "edit/image_editor.h"
#include "edit/image_layout.h"
#include "frame/replacing_file.h"
#include "frame/text.h"

namespace cli {
namespace {

using Json = nlohmann::json;

constexpr std::uint64_t kFileLimit = 0xFFFFFFFFu;
constexpr BYTE kBigEndianData = 2;
constexpr DWORD kNullType = SHT_KEL_NULL;
constexpr DWORD kNobitsType = C_ImageSection::kNobitsType;
constexpr DWORD kInfoLinkFlag = 0x40;
constexpr std::uint64_t kFirstReservedIndex = 0xFF00;

[[noreturn]] void Refuse(const std::string& sPath, const std::string& sWhy) { ThrowImageFailure(sPath + ": " + sWhy); }

std::string At(const std::string& sPath, std::size_t nIndex) { return sPath + "[" + std::to_string(nIndex) + "]"; }
std::string Field(const std::string& sPath, const char* pszKey) { return sPath.empty() ? pszKey : sPath + "." + pszKey; }

// A JSON value with the path that names it in messages.
struct Node {
  const Json* p;
  std::string sPath;

  bool Has(const char* pszKey) const { return p->is_object() && p->contains(pszKey); }
  Node operator[](const char* pszKey) const {
    if (!p->is_object()) Refuse(sPath, "not a JSON object");
    const auto it = p->find(pszKey);
    if (it == p->end()) Refuse(Field(sPath, pszKey), "missing");
    return {&*it, Field(sPath, pszKey)};
  }
  const Json::array_t& Array() const {
    if (!p->is_array()) Refuse(sPath, "not a JSON array");
    return p->get_ref<const Json::array_t&>();
  }
  Node Item(std::size_t nIndex) const { return {&Array()[nIndex], At(sPath, nIndex)}; }

  // An unsigned number up to qwMax; an enumerated field may be given as {"value": N, "name": ...}.
  std::uint64_t Number(std::uint64_t qwMax = kFileLimit) const {
    if (p->is_object() && p->contains("value")) return (*this)["value"].Number(qwMax);
    if (!p->is_number_unsigned()) {
      Refuse(sPath, "not an unsigned whole number");
    }
    const std::uint64_t qwValue = p->get<std::uint64_t>();
    if (qwValue > qwMax) Refuse(sPath, std::to_string(qwValue) + " is past " + std::to_string(qwMax));
    return qwValue;
  }
  std::uint64_t NumberOr(const char* pszKey, std::uint64_t qwDefault, std::uint64_t qwMax = kFileLimit) const {
    return Has(pszKey) ? (*this)[pszKey].Number(qwMax) : qwDefault;
  }
  const std::string& String() const {
    if (!p->is_string()) Refuse(sPath, "not a string");
    return p->get_ref<const std::string&>();
  }
  // Pairs of hexadecimal digits.
  std::vector<BYTE> Hex() const {
    const std::string& sText = String();
    if (sText.size() % 2 != 0) Refuse(sPath, "odd number of hex digits");
    std::vector<BYTE> vBytes(sText.size() / 2);
    for (std::size_t i = 0; i < sText.size(); ++i) {
      const char ch = sText[i];
      const int nDigit = ch >= '0' && ch <= '9' ? ch - '0' : (ch | 0x20) >= 'a' && (ch | 0x20) <= 'f' ? (ch | 0x20) - 'a' + 10 : -1;
      if (nDigit < 0) Refuse(sPath, "character " + std::to_string(i) + " is no hex digit");
      vBytes[i / 2] = static_cast<BYTE>(vBytes[i / 2] << 4 | nDigit);
    }
    return vBytes;
  }
};

// A name: "name", or its exact bytes from "name_hex" where the dump wrote that (bytes that are
// not UTF-8).
std::string NameOf(const Node& node) {
  if (node.Has("name_hex")) {
    const std::vector<BYTE> vBytes = node["name_hex"].Hex();
    return std::string(vBytes.begin(), vBytes.end());
  }
  return node["name"].String();
}

// The object value of the document, and the path it is named by.
Node ObjectOf(const Json& document) {
  if (!document.is_object()) Refuse("document", "not a JSON object");
  const Node root{&document, ""};
  if (root.Has("schema")) {
    const Node schema = root["schema"];
    if (!schema.p->is_string() || schema.String() != "kofd/1") {
      Refuse("schema", "\"" + (schema.p->is_string() ? schema.String() : schema.p->dump()) + "\" is not \"kofd/1\", the one schema build reads");
    }
    if (!root.Has("object")) {
      Refuse("object", "missing (a document of kind " + (root.Has("kind") ? root["kind"].p->dump() : std::string("none")) +
                           "; build makes one object)");
    }
  }
  if (root.Has("object")) {
    Node object = root["object"];
    if (!object.p->is_object()) Refuse("object", "not a JSON object");
    return object;
  }
  return Node{&document, ""};
}

// ---- Exact: the bytes where the document places them ----------------------------------------

struct Part {
  std::uint64_t qwFrom, qwTo;
  std::string sPath;
};

// A part of the file at its offset: refused past 4 GiB, kept for the checks that follow.
void AddPart(std::vector<Part>& parts, std::uint64_t qwFrom, std::uint64_t qwSize, const std::string& sPath) {
  if (qwFrom + qwSize > kFileLimit) {
    Refuse(sPath, "offset " + std::to_string(qwFrom) + " and " + std::to_string(qwSize) + " bytes end past 4 GiB");
  }
  if (qwSize != 0) parts.push_back({qwFrom, qwFrom + qwSize, sPath});
}

template <class Record>
void Put(std::vector<BYTE>& vFile, std::uint64_t qwAt, const Record& record) {
  memcpy(vFile.data() + qwAt, &record, sizeof record);
}

BuildResult BuildExact(const Node& object, C_ReplacingFile& output) {
  const Node head = object["header"];
  KEL_EHDR header{};
  const std::vector<BYTE> vIdent = head["ident"].Hex();
  if (vIdent.size() != sizeof header.e_ident) Refuse(head["ident"].sPath, "needs 16 bytes, not " + std::to_string(vIdent.size()));
  memcpy(header.e_ident, vIdent.data(), sizeof header.e_ident);
  header.e_type = static_cast<WORD>(head["type"].Number(0xFFFF));
  header.e_reserved = static_cast<WORD>(head.NumberOr("reserved", 0, 0xFFFF));
  header.e_chip = static_cast<DWORD>(head["chip"].Number());
  header.e_version = static_cast<DWORD>(head.NumberOr("version", 1));
  header.e_entry = static_cast<DWORD>(head.NumberOr("entry", 0));
  header.e_phoff = static_cast<DWORD>(head["phoff"].Number());
  header.e_shoff = static_cast<DWORD>(head["shoff"].Number());
  header.e_flags = static_cast<DWORD>(head.NumberOr("flags", 0));
  header.e_ehsize = static_cast<WORD>(head.NumberOr("ehsize", sizeof(KEL_EHDR), 0xFFFF));
  header.e_phentsize = static_cast<WORD>(head.NumberOr("phentsize", sizeof(KEL_PHDR), 0xFFFF));
  header.e_phnum = static_cast<WORD>(head["phnum"].Number(0xFFFF));
  header.e_shentsize = static_cast<WORD>(head.NumberOr("shentsize", sizeof(KEL_SHDR), 0xFFFF));
  header.e_shnum = static_cast<WORD>(head["shnum"].Number(0xFFFF));
  header.e_shstrndx = static_cast<WORD>(head.NumberOr("shstrndx", 0, 0xFFFF));

  const std::size_t nPrograms = object.Has("program_headers") ? object["program_headers"].Array().size() : 0;
  if (nPrograms != header.e_phnum) {
    Refuse(Field(object.sPath, "program_headers"), std::to_string(nPrograms) + " given, but header.phnum is " + std::to_string(header.e_phnum));
  }
  const Node sections = object["sections"];
  if (sections.Array().size() != header.e_shnum) {
    Refuse(sections.sPath, std::to_string(sections.Array().size()) + " given, but header.shnum is " + std::to_string(header.e_shnum));
  }
  const Node gaps = object["gaps"];

  // Every part is placed and bounded before a byte is allocated.
  std::vector<Part> parts;
  AddPart(parts, 0, sizeof(KEL_EHDR), head.sPath);
  AddPart(parts, header.e_phoff, std::uint64_t(header.e_phnum) * sizeof(KEL_PHDR), head["phoff"].sPath);
  AddPart(parts, header.e_shoff, std::uint64_t(header.e_shnum) * sizeof(KEL_SHDR), head["shoff"].sPath);
  std::vector<KEL_PHDR> vPrograms(nPrograms);
  for (std::size_t i = 0; i < nPrograms; ++i) {
    const Node program = object["program_headers"].Item(i);
    KEL_PHDR& record = vPrograms[i];
    record.p_type = static_cast<DWORD>(program["type"].Number());
    record.p_offset = static_cast<DWORD>(program["offset"].Number());
    record.p_vaddr = static_cast<DWORD>(program.NumberOr("vaddr", 0));
    record.p_paddr = static_cast<DWORD>(program.NumberOr("paddr", 0));
    record.p_filesz = static_cast<DWORD>(program.NumberOr("filesz", 0));
    record.p_memsz = static_cast<DWORD>(program.NumberOr("memsz", 0));
    record.p_flags = static_cast<DWORD>(program.NumberOr("flags", 0));
    record.p_align = static_cast<DWORD>(program.NumberOr("align", 0));
  }
  std::vector<KEL_SHDR> vHeaders(header.e_shnum);
  std::vector<std::vector<BYTE>> vContents(header.e_shnum);
  for (std::size_t i = 0; i < vHeaders.size(); ++i) {
    const Node section = sections.Item(i);
    if (section.Has("index") && section["index"].Number() != i) Refuse(section["index"].sPath, "not the section's place in the array");
    KEL_SHDR& record = vHeaders[i];
    record.sh_name = static_cast<DWORD>(section["name_offset"].Number());
    record.sh_type = static_cast<DWORD>(section["type"].Number());
    record.sh_flags = static_cast<DWORD>(section.NumberOr("flags", 0));
    record.sh_addr = static_cast<DWORD>(section.NumberOr("address", 0));
    record.sh_offset = static_cast<DWORD>(section["offset"].Number());
    record.sh_size = static_cast<DWORD>(section["size"].Number());
    record.sh_link = static_cast<DWORD>(section.NumberOr("link", 0));
    record.sh_info = static_cast<DWORD>(section.NumberOr("info", 0));
    record.sh_addralign = static_cast<DWORD>(section.NumberOr("align", 0));
    record.sh_entsize = static_cast<DWORD>(section.NumberOr("entsize", 0));
    if (record.sh_type == kNobitsType) continue;
    const Node contents = section["contents"];
    vContents[i] = contents.Hex();
    if (vContents[i].size() != record.sh_size) {
      Refuse(contents.sPath, std::to_string(vContents[i].size()) + " bytes, but size is " + std::to_string(record.sh_size));
    }
    AddPart(parts, record.sh_offset, record.sh_size, section["offset"].sPath);
  }
  std::vector<std::vector<BYTE>> vGaps(gaps.Array().size());
  std::vector<DWORD> vGapOffsets(vGaps.size());
  for (std::size_t i = 0; i < vGaps.size(); ++i) {
    const Node gap = gaps.Item(i);
    vGaps[i] = gap["bytes"].Hex();
    if (gap.Has("size") && gap["size"].Number() != vGaps[i].size()) {
      Refuse(gap["size"].sPath, "not the number of bytes given (" + std::to_string(vGaps[i].size()) + ")");
    }
    vGapOffsets[i] = static_cast<DWORD>(gap["offset"].Number());
    AddPart(parts, vGapOffsets[i], vGaps[i].size(), gap["offset"].sPath);
  }
  // Every byte of the file is given by some part, so the file is no larger than the document
  // says in bytes (the two header tables apart).
  std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.qwFrom < b.qwFrom; });
  std::uint64_t qwEnd = 0;
  for (const Part& part : parts) {
    if (part.qwFrom > qwEnd) {
      Refuse(part.sPath, "bytes " + std::to_string(qwEnd) + " to " + std::to_string(part.qwFrom) +
                             " of the file are given by nothing (a document with offsets gives every byte: a gap holds what no part does)");
    }
    qwEnd = std::max(qwEnd, part.qwTo);
  }

  std::vector<BYTE> vFile(static_cast<std::size_t>(qwEnd), 0);
  for (std::size_t i = 0; i < vGaps.size(); ++i) std::copy(vGaps[i].begin(), vGaps[i].end(), vFile.begin() + vGapOffsets[i]);
  for (std::size_t i = 0; i < vHeaders.size(); ++i) {
    std::copy(vContents[i].begin(), vContents[i].end(), vFile.begin() + vHeaders[i].sh_offset);
    Put(vFile, header.e_shoff + i * sizeof(KEL_SHDR), vHeaders[i]);
  }
  for (std::size_t i = 0; i < vPrograms.size(); ++i) Put(vFile, header.e_phoff + i * sizeof(KEL_PHDR), vPrograms[i]);
  if (header.e_ident[5] == kBigEndianData) SwapHeaderFields(header);
  Put(vFile, 0, header);

  // The bytes go through the image as an unedited object does: the kept layout writes them back
  // as they are, read back and checked.
  C_ObjectImage image(std::move(vFile));
  BuildResult result;
  result.bExact = true;
  result.dwSize = WriteObjectImage(image, output, false);
  result.dwSections = static_cast<DWORD>(image.Sections().size());
  return result;
}

// ---- Fresh: sections and symbols laid out compactly ------------------------------------------

// A binding or symbol type given by its word.
std::uint64_t SymbolField(const Node& node, std::initializer_list<const char*> words, std::uint64_t qwMax) {
  if (node.p->is_string()) {
    std::uint64_t qwValue = 0;
    for (const char* pszWord : words) {
      if (kofd_text::EqualIgnoringCase(node.String().c_str(), pszWord)) return qwValue;
      ++qwValue;
    }
    Refuse(node.sPath, "\"" + node.String() + "\" is none of the words known here");
  }
  return node.Number(qwMax);
}

// Runs an edit of the image; its refusal is named by the path of what asked for it.
template <class Edit>
auto Edited(const std::string& sPath, Edit edit) -> decltype(edit()) {
  try {
    return edit();
  } catch (const C_ImageFailure& failure) {
    Refuse(sPath, failure.Message());
  }
}

// The symbols, checked and resolved here (by hash, so that many symbols cost linear time), then
// added in one step by the editor.
void AddSymbols(const Node& symbols, C_ObjectImage& image, C_ImageEditor& editor, std::size_t nCount) {
  std::unordered_map<std::string, C_ImageSection*> byName;
  for (const auto& pSection : image.Sections()) {
    if (pSection->m_Name.m_bRaw) continue;
    std::string sKey = pSection->m_Name.m_sText;
    for (char& ch : sKey) ch = kofd_text::FoldAsciiCase(ch);
    byName.emplace(sKey, pSection.get());
  }
  std::unordered_map<std::string, std::size_t> names;
  std::vector<std::unique_ptr<C_ImageSymbol>> vSymbols;
  for (std::size_t i = 0; i < symbols.Array().size(); ++i) {
    const Node symbol = symbols.Item(i);
    const std::string sName = NameOf(symbol);
    // The empty symbol every table begins with is made with the table.
    if (i == 0 && sName.empty()) continue;
    if (sName.empty()) Refuse(Field(symbol.sPath, "name"), "empty");
    const auto taken = names.emplace(sName, i);
    if (!taken.second) Refuse(Field(symbol.sPath, "name"), sName + " is the name of symbols[" + std::to_string(taken.first->second) + "] already");
    auto pSymbol = std::make_unique<C_ImageSymbol>();
    pSymbol->m_Name.m_sText = sName;
    pSymbol->m_dwValue = static_cast<DWORD>(symbol.NumberOr("value", 0));
    pSymbol->m_dwSize = static_cast<DWORD>(symbol.NumberOr("size", 0));
    const std::uint64_t qwBind = symbol.Has("bind") ? SymbolField(symbol["bind"], {"local", "global", "weak"}, 15) : 1;
    const std::uint64_t qwType = symbol.Has("type") ? SymbolField(symbol["type"], {"notype", "object", "func", "section", "file"}, 15) : 0;
    pSymbol->m_byInfo = static_cast<BYTE>(qwBind << 4 | qwType);
    pSymbol->m_byOther = static_cast<BYTE>(symbol.NumberOr("other", 0, 0xFF));
    pSymbol->m_pSection = image.Sections().front().get();
    if (symbol.Has("section")) {
      const Node section = symbol["section"];
      std::uint64_t qwIndex = 0;
      if (section.p->is_string() && !kofd_text::SelectorIndex(section.String(), &qwIndex)) {
        std::string sKey = section.String();
        for (char& ch : sKey) ch = kofd_text::FoldAsciiCase(ch);
        const auto found = byName.find(sKey);
        if (found == byName.end()) Refuse(section.sPath, "no section named " + section.String());
        pSymbol->m_pSection = found->second;
      } else {
        if (!section.p->is_string()) qwIndex = section.Number(0xFFFF);
        if (qwIndex >= kFirstReservedIndex && qwIndex <= 0xFFFF) {
          pSymbol->m_pSection = nullptr;
          pSymbol->m_wIndex = static_cast<WORD>(qwIndex);
        } else if (qwIndex >= nCount) {
          Refuse(section.sPath, "no section " + std::to_string(qwIndex) + ", the document gives " + std::to_string(nCount));
        } else {
          pSymbol->m_pSection = image.Sections()[qwIndex].get();
        }
      }
    }
    vSymbols.push_back(std::move(pSymbol));
  }
  Edited(symbols.sPath, [&] { editor.AddSymbols(std::move(vSymbols)); });
}

BuildResult BuildFresh(const Node& object, C_ReplacingFile& output) {
  const Node head = object["header"];
  const DWORD dwChip = static_cast<DWORD>(head["chip"].Number());
  const WORD wType = static_cast<WORD>(head["type"].Number(0xFFFF));
  C_ObjectImage image(dwChip, wType);
  KEL_EHDR& header = image.Header();
  header.e_version = static_cast<DWORD>(head.NumberOr("version", header.e_version));
  header.e_entry = static_cast<DWORD>(head.NumberOr("entry", 0));
  header.e_flags = static_cast<DWORD>(head.NumberOr("flags", 0));
  header.e_ident[5] = static_cast<BYTE>(head.NumberOr("data", header.e_ident[5], 0xFF));
  if (object.Has("program_headers") && !object["program_headers"].Array().empty()) {
    Refuse(Field(object.sPath, "program_headers"), "program headers are built only from a document with offsets");
  }

  // The image's own name table waits aside, so that the given sections keep their indexes.
  auto& all = image.Sections();
  std::unique_ptr<C_ImageSection> pNames = std::move(all[1]);
  all.erase(all.begin() + 1);
  C_ImageEditor editor(image);

  const Node sections = object.Has("sections") ? object["sections"] : Node{nullptr, ""};
  const std::size_t nGiven = sections.p ? sections.Array().size() : 0;
  const bool bNullGiven = nGiven != 0 && sections.Item(0)["type"].Number() == kNullType;
  const std::size_t nCount = nGiven + (bNullGiven ? 0 : 1);
  if (nCount > 0xFF00) Refuse(sections.sPath, std::to_string(nCount) + " sections, past the 65,280 an object can number");
  std::vector<C_NewSection> vNew;
  for (std::size_t i = bNullGiven ? 1 : 0; i < nGiven; ++i) {
    const Node section = sections.Item(i);
    C_NewSection added;
    added.m_sName = NameOf(section);
    added.m_dwType = static_cast<DWORD>(section["type"].Number());
    if (added.m_dwType == kNobitsType) {
      if (section.Has("contents")) Refuse(Field(section.sPath, "contents"), "a section of type 8 holds no bytes in the file");
      added.m_dwNobitsSize = static_cast<DWORD>(section.NumberOr("size", 0));
    } else {
      if (section.Has("contents")) added.m_vData = section["contents"].Hex();
      if (section.Has("size") && section["size"].Number() != added.m_vData.size()) {
        Refuse(Field(section.sPath, "size"), "not the number of bytes of contents (" + std::to_string(added.m_vData.size()) + ")");
      }
    }
    vNew.push_back(std::move(added));
  }
  std::size_t nRefused = 0;
  std::vector<C_ImageSection*> vSections{all[0].get()};
  try {
    const std::vector<C_ImageSection*> vAdded = editor.AddSections(std::move(vNew), &nRefused);
    vSections.insert(vSections.end(), vAdded.begin(), vAdded.end());
  } catch (const C_ImageFailure& failure) {
    Refuse(sections.Item(nRefused + (bNullGiven ? 1 : 0)).sPath, failure.Message());
  }
  // Header fields, and the links once every section is there to be named.
  for (std::size_t i = 0; i < nGiven; ++i) {
    const Node section = sections.Item(i);
    C_ImageSection& target = *vSections[bNullGiven ? i : i + 1];
    KEL_SHDR& record = target.m_Header;
    record.sh_flags = static_cast<DWORD>(section.NumberOr("flags", record.sh_flags));
    record.sh_addr = static_cast<DWORD>(section.NumberOr("address", record.sh_addr));
    record.sh_addralign = static_cast<DWORD>(section.NumberOr("align", record.sh_addralign));
    record.sh_entsize = static_cast<DWORD>(section.NumberOr("entsize", record.sh_entsize));
    const auto named = [&](const char* pszKey) -> C_ImageSection* {
      const std::uint64_t qwIndex = section.NumberOr(pszKey, 0);
      if (qwIndex >= nCount) {
        Refuse(Field(section.sPath, pszKey), "no section " + std::to_string(qwIndex) + ", the document gives " + std::to_string(nCount));
      }
      return qwIndex == 0 ? nullptr : vSections[qwIndex];
    };
    target.m_pLink = named("link");
    const DWORD dwType = record.sh_type;
    if (dwType == SHT_KEL_RELX || dwType == SHT_KEL_RELXE || dwType == SHT_KEL_RELXEB || (record.sh_flags & kInfoLinkFlag) != 0) {
      target.m_pInfo = named("info");
    } else {
      record.sh_info = static_cast<DWORD>(section.NumberOr("info", 0));
    }
  }
  // A given string table named ".shstrtab" holds the section names; else the image's own goes last.
  C_ImageSection* pGivenNames = nullptr;
  for (std::size_t i = 1; i < vSections.size() && !pGivenNames; ++i) {
    if (vSections[i]->m_Header.sh_type == SHT_KEL_STRTAB && kofd_text::EqualIgnoringCase(vSections[i]->m_Name.m_sText.c_str(), ".shstrtab")) {
      pGivenNames = vSections[i];
    }
  }
  if (pGivenNames) {
    image.SetNameTable(pGivenNames);
  } else {
    pNames->m_Name.m_sText = image.FreeSectionName(".shstrtab");
    all.push_back(std::move(pNames));
  }

  if (object.Has("symbols")) AddSymbols(object["symbols"], image, editor, nCount);
  BuildResult result;
  result.dwSize = WriteObjectImage(image, output, true);
  result.dwSections = static_cast<DWORD>(image.Sections().size());
  return result;
}

// A document gives offsets when its header or any section places something, or it has gaps.
bool GivesOffsets(const Node& object) {
  if (object.Has("gaps")) return true;
  if (object.Has("header") && (object["header"].Has("shoff") || object["header"].Has("phoff"))) return true;
  if (!object.Has("sections") || !object["sections"].p->is_array()) return false;
  for (const Json& section : object["sections"].Array()) {
    if (section.is_object() && section.contains("offset")) return true;
  }
  return false;
}

}  // namespace

BuildResult BuildObjectFromJson(const std::string& sText, C_ReplacingFile& output) {
  Json document;
  try {
    document = Json::parse(sText);
  } catch (const Json::exception& error) {
    ThrowImageFailure(std::string("not a JSON document: ") + error.what());
  }
  try {
    const Node object = ObjectOf(document);
    return GivesOffsets(object) ? BuildExact(object, output) : BuildFresh(object, output);
  } catch (const Json::exception& error) {
    // The reads above check each value's kind first; this is what a check missed.
    ThrowImageFailure(std::string("the document could not be read: ") + error.what());
  }
}

}  // namespace cli
