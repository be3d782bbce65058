// The text dumps of the archive members and of the unknown object's raw bytes.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>

#include "archive/link_member.h"
#include "archive/name_member.h"
#include "archive/unknown_object.h"
#include "platform/platform.h"

namespace {

void WriteMemberHeading(std::ostream& os, const char* pszTitle) {
  os << pszTitle;
  EndLine(os);
  EndLine(os);
}

}  // namespace

// ---- Member header -----------------------------------------------------------------------

HRESULT C_KArcMemberHeader::DumpHead() {
  WriteMemberHeading(*this, "Member Header");
  return S_OK;
}

HRESULT C_KArcMemberHeader::DumpAll() {
  DumpHead();
  *this << "Name Index = " << GetNameIndex();
  EndLine(*this);
  // The calendar text ends in its own line feed; a date the runtime cannot convert shows none.
  const std::time_t date = static_cast<std::time_t>(GetDate());
  const char* pszDate = std::ctime(&date);
  *this << "Date = " << (pszDate ? pszDate : "");
  EndLine(*this);
  *this << "Size = " << GetSize();
  EndLine(*this);
  EndLine(*this);
  return S_OK;
}

// ---- Linker member -----------------------------------------------------------------------

HRESULT C_KArcLinkMember::DumpHead() {
  WriteMemberHeading(*this, "Linker Member");
  return S_OK;
}

HRESULT C_KArcLinkMember::DumpAll() {
  const HRESULT hr = Validate();
  if (hr != S_OK) return hr;
  std::ostream& os = std::cout;
  os << "Version = " << GetVersion();
  EndLine(os);
  os << "Number of objects = " << GetObjectCount();
  EndLine(os);
  os << "Number of Global Symbols = " << GetSymbolCount();
  EndLine(os);
  EndLine(os);
  for (DWORD i = 0; i < GetObjectCount(); ++i) {
    os << '[' << i << "]\t" << Y_GetOffsetAt(i);
    EndLine(os);
  }
  EndLine(os);
  for (DWORD i = 0; i < GetSymbolCount(); ++i) {
    // A damaged index can name a member it does not list: its offset shows as 0.
    DWORD dwMember = 0;
    const bool bListed = GetSymbolMember(i, &dwMember) && dwMember < GetObjectCount();
    os << '[' << i << "]\t" << (bListed ? Y_GetOffsetAt(dwMember) : 0) << '\t' << GetSymbolName(i);
    EndLine(os);
  }
  EndLine(os);
  return S_OK;
}

// ---- Name member -------------------------------------------------------------------------

HRESULT C_KArcNameMember::DumpHead() {
  WriteMemberHeading(*this, "Name Member");
  return S_OK;
}

HRESULT C_KArcNameMember::DumpAll() {
  const HRESULT hr = Validate();
  if (hr != S_OK) return hr;
  // The buffer keeps a NUL behind its last byte, so every name ends inside it.
  for (DWORD dwOffset = 0; dwOffset < GetLength();) {
    const char* pszName = GetData() + dwOffset;
    *this << '[' << dwOffset << ']' << pszName;
    EndLine(*this);
    dwOffset += static_cast<DWORD>(std::char_traits<char>::length(pszName)) + 1;
  }
  return S_OK;
}

// ---- Unknown object ----------------------------------------------------------------------

HRESULT C_UnknownObject::DumpHead() {
  printf("Address\tRaw Data\n\n");
  return S_OK;
}

HRESULT C_UnknownObject::DumpRecord(DWORD dwRow) {
  const BYTE* pData = GetData();
  const DWORD dwSize = pData ? GetRegionSize() : 0;
  BYTE row[16];
  memset(row, ' ', sizeof row);
  char szText[17];
  DWORD nCopied = 0;
  // The row shows the sixteen bytes after its address: the position moves before each copy.
  std::uint64_t qwPosition = static_cast<std::uint64_t>(dwRow) * 16;
  while (nCopied < 16) {
    ++qwPosition;
    if (qwPosition >= dwSize) break;
    const BYTE byte = pData[qwPosition];
    row[nCopied] = byte;
    szText[nCopied] = platform::IsAlphaNumeric(static_cast<char>(byte)) ? static_cast<char>(byte) : '.';
    ++nCopied;
  }
  szText[nCopied] = '\0';
  char szAddress[16];
  snprintf(szAddress, sizeof szAddress, "%08X", static_cast<unsigned>(static_cast<std::uint64_t>(dwRow) * 16));
  printf("%s\t%02X %02X %02X %02X %02X %02X %02X %02X - %02X %02X %02X %02X %02X %02X %02X %02X", szAddress, row[0],
         row[1], row[2], row[3], row[4], row[5], row[6], row[7], row[8], row[9], row[10], row[11], row[12], row[13],
         row[14], row[15]);
  printf("%s\n", szText);
  return S_OK;
}

HRESULT C_UnknownObject::DumpAll() {
  const std::uint64_t qwRows = ((GetData() ? static_cast<std::uint64_t>(GetRegionSize()) : 0) + 15) / 16;
  for (std::uint64_t r = 0; r < qwRows; ++r) DumpRecord(static_cast<DWORD>(r));
  return S_OK;
}
