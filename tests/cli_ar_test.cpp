// kofd ar, run as a user runs it: listings, refusals, and changes that succeed whole or not at all.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <filesystem>
#include <string>
#include <vector>

#include "archive_objects.h"
#include "archive_writer.h"
#include "cli_run.h"

namespace {

// a.o (alpha, beta), b.o (gamma) and c.o (delta) in dir, run from dir so that they are named so.
struct Objects {
  explicit Objects(const TempDir& where) : dir(where) {
    a = dir.Write("a.o", AsString(ObjectWith({{"alpha", 1}, {"beta", 1}})));
    b = dir.Write("b.o", AsString(ObjectWith({{"gamma", 1}})));
    c = dir.Write("c.o", AsString(ObjectWith({{"delta", 1}})));
    dir.Write("clash.o", AsString(ObjectWith({{"epsilon", 1}, {"gamma", 1}})));
  }
  Outcome Ar(const std::string& sArguments, const std::string& sPrefix = "") const {
    return Kofd(dir, "ar lib.a " + sArguments, "cd " + Quoted(dir.Path("")) + " && " + sPrefix);
  }
  const TempDir& dir;
  std::string a, b, c;
};

std::size_t FilesIn(const TempDir& dir) {
  std::size_t n = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path(""))) n += entry.is_regular_file();
  return n;
}

// The peak resident size of kofd run with sArguments in dir, in KiB, as /usr/bin/time measures
// it (a small process of its own that starts the tool: a process forked from the test itself
// would count the test's pages); -1 when the tool does not exit with status.
long PeakKiB(const TempDir& dir, const std::string& sArguments, int status = 0) {
  const Outcome outcome = RunShell(dir, "cd " + Quoted(dir.Path("")) + " && /usr/bin/time -f %M -o peak " +
                                            Quoted(KOFD_CLI_PATH) + " " + sArguments);
  // The last line: a status other than 0 puts "Command exited with non-zero status N" first.
  std::string sPeak = TempDir::Read(dir.Path("peak"));
  while (!sPeak.empty() && sPeak.back() == '\n') sPeak.pop_back();
  sPeak = sPeak.substr(sPeak.find_last_of('\n') == std::string::npos ? 0 : sPeak.find_last_of('\n') + 1);
  return outcome.status == status && !sPeak.empty() ? std::stol(sPeak) : -1;
}

}  // namespace

TEST(CliAr, CreatesListsFindsAddsAndRemoves) {
  TempDir dir;
  const Objects objects(dir);
  ASSERT_EQ(objects.Ar("create a.o b.o").status, 0);
  EXPECT_EQ(objects.Ar("list").out, "0\t" + std::to_string(TempDir::Read(objects.a).size()) + "\ta.o\n1\t" +
                                        std::to_string(TempDir::Read(objects.b).size()) + "\tb.o\n");
  EXPECT_EQ(objects.Ar("symbols").out, "alpha\ta.o\nbeta\ta.o\ngamma\tb.o\n");
  EXPECT_EQ(objects.Ar("find gamma").out, "b.o\n");
  const Outcome missing = objects.Ar("find GAMMA");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "kofd: lib.a: no member defines GAMMA\n");

  // Refusals name what is in the way and leave the archive as it was.
  const std::string sBefore = TempDir::Read(dir.Path("lib.a"));
  const Outcome twice = objects.Ar("add B.O");
  EXPECT_EQ(twice.status, 1);
  EXPECT_EQ(twice.err, "kofd: B.O: the archive already has a member named b.o\n");
  EXPECT_EQ(objects.Ar("remove nothing.o").err, "kofd: lib.a: no member named nothing.o\n");
  EXPECT_EQ(objects.Ar("create").err, "kofd: lib.a: already exists\n");
  EXPECT_EQ(TempDir::Read(dir.Path("lib.a")), sBefore);

  ASSERT_EQ(objects.Ar("add c.o").status, 0);
  ASSERT_EQ(objects.Ar("remove A.O").status, 0);
  EXPECT_EQ(objects.Ar("list").out, "0\t" + std::to_string(TempDir::Read(objects.b).size()) + "\tb.o\n1\t" +
                                        std::to_string(TempDir::Read(objects.c).size()) + "\tc.o\n");
  EXPECT_EQ(objects.Ar("symbols").out, "gamma\tb.o\ndelta\tc.o\n");
  // The members that stay keep their bytes; nothing is left beside the archive.
  const std::string sAfter = TempDir::Read(dir.Path("lib.a"));
  EXPECT_NE(sAfter.find(TempDir::Read(objects.b)), std::string::npos);
  EXPECT_NE(sAfter.find(TempDir::Read(objects.c)), std::string::npos);
  EXPECT_EQ(sAfter.find(TempDir::Read(objects.a)), std::string::npos);
  EXPECT_EQ(FilesIn(dir), 7u);  // four objects, the archive, stdout and stderr
}

TEST(CliAr, EverySubcommandHasHelpAndUsageErrorsExit2) {
  TempDir dir;
  for (const char* pszCommand : {"", "list", "symbols", "find", "create", "add", "remove"}) {
    const Outcome help = Kofd(dir, std::string("ar lib.a ") + pszCommand + " --help");
    EXPECT_EQ(help.status, 0) << pszCommand;
    EXPECT_NE(help.out.find("Usage:"), std::string::npos) << pszCommand;
  }
  for (const char* pszArguments : {"ar", "ar lib.a", "ar lib.a find", "ar lib.a add", "ar lib.a frob"}) {
    EXPECT_EQ(Kofd(dir, pszArguments).status, 2) << pszArguments;
  }
  const Outcome missing = Kofd(dir, "ar " + Quoted(dir.Path("none.a")) + " list");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err.rfind("kofd: " + dir.Path("none.a") + ": error 1013: ", 0), 0u) << missing.err;
}

TEST(CliAr, AWriteAtTheFileSizeLimitFailsAndLeavesTheArchiveUntouched) {
  TempDir dir;
  const Objects objects(dir);
  ASSERT_EQ(objects.Ar("create a.o b.o").status, 0);
  dir.Write("big.o", AsString(ObjectWith({{"big", 1}, {std::string(20000, 'x'), 1}})));
  const std::string sBefore = TempDir::Read(dir.Path("lib.a"));
  // The tool ignores the limit's signal: the write fails, is reported, and its temporary goes.
  const Outcome failed = objects.Ar("add big.o", "ulimit -f 16 && ");
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.err.rfind("kofd: lib.a: error 1015: failed to write to file specified(", 0), 0u) << failed.err;
  EXPECT_NE(failed.err.find("System Error: File too large"), std::string::npos) << failed.err;
  EXPECT_EQ(FilesIn(dir), 8u) << "the temporary file was left behind";
  EXPECT_EQ(TempDir::Read(dir.Path("lib.a")), sBefore);
}

TEST(CliAr, ManyChangesShowProgressOnATerminal) {
  TempDir dir;
  std::string sObjects;
  for (int i = 0; i < 12; ++i) {
    const std::string sName = "m" + std::to_string(i) + ".o";
    dir.Write(sName, AsString(ObjectWith({{"f" + std::to_string(i), 1}})));
    sObjects += " " + sName;
  }
  const std::string sTool = Quoted(KOFD_CLI_PATH);
  const Outcome piped = Kofd(dir, "ar lib.a create" + sObjects, "cd " + Quoted(dir.Path("")) + " && ");
  EXPECT_EQ(piped.err, "");
  const Outcome terminal = RunShell(dir, "cd " + Quoted(dir.Path("")) + " && script -qec " +
                                             Quoted(sTool + " ar lib.a remove" + sObjects) + " /dev/null");
  EXPECT_NE(terminal.out.find("kofd: removing 12/12"), std::string::npos) << terminal.out;
}

// A linker member that gives its last symbol no member: the JSON answers fail before their first
// byte, though the listing before the bad symbol is larger than the writer's block.
TEST(CliAr, JsonFailsWholeOnADamagedLinkerMember) {
  TempDir dir;
  kelf_test::ArchiveBuilder builder;
  builder.AddMember("a.o", ObjectWith({{"alpha", 1}}));
  builder.AddSymbol("alpha", 0);
  for (int i = 0; i < 20000; ++i) builder.AddSymbol("symbol_" + std::to_string(i) + std::string(64, 'x'), 0);
  builder.AddSymbol("ghost", 7);
  builder.WriteFile(dir.Path("lib.a"));
  const Objects objects(dir);
  for (const char* pszArguments : {"symbols --json", "find ghost --json"}) {
    const Outcome outcome = objects.Ar(pszArguments);
    EXPECT_EQ(outcome.status, 1) << pszArguments;
    EXPECT_EQ(outcome.out, "") << pszArguments;
    EXPECT_EQ(outcome.err, "kofd: lib.a: the linker member gives symbol ghost no member of the archive\n") << pszArguments;
  }
  EXPECT_EQ(objects.Ar("find alpha --json").out, "{\"schema\":\"kofd/1\",\"command\":\"ar find\",\"file\":\"lib.a\",\"symbol\":\"alpha\",\"member\":\"a.o\"}");
}

// The members a change keeps are copied from the old file a block at a time: adding to or
// removing from an archive of two 24 MiB members holds neither of them. Under the sanitizers the
// peak is their shadow memory and quarantine, not the tool's, and only the bytes are checked.
#if defined(__SANITIZE_ADDRESS__)
constexpr long kMostHeldKiB = LONG_MAX;
#else
constexpr long kMostHeldKiB = 20 * 1024;
#endif
TEST(CliAr, ChangesToALargeArchiveHoldNoMemberWhole) {
  if (access("/usr/bin/time", X_OK) != 0) GTEST_SKIP() << "no /usr/bin/time";
  TempDir dir;
  const Objects objects(dir);
  const std::size_t nMember = 24u << 20;
  {
    kelf_test::ArchiveBuilder builder;
    builder.AddMember("big1.o", kelf_test::Bytes(nMember, 0x11));
    builder.AddMember("big2.o", kelf_test::Bytes(nMember + 1, 0x22));
    builder.WriteFile(dir.Path("lib.a"));
  }
  // A write that fails inside a member copied by the system leaves the archive as it was.
  const std::string sBefore = TempDir::Read(dir.Path("lib.a"));
  const Outcome limited = objects.Ar("add a.o", "ulimit -f 30000 && ");
  EXPECT_NE(limited.status, 0);
  EXPECT_EQ(limited.err.rfind("kofd: lib.a: error 1015: failed to write to file specified(", 0), 0u) << limited.err;
  EXPECT_NE(limited.err.find("System Error: File too large"), std::string::npos) << limited.err;
  EXPECT_EQ(FilesIn(dir), 7u) << "the temporary file was left behind";  // 4 objects, lib.a, stdout, stderr
  EXPECT_TRUE(TempDir::Read(dir.Path("lib.a")) == sBefore);

  const long lAdd = PeakKiB(dir, "ar lib.a add a.o");
  EXPECT_GT(lAdd, 0);
  EXPECT_LT(lAdd, kMostHeldKiB) << "kofd ar add held " << lAdd << " KiB";
  const long lRemove = PeakKiB(dir, "ar lib.a remove big1.o");
  EXPECT_GT(lRemove, 0);
  EXPECT_LT(lRemove, kMostHeldKiB) << "kofd ar remove held " << lRemove << " KiB";
  const std::string sAfter = TempDir::Read(dir.Path("lib.a"));
  EXPECT_EQ(objects.Ar("list").out, "0\t25165825\tbig2.o\n1\t" + std::to_string(TempDir::Read(objects.a).size()) + "\ta.o\n");
  EXPECT_EQ(sAfter.find(std::string(nMember + 1, 0x22)) + nMember + 1 + 60 + TempDir::Read(objects.a).size(), sAfter.size());

  // check (and its fix), replace and extract walk the file and copy the members the same way.
  const long lCheck = PeakKiB(dir, "ar lib.a check --fix", 1);
  EXPECT_GT(lCheck, 1000);
  EXPECT_LT(lCheck, kMostHeldKiB) << "kofd ar check --fix held " << lCheck << " KiB";
  const long lReplace = PeakKiB(dir, "ar lib.a replace a.o");
  EXPECT_GT(lReplace, 0);
  EXPECT_LT(lReplace, kMostHeldKiB) << "kofd ar replace held " << lReplace << " KiB";
  std::filesystem::create_directory(dir.Path("out"));
  const long lExtract = PeakKiB(dir, "ar lib.a extract big2.o -C out");
  EXPECT_GT(lExtract, 0);
  EXPECT_LT(lExtract, kMostHeldKiB) << "kofd ar extract held " << lExtract << " KiB";
  EXPECT_TRUE(TempDir::Read(dir.Path("out/big2.o")) == std::string(nMember + 1, 0x22));
  const std::string sFixed = TempDir::Read(dir.Path("lib.a"));
  EXPECT_EQ(sFixed.find(std::string(nMember + 1, 0x22)) + nMember + 1 + 60 + TempDir::Read(objects.a).size(), sFixed.size());
  EXPECT_EQ(sFixed.substr(sFixed.size() - TempDir::Read(objects.a).size()), TempDir::Read(objects.a));
}
