#include "archive/member_header.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>

#include "frame/error.h"
#include "frame/fileio.h"
#include "platform/platform.h"

namespace {

struct Field {
  DWORD dwOffset, dwWidth;
};
constexpr Field kNameField{0, 16}, kDateField{16, 12}, kOwnerField{28, 6}, kSizeField{48, 10};

constexpr char kReadContext[] = "When read linker member";

int DigitValue(BYTE ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
  if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
  return 99;
}

bool IsSpace(BYTE ch) { return ch == ' ' || (ch >= '\t' && ch <= '\r'); }

// The "%i" conversion of the text from p up to pEnd: leading white space, a sign, then 0x for
// hexadecimal, 0 for octal, decimal otherwise, up to the first character that does not belong.
// The text never runs past the header, so a field full of digits may continue into the next one
// as it does in place, but never beyond the 60 bytes. Too many digits saturate, as strtol does,
// and the result keeps the low 32 bits, as the conversion into an int does.
std::int32_t ParseNumber(const BYTE* p, const BYTE* pEnd) {
  while (p < pEnd && IsSpace(*p)) ++p;
  bool bNegative = false;
  if (p < pEnd && (*p == '+' || *p == '-')) bNegative = *p++ == '-';
  int nBase = 10;
  if (p < pEnd && *p == '0') {
    nBase = 8;
    if (pEnd - p >= 3 && (p[1] == 'x' || p[1] == 'X') && DigitValue(p[2]) < 16) {
      nBase = 16;
      p += 2;
    }
  }
  std::uint64_t qwValue = 0;
  bool bOverflow = false;
  const std::uint64_t qwLimit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + (bNegative ? 1 : 0);
  for (; p < pEnd && DigitValue(*p) < nBase; ++p) {
    const unsigned digit = static_cast<unsigned>(DigitValue(*p));
    if (qwValue > (qwLimit - digit) / static_cast<unsigned>(nBase)) {
      bOverflow = true;
      qwValue = qwLimit;
    } else if (!bOverflow) {
      qwValue = qwValue * static_cast<unsigned>(nBase) + digit;
    }
  }
  const std::uint64_t qwSigned = bNegative ? 0 - qwValue : qwValue;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(qwSigned & 0xFFFFFFFFu));
}

// Writes the decimal text of a number over the blanks of a field, never past its width.
void PutNumber(BYTE* pHeader, Field field, long long llValue) {
  char szText[24];
  const int nLength = snprintf(szText, sizeof szText, "%lld", llValue);
  const DWORD dwLength = nLength < 0 ? 0 : static_cast<DWORD>(nLength);
  memcpy(pHeader + field.dwOffset, szText, dwLength < field.dwWidth ? dwLength : field.dwWidth);
}

}  // namespace

DWORD MemberHeaderSize(const BYTE* pHeader) {
  return static_cast<DWORD>(ParseNumber(pHeader + kSizeField.dwOffset, pHeader + kArcMemberHeaderSize));
}

DWORD MemberHeaderNameIndex(const BYTE* pHeader) {
  return static_cast<DWORD>(ParseNumber(pHeader + kNameField.dwOffset, pHeader + kArcMemberHeaderSize));
}

C_KArcMemberHeader::C_KArcMemberHeader() { memset(m_Bytes, 0, sizeof m_Bytes); }

DWORD C_KArcMemberHeader::GetSize() {
  return static_cast<DWORD>(ParseNumber(m_Bytes + kSizeField.dwOffset, m_Bytes + kArcMemberHeaderSize));
}

DWORD C_KArcMemberHeader::GetDate() {
  return static_cast<DWORD>(ParseNumber(m_Bytes + kDateField.dwOffset, m_Bytes + kArcMemberHeaderSize));
}

DWORD C_KArcMemberHeader::GetNameIndex() {
  return static_cast<DWORD>(ParseNumber(m_Bytes + kNameField.dwOffset, m_Bytes + kArcMemberHeaderSize));
}

HRESULT C_KArcMemberHeader::Z_Take(const BYTE* pBytes) {
  memcpy(m_Bytes, pBytes, sizeof m_Bytes);
  return S_OK;
}

HRESULT C_KArcMemberHeader::Read(I_File* pFile, DWORD dwOffset) {
  C_KArcReadWindow window(pFile, kArcMemberHeaderSize);
  return Read(window, dwOffset);
}

HRESULT C_KArcMemberHeader::Read(C_KArcReadWindow& window, DWORD dwOffset) {
  BYTE bytes[kArcMemberHeaderSize];
  if (!window.ReadAt(dwOffset, bytes, sizeof bytes)) ThrowLibraryError(true, KE_READ_FAILED, kReadContext);
  return Z_Take(bytes);
}

C_Block C_KArcMemberHeader::ReadWithData(C_KArcReadWindow& window, DWORD dwOffset) {
  Read(window, dwOffset);
  C_Block data = ReadFileRegion(window.File(), dwOffset, kArcMemberHeaderSize, GetSize());
  if (data.IsEmpty()) ThrowLibraryError(true, KE_READ_FAILED, kReadContext);
  return data;
}

HRESULT C_KArcMemberHeader::Write(C_KArcWriter& writer, const char* pszContext) {
  writer.Put(m_Bytes, sizeof m_Bytes, pszContext);
  return S_OK;
}

void C_KArcMemberHeader::Build(bool bNamed, DWORD dwNameIndex, std::int32_t lDate, std::int32_t lOwner,
                               DWORD dwSize) {
  memset(m_Bytes, ' ', sizeof m_Bytes);
  m_Bytes[0] = '/';
  m_Bytes[58] = '\'';
  m_Bytes[59] = '\n';
  if (bNamed) PutNumber(m_Bytes, kNameField, dwNameIndex);
  PutNumber(m_Bytes, kDateField, lDate);
  PutNumber(m_Bytes, kOwnerField, lOwner);
  PutNumber(m_Bytes, kSizeField, dwSize);
}

void C_KArcMemberHeader::BuildSpecial(DWORD dwSize) {
  const std::time_t now = std::time(nullptr);
  Build(false, 0, static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(now) & 0xFFFFFFFFu)),
        0, dwSize);
}

void C_KArcMemberHeader::SetNameIndex(DWORD dwNameIndex) {
  memset(m_Bytes + kNameField.dwOffset, ' ', kNameField.dwWidth);
  PutNumber(m_Bytes, kNameField, dwNameIndex);
}

void C_KArcMemberHeader::SetSize(DWORD dwSize) {
  memset(m_Bytes + kSizeField.dwOffset, ' ', kSizeField.dwWidth);
  PutNumber(m_Bytes, kSizeField, dwSize);
}
