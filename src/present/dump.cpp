#include "present/dump.h"

#include <cstring>

namespace {

constexpr DWORD kUndefined = 0xFFFFFFFFu;

}  // namespace

// Numbers are written digit by digit from the right end of their field, the padding after.
template <unsigned Base>
C_DumpLine& C_DumpLine::Z_Number(DWORD dwValue, int nWidth) {
  char szDigits[16];
  char* pEnd = szDigits + sizeof szDigits;
  char* p = pEnd;
  do {
    *--p = "0123456789abcdef"[dwValue % Base];
    dwValue /= Base;
  } while (dwValue != 0);
  Z_Put(p, static_cast<std::size_t>(pEnd - p), nWidth);
  return *this;
}

C_DumpLine& C_DumpLine::Hex(DWORD dwValue, int nWidth) { return Z_Number<16>(dwValue, nWidth); }

C_DumpLine& C_DumpLine::HexOrUndef(DWORD dwValue, int nWidth) {
  return dwValue == kUndefined ? Text("UNDEF", nWidth) : Hex(dwValue, nWidth);
}

C_DumpLine& C_DumpLine::Dec(DWORD dwValue, int nWidth) { return Z_Number<10>(dwValue, nWidth); }

C_DumpLine& C_DumpLine::Text(const char* pszText, int nWidth) {
  Z_Put(pszText, strlen(pszText), nWidth);
  return *this;
}

C_DumpLine& C_DumpLine::Char(char ch, int nWidth) {
  Z_Put(&ch, 1, nWidth);
  return *this;
}

C_DumpLine& C_DumpLine::Index(DWORD dwIndex, std::size_t cchBuffer) {
  char szIndex[16];
  char* pEnd = szIndex + sizeof szIndex;
  char* p = pEnd;
  *--p = ']';
  do {
    *--p = static_cast<char>('0' + dwIndex % 10);
    dwIndex /= 10;
  } while (dwIndex != 0);
  *--p = '[';
  std::size_t nLength = static_cast<std::size_t>(pEnd - p);
  // What the buffer cannot hold, its terminator included, is cut.
  if (cchBuffer != 0 && nLength > cchBuffer - 1) nLength = cchBuffer - 1;
  Z_Put(p, nLength, 5);
  return *this;
}

void C_DumpLine::End() {
  if (m_nUsed == kCapacity) Z_Spill();
  m_szLine[m_nUsed++] = '\n';
  Z_Spill();
  m_os.flush();
  m_os.setf(std::ios_base::dec, std::ios_base::basefield);
}

void C_DumpLine::Z_Put(const char* pText, std::size_t nLength, int nWidth) {
  const std::size_t nField = nWidth > 0 ? static_cast<std::size_t>(nWidth) : 0;
  const std::size_t nPad = nField > nLength ? nField - nLength : 0;
  if (m_nUsed + nPad + nLength > kCapacity) {
    Z_Spill();
    if (nPad + nLength > kCapacity) {
      // A text longer than the whole buffer goes straight to the stream.
      for (std::size_t i = 0; i < nPad; ++i) m_os.put(m_chFill);
      m_os.write(pText, static_cast<std::streamsize>(nLength));
      return;
    }
  }
  // Fields are short: plain loops beat calls to memset and memcpy here, names are not.
  char* p = m_szLine + m_nUsed;
  const char chFill = m_chFill;
  for (std::size_t i = 0; i < nPad; ++i) p[i] = chFill;
  p += nPad;
  if (nLength > 16) {
    memcpy(p, pText, nLength);
  } else {
    for (std::size_t i = 0; i < nLength; ++i) p[i] = pText[i];
  }
  m_nUsed += nPad + nLength;
}

void C_DumpLine::Z_Spill() {
  if (m_nUsed != 0) m_os.write(m_szLine, static_cast<std::streamsize>(m_nUsed));
  m_nUsed = 0;
}

void WriteHeading(std::ostream& os, const char* pszHeading, std::initializer_list<DumpTitle> titles) {
  os.write(pszHeading, static_cast<std::streamsize>(strlen(pszHeading)));
  if (titles.size() == 0) return;
  C_DumpLine line(os);
  for (const DumpTitle& title : titles) line.Text(title.pszText, title.nWidth);
  line.End();
}
