// The address map's merge rules (source line over line over stab, conflicts kept, banks splitting
// ranges, share-ROM words placed) and the layout's cover of objects and archives, good and damaged.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "analyze/layout.h"
#include "analyze/map.h"
#include "archive_writer.h"
#include "cli_run.h"
#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"

namespace {

using kelf_test::Bytes;
using kelf_test::Join;
using kelf_test::MakeSection;
using kelf_test::ObjectBuilder;

std::string Golden(const std::string& sName) { return TempDir::Read(std::string(KOFD_GOLDEN_DIR) + "/" + sName); }

constexpr std::uint8_t kSo = 0x64, kSline = 0x44, kFun = 0x24;

// 1 .text at 0x1000 (0x40 bytes), 2 .line, 3 .filestrtab, 4 .srcline, 5 .stab, 6 .stabstr,
// 7 .bankinfo, 8 .srom at 0x1020.
ObjectBuilder MapObject() {
  ObjectBuilder builder;
  kelf_test::Section text = MakeSection(".text", kelf_test::kShtPrgbit, Bytes(0x40, 0));
  text.addr = 0x1000;
  builder.AddSection(text);
  builder.AddSection(MakeSection(".line", kelf_test::kShtLine,
                                 Join({kelf_test::Line(0, 10), kelf_test::Line(8, 11), kelf_test::Line(0x10, 12)}), 0, 1));
  kelf_test::StringTable files = kelf_test::StringTable::WithNul();
  const std::uint32_t a = files.Add("a.c");
  builder.AddSection(MakeSection(".filestrtab", kelf_test::kShtStrtab, files.Data()));
  builder.AddSection(MakeSection(".srcline", kelf_test::kShtSrcLine,
                                 Join({kelf_test::SrcLine(0, 10, a), kelf_test::SrcLine(8, 99, a)}), 3, 1));
  kelf_test::StringTable stabNames = kelf_test::StringTable::WithNul();
  const std::uint32_t s = stabNames.Add("s.c"), f = stabNames.Add("main:F1");
  builder.AddSection(MakeSection(".stab", kelf_test::kShtPrgbit,
                                 Join({kelf_test::Stab(s, kSo, 0, 0, 0x1000), kelf_test::Stab(f, kFun, 0, 0, 0x1000),
                                       kelf_test::Stab(0, kSline, 0, 20, 0x1020), kelf_test::Stab(0, kSline, 0, 21, 0x1010),
                                       kelf_test::Stab(0, kSo, 0, 0, 0), kelf_test::Stab(0, kSline, 0, 7, 0x5000)}),
                                 6));
  builder.AddSection(MakeSection(".stabstr", kelf_test::kShtStrtab, stabNames.Data()));
  builder.AddSection(MakeSection(".bankinfo", kelf_test::kShtBnkInfo,
                                 Join({kelf_test::BankInfo(0x1000, 1), kelf_test::BankInfo(0x1018, 2),
                                       kelf_test::BankInfo(0x1018, 3), kelf_test::BankInfo(0x1030, 3)})));
  kelf_test::Section rom = MakeSection(".srom", kelf_test::kShtSRom, kelf_test::Words({0xAAAA, 0xBBBB}));
  rom.addr = 0x1020;
  builder.AddSection(rom);
  return builder;
}

kofd_analyze::AddressMap MapOf(const std::string& sPath) {
  C_KOfdELF4 document;
  document.AttachPath(sPath.c_str(), 0);
  EXPECT_EQ(document.Read(), S_OK);
  return kofd_analyze::BuildAddressMap(document);
}

TEST(AnalyzeMap, MergesTheTablesByTheirRankAndSplitsRangesWhereTheBankChanges) {
  TempDir dir;
  MapObject().WriteFile(dir.Path("map.o"));
  const kofd_analyze::AddressMap map = MapOf(dir.Path("map.o"));
  EXPECT_EQ(map.nEntries, 8u);
  ASSERT_EQ(map.vRanges.size(), 6u);
  const auto& r = map.vRanges;
  // 0x1000: the source line wins, the line table agrees.
  EXPECT_EQ(r[0].qwFrom, 0x1000u);
  EXPECT_EQ(r[0].qwTo, 0x1008u);
  EXPECT_EQ(r[0].line.source, kofd_analyze::LineSource::kSourceLine);
  EXPECT_EQ(r[0].line.sFile, "a.c");
  EXPECT_EQ(r[0].vAgreeing.size(), 1u);
  EXPECT_TRUE(r[0].vConflicts.empty());
  EXPECT_EQ(r[0].dwBank, 1u);
  // 0x1008: the source line says 99, the line table 11: a conflict.
  EXPECT_EQ(r[1].line.dwLine, 99u);
  ASSERT_EQ(r[1].vConflicts.size(), 1u);
  EXPECT_EQ(r[1].vConflicts[0].dwLine, 11u);
  // 0x1010: the line table beats the stab; no file; split at 0x1018 where bank 3 (the last of
  // two records at 0x1018) begins.
  EXPECT_EQ(r[2].line.source, kofd_analyze::LineSource::kLine);
  EXPECT_FALSE(r[2].line.bFileKnown);
  ASSERT_EQ(r[2].vConflicts.size(), 1u);
  EXPECT_EQ(r[2].vConflicts[0].sFile, "s.c");
  EXPECT_EQ(r[2].qwTo, 0x1018u);
  EXPECT_EQ(r[3].qwFrom, 0x1018u);
  EXPECT_EQ(r[3].dwBank, 3u);
  EXPECT_EQ(r[3].line.dwLine, 12u);
  // 0x1020: the stab alone, to the end of .text (0x1030 names the same bank: no split), with
  // the two share-ROM words.
  EXPECT_EQ(r[4].line.source, kofd_analyze::LineSource::kStab);
  EXPECT_EQ(r[4].line.sFile, "s.c");
  EXPECT_EQ(r[4].qwTo, 0x1040u);
  ASSERT_EQ(r[4].vShareRom.size(), 2u);
  EXPECT_EQ(r[4].vShareRom[1].dwAddress, 0x1024u);
  EXPECT_EQ(r[4].vShareRom[1].dwWord, 0xBBBBu);
  // 0x5000: after the empty N_SO no file; no program section: one address.
  EXPECT_FALSE(r[5].line.bFileKnown);
  EXPECT_EQ(r[5].qwTo, 0x5001u);
  EXPECT_EQ(map.ConflictCount(), 2u);
  EXPECT_EQ(kofd_analyze::FindAddress(map, 0x101C), &r[3]);
  EXPECT_EQ(kofd_analyze::FindAddress(map, 0x0FFF), nullptr);
  EXPECT_EQ(kofd_analyze::FindAddress(map, 0x1040), nullptr);
}

// Sums and contiguity: the ranges cover [base, base + size) exactly.
void ExpectCovered(const kofd_analyze::FileLayout& layout) {
  std::uint64_t qwAt = layout.qwBase;
  for (const auto& range : layout.vRanges) {
    EXPECT_EQ(range.qwFrom, qwAt);
    EXPECT_LT(range.qwFrom, range.qwTo);
    qwAt = range.qwTo;
  }
  EXPECT_EQ(qwAt, layout.qwBase + layout.qwSize);
}

TEST(AnalyzeLayout, CoversObjectsAndArchivesAndFlagsOverlapsAndPartsPastTheEnd) {
  ObjectBuilder builder(kelf_test::ObjectOptions{true, true, true});
  builder.AddSection(MakeSection(".text", kelf_test::kShtPrgbit, Bytes{1, 2, 3}));  // 1 gap byte behind
  kelf_test::Section bss = MakeSection(".bss", 8);
  bss.size = 0x1000;
  builder.AddSection(bss);
  builder.AddSection(MakeSection(".data", kelf_test::kShtPrgbit, Bytes(8, 7)));
  kelf_test::ObjectLayout placed;
  const Bytes good = builder.Build(&placed);
  kofd_analyze::FileLayout layout = kofd_analyze::LayoutObject(good.data(), good.size());
  ExpectCovered(layout);
  EXPECT_EQ(layout.FlagCount(), 0u);
  bool bGapBehindText = false;
  for (const auto& range : layout.vRanges) {
    bGapBehindText = bGapBehindText || (range.nOwners == 0 && range.qwFrom == placed.sectionOffsets[1] + 3u);
  }
  EXPECT_TRUE(bGapBehindText);
  for (const auto& part : layout.vParts) EXPECT_NE(part.sName, ".bss");

  // .data moved onto .text: the two share bytes.
  builder.SectionAt(3).offset = placed.sectionOffsets[1];
  const Bytes overlapping = builder.Build();
  layout = kofd_analyze::LayoutObject(overlapping.data(), overlapping.size());
  ExpectCovered(layout);
  EXPECT_EQ(layout.OverlapCount(), 1u);
  EXPECT_EQ(layout.OutOfFileCount(), 0u);

  // Cut inside the section header table: the table passes the end, and a layout still comes.
  const Bytes cut(good.begin(), good.begin() + placed.shoff + 50);
  layout = kofd_analyze::LayoutObject(cut.data(), cut.size());
  ExpectCovered(layout);
  EXPECT_EQ(layout.OutOfFileCount(), 1u);
  EXPECT_FALSE(layout.vNotes.empty());

  // An archive of the good object and an odd-sized one.
  kelf_test::ArchiveBuilder archive;
  archive.AddMember("good.o", good);
  archive.AddMember("cut.o", cut);
  const Bytes library = archive.Build();
  layout = kofd_analyze::LayoutArchive(library.data(), library.size());
  ExpectCovered(layout);
  ASSERT_EQ(layout.vNested.size(), 2u);
  ExpectCovered(layout.vNested[0].layout);
  EXPECT_EQ(layout.vParts[layout.vNested[1].nPart].sName, "cut.o");
  EXPECT_EQ(layout.OverlapCount() + layout.OutOfFileCount(), 0u);
  EXPECT_EQ(layout.FlagCount(), 1u);  // the cut object's own table, nested
  // Cut the archive inside the last member: that member's data passes the end.
  const Bytes short_library(library.begin(), library.end() - 10);
  layout = kofd_analyze::LayoutArchive(short_library.data(), short_library.size());
  ExpectCovered(layout);
  EXPECT_EQ(layout.OutOfFileCount(), 1u);
}

TEST(AnalyzeLayout, ARangeKeepsEightOwnersAndCountsThemAll) {
  // The file header, then 1000 section headers that all claim the file header's bytes.
  Bytes bytes(kelf_test::kHeaderSize, 0);
  bytes[0] = 0x7F, bytes[1] = 'E', bytes[2] = 'L', bytes[3] = 'F';
  kelf_test::Put32(bytes, 36, kelf_test::kHeaderSize);  // e_shoff
  kelf_test::Put16(bytes, 52, 1000);                   // e_shnum
  for (int i = 0; i < 1000; ++i) {
    Bytes header(kelf_test::kSectionHeaderSize, 0);
    kelf_test::Put32(header, 4, kelf_test::kShtPrgbit);
    kelf_test::Put32(header, 20, kelf_test::kHeaderSize);  // sh_size, at offset 0
    kelf_test::Append(bytes, header);
  }
  const kofd_analyze::FileLayout layout = kofd_analyze::LayoutObject(bytes.data(), bytes.size());
  ExpectCovered(layout);
  ASSERT_EQ(layout.vRanges.size(), 2u);
  EXPECT_EQ(layout.vRanges[0].nOwners, 1001u);
  EXPECT_EQ(layout.vRanges[0].vOwners.size(), kofd_analyze::kMaxOwners);
  EXPECT_EQ(layout.OverlapCount(), 1u);
}

TEST(CliMapLayout, AnswersWithTheExitStatusOfWhatItFound) {
  TempDir dir;
  const std::string sSample = std::string(KOFD_EXAMPLES_DIR) + "/sample.o";
  Outcome run = Kofd(dir, "map " + Quoted(sSample));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, Golden("map_sample_o.txt"));
  run = Kofd(dir, "map " + Quoted(sSample) + " --addr 0x12c");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "delay.c:8  bank 0  (srcline section 7 record 3)\n");
  EXPECT_EQ(Kofd(dir, "map " + Quoted(sSample) + " --addr 1280").status, 1);
  run = Kofd(dir, "map " + Quoted(sSample) + " --addr 0x100000000");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err.find("kofd: map: "), std::string::npos);
  EXPECT_EQ(Kofd(dir, "map " + Quoted(dir.Path("absent.o"))).status, 2);
  // An object without line tables: nothing maps.
  ObjectBuilder bare;
  bare.AddSection(MakeSection(".text", kelf_test::kShtPrgbit, Bytes(4, 0)));
  bare.WriteFile(dir.Path("bare.o"));
  EXPECT_EQ(Kofd(dir, "map " + Quoted(dir.Path("bare.o")) + " --json").status, 1);

  run = Kofd(dir, "layout examples/sample.a", "cd " + Quoted(std::string(KOFD_EXAMPLES_DIR) + "/..") + " && ");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, Golden("layout_sample_a.txt"));
  const std::string sBytes = TempDir::Read(sSample);
  {
    std::ofstream out(dir.Path("cut.o"), std::ios::binary);
    out.write(sBytes.data(), static_cast<std::streamsize>(sBytes.size() - 100));
  }
  run = Kofd(dir, "layout " + Quoted(dir.Path("cut.o")));
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("OUT OF FILE: section header table"), std::string::npos);
  EXPECT_EQ(Kofd(dir, "layout " + Quoted(dir.Path("absent.o"))).status, 2);
  run = Kofd(dir, "layout " + Quoted(std::string(KOFD_EXAMPLES_DIR) + "/hello.json"));
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(run.out.empty());
  EXPECT_NE(run.err.find("neither a KELF object nor an archive"), std::string::npos);
}

}  // namespace
