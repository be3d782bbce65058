// kofd dump FILE [SELECTOR...]: the text dumps of a file on standard output, in the order they
// are made, whichever destination each dump writes to.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "escape.h"
#include "frame/error.h"
#include "archive/archive.h"
#include "archive/object_member.h"
#include "archive/unknown_object.h"
#include "object/kofd_elf.h"
#include "object_file.h"
#include "present/object_dumps.h"
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

void DumpSelection(I_KOfdELF& document, const Selection& selection) {
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
  I_KOfdELF* pElf = nullptr;
  const HRESULT hr = member.GetDocument(&pElf);
  if (hr != S_OK || !pElf) ThrowLibraryError(false, hr != S_OK ? hr : E_POINTER, member.GetName());
  DumpWholeObject(*pElf);
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

int RunDump(const std::string& sPath, const std::vector<Selection>& selections) {
  return RunReporting(sPath, [&] {
    // Reports go to standard error only after the output made before them.
    C_ToolOutput output;
    // An unreadable file is reported as such, not as a file of no known kind.
    C_File probe;
    probe.AttachPath(sPath.c_str(), 0);
    const FileKind kind = KindOfFile(sPath);
    std::unique_ptr<C_KOfdELF4> object;
    std::unique_ptr<C_KOfdArchive> archive;
    if (kind == FileKind::kObject) {
      object = OpenObject(sPath);
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
    for (const Selection& selection : selections) {
      if (selection.selector == Selector::kRaw) {
        DumpRaw(sPath);
      } else if (IsArchiveSelector(selection.selector)) {
        if (!archive) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, sPath.c_str());
        DumpArchiveSelection(*archive, selection);
      } else {
        if (!object) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, sPath.c_str());
        DumpSelection(*object, selection);
      }
    }
    return 0;
  });
}

}  // namespace

void RegisterDump(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("dump", "Write the text dumps of FILE: without a selector its header listings and every section, else what the selectors name, in their order");
  auto path = std::make_shared<std::string>();
  auto sections = std::make_shared<std::vector<std::string>>();
  command->add_option("FILE", *path, "The object, archive or other file to dump")->required();
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
  CLI::Option* member = command->add_option("--member", *members, "An archive member's header and object, by name; repeatable")
                            ->type_name("NAME")
                            ->expected(1)
                            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  CLI::Option* raw = command->add_flag("--raw", "The raw bytes of the file, sixteen a row, whatever its kind");
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
    result.status = RunDump(*path, selections);
  });
}

}  // namespace cli
