// kofd diff A B: two objects (or two archives) compared by what they mean: header fields,
// sections, symbols and relocations matched by name, archive members by name. With --layout
// where the parts lie counts too.
#include <cstdio>
#include <memory>
#include <string>

#include "analyze/diff.h"
#include "analyzed_file.h"
#include "commands.h"
#include "escape.h"
#include "json_result.h"
#include "report.h"

namespace cli {
namespace {

struct DiffCommandOptions {
  std::string sPathA;
  std::string sPathB;
  bool bLayout = false;
  bool bJson = false;
};

std::string ValueText(const kofd_analyze::DiffValue& value) {
  if (!value.bPresent) return "(none)";
  if (value.bText) return "\"" + EscapeText(value.sText) + "\"";
  char sz[16];
  snprintf(sz, sizeof sz, "0x%x", static_cast<unsigned>(value.dwNumber));
  return sz;
}

void WriteValue(C_JsonWriter& json, const char* pszKey, const kofd_analyze::DiffValue& value) {
  if (!value.bPresent) return;
  if (value.bText) json.Name(pszKey, value.sText);
  else json.Key(pszKey).Number(value.dwNumber);
}

// "section .text", "relocation .relx.text at 0x10", "header"...
std::string Subject(const kofd_analyze::Difference& d) {
  using kofd_analyze::DiffPart;
  std::string s = kofd_analyze::PartName(d.part);
  char sz[32];
  switch (d.part) {
    case DiffPart::kProgramHeader:
      s += " " + std::to_string(d.dwIndex);
      break;
    case DiffPart::kRelocation:
      snprintf(sz, sizeof sz, " at 0x%x", static_cast<unsigned>(d.dwIndex));
      s += " " + EscapeText(d.sName) + sz;
      break;
    case DiffPart::kSection:
    case DiffPart::kSymbol:
    case DiffPart::kMember:
      s += " " + EscapeText(d.sName);
      break;
    default:
      break;
  }
  return s;
}

void PrintDifference(const kofd_analyze::Difference& d) {
  std::string line;
  if (!d.sMember.empty() && d.part != kofd_analyze::DiffPart::kMember) line += "member " + EscapeText(d.sMember) + ": ";
  line += Subject(d) + ": ";
  if (d.change != kofd_analyze::DiffChange::kChanged) {
    line += kofd_analyze::ChangeName(d.change);
  } else if (d.bRange) {
    char sz[64];
    snprintf(sz, sizeof sz, " [0x%x, 0x%x)", static_cast<unsigned>(d.dwFrom), static_cast<unsigned>(d.dwTo));
    line += d.sField + sz;
  } else {
    line += d.sField + " " + ValueText(d.a) + " -> " + ValueText(d.b);
  }
  if (d.bLayout) line += " (layout)";
  printf("%s\n", line.c_str());
}

void WriteDifference(C_JsonWriter& json, const kofd_analyze::Difference& d) {
  using kofd_analyze::DiffPart;
  json.BeginObject();
  if (!d.sMember.empty()) json.Name("member", d.sMember);
  json.Key("part").String(kofd_analyze::PartName(d.part));
  json.Key("change").String(kofd_analyze::ChangeName(d.change));
  json.Key("layout").Bool(d.bLayout);
  if (d.part == DiffPart::kSection || d.part == DiffPart::kSymbol || d.part == DiffPart::kMember ||
      d.part == DiffPart::kRelocation) {
    json.Name("name", d.sName);
  }
  if (d.part == DiffPart::kProgramHeader) json.Key("index").Number(d.dwIndex);
  if (d.part == DiffPart::kRelocation) json.Key("offset").Number(d.dwIndex);
  if (!d.sField.empty()) json.Key("field").String(d.sField);
  if (d.bRange) {
    json.Key("from").Number(d.dwFrom);
    json.Key("to").Number(d.dwTo);
  }
  WriteValue(json, "a", d.a);
  WriteValue(json, "b", d.b);
  json.EndObject();
}

int RunDiff(const DiffCommandOptions& options) {
  AnalyzedFile a, b;
  bool bOpened = false;
  int status = RunFinding(options.sPathA, [&] {
    OpenForAnalysis(options.sPathA, a);
    return 0;
  });
  if (status == 0) {
    status = RunFinding(options.sPathB, [&] {
      OpenForAnalysis(options.sPathB, b);
      if (a.kind != b.kind) Fail("one file is an object and the other an archive; diff compares two of a kind", E_INVALIDARG);
      bOpened = true;
      return 0;
    });
  }
  if (!bOpened) return kExitTrouble;
  return RunFinding(options.sPathA, [&] {
    kofd_analyze::DiffOptions diffOptions;
    diffOptions.bLayout = options.bLayout;
    const std::vector<kofd_analyze::Difference> differences =
        a.kind == FileKind::kArchive ? kofd_analyze::DiffArchives(a.objects, b.objects, diffOptions)
                                     : kofd_analyze::DiffObjects(a.objects.front(), b.objects.front(), diffOptions);
    const int found = differences.empty() ? 0 : kExitFound;
    if (options.bJson) {
      C_JsonWriter json(stdout);
      json.BeginDocument("diff");
      json.Name("file", options.sPathA);
      json.Name("other", options.sPathB);
      json.Key("layout").Bool(options.bLayout);
      json.Key("equal").Bool(differences.empty());
      json.Key("differences").BeginArray();
      for (const kofd_analyze::Difference& d : differences) WriteDifference(json, d);
      json.EndArray();
      json.EndObject();
      if (!json.Finish()) Fail("standard output cannot be written");
      return found;
    }
    for (const kofd_analyze::Difference& d : differences) PrintDifference(d);
    return found;
  });
}

}  // namespace

void RegisterDiff(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "diff", "Compare two objects (or two archives) by what they mean: exit 0 when equal, 1 when they differ");
  auto options = std::make_shared<DiffCommandOptions>();
  command->add_option("A", options->sPathA, "The first KELF object or archive")->required();
  command->add_option("B", options->sPathB, "The second, of the same kind")->required();
  command->add_flag("--layout", options->bLayout,
                    "Count where the parts lie too: section offsets and order, header table positions, string "
                    "offsets, symbol and record indexes, padding");
  command->add_flag("--json", options->bJson, JsonHelp("diff"));
  command->callback([options, &result] { result.status = RunDiff(*options); });
}

}  // namespace cli
