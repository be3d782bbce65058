// The tool's commands. Each registers its subcommand and returns the exit status it sets
// through the shared result.
#pragma once

#include <CLI/CLI.hpp>

namespace cli {

struct CommandResult {
  int status = 0;
};

void RegisterInfo(CLI::App& app, CommandResult& result);
void RegisterReloc(CLI::App& app, CommandResult& result);
void RegisterDump(CLI::App& app, CommandResult& result);
void RegisterAr(CLI::App& app, CommandResult& result);
void RegisterBrowse(CLI::App& app, CommandResult& result);
void RegisterEdit(CLI::App& app, CommandResult& result);  // edit and new
void RegisterBuild(CLI::App& app, CommandResult& result);
void RegisterMap(CLI::App& app, CommandResult& result);
void RegisterLayout(CLI::App& app, CommandResult& result);

}  // namespace cli
