// kofd edit and kofd new, run as a user runs them: each edit changes the dump only where it says,
// references follow renumbering, refusals name the reference and leave every file as it was.
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli_run.h"

namespace {

const std::string kSample = std::string(KOFD_EXAMPLES_DIR) + "/sample.o";

struct Changes {
  std::vector<std::string> removed, added;
};

std::vector<std::string> Lines(const std::string& sText) {
  std::vector<std::string> lines;
  std::istringstream in(sText);
  for (std::string sLine; std::getline(in, sLine);) lines.push_back(sLine);
  return lines;
}

// The lines only one of the two texts has (as multisets, in the order they appear).
Changes Compare(const std::string& sBefore, const std::string& sAfter) {
  Changes changes;
  const std::vector<std::string> before = Lines(sBefore), after = Lines(sAfter);
  std::map<std::string, int> counts;
  for (const std::string& sLine : before) ++counts[sLine];
  for (const std::string& sLine : after) {
    if (counts[sLine]-- <= 0) changes.added.push_back(sLine);
  }
  counts.clear();
  for (const std::string& sLine : after) ++counts[sLine];
  for (const std::string& sLine : before) {
    if (counts[sLine]-- <= 0) changes.removed.push_back(sLine);
  }
  return changes;
}

TEST(CliEdit, WithoutAnEditTheCopyIsByteIdentical) {
  TempDir dir;
  const Outcome run = Kofd(dir, "edit " + Quoted(kSample) + " -o " + Quoted(dir.Path("copy.o")));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(TempDir::Read(dir.Path("copy.o")), TempDir::Read(kSample));
}

TEST(CliEdit, EachEditChangesTheDumpOnlyWhereItSays) {
  TempDir dir;
  const std::string sBefore = Kofd(dir, "dump " + Quoted(kSample)).out;
  dir.Write("word.bin", "\x01\x02\x03\x04");
  struct Case {
    std::string sEdit;
    std::vector<std::string> removedParts, addedParts;  // one fragment per changed line
  };
  const Case cases[] = {
      {"--set-symbol main=0x44", {"      40       a0Function Global"}, {"      44       a0Function Global"}},
      {"--set-section-address .text=32768", {"  [1]  Prgbit    XA        0 "}, {"  [1]  Prgbit    XA     8000 "}},
      {"--rename-section .data=.mydata", {"  [2]  Prgbit", " [15]  Strtab"}, {"0  129", " [15]  Strtab    --        0      dc0       89", "[129]\t.mydata"}},
      {"--rename-symbol led_state=led", {"  [3]  Strtab", "32 led_state"}, {"  [3]  Strtab    --        0      dc0       7f", "[123]\tled", "123 led"}},
      {"--patch .data:0x7c=a1b2c3d4", {"84100ab4\t61173683"}, {"84100ab4\td4c3b2a1"}},
      {"--set-contents .data=" + Quoted(dir.Path("word.bin")),
       {"  [2]  Prgbit    AW     8000      558       80", "46416a66", "a52abc11", "b72f3f30", "a87e5973", "f1457bca", "01362d65", "84100ab4"},
       {"  [2]  Prgbit    AW     8000      558        4", "04030201"}},
  };
  for (const Case& edit : cases) {
    const Outcome run = Kofd(dir, "edit " + Quoted(kSample) + " -o " + Quoted(dir.Path("out.o")) + " " + edit.sEdit);
    ASSERT_EQ(run.status, 0) << edit.sEdit << ": " << run.err;
    const Changes changes = Compare(sBefore, Kofd(dir, "dump " + Quoted(dir.Path("out.o"))).out);
    auto expectLines = [&](const std::vector<std::string>& lines, const std::vector<std::string>& parts, const char* pszWhich) {
      ASSERT_EQ(lines.size(), parts.size()) << edit.sEdit << " " << pszWhich << ":\n" << ::testing::PrintToString(lines);
      for (std::size_t i = 0; i < parts.size(); ++i) EXPECT_NE(lines[i].find(parts[i]), std::string::npos) << edit.sEdit << ": " << lines[i];
    };
    expectLines(changes.removed, edit.removedParts, "removed");
    expectLines(changes.added, edit.addedParts, "added");
  }
}

TEST(CliEdit, RemovingRenumbersWhatRelocationsNameAndAddingAppends) {
  TempDir dir;
  const std::string sOut = dir.Path("out.o");
  const Outcome run = Kofd(dir, "edit " + Quoted(kSample) + " -o " + Quoted(sOut) +
                                    " --add-symbol extra=.data:0x10 --remove-section .srom --remove-symbol wait_loop"
                                    " --add-section .more=" + Quoted(dir.Write("more.bin", "abcd")));
  ASSERT_EQ(run.status, 0) << run.err;
  // Every expression still names the same symbols and evaluates the same.
  const Changes reloc = Compare(Kofd(dir, "reloc " + Quoted(kSample)).out, Kofd(dir, "reloc " + Quoted(sOut)).out);
  EXPECT_EQ(reloc.removed, std::vector<std::string>{"section 14 .relxeb.text"});
  EXPECT_EQ(reloc.added, std::vector<std::string>{"section 13 .relxeb.text"});
  const std::string sInfo = Kofd(dir, "info " + Quoted(sOut)).out;
  EXPECT_NE(sInfo.find("     15  .more            Prgbit   0x00000004\n"), std::string::npos) << sInfo;
  EXPECT_NE(sInfo.find("symbols: 15\n"), std::string::npos) << sInfo;
  const std::string sSymbols = Kofd(dir, "dump " + Quoted(sOut) + " --section .symtab").out;
  EXPECT_NE(sSymbols.find(" [14]       10        0  NoType Global"), std::string::npos) << sSymbols;
}

TEST(CliEdit, RefusalsNameTheReferenceAndWriteNothing) {
  TempDir dir;
  const std::string sIn = dir.Write("in.o", TempDir::Read(kSample)), sOut = dir.Path("out.o");
  const struct {
    std::string sEdit, sWords;
  } refusals[] = {
      {"--remove-symbol led_toggle", "cannot remove symbol led_toggle: expression record 0 of section 13 (.expr) names it"},
      {"--remove-section .text", "cannot remove section 1 (.text): symbol .text lives in it"},
      {"--remove-section .expr", "cannot remove section 13 (.expr): section 14 (.relxeb.text) links to it"},
      {"--patch .text:0x12=00", "relocation record 0 of section 14 (.relxeb.text)"},
      {"--patch .text:0x4ff=0000", "passes the end of section 1 (.text)"},
      {"--set-symbol nothing=1", "no symbol named nothing"},
      {"--rename-section 99=.x", "no section 99, the object has 16"},
      {"--set-symbol main=1 --remove-symbol led_toggle", "expression record 0"},
  };
  for (const auto& refusal : refusals) {
    for (const std::string& sTarget : {std::string(" -o ") + Quoted(sOut), std::string()}) {
      const Outcome run = Kofd(dir, "edit " + Quoted(sIn) + sTarget + " " + refusal.sEdit);
      EXPECT_EQ(run.status, 1) << refusal.sEdit;
      EXPECT_NE(run.err.find("kofd: " + sIn + ": "), std::string::npos) << run.err;
      EXPECT_NE(run.err.find(refusal.sWords), std::string::npos) << run.err;
      EXPECT_EQ(TempDir::Read(sIn), TempDir::Read(kSample)) << refusal.sEdit;
      EXPECT_FALSE(std::ifstream(sOut).good()) << refusal.sEdit;
    }
  }
  // Forced, the patch is made, in place.
  EXPECT_EQ(Kofd(dir, "edit " + Quoted(sIn) + " --patch .text:0x12=00 --force").status, 0);
  const std::string sPatched = TempDir::Read(sIn), sOriginal = TempDir::Read(kSample);
  ASSERT_EQ(sPatched.size(), sOriginal.size());
  EXPECT_EQ(sPatched.substr(0, 0x58 + 0x12) + sPatched.substr(0x58 + 0x13), sOriginal.substr(0, 0x58 + 0x12) + sOriginal.substr(0x58 + 0x13));
  EXPECT_EQ(sPatched[0x58 + 0x12], '\0');
}

TEST(CliEdit, UsageErrorsNewObjectsAndHelp) {
  TempDir dir;
  const std::string sIn = Quoted(kSample);
  for (const char* pszEdit : {"--set-symbol main=4294967296", "--set-symbol main", "--set-section-address .text=0x1g",
                              "--patch .text=00", "--patch .text:0=0", "--add-symbol x=.text"}) {
    const Outcome run = Kofd(dir, "edit " + sIn + " -o " + Quoted(dir.Path("out.o")) + " " + pszEdit);
    EXPECT_EQ(run.status, 2) << pszEdit << run.err;
  }
  EXPECT_EQ(Kofd(dir, "edit --help").status, 0);
  EXPECT_EQ(Kofd(dir, "new --help").status, 0);
  const std::string sNew = Quoted(dir.Path("new.o"));
  EXPECT_EQ(Kofd(dir, "new " + sNew + " --chip 0x6e --type 70000").status, 2);
  ASSERT_EQ(Kofd(dir, "new " + sNew + " --chip 0x6e --type 1").status, 0);
  EXPECT_NE(Kofd(dir, "new " + sNew + " --chip 0x6e --type 1").err.find("already exists"), std::string::npos);
  EXPECT_EQ(Kofd(dir, "edit " + sNew + " --add-section .text=" + Quoted(dir.Write("t.bin", "code")) + " --add-symbol main=.text:0").status, 0);
  const std::string sInfo = Kofd(dir, "info " + sNew).out;
  EXPECT_NE(sInfo.find("chip: K6e\n"), std::string::npos) << sInfo;
  EXPECT_NE(sInfo.find("symbols: 2\n"), std::string::npos) << sInfo;
}

}  // namespace
