// The tool on hostile and oversized input: names that would break lines or drive a terminal,
// and memory that runs out.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "archive_objects.h"
#include "archive_writer.h"
#include "cli_run.h"
#include "escape.h"
#include "kelf_writer.h"

TEST(Escape, ShowsControlsInvalidBytesAndBackslashesAsHex) {
  using cli::EscapeText;
  EXPECT_EQ(EscapeText("plain.o"), "plain.o");
  EXPECT_EQ(EscapeText(std::string("a\nb\tc\x1b[2J\x7f\\", 11)), "a\\x0ab\\x09c\\x1b[2J\\x7f\\\\");
  EXPECT_EQ(EscapeText(std::string("\0", 1)), "\\x00");
  // Valid UTF-8 stays; stray, overlong, surrogate and cut sequences and C1 controls do not.
  EXPECT_EQ(EscapeText("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xb5"), "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xb5");
  EXPECT_EQ(EscapeText("\xe9t\xc3"), "\\xe9t\\xc3");
  EXPECT_EQ(EscapeText("\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80"), "\\xc0\\xaf \\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80");
  EXPECT_EQ(EscapeText("\xc2\x9b" "31m"), "\\xc2\\x9b31m");
  // Plain text is what escaping leaves alone: every byte from space to '~' but the backslash.
  for (int ch = 0; ch < 256; ++ch) {
    const std::string sOne(1, static_cast<char>(ch));
    EXPECT_EQ(cli::IsPlainText(sOne), ch >= 0x20 && ch <= 0x7E && ch != '\\') << ch;
    if (cli::IsPlainText(sOne)) {
      EXPECT_EQ(EscapeText(sOne), sOne) << ch;
    }
  }
  EXPECT_TRUE(cli::IsPlainText(""));
  EXPECT_FALSE(cli::IsPlainText("_ZN7testing4Test\xc3\xa9"));

  // Pieces may cut a sequence anywhere; a dump keeps its line feeds and tabs.
  const std::string sText = "x\xe2\x82\xac\ty\n\xf0\x9f\x8e\xb5\x1b!\xe2\x82";
  const std::string sWhole = "x\xe2\x82\xac\ty\n\xf0\x9f\x8e\xb5\\x1b!\\xe2\\x82";
  for (std::size_t nCut = 0; nCut <= sText.size(); ++nCut) {
    for (std::size_t nSecond = nCut; nSecond <= sText.size(); ++nSecond) {
      cli::C_TextEscaper escaper(true);
      std::string sOut;
      escaper.Feed(std::string_view(sText).substr(0, nCut), &sOut);
      escaper.Feed(std::string_view(sText).substr(nCut, nSecond - nCut), &sOut);
      escaper.Feed(std::string_view(sText).substr(nSecond), &sOut);
      escaper.Finish(&sOut);
      EXPECT_EQ(sOut, sWhole) << nCut << " " << nSecond;
    }
  }
}

TEST(CliSafety, NamesFromTheFileStayOnTheirLineAndAwayFromTheTerminal) {
  TempDir dir;
  const std::string sSymbol = "evil\tsym\x1b]0;owned\x07";
  const std::string sMember = "m\n1\\.o";
  kelf_test::ArchiveBuilder builder;
  builder.AddMember(sMember, ObjectWith({{sSymbol, 1}}));
  builder.AddSymbol(sSymbol, 0);
  const std::string sArchive = Quoted(dir.Write("lib.a", AsString(builder.Build())));
  const std::string sShownMember = "m\\x0a1\\\\.o", sShownSymbol = "evil\\x09sym\\x1b]0;owned\\x07";

  const Outcome list = Kofd(dir, "ar " + sArchive + " list");
  EXPECT_EQ(list.out.substr(list.out.rfind('\t')), "\t" + sShownMember + "\n");
  EXPECT_EQ(Kofd(dir, "ar " + sArchive + " symbols").out, sShownSymbol + "\t" + sShownMember + "\n");
  EXPECT_EQ(Kofd(dir, "ar " + sArchive + " find " + Quoted(sSymbol)).out, sShownMember + "\n");
  const Outcome browse = Kofd(dir, "browse " + sArchive);
  EXPECT_NE(browse.out.find("  " + sShownMember + "\n"), std::string::npos) << browse.out;
  EXPECT_EQ(browse.out.find('\x1b'), std::string::npos);

  // A section name in info and a symbol name in a relocation's expression.
  kelf_test::ObjectBuilder object;
  object.AddSection({"\x1b[31m.text", kelf_test::kShtPrgbit, 6, 0, 0, 0, 4, 0, kelf_test::Words({0}), {}, {}, {}});
  const std::string sObject = dir.Write("evil.o", AsString(object.Build()));
  const Outcome info = Kofd(dir, "info " + Quoted(sObject));
  EXPECT_NE(info.out.find("\\x1b[31m.text"), std::string::npos) << info.out;
  EXPECT_EQ(info.out.find('\x1b'), std::string::npos);

  // Dumps go byte for byte to a pipe, and escaped to a terminal.
  const Outcome piped = Kofd(dir, "dump " + Quoted(sObject) + " --section 2");
  EXPECT_NE(piped.out.find("\x1b[31m.text"), std::string::npos);
  const Outcome terminal = RunShell(dir, "script -qec " + Quoted(std::string(KOFD_CLI_PATH) + " dump " + Quoted(sObject) +
                                                                " --section 2") + " /dev/null");
  EXPECT_EQ(terminal.status, 0) << terminal.err;
  EXPECT_NE(terminal.out.find("\\x1b[31m.text"), std::string::npos) << terminal.out;
  EXPECT_EQ(terminal.out.find('\x1b'), std::string::npos);
}

// Address space is limited with ulimit, which the sanitizers' shadow memory cannot live under.
#if !defined(__SANITIZE_ADDRESS__)
TEST(CliSafety, RunningOutOfMemoryIsAFailureNeverASilentSuccess) {
  TempDir dir;
  constexpr std::uint32_t kBig = 160u << 20, kAt = 0x1000;
  kelf_test::ObjectBuilder object;
  kelf_test::Section big{".big", kelf_test::kShtPrgbit, 6, 0, 0, 0, 4, 0, {}, {}, {}, {}};
  big.size = kBig;
  big.offset = kAt;
  object.AddSection(big);
  const std::string sObject = dir.Write("big.o", AsString(object.Build()));
  std::filesystem::resize_file(sObject, kAt + kBig);
  const std::string sRaw = dir.Write("big.bin", "");
  std::filesystem::resize_file(sRaw, kBig);

  const std::string sOutOfMemory = "error 1020: internal Exception - Out of memory. \n";
  // info reads the headers alone; a section read on demand fails as the whole open does.
  const Outcome info = Kofd(dir, "info " + Quoted(sObject), "ulimit -v 120000; ");
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_NE(info.out.find(".big"), std::string::npos) << info.out;
  for (const std::string& sCommand : {"dump --section .big " + Quoted(sObject), "dump " + Quoted(sObject), "browse --all " + Quoted(sObject),
                                      "dump --raw " + Quoted(sRaw), "browse " + Quoted(sRaw)}) {
    const Outcome run = Kofd(dir, sCommand, "ulimit -v 120000; ");
    EXPECT_EQ(run.status, 1) << sCommand;
    EXPECT_EQ(run.err.substr(run.err.find(": ", 6) + 2), sOutOfMemory) << sCommand << run.err;
    EXPECT_EQ(run.out.find("symbols:"), std::string::npos) << sCommand;
  }
}
#endif
