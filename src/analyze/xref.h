// Cross references: which relocations name a symbol through their expression runs, which
// symbols expressions name that nothing defines, and which globals nothing names.
//
// A relocation record of type 22 names a symbol when a SYM token (type 13) of its run
// exp_start..exp_end, in the expression table its section links to, indexes that symbol in the
// symbol table the expression table links to. Names compare exactly (letter case counts).
#pragma once

#include <string>
#include <vector>

#include "analyze/analyzed_object.h"

namespace kofd_analyze {

struct Reference {
  std::string sMember;
  DWORD dwSection = 0;       // the relocation section's index and name
  std::string sSection;
  DWORD dwRecord = 0;
  DWORD dwOffset = 0;
  bool bValue = false;       // the evaluated value, when the run evaluates
  DWORD dwValue = 0;
  bool bText = false;        // the infix text, when the relocation table gives it
  std::string sExpression;
};

// Every relocation of every object whose run names sSymbol, in object, section, record order.
// A run the table cannot walk (out of range, too long) names nothing.
std::vector<Reference> FindReferences(const std::vector<AnalyzedObject>& objects, const std::string& sSymbol);

struct UndefinedSymbol {
  std::string sName;
  std::vector<std::string> vMembers;  // the members whose expressions name it, in order
};

// Symbols that a SYM token names where the symbol it indexes is undefined (section 0 or 0xFFFF)
// and that no object defines as a global (or weak) symbol. Sorted by name.
std::vector<UndefinedSymbol> FindUndefined(const std::vector<AnalyzedObject>& objects);

struct UnreferencedSymbol {
  std::string sName;
  std::string sMember;
};

// Defined global (and weak) symbols that no SYM token of any object names, in object and
// symbol order.
std::vector<UnreferencedSymbol> FindUnreferenced(const std::vector<AnalyzedObject>& objects);

}  // namespace kofd_analyze
