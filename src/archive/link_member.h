// C_KArcLinkMember: the first member of an archive, the index of its object members and of the
// global symbols they define.
//
//   header (60)          name "/", Size = L
//   Version              32-bit little-endian words from here on
//   N, N offsets         file offset of each object member's header, in member order
//   S, S member indices  for each symbol, the index of the member that defines it
//   S names              NUL-terminated, filling the rest of the L bytes
//
// The names are held back to back in one owned block, each found by its start, so that opening
// an archive of many thousands of symbols costs one copy and no allocation per name; lookups by
// name go through C_NameSlots over positions, built on the first lookup.
#pragma once

#include <string>
#include <vector>

#include "archive/member_header.h"
#include "sections/name_slots.h"

class C_KArcLinkMember : public C_KArcMember, public virtual C_KOfdDump {
 public:
  // The listing goes to std::cout; an invalid member writes nothing and answers its Validate.
  HRESULT DumpHead() override;
  HRESULT DumpAll() override;
  // Browse: its item, and its list columns and rows (present/archive_views.cpp).
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  // Reads the header at dwOffset, then Size bytes, and parses them. Counts that the data cannot
  // hold are the read failure (1016 "When read linker member").
  HRESULT Read(I_File* pFile, DWORD dwOffset);
  HRESULT Read(C_KArcReadWindow& window, DWORD dwOffset);
  HRESULT Write(I_File* pFile);
  HRESULT Write(C_KArcWriter& writer);
  // An empty index (no objects, no symbols) with a header of its own.
  void Reset(DWORD dwVersion);
  // S_OK once the member has been read or built; E_POINTER before.
  HRESULT Validate() const { return m_bValid ? S_OK : E_POINTER; }

  DWORD GetVersion() const { return m_dwVersion; }
  DWORD GetObjectCount() const { return static_cast<DWORD>(m_vOffsets.size()); }
  // The member-index list and the name list have the same length in an index this library
  // writes; a damaged one may differ, and each count is the length of its own list.
  DWORD GetSymbolCount() const { return static_cast<DWORD>(m_vMemberIndices.size()); }
  DWORD GetNameCount() const { return static_cast<DWORD>(m_vNameAt.size()); }
  // Name i, or "" past the name list.
  const char* GetSymbolName(DWORD dwIndex) const;
  // Member index of symbol i; false past the member-index list.
  bool GetSymbolMember(DWORD dwIndex, DWORD* pdwMember) const;
  // The position of the first symbol named pszName (byte-wise, case-sensitive), or -1.
  long FindSymbol(const char* pszName);
  // The work the name lookups have done so far (slots probed, trees searched).
  std::uint64_t GetLookupSteps() const { return m_Slots.GetSteps(); }
  // The bytes Write writes after the header.
  std::uint64_t DataSize() const;

 protected:
  // The stored offset of member dwIndex; 1009 "when call C_KArcLinkMember::Y_GetOffsetAt"
  // when there is none.
  DWORD Y_GetOffsetAt(DWORD dwIndex);
  // Recomputes every stored offset from the size of the name member and those of the archive's
  // members, in member order; 1009 "when call C_KArcLinkMember::Y_Update" when the offset list is
  // shorter than the member list. Returns how many offsets it placed: fewer than listed when a
  // position passes 4 GiB, which the caller reports once the members placed have their offsets.
  DWORD Y_Update(DWORD dwNameMemberSize, const std::vector<DWORD>& vMemberSizes);

 private:
  friend class C_KOfdArchive;

  // Appends (name, member); a name listed before keeps answering lookups with its first member.
  void Z_AddSym(const char* pszName, DWORD dwMember);
  // Drops member dwMember from the symbol lists with the walk the archive's Remove relies on.
  void Z_RemoveMember(DWORD dwMember);
  // Drops member dwMember from both symbol lists and renumbers the later members' symbols.
  void Z_DeleteMember(DWORD dwMember);
  // Keeps the first of the offsets that name one member: vMemberOf[i] is the member that offset
  // i names, of dwMembers; symbols follow their member, and the header's size the data.
  void Z_MergeOffsets(const std::vector<DWORD>& vMemberOf, DWORD dwMembers);
  void Z_AppendName(const char* pszName, std::size_t nLength);
  void Z_EraseName(DWORD dwIndex);
  void Z_Parse(const C_ByteView& data);
  // Builds the name index if it is not there.
  void Z_Index();
  // Places name dwIndex in the index unless a name equal to it is there (the first one stays).
  void Z_Place(DWORD dwIndex, DWORD dwHash);

  bool m_bValid = false;
  DWORD m_dwVersion = 0;
  std::vector<DWORD> m_vOffsets;
  std::vector<DWORD> m_vMemberIndices;
  std::string m_sNameBytes;
  std::vector<DWORD> m_vNameAt;
  // Names by position (positions outlive the block moving); erasing names drops the index.
  C_NameSlots m_Slots;
  bool m_bIndexed = false;
};
