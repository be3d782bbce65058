// A string table addressed by resource number: what a module handle designates on POSIX.
#pragma once

#include <cstddef>

namespace platform {

struct StringEntry {
  unsigned id;
  const char* text;
};

struct StringTable {
  const StringEntry* entries;
  std::size_t count;
};

// The library's own table, built from resources/strings.def.
extern const StringTable g_LibraryStrings;

}  // namespace platform
