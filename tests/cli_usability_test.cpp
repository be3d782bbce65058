// The command line a daily user meets: several files in one run, standard input as "-", the
// object selectors on one archive member, "did you mean" for typos, usage errors and failures
// each on lines starting "kofd:", and --help texts that fit 80 columns.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

#include "cli_run.h"
#include "frame_temp_dir.h"

namespace {

const std::string kSampleO = std::string(KOFD_EXAMPLES_DIR) + "/sample.o";
const std::string kSampleA = std::string(KOFD_EXAMPLES_DIR) + "/sample.a";

std::vector<std::string> Lines(const std::string& sText) {
  std::vector<std::string> lines;
  std::istringstream in(sText);
  for (std::string sLine; std::getline(in, sLine);) lines.push_back(sLine);
  return lines;
}

TEST(CliUsability, SeveralFilesAreEachHeadedAndAFailureLetsTheOthersRun) {
  TempDir dir;
  const std::string sO = Quoted(kSampleO), sA = Quoted(kSampleA), sMissing = Quoted(dir.Path("missing.o"));
  for (const std::string& sCommand : std::vector<std::string>{"info", "dump", "dump --section .text --file-header", "reloc", "symbols"}) {
    const Outcome first = Kofd(dir, sCommand + " " + sO);
    // The object selectors and reloc take objects; the others an archive as well.
    const bool bObjects = sCommand == "reloc" || sCommand.find("--") != std::string::npos;
    const Outcome second = Kofd(dir, sCommand + " " + (bObjects ? sO : sA));
    ASSERT_EQ(first.status, 0) << sCommand << first.err;
    ASSERT_EQ(second.status, 0) << sCommand << second.err;
    // Each file's output is what it alone gives, after an empty line and "File: NAME".
    const Outcome both = Kofd(dir, sCommand + " " + sO + " " + (bObjects ? sO : sA));
    EXPECT_EQ(both.status, 0) << sCommand << both.err;
    EXPECT_EQ(both.out, "\nFile: " + kSampleO + "\n" + first.out + "\nFile: " + (bObjects ? kSampleO : kSampleA) +
                            "\n" + second.out)
        << sCommand;
    // A file that cannot be read is reported; the one after it still runs; the status says so.
    const Outcome failed = Kofd(dir, sCommand + " " + sMissing + " " + sO);
    EXPECT_EQ(failed.status, 1) << sCommand;
    EXPECT_EQ(failed.out, "\nFile: " + dir.Path("missing.o") + "\n\nFile: " + kSampleO + "\n" + first.out) << sCommand;
    EXPECT_EQ(failed.err.rfind("kofd: " + dir.Path("missing.o") + ": ", 0), 0u) << failed.err;
  }
  // JSON: one document whose "files" are the documents each file alone gives.
  for (const std::string& sCommand : std::vector<std::string>{"info", "dump", "reloc", "symbols"}) {
    const Outcome single = Kofd(dir, sCommand + " --json " + sO);
    const Outcome several = Kofd(dir, sCommand + " --json " + sO + " " + sMissing + " " + sO);
    EXPECT_EQ(several.status, 1) << sCommand;
    const nlohmann::json document = nlohmann::json::parse(several.out);
    EXPECT_EQ(document["schema"], "kofd/1");
    EXPECT_EQ(document["command"], sCommand);
    ASSERT_EQ(document["files"].size(), 2u) << sCommand;
    EXPECT_EQ(document["files"][0], nlohmann::json::parse(single.out)) << sCommand;
    EXPECT_EQ(document["files"][1], document["files"][0]) << sCommand;
  }
  EXPECT_EQ(Kofd(dir, "dump --json-lines " + sO + " " + sO).status, 2);
  EXPECT_EQ(Kofd(dir, "reloc --apply word -o " + Quoted(dir.Path("out.o")) + " " + sO + " " + sO).status, 2);
}

TEST(CliUsability, StandardInputIsReadAsAFileNamedDash) {
  TempDir dir;
  const std::string sO = Quoted(kSampleO), sA = Quoted(kSampleA);
  const Outcome piped = Kofd(dir, "dump -", "cat " + sO + " | ");
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_EQ(piped.out, Kofd(dir, "dump " + sO).out);
  const Outcome archive = Kofd(dir, "info - < " + sA);
  EXPECT_EQ(archive.out, "(standard input): archive\n");
  // One copy of standard input serves every "-" of the run.
  const Outcome twice = Kofd(dir, "symbols - -", "cat " + sA + " | ");
  EXPECT_EQ(twice.status, 0) << twice.err;
  const std::string sSymbols = Kofd(dir, "symbols " + sA).out;
  EXPECT_EQ(twice.out, "\nFile: (standard input)\n" + sSymbols + "\nFile: (standard input)\n" + sSymbols);
  const nlohmann::json document = nlohmann::json::parse(Kofd(dir, "info --json - < " + sO).out);
  EXPECT_EQ(document["file"], "-");
  // Failures name standard input, never the temporary file that holds its copy.
  const Outcome damaged = Kofd(dir, "dump --section 99 -", "head -c 200 " + sO + " | ");
  EXPECT_EQ(damaged.status, 1);
  EXPECT_EQ(damaged.err.rfind("kofd: (standard input): ", 0), 0u) << damaged.err;
  EXPECT_EQ(damaged.err.find("/proc/"), std::string::npos) << damaged.err;
  const Outcome directory = Kofd(dir, "info - < " + Quoted(dir.Path("")));
  EXPECT_EQ(directory.status, 1);
  EXPECT_EQ(directory.err.rfind("kofd: (standard input): standard input cannot be read: ", 0), 0u) << directory.err;
  // A copy that cannot be written whole (here past a file-size limit of 2 KiB) is a failure too.
  const Outcome limited = Kofd(dir, "info - < " + sO, "ulimit -f 2 && ");
  EXPECT_EQ(limited.status, 1);
  EXPECT_EQ(limited.err, "kofd: (standard input): standard input cannot be copied to a temporary file: File too large\n");
  // More than the library reads is refused with its reason (a sparse file costs no disk).
  const Outcome large = Kofd(dir, "info - < " + Quoted(dir.Path("large")), "truncate -s 4294967296 " + Quoted(dir.Path("large")) + " && ");
  EXPECT_EQ(large.status, 1);
  EXPECT_EQ(large.err, "kofd: (standard input): standard input holds more than 4294967295 bytes (0xffffffff), the most kofd reads\n");
  // The analyses read it too.
  EXPECT_EQ(Kofd(dir, "layout - < " + sO).out.rfind("(standard input): object of 0x", 0), 0u);
  EXPECT_EQ(Kofd(dir, "xref - uart_putc < " + sA).out, Kofd(dir, "xref " + sA + " uart_putc").out);
  const Outcome noTemp = Kofd(dir, "info - < " + sO, "TMPDIR=" + Quoted(dir.Path("none")) + " ");
  EXPECT_EQ(noTemp.status, 1);
  EXPECT_NE(noTemp.err.find("cannot be copied to a temporary file"), std::string::npos) << noTemp.err;
}

TEST(CliUsability, MemberSelectorsShowWhatTheExtractedMemberShows) {
  TempDir dir;
  const std::string sA = Quoted(kSampleA);
  ASSERT_EQ(Kofd(dir, "ar " + sA + " extract -C " + Quoted(dir.Path("")) + " sample.o uart.o").status, 0);
  const std::string sCd = "cd " + Quoted(dir.Path("")) + " && ";
  for (const char* pszMember : {"sample.o", "uart.o"}) {
    for (const char* pszSelectors : {"--file-header", "--section-headers", "--section .text", "--section 3 --file-header --section .symtab",
                                     "--program-headers"}) {
      const Outcome member = Kofd(dir, "dump " + sA + " --member " + pszMember + " " + pszSelectors, sCd);
      const Outcome extracted = Kofd(dir, std::string("dump ") + pszMember + " " + pszSelectors, sCd);
      EXPECT_EQ(member.status, extracted.status) << pszMember << pszSelectors;
      EXPECT_EQ(member.out, extracted.out) << pszMember << pszSelectors;
      if (member.status == 0) {
        EXPECT_FALSE(member.out.empty()) << pszMember << pszSelectors;
      }
    }
    const Outcome reloc = Kofd(dir, "reloc " + sA + " --member " + pszMember, sCd);
    EXPECT_EQ(reloc.status, 0) << reloc.err;
    EXPECT_EQ(reloc.out, Kofd(dir, std::string("reloc ") + pszMember, sCd).out);
  }
  const Outcome selected = Kofd(dir, "reloc " + sA + " --member sample.o --section .relxeb.text", sCd);
  EXPECT_EQ(selected.out, Kofd(dir, "reloc sample.o --section .relxeb.text", sCd).out);
  EXPECT_FALSE(selected.out.empty());
  // A name that is no member is named.
  for (const std::string& sCommand : std::vector<std::string>{"dump " + sA + " --member absent.o --section .text", "reloc " + sA + " --member absent.o"}) {
    const Outcome absent = Kofd(dir, sCommand);
    EXPECT_EQ(absent.status, 1);
    EXPECT_NE(absent.err.find("no member named absent.o"), std::string::npos) << absent.err;
  }
  // JSON shows the member's object restricted to what the selectors name.
  const nlohmann::json document =
      nlohmann::json::parse(Kofd(dir, "dump --json " + sA + " --member uart.o --section-headers --section .symtab").out);
  const nlohmann::json extracted = nlohmann::json::parse(Kofd(dir, "dump --json uart.o --section-headers --section .symtab", sCd).out);
  EXPECT_EQ(document["archive"]["members"][0]["object"], extracted["object"]);
  EXPECT_NE(extracted["object"], nlohmann::json::parse(Kofd(dir, "dump --json uart.o", sCd).out)["object"]);
}

TEST(CliUsability, TyposGetTheNearestNameAndEveryUsageErrorStartsWithKofd) {
  TempDir dir;
  const std::string sO = Quoted(kSampleO);
  const auto firstLine = [](const Outcome& run) { return run.err.substr(0, run.err.find('\n')); };
  EXPECT_EQ(firstLine(Kofd(dir, "dumb " + sO)), "kofd: unknown command \"dumb\"; did you mean \"dump\"?");
  EXPECT_EQ(firstLine(Kofd(dir, "symbls " + sO)), "kofd: unknown command \"symbls\"; did you mean \"symbols\"?");
  EXPECT_EQ(firstLine(Kofd(dir, "frobnicate " + sO)), "kofd: unknown command \"frobnicate\"");
  EXPECT_EQ(firstLine(Kofd(dir, "dump --section-header " + sO)),
            "kofd: dump: unknown option \"--section-header\"; did you mean \"--section-headers\"?");
  EXPECT_EQ(firstLine(Kofd(dir, "dump --secton=.text " + sO)), "kofd: dump: unknown option \"--secton\"; did you mean \"--section\"?");
  EXPECT_EQ(firstLine(Kofd(dir, "dump --everything " + sO)), "kofd: dump: unknown option \"--everything\"");
  EXPECT_EQ(firstLine(Kofd(dir, "ar " + sO + " lsit")), "kofd: ar: unknown command \"lsit\"; did you mean \"list\"?");
  // The hint names the help as it is asked for, the archive standing before ar's subcommand.
  EXPECT_EQ(Kofd(dir, "ar " + sO + " list --jsn").err,
            "kofd: ar list: unknown option \"--jsn\"; did you mean \"--json\"?\nRun kofd ar LIB list --help for more information.\n");
  // A section name that names none: the nearest of the object's names.
  const Outcome section = Kofd(dir, "dump " + sO + " --section .txet");
  EXPECT_EQ(section.status, 1);
  EXPECT_NE(section.err.find("no section named .txet; did you mean \".text\"?"), std::string::npos) << section.err;
  const Outcome far = Kofd(dir, "reloc " + sO + " --section .nothing-like-it");
  EXPECT_EQ(far.err.find("did you mean"), std::string::npos) << far.err;
  // Usage errors, CLI11's and the commands' own: "kofd:" first, exit 2.
  for (const std::string& sArguments : std::vector<std::string>
       {"dump", "dumb x", "info --frob x", "dump --contents " + sO, "symbols --defined --undefined " + sO, "xref " + sO,
        "map --addr zz " + sO, "new " + Quoted(dir.Path("n.o")) + " --chip zz", "edit " + sO + " --set-symbol x", "ar", "",
        "reloc --apply word " + sO}) {
    const Outcome run = Kofd(dir, sArguments);
    EXPECT_EQ(run.status, 2) << sArguments << run.err;
    EXPECT_EQ(run.err.rfind("kofd: ", 0), 0u) << sArguments << ": " << run.err;
  }
}

TEST(CliUsability, ASystemErrorStaysOnTheLineOfItsMessage) {
  TempDir dir;
  const std::string sReadOnly = dir.Path("ro");
  dir.Write("ro/x", "");
  for (const std::string& sArguments : std::vector<std::string>
       {"info " + Quoted(dir.Path("absent.o")), "dump " + Quoted(dir.Path("")), "symbols " + Quoted(dir.Path("none/x.o")),
        "edit " + Quoted(kSampleO) + " -o " + Quoted(dir.Path("none/out.o")),
        "reloc --apply word -o " + Quoted(dir.Path("none/out.o")) + " " + Quoted(kSampleO)}) {
    const Outcome run = Kofd(dir, sArguments);
    EXPECT_NE(run.status, 0) << sArguments;
    EXPECT_EQ(Lines(run.err).size(), 1u) << sArguments << ": " << run.err;
    EXPECT_EQ(run.err.rfind("kofd: ", 0), 0u) << run.err;
    EXPECT_NE(run.err.find("System Error: "), std::string::npos) << run.err;
  }
}

TEST(CliUsability, EveryHelpFitsEightyColumnsAndItsUsageNamesThePositionals) {
  TempDir dir;
  std::vector<std::string> commands = {""};
  const auto subcommands = [](const std::string& sHelp) {
    std::vector<std::string> names;
    bool bIn = false;
    for (const std::string& sLine : Lines(sHelp)) {
      if (sLine == "Subcommands:") bIn = true;
      else if (bIn && sLine.rfind("  ", 0) == 0 && sLine[2] != ' ') names.push_back(sLine.substr(2, sLine.find(' ', 2) - 2));
      else if (bIn && sLine.rfind("   ", 0) != 0) bIn = false;
    }
    return names;
  };
  for (const std::string& sCommand : subcommands(Kofd(dir, "--help").out)) commands.push_back(sCommand);
  for (const std::string& sCommand : subcommands(Kofd(dir, "ar LIB --help").out)) commands.push_back("ar LIB " + sCommand);
  EXPECT_GE(commands.size(), 20u);
  for (const std::string& sCommand : commands) {
    const Outcome help = Kofd(dir, sCommand + " --help");
    ASSERT_EQ(help.status, 0) << sCommand;
    const std::vector<std::string> lines = Lines(help.out);
    std::string sUsage;
    std::vector<std::string> positionals;
    bool bPositionals = false;
    for (const std::string& sLine : lines) {
      EXPECT_LE(sLine.size(), 80u) << "kofd " << sCommand << " --help: " << sLine;
      if (sLine.rfind("Usage: ", 0) == 0) sUsage = sLine;
      if (sLine == "Positionals:") bPositionals = true;
      else if (bPositionals && sLine.rfind("  ", 0) == 0 && sLine[2] != ' ') positionals.push_back(sLine.substr(2, sLine.find(' ', 2) - 2));
      else if (bPositionals && sLine.rfind("   ", 0) != 0) bPositionals = false;
    }
    ASSERT_FALSE(sUsage.empty()) << sCommand;
    // The usage line names the command as typed, with the positionals before it ("ar LIB list").
    EXPECT_EQ(sUsage.rfind("Usage: kofd" + (sCommand.empty() ? "" : " " + sCommand), 0), 0u) << sUsage;
    for (const std::string& sName : positionals) EXPECT_NE(sUsage.find(sName), std::string::npos) << sUsage << " lacks " << sName;
  }
  // bash completion reads the same help: a description that goes on to a second line does not end
  // the list of commands.
  const Outcome completion = RunShell(dir, "bash -c " + Quoted("source " + Quoted(std::string(KOFD_SOURCE_DIR) + "/cli/kofd.bash-completion") +
                                                            " && _kofd_subcommands " + Quoted(KOFD_CLI_PATH) + " | tr '\\n' ' '"));
  EXPECT_EQ(completion.out, "info reloc dump ar browse edit new export-elf build xref diff map layout symbols ");
}

}  // namespace
