// The symbol listing a user of nm expects: every symbol of an object, or of every member of an
// archive, with nm's one-letter class.
//
// The letter: U undefined (section 0 or 0xFFFF), A absolute (0xFFF1), C common (0xFFF2); for a
// section of the object, T with the execute flag, D writable and allocated, R other allocated,
// N otherwise, ? for a section index the object does not hold. Lowercase for a local symbol;
// a weak symbol is W when defined, w when undefined. The null symbol 0 and the FILE and SECTION
// symbols are left out, as nm leaves them out by default.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "analyze/analyzed_object.h"

namespace kofd_analyze {

constexpr WORD kSectionCommon = 0xFFF2;

enum class SymbolFilter { kAll, kDefined, kUndefined };

struct ListedSymbol {
  std::size_t object = 0;  // the object's position in the list given
  std::string sMember;  // "" for an object that is a file of its own
  DWORD dwIndex = 0;    // the symbol's index in its table
  std::string sName;
  DWORD dwValue = 0;
  DWORD dwSize = 0;
  BYTE bInfo = 0;       // bind in the high four bits, type in the low four
  WORD wSection = 0;
  char cLetter = '?';
};

// The letter of symbol (st_info, st_shndx) in document, as the header describes.
char SymbolLetter(I_KOfdELF& document, BYTE bInfo, WORD wSection);

// Every listed symbol of every object, in object and symbol-table order.
std::vector<ListedSymbol> ListSymbols(const std::vector<AnalyzedObject>& objects, SymbolFilter filter);

}  // namespace kofd_analyze
