// Section base, raw storage, record tables, name hashes, string and symbol tables.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "sections/storage.h"
#include "sections/symbol_table.h"

namespace {

std::string AsString(const kelf_test::Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// A section of the given kind over bytes at offset 0 of a file of its own, opened for reading.
template <class Section>
struct Loaded {
  Loaded(const TempDir& dir, const kelf_test::Bytes& bytes, DWORD dwType, DWORD dwEntrySize = 0)
      : header{0, dwType, 0, 0x100, 0, static_cast<DWORD>(bytes.size()), 0, 0, 1, dwEntrySize} {
    file.AttachPath(dir.Write("section.bin", AsString(bytes)).c_str(), 0);
    file.Open(1);
    section.SetHeader(&header);
  }
  HRESULT Read() { return section.Read(&file, 0); }
  KEL_SHDR header;
  C_File file;
  Section section;
};

// Hands out sections by index and records what it was asked for.
struct FakeHost : I_KOfdSectionHost {
  HRESULT GetSectionByIndex(DWORD dwIndex, I_KOfdSection** ppSection) override {
    asked.push_back(dwIndex);
    if (dwIndex >= sections.size()) return E_FAIL;
    *ppSection = sections[dwIndex];
    return S_OK;
  }
  I_KOfdSymbolReferences* GetSymbolReferences() override { return nullptr; }
  std::vector<I_KOfdSection*> sections;
  std::vector<DWORD> asked;
};

TEST(StringTable, AppendsAssignsAndGrowsInThousandByteSteps) {
  C_KOfdStringTable strings;
  EXPECT_FALSE(strings.HasStrings());
  strings.Clear();
  EXPECT_EQ(strings.GetLength(), 1u);
  strings.Append("");
  EXPECT_EQ(strings.GetLength(), 2u);
  const DWORD first = strings.GetLength();
  strings.Append("main");
  strings.Append("main");
  EXPECT_STREQ(strings.GetStringAt(first), "main");
  EXPECT_STREQ(strings.GetStringAt(first + 5), "main");
  // Assigning to a table that holds strings writes at offset 0 and keeps counting on.
  const DWORD before = strings.GetLength();
  strings.Clear();
  EXPECT_EQ(strings.GetLength(), before + 1);
  EXPECT_EQ(strings.GetBuffer()[0], '\0');

  C_KOfdStringTable big;
  big.Append(std::string(1019, 'a').c_str());
  ASSERT_EQ(big.GetLength(), 1020u);
  ASSERT_EQ(big.GetCapacity(), 1024u);
  big.Append("123456789");
  EXPECT_EQ(big.GetCapacity(), 2048u);
  EXPECT_EQ(std::string(big.GetStringAt(0)), std::string(1019, 'a'));
  EXPECT_STREQ(big.GetStringAt(1020), "123456789");
  // Offsets past the length, or strings whose terminator lies outside the table, read as "".
  EXPECT_STREQ(big.GetStringAt(big.GetLength()), "");
  EXPECT_STREQ(big.GetStringAt(0xFFFFFFFF), "");
}

TEST(StringTable, ReadAppendsEveryTimeAndWriteSucceedsWithItsErrorCode) {
  TempDir dir;
  Loaded<C_KOfdStringTable> table(dir, {0, 'a', 'b', 'c', 0}, SHT_KEL_STRTAB);
  table.Read();
  EXPECT_STREQ(table.section.GetStringAt(1), "abc");
  table.Read();
  EXPECT_EQ(table.section.GetLength(), 10u);

  Loaded<C_KOfdStringTable> tail(dir, {'x', 'y'}, SHT_KEL_STRTAB);
  tail.Read();
  EXPECT_STREQ(tail.section.GetStringAt(0), "");

  C_File out;
  out.Attach(dir.Path("out.bin").c_str(), "out.bin", 0, 0, 0);
  ASSERT_EQ(out.Open(0), S_OK);
  EXPECT_EQ(table.section.Write(&out), KofdCode(1015));
  out.Close();
  EXPECT_EQ(TempDir::Read(dir.Path("out.bin")), std::string("\0abc\0\0abc\0", 10));
}

TEST(StringTable, KeepsItsReadBlockAndFindsEachStringsLength) {
  TempDir dir;
  Loaded<C_KOfdStringTable> table(dir, {0, 'a', 'b', 'c', 0, 'd', 0, 'e', 'f'}, SHT_KEL_STRTAB);
  table.Read();
  C_KOfdStringTable& strings = table.section;
  EXPECT_EQ(strings.GetLength(), 9u);
  EXPECT_EQ(strings.GetStringView(0), "");
  EXPECT_EQ(strings.GetStringView(1), "abc");
  EXPECT_EQ(strings.GetStringView(3), "c");
  EXPECT_EQ(strings.GetStringView(5), "d");
  // No NUL before the end, at the end, past it: the empty string, as GetString gives.
  EXPECT_EQ(strings.GetStringView(7), "");
  EXPECT_STREQ(strings.GetStringAt(7), "");
  EXPECT_EQ(strings.GetStringView(9), "");
  EXPECT_EQ(strings.GetStringView(0xFFFFFFFFu), "");
  // Appending to the read block grows it, the strings kept.
  strings.Append("ghi");
  EXPECT_EQ(strings.GetLength(), 13u);
  EXPECT_EQ(strings.GetStringView(1), "abc");
  EXPECT_EQ(strings.GetStringView(7), "efghi");
  EXPECT_EQ(strings.GetStringView(9), "ghi");
  C_KOfdStringTable empty;
  EXPECT_EQ(empty.GetStringView(0), "");
}

TEST(RecordTable, ReadRecordsStayInPlaceWhenRecordsAreAddedAndRemoved) {
  TempDir dir;
  using kelf_test::Sym;
  Loaded<C_KOfdSymbolTable> table(dir, kelf_test::Join({Sym(1, 10, 0, 0, 0, 0, 1), Sym(2, 20, 0, 0, 0, 0, 1), Sym(3, 30, 0, 0, 0, 0, 1)}),
                                  SHT_KEL_SYMTAB, 16);
  table.Read();
  C_KOfdSymbolTable& symbols = table.section;
  ELF32_SYM* pSecond = nullptr;
  symbols.GetAt(1, &pSecond);
  ELF32_SYM added = {4, 40, 0, 0, 0, 1};
  ASSERT_EQ(symbols.AddRecord(&added), S_OK);
  ASSERT_EQ(symbols.GetCount(), 4u);
  ELF32_SYM* pRecord = nullptr;
  symbols.GetAt(1, &pRecord);
  EXPECT_EQ(pRecord, pSecond);  // a record's address outlives additions
  const DWORD values[] = {10, 20, 30, 40};
  for (DWORD i = 0; i < 4; ++i) {
    symbols.GetAt(i, &pRecord);
    EXPECT_EQ(pRecord->st_value, values[i]);
  }
  EXPECT_EQ(symbols.RemoveAt(0), S_OK);
  symbols.GetAt(0, &pRecord);
  EXPECT_EQ(pRecord, pSecond);
  EXPECT_THROW(symbols.GetAt(3, &pRecord), std::out_of_range);
  EXPECT_EQ(symbols.Clear(), S_OK);
  EXPECT_EQ(symbols.GetCount(), 0u);
  EXPECT_THROW(symbols.GetAt(0, &pRecord), std::out_of_range);
  // Read again after the clear: the records come back, addressed in their block.
  table.Read();
  ASSERT_EQ(symbols.GetCount(), 3u);
  symbols.GetAt(2, &pRecord);
  EXPECT_EQ(pRecord->st_value, 30u);
  EXPECT_THROW(symbols.GetAt(3, &pRecord), std::out_of_range);
}

TEST(NameHash, SignExtendsBytesAndKeepsCase) {
  EXPECT_EQ(HashName(""), 5381u);
  EXPECT_EQ(HashName("a"), 177604u);
  EXPECT_EQ(HashName("\xE9"), (5381u * 33u) ^ 0xFFFFFFE9u);

  int a = 1, b = 2;
  C_MultiHashTable<const char*, int*> multi;
  multi.Insert("x", &a);
  multi.Insert("x", &b);
  multi.Insert("Main", &a);
  int* found = nullptr;
  EXPECT_EQ(multi.CountOf("x"), 2u);
  EXPECT_EQ(multi.FindNth("x", 1, &found), S_OK);
  EXPECT_EQ(multi.FindNth("x", 2, &found), E_FAIL);
  EXPECT_EQ(multi.CountOf("main"), 0u);

  C_HashTable<const char*, int*> unique;
  EXPECT_EQ(unique.Insert("x", &a), S_OK);
  EXPECT_EQ(unique.Insert("x", &b), E_FAIL);
  EXPECT_EQ(unique.GetCount(), 1u);
  EXPECT_EQ(unique.Find("x", &found), S_OK);
  EXPECT_EQ(found, &a);
  EXPECT_EQ(unique.GetAt(unique.GetCount(), &found), E_FAIL);
}

TEST(RecordTable, LoadsWholeRecordsOnceAndFailsTwoWaysOnBadIndexes) {
  TempDir dir;
  using kelf_test::Sym;
  Loaded<C_KOfdSymbolTable> three(dir, kelf_test::Join({Sym(1, 10, 0, 0, 0, 0, 1), Sym(2, 20, 0, 0, 0, 0, 1), Sym(3, 30, 0, 0, 0, 0, 1)}),
                                  SHT_KEL_SYMTAB, 16);
  three.Read();
  ASSERT_EQ(three.section.GetCount(), 3u);
  three.Read();
  EXPECT_EQ(three.section.GetCount(), 3u);
  ELF32_SYM* record = nullptr;
  EXPECT_THROW(three.section.GetAt(3, &record), std::out_of_range);
  EXPECT_EQ(three.section.RemoveAt(3), E_FAIL);
  EXPECT_EQ(three.section.RemoveAt(0), S_OK);
  three.section.GetAt(0, &record);
  EXPECT_EQ(record->st_value, 20u);
  three.section.GetAt(1, &record);
  EXPECT_EQ(record->st_value, 30u);

  C_File out;
  out.Attach(dir.Path("records.bin").c_str(), "records.bin", 0, 0, 0);
  ASSERT_EQ(out.Open(0), S_OK);
  three.section.Write(&out);
  out.Close();
  EXPECT_EQ(TempDir::Read(dir.Path("records.bin")).size(), 32u);

  Loaded<C_KOfdSymbolTable> ragged(dir, kelf_test::Bytes(20, 0), SHT_KEL_SYMTAB, 16);
  ragged.Read();
  EXPECT_TRUE(ragged.section.IsEmpty());
  Loaded<C_KOfdSymbolTable> empty(dir, {}, SHT_KEL_SYMTAB, 16);
  empty.Read();
  EXPECT_FALSE(empty.section.IsEmpty());

  // A section that claims more bytes than the file holds is a read failure, not a large block.
  Loaded<C_KOfdSymbolTable> past(dir, kelf_test::Bytes(16, 0), SHT_KEL_SYMTAB, 16);
  past.header.sh_size = 0x7FFFFFF0;
  try {
    past.Read();
    ADD_FAILURE() << "no read failure";
  } catch (const C_Exception& error) {
    EXPECT_EQ(error.Code(), KofdCode(1016));
    EXPECT_EQ(error.Message(), "error 1016: failed to read from file specified(When read struct ELF32_SYM). ");
  }
}

TEST(RawStorage, WordsMayStraddleTheEndButBytesMayNot) {
  TempDir dir;
  Loaded<C_KOfdProgramTable> program(dir, {1, 2, 3, 4, 5, 6, 7}, SHT_KEL_PROGBITS);
  program.Read();
  DWORD* word = nullptr;
  program.section.GetDword(1, &word);
  ASSERT_NE(word, nullptr);
  EXPECT_EQ(*word, 0x00070605u);
  program.section.GetDword(2, &word);
  EXPECT_EQ(word, nullptr);
  program.section.GetDword(0x40000001, &word);
  EXPECT_EQ(word, nullptr);
  BYTE* byte = nullptr;
  EXPECT_EQ(program.section.GetByte(7, &byte), KE_OUT_OF_RANGE);
  EXPECT_EQ(program.section.GetByte(6, &byte), S_OK);
  EXPECT_EQ(*byte, 7);

  Loaded<C_KOfdSectionStorage<DWORD>> words(dir, kelf_test::Bytes(6, 1), SHT_KEL_SROM);
  words.Read();
  EXPECT_TRUE(words.section.IsEmpty());
  Loaded<C_KOfdProgramTable> nothing(dir, {}, SHT_KEL_PROGBITS);
  nothing.Read();
  EXPECT_FALSE(nothing.section.IsEmpty());
}

TEST(SymbolTable, LooksUpByExactNameAcrossStringTableGrowth) {
  C_KOfdStringTable strings;
  strings.Append(std::string(16, 's').c_str());
  ASSERT_EQ(strings.GetLength(), 17u);
  C_KOfdSymbolTable symbols;
  KEL_SHDR header{0, SHT_KEL_SYMTAB, 0, 0, 0, 0, 0, 0, 4, 16};
  symbols.SetHeader(&header);
  symbols.Attach(&strings, nullptr);
  ELF32_SYM sym{0, 0x1234, 0, 0x12, 0, 1};
  ASSERT_EQ(symbols.AddSymbol(&sym, "x"), S_OK);
  EXPECT_EQ(sym.st_name, 17u);
  EXPECT_EQ(strings.GetLength(), 19u);

  // Enough names to move the string buffer several times while the index is in use.
  for (int i = 0; i < 3000; ++i) {
    ELF32_SYM s{0, static_cast<DWORD>(i), 0, 0x12, 0, 1};
    symbols.AddSymbol(&s, ("sym_" + std::to_string(i)).c_str());
    ELF32_SYM* found = nullptr;
    if (i % 500 == 0) {
      ASSERT_EQ(symbols.FindSymbol(("sym_" + std::to_string(i / 2)).c_str(), &found), S_OK);
    }
  }
  ELF32_SYM* found = nullptr;
  ASSERT_EQ(symbols.FindSymbol("sym_2999", &found), S_OK);
  EXPECT_EQ(found->st_value, 2999u);
  EXPECT_EQ(symbols.FindSymbol("SYM_2999", &found), E_FAIL);
  ELF32_SYM twin{0, 7, 0, 0x12, 0, 1};
  symbols.AddSymbol(&twin, "x");
  EXPECT_EQ(symbols.FindSymbolNth("x", 1, &found), S_OK);
  EXPECT_EQ(symbols.FindSymbolNth("x", 2, &found), E_FAIL);

  DWORD first = 0;
  symbols.GetFirstGlobal(&first);
  EXPECT_EQ(first, symbols.GetCount());
}

TEST(SymbolTable, AsksTheDocumentOnlyForSectionsThatExist) {
  C_KOfdStringTable strings;
  strings.Clear();
  C_KOfdSymbolTable symbols;
  KEL_SHDR header{0, SHT_KEL_SYMTAB, 0, 0, 0, 0, 0, 0, 4, 16};
  symbols.SetHeader(&header);
  symbols.Attach(&strings, nullptr);
  FakeHost host;
  symbols.SetHost(&host);
  C_KOfdProgramTable text;
  KEL_SHDR textHeader{0, SHT_KEL_PROGBITS, 6, 0x400, 0, 0, 0, 0, 4, 0};
  text.SetHeader(&textHeader);
  host.sections = {nullptr, &text};
  ELF32_SYM reserved{0, 0, 0, 0x10, 0, 0xFFF2}, absolute{0, 0, 0, 0x10, 0, SHN_KEL_ABS}, local{0, 0x10, 0, 0, 0, 1};
  symbols.AddSymbol(&reserved, "reserved");
  symbols.AddSymbol(&absolute, "absolute");
  symbols.AddSymbol(&local, "local");

  I_KOfdSection* section = nullptr;
  EXPECT_EQ(symbols.GetSymbolSection("absolute", &section), E_FAIL);
  EXPECT_TRUE(host.asked.empty());
  EXPECT_EQ(symbols.GetSymbolSection("reserved", &section), E_FAIL);
  EXPECT_EQ(host.asked, std::vector<DWORD>{65522});
  EXPECT_EQ(symbols.GetSymbolSection("local", &section), S_OK);
  EXPECT_EQ(section, &text);

  // The reserved index has no section: Rebase stops there, after nothing else was changed.
  EXPECT_EQ(symbols.Rebase(), E_FAIL);
  host.sections.resize(65523, &text);
  EXPECT_EQ(symbols.Rebase(), S_OK);
  EXPECT_EQ(symbols.Rebase(), S_OK);
  ELF32_SYM* found = nullptr;
  symbols.FindSymbol("local", &found);
  EXPECT_EQ(found->st_value, 0x10u + 2 * 0x400u);
}

}  // namespace

namespace {

// Found by the object fuzz target: an empty string-table section read into a table that had
// no buffer yet copied zero bytes to a null pointer.
TEST(FuzzRegression, EmptyStringTableSectionReadsNothing) {
  TempDir dir;
  Loaded<C_KOfdStringTable> table(dir, {}, SHT_KEL_STRTAB);
  EXPECT_EQ(table.Read(), S_OK);
  EXPECT_EQ(table.section.GetLength(), 0u);
  EXPECT_STREQ(table.section.GetStringAt(0), "");
}

}  // namespace
