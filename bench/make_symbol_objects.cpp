// Writes two objects holding the same N global function symbols over one code section: a KELF
// object (through tests/support) and a standard ELF32 relocatable object, for comparing
// `kofd dump --section .symtab` with `readelf -sW`.
//
// Usage: kofd_make_symbol_objects N KELF_OUT ELF32_OUT
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kelf_writer.h"

using namespace kelf_test;

namespace {

constexpr std::uint32_t kCodeSize = 4096;

std::string SymbolName(std::size_t i) { return "symbol_" + std::to_string(i * 2654435761u % 1000003u) + "_" + std::to_string(i); }

// The null symbol, then the globals; the same records serve both formats.
Bytes Symbols(std::size_t nSymbols, StringTable& names, std::uint16_t wText) {
  Bytes symbols = Sym(0, 0, 0, kStbLocal, kSttNoType, 0, kShnUndef);
  symbols.reserve((nSymbols + 1) * 16);
  for (std::size_t i = 0; i < nSymbols; ++i) {
    Append(symbols, Sym(names.Add(SymbolName(i)), static_cast<std::uint32_t>(i * 4 % kCodeSize), 4, kStbGlobal,
                        kSttFunction, 0, wText));
  }
  return symbols;
}

void WriteKelf(std::size_t nSymbols, const std::string& sPath) {
  ObjectBuilder object;
  const std::size_t text = object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(kCodeSize, 0x90), {}, {}, {}});
  StringTable names = StringTable::WithNul();
  const Bytes symbols = Symbols(nSymbols, names, static_cast<std::uint16_t>(text));
  const std::size_t strings = object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, static_cast<std::uint32_t>(strings), 1, 4, 16, symbols, {}, {}, {}});
  object.WriteFile(sPath);
}

// ELF32, little-endian, i386: header (52), .text, .symtab, .strtab, .shstrtab, section headers.
void WriteElf32(std::size_t nSymbols, const std::string& sPath) {
  StringTable names = StringTable::WithNul();
  const Bytes symbols = Symbols(nSymbols, names, 1);
  StringTable sectionNames = StringTable::WithNul();
  const std::uint32_t nameText = sectionNames.Add(".text"), nameSymtab = sectionNames.Add(".symtab");
  const std::uint32_t nameStrtab = sectionNames.Add(".strtab"), nameShstrtab = sectionNames.Add(".shstrtab");

  const Bytes* contents[] = {nullptr, nullptr, &symbols, &names.Data(), &sectionNames.Data()};
  const Bytes code(kCodeSize, 0x90);
  contents[1] = &code;
  Bytes out(52, 0);
  std::uint32_t offsets[5] = {0};
  for (int i = 1; i < 5; ++i) {
    out.resize((out.size() + 3) & ~std::size_t(3), 0);
    offsets[i] = static_cast<std::uint32_t>(out.size());
    Append(out, *contents[i]);
  }
  out.resize((out.size() + 3) & ~std::size_t(3), 0);
  const std::uint32_t shoff = static_cast<std::uint32_t>(out.size());
  const std::uint32_t headers[5][10] = {
      {0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
      {nameText, 1, 6, 0, offsets[1], kCodeSize, 0, 0, 4, 0},
      {nameSymtab, 2, 0, 0, offsets[2], static_cast<std::uint32_t>(symbols.size()), 3, 1, 4, 16},
      {nameStrtab, 3, 0, 0, offsets[3], names.Size(), 0, 0, 1, 0},
      {nameShstrtab, 3, 0, 0, offsets[4], sectionNames.Size(), 0, 0, 1, 0},
  };
  for (const auto& header : headers) {
    for (std::uint32_t field : header) Append32(out, field);
  }
  const std::uint8_t ident[] = {0x7F, 'E', 'L', 'F', 1, 1, 1};
  for (std::size_t i = 0; i < sizeof ident; ++i) out[i] = ident[i];
  Put16(out, 16, 1);   // ET_REL
  Put16(out, 18, 3);   // EM_386
  Put32(out, 20, 1);   // EV_CURRENT
  Put32(out, 32, shoff);
  Put16(out, 40, 52);  // e_ehsize
  Put16(out, 46, 40);  // e_shentsize
  Put16(out, 48, 5);   // e_shnum
  Put16(out, 50, 4);   // e_shstrndx
  WriteFile(sPath, out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: kofd_make_symbol_objects N KELF_OUT ELF32_OUT\n");
    return 2;
  }
  const std::size_t nSymbols = std::strtoul(argv[1], nullptr, 10);
  WriteKelf(nSymbols, argv[2]);
  WriteElf32(nSymbols, argv[3]);
  return 0;
}
