// kofd dump FILE [SELECTOR...]: the text dumps of a file on standard output, in the order they
// are made, whichever destination each dump writes to.
#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "edit/object_image.h"
#include "escape.h"
#include "frame/error.h"
#include "input_file.h"
#include "archive/archive.h"
#include "archive/object_member.h"
#include "archive/unknown_object.h"
#include "object/kofd_elf.h"
#include "object_file.h"
#include "present/object_dumps.h"
#include "json_object.h"
#include "report.h"
#include "tool_output.h"

namespace cli {
namespace {

enum class Selector {
  // Of an object.
  kFileHeader,
  kProgramHeaders,
  kSectionHeaders,
  kSection,
  // Of an archive.
  kLinkerMember,
  kNameMember,
  kMember,
  // Of any file.
  kRaw,
};

struct Selection {
  Selector selector;
  std::string sName;  // kSection: an index or a name; kMember: a member name
};

bool IsArchiveSelector(Selector selector) {
  return selector == Selector::kLinkerMember || selector == Selector::kNameMember || selector == Selector::kMember;
}

bool IsObjectSelector(Selector selector) { return !IsArchiveSelector(selector) && selector != Selector::kRaw; }

template <class Test>
bool AnySelection(const std::vector<Selection>& selections, Test test) {
  return std::any_of(selections.begin(), selections.end(), [&](const Selection& selection) { return test(selection.selector); });
}

// DumpAll of an object, writing to standard output whichever stream it uses.
HRESULT DumpAllOf(I_Unknown* pObject) {
  I_KOfdDump* pDump = dynamic_cast<I_KOfdDump*>(pObject);
  if (!pDump) return E_POINTER;
  pDump->SetStream(std::cout);
  const HRESULT hr = pDump->DumpAll();
  std::cout.flush();
  return hr;
}

// DumpHead, then DumpAll, of a member whose listing has a heading of its own.
HRESULT DumpHeadAndAll(C_KOfdDump& dump) {
  dump.SetStream(std::cout);
  dump.DumpHead();
  return DumpAllOf(&dump);
}

// A part of a whole dump: one that has nothing to show (no record, no table, nothing loaded)
// is passed over; any other failure, running out of memory above all, ends the dump.
void CheckPart(HRESULT hr, I_Unknown* pPart) {
  if (hr != E_POINTER && hr != E_FAIL) ThrowIfFailed(hr, pPart);
}

void DumpPart(I_Unknown* pPart) { CheckPart(DumpAllOf(pPart), pPart); }

// Headers, then every section that has a section object, in index order.
void DumpWholeObject(I_KOfdELF& document) {
  for (I_KOfdDump* pDump : GetDumpParts(document)) DumpPart(pDump);
}

// A selector's failed dump: out of memory as the part recorded it, else what it could not show.
void CheckSelected(HRESULT hr, I_Unknown* pPart, const std::string& sWhat) {
  if (hr == E_OUTOFMEMORY) ThrowIfFailed(hr, pPart);
  if (hr < 0) Fail(sWhat, hr);
}

void DumpSelection(C_KOfdELF& document, const Selection& selection) {
  I_KElfHeader* pHeader = nullptr;
  I_KElfProgramHeader* pPrograms = nullptr;
  I_KElfSectionHeader* pSections = nullptr;
  switch (selection.selector) {
    case Selector::kFileHeader:
      document.GetFileHeader(&pHeader);
      return CheckSelected(DumpAllOf(pHeader), pHeader, "the object has no file header to show");
    case Selector::kProgramHeaders:
      document.GetProgramHeader(&pPrograms);
      return CheckSelected(DumpAllOf(pPrograms), pPrograms, "the object has no program headers");
    case Selector::kSectionHeaders:
      document.GetSectionHeader(&pSections);
      return CheckSelected(DumpAllOf(pSections), pSections, "the object has no section headers");
    default: {
      I_KOfdSection* pSection = SelectSection(document, selection.sName);
      return CheckSelected(DumpAllOf(pSection), pSection, "section " + EscapeText(selection.sName) + " has nothing to dump");
    }
  }
}

// The unknown-object dump of the whole file: its heading, then its rows.
void DumpRaw(const std::string& sPath) {
  C_UnknownObject raw;
  raw.AttachPath(sPath.c_str(), 0);
  ThrowIfFailed(raw.Load(), &raw);
  raw.DumpHead();
  ThrowIfFailed(raw.DumpAll(), &raw);
}

// A member's header, then its object's whole dump.
void DumpMember(C_KArcObjectMember& member) {
  DumpPart(&member.GetHeader());
  DumpWholeObject(MemberDocument(member));
}


// With --member, an archive's object selectors show the member's object: each one, in order,
// exactly as it shows the member extracted as a file.
bool SelectsInMembers(FileKind kind, const std::vector<Selection>& selections) {
  return kind == FileKind::kArchive && AnySelection(selections, IsObjectSelector) &&
         AnySelection(selections, [](Selector s) { return s == Selector::kMember; });
}

// One selector's dump of an archive; a failure says what the selector could not show.
void DumpArchiveSelection(C_KOfdArchive& archive, const Selection& selection) {
  switch (selection.selector) {
    case Selector::kLinkerMember:
      return CheckSelected(DumpHeadAndAll(archive.LinkMember()), &archive.LinkMember(), "the archive has no linker member to show");
    case Selector::kNameMember:
      return CheckSelected(DumpHeadAndAll(archive.NameMember()), &archive.NameMember(), "the archive has no name member to show");
    default: {
      DWORD dwIndex = 0;
      const HRESULT hr = archive.FindMember(selection.sName.c_str(), &dwIndex);
      if (hr != S_OK) Fail("no member named " + EscapeText(selection.sName), hr);
      DumpMember(archive.MemberAt(dwIndex));
      return;
    }
  }
}

void DumpWholeArchive(C_KOfdArchive& archive) {
  CheckPart(DumpHeadAndAll(archive.LinkMember()), &archive.LinkMember());
  CheckPart(DumpHeadAndAll(archive.NameMember()), &archive.NameMember());
  DWORD dwCount = 0;
  archive.GetMemberCount(&dwCount);
  for (DWORD i = 0; i < dwCount; ++i) DumpMember(archive.MemberAt(i));
}

int RunDump(const std::string& sGiven, const std::vector<Selection>& selections) {
  return RunReporting(ShownName(sGiven), [&] {
    const std::string sPath = OpenedPath(sGiven);
    // Reports go to standard error only after the output made before them.
    C_ToolOutput output;
    // An unreadable file is reported as such, not as a file of no known kind.
    C_File probe;
    probe.AttachPath(sPath.c_str(), 0);
    const FileKind kind = KindOfFile(sPath);
    std::unique_ptr<C_KOfdELF4> object;
    std::unique_ptr<C_KOfdArchive> archive;
    if (kind == FileKind::kObject) {
      // Selectors read only what they show.
      object = selections.empty() ? OpenObject(sPath) : OpenObjectHeaders(sPath);
    } else if (kind == FileKind::kArchive) {
      archive = std::make_unique<C_KOfdArchive>();
      OpenArchive(*archive, sPath);
    }
    if (selections.empty()) {
      if (object) DumpWholeObject(*object);
      else if (archive) DumpWholeArchive(*archive);
      else DumpRaw(sPath);
      return 0;
    }
    const bool bInMembers = SelectsInMembers(kind, selections);
    for (const Selection& selection : selections) {
      if (selection.selector == Selector::kRaw) {
        DumpRaw(sPath);
      } else if (IsArchiveSelector(selection.selector)) {
        if (!archive) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, sPath.c_str());
        if (selection.selector != Selector::kMember || !bInMembers) {
          DumpArchiveSelection(*archive, selection);
          continue;
        }
        C_KOfdELF4& member = MemberObject(*archive, selection.sName);
        for (const Selection& part : selections) {
          if (IsObjectSelector(part.selector)) DumpSelection(member, part);
        }
      } else if (!bInMembers) {
        if (!object) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, sPath.c_str());
        DumpSelection(*object, selection);
      }
    }
    return 0;
  });
}


// ---- JSON ----------------------------------------------------------------------------------

// What a JSON dump shows of an object: its selectors, or everything.
ObjectJsonParts ObjectParts(C_KOfdELF& document, const std::vector<Selection>& selections, bool bContents) {
  ObjectJsonParts parts;
  parts.bContents = bContents;
  if (!AnySelection(selections, IsObjectSelector)) return parts;
  parts.bAll = parts.bHeader = parts.bProgramHeaders = parts.bSectionHeaders = false;
  for (const Selection& selection : selections) {
    switch (selection.selector) {
      case Selector::kFileHeader: parts.bHeader = true; break;
      case Selector::kProgramHeaders: {
        I_KElfProgramHeader* pPrograms = nullptr;
        DWORD dwCount = 0;
        document.GetProgramHeaderCount(&dwCount);
        document.GetProgramHeader(&pPrograms);
        if (dwCount == 0) Fail("the object has no program headers", E_POINTER);
        parts.bProgramHeaders = true;
        break;
      }
      case Selector::kSectionHeaders: parts.bSectionHeaders = true; break;
      case Selector::kSection: {
        I_KOfdSection* pSection = SelectSection(document, selection.sName);
        if (!pSection) Fail("section " + EscapeText(selection.sName) + " has nothing to dump", E_POINTER);
        parts.vSections.push_back(pSection->GetKeyIndex());
        break;
      }
      default: break;
    }
  }
  return parts;
}

struct JsonMember {
  C_KArcObjectMember* pMember;
  I_KOfdELF* pDocument;
  ObjectJsonParts parts;  // the whole object, or what the object selectors name
};

void WriteArchiveJson(C_JsonWriter& json, C_KOfdArchive& archive, const std::vector<Selection>& selections,
                      const std::vector<JsonMember>& members) {
  const auto selected = [&](Selector wanted) {
    return selections.empty() || AnySelection(selections, [&](Selector selector) { return selector == wanted; });
  };
  json.BeginObject();
  if (selected(Selector::kLinkerMember)) {
    C_KArcLinkMember& link = archive.LinkMember();
    json.Key("linker_member").BeginObject();
    json.Key("version").Number(link.GetVersion());
    json.Key("symbols").BeginArray();
    for (DWORD i = 0; i < link.GetNameCount(); ++i) {
      json.BeginObject();
      json.Name("name", link.GetSymbolName(i));
      DWORD dwMember = 0;
      if (link.GetSymbolMember(i, &dwMember) && dwMember < archive.MemberCount()) json.Key("member").Number(dwMember);
      else json.Key("member").Null();
      json.EndObject();
    }
    json.EndArray();
    json.EndObject();
  }
  if (selected(Selector::kNameMember)) {
    C_KArcNameMember& names = archive.NameMember();
    json.Key("name_member").BeginObject();
    WriteStringsJson(json, "names", C_ByteView(reinterpret_cast<const BYTE*>(names.GetData()), names.GetLength()));
    json.EndObject();
  }
  if (!selected(Selector::kMember)) return json.EndObject();
  json.Key("members").BeginArray();
  for (const JsonMember& entry : members) {
    C_KArcObjectMember& member = *entry.pMember;
    json.BeginObject();
    DWORD dwIndex = 0;
    archive.FindMember(member.GetName(), &dwIndex);
    json.Key("index").Number(dwIndex);
    json.Name("name", member.GetName());
    json.Key("offset").Number(member.GetOffset());
    json.Key("size").Number(member.GetSize());
    json.Key("date").Number(member.GetHeader().GetDate());
    json.Key("object");
    WriteObjectJson(json, *entry.pDocument, C_ByteView(), entry.parts);
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
}

// The whole document is read before its first byte is written: a failure writes nothing.
int RunDumpJson(const std::string& sGiven, const std::vector<Selection>& selections, bool bContents, bool bLines,
                C_JsonWriter* pShared) {
  return RunReporting(ShownName(sGiven), [&] {
    const std::string sPath = OpenedPath(sGiven);
    C_File probe;
    probe.AttachPath(sPath.c_str(), 0);
    const FileKind kind = KindOfFile(sPath);
    std::unique_ptr<C_KOfdELF4> object;
    std::unique_ptr<C_KOfdArchive> archive;
    std::vector<BYTE> vBytes;
    const bool bWhole = selections.empty();
    const bool bRaw = (bWhole && kind == FileKind::kOther) || AnySelection(selections, [](Selector s) { return s == Selector::kRaw; });
    const bool bInMembers = SelectsInMembers(kind, selections);
    const bool bObject = (bWhole && kind == FileKind::kObject) || (AnySelection(selections, IsObjectSelector) && !bInMembers);
    const bool bArchive = (bWhole && kind == FileKind::kArchive) || AnySelection(selections, IsArchiveSelector);
    if (bContents && kind != FileKind::kObject) Fail("--contents shows the bytes of an object; this is no object", E_INVALIDARG);
    if (bLines && (kind != FileKind::kObject || bRaw || bArchive)) Fail("--json-lines lists the items of an object; this is no object (use --json)", E_INVALIDARG);
    if (bObject) {
      if (kind != FileKind::kObject) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, sPath.c_str());
      object = bWhole ? OpenObject(sPath) : OpenObjectHeaders(sPath);
    }
    if (bArchive) {
      if (kind != FileKind::kArchive) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, sPath.c_str());
      archive = std::make_unique<C_KOfdArchive>();
      OpenArchive(*archive, sPath);
    }
    if (bRaw || bContents) vBytes = ReadFileBytes(sPath.c_str());
    ObjectJsonParts parts;
    if (object) parts = ObjectParts(*object, selections, bContents);
    // Every member shown is opened before anything is written.
    std::vector<JsonMember> members;
    if (archive) {
      std::vector<DWORD> vIndexes;
      for (const Selection& selection : selections) {
        if (selection.selector != Selector::kMember) continue;
        DWORD dwIndex = 0;
        const HRESULT hr = archive->FindMember(selection.sName.c_str(), &dwIndex);
        if (hr != S_OK) Fail("no member named " + EscapeText(selection.sName), hr);
        vIndexes.push_back(dwIndex);
      }
      if (selections.empty()) {
        for (DWORD i = 0; i < archive->MemberCount(); ++i) vIndexes.push_back(i);
      }
      for (DWORD i : vIndexes) {
        C_KArcObjectMember& member = archive->MemberAt(i);
        C_KOfdELF4& document = MemberDocument(member);
        members.push_back({&member, &document, bInMembers ? ObjectParts(document, selections, false) : ObjectJsonParts()});
      }
    }
    std::optional<C_JsonWriter> own;
    if (!pShared) own.emplace(stdout, bLines);
    C_JsonWriter& json = pShared ? *pShared : *own;
    json.BeginDocument("dump");
    json.Name("file", sGiven);
    json.Key("kind").String(kind == FileKind::kObject ? "object" : kind == FileKind::kArchive ? "archive" : "unknown");
    if (bLines) {
      // The document's opening is the first line; the object's items follow, one a line.
      json.EndObject();
      WriteObjectJson(json, *object, C_ByteView(vBytes.data(), static_cast<DWORD>(vBytes.size())), parts);
      if (!json.Finish()) Fail("standard output could not be written", E_FAIL);
      return 0;
    }
    if (object) {
      json.Key("object");
      WriteObjectJson(json, *object, C_ByteView(vBytes.data(), static_cast<DWORD>(vBytes.size())), parts);
    }
    if (archive) {
      json.Key("archive");
      WriteArchiveJson(json, *archive, selections, members);
    }
    if (bRaw) {
      json.Key("raw").BeginObject();
      json.Key("size").Number(vBytes.size());
      json.Key("bytes").Hex(vBytes.data(), vBytes.size());
      json.EndObject();
    }
    json.EndObject();
    if (!json.Finish()) Fail("standard output could not be written", E_FAIL);
    return 0;
  });
}

}  // namespace

void RegisterDump(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("dump", "Write the text dumps of FILE: without a selector its header listings and every section, else what the selectors name, in their order");
  auto paths = std::make_shared<std::vector<std::string>>();
  auto sections = std::make_shared<std::vector<std::string>>();
  command->add_option("FILE", *paths, "The object, archive or other file to dump (- for standard input); several are each headed by their name")->required();
  CLI::Option* fileHeader = command->add_flag("--file-header", "The ELF header listing");
  CLI::Option* programHeaders =
      command->add_flag("--program-headers", "The program header listing (a failure when there is none)");
  CLI::Option* sectionHeaders = command->add_flag("--section-headers", "The section header listing");
  CLI::Option* section =
      command->add_option("--section", *sections, "One section's dump, by index or by name (ignoring case); repeatable")
          ->type_name("SEL")
          ->expected(1)
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  CLI::Option* linkerMember = command->add_flag("--linker-member", "An archive's linker member");
  CLI::Option* nameMember = command->add_flag("--name-member", "An archive's name member");
  auto members = std::make_shared<std::vector<std::string>>();
  CLI::Option* member = command->add_option("--member", *members, "An archive member's header and object, by name; repeatable. With --file-header, --program-headers, --section-headers or --section: those of the member's object, as of the member extracted")
                            ->type_name("NAME")
                            ->expected(1)
                            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  CLI::Option* raw = command->add_flag("--raw", "The raw bytes of the file, sixteen a row, whatever its kind");
  auto json = std::make_shared<bool>(false);
  auto contents = std::make_shared<bool>(false);
  auto lines = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "One JSON document (schema kofd/1, docs/schema/kofd-dump.schema.json) instead of the text dumps");
  command->add_flag("--json-lines", *lines, "JSON Lines: the document's opening, then each item of the object (header, program header, section, symbol, relocation, gap) on a line of its own");
  command->add_flag("--contents", *contents, "With --json: every section's bytes and every gap's, in hexadecimal (objects only)");
  command->callback([=, &result] {
    // Selectors are dumped in the order they were given.
    std::vector<Selection> selections;
    std::size_t nSection = 0, nMember = 0;
    for (const CLI::Option* pOption : command->parse_order()) {
      if (pOption == fileHeader) selections.push_back({Selector::kFileHeader, {}});
      if (pOption == programHeaders) selections.push_back({Selector::kProgramHeaders, {}});
      if (pOption == sectionHeaders) selections.push_back({Selector::kSectionHeaders, {}});
      if (pOption == section && nSection < sections->size()) selections.push_back({Selector::kSection, (*sections)[nSection++]});
      if (pOption == linkerMember) selections.push_back({Selector::kLinkerMember, {}});
      if (pOption == nameMember) selections.push_back({Selector::kNameMember, {}});
      if (pOption == member && nMember < members->size()) selections.push_back({Selector::kMember, (*members)[nMember++]});
      if (pOption == raw) selections.push_back({Selector::kRaw, {}});
    }
    if (*contents && !*json && !*lines) {
      result.status = UsageFailure("dump", "--contents needs --json or --json-lines");
      return;
    }
    if (*lines && paths->size() > 1) {
      result.status = UsageFailure("dump", "--json-lines shows one object; give one FILE");
      return;
    }
    const bool bJson = *json || *lines;
    result.status = RunEachFile(*paths, "dump", bJson, [&](const std::string& sGiven, C_JsonWriter* pJson) {
      return bJson ? RunDumpJson(sGiven, selections, *contents, *lines, pJson) : RunDump(sGiven, selections);
    });
  });
}

}  // namespace cli
