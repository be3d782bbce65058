// kofd export-elf: the ELF32 object keeps every section at its index with its bytes, the
// symbols as they are, standard-form relocations as Elf32_Rela that GNU readelf reads back, and
// the others as text in the note; a KELF archive becomes a standard archive with its index.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cli_run.h"
#include "edit/object_image.h"
#include "export/elf_export.h"
#include "kelf_writer.h"

namespace {

using kelf_test::Bytes;
using kelf_test::MakeSection;

std::uint32_t Read32(const std::string& sFile, std::size_t nAt) {
  std::uint32_t dwValue = 0;
  for (int i = 0; i < 4; ++i) dwValue |= std::uint32_t(static_cast<unsigned char>(sFile.at(nAt + i))) << 8 * i;
  return dwValue;
}

// .text, .symtab (start, ext), .symstrtab, .expr (start+4 | ext<<2), .relxeb: one record each.
kelf_test::ObjectBuilder RelocatedObject(bool bBig) {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const std::uint32_t start = names.Add("start"), ext = names.Add("ext");
  kelf_test::ObjectBuilder builder;
  if (bBig) builder.BigEndian();
  builder.AddSection(MakeSection(".text", kelf_test::kShtPrgbit, kelf_test::Words({1, 2, 3, 4}, bBig)));
  builder.AddSection(MakeSection(".symtab", kelf_test::kShtSymtab,
                                 kelf_test::Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0),
                                                  kelf_test::Sym(start, 8, 4, kelf_test::kStbGlobal, kelf_test::kSttFunction, 0, 1),
                                                  kelf_test::Sym(ext, 0, 0, kelf_test::kStbGlobal, 0, 0, 0)}),
                                 3, 1));
  builder.AddSection(MakeSection(".symstrtab", kelf_test::kShtStrtab, names.Data()));
  builder.AddSection(MakeSection(".expr", kelf_test::kShtExpr,
                                 kelf_test::Join({kelf_test::Exp(13, 1), kelf_test::Exp(12, 4), kelf_test::Exp(1, 0),
                                                  kelf_test::Exp(13, 2), kelf_test::Exp(12, 2), kelf_test::Exp(15, 0)}),
                                 2));
  builder.AddSection(MakeSection(".relxeb", kelf_test::kShtRelxeb,
                                 kelf_test::Join({kelf_test::Relxeb(4, 1, 7, 0, 31, 0, 2), kelf_test::Relxeb(12, 2, 3, 0, 15, 3, 5)}), 4, 1));
  return builder;
}

TEST(ExportElf, SectionsSymbolsAndStandardRelocationsAreKeptAndTheRestGoesToTheNote) {
  for (const bool bBig : {false, true}) {
    TempDir dir;
    RelocatedObject(bBig).WriteFile(dir.Path("in.o"));
    const Outcome outcome = Kofd(dir, "export-elf " + Quoted(dir.Path("in.o")) + " -o " + Quoted(dir.Path("out.elf")));
    EXPECT_EQ(outcome.status, 1) << "one relocation has no standard form: " << outcome.err;
    const std::string sElf = TempDir::Read(dir.Path("out.elf"));
    ASSERT_GE(sElf.size(), 52u);
    EXPECT_EQ(sElf.substr(0, 6), std::string("\x7f" "ELF\x01\x01")) << "records are little-endian in every object";
    const std::uint32_t dwShoff = Read32(sElf, 32);
    // The KELF sections keep their indexes; .rela.text, .note.kofd and the names follow.
    const std::uint32_t dwShnum = static_cast<unsigned char>(sElf[48]);
    EXPECT_EQ(dwShnum, 7u + 3);
    const auto header = [&](std::uint32_t i, int nField) { return Read32(sElf, dwShoff + 40 * i + 4 * nField); };
    EXPECT_EQ(header(1, 1), 1u);                 // .text: PROGBITS
    EXPECT_EQ(header(4, 1), 0x80000000u + 18);   // .expr: the chip's own type above SHT_LOUSER
    EXPECT_EQ(sElf.substr(header(1, 4), 16), std::string(reinterpret_cast<const char*>(kelf_test::Words({1, 2, 3, 4}, bBig).data()), 16));
    const std::uint32_t dwRela = 7;
    EXPECT_EQ(header(dwRela, 1), 4u);   // SHT_RELA
    EXPECT_EQ(header(dwRela, 6), 2u);   // linked to .symtab
    EXPECT_EQ(header(dwRela, 7), 1u);   // relocating .text
    ASSERT_EQ(header(dwRela, 5), 12u);  // one Elf32_Rela
    const std::uint32_t dwAt = header(dwRela, 4);
    EXPECT_EQ(Read32(sElf, dwAt), 4u);
    EXPECT_EQ(Read32(sElf, dwAt + 4), (1u << 8) | 7);
    EXPECT_EQ(Read32(sElf, dwAt + 8), 4u);
    const std::string sNote = sElf.substr(header(8, 4), header(8, 5));
    EXPECT_NE(sNote.find("offset 0xc type 3 bits 0..15: SYM ext NUM 0x2 <<"), std::string::npos) << sNote;

    // GNU readelf reads it back.
    const Outcome readelf = RunShell(dir, "readelf -rsW " + Quoted(dir.Path("out.elf")));
    EXPECT_EQ(readelf.status, 0) << readelf.err;
    EXPECT_NE(readelf.out.find("start + 4"), std::string::npos) << readelf.out;
    EXPECT_NE(readelf.out.find("FUNC    GLOBAL DEFAULT    1 start"), std::string::npos) << readelf.out;
  }
}

TEST(ExportElf, AnArchiveBecomesAStandardArchiveWithItsIndexAndLongNames) {
  TempDir dir;
  const std::string sLong = "a_member_name_past_fifteen.o";
  RelocatedObject(false).WriteFile(dir.Path(sLong));
  const std::string sSample = std::string(KOFD_EXAMPLES_DIR) + "/sample.o";
  ASSERT_EQ(Kofd(dir, "ar " + Quoted(dir.Path("lib.ka")) + " create " + Quoted(sSample) + " " + Quoted(dir.Path(sLong))).status, 0);
  const Outcome outcome = Kofd(dir, "export-elf --json " + Quoted(dir.Path("lib.ka")) + " -o " + Quoted(dir.Path("lib.a")));
  EXPECT_EQ(outcome.status, 1) << outcome.err;
  EXPECT_NE(outcome.out.find("\"kind\":\"archive\",\"objects\":2"), std::string::npos) << outcome.out;

  const Outcome members = RunShell(dir, "ar t " + Quoted(dir.Path("lib.a")));
  EXPECT_EQ(members.out, "sample.o\n" + sLong + "\n");
  const Outcome index = RunShell(dir, "nm -s " + Quoted(dir.Path("lib.a")));
  EXPECT_NE(index.out.find("main in sample.o"), std::string::npos) << index.out;
  EXPECT_NE(index.out.find("start in " + sLong), std::string::npos) << index.out;
  EXPECT_EQ(index.out.find("ext in"), std::string::npos) << "an undefined symbol is no index entry";

  // Nothing to keep as text: exit 0; no input: trouble.
  ASSERT_EQ(Kofd(dir, "build " + Quoted(std::string(KOFD_EXAMPLES_DIR) + "/hello.json") + " -o " + Quoted(dir.Path("hello.o"))).status, 0);
  EXPECT_EQ(Kofd(dir, "export-elf " + Quoted(dir.Path("hello.o")) + " -o " + Quoted(dir.Path("hello.elf"))).status, 0);
  const Outcome missing = Kofd(dir, "export-elf " + Quoted(dir.Path("none.o")) + " -o " + Quoted(dir.Path("none.elf")));
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.out, "");
}

}  // namespace
