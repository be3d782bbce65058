// The edit and save operations of the extended object documents: edits reach the saved file and
// the document shows it after the save, an unedited save keeps every byte, and a refused edit
// records why and changes nothing.
#include <gtest/gtest.h>

#include <string>

#include "sections/bank_table.h"
#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"
#include "reloc/relocation_tables.h"
#include "sections/symbol_table.h"

namespace {

// 1 .text, 2 .symtab (names in 3), 3 .symstrtab, 4 .expr (symbols of 2), 5 .relxeb (tokens of 4,
// relocating 1). The one expression token names "main".
std::string WriteObject(const TempDir& dir) {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const std::uint32_t main = names.Add("main");
  kelf_test::ObjectBuilder builder(kelf_test::ObjectOptions{true, true, true});
  builder.AddSection(kelf_test::MakeSection(".text", kelf_test::kShtPrgbit, kelf_test::Words({1, 2, 3, 4})));
  builder.AddSection(kelf_test::MakeSection(
      ".symtab", kelf_test::kShtSymtab,
      kelf_test::Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0), kelf_test::Sym(main, 4, 0, kelf_test::kStbGlobal, 0, 0, 1)}), 3, 1));
  builder.AddSection(kelf_test::MakeSection(".symstrtab", kelf_test::kShtStrtab, names.Data()));
  builder.AddSection(kelf_test::MakeSection(".expr", kelf_test::kShtExpr, kelf_test::Exp(13, 1), 2));
  builder.AddSection(kelf_test::MakeSection(".relxeb", kelf_test::kShtRelxeb, kelf_test::Relxeb(0, 1, 2, 0, 31, 0, 0), 4, 1));
  const std::string sPath = dir.Path("in.o");
  builder.WriteFile(sPath);
  return sPath;
}

struct Opened {
  explicit Opened(const std::string& sPath) {
    document.AttachPath(sPath.c_str(), 0);
    EXPECT_EQ(document.Read(), S_OK);
  }
  ELF32_SYM* Symbol(const char* pszName) {
    I_KOfdSymbolTable* pTable = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    if (document.GetSymbolTable(&pTable) != S_OK || !pTable || pTable->FindSymbol(pszName, &pSymbol) != S_OK) return nullptr;
    return pSymbol;
  }
  C_KOfdELFX2 document;
};

TEST(EditInterface, EditsReachTheSavedFileAndTheDocumentShowsIt) {
  TempDir dir;
  const std::string sIn = WriteObject(dir), sOut = dir.Path("out.o"), sBefore = TempDir::Read(sIn);
  Opened opened(sIn);
  C_KOfdELFX2& document = opened.document;
  ASSERT_EQ(document.RenameSection(".TEXT", ".code"), S_OK);
  ASSERT_EQ(document.AddSymbol("added", ".code", 8, 1), S_OK);
  ASSERT_EQ(document.SetSymbolValue("main", 0x40), S_OK);
  const KEL_EXP tokens[] = {{13, 2}, {12, 4}, {1, 0}};
  DWORD dwFirst = 0;
  ASSERT_EQ(document.AddExpression(tokens, 3, &dwFirst), S_OK);
  EXPECT_EQ(dwFirst, 1u);
  const KEL_RELXEB record{8, (2u << 8) | 2u, 0, 15, dwFirst, dwFirst + 2};
  ASSERT_EQ(document.AddRelocation("1", &record), S_OK);
  // Until the save, the document reads what its file holds.
  I_KOfdSection* pSection = nullptr;
  EXPECT_EQ(document.FindSection(".code", &pSection), E_FAIL);
  ASSERT_EQ(document.SaveAs(sOut.c_str()), S_OK);
  EXPECT_EQ(TempDir::Read(sIn), sBefore);
  EXPECT_EQ(std::string(document.GetPath()), sOut);
  EXPECT_EQ(document.FindSection(".code", &pSection), S_OK);

  Opened saved(sOut);
  EXPECT_EQ(saved.document.FindSection(".text", &pSection), E_FAIL);
  ASSERT_TRUE(saved.Symbol("added") && saved.Symbol("main"));
  EXPECT_EQ(saved.Symbol("added")->st_value, 8u);
  EXPECT_EQ(saved.Symbol("added")->st_shndx, 1u);
  EXPECT_EQ(saved.Symbol("main")->st_value, 0x40u);
  saved.document.FindSection(".relxeb", &pSection);
  I_KOfdRelxebTable* pRelocations = dynamic_cast<I_KOfdRelxebTable*>(pSection);
  KEL_RELXEB* pRecord = nullptr;
  ASSERT_TRUE(pRelocations && pRelocations->GetAt(1, &pRecord) == S_OK);
  EXPECT_EQ(pRecord->Offset, 8u);
  EXPECT_EQ(pRecord->Info, (2u << 8) | 2u);
  char szText[64] = "";
  EXPECT_EQ(pRelocations->GetExpressionText(1, szText, sizeof szText), S_OK);
  EXPECT_EQ(std::string(szText), "(added + 4)");
}

TEST(EditInterface, AnUneditedSaveKeepsEveryByteAndSaveWritesInPlace) {
  TempDir dir;
  const std::string sIn = WriteObject(dir), sCopy = dir.Path("copy.o");
  Opened opened(sIn);
  ASSERT_EQ(opened.document.SaveAs(sCopy.c_str()), S_OK);
  EXPECT_EQ(TempDir::Read(sCopy), TempDir::Read(sIn));
  ASSERT_EQ(opened.document.SetSymbolValue("main", 7), S_OK);
  ASSERT_EQ(opened.document.Save(), S_OK);
  EXPECT_EQ(opened.Symbol("main")->st_value, 7u);
  // The second edit starts from the saved file, not from the image of the first.
  ASSERT_EQ(opened.document.SetSymbolValue("main", 9), S_OK);
  ASSERT_EQ(opened.document.Save(), S_OK);
  EXPECT_EQ(Opened(sCopy).Symbol("main")->st_value, 9u);
  EXPECT_NE(TempDir::Read(sIn), TempDir::Read(sCopy));
}

TEST(EditInterface, ARefusedEditRecordsWhyAndChangesNothing) {
  TempDir dir;
  const std::string sIn = WriteObject(dir), sOut = dir.Path("out.o");
  Opened opened(sIn);
  C_KOfdELFX2& document = opened.document;
  EXPECT_EQ(document.RemoveSymbol("main"), E_FAIL);
  EXPECT_NE(document.Message().find("expression record 0"), std::string::npos) << document.Message();
  const KEL_RELXEB record{0, 0, 0, 0, 1, 2};
  EXPECT_EQ(document.AddRelocation(".text", &record), E_FAIL);
  EXPECT_NE(document.Message().find("no run"), std::string::npos) << document.Message();
  const KEL_EXP token{13, 5};
  DWORD dwFirst = 0;
  EXPECT_EQ(document.AddExpression(&token, 1, &dwFirst), E_FAIL);
  EXPECT_EQ(document.RenameSection(nullptr, "x"), E_POINTER);
  ASSERT_EQ(document.SaveAs(sOut.c_str()), S_OK);
  EXPECT_EQ(TempDir::Read(sOut), TempDir::Read(sIn));
}

TEST(EditInterface, ACreatedObjectIsSavedAsAFileFirst) {
  TempDir dir;
  const std::string sOut = dir.Path("new.o");
  C_KOfdELFX2 document;
  EXPECT_EQ(document.RenameSection("1", "x"), E_FAIL);
  EXPECT_EQ(document.Create(5, 0x10000), E_FAIL);
  ASSERT_EQ(document.Create(5, 1), S_OK);
  const BYTE data[] = {1, 2, 3};
  ASSERT_EQ(document.AddSection(".data", 1, data, sizeof data), S_OK);
  ASSERT_EQ(document.AddBankRecord(0x100, 2), S_OK);
  EXPECT_EQ(document.Save(), E_FAIL);
  ASSERT_EQ(document.SaveCompactedAs(sOut.c_str()), S_OK);
  I_KOfdSection* pSection = nullptr;
  Opened saved(sOut);
  ASSERT_EQ(saved.document.FindSection(".data", &pSection), S_OK);
  EXPECT_EQ(pSection->GetSize(), 3u);
  // The bank table is read back as one, with the record added.
  ASSERT_EQ(saved.document.FindSection(".bankinfo", &pSection), S_OK);
  auto* pBank = dynamic_cast<I_KOfdBankTable*>(pSection);
  ASSERT_NE(pBank, nullptr);
  ASSERT_EQ(pBank->GetCount(), 1u);
  KEL_BANKINFO* pRecord = nullptr;
  ASSERT_EQ(pBank->GetAt(0, &pRecord), S_OK);
  EXPECT_EQ(pRecord->Address, 0x100u);
  EXPECT_EQ(pRecord->Bank, 2u);
}

}  // namespace
