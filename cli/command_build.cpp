// kofd build FILE.json -o OUT [--json]: the object a JSON document describes (see json_build.h),
// written through the replacing output.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "edit/object_image.h"
#include "escape.h"
#include "frame/replacing_file.h"
#include "json_build.h"
#include "json_writer.h"
#include "report.h"

namespace cli {
namespace {

struct BuildOptions {
  std::string sPath, sOutput;
  bool bJson = false;
};

int RunBuild(const BuildOptions& options) {
  // The document is read whole before the output is made; every refusal names the document.
  std::string sText;
  int status = RunReporting(options.sPath, [&] {
    const std::vector<BYTE> vBytes = ReadFileBytes(options.sPath.c_str());
    sText.assign(vBytes.begin(), vBytes.end());
    return 0;
  });
  if (status != 0) return status;
  // The output is made (and its target locked) next; a failure there concerns OUT.
  std::unique_ptr<C_ReplacingFile> output;
  status = RunReporting(options.sOutput, [&] {
    output = std::make_unique<C_ReplacingFile>(options.sOutput.c_str());
    return 0;
  });
  if (status != 0) return status;
  BuildResult result;
  status = RunReporting(options.sPath, [&] {
    try {
      result = BuildObjectFromJson(sText, *output);
      return 0;
    } catch (const C_ImageFailure& error) {
      return ReportFailure(options.sPath, EscapeText(error.Message()));
    }
  });
  if (status != 0 || !options.bJson) return status;
  C_JsonWriter json(stdout);
  json.BeginDocument("build");
  json.Name("file", options.sPath);
  json.Name("output", options.sOutput);
  json.Key("layout").String(result.bExact ? "exact" : "fresh");
  json.Key("sections").Number(result.dwSections);
  json.Key("size").Number(result.dwSize);
  json.EndObject();
  if (!json.Finish()) return ReportFailure(options.sOutput, std::string("standard output could not be written"));
  return 0;
}

}  // namespace

void RegisterBuild(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "build",
      "Make an object from a JSON document: a `kofd dump --json --contents` document gives back the object dumped, byte for "
      "byte; a hand-written one (sections and symbols, no offsets) is laid out afresh");
  auto options = std::make_shared<BuildOptions>();
  command->add_option("FILE", options->sPath, "The JSON document (schema kofd/1, docs/schema/kofd-object.schema.json)")->required();
  command->add_option("-o", options->sOutput, "The object to write (replaced when it exists)")->required();
  command->add_flag("--json", options->bJson, "Print a short JSON result document (docs/schema/kofd-build.schema.json)");
  command->callback([options, &result] { result.status = RunBuild(*options); });
}

}  // namespace cli
