// kofd export-elf IN -o OUT: a KELF object as a standard ELF32 object, or a KELF archive as a
// standard archive of them, for GNU readelf, objdump and nm.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "edit/object_image.h"
#include "export/elf_export.h"
#include "frame/replacing_file.h"
#include "json_result.h"
#include "object_file.h"
#include "report.h"

namespace cli {
namespace {

struct ExportOptions {
  std::string sPath, sOutput;
  bool bJson = false;
};

// A member's name in a standard archive: the last part of a path, as ar stores names.
std::string BaseName(const std::string& sName) {
  const std::size_t nSlash = sName.find_last_of("/\\");
  return nSlash == std::string::npos ? sName : sName.substr(nSlash + 1);
}

// The member's ELF object; its bytes are the member's data in the archive.
C_ElfExport ExportMember(C_KArcObjectMember& member) {
  const BYTE* pData = nullptr;
  DWORD dwSize = 0;
  const HRESULT hr = member.GetData(&pData, &dwSize);
  if (hr != S_OK || (!pData && dwSize != 0)) Fail("member " + std::string(member.GetName()) + " cannot be read", hr != S_OK ? hr : E_POINTER);
  C_ObjectImage image(std::vector<BYTE>(pData, pData + dwSize));
  return ExportElfObject(image);
}

int RunExport(const ExportOptions& options) {
  return RunFinding(options.sPath, [&] {
    const FileKind kind = KindOfFile(options.sPath);
    std::vector<C_ElfMember> vMembers;
    std::vector<BYTE> vOut;
    if (kind == FileKind::kObject) {
      std::unique_ptr<C_KOfdELF4> document = OpenObject(options.sPath);
      C_ObjectImage image(*document, options.sPath.c_str());
      document.reset();
      vMembers.push_back({options.sPath, ExportElfObject(image)});
      vOut = std::move(vMembers.back().object.m_vBytes);
    } else if (kind == FileKind::kArchive) {
      C_KOfdArchive archive;
      OpenArchive(archive, options.sPath);
      for (DWORD i = 0; i < archive.MemberCount(); ++i) {
        C_KArcObjectMember& member = archive.MemberAt(i);
        try {
          vMembers.push_back({BaseName(member.GetName()), ExportMember(member)});
        } catch (const C_Exception& error) {
          Fail("member " + std::string(member.GetName()) + ": " + error.Message());
        }
      }
      vOut = WriteElfArchive(vMembers);
    } else {
      Fail("neither a KELF object nor a KELF archive");
    }
    DWORD dwSections = 0, dwSymbols = 0, dwRelocations = 0, dwKept = 0;
    for (const C_ElfMember& member : vMembers) {
      dwSections += member.object.m_dwSections;
      dwSymbols += member.object.m_dwSymbols;
      dwRelocations += member.object.m_dwRelocations;
      dwKept += member.object.m_dwKeptRelocations;
    }
    {
      C_ReplacingFile output(options.sOutput.c_str());
      output.Write(vOut.data(), static_cast<DWORD>(vOut.size()));
      output.Commit();
    }
    // Relocations without a standard form are what the export found: written, but as text.
    const int status = dwKept != 0 ? kExitFound : 0;
    if (!options.bJson) {
      printf("%s: %s, %u object%s, %u sections, %u symbols, %u relocations", options.sOutput.c_str(),
             kind == FileKind::kArchive ? "ELF32 archive" : "ELF32 object", static_cast<unsigned>(vMembers.size()),
             vMembers.size() == 1 ? "" : "s", static_cast<unsigned>(dwSections), static_cast<unsigned>(dwSymbols),
             static_cast<unsigned>(dwRelocations));
      if (dwKept != 0) printf(", %u kept as text in .note.kofd (no standard form)", static_cast<unsigned>(dwKept));
      printf("\n");
      return status;
    }
    C_JsonWriter json(stdout);
    json.BeginDocument("export-elf");
    json.Name("file", options.sPath);
    json.Name("output", options.sOutput);
    json.Key("kind").String(kind == FileKind::kArchive ? "archive" : "object");
    json.Key("objects").Number(vMembers.size());
    json.Key("sections").Number(dwSections);
    json.Key("symbols").Number(dwSymbols);
    json.Key("relocations").Number(dwRelocations);
    json.Key("kept_relocations").Number(dwKept);
    json.EndObject();
    if (!json.Finish()) Fail("standard output cannot be written");
    return status;
  });
}

}  // namespace

void RegisterExport(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "export-elf",
      "Write IN as a standard ELF32 object (a KELF archive as a standard archive of them) that GNU readelf, objdump and nm read; "
      "exit 1 when some relocations have no standard form and are kept as text in .note.kofd");
  auto options = std::make_shared<ExportOptions>();
  command->add_option("IN", options->sPath, "The KELF object or archive")->required();
  command->add_option("-o", options->sOutput, "The ELF32 object or archive to write (replaced whole)")->required();
  command->add_flag("--json", options->bJson, JsonHelp("export-elf"));
  command->callback([options, &result] { result.status = RunExport(*options); });
}

}  // namespace cli
