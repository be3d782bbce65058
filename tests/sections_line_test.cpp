// Line, source-line and stab tables read from a file, resolved through their linked sections.
#include <stdexcept>

#include <gtest/gtest.h>

#include "sections/line_table.h"
#include "sections/stab_table.h"
#include "sections_file.h"

using kelf_test::Join;

TEST(LineTable, ResolvesRecordsThroughTheInfoSectionOnly) {
  // Program words (20 bytes), then lines at word 3, at the first word past the contents, and at
  // a word whose byte position wraps to 4 in 32 bits.
  SectionFile file(Join({kelf_test::Words({0xA0, 0xA1, 0xA2, 0xA3, 0xA4}), kelf_test::Line(3, 10),
                         kelf_test::Line(5, 11), kelf_test::Line(0x40000001, 12)}));
  C_KOfdProgramTable program;
  file.Load(program, 0, 20, 0x100);
  C_KOfdLineTable lines;
  file.Load(lines, 20, 24).Attach(nullptr, &program);

  EXPECT_EQ(lines.GetLineAddress(0), 0x103u);
  DWORD dwSentinel = 0;
  DWORD* pWord = nullptr;
  ASSERT_EQ(lines.GetLineCode(0, &pWord), S_OK);
  EXPECT_EQ(*pWord, 0xA3u);
  for (DWORD i : {1u, 2u}) {
    pWord = &dwSentinel;
    EXPECT_EQ(lines.GetLineCode(i, &pWord), S_OK);
    EXPECT_EQ(pWord, nullptr) << i;
  }
  EXPECT_THROW(lines.GetLineAddress(3), std::out_of_range);

  // Attached as the linked section, or an info section that holds no program: no program.
  C_KOfdStringTable strings;
  for (C_KOfdSection* pLinked : {static_cast<C_KOfdSection*>(&program), static_cast<C_KOfdSection*>(&strings)}) {
    lines.Attach(pLinked, pLinked == &strings ? pLinked : nullptr);
    I_KOfdProgramTable* pProgram = &program;
    EXPECT_EQ(lines.GetProgramTable(&pProgram), S_OK);
    EXPECT_EQ(pProgram, nullptr);
    pWord = &dwSentinel;
    EXPECT_EQ(lines.GetLineCode(0, &pWord), E_POINTER);
    EXPECT_EQ(pWord, nullptr);
  }
  EXPECT_EQ(lines.GetLineAddress(0), 3u);
}

TEST(LineTable, LoadsNothingFromPartialOrMisplacedSections) {
  SectionFile file(Join({kelf_test::Line(1, 1), kelf_test::Line(2, 2), kelf_test::Line(3, 3)}));
  C_KOfdLineTable partial;
  EXPECT_EQ(file.Load(partial, 0, 20).GetCount(), 0u);
  EXPECT_TRUE(partial.IsEmpty());
  // Past the end, straddling it, and a size the file cannot supply (refused before allocating).
  for (DWORD dwOffset : {24u, 16u, 0u}) {
    C_KOfdLineTable lines;
    ExpectReadError([&] { file.Load(lines, dwOffset, dwOffset ? 16 : 0xFFFFFFF8u); }, "When read struct KEL_LINE");
    EXPECT_EQ(lines.GetCount(), 0u);
  }
}

TEST(SourceLineTable, FindsRecordsByFileAndSharesStoredNames) {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const DWORD dwA = names.Add("a.c"), dwB = names.Add("b.c");
  const kelf_test::Bytes records = Join({kelf_test::SrcLine(0, 0, dwA), kelf_test::SrcLine(4, 7, dwA),
                                         kelf_test::SrcLine(8, 9, dwB), kelf_test::SrcLine(12, 1, 0xFFFFFFF0u)});
  SectionFile file(Join({names.Data(), records}));
  C_KOfdStringTable strings;
  file.Load(strings, 0, names.Size());
  C_KOfdSourceLineTable lines;
  file.Load(lines, names.Size(), records.size()).Attach(&strings, nullptr);

  KEL_SRCLINE* pLine = nullptr;
  ASSERT_EQ(lines.FindMatching("a.c", 0, &pLine), S_OK);
  EXPECT_EQ(pLine->Line, 7u);
  EXPECT_EQ(lines.FindSourceLine("b.c", 1, &pLine), E_FAIL);
  const char* pszFile = nullptr;
  ASSERT_EQ(lines.GetSourceLineAt(3, &pszFile, &pLine), S_OK);
  EXPECT_STREQ(pszFile, "");

  const DWORD dwLength = strings.GetLength();
  KEL_SRCLINE added = {16, 20, 0};
  ASSERT_EQ(lines.AddSourceLine(&added, "b.c"), S_OK);
  EXPECT_EQ(added.NameIndex, dwB);
  ASSERT_EQ(lines.AddSourceLine(&added, "c.c"), S_OK);
  EXPECT_EQ(added.NameIndex, dwLength);
  EXPECT_EQ(strings.GetLength(), dwLength + 4);
  EXPECT_EQ(lines.CountOf("b.c"), 2u);
  ASSERT_EQ(lines.FindSourceLine("c.c", 0, &pLine), S_OK);
  EXPECT_EQ(pLine->Offset, 16u);
}

TEST(StabTable, FindsStabsByNameAndPrefersTypedEntries) {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const DWORD dwMain = names.Add("main:F1");
  const kelf_test::Bytes records = Join({kelf_test::Stab(dwMain, 0, 0, 0, 1), kelf_test::Stab(dwMain, 0x24, 0, 3, 0x200),
                                         kelf_test::Stab(0xFFFFFFFFu, 0x64, 0, 0, 0)});
  SectionFile file(Join({records, names.Data()}));
  C_KOfdStringTable strings;
  file.Load(strings, static_cast<DWORD>(records.size()), names.Size());
  C_KOfdStabTable stabs;
  file.Load(stabs, 0, records.size()).Attach(&strings, nullptr);

  KEL_STAB* pStab = nullptr;
  ASSERT_EQ(stabs.FindMatching("main:F1", 0, &pStab), S_OK);
  EXPECT_EQ(pStab->n_value, 0x200u);
  const char* pszName = nullptr;
  ASSERT_EQ(stabs.GetStabAt(2, &pszName, &pStab), S_OK);
  EXPECT_STREQ(pszName, "");

  KEL_STAB added = {0, 0x80, 0, 0, 7};
  const DWORD dwLength = strings.GetLength();
  ASSERT_EQ(stabs.AddStab(&added, "main:F1"), S_OK);
  EXPECT_EQ(added.n_strx, dwLength);
  EXPECT_EQ(stabs.CountOf("main:F1"), 3u);
  ASSERT_EQ(stabs.GetStabAt(3, &pszName, &pStab), S_OK);
  EXPECT_STREQ(pszName, "main:F1");
}
