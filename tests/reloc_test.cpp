// Expression runs (value and infix text) and the relocation tables of an opened object.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"
#include "reloc/expression_visitors.h"
#include "reloc/relocation_tables.h"

namespace {

using kelf_test::Bytes;
using kelf_test::Exp;
using kelf_test::Join;

struct Token {
  DWORD type, value;
};

struct RunCase {
  std::vector<Token> tokens;
  std::optional<DWORD> value;  // nullopt: the evaluation fails
  std::optional<std::string> text;
};

enum : DWORD { ADD = 1, SUB, MUL, DIV, AND, OR, XOR, NOT, NIB, OPEN, CLOSE, NUM, SYM, SHR, SHL, MOD, ERR };

}  // namespace

TEST(Expression, EvaluatesAndPrintsPostfixRuns) {
  const DWORD kMinus7 = static_cast<DWORD>(-7);
  const RunCase cases[] = {
      {{{NUM, 10}, {NUM, 3}, {SUB, 0}}, 7u, "(10 - 3)"},
      {{{NUM, 0xFFFFFFFF}, {NUM, 4}, {SHR, 0}}, 0xFFFFFFFFu, "(4294967295>>4)"},
      {{{NUM, 0x12345678}, {NUM, 2}, {NIB, 0}}, 6u, "305419896[2]"},
      {{{NUM, 0x80000000}, {NUM, 7}, {NIB, 0}}, 0xFFFFFFF8u, "2147483648[7]"},
      {{{NUM, 0x12345678}, {NUM, 8}, {NIB, 0}}, 8u, "305419896[8]"},
      {{{NUM, 1}, {NUM, 33}, {SHL, 0}}, 2u, "(1<<33)"},
      {{{NUM, kMinus7}, {NUM, 2}, {MOD, 0}}, 0xFFFFFFFFu, "(4294967289%2)"},
      {{{NUM, kMinus7}, {NUM, 2}, {DIV, 0}}, static_cast<DWORD>(-3), "(4294967289 / 2)"},
      {{{NUM, 3}, {NUM, 5}, {MUL, 0}, {NUM, 2}, {OR, 0}, {NUM, 0xF}, {AND, 0}}, 15u, "(((3 * 5) | 2) & 15)"},
      // ~ keeps its operand when evaluating and consumes it when printing.
      {{{NUM, 5}, {NOT, 0}}, std::nullopt, " ~5"},
      {{{NUM, 5}, {NOT, 0}, {AND, 0}}, 0u, std::nullopt},
      {{{NOT, 0}}, std::nullopt, std::nullopt},
      // Codes without an action, unknown codes included, change nothing.
      {{{0, 0}, {NUM, 9}, {OPEN, 0}, {CLOSE, 0}, {ERR, 0}, {NUM, 1}, {99, 0}, {XOR, 0}}, 8u, "(9 ^ 1)"},
      // Divisions without a 32-bit answer, too few operands, too many, none.
      {{{NUM, 6}, {NUM, 0}, {DIV, 0}}, std::nullopt, "(6 / 0)"},
      {{{NUM, 6}, {NUM, 0}, {MOD, 0}}, std::nullopt, "(6%0)"},
      {{{NUM, 0x80000000}, {NUM, 0xFFFFFFFF}, {DIV, 0}}, std::nullopt, "(2147483648 / 4294967295)"},
      {{{NUM, 3}, {ADD, 0}}, std::nullopt, std::nullopt},
      {{{NUM, 3}, {NUM, 4}}, std::nullopt, std::nullopt},
      {{}, std::nullopt, std::nullopt},
  };
  for (const RunCase& run : cases) {
    C_KOfdCalculator calculator;
    C_KOfdExpressioner expressioner;
    // Applying never fails by itself: a failure shows in the result and the text.
    for (const Token& token : run.tokens) {
      calculator.Apply(token.type, token.value);
      expressioner.Apply(token.type, token.value);
    }
    const std::string sCase = run.text.value_or("(unprintable)");
    DWORD dwValue = 0xC0FFEE;
    EXPECT_EQ(calculator.GetResult(&dwValue), run.value ? S_OK : E_FAIL) << sCase;
    EXPECT_EQ(dwValue, run.value.value_or(0xC0FFEE)) << sCase;
    char text[64] = "untouched";
    EXPECT_EQ(expressioner.GetText(text, sizeof text), run.text ? S_OK : E_FAIL) << sCase;
    EXPECT_STREQ(text, run.text.value_or("untouched").c_str());
  }
}

TEST(Expression, HandsOutTextOnlyWhenItFitsWhole) {
  C_KOfdExpressioner expressioner;
  for (const Token& token : {Token{NUM, 12}, Token{NUM, 345}, Token{ADD, 0}}) expressioner.Apply(token.type, token.value);
  char text[16];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(expressioner.GetText(text, 10), E_FAIL);  // "(12 + 345)" is 10 characters
  EXPECT_EQ(text[0], 'x');
  EXPECT_EQ(expressioner.GetText(text, 11), S_OK);
  EXPECT_STREQ(text, "(12 + 345)");
  EXPECT_EQ(expressioner.GetText(text, 11), S_OK) << "the stack is kept";

  // A printer limited to fewer characters stops building and fails whatever follows.
  C_KOfdExpressioner limited(4);
  for (const Token& token : {Token{NUM, 12345}, Token{NUM, 1}, Token{ADD, 0}}) limited.Apply(token.type, token.value);
  EXPECT_EQ(limited.GetText(text, sizeof text), E_FAIL);
}

namespace {

// 1 .text (16 bytes at 0x100), 2 .symtab, 3 .symstrtab, 4 .expr, 5 .relxeb (address 0x400),
// 6 .relxe, both relocation sections patching .text with the expressions of .expr.
Bytes RelocatedObject() {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const Bytes symbols = Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0),
                              kelf_test::Sym(names.Add("start"), 0x40, 0, kelf_test::kStbGlobal, 0, 0, 1),
                              kelf_test::Sym(names.Add("ext"), 0, 0, kelf_test::kStbGlobal, 0, 0, 0),
                              kelf_test::Sym(names.Add("EXT"), 0, 0, kelf_test::kStbGlobal, 0, 0, 0xFFFF),
                              kelf_test::Sym(names.Add("other"), 0, 0, kelf_test::kStbGlobal, 0, 0, 0)});
  const Bytes expressions = Join({Exp(SYM, 1), Exp(NUM, 4), Exp(ADD, 0), Exp(NUM, 2), Exp(SHR, 0),  // 0..4
                                  Exp(NUM, 0x12345), Exp(NUM, 0x01000010), Exp(SYM, 2), Exp(SYM, 99)});
  kelf_test::ObjectBuilder builder;
  builder.AddSection({".text", kelf_test::kShtPrgbit, 6, 0x100, 0, 0, 4, 0,
                      kelf_test::Words({0xFFFFFFFF, 0x0000FFFF, 0, 0x11111111}), {}, {}, {}});
  builder.AddSection({".symtab", kelf_test::kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  builder.AddSection({".symstrtab", kelf_test::kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  builder.AddSection({".expr", kelf_test::kShtExpr, 0, 0, 2, 0, 4, 8, expressions, {}, {}, {}});
  builder.AddSection({".relxeb", kelf_test::kShtRelxeb, 0, 0x400, 4, 1, 4, 20,
                      Join({kelf_test::Relxeb(0, 1, 7, 0, 31, 0, 4), kelf_test::Relxeb(1, 0, 7, 4, 11, 5, 5),
                            kelf_test::Relxeb(2, 0, 7, 0, 7, 6, 6)}),
                      {}, {}, {}});
  builder.AddSection({".relxe", kelf_test::kShtRelxe, 0, 0, 4, 1, 4, 16,
                      Join({kelf_test::Relxe(16, 0, 0, 0, 0, 0, 0), kelf_test::Relxe(4, 0, 0, 0, 0, 0, 0),
                            kelf_test::Relxe(17, 0, 0, 0, 0, 0, 0)}),
                      {}, {}, {}});
  return builder.Build();
}

struct OpenedObject {
  explicit OpenedObject(const TempDir& dir) {
    const Bytes bytes = RelocatedObject();
    document.AttachPath(dir.Write("relocated.o", std::string(bytes.begin(), bytes.end())).c_str(), 0);
    EXPECT_EQ(document.Read(), S_OK);
  }
  template <class Table>
  Table* Section(DWORD dwIndex) {
    I_KOfdSection* pSection = nullptr;
    EXPECT_EQ(document.GetSection(dwIndex, &pSection), S_OK);
    return dynamic_cast<Table*>(pSection);
  }
  std::vector<DWORD> Words() {
    BYTE* pData = nullptr;
    DWORD dwSize = 0;
    Section<I_KOfdProgramTable>(1)->GetData(&pData, &dwSize);
    std::vector<DWORD> words(dwSize / 4);
    std::memcpy(words.data(), pData, dwSize);
    return words;
  }
  C_KOfdELF4 document;
};

struct RecordingSink : C_KOfdRelocationSink {
  HRESULT ReportHighByte(const DWORD* pPair) override {
    reports.push_back({pPair[0], pPair[1]});
    return E_FAIL;  // ignored: the field is patched all the same
  }
  std::vector<std::vector<DWORD>> reports;
};

}  // namespace

TEST(Relocation, EvaluatesPrintsAndLinksThroughTheDocument) {
  TempDir dir;
  OpenedObject object(dir);
  C_KOfdRelxebTable* pTable = object.Section<C_KOfdRelxebTable>(5);
  ASSERT_NE(pTable, nullptr);
  I_KOfdExpressionTable* pKept = nullptr;
  object.document.GetExpressionTable(&pKept);
  I_KOfdExpressionTable* pLinked = nullptr;
  pTable->GetExpressionTable(&pLinked);
  EXPECT_TRUE(pKept && pKept == pLinked);

  DWORD dwValue = 0;
  EXPECT_EQ(pTable->Evaluate(0, &dwValue), S_OK);
  EXPECT_EQ(dwValue, 0x11u);
  char text[17];
  EXPECT_EQ(pTable->GetExpressionText(0, text, 16), E_FAIL);  // "((start + 4)>>2)" is 16 characters
  EXPECT_EQ(pTable->GetExpressionText(0, text, 17), S_OK);
  EXPECT_STREQ(text, "((start + 4)>>2)");

  // Runs that cannot be walked: reversed, a symbol past the table, past the expressions, too
  // few operands.
  const KEL_RELXEB bad[] = {{0, 0, 0, 31, 7, 6}, {0, 0, 0, 31, 8, 8}, {0, 0, 0, 31, 9, 12}, {0, 0, 0, 31, 1, 2}};
  const HRESULT expected[] = {E_FAIL, E_FAIL, KE_OUT_OF_RANGE, E_FAIL};
  for (std::size_t i = 0; i < 4; ++i) {
    pTable->Add(&bad[i]);
    EXPECT_EQ(pTable->Evaluate(3, &dwValue), expected[i]) << i;
    EXPECT_EQ(pTable->GetExpressionText(3, text, sizeof text), expected[i]) << i;
    pTable->RemoveAt(3);
  }
  EXPECT_EQ(pTable->Evaluate(3, &dwValue), E_FAIL);

  // Undefined symbols are checked against the names the expressions use, ignoring case.
  I_KOfdSymbolTable* pSymbols = nullptr;
  object.document.GetSymbolTable(&pSymbols);
  EXPECT_EQ(pSymbols->CheckUndefined(1), S_OK);  // defined
  EXPECT_EQ(pSymbols->CheckUndefined(2), E_FAIL);
  EXPECT_EQ(pSymbols->CheckUndefined(3), E_FAIL);
  EXPECT_EQ(pSymbols->CheckUndefined(4), S_OK);  // named by no expression
}

TEST(Relocation, PatchesBitFieldsInEveryModeAndReportsHighBytes) {
  TempDir dir;
  const std::vector<DWORD> original = {0xFFFFFFFF, 0x0000FFFF, 0, 0x11111111};
  const std::vector<std::vector<DWORD>> patched = {
      {0x00105011, 0x0000FFFF, 0, 0x11111111},  // byte offsets, 32-bit units
      {0xF45F0011, 0x0000FF10, 0, 0x11111111},  // 16-bit units
      {0x00000011, 0x0000F45F, 0x10, 0x11111111},
      original,  // any other mode changes nothing
  };
  for (DWORD dwMode = 0; dwMode < 4; ++dwMode) {
    OpenedObject object(dir);
    RecordingSink sink;
    EXPECT_EQ(object.Section<I_KOfdRelocation>(5)->Relocate(dwMode, &sink), S_OK);
    EXPECT_EQ(object.Words(), patched[dwMode]) << dwMode;
    EXPECT_EQ(sink.reports, (std::vector<std::vector<DWORD>>{{0x402, 1}})) << dwMode;
  }
}

TEST(Relocation, TargetBoundsDifferBetweenTheTablesAndStayInsideTheSection) {
  TempDir dir;
  OpenedObject object(dir);
  C_KOfdRelxeTable* pShort = object.Section<C_KOfdRelxeTable>(6);
  C_KOfdRelxebTable* pLong = object.Section<C_KOfdRelxebTable>(5);
  BYTE* pByte = nullptr;
  DWORD* pWord = nullptr;
  // The short form's bounds are inclusive: Offset 16 of a 16-byte target is a byte, 4 a word.
  EXPECT_EQ(pShort->GetByteTarget(0, &pByte), S_OK);
  EXPECT_EQ(pShort->GetWordTarget(1, &pWord), S_OK);
  EXPECT_EQ(pShort->GetByteTarget(2, &pByte), E_FAIL);
  EXPECT_EQ(pShort->GetWordTarget(0, &pWord), E_FAIL);

  const KEL_RELXEB edges[] = {{4, 0, 0, 31, 5, 5}, {15, 0, 0, 31, 5, 5}, {13, 0, 0, 31, 5, 5}};
  for (const KEL_RELXEB& edge : edges) pLong->Add(&edge);
  EXPECT_EQ(pLong->GetWordTarget(3, &pWord), KE_OUT_OF_RANGE);
  EXPECT_EQ(pLong->GetByteTarget(4, &pByte), S_OK);
  EXPECT_EQ(pLong->GetHalfTarget(4, nullptr), KE_OUT_OF_RANGE);
  // Relocate stops at the first record it cannot patch: a byte offset whose word would cross the
  // end is refused like an Offset past it. The records before it stay patched.
  pLong->RemoveAt(3);
  pLong->RemoveAt(3);
  EXPECT_EQ(pLong->Relocate(KEL_RELOCATE_BYTE, nullptr), KE_OUT_OF_RANGE);
  EXPECT_EQ(object.Words()[0], 0x00105011u);

  // Without a target section every access fails plainly.
  pLong->Attach(pLong->GetLinkedSection(), nullptr);
  EXPECT_EQ(pLong->GetByteTarget(0, &pByte), E_FAIL);
  EXPECT_EQ(pLong->Relocate(KEL_RELOCATE_WORD, nullptr), E_FAIL);
  EXPECT_EQ(pLong->Relocate(3, nullptr), S_OK);
}
