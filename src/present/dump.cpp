#include "present/dump.h"

#include <cstring>

namespace {

constexpr DWORD kUndefined = 0xFFFFFFFFu;

}  // namespace

C_DumpLine& C_DumpLine::HexOrUndef(DWORD dwValue, int nWidth) {
  return dwValue == kUndefined ? Text("UNDEF", nWidth) : Hex(dwValue, nWidth);
}

C_DumpLine& C_DumpLine::Text(const char* pszText, int nWidth) {
  Z_Put(pszText, strlen(pszText), nWidth);
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
  m_pLine[m_nUsed++] = '\n';
  if (m_pBlock) {
    // The line stays in the block; the block ends with the flush and the decimal base.
    m_pBlock->m_nUsed += m_nUsed;
    m_nUsed = 0;
    return;
  }
  Z_Spill();
  m_os.flush();
  m_os.setf(std::ios_base::dec, std::ios_base::basefield);
}

void C_DumpLine::Z_PutLong(const char* pText, std::size_t nLength, std::size_t nPad) {
  Z_Spill();
  if (nPad + nLength > kCapacity) {
    // A text longer than the whole buffer goes straight to the stream.
    for (std::size_t i = 0; i < nPad; ++i) m_os.put(m_chFill);
    m_os.write(pText, static_cast<std::streamsize>(nLength));
    return;
  }
  Z_Put(pText, nLength, static_cast<int>(nPad + nLength));
}

// What the line holds goes on: to the stream, or through the block (which is then written, so
// that what follows is in order and the line may start again at its beginning).
void C_DumpLine::Z_Spill() {
  if (m_pBlock) {
    m_pBlock->m_nUsed += m_nUsed;
    m_pBlock->Flush();
    m_pLine = m_pBlock->Z_Begin();
  } else if (m_nUsed != 0) {
    m_os.write(m_pLine, static_cast<std::streamsize>(m_nUsed));
  }
  m_nUsed = 0;
}

void WriteHeading(std::ostream& os, const char* pszHeading, std::initializer_list<DumpTitle> titles) {
  os.write(pszHeading, static_cast<std::streamsize>(strlen(pszHeading)));
  if (titles.size() == 0) return;
  C_DumpLine line(os);
  for (const DumpTitle& title : titles) line.Text(title.pszText, title.nWidth);
  line.End();
}
