// Display names of the enumerated fields of KELF records, as views and dumps show them. Every
// lookup is bounded: a code outside a table gives the table's out-of-range text.
#pragma once

#include <string>

#include "frame/types.h"

const char* SectionTypeName(DWORD dwType);       // "Err" for 12..15 and above 25
const char* SectionFlagsName(DWORD dwFlags);     // "Err" above 7; 5 shows "--" like 0
const char* SegmentTypeName(DWORD dwType);       // "Err" above 6
const char* SegmentFlagsName(DWORD dwFlags);     // low four bits; "Err" for 8..15
const char* SymbolTypeName(BYTE bInfo);          // low four bits; empty for 7..15
const char* SymbolBindName(BYTE bInfo);          // high four bits; "Err" for 3..15
const char* ExpressionTypeName(DWORD dwType);    // "Err" above 16
const char* FileClassName(BYTE bClass);          // "Err" above 2
const char* DataEncodingName(BYTE bData);        // "Err" above 2
const char* FileTypeName(WORD wType);            // "Err" above 4
// "NONE", "", "SPARC", "Intel" for 0..3; "K" and the code in lowercase hexadecimal above.
std::string ChipName(DWORD dwChip);
