// The address -> source line map of an object, merged from its line tables (type 19), source-line
// tables (type 25) and stab tables, with the bank and the share-ROM words of each range.
//
//   line table      address = the program section's (sh_info) sh_addr + Offset; no file
//   source line     address = the program section's (sh_info) sh_addr + Offset; the file its
//                   NameIndex names in the linked string table
//   stab            a ".stab" section of 12-byte records (names in its linked string table, else
//                   ".stabstr"), or a stab table: N_SO and N_SOL name the current file (an
//                   empty N_SO ends it), N_SLINE gives line n_desc at address n_value; N_FUN
//                   and other stabs place nothing
//
// Addresses are 32-bit and wrap as the line table's own GetLineAddress does. At one address the
// source-line entry wins over the line entry, which wins over the stab entry; within one kind
// the first listed wins. Entries at the same address that name another line (or another file,
// where both name one) are kept as the range's conflicts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/types.h"

class I_KOfdELF;

namespace kofd_analyze {

enum class LineSource { kSourceLine, kLine, kStab };
const char* LineSourceName(LineSource source);  // "srcline", "line", "stab"

struct LineEntry {
  DWORD dwAddress = 0;
  DWORD dwLine = 0;
  bool bFileKnown = false;
  std::string sFile;
  LineSource source = LineSource::kLine;
  DWORD dwSection = 0;  // the table's section index
  DWORD dwRecord = 0;   // the record's index in it
};

struct ShareRomWord {
  DWORD dwAddress = 0;
  DWORD dwWord = 0;
  DWORD dwSection = 0;
};

// [qwFrom, qwTo): the winner's file and line, the bank, and the share-ROM words placed there.
struct MapRange {
  std::uint64_t qwFrom = 0;
  std::uint64_t qwTo = 0;
  LineEntry line;                    // the winning entry
  std::vector<LineEntry> vAgreeing;  // other entries at qwFrom that say the same
  std::vector<LineEntry> vConflicts; // other entries at qwFrom that say otherwise
  bool bBankKnown = false;
  DWORD dwBank = 0;
  std::vector<ShareRomWord> vShareRom;
};

// A range runs from its entry's address to the next entry's address, but never past the end of
// the program section (type 1, sh_addr + sh_size) that holds its start; an address no program
// section holds makes a range of one address. Ranges are split where the bank changes: the bank
// of an address is the one of the greatest bank-table Address not above it (of equal Addresses
// the last listed), none below the least. A share-ROM section's word i lies at its sh_addr + 4 i.
struct AddressMap {
  std::vector<MapRange> vRanges;  // by address
  std::size_t nEntries = 0;       // entries read from all tables
  std::size_t ConflictCount() const;
};

AddressMap BuildAddressMap(I_KOfdELF& document);

// The range that holds dwAddress, or null.
const MapRange* FindAddress(const AddressMap& map, DWORD dwAddress);

}  // namespace kofd_analyze
