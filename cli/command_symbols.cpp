// kofd symbols FILE: every symbol of an object, or of every member of an archive, as nm lists
// them: value, size, class letter and name; --defined / --undefined keep one kind.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "analyze/symbols.h"
#include "analyzed_file.h"
#include "commands.h"
#include "escape.h"
#include "input_file.h"
#include "json_result.h"
#include "present/names.h"
#include "report.h"

namespace cli {
namespace {

struct SymbolsOptions {
  std::vector<std::string> vFiles;
  bool bDefined = false;
  bool bUndefined = false;
  bool bJson = false;
};

void WriteSymbolsJson(const std::string& sGiven, C_JsonWriter* pShared, bool bArchive,
                      const std::vector<kofd_analyze::ListedSymbol>& symbols) {
  C_FileJson target(pShared);
  C_JsonWriter& json = *target;
  json.BeginDocument("symbols");
  json.Name("file", sGiven);
  json.Key("symbols").BeginArray();
  for (const kofd_analyze::ListedSymbol& s : symbols) {
    json.BeginObject();
    if (bArchive) json.Name("member", s.sMember);
    json.Key("index").Number(s.dwIndex);
    json.Name("name", s.sName);
    json.Key("value").Number(s.dwValue);
    json.Key("size").Number(s.dwSize);
    json.Key("bind").Named(s.bInfo >> 4, SymbolBindName(s.bInfo));
    json.Key("type").Named(s.bInfo & 0xF, SymbolTypeName(s.bInfo));
    json.Key("section").Number(s.wSection);
    json.Key("letter").String(std::string(1, s.cLetter));
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  if (!json.Finish()) Fail("standard output cannot be written");
}

// One line a symbol; every column but the last has a fixed width and a space after it, and the
// name is escaped, so columns never run together.
void PrintSymbols(bool bArchive, const AnalyzedFile& file, const std::vector<kofd_analyze::ListedSymbol>& symbols) {
  std::size_t next = 0;
  for (std::size_t o = 0; o < file.objects.size(); ++o) {
    // Every member is headed, also one with nothing to list, as nm heads them.
    if (bArchive) printf("\n%s:\n", EscapeText(file.objects[o].sMember).c_str());
    for (; next < symbols.size() && symbols[next].object == o; ++next) {
      const kofd_analyze::ListedSymbol& s = symbols[next];
      printf("0x%08x 0x%08x %c %s\n", static_cast<unsigned>(s.dwValue), static_cast<unsigned>(s.dwSize), s.cLetter,
             EscapeText(s.sName).c_str());
    }
  }
}

int RunSymbols(const SymbolsOptions& options, const std::string& sGiven, C_JsonWriter* pShared) {
  return RunReporting(ShownName(sGiven), [&] {
    AnalyzedFile file;
    OpenForAnalysis(OpenedPath(sGiven), file, false);  // the listing reads documents only
    const kofd_analyze::SymbolFilter filter = options.bDefined     ? kofd_analyze::SymbolFilter::kDefined
                                              : options.bUndefined ? kofd_analyze::SymbolFilter::kUndefined
                                                                   : kofd_analyze::SymbolFilter::kAll;
    const std::vector<kofd_analyze::ListedSymbol> symbols = kofd_analyze::ListSymbols(file.objects, filter);
    const bool bArchive = file.kind == FileKind::kArchive;
    if (options.bJson) WriteSymbolsJson(sGiven, pShared, bArchive, symbols);
    else PrintSymbols(bArchive, file, symbols);
    return 0;
  });
}

}  // namespace

void RegisterSymbols(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "symbols",
      "List the symbols of an object or of every member of an archive, as nm does: value, size, class letter "
      "(U A C T D R N, lowercase when local, W/w weak) and name");
  auto options = std::make_shared<SymbolsOptions>();
  command->add_option("FILE", options->vFiles, "The KELF objects or archives (- for standard input); several are each headed by their name")
      ->required();
  command->add_flag("--defined", options->bDefined, "List only the defined symbols");
  command->add_flag("--undefined", options->bUndefined, "List only the undefined symbols (section 0 or 0xFFFF)");
  command->add_flag("--json", options->bJson, JsonHelp("symbols"));
  command->callback([options, &result] {
    if (options->bDefined && options->bUndefined) {
      result.status = UsageFailure("symbols", "give at most one of --defined and --undefined");
      return;
    }
    result.status = RunEachFile(options->vFiles, "symbols", options->bJson, [&](const std::string& sGiven, C_JsonWriter* pJson) {
      return RunSymbols(*options, sGiven, pJson);
    });
  });
}

}  // namespace cli
