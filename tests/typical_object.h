// A small object of the usual sections, built byte by byte with tests/support.
#pragma once

#include <cstdint>

#include "kelf_writer.h"

// 1 .text, 2 .symtab (names in 3), 3 .symstrtab, 4 .line (for 1), 5 .shstrtab. The symbol table
// comes before the string table it names.
inline kelf_test::ObjectBuilder TypicalObject() {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const std::uint32_t main = names.Add("main");
  kelf_test::ObjectBuilder builder;
  builder.AddSection(kelf_test::MakeSection(".text", kelf_test::kShtPrgbit, kelf_test::Words({0x11111111, 0x22222222})));
  builder.AddSection(kelf_test::MakeSection(
      ".symtab", kelf_test::kShtSymtab,
      kelf_test::Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0),
                       kelf_test::Sym(main, 4, 8, kelf_test::kStbGlobal, kelf_test::kSttFunction, 0, 1)}),
      3, 1));
  builder.AddSection(kelf_test::MakeSection(".symstrtab", kelf_test::kShtStrtab, names.Data()));
  builder.AddSection(kelf_test::MakeSection(".line", kelf_test::kShtLine, kelf_test::Line(4, 12), 0, 1));
  return builder;
}
