#include "present/names.h"

#include <cstdio>

namespace {

template <std::size_t N>
const char* Lookup(const char* const (&names)[N], DWORD dwIndex, const char* pszOutside = "Err") {
  return dwIndex < N ? names[dwIndex] : pszOutside;
}

const char* const kSectionTypesLow[] = {"Inact", "Prgbit", "Symtab", "Strtab", "Rela", "HshTab",
                                        "Dynmic", "Note", "Nobits", "Rel", "Shlib", "Dynsym"};
const char* const kSectionTypesChip[] = {"Relx", "Relxe", "Expr", "Line", "BnkInfo",
                                         "SRom", "Relxeb", "Kdm", "KdmInfo", "SrcLine"};
const char* const kSectionFlags[] = {"--", "W", "A", "AW", "X", "--", "XA", "XAW"};
const char* const kSegmentTypes[] = {"NULL", "LOAD", "DYNAMIC", "INTERP", "NOTE", "SHLIB", "PHDR"};
const char* const kSegmentFlags[] = {"NONE", "X", "W", "XW", "R", "XR", "RW", "XWR"};
const char* const kSymbolTypes[] = {"NoType", "Object", "Function", "Section", "File", "Lookup", "ShRom"};
const char* const kSymbolBinds[] = {"Local", "Global", "Weak"};
const char* const kExpressionTypes[] = {"Notype", "+", "-",   "*",   "/",   "&",  "|",  "^",  "~",
                                        "[]",     "(", ")",   "NUM", "SYM", ">>", "<<", "%"};
const char* const kFileClasses[] = {"INVALID", "32-bit", "64-bit"};
const char* const kDataEncodings[] = {"INVALID", "LSB", "MSB"};
const char* const kFileTypes[] = {"NONE", "RELOCATABLE", "EXECUTABLE", "SHARED", "CORE"};
const char* const kChips[] = {"NONE", "", "SPARC", "Intel"};

}  // namespace

const char* SectionTypeName(DWORD dwType) {
  if (dwType < 16) return Lookup(kSectionTypesLow, dwType);
  return Lookup(kSectionTypesChip, dwType - 16);
}

const char* SectionFlagsName(DWORD dwFlags) { return Lookup(kSectionFlags, dwFlags); }
const char* SegmentTypeName(DWORD dwType) { return Lookup(kSegmentTypes, dwType); }
const char* SegmentFlagsName(DWORD dwFlags) { return Lookup(kSegmentFlags, dwFlags & 0xF); }
const char* SymbolTypeName(BYTE bInfo) { return Lookup(kSymbolTypes, bInfo & 0xF, ""); }
const char* SymbolBindName(BYTE bInfo) { return Lookup(kSymbolBinds, bInfo >> 4); }
const char* ExpressionTypeName(DWORD dwType) { return Lookup(kExpressionTypes, dwType); }
const char* FileClassName(BYTE bClass) { return Lookup(kFileClasses, bClass); }
const char* DataEncodingName(BYTE bData) { return Lookup(kDataEncodings, bData); }
const char* FileTypeName(WORD wType) { return Lookup(kFileTypes, wType); }

std::string ChipName(DWORD dwChip) {
  if (dwChip < 4) return kChips[dwChip];
  char szChip[16];
  snprintf(szChip, sizeof szChip, "K%x", static_cast<unsigned>(dwChip));
  return szChip;
}
