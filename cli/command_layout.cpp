// kofd layout FILE: who owns every byte of a KELF object or archive, as ranges that cover the
// file in order, with overlaps and parts that pass the end of the file flagged.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "analyze/layout.h"
#include "commands.h"
#include "escape.h"
#include "input_file.h"
#include "json_result.h"
#include "report.h"

namespace cli {
namespace {

using kofd_analyze::FileLayout;
using kofd_analyze::LayoutPart;
using kofd_analyze::LayoutRange;
using kofd_analyze::PartKind;

struct LayoutOptions {
  std::string sPath;
  bool bJson = false;
};

std::string Hex8(std::uint64_t qwValue) {
  char szText[24];
  snprintf(szText, sizeof szText, "%08llx", static_cast<unsigned long long>(qwValue));
  return szText;
}

// "section 3 .text", "member header 2 a.o", "file header"...
std::string Describe(const LayoutPart& part) {
  std::string sText;
  switch (part.kind) {
    case PartKind::kFileHeader: return "file header";
    case PartKind::kProgramHeaders: return "program header table";
    case PartKind::kSectionHeaders: return "section header table";
    case PartKind::kMagic: return "archive magic";
    case PartKind::kSection: sText = "section " + std::to_string(part.llIndex); break;
    case PartKind::kMemberHeader: sText = "member header " + std::to_string(part.llIndex); break;
    case PartKind::kLinkerMember: return "linker member data";
    case PartKind::kNameMember: return "name member data";
    case PartKind::kObjectMember: sText = "object member " + std::to_string(part.llIndex); break;
  }
  if (part.kind == PartKind::kMemberHeader && part.llIndex == 0) return "linker member header";
  if (part.kind == PartKind::kMemberHeader && part.llIndex == 1) return "name member header";
  if (!part.sName.empty()) sText += " " + EscapeText(part.sName);
  return sText;
}

const char* RangeKind(const FileLayout& layout, const LayoutRange& range) {
  if (range.nOwners == 0) return range.bPadding ? "padding" : "gap";
  if (range.nOwners > 1) return "overlap";
  return kofd_analyze::PartKindName(layout.vParts[range.vOwners[0]].kind);
}

bool PassesEnd(const FileLayout& layout, const LayoutPart& part) { return part.qwTo > layout.qwBase + layout.qwSize; }

void PrintLayout(const FileLayout& layout, const std::string& sIndent) {
  for (const std::string& sNote : layout.vNotes) printf("%snote: %s\n", sIndent.c_str(), sNote.c_str());
  for (const LayoutRange& range : layout.vRanges) {
    std::string sOwners;
    if (range.nOwners == 0) sOwners = range.bPadding ? "padding" : "gap";
    for (std::size_t nPart : range.vOwners) sOwners += (sOwners.empty() ? "" : ", ") + Describe(layout.vParts[nPart]);
    if (range.nOwners > range.vOwners.size()) sOwners += ", and " + std::to_string(range.nOwners - range.vOwners.size()) + " more";
    if (range.nOwners > 1) sOwners = "OVERLAP: " + sOwners;
    printf("%s%s-%s 0x%08llx  %s\n", sIndent.c_str(), Hex8(range.qwFrom).c_str(), Hex8(range.qwTo).c_str(),
           static_cast<unsigned long long>(range.qwTo - range.qwFrom), sOwners.c_str());
    for (const auto& nested : layout.vNested) {
      if (layout.vParts[nested.nPart].qwFrom == range.qwFrom &&
          std::find(range.vOwners.begin(), range.vOwners.end(), nested.nPart) != range.vOwners.end()) {
        PrintLayout(nested.layout, sIndent + "    ");
      }
    }
  }
  for (const LayoutPart& part : layout.vParts) {
    if (!PassesEnd(layout, part)) continue;
    printf("%sOUT OF FILE: %s [%s, %s) passes the end (%s)\n", sIndent.c_str(), Describe(part).c_str(),
           Hex8(part.qwFrom).c_str(), Hex8(part.qwTo).c_str(), Hex8(layout.qwBase + layout.qwSize).c_str());
  }
}

void WriteLayout(C_JsonWriter& json, const FileLayout& layout) {
  json.Key("offset").Number(layout.qwBase);
  json.Key("size").Number(layout.qwSize);
  json.Key("overlaps").Number(layout.OverlapCount());
  json.Key("out_of_file").Number(layout.OutOfFileCount());
  json.Key("notes").BeginArray();
  for (const std::string& sNote : layout.vNotes) json.String(sNote);
  json.EndArray();
  json.Key("parts").BeginArray();
  for (const LayoutPart& part : layout.vParts) {
    json.BeginObject();
    json.Key("kind").String(kofd_analyze::PartKindName(part.kind));
    if (part.llIndex >= 0) json.Key("index").Number(static_cast<std::uint64_t>(part.llIndex));
    if (part.kind == PartKind::kSection || part.kind == PartKind::kObjectMember ||
        (part.kind == PartKind::kMemberHeader && part.llIndex >= 2)) {
      json.Name("name", part.sName);
    }
    json.Key("from").Number(part.qwFrom);
    json.Key("to").Number(part.qwTo);
    json.Key("out_of_file").Bool(PassesEnd(layout, part));
    json.EndObject();
  }
  json.EndArray();
  json.Key("ranges").BeginArray();
  for (const LayoutRange& range : layout.vRanges) {
    json.BeginObject();
    json.Key("from").Number(range.qwFrom);
    json.Key("to").Number(range.qwTo);
    json.Key("size").Number(range.qwTo - range.qwFrom);
    json.Key("kind").String(RangeKind(layout, range));
    json.Key("owners").BeginArray();
    for (std::size_t nPart : range.vOwners) json.Number(nPart);
    json.EndArray();
    json.Key("owner_count").Number(range.nOwners);
    json.Key("overlap").Bool(range.nOwners > 1);
    bool bOut = false;
    for (std::size_t nPart : range.vOwners) bOut = bOut || PassesEnd(layout, layout.vParts[nPart]);
    json.Key("out_of_file").Bool(bOut);
    json.EndObject();
  }
  json.EndArray();
  if (!layout.bArchive) return;
  json.Key("objects").BeginArray();
  for (const auto& nested : layout.vNested) {
    json.BeginObject();
    json.Key("part").Number(nested.nPart);
    WriteLayout(json, nested.layout);
    json.EndObject();
  }
  json.EndArray();
}

int RunLayout(const LayoutOptions& options) {
  return RunFinding(ShownName(options.sPath), [&] {
    const FileLayout layout = kofd_analyze::LayoutFile(OpenedPath(options.sPath).c_str());
    if (!layout.bKnown) Fail("neither a KELF object nor an archive: it begins with no \\x7fELF or !<arch> magic");
    const int status = layout.FlagCount() == 0 ? 0 : kExitFound;
    if (options.bJson) {
      C_JsonWriter json(stdout);
      json.BeginDocument("layout");
      json.Name("file", options.sPath);
      json.Key("kind").String(layout.bArchive ? "archive" : "object");
      json.Key("flags").Number(layout.FlagCount());
      WriteLayout(json, layout);
      json.EndObject();
      if (!json.Finish()) Fail("standard output cannot be written");
      return status;
    }
    printf("%s: %s of 0x%08llx bytes, %zu flagged\n", EscapeText(ShownName(options.sPath)).c_str(), layout.bArchive ? "archive" : "object",
           static_cast<unsigned long long>(layout.qwSize), layout.FlagCount());
    PrintLayout(layout, "");
    if (fflush(stdout) != 0) Fail("standard output cannot be written");
    return status;
  });
}

}  // namespace

void RegisterLayout(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "layout", "Show who owns every byte of a KELF object or archive, flagging overlaps and parts past the end");
  auto options = std::make_shared<LayoutOptions>();
  command->add_option("FILE", options->sPath, "The KELF object or archive (read leniently: a damaged file is laid out too; - for standard input)")->required();
  command->add_flag("--json", options->bJson, JsonHelp("layout"));
  command->footer("Exit status: 0 when the file is covered without overlap or part past the end, 1 when any is flagged, 2 on trouble.");
  command->callback([options, &result] { result.status = RunLayout(*options); });
}

}  // namespace cli
