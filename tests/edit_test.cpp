// The object image: saving without an edit keeps every byte, saving twice changes nothing,
// --compact keeps every section's contents, and a save whose parts would overlap writes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "edit/image_editor.h"
#include "edit/image_layout.h"
#include "frame/replacing_file.h"
#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"

namespace {

using kelf_test::Bytes;
using kelf_test::MakeSection;
using kelf_test::ObjectBuilder;

// 1 .text (12 bytes, of which the header names 8: 4 bytes of gap), 2 .symtab (names in 3),
// 3 .symstrtab, 4 a section of type 0x70 the library has no class for, 5 .expr, 6 .relxeb.
ObjectBuilder ShapedObject() {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const std::uint32_t local = names.Add("local"), main = names.Add("main");
  ObjectBuilder builder(kelf_test::ObjectOptions{true, true, true});
  kelf_test::Section text = MakeSection(".text", kelf_test::kShtPrgbit, kelf_test::Words({0x11111111, 0x22222222, 0xDEADBEEF}));
  text.size = 8;
  text.addralign = 4;
  builder.AddSection(text);
  builder.AddSection(MakeSection(".symtab", kelf_test::kShtSymtab,
                                 kelf_test::Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0),
                                                  kelf_test::Sym(local, 0, 0, kelf_test::kStbLocal, 0, 0, 1),
                                                  kelf_test::Sym(main, 4, 4, kelf_test::kStbGlobal, kelf_test::kSttFunction, 7, 1)}),
                                 3, 2));
  builder.AddSection(MakeSection(".symstrtab", kelf_test::kShtStrtab, names.Data()));
  builder.AddSection(MakeSection(".odd", 0x70, Bytes{1, 2, 3, 4, 5}, 77, 99));
  builder.AddSection(MakeSection(".expr", kelf_test::kShtExpr, kelf_test::Join({kelf_test::Exp(13, 2), kelf_test::Exp(12, 1), kelf_test::Exp(1, 0)}), 2));
  builder.AddSection(MakeSection(".relxeb", kelf_test::kShtRelxeb, kelf_test::Relxeb(1, 2, 0, 0, 31, 0, 2), 5, 1));
  return builder;
}

struct Loaded {
  Loaded(const std::string& sPath) {
    document.AttachPath(sPath.c_str(), 0);
    EXPECT_EQ(document.Read(), S_OK);
    image = std::make_unique<C_ObjectImage>(document, sPath.c_str());
  }
  C_KOfdELF4 document;
  std::unique_ptr<C_ObjectImage> image;
};

void Save(C_ObjectImage& image, const std::string& sPath, bool bCompact = false) {
  C_ReplacingFile output(sPath.c_str());
  WriteObjectImage(image, output, bCompact);
}

std::string Resaved(const TempDir& dir, const std::string& sFrom, const std::string& sName, bool bCompact = false) {
  Loaded loaded(sFrom);
  Save(*loaded.image, dir.Path(sName), bCompact);
  return dir.Path(sName);
}

TEST(EditImage, SavingWithoutAnEditKeepsEveryByteAndSavingTwiceChangesNothing) {
  TempDir dir;
  ObjectBuilder big = ShapedObject();
  big.BigEndian();
  ObjectBuilder segments = ShapedObject();
  segments.AddProgramHeader({1, 0x40, 0, 0, 8, 8, 5, 4});
  segments.Header().reserved = 0xBEEF;
  int n = 0;
  for (const ObjectBuilder& builder : {ShapedObject(), big, segments}) {
    const std::string sIn = dir.Path("in" + std::to_string(n) + ".o");
    const Bytes bytes = builder.Build();
    kelf_test::WriteFile(sIn, bytes);
    const std::string sOnce = Resaved(dir, sIn, "once" + std::to_string(n) + ".o");
    EXPECT_EQ(TempDir::Read(sOnce), TempDir::Read(sIn)) << "object " << n;
    EXPECT_EQ(TempDir::Read(Resaved(dir, sOnce, "twice" + std::to_string(n) + ".o")), TempDir::Read(sOnce)) << "object " << n;
    ++n;
  }
  // A file whose tail no header names keeps it too.
  const std::string sTail = dir.Write("tail.o", TempDir::Read(dir.Path("in0.o")) + "trailing junk");
  EXPECT_EQ(TempDir::Read(Resaved(dir, sTail, "tail_out.o")), TempDir::Read(sTail));
}

TEST(EditImage, CompactKeepsContentsAndLinksAndLaysOutAfresh) {
  TempDir dir;
  ObjectBuilder builder = ShapedObject();
  builder.AddProgramHeader({1, 0, 0, 0, 8, 8, 5, 4});
  kelf_test::ObjectLayout layout;
  const Bytes bytes = builder.Build(&layout);
  builder.ProgramHeaderAt(0).offset = layout.sectionOffsets[1];
  kelf_test::WriteFile(dir.Path("in.o"), builder.Build());
  Loaded before(dir.Path("in.o"));
  Loaded after(Resaved(dir, dir.Path("in.o"), "compact.o", true));
  const auto& was = before.image->Sections();
  const auto& now = after.image->Sections();
  ASSERT_EQ(was.size(), now.size());
  DWORD dwEnd = sizeof(KEL_EHDR) + sizeof(KEL_PHDR);
  for (std::size_t i = 1; i < now.size(); ++i) {
    EXPECT_EQ(now[i]->m_vData, was[i]->m_vData) << i;
    EXPECT_EQ(now[i]->m_Name.m_sText, was[i]->m_Name.m_sText) << i;
    EXPECT_EQ(now[i]->m_Header.sh_link, was[i]->m_Header.sh_link) << i;
    EXPECT_EQ(now[i]->m_Header.sh_info, was[i]->m_Header.sh_info) << i;
    const DWORD dwAlign = std::max<DWORD>(1, now[i]->m_Header.sh_addralign);
    EXPECT_EQ(now[i]->m_dwPlacedOffset, (dwEnd + dwAlign - 1) / dwAlign * dwAlign) << i;
    dwEnd = now[i]->m_dwPlacedOffset + now[i]->m_dwPlacedSize;
  }
  EXPECT_EQ(after.image->OriginalSectionTable(), (dwEnd + 3) / 4 * 4);
  EXPECT_EQ(TempDir::Read(dir.Path("compact.o")).size(), after.image->OriginalSectionTable() + now.size() * sizeof(KEL_SHDR));
  // The segment that began at .text still does.
  KEL_PHDR* pProgram = nullptr;
  I_KElfProgramHeader* pTable = nullptr;
  after.document.GetProgramHeader(&pTable);
  ASSERT_EQ(pTable->GetAt(0, &pProgram), S_OK);
  EXPECT_EQ(pProgram->p_offset, now[1]->m_dwPlacedOffset);
}

TEST(EditImage, RemovingRenumbersEveryReferenceAndRefusesDanglingOnes) {
  TempDir dir;
  ObjectBuilder builder = ShapedObject();
  kelf_test::WriteFile(dir.Path("in.o"), builder.Build());
  Loaded loaded(dir.Path("in.o"));
  C_ImageEditor editor(*loaded.image);
  auto expectRefusal = [](const std::function<void()>& edit, const std::string& sWords) {
    try {
      edit();
      ADD_FAILURE() << "no refusal: " << sWords;
    } catch (const C_Exception& error) {
      EXPECT_NE(error.Message().find(sWords), std::string::npos) << error.Message();
    }
  };
  expectRefusal([&] { editor.RemoveSymbol("main"); }, "expression record 0 of section 5 (.expr) names it");
  expectRefusal([&] { editor.RemoveSection(".text"); }, "symbol local lives in it");
  expectRefusal([&] { editor.RemoveSection(".symtab"); }, "section 5 (.expr) links to it");
  expectRefusal([&] { editor.RemoveSection("0"); }, "section 0 stands for no section");
  expectRefusal([&] { editor.Patch(".text", 2, {0xAA, 0xBB}, false); }, "relocation record 0 of section 6 (.relxeb)");
  expectRefusal([&] { editor.SetContents(".symstrtab", {0}); }, "names of the symbols of section 2 (.symtab)");
  expectRefusal([&] { editor.AddSymbol("main", ".text", 0, true); }, "exists already");
  editor.Patch(".text", 2, {0xAA, 0xBB}, true);
  editor.RemoveSymbol("local");
  editor.RemoveSection(".odd");
  Save(*loaded.image, dir.Path("out.o"));

  Loaded saved(dir.Path("out.o"));
  const auto& sections = saved.image->Sections();
  ASSERT_EQ(sections.size(), 7u);
  const C_ImageSection& symtab = *sections[2];
  ASSERT_EQ(symtab.m_vSymbols.size(), 2u);
  EXPECT_EQ(symtab.m_Header.sh_info, 1u) << "the first global moved up";
  EXPECT_EQ(symtab.m_vSymbols[1]->m_pSection, sections[1].get());
  EXPECT_EQ(symtab.m_vSymbols[1]->m_byOther, 7);
  const C_ImageSection& expr = *sections[4];
  EXPECT_EQ(expr.m_pLink, &symtab);
  EXPECT_EQ(expr.m_vTokens[0]->m_pSymbol, symtab.m_vSymbols[1].get()) << "SYM 2 became SYM 1";
  const C_ImageSection& relxeb = *sections[5];
  EXPECT_EQ(relxeb.m_pLink, &expr);
  EXPECT_EQ(relxeb.m_pInfo, sections[1].get());
  EXPECT_EQ(relxeb.m_vRelocations[0].m_pSymbol, symtab.m_vSymbols[1].get()) << "Symndx 2 became 1";
  EXPECT_EQ(relxeb.m_vRelocations[0].m_pLast, expr.m_vTokens[2].get());
  EXPECT_EQ(sections[1]->m_vData, (Bytes{0x11, 0x11, 0xAA, 0xBB, 0x22, 0x22, 0x22, 0x22}));
  EXPECT_EQ(sections[6].get(), saved.image->NameTable());
}

TEST(EditImage, PartsThatWouldOverlapFailTheSaveAndWriteNothing) {
  TempDir dir;
  ObjectBuilder builder = ShapedObject();
  kelf_test::ObjectLayout layout;
  builder.Build(&layout);
  builder.SectionAt(builder.AddSection(MakeSection(".alias", kelf_test::kShtPrgbit, Bytes{9, 9}))).offset = layout.sectionOffsets[1] + 4;
  kelf_test::WriteFile(dir.Path("in.o"), builder.Build());
  Loaded loaded(dir.Path("in.o"));
  const std::string sOut = dir.Write("out.o", "old");
  try {
    Save(*loaded.image, sOut);
    ADD_FAILURE() << "overlapping sections were saved";
  } catch (const C_Exception& error) {
    EXPECT_NE(error.Message().find("section 7 (.alias) would overlap section 1 (.text)"), std::string::npos) << error.Message();
  }
  EXPECT_EQ(TempDir::Read(sOut), "old");
  Save(*loaded.image, sOut, true);
  Loaded compact(sOut);
  EXPECT_EQ(compact.image->Sections()[7]->m_vData, (Bytes{0x22, 0x22}));
  // A hostile alignment is not padded out to gigabytes; one that is no power of two is none.
  compact.image->Sections()[4]->m_Header.sh_addralign = 0x40000000;
  EXPECT_THROW(Save(*compact.image, dir.Path("huge.o"), true), C_Exception);
  EXPECT_FALSE(std::ifstream(dir.Path("huge.o")).good());
  compact.image->Sections()[4]->m_Header.sh_addralign = 6;
  Save(*compact.image, dir.Path("six.o"), true);
  EXPECT_EQ(Loaded(dir.Path("six.o")).image->Sections()[4]->m_dwPlacedOffset,
            compact.image->Sections()[3]->m_dwPlacedOffset + compact.image->Sections()[3]->m_dwPlacedSize);
}

TEST(EditImage, ANewObjectTakesSectionsSymbolsAndBankRecords) {
  TempDir dir;
  C_ObjectImage image(0x6E, 1);
  C_ImageEditor editor(image);
  editor.AddSection(".bankinfo", kelf_test::BankInfo(0x100, 2), 20);
  editor.AddSection(".SYMTAB", Bytes{1, 2, 3, 4}, 1);  // takes the name a created table would have
  editor.AddSymbol("start", ".bankinfo", 0x10, false);
  editor.AddBankRecord(0x100, 0xFFFFFFFF);  // a duplicate address is kept, after the first
  Save(image, dir.Path("new.o"));
  Loaded loaded(dir.Path("new.o"));
  const auto& sections = loaded.image->Sections();
  ASSERT_EQ(sections.size(), 6u);
  EXPECT_EQ(sections[0]->m_Header.sh_name, 0u);
  EXPECT_EQ(sections[2]->m_Header.sh_addr, 0xFFFFFFFFu);
  EXPECT_EQ(sections[2]->m_Header.sh_entsize, 8u);
  EXPECT_EQ(sections[2]->m_vData, kelf_test::Join({kelf_test::BankInfo(0x100, 2), kelf_test::BankInfo(0x100, 0xFFFFFFFF)}));
  EXPECT_EQ(sections[5]->m_Name.m_sText, ".symtab1");
  EXPECT_EQ(sections[5]->m_pLink->m_Name.m_sText, ".symstrtab");
  ASSERT_EQ(sections[5]->m_vSymbols.size(), 2u);
  EXPECT_EQ(sections[5]->m_vSymbols[1]->m_pSection, sections[2].get());
  EXPECT_EQ(sections[5]->m_Header.sh_info, 2u) << "no global symbol";

  // An object without a bank table gets one laid out as the bank table always is.
  C_ObjectImage plain(0x6E, 1);
  C_ImageEditor(plain).AddBankRecord(7, 1);
  Save(plain, dir.Path("bank.o"));
  Loaded withBank(dir.Path("bank.o"));
  const C_ImageSection& bank = *withBank.image->Sections()[2];
  EXPECT_EQ(bank.m_Name.m_sText, ".bankinfo");
  EXPECT_EQ(bank.m_Header.sh_type, 20u);
  EXPECT_EQ(bank.m_Header.sh_addr, 0xFFFFFFFFu);
  EXPECT_EQ(bank.m_Header.sh_addralign, 1u);
  EXPECT_EQ(bank.m_Header.sh_entsize, 8u);
  EXPECT_EQ(bank.m_Header.sh_flags | bank.m_Header.sh_link | bank.m_Header.sh_info, 0u);
  EXPECT_EQ(bank.m_vData, kelf_test::BankInfo(7, 1));
}

}  // namespace

// A group section of libc.a's objects, converted, keeps its signature symbol's index in Info:
// removing an earlier section must renumber only what names sections.
TEST(EditImage, RemovingASectionLeavesTheInfoOfAnUnknownTypeAlone) {
  TempDir dir;
  ObjectBuilder builder;
  builder.AddSection(MakeSection(".note", kelf_test::kShtPrgbit, Bytes{1, 2, 3, 4}));
  const std::size_t group = builder.AddSection(MakeSection(".group", 0x1011, Bytes{1, 0, 0, 0}));
  builder.SectionAt(group).info = 2;  // a number that is also a later section's index
  builder.SectionAt(group).entsize = 4;
  kelf_test::WriteFile(dir.Path("in.o"), builder.Build());
  Loaded loaded(dir.Path("in.o"));
  C_ImageEditor(*loaded.image).RemoveSection(".note");
  Save(*loaded.image, dir.Path("out.o"));

  Loaded saved(dir.Path("out.o"));
  EXPECT_EQ(saved.image->Sections()[1]->m_Header.sh_info, 2u);
}
