// kofd symbols: the nm-style listing of the samples, every class letter on an object made to show
// each, names that cannot break the columns, the filters and the exit statuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "cli_run.h"
#include "frame_temp_dir.h"

namespace {

std::string Golden(const std::string& sName) { return TempDir::Read(std::string(KOFD_GOLDEN_DIR) + "/" + sName); }

std::vector<std::string> Lines(const std::string& sText) {
  std::vector<std::string> lines;
  std::istringstream in(sText);
  for (std::string sLine; std::getline(in, sLine);) lines.push_back(sLine);
  return lines;
}

TEST(CliSymbols, ListsTheSamplesAsTheGoldenTextShowsThem) {
  TempDir dir;
  const std::string sCd = "cd " + Quoted(std::string(KOFD_EXAMPLES_DIR) + "/..") + " && ";
  Outcome run = Kofd(dir, "symbols examples/sample.o", sCd);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, Golden("symbols_sample_o.txt"));
  run = Kofd(dir, "symbols examples/sample.a", sCd);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, Golden("symbols_sample_a.txt"));
  // The filters split the listing: every line is in exactly one of them.
  const Outcome defined = Kofd(dir, "symbols --defined examples/sample.a", sCd);
  const Outcome undefined = Kofd(dir, "symbols --undefined examples/sample.a", sCd);
  ASSERT_EQ(defined.status, 0);
  ASSERT_EQ(undefined.status, 0);
  std::size_t nSymbols = 0, nDefined = 0, nUndefined = 0;
  for (const std::string& sLine : Lines(run.out)) nSymbols += sLine.rfind("0x", 0) == 0;
  for (const std::string& sLine : Lines(defined.out)) {
    if (sLine.rfind("0x", 0) != 0) continue;
    ++nDefined;
    EXPECT_NE(sLine[22], 'U') << sLine;
    EXPECT_NE(sLine[22], 'w') << sLine;
  }
  for (const std::string& sLine : Lines(undefined.out)) {
    if (sLine.rfind("0x", 0) != 0) continue;
    ++nUndefined;
    EXPECT_TRUE(sLine[22] == 'U' || sLine[22] == 'w') << sLine;
  }
  EXPECT_GT(nUndefined, 0u);
  EXPECT_EQ(nDefined + nUndefined, nSymbols);

  run = Kofd(dir, "symbols --defined --undefined examples/sample.o", sCd);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("kofd: symbols: "), std::string::npos);
  run = Kofd(dir, "symbols " + Quoted(dir.Path("absent.o")));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.rfind("kofd: ", 0), 0u) << run.err;
}

// One symbol per letter, a name with a tab and a name longer than any column: each line keeps
// its four columns, one space apart, and the names come out escaped and whole.
TEST(CliSymbols, EachClassHasItsLetterAndNamesNeverBreakTheColumns) {
  TempDir dir;
  const std::string sLong(300, 'L');
  {
    std::ofstream out(dir.Path("classes.json"));
    out << R"({"schema": "kofd/1", "object": {"header": {"chip": 110, "type": 1},
  "sections": [
    {"name": ".text", "type": 1, "flags": 6, "contents": "0000000000000000"},
    {"name": ".data", "type": 1, "flags": 3, "contents": "00000000"},
    {"name": ".rodata", "type": 1, "flags": 2, "contents": "00000000"},
    {"name": ".comment", "type": 1, "flags": 0, "contents": "00000000"}],
  "symbols": [
    {"name": "f.c", "bind": "local", "type": "file", "section": 65521},
    {"name": "sect", "bind": "local", "type": "section", "section": 1},
    {"name": "tab\there", "value": 4, "size": 2, "bind": "global", "type": "func", "section": ".text"},
    {"name": ")" << sLong << R"(", "bind": "local", "type": "object", "section": ".data"},
    {"name": "ro", "bind": "local", "section": ".rodata"},
    {"name": "note", "bind": "global", "section": ".comment"},
    {"name": "abs", "value": 4660, "bind": "global", "section": 65521},
    {"name": "common", "size": 8, "bind": "global", "section": 65522},
    {"name": "strong_undef", "bind": "global", "section": 0},
    {"name": "weak_undef", "bind": "weak", "section": 0},
    {"name": "weak_def", "bind": "weak", "section": ".text"},
    {"name": "lost", "bind": "global", "section": 65280}]}})";
  }
  Outcome run = Kofd(dir, "build " + Quoted(dir.Path("classes.json")) + " -o " + Quoted(dir.Path("classes.o")));
  ASSERT_EQ(run.status, 0) << run.err;
  run = Kofd(dir, "symbols " + Quoted(dir.Path("classes.o")));
  ASSERT_EQ(run.status, 0) << run.err;
  const std::regex line("0x[0-9a-f]{8} 0x[0-9a-f]{8} [UAaCcTtDdRrNnWw?] [^\\s].*");
  std::vector<std::string> seen;
  for (const std::string& sLine : Lines(run.out)) {
    EXPECT_TRUE(std::regex_match(sLine, line)) << sLine;
    EXPECT_EQ(sLine.find('\t'), std::string::npos) << sLine;
    seen.push_back(sLine.substr(22));
  }
  // The file and section symbols are left out; the order is the table's (locals first).
  const std::vector<std::string> expected = {"d " + sLong, "r ro",         "T tab\\x09here", "N note",
                                             "A abs",      "C common",     "U strong_undef", "w weak_undef",
                                             "W weak_def", "? lost"};
  std::vector<std::string> sortedSeen = seen, sortedExpected = expected;
  std::sort(sortedSeen.begin(), sortedSeen.end());
  std::sort(sortedExpected.begin(), sortedExpected.end());
  EXPECT_EQ(sortedSeen, sortedExpected) << run.out;
  EXPECT_NE(run.out.find("0x00001234 0x00000000 A abs\n"), std::string::npos);
  EXPECT_NE(run.out.find("0x00000004 0x00000002 T tab\\x09here\n"), std::string::npos);
}

}  // namespace
