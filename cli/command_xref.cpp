// kofd xref FILE SYMBOL: the relocations whose expressions name SYMBOL, in an object or every
// member of an archive; --undefined: the symbols expressions name that nothing defines;
// --unreferenced: the defined globals nothing names.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "analyze/xref.h"
#include "analyzed_file.h"
#include "commands.h"
#include "escape.h"
#include "input_file.h"
#include "json_result.h"
#include "report.h"

namespace cli {
namespace {

struct XrefOptions {
  std::string sPath;
  std::string sSymbol;
  bool bUndefined = false;
  bool bUnreferenced = false;
  bool bJson = false;
};

// The JSON document of one listing: its opening, KEY holding one object per item (each writes
// the object's members), the end.
template <class Item, class Each>
void WriteListing(const XrefOptions& options, const char* pszKey, const std::vector<Item>& items, Each each) {
  C_JsonWriter json(stdout);
  json.BeginDocument("xref");
  json.Name("file", options.sPath);
  if (!options.sSymbol.empty()) json.Name("symbol", options.sSymbol);
  json.Key(pszKey).BeginArray();
  for (const Item& item : items) {
    json.BeginObject();
    each(json, item);
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  if (!json.Finish()) Fail("standard output cannot be written");
}

int RunReferences(const XrefOptions& options, const AnalyzedFile& file) {
  const std::vector<kofd_analyze::Reference> references = kofd_analyze::FindReferences(file.objects, options.sSymbol);
  const int status = references.empty() ? kExitFound : 0;
  const bool bArchive = file.kind == FileKind::kArchive;
  if (options.bJson) {
    WriteListing(options, "references", references, [&](C_JsonWriter& json, const kofd_analyze::Reference& r) {
      if (bArchive) json.Name("member", r.sMember);
      json.Key("section").Number(r.dwSection);
      json.Name("section_name", r.sSection);
      json.Key("index").Number(r.dwRecord);
      json.Key("offset").Number(r.dwOffset);
      if (r.bValue) json.Key("value").Number(r.dwValue);
      if (r.bText) json.Name("expression", r.sExpression);
    });
    return status;
  }
  for (const kofd_analyze::Reference& r : references) {
    if (bArchive) printf("%s\t", EscapeText(r.sMember).c_str());
    printf("%u %s\t%u\t%08x\t%s\n", static_cast<unsigned>(r.dwSection), EscapeText(r.sSection).c_str(),
           static_cast<unsigned>(r.dwRecord), static_cast<unsigned>(r.dwOffset),
           r.bText ? EscapeText(r.sExpression).c_str() : "Error!");
  }
  return status;
}

int RunUndefined(const XrefOptions& options, const AnalyzedFile& file) {
  const std::vector<kofd_analyze::UndefinedSymbol> symbols = kofd_analyze::FindUndefined(file.objects);
  const int status = symbols.empty() ? 0 : kExitFound;
  const bool bArchive = file.kind == FileKind::kArchive;
  if (options.bJson) {
    WriteListing(options, "undefined", symbols, [&](C_JsonWriter& json, const kofd_analyze::UndefinedSymbol& s) {
      json.Name("name", s.sName);
      if (!bArchive) return;
      json.Key("members").BeginArray();
      for (const std::string& sMember : s.vMembers) json.String(sMember);
      json.EndArray();
    });
    return status;
  }
  for (const kofd_analyze::UndefinedSymbol& s : symbols) {
    printf("%s", EscapeText(s.sName).c_str());
    if (bArchive) {
      for (std::size_t i = 0; i < s.vMembers.size(); ++i) printf("%s%s", i ? " " : "\t", EscapeText(s.vMembers[i]).c_str());
    }
    printf("\n");
  }
  return status;
}

int RunUnreferenced(const XrefOptions& options, const AnalyzedFile& file) {
  const std::vector<kofd_analyze::UnreferencedSymbol> symbols = kofd_analyze::FindUnreferenced(file.objects);
  const int status = symbols.empty() ? 0 : kExitFound;
  const bool bArchive = file.kind == FileKind::kArchive;
  if (options.bJson) {
    WriteListing(options, "unreferenced", symbols, [&](C_JsonWriter& json, const kofd_analyze::UnreferencedSymbol& s) {
      json.Name("name", s.sName);
      if (bArchive) json.Name("member", s.sMember);
    });
    return status;
  }
  for (const kofd_analyze::UnreferencedSymbol& s : symbols) {
    if (bArchive) printf("%s\t", EscapeText(s.sMember).c_str());
    printf("%s\n", EscapeText(s.sName).c_str());
  }
  return status;
}

int RunXref(const XrefOptions& options) {
  const int nModes = !options.sSymbol.empty() + options.bUndefined + options.bUnreferenced;
  if (nModes != 1) {
    UsageFailure("xref", "give exactly one of SYMBOL, --undefined and --unreferenced");
    return kExitUsage;
  }
  return RunFinding(ShownName(options.sPath), [&] {
    AnalyzedFile file;
    OpenForAnalysis(OpenedPath(options.sPath), file, false);  // the analyses read documents only
    if (options.bUndefined) return RunUndefined(options, file);
    if (options.bUnreferenced) return RunUnreferenced(options, file);
    return RunReferences(options, file);
  });
}

}  // namespace

void RegisterXref(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "xref",
      "The relocations whose expressions name SYMBOL (exit 1 when none does), or with --undefined / --unreferenced "
      "the symbols nothing defines / the globals nothing names (exit 1 when there are any)");
  auto options = std::make_shared<XrefOptions>();
  command->add_option("FILE", options->sPath, "The KELF object or archive (- for standard input)")->required();
  command->add_option("SYMBOL", options->sSymbol, "The symbol's name (letter case counts)");
  command->add_flag("--undefined", options->bUndefined, "List the symbols expressions name that no object defines");
  command->add_flag("--unreferenced", options->bUnreferenced, "List the defined global symbols no expression names");
  command->add_flag("--json", options->bJson, JsonHelp("xref"));
  command->callback([options, &result] { result.status = RunXref(*options); });
}

}  // namespace cli
