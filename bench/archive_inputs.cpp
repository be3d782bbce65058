// Writes the inputs of bench/archive_bench.sh: MEMBERS KELF objects of SYMBOLS global functions
// each into DIR/kelf, and their twins, standard ELF32 objects with the same code and symbols,
// into DIR/elf; plus one more object of each kind, extra.o, for the add benchmarks. With CODE, each
// object's code section is CODE bytes long (at least the functions'), for archives of large
// members (bench/archive_stream_bench.sh).
//
// Usage: kofd_bench_archive_inputs DIR MEMBERS SYMBOLS [CODE]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kelf_writer.h"

using namespace kelf_test;

namespace {

constexpr std::uint32_t kFunctionSize = 32;

std::string FunctionName(unsigned nMember, unsigned nSymbol) {
  char szName[48];
  snprintf(szName, sizeof szName, "mod%04u_function_%u", nMember, nSymbol);
  return szName;
}

// The code section's size in bytes: the functions', or more when asked for.
std::uint32_t g_codeSize = 0;

Bytes Code(unsigned nMember, unsigned nSymbols) {
  Bytes code;
  std::uint32_t x = nMember * 2654435761u + 1;
  const std::uint32_t words = std::max<std::uint32_t>(nSymbols * kFunctionSize, g_codeSize) / 4;
  code.reserve(words * 4u);
  for (std::uint32_t i = 0; i < words; ++i) Append32(code, x = x * 1664525u + 1013904223u);
  return code;
}

// The symbols: the null symbol, the section symbol of .text (1), then the global functions.
Bytes Symbols(StringTable& names, unsigned nMember, unsigned nSymbols) {
  Bytes symbols = Sym(0, 0, 0, kStbLocal, kSttNoType, 0, kShnUndef);
  Append(symbols, Sym(0, 0, 0, kStbLocal, kSttSection, 0, 1));
  for (unsigned i = 0; i < nSymbols; ++i) {
    Append(symbols, Sym(names.Add(FunctionName(nMember, i)), i * kFunctionSize, kFunctionSize, kStbGlobal,
                        kSttFunction, 0, 1));
  }
  return symbols;
}

void WriteKelf(const std::string& sPath, unsigned nMember, unsigned nSymbols) {
  ObjectBuilder object;
  object.Header().chip = 0x6E;
  object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Code(nMember, nSymbols), {}, {}, {}});
  StringTable names = StringTable::WithNul();
  const Bytes symbols = Symbols(names, nMember, nSymbols);
  object.AddSection({".symtab", kShtSymtab, 0, 0, 3, 2, 4, 16, symbols, {}, {}, {}});
  object.AddSection({".strtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  object.WriteFile(sPath);
}

// A standard ELF32 relocatable object (52-byte header, EM_386): null, .text, .symtab, .strtab,
// .shstrtab, contents first, section headers last.
void WriteElf(const std::string& sPath, unsigned nMember, unsigned nSymbols) {
  StringTable names = StringTable::WithNul();
  const Bytes symbols = Symbols(names, nMember, nSymbols);
  StringTable sectionNames = StringTable::WithNul();
  const std::uint32_t text = sectionNames.Add(".text"), symtab = sectionNames.Add(".symtab"),
                      strtab = sectionNames.Add(".strtab"), shstrtab = sectionNames.Add(".shstrtab");
  const Bytes code = Code(nMember, nSymbols);
  Bytes out(52, 0);
  const std::uint32_t textAt = 52, symtabAt = textAt + static_cast<std::uint32_t>(code.size());
  const std::uint32_t strtabAt = symtabAt + static_cast<std::uint32_t>(symbols.size());
  const std::uint32_t shstrtabAt = strtabAt + names.Size();
  Append(out, code);
  Append(out, symbols);
  Append(out, names.Data());
  Append(out, sectionNames.Data());
  while (out.size() % 4) out.push_back(0);
  const std::uint32_t shoff = static_cast<std::uint32_t>(out.size());
  const std::uint32_t headers[5][10] = {
      {},
      {text, 1, 6, 0, textAt, static_cast<std::uint32_t>(code.size()), 0, 0, 4, 0},
      {symtab, 2, 0, 0, symtabAt, static_cast<std::uint32_t>(symbols.size()), 3, 2, 4, 16},
      {strtab, 3, 0, 0, strtabAt, names.Size(), 0, 0, 1, 0},
      {shstrtab, 3, 0, 0, shstrtabAt, sectionNames.Size(), 0, 0, 1, 0},
  };
  for (const auto& header : headers) {
    for (std::uint32_t word : header) Append32(out, word);
  }
  const std::uint8_t ident[16] = {0x7F, 'E', 'L', 'F', 1, 1, 1};
  for (int i = 0; i < 16; ++i) out[i] = ident[i];
  Put16(out, 16, 1);   // ET_REL
  Put16(out, 18, 3);   // EM_386
  Put32(out, 20, 1);   // EV_CURRENT
  Put32(out, 32, shoff);
  Put16(out, 40, 52);  // header size
  Put16(out, 46, 40);  // section header size
  Put16(out, 48, 5);   // section count
  Put16(out, 50, 4);   // section-name table
  WriteFile(sPath, out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    fprintf(stderr, "usage: kofd_bench_archive_inputs DIR MEMBERS SYMBOLS [CODE]\n");
    return 2;
  }
  const std::string sDirectory = argv[1];
  const unsigned nMembers = static_cast<unsigned>(atoi(argv[2])), nSymbols = static_cast<unsigned>(atoi(argv[3]));
  if (argc == 5) g_codeSize = static_cast<std::uint32_t>(strtoul(argv[4], nullptr, 0));
  char szName[32];
  for (unsigned i = 0; i <= nMembers; ++i) {
    if (i < nMembers) snprintf(szName, sizeof szName, "m%04u.o", i);
    const std::string sName = i < nMembers ? szName : "extra.o";
    WriteKelf(sDirectory + "/kelf/" + sName, i, nSymbols);
    WriteElf(sDirectory + "/elf/" + sName, i, nSymbols);
  }
  return 0;
}
