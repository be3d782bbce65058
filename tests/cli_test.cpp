// The kofd tool, run as a user runs it: output, error text and exit status.
#include <fstream>
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
                     "  index  name             type           size\n"
                     "      0                   Inact    0x00000000\n"
                     "      1  .text            Prgbit   0x00000008\n"
                     "      2  .symtab          Symtab   0x00000020\n"
                     "      3  .symstrtab       Strtab   0x00000006\n"
                     "      4  .shstrtab        Strtab   0x00000024\n"
                     "symbols: 2\n");

  const std::string sDamaged = dir.Write("damaged.o", "\x7F" "ELF\x01\x01\x01 and no header");
  const Outcome damaged = Kofd(dir, "info " + Quoted(sDamaged));
  EXPECT_EQ(damaged.status, 1);
  EXPECT_EQ(damaged.err.rfind("kofd: " + sDamaged + ": error 10", 0), 0u) << damaged.err;
}

TEST(Cli, RelocListsValuesAndExpressionsAndAppliesThemToACopy) {
  using namespace kelf_test;
  TempDir dir;
  StringTable names = StringTable::WithNul();
  const Bytes symbols = Join({Sym(0, 0, 0, 0, 0, 0, 0), Sym(names.Add("port"), 0x12000034, 0, kStbGlobal, 0, 0, 0xFFF1)});
  const Bytes tokens = Join({Exp(13, 1), Exp(12, 4), Exp(1, 0), Exp(12, 5), Exp(8, 0)});
  ObjectBuilder builder;
  builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Words({0, 0, 0, 0}), {}, {}, {}});
  builder.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  builder.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  builder.AddSection({".expr", kShtExpr, 0, 0, 2, 0, 4, 8, tokens, {}, {}, {}});
  builder.AddSection({".rel", kShtRelxeb, 0, 0, 4, 1, 4, 20, Join({Relxeb(1, 1, 0, 0, 31, 0, 2), Relxeb(2, 0, 0, 0, 7, 3, 4)}), {}, {}, {}});
  builder.AddSection({".good", kShtRelxeb, 0, 0, 4, 1, 4, 20, Relxeb(1, 1, 0, 0, 31, 0, 2), {}, {}, {}});
  ObjectLayout layout;
  const Bytes bytes = builder.Build(&layout);
  const std::string sObject = dir.Write("relocated.o", std::string(bytes.begin(), bytes.end()));
  const std::string sOut = dir.Path("out.o");

  const Outcome listed = Kofd(dir, "reloc " + Quoted(sObject));
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(listed.out,
            "section 5 .rel\n"
            "0\t00000001\t0..31\t12000038\t(port + 4)\n"
            "1\t00000002\t0..7\terror 0x80004005\t ~5\n"
            "section 6 .good\n"
            "0\t00000001\t0..31\t12000038\t(port + 4)\n");

  // A relocation that cannot be evaluated stops the change before anything is written.
  const Outcome failed = Kofd(dir, "reloc " + Quoted(sObject) + " --apply word -o " + Quoted(sOut));
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.err, "kofd: " + sObject + ": relocation section 5 cannot be applied (0x80004005)\n");
  EXPECT_FALSE(std::ifstream(sOut).good());

  const Outcome applied = Kofd(dir, "reloc " + Quoted(sObject) + " --section .GOOD --apply word -o " + Quoted(sOut));
  EXPECT_EQ(applied.status, 0) << applied.err;
  EXPECT_EQ(applied.out, "high byte 12 at 00000001\n");
  std::string expected(bytes.begin(), bytes.end());
  expected.replace(layout.sectionOffsets[1] + 4, 4, "\x38\x00\x00\x12", 4);
  EXPECT_EQ(TempDir::Read(sOut), expected);

  const Outcome notRelocation = Kofd(dir, "reloc " + Quoted(sObject) + " --section 1");
  EXPECT_EQ(notRelocation.status, 1);
  EXPECT_EQ(notRelocation.err, "kofd: " + sObject + ": section 1 is not a relocation section of type 22\n");
  EXPECT_EQ(Kofd(dir, "reloc " + Quoted(sObject) + " --apply word").status, 2);
}

// The listing of every item is the golden text that the DLL suite also reads off the real Win32
// controls for the same object.
TEST(Cli, BrowseRendersTheTreeAndTheListsOfItsItems) {
  TempDir dir;
  const std::string sSample = Quoted(std::string(KOFD_EXAMPLES_DIR) + "/sample.o");
  const Outcome all = Kofd(dir, "browse " + sSample + " --all");
  EXPECT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(all.out, TempDir::Read(std::string(KOFD_GOLDEN_DIR) + "/browse_sample_o.txt"));
  const std::string sGolden = TempDir::Read(std::string(KOFD_GOLDEN_DIR) + "/browse_sample_o.txt");
  EXPECT_EQ(Kofd(dir, "browse " + sSample).out, sGolden.substr(0, sGolden.find("\n\n") + 1));
  EXPECT_EQ(Kofd(dir, "browse " + sSample + " --select '.BANKINFO'").out,
            "Address  Bank\n0        0\n100      0\n4000     1\n8000     2\nc000     3\n");
  EXPECT_EQ(Kofd(dir, "browse " + sSample + " --select .none").err, "kofd: " + std::string(KOFD_EXAMPLES_DIR) +
                                                                        "/sample.o: no item .none in the tree\n");
  EXPECT_EQ(Kofd(dir, "browse " + sSample + " --all --select x").status, 2);
  const Outcome archive = Kofd(dir, "browse " + Quoted(std::string(KOFD_EXAMPLES_DIR) + "/sample.a") + " --all");
  EXPECT_EQ(archive.out, TempDir::Read(std::string(KOFD_GOLDEN_DIR) + "/browse_sample_a.txt")) << archive.err;
  // Any other file is raw data; each row shows the sixteen bytes after its address.
  const std::string sRaw = Quoted(dir.Write("notes.txt", "#Hello, world 0123"));
  EXPECT_EQ(Kofd(dir, "browse " + sRaw + " --select 'raw data'").out,
            std::string("  Address          ") + std::string(2 + 52, ' ') + "Raw Data\n"
            "00000000             48 65 6C 6C 6F 2C 20 77 - 6F 72 6C 64 20 30 31 32  Hello..world.012\n"
            "00000010             33 20 20 20 20 20 20 20 - 20 20 20 20 20 20 20 20  3\n");
  EXPECT_EQ(Kofd(dir, "browse --help").status, 0);
}
