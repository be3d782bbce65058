// The tool's --help texts: at most 80 columns, descriptions wrapped under their own column, and
// every usage line naming the command's positionals.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace cli {

constexpr std::size_t kHelpWidth = 80;

class C_HelpFormatter : public CLI::Formatter {
 public:
  C_HelpFormatter();
  std::string make_description(const CLI::App* pApp) const override;
  std::string make_usage(const CLI::App* pApp, std::string sName) const override;
  std::string make_footer(const CLI::App* pApp) const override;
  std::string make_subcommand(const CLI::App* pSub) const override;
  std::string make_option(const CLI::Option* pOption, bool bPositional) const override;
};

// sText broken at blanks into lines of at most nWidth columns, each after sIndent (the first
// line after sFirst); its own line breaks are kept. A word longer than a line stands alone.
std::string WrapText(const std::string& sText, const std::string& sFirst, const std::string& sIndent, std::size_t nWidth);

// A usage error CLI11 found, as the tool shows usage errors: "kofd: CMD: TEXT" with the command
// that was being read, an unknown command or option named with the nearest known one.
std::string FailureMessage(const CLI::App* pApp, const CLI::Error& error);

}  // namespace cli
