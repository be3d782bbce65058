// Opening an object on its headers: sections read the first time they are asked for, with the
// sections they name, and a failure then that is the one the whole open gives.
#include <gtest/gtest.h>

#include <string>

#include "cli_run.h"
#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"
#include "sections/symbol_table.h"
#include "typical_object.h"

namespace {

using kelf_test::Bytes;
using kelf_test::MakeSection;
using kelf_test::ObjectBuilder;

// TypicalObject with the contents of 1 .text past the end of the file; 4 .line names it in Info,
// 2 .symtab's Info is its first global.
ObjectBuilder ObjectWithDamagedText() {
  ObjectBuilder builder = TypicalObject();
  builder.SectionAt(1).offset = 0xFFFFFFF0u;
  return builder;
}

std::string WriteObject(const TempDir& dir, const std::string& sName, const Bytes& bytes) {
  return dir.Write(sName, std::string(bytes.begin(), bytes.end()));
}

DWORD WordOf(C_KOfdELF& document, DWORD dwIndex) {
  DWORD dwWord = 0xFFFFFFFFu;
  EXPECT_EQ(document.GetSectionWord(dwIndex, &dwWord), S_OK);
  return dwWord;
}

}  // namespace

TEST(LazyOpen, SectionsAreReadWhenAskedForAndFailAsTheWholeOpenDoes) {
  TempDir dir;
  const std::string sPath = WriteObject(dir, "damaged.o", ObjectWithDamagedText().Build());
  C_KOfdELF4 whole;
  whole.AttachPath(sPath.c_str(), 0);
  C_Exception expected;
  try {
    whole.Read();
    ADD_FAILURE() << "the damaged object was read whole";
  } catch (const C_Exception& error) {
    expected = error;
  }
  ASSERT_LT(expected.Code(), 0);

  C_KOfdELF4 document;
  document.AttachPath(sPath.c_str(), 0);
  ASSERT_EQ(document.ReadHeaders(), S_OK);
  EXPECT_EQ(document.GetHandle(), nullptr);
  const char* pszName = nullptr;
  ASSERT_EQ(document.GetSectionName(1, &pszName), S_OK);
  EXPECT_STREQ(pszName, ".text");
  for (DWORD i = 1; i <= 4; ++i) EXPECT_EQ(WordOf(document, i), 0u) << i;
  EXPECT_EQ(WordOf(document, 5), static_cast<DWORD>(kSectionRead));
  // The symbol count before the table is read is the one it holds once read.
  EXPECT_EQ(document.CountSymbols(), 2u);
  EXPECT_EQ(WordOf(document, 2), 0u);

  // The symbol table brings its string table, not the section its Info counts up to.
  I_KOfdSymbolTable* pSymbols = nullptr;
  ASSERT_EQ(document.GetSymbolTable(&pSymbols), S_OK);
  ASSERT_NE(pSymbols, nullptr);
  EXPECT_EQ(WordOf(document, 2), static_cast<DWORD>(kSectionRead));
  EXPECT_EQ(WordOf(document, 3), static_cast<DWORD>(kSectionRead));
  EXPECT_EQ(WordOf(document, 1), 0u);
  EXPECT_EQ(document.CountSymbols(), 2u);
  ELF32_SYM* pMain = nullptr;
  EXPECT_EQ(pSymbols->FindSymbol("main", &pMain), S_OK);

  // The damaged section, asked for directly, by name, or through the line table whose Info
  // names it: no section, and the whole open's code and message, each time it is asked for.
  for (int attempt = 0; attempt < 2; ++attempt) {
    I_KOfdSection* pSection = reinterpret_cast<I_KOfdSection*>(1);
    EXPECT_EQ(document.GetSection(1, &pSection), expected.Code());
    EXPECT_EQ(pSection, nullptr);
    EXPECT_EQ(document.Code(), expected.Code());
    EXPECT_EQ(document.Message(), expected.Message());
    EXPECT_EQ(WordOf(document, 1), 0u);
  }
  I_KOfdSection* pSection = nullptr;
  EXPECT_EQ(document.FindSection(".LINE", &pSection), expected.Code());
  EXPECT_EQ(document.GetProgramTable(), nullptr);
  EXPECT_EQ(WordOf(document, 4), 0u);

  // Read still reads everything and fails at open.
  try {
    document.Read();
    ADD_FAILURE() << "Read accepted the damaged object";
  } catch (const C_Exception& error) {
    EXPECT_EQ(error.Message(), expected.Message());
  }
}

// What the open leaves of the read budget bounds the reads that follow: sections that all cover
// the whole file cannot make the document hold it many times over one section at a time.
TEST(LazyOpen, ReadsOnDemandShareTheOpensReadBudget) {
  TempDir dir;
  ObjectBuilder builder;
  for (int i = 0; i < 40; ++i) builder.AddSection(MakeSection(".big", kelf_test::kShtPrgbit, Bytes(4096, 0x5A)));
  const std::uint32_t dwFileSize = static_cast<std::uint32_t>(builder.Build().size());
  for (std::size_t i = 1; i <= 40; ++i) {
    builder.SectionAt(i).offset = 0;
    builder.SectionAt(i).size = dwFileSize;
  }
  C_KOfdELF4 document;
  document.AttachPath(WriteObject(dir, "overlapping.o", builder.Build()).c_str(), 0);
  ASSERT_EQ(document.ReadHeaders(), S_OK);
  HRESULT hr = S_OK;
  DWORD dwRead = 0;
  for (DWORD i = 1; i <= 40 && hr == S_OK; ++i) {
    I_KOfdSection* pSection = nullptr;
    hr = document.GetSection(i, &pSection);
    if (hr == S_OK) ++dwRead;
  }
  EXPECT_EQ(hr, KofdCode(1016));
  EXPECT_LT(dwRead, 2u);
}

TEST(LazyOpen, HeaderListingsAndInfoShowADamagedSectionsObjectAndItsDumpFailsAsTheWholeDump) {
  TempDir dir;
  const std::string sPath = WriteObject(dir, "damaged.o", ObjectWithDamagedText().Build());
  const Outcome whole = Kofd(dir, "dump " + Quoted(sPath));
  EXPECT_EQ(whole.status, 1);
  ASSERT_EQ(whole.err.rfind("kofd: " + sPath + ": error 1016: ", 0), 0u) << whole.err;

  const Outcome headers = Kofd(dir, "dump --file-header --section-headers " + Quoted(sPath));
  EXPECT_EQ(headers.status, 0) << headers.err;
  EXPECT_NE(headers.out.find("ELF Header Information"), std::string::npos);
  EXPECT_NE(headers.out.find("  [4]    Line "), std::string::npos) << headers.out;
  const Outcome info = Kofd(dir, "info " + Quoted(sPath));
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_NE(info.out.find("      1  .text            Prgbit   0x00000008\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("symbols: 2\n"), std::string::npos) << info.out;
  const Outcome infoJson = Kofd(dir, "info --json " + Quoted(sPath));
  EXPECT_EQ(infoJson.status, 0) << infoJson.err;
  EXPECT_NE(infoJson.out.find("\"symbols\":2"), std::string::npos) << infoJson.out;

  // The healthy sections dump; the damaged one, and the one that names it, fail as the whole dump.
  const Outcome symbols = Kofd(dir, "dump --section .symtab " + Quoted(sPath));
  EXPECT_EQ(symbols.status, 0) << symbols.err;
  EXPECT_NE(symbols.out.find("main"), std::string::npos);
  for (const char* pszArguments : {"dump --section .text", "dump --section 4", "dump --json --section .TEXT",
                                   "dump --json-lines --section-headers --section 1"}) {
    const Outcome run = Kofd(dir, std::string(pszArguments) + " " + Quoted(sPath));
    EXPECT_EQ(run.status, 1) << pszArguments;
    EXPECT_EQ(run.err, whole.err) << pszArguments;
  }
  const Outcome json = Kofd(dir, "dump --json --section-headers --section .symtab " + Quoted(sPath));
  EXPECT_EQ(json.status, 0) << json.err;
  EXPECT_NE(json.out.find("\"name\":\"main\""), std::string::npos) << json.out;
  // A relocation listing reads the relocation tables alone: this object has none to list.
  const Outcome reloc = Kofd(dir, "reloc " + Quoted(sPath));
  EXPECT_EQ(reloc.status, 0) << reloc.err;
  EXPECT_EQ(reloc.out, "");
}
