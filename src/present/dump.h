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

// One line of a dump. Fields are formatted into a buffer of the line's own, right-justified with
// the stream's fill character, and reach the stream in one write: a listing of a million
// records costs a million writes, not ten million formatted insertions. End writes the end of
// line and leaves the stream in decimal, as every row writer does.
class C_DumpLine {
 public:
  explicit C_DumpLine(std::ostream& os) : m_os(os), m_chFill(os.fill()) {}
  C_DumpLine(const C_DumpLine&) = delete;
  C_DumpLine& operator=(const C_DumpLine&) = delete;

  // Lowercase hexadecimal without prefix.
  C_DumpLine& Hex(DWORD dwValue, int nWidth);
  // "UNDEF" in place of 0xFFFFFFFF, else Hex.
  C_DumpLine& HexOrUndef(DWORD dwValue, int nWidth);
  C_DumpLine& Dec(DWORD dwValue, int nWidth);
  // A text right-justified in nWidth; a longer one is written whole.
  C_DumpLine& Text(const char* pszText, int nWidth = 0);
  // One raw byte, a zero byte included, right-justified in nWidth.
  C_DumpLine& Char(char ch, int nWidth);
  // "[i]" formatted into a buffer of cchBuffer bytes (cut to fit), in a field of 5.
  C_DumpLine& Index(DWORD dwIndex, std::size_t cchBuffer);
  void End();

 private:
  template <unsigned Base>
  C_DumpLine& Z_Number(DWORD dwValue, int nWidth);
  void Z_Put(const char* pText, std::size_t nLength, int nWidth);
  void Z_Spill();

  static constexpr std::size_t kCapacity = 240;
  std::ostream& m_os;
  char m_chFill;
  std::size_t m_nUsed = 0;
  char m_szLine[kCapacity];
};

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
