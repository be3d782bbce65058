// Work and memory bounded by the file: hostile shapes from tests/support/hostile_shapes.h,
// checked by what they make the library hold, walk or probe, never by time.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "archive/archive.h"
#include "frame/error.h"
#include "frame_temp_dir.h"
#include "hostile_shapes.h"
#include "object/kofd_elf.h"
#include "reloc/relocation_tables.h"
#include "sections/hash_table.h"

namespace {

using kelf_test::Bytes;

std::string Text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

HRESULT ReadObject(C_KOfdELF4& document, const std::string& sPath) {
  document.AttachPath(sPath.c_str(), 0);
  try {
    return document.Read();
  } catch (const C_Exception& error) {
    return error.Code();
  }
}

}  // namespace

TEST(Bounds, AnArchiveHoldsAndWritesEachMemberOnce) {
  TempDir dir;
  // One 20 KB member listed 400 times: one member, its 400 symbols moved to it, saved once.
  const Bytes repeated = kelf_test::RepeatedMemberArchive(20000, 400);
  C_KOfdArchive archive;
  const std::string sPath = dir.Write("repeated.a", Text(repeated));
  archive.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
  ASSERT_EQ(archive.Open(), S_OK);
  EXPECT_EQ(archive.MemberCount(), 1u);
  EXPECT_EQ(archive.LinkMember().GetObjectCount(), 1u);
  long lMember = -1;
  archive.FindSymbolMember("shared_399", &lMember);
  EXPECT_EQ(lMember, 0);
  I_KOfdELF* pDocument = nullptr;
  EXPECT_EQ(archive.MemberAt(0).GetDocument(&pDocument), S_OK);
  const std::string sSaved = dir.Path("saved.a");
  ASSERT_EQ(archive.SaveAs(sSaved.c_str()), S_OK);
  EXPECT_EQ(TempDir::Read(sSaved).size(), repeated.size() - 4 * 399);
  C_KOfdArchive reopened;
  reopened.Attach(sSaved.c_str(), sSaved.c_str(), 0, 0, 0);
  ASSERT_EQ(reopened.Open(), S_OK);
  EXPECT_EQ(reopened.MemberCount(), 1u);
  EXPECT_EQ(reopened.LinkMember().GetNameCount(), 400u);
  const BYTE* pSaved = nullptr;
  DWORD dwSaved = 0;
  ASSERT_EQ(reopened.MemberAt(0).GetData(&pSaved, &dwSaved), S_OK);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(pSaved), dwSaved), Text(kelf_test::ObjectWithSymbol("shared", 20000)));

  // 40 members whose bytes overlap: what they load in all stays within the archive's size.
  const Bytes overlapping = kelf_test::OverlappingMemberArchive(40, 3000);
  const std::string sOverlap = dir.Write("overlap.a", Text(overlapping));
  C_KOfdArchive overlap;
  overlap.Attach(sOverlap.c_str(), sOverlap.c_str(), 0, 0, 0);
  ASSERT_EQ(overlap.Open(), S_OK);
  ASSERT_EQ(overlap.MemberCount(), 40u);
  std::size_t nLoaded = 0, nRefused = 0;
  for (DWORD i = 0; i < overlap.MemberCount(); ++i) {
    const BYTE* pData = nullptr;
    DWORD dwSize = 0;
    try {
      overlap.MemberAt(i).GetData(&pData, &dwSize);
      nLoaded += dwSize;
    } catch (const C_Exception& error) {
      EXPECT_EQ(error.Code(), KE_READ_FAILED);
      ++nRefused;
    }
  }
  EXPECT_LE(nLoaded, overlapping.size());
  EXPECT_GT(nRefused, 0u);
  // The last member is the object alone: it was refused only for the budget the others took.
  const DWORD dwLast = overlap.MemberCount() - 1;
  EXPECT_THROW(overlap.MemberAt(dwLast).GetDocument(&pDocument), C_Exception);
}

TEST(Bounds, AnObjectReadsNoMoreThanItsBytesAndAnEmptySectionFromAnywhere) {
  TempDir dir;
  C_KOfdELF4 single, overlapping;
  EXPECT_EQ(ReadObject(single, dir.Write("one.o", Text(kelf_test::OverlappingSectionsObject(1, 5000)))), S_OK);
  // Three sections over the same 5000 bytes need 15000 of a file of about 5200.
  EXPECT_EQ(ReadObject(overlapping, dir.Write("three.o", Text(kelf_test::OverlappingSectionsObject(3, 5000)))),
            KE_READ_FAILED);

  // A program section of size 0 whose offset lies past the end of the file.
  kelf_test::ObjectBuilder builder;
  builder.AddSection({".text", kelf_test::kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(8, 1), {}, {}, {}});
  builder.AddSection({".empty", kelf_test::kShtPrgbit, 6, 0, 0, 0, 4, 0, {}, {}, 0u, 0x7FFFFFF0u});
  C_KOfdELF4 empty;
  ASSERT_EQ(ReadObject(empty, dir.Write("empty.o", Text(builder.Build()))), S_OK);
  I_KOfdSection* pSection = nullptr;
  ASSERT_EQ(empty.FindSection(".empty", &pSection), S_OK);
  auto* pProgram = dynamic_cast<C_KOfdProgramTable*>(pSection);
  ASSERT_NE(pProgram, nullptr);
  EXPECT_FALSE(pProgram->IsEmpty());
  EXPECT_EQ(pProgram->DumpAll(), S_OK);
}

TEST(Bounds, RecordsNamingOneRunWalkItOnce) {
  TempDir dir;
  C_KOfdELF4 document;
  // One run of 17 tokens (1, then eight times 1 +): long enough to be remembered.
  ASSERT_EQ(ReadObject(document, dir.Write("run.o", Text(kelf_test::SharedRunObject(300, 8)))), S_OK);
  I_KOfdSection* pSection = nullptr;
  ASSERT_EQ(document.FindSection(".relxeb", &pSection), S_OK);
  auto* pTable = dynamic_cast<C_KOfdRelxebTable*>(pSection);
  ASSERT_NE(pTable, nullptr);
  std::string sExpected = "1";
  for (int i = 0; i < 8; ++i) sExpected = "(" + sExpected + " + 1)";
  const DWORD nNeeded = static_cast<DWORD>(sExpected.size() + 1);
  const std::uint64_t qwBefore = pTable->GetWalkCount();
  pTable->RememberRuns(true);
  char szText[256];
  for (DWORD i = 0; i < pTable->GetCount(); ++i) {
    DWORD dwValue = 0;
    ASSERT_EQ(pTable->Evaluate(i, &dwValue), S_OK);
    EXPECT_EQ(dwValue, 9u);
    ASSERT_EQ(pTable->GetExpressionText(i, szText, sizeof szText), S_OK);
    EXPECT_EQ(szText, sExpected);
    HRESULT hrValue = E_FAIL;
    dwValue = 0;
    ASSERT_EQ(pTable->EvaluateWithText(i, &dwValue, &hrValue, szText, sizeof szText), S_OK);
    EXPECT_EQ(hrValue, S_OK);
    EXPECT_EQ(dwValue, 9u);
    EXPECT_EQ(szText, sExpected);
  }
  EXPECT_EQ(pTable->GetWalkCount() - qwBefore, 2u);
  // Another buffer size is another text.
  EXPECT_EQ(pTable->GetExpressionText(0, szText, nNeeded - 1), E_FAIL);
  EXPECT_EQ(pTable->GetExpressionText(0, szText, nNeeded), S_OK);
  EXPECT_EQ(pTable->GetExpressionText(1, szText, nNeeded), S_OK);
  EXPECT_EQ(pTable->GetWalkCount() - qwBefore, 4u);
  pTable->RememberRuns(false);
  // Relocate remembers for itself: one walk for its 300 records (byte offsets 4 apart).
  const std::uint64_t qwRelocate = pTable->GetWalkCount();
  EXPECT_EQ(pTable->Relocate(KEL_RELOCATE_BYTE, nullptr), S_OK);
  EXPECT_EQ(pTable->GetWalkCount() - qwRelocate, 1u);
  // Forgotten after: a lone evaluation walks again.
  DWORD dwValue = 0;
  EXPECT_EQ(pTable->Evaluate(0, &dwValue), S_OK);
  EXPECT_EQ(pTable->GetWalkCount() - qwRelocate, 2u);

  // A short run (five tokens) is walked for every record, once for value and text together, and
  // gives what the separate calls give, a text too long for the buffer included.
  C_KOfdELF4 shortRuns;
  ASSERT_EQ(ReadObject(shortRuns, dir.Write("short.o", Text(kelf_test::SharedRunObject(50, 2)))), S_OK);
  ASSERT_EQ(shortRuns.FindSection(".relxeb", &pSection), S_OK);
  pTable = dynamic_cast<C_KOfdRelxebTable*>(pSection);
  ASSERT_NE(pTable, nullptr);
  const C_RememberedRuns remembered(*pTable);
  const std::uint64_t qwShort = pTable->GetWalkCount();
  for (DWORD i = 0; i < pTable->GetCount(); ++i) {
    HRESULT hrValue = E_FAIL;
    dwValue = 0;
    ASSERT_EQ(pTable->EvaluateWithText(i, &dwValue, &hrValue, szText, sizeof szText), S_OK);
    EXPECT_EQ(hrValue, S_OK);
    EXPECT_EQ(dwValue, 3u);
    EXPECT_STREQ(szText, "((1 + 1) + 1)");
  }
  EXPECT_EQ(pTable->GetWalkCount() - qwShort, 50u);
  HRESULT hrValue = E_FAIL;
  EXPECT_EQ(pTable->EvaluateWithText(0, &dwValue, &hrValue, szText, 13), E_FAIL);
  EXPECT_EQ(hrValue, S_OK);
  EXPECT_EQ(pTable->EvaluateWithText(50, &dwValue, &hrValue, szText, sizeof szText), E_FAIL);
  EXPECT_EQ(hrValue, E_FAIL);
}

TEST(Bounds, NamesSharingOneHashAreFoundWithBoundedWork) {
  const std::vector<std::string> names = kelf_test::CollidingNames(12);
  ASSERT_EQ(names.size(), 4096u);
  for (const std::string& name : names) ASSERT_EQ(HashName(name.c_str()), HashName(names[0].c_str()));
  // Each insertion, lookup and re-placement costs at most the probe window and one tree search;
  // a probe through every name that shares the hash would take about 2048 steps each.
  const std::uint64_t qwBound = 6 * names.size() * (C_NameSlots::kProbeWindow + 1);

  C_NameIndex<const std::string> index;
  for (const std::string& name : names) index.Insert(name.c_str(), &name);
  index.Insert(names[5].c_str(), &names[6]);
  for (const std::string& name : names) {
    EXPECT_EQ(index.FindIf(name.c_str(), [](const std::string*) { return true; }), &name);
  }
  EXPECT_EQ(index.CountOf(names[5].c_str()), 2u);
  EXPECT_EQ(index.FindIf(names[5].c_str(), [n = 1](const std::string*) mutable { return n-- == 0; }), &names[6]);
  EXPECT_EQ(index.CountOf((names[0] + "x").c_str()), 0u);
  EXPECT_EQ(index.EntryAt(4095), &names[4095]);
  EXPECT_EQ(index.Count(), 4097u);
  EXPECT_LE(index.GetSteps(), qwBound);

  TempDir dir;
  const std::string sPath = dir.Write("names.a", Text(kelf_test::ArchiveWithSymbols(names)));
  C_KOfdArchive archive;
  archive.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
  ASSERT_EQ(archive.Open(), S_OK);
  long lMember = -1;
  for (const std::string& name : names) {
    archive.FindSymbolMember(name.c_str(), &lMember);
    ASSERT_EQ(lMember, 0) << name;
  }
  archive.FindSymbolMember((names[0] + "x").c_str(), &lMember);
  EXPECT_EQ(lMember, -1);
  EXPECT_LE(archive.LinkMember().GetLookupSteps(), qwBound);
}
