// The chip resource tables: share ROM words, KMD sound data and KDM entries.
#include <gtest/gtest.h>

#include "sections/kmd_tables.h"
#include "sections/share_rom_table.h"
#include "sections_file.h"

using kelf_test::Join;

TEST(ShareRomTable, AnswersWordsOnlyInsideTheLoadedCount) {
  SectionFile file(kelf_test::Words({10, 11, 12, 13, 14}));
  C_KOfdShareRomTable rom, partial, past;
  DWORD* pWord = nullptr;
  ASSERT_EQ(file.Load(rom, 0, 20).GetWord(4, &pWord), S_OK);
  EXPECT_EQ(*pWord, 14u);
  DWORD dwSentinel = 0;
  for (DWORD i : {5u, 0x40000000u}) {
    pWord = &dwSentinel;
    EXPECT_EQ(rom.GetWord(i, &pWord), static_cast<HRESULT>(0x800403F1)) << i;
    EXPECT_EQ(pWord, &dwSentinel);
  }
  // A size that is not whole words loads nothing and reports nothing.
  EXPECT_EQ(file.Load(partial, 0, 6).GetWord(0, &pWord), static_cast<HRESULT>(0x800403F1));
  DWORD dwBytes = 1;
  partial.GetData(&pWord, &dwBytes);
  EXPECT_EQ(pWord, nullptr);
  EXPECT_EQ(dwBytes, 0u);
  // A whole table hands out its words and their count in bytes.
  ASSERT_EQ(rom.GetData(&pWord, &dwBytes), S_OK);
  EXPECT_EQ(dwBytes, 20u);
  EXPECT_EQ(pWord[4], 14u);
  ExpectReadError([&] { file.Load(past, 4, 20); }, "unsigned long");
  EXPECT_TRUE(past.IsEmpty());
}

TEST(KmdTable, GivesDataOnlyWhenItHoldsBytesAndItsPlacement) {
  SectionFile file(kelf_test::Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9});
  C_KOfdKmdTable unread, empty, sound;
  BYTE* pData = nullptr;
  EXPECT_EQ(unread.GetData(&pData), E_FAIL);
  EXPECT_EQ(file.Load(empty, 9, 0).GetData(&pData), E_FAIL);
  ASSERT_EQ(file.Load(sound, 0, 9, 0x4000, 0x70).GetData(&pData), S_OK);
  EXPECT_EQ(pData[8], 9);
  DWORD dwAddress = 0, dwSize = 0, dwInfo = 0;
  ASSERT_EQ(sound.GetPlacement(&dwAddress, &dwSize, &dwInfo), S_OK);
  EXPECT_EQ(dwAddress, 0x4000u);
  EXPECT_EQ(dwSize, 9u);
  EXPECT_EQ(dwInfo, 0x70u);
}

TEST(KmdInfoTable, NamesEntriesAndKeepsTheFirstOfADuplicateName) {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const kelf_test::Bytes records =
      Join({kelf_test::KmdInfo(names.Add("kick"), 0xFFFFFFFFu, 64, 0x80000000u), kelf_test::KmdInfo(0x7FFFFFFF, 1, 2, 3)});
  SectionFile file(Join({names.Data(), records}));
  C_KOfdStringTable strings;
  file.Load(strings, 0, names.Size());
  C_KOfdKmdInfoTable kdm;
  file.Load(kdm, names.Size(), records.size());

  KEL_KMDINFO entry = {0x12345, 100, 200, 300};
  EXPECT_EQ(kdm.AddKdm("snare", &entry), E_POINTER);
  kdm.LinkStringTable(&strings);
  const char* pszName = nullptr;
  KEL_KMDINFO* pEntry = nullptr;
  ASSERT_EQ(kdm.GetKdmWithName(0, &pszName, &pEntry), S_OK);
  EXPECT_STREQ(pszName, "kick");
  ASSERT_EQ(kdm.GetKdmWithName(1, &pszName, &pEntry), S_OK);
  EXPECT_STREQ(pszName, "");
  pszName = nullptr;
  EXPECT_EQ(kdm.GetKdmWithName(2, &pszName, &pEntry), static_cast<HRESULT>(0x800403F1));
  EXPECT_EQ(pszName, nullptr);
  EXPECT_EQ(kdm.Code(), static_cast<HRESULT>(0x800403F1));
  EXPECT_EQ(kdm.GetKdm(2, &pEntry), static_cast<HRESULT>(0x800403F1));
  EXPECT_EQ(pEntry, nullptr);

  // The index is built before the duplicate arrives and must refuse it, not replace the first.
  KEL_KMDINFO* pFound = nullptr;
  ASSERT_EQ(kdm.FindByName("kick", &pFound), S_OK);
  const DWORD dwLength = strings.GetLength();
  ASSERT_EQ(kdm.AddKdm("kick", &entry), S_OK);
  ASSERT_EQ(kdm.GetKdmWithName(2, &pszName, &pEntry), S_OK);
  EXPECT_STREQ(pszName, "kick");
  EXPECT_EQ(pEntry->NameIndex, dwLength);
  EXPECT_EQ(pEntry->Value, 100u);
  ASSERT_EQ(kdm.FindByName("kick", &pFound), S_OK);
  EXPECT_EQ(pFound->Value, 0xFFFFFFFFu);
}
