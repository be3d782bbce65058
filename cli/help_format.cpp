#include "help_format.h"

#include <sstream>
#include <vector>

#include "suggest.h"

namespace cli {
namespace {

constexpr std::size_t kNameColumn = 26;

// A name in its column and its description beside it, or under it when the name is too long.
std::string Entry(const std::string& sName, const std::string& sDescription) {
  const std::string sIndent(kNameColumn, ' ');
  std::string sLead = "  " + sName;
  if (sDescription.empty()) return sLead + "\n";
  if (sLead.size() + 1 > kNameColumn) return sLead + "\n" + WrapText(sDescription, sIndent, sIndent, kHelpWidth);
  sLead.resize(kNameColumn, ' ');
  return WrapText(sDescription, sLead, sIndent, kHelpWidth);
}

// The parsed subcommand innermost, or pApp itself.
const CLI::App* Innermost(const CLI::App* pApp) {
  while (!pApp->get_subcommands().empty()) pApp = pApp->get_subcommands().front();
  return pApp;
}

// "dump", "ar list": the command as typed, without the tool's own name.
std::string CommandPath(const CLI::App* pApp) {
  std::string sPath;
  for (; pApp && pApp->get_parent(); pApp = pApp->get_parent()) sPath = pApp->get_name() + (sPath.empty() ? "" : " ") + sPath;
  return sPath;
}

// "ar LIB list": the command as its help is asked for, the positionals of the commands before it
// standing where they go.
std::string HelpPath(const CLI::App* pApp) {
  std::string sPath;
  for (const CLI::App* pAt = pApp; pAt && pAt->get_parent(); pAt = pAt->get_parent()) {
    std::string sPart = pAt->get_name();
    if (pAt != pApp) {
      for (const CLI::Option* pOption : pAt->get_options([](const CLI::Option* p) { return p->get_positional(); })) {
        sPart += " " + pOption->get_name(true, false);
      }
    }
    sPath = sPart + (sPath.empty() ? "" : " ") + sPath;
  }
  return sPath;
}

std::vector<std::string> OptionNames(const CLI::App* pApp) {
  std::vector<std::string> vNames;
  for (const CLI::Option* pOption : pApp->get_options()) {
    for (const std::string& sName : pOption->get_lnames()) vNames.push_back("--" + sName);
    for (const std::string& sName : pOption->get_snames()) vNames.push_back("-" + sName);
  }
  return vNames;
}

std::vector<std::string> CommandNames(const CLI::App* pApp) {
  std::vector<std::string> vNames;
  for (const CLI::App* pSub : pApp->get_subcommands({})) vNames.push_back(pSub->get_name());
  return vNames;
}

}  // namespace

std::string WrapText(const std::string& sText, const std::string& sFirst, const std::string& sIndent, std::size_t nWidth) {
  std::string sOut;
  std::istringstream paragraphs(sText);
  std::string sParagraph;
  bool bFirst = true;
  while (std::getline(paragraphs, sParagraph)) {
    std::string sLine = bFirst ? sFirst : sIndent;
    bool bEmpty = true;
    std::istringstream words(sParagraph);
    std::string sWord;
    while (words >> sWord) {
      if (!bEmpty && sLine.size() + 1 + sWord.size() > nWidth) {
        sOut += sLine + "\n";
        sLine = sIndent;
        bEmpty = true;
      }
      sLine += (bEmpty ? "" : " ") + sWord;
      bEmpty = false;
    }
    while (!sLine.empty() && sLine.back() == ' ') sLine.pop_back();
    sOut += sLine + "\n";
    bFirst = false;
  }
  return sOut;
}

C_HelpFormatter::C_HelpFormatter() { column_width(kNameColumn); }

std::string C_HelpFormatter::make_description(const CLI::App* pApp) const {
  const std::string sDescription = Formatter::make_description(pApp);
  return sDescription.empty() ? sDescription : WrapText(sDescription, "", "", kHelpWidth);
}

std::string C_HelpFormatter::make_usage(const CLI::App* pApp, std::string sName) const {
  // The commands that lead to this one, each with the positionals it takes before the next
  // ("kofd ar LIB extract"), so that the line can be typed as it reads.
  std::vector<const CLI::App*> vChain;
  for (const CLI::App* pAt = pApp; pAt; pAt = pAt->get_parent()) vChain.insert(vChain.begin(), pAt);
  if (vChain.size() > 1) {
    sName.clear();
    for (const CLI::App* pAt : vChain) {
      sName += (sName.empty() ? "" : " ") + pAt->get_name();
      if (pAt == pApp) break;
      for (const CLI::Option* pOption : pAt->get_options([](const CLI::Option* p) { return p->get_positional(); })) {
        sName += " " + make_option_usage(pOption);
      }
    }
  }
  std::string sUsage = Formatter::make_usage(pApp, std::move(sName));
  while (!sUsage.empty() && sUsage.back() == '\n') sUsage.pop_back();
  return WrapText(sUsage, "", "         ", kHelpWidth);
}

std::string C_HelpFormatter::make_footer(const CLI::App* pApp) const {
  const std::string sFooter = Formatter::make_footer(pApp);
  return sFooter.empty() ? sFooter : WrapText(sFooter, "", "", kHelpWidth);
}

std::string C_HelpFormatter::make_subcommand(const CLI::App* pSub) const {
  return Entry(pSub->get_display_name(true), pSub->get_description());
}

std::string C_HelpFormatter::make_option(const CLI::Option* pOption, bool bPositional) const {
  return Entry(make_option_name(pOption, bPositional) + make_option_opts(pOption), make_option_desc(pOption));
}

std::string FailureMessage(const CLI::App* pApp, const CLI::Error& error) {
  const CLI::App* pInner = Innermost(pApp);
  const std::string sCommand = CommandPath(pInner);
  const std::string sWhere = sCommand.empty() ? "kofd: " : "kofd: " + sCommand + ": ";
  const std::string sHint = "Run kofd " + (sCommand.empty() ? "" : HelpPath(pInner) + " ") + "--help for more information.\n";
  std::string sText = error.what();
  // CLI11 starts some texts with the command's own name.
  if (!pInner->get_name().empty() && sText.rfind(pInner->get_name() + ": ", 0) == 0) sText.erase(0, pInner->get_name().size() + 2);
  // A word no command or option of pInner has: named with the nearest one that is.
  for (const std::string& sWord : pInner->remaining(false)) {
    const bool bOption = sWord.size() > 1 && sWord[0] == '-';
    if (bOption) {
      const std::string sName = sWord.substr(0, sWord.find('='));
      return sWhere + "unknown option \"" + sName + "\"" + DidYouMean(sName, OptionNames(pInner)) + "\n" + sHint;
    }
    if (!pInner->get_subcommands({}).empty()) {
      return sWhere + "unknown command \"" + sWord + "\"" + DidYouMean(sWord, CommandNames(pInner)) + "\n" + sHint;
    }
  }
  return sWhere + sText + "\n" + sHint;
}

}  // namespace cli
