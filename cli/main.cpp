// kofd: the command-line face of the object file descriptor library.
#include <csignal>
#include <cstdio>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "frame/exports.h"
#include "help_format.h"
#include "report.h"

int main(int argc, char** argv) {
  // A write past the file-size limit then fails with its system text, and the temporary file is
  // removed, instead of the tool dying in the middle.
#ifdef SIGXFSZ
  std::signal(SIGXFSZ, SIG_IGN);
#endif
  CLI::App app{"kofd: open, inspect and dump KELF objects and archives of KELF objects", "kofd"};
  bool bVersion = false;
  app.add_flag("--version", bVersion, "Print the library's banner and exit");
  app.require_subcommand(0, 1);
  // Subcommands take both from the tool as they are made.
  app.formatter(std::make_shared<cli::C_HelpFormatter>());
  app.failure_message(cli::FailureMessage);

  cli::CommandResult result;
  cli::RegisterInfo(app, result);
  cli::RegisterReloc(app, result);
  cli::RegisterDump(app, result);
  cli::RegisterAr(app, result);
  cli::RegisterBrowse(app, result);
  cli::RegisterEdit(app, result);
  cli::RegisterExport(app, result);
  cli::RegisterBuild(app, result);
  cli::RegisterXref(app, result);
  cli::RegisterDiff(app, result);
  cli::RegisterMap(app, result);
  cli::RegisterLayout(app, result);
  cli::RegisterSymbols(app, result);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return cli::kExitUsage;
  } catch (const std::bad_alloc&) {
    // Commands report their own failures; this is what escapes one before it has a file.
    fprintf(stderr, "kofd: out of memory\n");
    return cli::kExitFailure;
  } catch (const std::exception& error) {
    fprintf(stderr, "kofd: %s\n", error.what());
    return cli::kExitFailure;
  }

  if (bVersion) {
    char szNames[kBodyNamesSize] = {0};
    EnumBodyNames(0, szNames);
    printf("%s\n", szNames);
    return 0;
  }
  if (app.get_subcommands().empty()) {
    fprintf(stderr, "kofd: no command given\n%s", app.help().c_str());
    return cli::kExitUsage;
  }
  return result.status;
}
