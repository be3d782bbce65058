// The tool's commands. Each registers its subcommand and returns the exit status it sets
// through the shared result.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

namespace cli {

struct CommandResult {
  int status = 0;
};

void RegisterInfo(CLI::App& app, CommandResult& result);
void RegisterReloc(CLI::App& app, CommandResult& result);
void RegisterDump(CLI::App& app, CommandResult& result);
void RegisterAr(CLI::App& app, CommandResult& result);
// ar's check, replace and extract, on the archive *pLibrary names once ar's options are parsed.
void RegisterArRepair(CLI::App& ar, CommandResult& result, std::shared_ptr<const std::string> pLibrary);
void RegisterBrowse(CLI::App& app, CommandResult& result);
void RegisterEdit(CLI::App& app, CommandResult& result);  // edit and new
void RegisterExport(CLI::App& app, CommandResult& result);
void RegisterBuild(CLI::App& app, CommandResult& result);
void RegisterXref(CLI::App& app, CommandResult& result);
void RegisterDiff(CLI::App& app, CommandResult& result);
void RegisterMap(CLI::App& app, CommandResult& result);
void RegisterLayout(CLI::App& app, CommandResult& result);
void RegisterSymbols(CLI::App& app, CommandResult& result);

}  // namespace cli
