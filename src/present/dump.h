// I_KOfdDump / C_KOfdDump: the text dump that every header, table, member and document offers,
// and the pieces every dump is written with.
//
// A dump object is itself an output stream built without a buffer; SetStream makes it write
// into another stream's buffer while keeping its own format state (fill, base, width). Some
// dumps write to std::cout instead, as each one fixes.
//
// Writing a new table's dump (declare the overrides in the table's class):
//   DumpHead     WriteHeading(*this, "\n---- heading ----\n", {{"Title", width}, ...});
//   DumpRecord   fetch the record with Y_RecordOrNull(i) (E_FAIL past the end), then
//                C_DumpLine(*this).Index(i, kSectionIndexBuffer).Hex(...).Dec(...).End();
//   DumpAll      record tables inherit DumpRecordTable (heading, every record, an empty line).
#pragma once

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <ostream>

#include "frame/exception.h"

class I_KOfdDump : public virtual I_Unknown {
 public:
  // The heading and the column-title line.
  virtual HRESULT DumpHead() = 0;
  // The line of one record (a byte offset for string tables and the name member).
  virtual HRESULT DumpRecord(DWORD dwIndex) = 0;
  // The heading and every record.
  virtual HRESULT DumpAll() = 0;
  // Makes this object write into the buffer of stream, which the caller keeps alive.
  virtual HRESULT SetStream(std::ostream& stream) = 0;
};

class C_KOfdDump : public virtual I_KOfdDump, public virtual C_Unknown, public std::ostream {
 public:
  // Without a buffer: writes fail silently until SetStream.
  C_KOfdDump() : std::ostream(nullptr) {}
  C_KOfdDump(const C_KOfdDump&) = delete;
  C_KOfdDump& operator=(const C_KOfdDump&) = delete;

  HRESULT DumpHead() override { return E_FAIL; }
  HRESULT DumpRecord(DWORD) override { return E_FAIL; }
  HRESULT DumpAll() override { return E_FAIL; }
  HRESULT SetStream(std::ostream& stream) override {
    rdbuf(stream.rdbuf());
    return S_OK;
  }
};

// An end of line: a line feed, then a flush of the stream.
inline void EndLine(std::ostream& os) {
  os.put('\n');
  os.flush();
}

// The buffers the record number "[i]" is formatted into before it is written in a field of 5:
// header tables cut it to 5 characters, section tables never need to.
constexpr std::size_t kHeaderIndexBuffer = 6;
constexpr std::size_t kSectionIndexBuffer = 16;

class C_DumpBlock;

// One line of a dump. Fields are formatted into a buffer, right-justified with the stream's fill
// character, and reach the stream in one write: a listing of a million records costs a million
// writes, not ten million formatted insertions. End writes the end of line and leaves the stream
// in decimal, as every row writer does. A line made on a C_DumpBlock is built in the block's
// free space and stays there until the block is written: many lines, one write.
class C_DumpLine {
 public:
  explicit C_DumpLine(std::ostream& os) : m_os(os), m_chFill(os.fill()), m_pLine(m_szLine) {}
  explicit C_DumpLine(C_DumpBlock& block);
  C_DumpLine(const C_DumpLine&) = delete;
  C_DumpLine& operator=(const C_DumpLine&) = delete;

  // Lowercase hexadecimal without prefix.
  C_DumpLine& Hex(DWORD dwValue, int nWidth) { return Z_Number<16>(dwValue, nWidth); }
  // "UNDEF" in place of 0xFFFFFFFF, else Hex.
  C_DumpLine& HexOrUndef(DWORD dwValue, int nWidth);
  C_DumpLine& Dec(DWORD dwValue, int nWidth) { return Z_Number<10>(dwValue, nWidth); }
  // A text right-justified in nWidth; a longer one is written whole.
  C_DumpLine& Text(const char* pszText, int nWidth = 0);
  // The same for a text of known length (which may hold zero bytes).
  C_DumpLine& Text(const char* pText, std::size_t nLength, int nWidth) {
    Z_Put(pText, nLength, nWidth);
    return *this;
  }
  // One raw byte, a zero byte included, right-justified in nWidth.
  C_DumpLine& Char(char ch, int nWidth) {
    Z_Put(&ch, 1, nWidth);
    return *this;
  }
  // "[i]" formatted into a buffer of cchBuffer bytes (cut to fit), in a field of 5.
  C_DumpLine& Index(DWORD dwIndex, std::size_t cchBuffer);
  void End();

  static constexpr std::size_t kCapacity = 240;

 private:
  // Numbers are written digit by digit from the right end of their field, the padding after.
  template <unsigned Base>
  C_DumpLine& Z_Number(DWORD dwValue, int nWidth) {
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
  void Z_Put(const char* pText, std::size_t nLength, int nWidth) {
    const std::size_t nField = nWidth > 0 ? static_cast<std::size_t>(nWidth) : 0;
    const std::size_t nPad = nField > nLength ? nField - nLength : 0;
    if (m_nUsed + nPad + nLength > kCapacity) {
      Z_PutLong(pText, nLength, nPad);
      return;
    }
    // Fields are short: plain loops beat calls to memset and memcpy here, names are not.
    char* p = m_pLine + m_nUsed;
    const char chFill = m_chFill;
    for (std::size_t i = 0; i < nPad; ++i) p[i] = chFill;
    p += nPad;
    if (nLength > 16) {
      std::memcpy(p, pText, nLength);
    } else {
      for (std::size_t i = 0; i < nLength; ++i) p[i] = pText[i];
    }
    m_nUsed += nPad + nLength;
  }
  // A field that does not fit in what is left of the line's buffer.
  void Z_PutLong(const char* pText, std::size_t nLength, std::size_t nPad);
  void Z_Spill();

  std::ostream& m_os;
  char m_chFill;
  C_DumpBlock* m_pBlock = nullptr;
  char* m_pLine;  // m_szLine, or the block's free space
  std::size_t m_nUsed = 0;
  char m_szLine[kCapacity];
};

// Lines made on it collect in a 64 KiB block that goes to the stream when it is full and when
// the block ends (with a flush and the stream left in decimal, as C_DumpLine::End leaves it).
// Nothing else may write to the stream while the block lives.
class C_DumpBlock {
 public:
  explicit C_DumpBlock(std::ostream& os) : m_os(os), m_chFill(os.fill()) {}
  C_DumpBlock(const C_DumpBlock&) = delete;
  C_DumpBlock& operator=(const C_DumpBlock&) = delete;
  ~C_DumpBlock() {
    Flush();
    m_os.flush();
    m_os.setf(std::ios_base::dec, std::ios_base::basefield);
  }
  void Flush() {
    if (m_nUsed != 0) m_os.write(m_szBlock, static_cast<std::streamsize>(m_nUsed));
    m_nUsed = 0;
  }

 private:
  friend class C_DumpLine;
  static constexpr std::size_t kSize = 1 << 16;
  // Room for a whole line: a line is begun only where kCapacity bytes are free.
  char* Z_Begin() {
    if (kSize - m_nUsed < C_DumpLine::kCapacity) Flush();
    return m_szBlock + m_nUsed;
  }

  std::ostream& m_os;
  char m_chFill;
  std::size_t m_nUsed = 0;
  char m_szBlock[kSize];
};

inline C_DumpLine::C_DumpLine(C_DumpBlock& block)
    : m_os(block.m_os), m_chFill(block.m_chFill), m_pBlock(&block), m_pLine(block.Z_Begin()) {}

struct DumpTitle {
  const char* pszText;
  int nWidth;  // 0: no padding
};

// The heading as it stands, then the column titles (right-justified, no separator) and an end
// of line; with no titles, the heading alone.
void WriteHeading(std::ostream& os, const char* pszHeading, std::initializer_list<DumpTitle> titles = {});

// The DumpAll of record tables: DumpHead, DumpRecord for every record counted at the start, an
// empty line. Always S_OK.
inline HRESULT DumpRecordTable(I_KOfdDump& dump, std::ostream& os, DWORD dwCount) {
  dump.DumpHead();
  for (DWORD i = 0; i < dwCount; ++i) dump.DumpRecord(i);
  EndLine(os);
  return S_OK;
}
