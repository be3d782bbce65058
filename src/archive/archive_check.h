// C_KArcImage: an archive file read byte by byte, without trusting its linker member, to check
// the index against the members and to write the archive again from its members. The headers
// and the linker and name members are read; the members' bytes stay in their files until a
// write copies them.
//
// The members are found by walking the file: they lie back to back behind the name member, each
// a header (60) and Size bytes, with no padding (an odd Size is followed directly by the next
// header). The walk stops at the end of the file, at a header cut short, at a header that does
// not end with "'\n", or at data that runs past the end; what it found before is the archive's
// member list. Each member's defined global symbols are read from its object where it lies.
//
// Rebuild lays out a new archive from that list: linker member version 1 with every member's
// offset and every (symbol, member) pair in member order and, inside a member, in symbol-table
// order; a name member with each member's name in member order; member headers as they were
// but for the Name Index and the Size, and the linker and name member headers dated 0. The same
// members give the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/types.h"

class C_ReplacingFile;
class I_KOfdELF;

// A global symbol an object defines: bind GLOBAL or WEAK, section index neither 0 nor 0xFFFF.
struct S_KArcDefinedSymbol {
  std::string sName;
  bool bWeak = false;
  // Defined in a section of a group (SHF_GROUP): one of many copies a linker keeps once.
  bool bGrouped = false;
};

// The defined global symbols of pDocument in symbol-table order, each name once.
void CollectDefinedSymbols(I_KOfdELF* pDocument, std::vector<S_KArcDefinedSymbol>* pvSymbols);

struct S_KArcFinding {
  std::string sKind;    // offset-wrong, symbol-missing, ... (docs/behaviour.md lists them)
  std::string sWords;   // what is wrong, in words
  std::string sMember;  // the member concerned, "" when none
  std::string sSymbol;  // the symbol concerned, "" when none
};

struct S_KArcImageMember {
  std::string sName;
  std::vector<BYTE> vHeader;  // the 60 header bytes as read
  // Where the Size bytes lie, never read whole: the archive read, or a replacement's own file.
  std::string sSource;
  std::uint64_t qwDataAt = 0;
  DWORD dwSize = 0;
  DWORD dwHeaderAt = 0;       // where the header lies in the file read (0 for a replacement)
  std::vector<S_KArcDefinedSymbol> vSymbols;
  bool bObject = false;       // the bytes read as an object
};

class C_KArcImage {
 public:
  // Reads the archive at pszPath and checks it. Throws (the library's errors) when the file
  // cannot be read, is no archive, or its linker or name member runs past its end: then no
  // member can be found at all.
  void Read(const char* pszPath);

  const std::vector<S_KArcFinding>& Findings() const { return m_vFindings; }
  const std::vector<S_KArcImageMember>& Members() const { return m_vMembers; }
  // The index of the first member named sName (ignoring case, as the archive's commands do), or -1.
  long FindMember(const std::string& sName) const;
  // Puts the object file at pszPath in member dwIndex's place, under the same name; throws when
  // the file cannot be read. The member's header takes the file's size and modification time.
  void ReplaceMember(DWORD dwIndex, const char* pszPath);
  // Writes the archive afresh from the members through output (not committed), copying each
  // member's bytes from its file a block at a time; 1016 naming a file that has shrunk since.
  void Rebuild(C_ReplacingFile& output) const;
  // Writes member dwIndex's bytes through output (not committed), the same way.
  void WriteMember(DWORD dwIndex, C_ReplacingFile& output) const;

 private:
  class Reader;
  void Z_Find(const char* pszKind, const std::string& sWords, const std::string& sMember = "",
              const std::string& sSymbol = "");
  void Z_WalkMembers(Reader& file, std::uint64_t qwFirst, const std::string& sNames);
  void Z_CheckIndex(Reader& file, const std::vector<BYTE>& vIndex);

  std::string m_sPath;
  std::vector<S_KArcFinding> m_vFindings;
  std::vector<S_KArcImageMember> m_vMembers;
};
