// Writes the two inputs of the relocation listing comparison: a KELF object whose relocation
// section of type 22 has N records, each computed by SYM s, NUM n, + (three expression tokens),
// and a standard ELF32 relocatable object (i386, SHT_RELA) with the same N relocations: the
// same offsets, symbols and addends.
//
// Usage: kofd_bench_reloc_inputs N KELF_OUT ELF_OUT
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kelf_writer.h"

using namespace kelf_test;

namespace {

constexpr std::uint32_t kSymbols = 1000;

std::string SymbolName(std::uint32_t i) { return "symbol_" + std::to_string(i); }

// One section header of a standard ELF32 object.
void AppendSectionHeader(Bytes& out, std::uint32_t name, std::uint32_t type, std::uint32_t offset, std::uint32_t size,
                         std::uint32_t link, std::uint32_t info, std::uint32_t align, std::uint32_t entsize) {
  for (std::uint32_t field : {name, type, 0u, 0u, offset, size, link, info, align, entsize}) Append32(out, field);
}

void WriteStandardElf(std::uint32_t count, const std::string& path) {
  StringTable strings = StringTable::WithNul();
  Bytes symbols(16, 0);
  for (std::uint32_t i = 0; i < kSymbols; ++i) {
    Append32(symbols, strings.Add(SymbolName(i)));
    Append32(symbols, 4 * i);
    Append32(symbols, 4);
    symbols.push_back(0x12);  // global function
    symbols.push_back(0);
    Append16(symbols, 1);
  }
  Bytes relocations;
  for (std::uint32_t i = 0; i < count; ++i) {
    Append32(relocations, 4 * i);
    Append32(relocations, ((i % kSymbols + 1) << 8) | 1);  // R_386_32
    Append32(relocations, i);
  }
  StringTable names = StringTable::WithNul();
  const std::uint32_t text = names.Add(".text"), symtab = names.Add(".symtab"), strtab = names.Add(".strtab"),
                      rela = names.Add(".rela.text"), shstrtab = names.Add(".shstrtab");
  const Bytes code(4 * static_cast<std::size_t>(count), 0);

  Bytes out = {0x7F, 'E', 'L', 'F', 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const std::uint32_t textOffset = 52;
  const std::uint32_t symOffset = textOffset + static_cast<std::uint32_t>(code.size());
  const std::uint32_t strOffset = symOffset + static_cast<std::uint32_t>(symbols.size());
  const std::uint32_t relOffset = strOffset + static_cast<std::uint32_t>(strings.Data().size());
  const std::uint32_t namesOffset = relOffset + static_cast<std::uint32_t>(relocations.size());
  const std::uint32_t headersOffset = (namesOffset + static_cast<std::uint32_t>(names.Data().size()) + 3) & ~3u;
  Append16(out, 1);  // ET_REL
  Append16(out, 3);  // EM_386
  Append32(out, 1);
  Append32(out, 0);
  Append32(out, 0);
  Append32(out, headersOffset);
  Append32(out, 0);
  for (std::uint16_t field : {52, 0, 0, 40, 6, 5}) Append16(out, field);
  Append(out, code);
  Append(out, symbols);
  Append(out, strings.Data());
  Append(out, relocations);
  Append(out, names.Data());
  out.resize(headersOffset, 0);
  AppendSectionHeader(out, 0, 0, 0, 0, 0, 0, 0, 0);
  AppendSectionHeader(out, text, 1, textOffset, static_cast<std::uint32_t>(code.size()), 0, 0, 4, 0);
  AppendSectionHeader(out, symtab, 2, symOffset, static_cast<std::uint32_t>(symbols.size()), 3, 1, 4, 16);
  AppendSectionHeader(out, strtab, 3, strOffset, static_cast<std::uint32_t>(strings.Data().size()), 0, 0, 1, 0);
  AppendSectionHeader(out, rela, 4, relOffset, static_cast<std::uint32_t>(relocations.size()), 2, 1, 4, 12);
  AppendSectionHeader(out, shstrtab, 3, namesOffset, static_cast<std::uint32_t>(names.Data().size()), 0, 0, 1, 0);
  WriteFile(path, out);
}

void WriteKelf(std::uint32_t count, const std::string& path) {
  StringTable strings = StringTable::WithNul();
  Bytes symbols = Sym(0, 0, 0, 0, 0, 0, 0);
  for (std::uint32_t i = 0; i < kSymbols; ++i) Append(symbols, Sym(strings.Add(SymbolName(i)), 4 * i, 4, kStbGlobal, kSttFunction, 0, 1));
  Bytes tokens, relocations;
  for (std::uint32_t i = 0; i < count; ++i) {
    Append(tokens, Join({Exp(13, i % kSymbols + 1), Exp(12, i), Exp(1, 0)}));
    Append(relocations, Relxeb(i, i % kSymbols + 1, 1, 0, 31, 3 * i, 3 * i + 2));
  }
  ObjectBuilder object;
  object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(4 * static_cast<std::size_t>(count), 0), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  object.AddSection({".strtab", kShtStrtab, 0, 0, 0, 0, 1, 0, strings.Data(), {}, {}, {}});
  object.AddSection({".expr", kShtExpr, 0, 0, 2, 0, 4, 8, tokens, {}, {}, {}});
  object.AddSection({".relxeb.text", kShtRelxeb, 0, 0, 4, 1, 4, 20, relocations, {}, {}, {}});
  object.WriteFile(path);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: kofd_bench_reloc_inputs N KELF_OUT ELF_OUT\n");
    return 2;
  }
  const std::uint32_t count = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
  WriteKelf(count, argv[2]);
  WriteStandardElf(count, argv[3]);
  return 0;
}
