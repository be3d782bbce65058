// The kofd tool, run as a user runs it: output, error text and exit status.
#include <string>

#include <gtest/gtest.h>

#include "cli_run.h"
#include "kelf_writer.h"

TEST(Cli, VersionPrintsTheBanner) {
  TempDir dir;
  const Outcome run = Kofd(dir, "--version");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "Quillbox object file descriptor Ver. 3.00.01-122499\n");
}

TEST(Cli, InfoNamesTheKindOfFile) {
  TempDir dir;
  const std::string sObject = dir.Write("it's an object.o", "\x7F" "ELF\x01\x01\x01 and no header");
  const std::string sArchive = dir.Write("lib.a", "!<arch>\n");
  EXPECT_EQ(Kofd(dir, "info " + Quoted(sObject)).out, sObject + ": KELF object\n");
  EXPECT_EQ(Kofd(dir, "info " + Quoted(sArchive)).out, sArchive + ": archive\n");
  for (const std::string& sPath : {dir.Write("notes.txt", "!<arch> is not enough\n"), dir.Write("empty", "")}) {
    const Outcome run = Kofd(dir, "info " + Quoted(sPath));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, sPath + ": neither a KELF object nor an archive\n");
  }
}

TEST(Cli, FailuresAndUsageErrorsHaveTheirOwnExitStatus) {
  TempDir dir;
  const std::string sMissing = dir.Path("missing.o");
  const Outcome missing = Kofd(dir, "info " + Quoted(sMissing));
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err.rfind("kofd: " + sMissing + ": error 1013: failed to open file specified(" + sMissing + "). ", 0), 0u)
      << missing.err;
  for (const char* pszArguments : {"info", "info --no-such-option x", "no-such-command", ""}) {
    EXPECT_EQ(Kofd(dir, pszArguments).status, 2) << pszArguments;
  }
  EXPECT_EQ(Kofd(dir, "info --help").status, 0);
}

TEST(Cli, InfoSummarisesAnObjectAndReportsADamagedOne) {
  TempDir dir;
  using namespace kelf_test;
  ObjectBuilder object;
  object.Header().chip = 0x1A2B;
  StringTable names = StringTable::WithNul();
  const Bytes symbols = Join({Sym(0, 0, 0, 0, 0, 0, 0), Sym(names.Add("main"), 0, 4, kStbGlobal, kSttFunction, 0, 1)});
  object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(8, 0), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  const Bytes bytes = object.Build();
  const std::string sPath = dir.Write("small.o", std::string(bytes.begin(), bytes.end()));
  const Outcome run = Kofd(dir, "info " + Quoted(sPath));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, sPath + ": KELF object\n"
                     "chip: K1a2b\ntype: RELOCATABLE\nsections: 5\n"
                     "      0                   Inact             0\n"
                     "      1  .text            Prgbit            8\n"
                     "      2  .symtab          Symtab           32\n"
                     "      3  .symstrtab       Strtab            6\n"
                     "      4  .shstrtab        Strtab           36\n"
                     "symbols: 2\n");

  const std::string sDamaged = dir.Write("damaged.o", "\x7F" "ELF\x01\x01\x01 and no header");
  const Outcome damaged = Kofd(dir, "info " + Quoted(sDamaged));
  EXPECT_EQ(damaged.status, 1);
  EXPECT_EQ(damaged.err.rfind("kofd: " + sDamaged + ": error 10", 0), 0u) << damaged.err;
}
