// The object document: opening, sections and their links, revisions, and damaged files.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "typical_object.h"
#include "object/kofd_elf.h"
#include "sections/kmd_tables.h"
#include "sections/line_table.h"
#include "sections/storage.h"
#include "sections/symbol_table.h"

namespace {

using kelf_test::Bytes;
using kelf_test::MakeSection;
using kelf_test::ObjectBuilder;

std::string AsString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

template <class Document = C_KOfdELF4>
struct Opened {
  Opened(const TempDir& dir, const Bytes& bytes) {
    document.AttachPath(dir.Write("object.o", AsString(bytes)).c_str(), 0);
  }
  // The failure that opening throws; opening that succeeds fails the test.
  C_Exception Failure() {
    try {
      document.Read();
    } catch (const C_Exception& error) {
      EXPECT_EQ(document.GetHandle(), nullptr) << "the file was left open";
      return error;
    }
    ADD_FAILURE() << "the object was accepted";
    return C_Exception();
  }
  I_KOfdSection* Section(DWORD dwIndex) {
    I_KOfdSection* pSection = nullptr;
    EXPECT_EQ(document.GetSection(dwIndex, &pSection), S_OK);
    return pSection;
  }
  Document document;
};

bool StartsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

}  // namespace

TEST(KOfdELF, OpensSectionsWithNamesKeysAndLinks) {
  TempDir dir;
  Opened<> opened(dir, TypicalObject().Build());
  opened.document.SetIdentifier(0x00070000u | 0x12);
  ASSERT_EQ(opened.document.Read(), S_OK);
  EXPECT_EQ(opened.document.GetHandle(), nullptr);
  DWORD dwCount = 0;
  opened.document.GetSectionCount(&dwCount);
  EXPECT_EQ(dwCount, 6u);
  EXPECT_EQ(opened.Section(0), nullptr);

  I_KOfdSection* pFound = nullptr;
  ASSERT_EQ(opened.document.FindSection(".SymTab", &pFound), S_OK);
  EXPECT_EQ(pFound, opened.Section(2));
  EXPECT_STREQ(pFound->GetName(), ".symtab");
  EXPECT_EQ(pFound->GetKeyIndex(), 2);
  EXPECT_EQ(pFound->GetKeyValue(), 0x00120002u);
  EXPECT_EQ(opened.document.FindSection(".symtab2", &pFound), E_FAIL);
  DWORD dwWord = 0;
  opened.document.GetSectionWord(2, &dwWord);
  EXPECT_EQ(dwWord, static_cast<DWORD>(kSectionRead));

  // The symbol table finds its names in the string table behind it.
  I_KOfdSymbolTable* pSymbols = nullptr;
  opened.document.GetSymbolTable(&pSymbols);
  ASSERT_EQ(dynamic_cast<I_KOfdSection*>(pSymbols), opened.Section(2));
  ELF32_SYM* pMain = nullptr;
  ASSERT_EQ(pSymbols->FindSymbol("main", &pMain), S_OK);
  EXPECT_EQ(pMain->st_value, 4u);
  I_KOfdSection* pOwner = nullptr;
  ASSERT_EQ(pSymbols->GetSymbolSection("main", &pOwner), S_OK);
  EXPECT_EQ(pOwner, opened.Section(1));
  EXPECT_EQ(opened.document.GetProgramTable(), opened.Section(1));

  // The line table's program section is the one its Info field names; Link follows a change.
  auto* pLine = dynamic_cast<C_KOfdLineTable*>(opened.Section(4));
  ASSERT_NE(pLine, nullptr);
  EXPECT_EQ(pLine->GetInfoSection(), opened.Section(1));
  pLine->SetInfo(2);
  ASSERT_EQ(opened.document.Link(), S_OK);
  EXPECT_EQ(pLine->GetInfoSection(), opened.Section(2));

  // A bad index is recorded as the range failure.
  EXPECT_EQ(opened.document.GetSection(6, &pFound), KE_OUT_OF_RANGE);
  EXPECT_EQ(opened.document.Code(), KE_OUT_OF_RANGE);
  const char* pszName = nullptr;
  EXPECT_EQ(opened.document.GetSectionName(6, &pszName), KE_OUT_OF_RANGE);
  EXPECT_EQ(opened.document.GetSectionName(3, &pszName), S_OK);
  EXPECT_STREQ(pszName, ".symstrtab");
}

TEST(KOfdELF, EachRevisionBuildsItsOwnSectionClasses) {
  TempDir dir;
  ObjectBuilder builder;
  for (std::uint32_t type : {kelf_test::kShtRelx, kelf_test::kShtRelxe, kelf_test::kShtExpr, kelf_test::kShtLine,
                             kelf_test::kShtRelxeb, kelf_test::kShtKdm, kelf_test::kShtSrcLine}) {
    builder.AddSection(MakeSection("s" + std::to_string(type), type));
  }
  const Bytes bytes = builder.Build();
  auto built = [&](auto& opened) {
    EXPECT_EQ(opened.document.Read(), S_OK);
    std::string text;
    for (DWORD i = 1; i <= 7; ++i) text += opened.Section(i) ? "1" : "0";
    return text;
  };
  Opened<C_KOfdELF> base(dir, bytes);
  Opened<C_KOfdELF2> second(dir, bytes);
  Opened<C_KOfdELF3> third(dir, bytes);
  Opened<C_KOfdELF4> fourth(dir, bytes);
  EXPECT_EQ(built(base), "0110000");
  EXPECT_EQ(built(second), "0111100");
  EXPECT_EQ(built(third), "0111110");
  EXPECT_EQ(built(fourth), "0111111");
  EXPECT_NE(dynamic_cast<C_KOfdKmdTable*>(fourth.Section(6)), nullptr);
  EXPECT_NE(dynamic_cast<C_KOfdSourceLineTable*>(fourth.Section(7)), nullptr);
}

TEST(KOfdELF, KeepsTheLastSymbolTableAndSurvivesLinkLoops) {
  TempDir dir;
  ObjectBuilder builder;
  builder.AddSection(MakeSection(".symtab", kelf_test::kShtSymtab, kelf_test::Sym(0, 0, 0, 0, 0, 0, 0), 1));
  builder.AddSection(MakeSection(".symtab", kelf_test::kShtSymtab, kelf_test::Sym(1, 0, 0, 0, 0, 0, 0), 3));
  builder.AddSection(MakeSection(".a", kelf_test::kShtStrtab, {'x', 0}, 4));
  builder.AddSection(MakeSection(".b", kelf_test::kShtStrtab, {0}, 3));
  Opened<> opened(dir, builder.Build());
  ASSERT_EQ(opened.document.Read(), S_OK);
  I_KOfdSymbolTable* pSymbols = nullptr;
  opened.document.GetSymbolTable(&pSymbols);
  EXPECT_EQ(dynamic_cast<I_KOfdSection*>(pSymbols), opened.Section(2));
  // A symbol table linked to itself has no string table.
  EXPECT_EQ(dynamic_cast<C_KOfdSection*>(opened.Section(1))->GetLinkedSection(), nullptr);
  EXPECT_EQ(dynamic_cast<C_KOfdSection*>(opened.Section(3))->GetLinkedSection(), opened.Section(4));
  EXPECT_EQ(dynamic_cast<C_KOfdSection*>(opened.Section(4))->GetLinkedSection(), opened.Section(3));
}

TEST(KOfdELF, ReadsAnObjectAtABaseOffsetAndItsSegments) {
  TempDir dir;
  ObjectBuilder builder = TypicalObject();
  kelf_test::ObjectLayout layout;
  builder.Build(&layout);
  // Two program headers move the contents on by 64 bytes.
  builder.AddProgramHeader({1, layout.sectionOffsets[1] + 64, 0, 0, 8, 8, 5, 4});
  builder.AddProgramHeader({1, 0x7FFFFFFF, 0, 0, 8, 8, 5, 4});
  const Bytes object = builder.Build(&layout);
  Opened<> opened(dir, kelf_test::Join({Bytes(100, 0xEE), object}));
  opened.document.SetBaseOffset(100);
  ASSERT_EQ(opened.document.Read(), S_OK);
  DWORD dwCount = 0;
  opened.document.GetProgramHeaderCount(&dwCount);
  EXPECT_EQ(dwCount, 2u);
  ASSERT_EQ(opened.document.ReadSegment(0), S_OK);
  I_KElfProgramHeader* pTable = nullptr;
  opened.document.GetProgramHeader(&pTable);
  const BYTE* pData = nullptr;
  DWORD dwSize = 0;
  ASSERT_EQ(pTable->GetSegment(0, &pData, &dwSize), S_OK);
  ASSERT_EQ(dwSize, 8u);
  EXPECT_EQ(pData[0], 0x11);
  EXPECT_EQ(pData[4], 0x22);
  EXPECT_EQ(opened.document.ReadSegment(2), KE_OUT_OF_RANGE);
  try {
    opened.document.ReadSegments();
    ADD_FAILURE() << "a segment past the end was read";
  } catch (const C_Exception& error) {
    EXPECT_TRUE(StartsWith(error.Message(), "error 1016: failed to read from file specified(When read segment). "));
  }
  EXPECT_EQ(opened.document.GetHandle(), nullptr);
}

TEST(KOfdELF, AnObjectWithoutSectionsHasNone) {
  TempDir dir;
  ObjectBuilder builder({false, false, false});
  builder.Header().shoff = 0xFFFFFFF0u;
  builder.Header().shstrndx = 9;
  Opened<> opened(dir, builder.Build());
  ASSERT_EQ(opened.document.Read(), S_OK);
  DWORD dwCount = 1;
  opened.document.GetSectionCount(&dwCount);
  EXPECT_EQ(dwCount, 0u);
  I_KOfdSection* pSection = nullptr;
  EXPECT_EQ(opened.document.GetSection(0, &pSection), KE_OUT_OF_RANGE);
  const char* pszName = nullptr;
  EXPECT_EQ(opened.document.GetSectionName(0, &pszName), E_POINTER);
  EXPECT_EQ(opened.document.FindSection("", &pSection), E_FAIL);
}

TEST(KOfdELF, DamagedObjectsFailWithTheirOwnResult) {
  struct Case {
    const char* pszWhat;
    std::function<void(ObjectBuilder&)> damage;
    HRESULT hrCode;
    const char* pszMessage;
  };
  const Case cases[] = {
      {"section headers past the end", [](ObjectBuilder& b) { b.Header().shoff = 0x10000; }, KE_READ_FAILED,
       "error 1016: failed to read from file specified(When read section header). \nSystem Error: "},
      {"more section headers than the file holds", [](ObjectBuilder& b) { b.Header().shnum = 0xFFFF; },
       KE_READ_FAILED, "error 1016: failed to read from file specified(When read section header). "},
      {"program headers past the end",
       [](ObjectBuilder& b) {
         b.Header().phnum = 2;
         b.Header().phoff = 0xFFFFFFF0u;
       },
       KE_READ_FAILED, "error 1016: failed to read from file specified(When read program header). "},
      {"name table index out of range", [](ObjectBuilder& b) { b.Header().shstrndx = 6; }, E_POINTER,
       "Exception: 0x80004003. Invalid string table pointer"},
      {"name table index on program data", [](ObjectBuilder& b) { b.Header().shstrndx = 1; }, E_POINTER,
       "Exception: 0x80004003. Invalid string table pointer"},
      {"program data past the end", [](ObjectBuilder& b) { b.SectionAt(1).offset = 0xFFFFFFF8u; }, KE_READ_FAILED,
       "error 1016: failed to read from file specified(While writing unsigned char). "},
      {"string table larger than the file", [](ObjectBuilder& b) { b.SectionAt(3).size = 0x7FFFFFFF; },
       KE_READ_FAILED, "error 1016: failed to read from file specified(When read string table). "},
      {"symbols past the end", [](ObjectBuilder& b) { b.SectionAt(2).offset = 0xFFFFFF00u; }, KE_READ_FAILED,
       "error 1016: failed to read from file specified(When read struct ELF32_SYM). "},
  };
  TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.pszWhat);
    ObjectBuilder builder = TypicalObject();
    c.damage(builder);
    Opened<> opened(dir, builder.Build());
    const C_Exception error = opened.Failure();
    EXPECT_EQ(error.Code(), c.hrCode);
    EXPECT_TRUE(StartsWith(error.Message(), c.pszMessage)) << error.Message();
  }

  Opened<> missing(dir, {});
  const std::string sPath = dir.Path("missing.o");
  missing.document.Attach(sPath.c_str(), "missing.o", 0, 0, 0);
  EXPECT_TRUE(StartsWith(missing.Failure().Message(), "error 1013: failed to open file specified(" + sPath + "). "));
}

// Sections that all cover the whole file would make the document hold it once per section; it
// holds a few times the file at most and then refuses the rest as unreadable.
TEST(KOfdELF, OverlappingSectionsCannotMultiplyTheFile) {
  TempDir dir;
  ObjectBuilder builder;
  for (int i = 0; i < 400; ++i) builder.AddSection(MakeSection(".big", kelf_test::kShtPrgbit, Bytes(4096, 0x5A)));
  const std::uint32_t dwFileSize = static_cast<std::uint32_t>(builder.Build().size());
  for (std::size_t i = 1; i <= 400; ++i) {
    builder.SectionAt(i).offset = 0;
    builder.SectionAt(i).size = dwFileSize;
  }
  Opened<> opened(dir, builder.Build());
  EXPECT_EQ(opened.Failure().Code(), KofdCode(1016));
}
