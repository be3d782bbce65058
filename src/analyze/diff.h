// Objects and archives compared by what they mean rather than by their bytes.
//
// Sections match by name (the nth of a name with the nth), symbols by name the same way,
// relocations of type 22 by their section's name and Offset, archive members by name. Where an
// object lays its parts out (section offsets and order, the section header table's position,
// string table offsets, symbol and expression indices, padding) differs only with bLayout.
#pragma once

#include <string>
#include <vector>

#include "analyze/analyzed_object.h"

namespace kofd_analyze {

enum class DiffPart { kHeader, kProgramHeader, kSection, kSymbol, kRelocation, kMember, kObject };
enum class DiffChange { kAdded, kRemoved, kChanged };

// One side of a changed field: a number, or a name (a section's, an expression's text).
struct DiffValue {
  bool bPresent = false;
  bool bText = false;
  DWORD dwNumber = 0;
  std::string sText;
  static DiffValue Number(DWORD dw) { DiffValue v; v.bPresent = true; v.dwNumber = dw; return v; }
  static DiffValue Text(std::string s) { DiffValue v; v.bPresent = true; v.bText = true; v.sText = std::move(s); return v; }
  bool operator==(const DiffValue& o) const {
    return bPresent == o.bPresent && bText == o.bText && dwNumber == o.dwNumber && sText == o.sText;
  }
  bool operator!=(const DiffValue& o) const { return !(*this == o); }
};

struct Difference {
  std::string sMember;           // the archive member both sides are ("" for objects)
  DiffPart part = DiffPart::kHeader;
  DiffChange change = DiffChange::kChanged;
  bool bLayout = false;          // a difference of layout alone, found only with DiffOptions::bLayout
  std::string sName;             // section, symbol or member name; a relocation's section name
  DWORD dwIndex = 0;             // program header: its index; relocation: its Offset
  std::string sField;            // what changed ("" for added and removed)
  DiffValue a, b;                // the field on each side
  bool bRange = false;           // contents: the differing bytes [dwFrom, dwTo) of the section
  DWORD dwFrom = 0, dwTo = 0;
};

struct DiffOptions {
  bool bLayout = false;
  DWORD dwMaxRanges = 32;        // content ranges per section; the last reaches the last change
};

std::vector<Difference> DiffObjects(const AnalyzedObject& a, const AnalyzedObject& b, const DiffOptions& options);

// Members match by name (ignoring nothing: the nth of a name with the nth); each pair is compared
// as objects. With bLayout a member's position in the archive counts.
std::vector<Difference> DiffArchives(const std::vector<AnalyzedObject>& a, const std::vector<AnalyzedObject>& b,
                                     const DiffOptions& options);

const char* PartName(DiffPart part);
const char* ChangeName(DiffChange change);

}  // namespace kofd_analyze
