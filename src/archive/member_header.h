// C_KArcMemberHeader: the 60 bytes of text in front of every archive member.
//
//   0   16  Name Index   offset of the member's name in the name member ("/" for the linker
//                        and name members)
//   16  12  Date         seconds since 1970-01-01 UTC
//   28   6  owner        written 0, never read
//   34   6  group        not interpreted
//   40   8  mode         not interpreted
//   48  10  Size         data bytes behind the header
//   58   2  "'\n"        written, never checked
//
// The bytes are kept as read and written back unchanged; the three numbers are parsed on each
// request, as the C library's "%i" conversion reads them (decimal, 0x hexadecimal, 0 octal).
#pragma once

#include <cstdint>
#include <memory>

#include "archive/archive_io.h"
#include "frame/byte_view.h"
#include "frame/exception.h"
#include "frame/file.h"
#include "present/dump.h"
#include "present/browse.h"

constexpr DWORD kArcMemberHeaderSize = 60;

// The Size and Name Index of the 60 header bytes at pHeader, read as GetSize and GetNameIndex
// read them: for a reader that looks at raw bytes without building a member.
DWORD MemberHeaderSize(const BYTE* pHeader);
DWORD MemberHeaderNameIndex(const BYTE* pHeader);

// What every member shows of its header.
class I_KArcMemberHeader : public virtual I_Unknown {
 public:
  virtual DWORD GetSize() = 0;
  virtual DWORD GetDate() = 0;
  virtual DWORD GetNameIndex() = 0;
};

class C_KArcMemberHeader : public virtual I_KArcMemberHeader, public virtual C_Exception, public virtual C_KOfdDump {
 public:
  C_KArcMemberHeader();

  HRESULT DumpHead() override;
  HRESULT DumpAll() override;

  DWORD GetSize() override;
  DWORD GetDate() override;
  DWORD GetNameIndex() override;

  // Seeks to dwOffset and reads exactly 60 bytes; 1016 "When read linker member" otherwise.
  HRESULT Read(I_File* pFile, DWORD dwOffset);
  HRESULT Read(C_KArcReadWindow& window, DWORD dwOffset);
  // The 60 bytes; 1015 with pszContext on failure.
  HRESULT Write(C_KArcWriter& writer, const char* pszContext);

  // Builds the header afresh: "/", blanks, "'\n", then the numbers in decimal over the blanks.
  // The name field keeps its "/" for the linker and name members (bNamed false).
  void Build(bool bNamed, DWORD dwNameIndex, std::int32_t lDate, std::int32_t lOwner, DWORD dwSize);
  // The header of the linker or name member: name "/", the current time, owner 0.
  void BuildSpecial(DWORD dwSize);
  // Rewrites the name field alone, every other byte staying as it is.
  void SetNameIndex(DWORD dwNameIndex);
  // Rewrites the size field alone.
  void SetSize(DWORD dwSize);

  const BYTE* GetBytes() const { return m_Bytes; }
  // Takes 60 header bytes as they were read elsewhere.
  void Assign(const BYTE* pBytes) { Z_Take(pBytes); }

  // Reads the header at dwOffset, then the Size bytes behind it into a new zero-padded block;
  // 1016 "When read linker member" when the file does not hold them all.
  C_Block ReadWithData(C_KArcReadWindow& window, DWORD dwOffset);

 private:
  HRESULT Z_Take(const BYTE* pBytes);

  BYTE m_Bytes[kArcMemberHeaderSize];
};

// A member and its header: every member shows its header's numbers as its own, and is browsed.
class C_KArcMember : public virtual I_KArcMemberHeader, public virtual C_Exception, public virtual C_Browse {
 public:
  DWORD GetSize() override { return m_Header.GetSize(); }
  DWORD GetDate() override { return m_Header.GetDate(); }
  DWORD GetNameIndex() override { return m_Header.GetNameIndex(); }
  C_KArcMemberHeader& GetHeader() { return m_Header; }

 protected:
  C_KArcMemberHeader m_Header;
};
