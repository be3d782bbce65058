// Small objects for the archive suites: a code section and a symbol table of globals.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "kelf_writer.h"

inline std::string AsString(const kelf_test::Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// An object defining the given globals, each with its section index (1 is the code section);
// symbols from firstGlobal on count as global.
inline kelf_test::Bytes ObjectWith(const std::vector<std::pair<std::string, std::uint16_t>>& globals,
                                   std::uint32_t firstGlobal = 1) {
  using namespace kelf_test;
  StringTable names = StringTable::WithNul();
  Bytes symbols = Sym(0, 0, 0, 0, 0, 0, 0);
  for (const auto& global : globals) {
    Append(symbols, Sym(names.Add(global.first), 8, 4, kStbGlobal, kSttFunction, 0, global.second));
  }
  ObjectBuilder object;
  object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Words({1, 2, 3}), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, 3, firstGlobal, 4, 16, symbols, {}, {}, {}});
  object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  return object.Build();
}
