// The text dumps, compared byte for byte with the texts under tests/golden/, which were written
// out by hand from the dump layouts.
#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

#include "cli_run.h"
#include "archive_writer.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"
#include "sections/kmd_tables.h"
#include "sections/share_rom_table.h"
#include "sections/stab_table.h"
#include "sections_file.h"

namespace {

using namespace kelf_test;

std::string Golden(const std::string& sName) { return TempDir::Read(std::string(KOFD_GOLDEN_DIR) + "/" + sName); }

std::string AsString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// What std::cout receives while it lives.
class CoutCapture {
 public:
  CoutCapture() : m_pOld(std::cout.rdbuf(m_text.rdbuf())) {}
  ~CoutCapture() { std::cout.rdbuf(m_pOld); }
  std::string Text() const { return m_text.str(); }

 private:
  std::ostringstream m_text;
  std::streambuf* m_pOld;
};

// One object with every display edge of the dumps: chip 0x1A2B, UNDEF addresses and values,
// section type 13 and flags 5 and 8, symbol bind 3 and type 7, 11 words of program data and of
// share ROM, the string table 00 61 62 63 00, a sound section of 20 bytes, an empty table.
ObjectBuilder EdgeObject() {
  ObjectBuilder object;
  FileHeader& header = object.Header();
  header.chip = 0x1A2B;
  header.reserved = 0x0102;
  header.entry = 0xABC;
  header.flags = 17;
  const Bytes symbols = Join({Sym(0, 0, 0, 0, 0, 0, 0), Sym(1, 0xFFFFFFFF, 0x10, 3, 7, 'x', kShnAbs),
                              Sym(2, 0x2C, 4, kStbGlobal, kSttFunction, 0, 1)});
  object.AddSection({".text", kShtPrgbit, 5, 0x100, 0, 0, 4, 0,
                     Words({0x1, 0x22, 0x333, 0x4444, 0x55555, 0x666666, 0x7777777, 0x88888888, 0xDEADBEEF, 0xABCD,
                            0xFFFFFFFF}),
                     {}, {}, {}});
  object.AddSection({".odd", 13, 8, 0xFFFFFFFF, 0, 0, 1, 0, Bytes(4, 0xEE), {}, {}, {}});
  object.AddSection({".str", kShtStrtab, 0, 0, 0, 0, 1, 0, Bytes{0, 'a', 'b', 'c', 0}, {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  object.AddSection({".srom", kShtSRom, 2, 0x2000, 0, 0, 4, 4,
                     Words({0, 0x11111111, 0x22222222, 0x33333333, 0x44444444, 0x55555555, 0x66666666, 0x77777777,
                            0x88888888, 0x99999999, 0xAAAAAAAA}),
                     {}, {}, {}});
  object.AddSection({".bankinfo", kShtBnkInfo, 0, 0xFFFFFFFF, 0, 0, 1, 8,
                     Join({BankInfo(0x4000, 1), BankInfo(0xFFFFFFFF, 0xFFFFFFFF)}), {}, {}, {}});
  object.AddSection({".line", kShtLine, 0, 0, 0, 1, 4, 8, Join({Line(3, 12), Line(0x10, 7)}), {}, {}, {}});
  object.AddSection({".filestr", kShtStrtab, 0, 0, 0, 0, 1, 0, Bytes{0, 'a', '.', 'c', 0}, {}, {}, {}});
  object.AddSection({".srcline", kShtSrcLine, 0, 0, 8, 1, 4, 12, Join({SrcLine(0, 12, 1), SrcLine(4, 13, 1)}), {}, {}, {}});
  object.AddSection({".kmd", kShtKdm, 2, 0x3000, 0, 0, 1, 0, Bytes{'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K',
                                                                  'L', 'M', 'N', 'O', 'P', 'Q', 'R', 'S', 'T'},
                     {}, {}, {}});
  object.AddSection({".kdmstr", kShtStrtab, 0, 0, 0, 0, 1, 0, Bytes{0, 'b', 'e', 'e', 'p', 0}, {}, {}, {}});
  object.AddSection({".kdminfo", kShtKdmInfo, 0, 0, 11, 0, 4, 16,
                     Join({KmdInfo(1, 0x40, 0x20, 0x100), KmdInfo(1, 0xFFFFFFFF, 0, 0x7F)}), {}, {}, {}});
  object.AddSection({".empty", kShtBnkInfo, 0, 0, 0, 0, 1, 8, {}, {}, {}, {}});
  ProgramHeader segment;
  segment.type = 1;
  segment.offset = 0x58;
  segment.vaddr = 0xFFFFFFFF;
  segment.paddr = 0x100;
  segment.filesz = 0x2C;
  segment.memsz = 0x30;
  segment.flags = 5;
  segment.align = 4;
  object.AddProgramHeader(segment);
  return object;
}

}  // namespace

TEST(Dump, WholeObjectShowsEveryListingAndSectionInOrder) {
  TempDir dir;
  const std::string sPath = dir.Write("edges.o", AsString(EdgeObject().Build()));
  const Outcome whole = Kofd(dir, "dump " + Quoted(sPath));
  ASSERT_EQ(whole.status, 0) << whole.err;
  EXPECT_EQ(whole.out, Golden("edges_whole.txt"));
}

TEST(Dump, SelectorsAreDumpedInTheOrderGivenAndFailuresReported) {
  TempDir dir;
  const std::string sPath = Quoted(dir.Write("edges.o", AsString(EdgeObject().Build())));
  // Each --section takes one value: the file may come last.
  const Outcome selected = Kofd(dir, "dump --section 3 --section .SYMTAB --file-header --section 12 " + sPath);
  EXPECT_EQ(selected.status, 0) << selected.err;
  EXPECT_EQ(selected.out, Golden("edges_selected.txt"));

  // What was dumped before a failure stays; the failure says what is missing, then the code.
  const Outcome past = Kofd(dir, "dump " + sPath + " --section 3 --section 15");
  EXPECT_EQ(past.status, 1);
  const std::string sSelected = Golden("edges_selected.txt");
  EXPECT_EQ(past.out, sSelected.substr(0, sSelected.find("\n---------------- Symbol")));
  const std::string sFailure = "kofd: " + dir.Path("edges.o") + ": ";
  EXPECT_EQ(past.err, sFailure + "no section 15, the object has 15 (0x800403f1)\n");
  // Any string of digits is an index, however long.
  EXPECT_EQ(Kofd(dir, "dump " + sPath + " --section 4294967296").err,
            sFailure + "no section 4294967296, the object has 15 (0x800403f1)\n");
  EXPECT_EQ(Kofd(dir, "dump " + sPath + " --section .nosuch").err, sFailure + "no section named .nosuch (0x80004005)\n");
  EXPECT_EQ(Kofd(dir, "dump " + sPath + " --section 2").err, sFailure + "section 2 has nothing to dump (0x80004003)\n");

  ObjectBuilder bare;
  bare.AddSection({".text", kShtPrgbit, 0, 0, 0, 0, 4, 0, {}, {}, {}, {}});
  const std::string sBare = dir.Write("bare.o", AsString(bare.Build()));
  const Outcome none = Kofd(dir, "dump " + Quoted(sBare) + " --program-headers");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err, "kofd: " + sBare + ": the object has no program headers (0x80004003)\n");
  const std::string sText = dir.Write("text", "plain text");
  EXPECT_EQ(Kofd(dir, "dump " + Quoted(sText) + " --section 1").err.rfind("kofd: " + sText + ": error 1018", 0), 0u);
}

TEST(Dump, SampleObjectListingsAndTables) {
  TempDir dir;
  const Outcome sample = Kofd(dir, "dump " + Quoted(KOFD_EXAMPLES_DIR "/sample.o") +
                                       " --file-header --program-headers --section .symtab --section .bankinfo --section .kdminfo");
  EXPECT_EQ(sample.status, 0) << sample.err;
  EXPECT_EQ(sample.out, Golden("sample_selected.txt"));
  const Outcome relocations = Kofd(dir, "dump " + Quoted(KOFD_EXAMPLES_DIR "/sample.o") + " --section 13 --section .RELXEB.text");
  EXPECT_EQ(relocations.status, 0) << relocations.err;
  EXPECT_EQ(relocations.out, Golden("sample_relocations.txt"));
}

// Two program headers, one of type and flags past their names; locals and a global.
TEST(Dump, WholeFileDumpAppendsToTheNamedFile) {
  TempDir dir;
  ObjectBuilder object;
  object.Header().type = 2;
  object.Header().version = 2;
  object.Header().entry = 0x10;
  object.AddProgramHeader({1, 0x78, 0x10, 0x10, 4, 4, 7, 4});
  object.AddProgramHeader({9, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0, 8, 0});
  object.AddSection({".text", kShtPrgbit, 6, 0x10, 0, 0, 4, 0, Words({0x12345678}), {}, {}, {}});
  object.AddSection({".str", kShtStrtab, 0, 0, 0, 0, 1, 0, Bytes{0, 'a', 'b', 'c', 0}, {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, 2, 1, 4, 16,
                     Join({Sym(0, 0, 0, 0, 0, 0, 0), Sym(1, 0x10, 4, kStbLocal, kSttFunction, 0, 1),
                           Sym(2, 0xFFFFFFFF, 0, kStbGlobal, kSttNoType, 0, 0)}),
                     {}, {}, {}});
  C_KOfdELFX2 document;
  document.AttachPath(dir.Write("small.o", AsString(object.Build())).c_str(), 0);
  ASSERT_EQ(document.Read(), S_OK);
  const std::string sDump = dir.Path("dump.txt");
  EXPECT_EQ(document.DumpFile(sDump.c_str()), S_OK);
  EXPECT_EQ(document.DumpFile(sDump.c_str()), S_OK);
  EXPECT_EQ(TempDir::Read(sDump), Golden("whole_file_twice.txt"));
  EXPECT_EQ(document.DumpFile(dir.Path("no/such/dir/dump.txt").c_str()), E_FAIL);
  EXPECT_EQ(C_KOfdELFX2().DumpFile(sDump.c_str()), E_POINTER);
}

TEST(Dump, StabTableLinesUpItsFieldsNotItsTitles) {
  const Bytes names{0, 'm', 'a', 'i', 'n', '.', 'c', 0, 'f', 0};
  const Bytes stabs = Join({Stab(1, 'd', 0, 2, 256), Stab(8, '$', '*', 0xFFFF, 0xFFFFFFFF), Stab(0xFF, 0, 0, 0, 0)});
  SectionFile file(Join({names, stabs}));
  C_KOfdStringTable strings;
  C_KOfdStabTable table;
  file.Load(strings, 0, names.size());
  table.Attach(&strings, nullptr);
  file.Load(table, static_cast<DWORD>(names.size()), stabs.size());
  std::ostringstream text;
  table.SetStream(text);
  EXPECT_EQ(table.DumpAll(), S_OK);
  EXPECT_EQ(text.str(), Golden("stab.txt"));
  EXPECT_EQ(table.DumpRecord(3), E_FAIL);
}

// Destinations, the stream state a dump leaves and what an unattached dump does.
TEST(Dump, EachDumpWritesWhereItsLayoutSays) {
  TempDir dir;
  C_KOfdELF4 document;
  document.AttachPath(dir.Write("edges.o", AsString(EdgeObject().Build())).c_str(), 0);
  ASSERT_EQ(document.Read(), S_OK);
  I_KOfdSection* pSection = nullptr;
  ASSERT_EQ(document.GetSection(12, &pSection), S_OK);
  I_KOfdDump* pKdm = dynamic_cast<I_KOfdDump*>(pSection);
  ASSERT_NE(pKdm, nullptr);
  const std::string sSelected = Golden("edges_selected.txt");
  const std::string sKdm = sSelected.substr(sSelected.find("\n---------------- KDM"));
  const std::size_t nRecords = sKdm.find("  [0]");
  std::ostringstream own;
  {
    CoutCapture cout;
    EXPECT_EQ(pKdm->DumpAll(), S_OK);  // nothing attached yet: the record lines fail silently
    pKdm->SetStream(own);
    EXPECT_EQ(pKdm->DumpAll(), S_OK);
    EXPECT_EQ(cout.Text(), sKdm.substr(0, nRecords) + sKdm.substr(0, nRecords));
    EXPECT_EQ(own.str(), sKdm.substr(nRecords));
  }

  // A raw-data record alone takes the stream's own fill and base.
  ASSERT_EQ(document.GetSection(5, &pSection), S_OK);
  C_KOfdShareRomTable* pRom = dynamic_cast<C_KOfdShareRomTable*>(pSection);
  ASSERT_NE(pRom, nullptr);
  std::ostringstream words;
  pRom->SetStream(words);
  EXPECT_EQ(pRom->DumpRecord(1), S_OK);
  *pRom << std::hex;
  EXPECT_EQ(pRom->DumpRecord(10), S_OK);
  EXPECT_EQ(pRom->DumpRecord(11), E_FAIL);
  EXPECT_EQ(words.str(), "286331153aaaaaaaa");

  // An empty sound section still shows its heading; an object without program headers shows
  // no listing at all.
  CoutCapture cout;
  C_KOfdKmdTable silent;
  EXPECT_EQ(silent.DumpAll(), E_FAIL);
  C_KElfProgramHeader none;
  EXPECT_EQ(none.DumpAll(), E_POINTER);
  EXPECT_EQ(none.DumpHead(), E_FAIL);
  EXPECT_EQ(cout.Text(), "\n---------------- KMD Sound Data ---------------------\n");
}

TEST(Dump, LinePadsWithTheStreamFillAndCutsHeaderRecordNumbers) {
  std::ostringstream text;
  text.fill('*');
  text << std::hex;
  C_DumpLine(text).Dec(31, 5).Index(1000, kHeaderIndexBuffer).Index(1000, kSectionIndexBuffer).Char('\0', 2).End();
  text << 10;
  EXPECT_EQ(text.str(), std::string("***31[1000[1000]*\0\n10", 21));
}

TEST(Dump, LinesOnABlockAreTheLinesOnTheStream) {
  // Short lines, names longer than a line's buffer, lines enough for several blocks, the
  // stream's fill, and the base the lines leave behind.
  const auto line = [](C_DumpLine&& made, DWORD i) {
    const std::string sName = i % 700 == 5 ? std::string(300, 'n') : "name" + std::to_string(i);
    made.Index(i, kSectionIndexBuffer).HexOrUndef(i == 7 ? 0xFFFFFFFFu : i * 4099u, 9).Dec(i, 9).Char('\0', 3)
        .Text(sName.data(), sName.size(), 0).End();
  };
  std::ostringstream expected, blocked;
  for (std::ostringstream* pStream : {&expected, &blocked}) {
    pStream->fill('.');
    *pStream << std::hex;
  }
  for (DWORD i = 0; i < 6000; ++i) line(C_DumpLine(expected), i);
  {
    C_DumpBlock block(blocked);
    for (DWORD i = 0; i < 6000; ++i) line(C_DumpLine(block), i);
  }
  expected << 10;
  blocked << 10;
  ASSERT_GT(blocked.str().size(), 65536u * 2);
  EXPECT_EQ(blocked.str(), expected.str());
}

TEST(Dump, ArchiveMembersAndRawBytes) {
  TempDir dir;
  ObjectBuilder object;
  object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Words({0x12345678}), {}, {}, {}});
  const Bytes member = object.Build();
  ArchiveBuilder builder;
  builder.AddMember("a.o", member, 1700000000);
  builder.AddMember("b.o", member, 1700000001);
  builder.AddSymbol("alpha", 0).AddSymbol("beta", 0).AddSymbol("gamma", 1);
  ArchiveLayout layout;
  const std::string sArchive = Quoted(dir.Write("lib.a", AsString(builder.Build(&layout))));
  const std::string a = std::to_string(layout.memberHeaders[0]), b = std::to_string(layout.memberHeaders[1]);
  // The member's object dumps as the same object on its own does.
  const std::string sObjectDump = Golden("member_object.txt");
  EXPECT_EQ(Kofd(dir, "dump " + Quoted(dir.Write("b.o", AsString(member)))).out, sObjectDump);

  const Outcome selected = Kofd(dir, "dump " + sArchive + " --linker-member --name-member --member B.O", "TZ=UTC ");
  EXPECT_EQ(selected.status, 0) << selected.err;
  EXPECT_EQ(selected.out, "Linker Member\n\nVersion = 1\nNumber of objects = 2\nNumber of Global Symbols = 3\n\n"
                          "[0]\t" + a + "\n[1]\t" + b + "\n\n"
                          "[0]\t" + a + "\talpha\n[1]\t" + a + "\tbeta\n[2]\t" + b + "\tgamma\n\n"
                          "Name Member\n\n[0]a.o\n[4]b.o\n"
                          "Member Header\n\nName Index = 4\nDate = Tue Nov 14 22:13:21 2023\n\nSize = " +
                              std::to_string(member.size()) + "\n\n" + sObjectDump);
  EXPECT_EQ(Kofd(dir, "dump " + sArchive + " --member c.o").status, 1);
  EXPECT_EQ(Kofd(dir, "dump " + sArchive + " --section 1").status, 1);

  // Each row shows the sixteen bytes after its address; a file of no known kind gets the rows
  // without asking.
  const std::string sRaw = Quoted(dir.Write("raw.bin", "ABCDEFGHIJKLMNO!Q"));
  const std::string sRows = "Address\tRaw Data\n\n"
                            "00000000\t42 43 44 45 46 47 48 49 - 4A 4B 4C 4D 4E 4F 21 51BCDEFGHIJKLMNO.Q\n"
                            "00000010\t20 20 20 20 20 20 20 20 - 20 20 20 20 20 20 20 20\n";
  EXPECT_EQ(Kofd(dir, "dump " + sRaw).out, sRows);
  EXPECT_EQ(Kofd(dir, "dump --raw " + sArchive).out.substr(0, 47), "Address\tRaw Data\n\n00000000\t3C 61 72 63 68 3E 0A");
}
