// C_ByteView: the one way file bytes are read. Every read names an offset and a size that are
// checked against the view first, without overflow, so that no offset or count taken from a
// file can lead a reader outside its bytes. C_Block owns the bytes a reader took from a file.
#pragma once

#include <cstring>
#include <memory>
#include <type_traits>

#include "frame/types.h"

class I_File;

class C_ByteView {
 public:
  C_ByteView() = default;
  C_ByteView(const BYTE* pData, DWORD dwSize, bool bBigEndian = false)
      : m_pData(pData), m_dwSize(pData ? dwSize : 0), m_bBigEndian(bBigEndian) {}

  // A failed Slice gives an invalid view; a valid one may hold no bytes.
  bool IsValid() const { return m_pData != nullptr; }
  const BYTE* Data() const { return m_pData; }
  DWORD Size() const { return m_dwSize; }
  bool IsBigEndian() const { return m_bBigEndian; }

  // True when dwSize bytes at dwOffset lie inside the view.
  bool Holds(DWORD dwOffset, DWORD dwSize) const {
    return m_pData && dwOffset <= m_dwSize && dwSize <= m_dwSize - dwOffset;
  }
  // True when dwCount entries of dwEntrySize bytes at dwOffset lie inside the view; the count
  // is checked by division, so no product can wrap.
  bool HoldsEntries(DWORD dwOffset, DWORD dwCount, DWORD dwEntrySize) const {
    if (!m_pData || dwOffset > m_dwSize) return false;
    return dwEntrySize == 0 || dwCount <= (m_dwSize - dwOffset) / dwEntrySize;
  }

  // The integer at dwOffset in the view's byte order, at any alignment; false, leaving *pValue
  // alone, when it does not lie inside the view.
  template <class T>
  bool Read(DWORD dwOffset, T* pValue) const {
    if (!Holds(dwOffset, sizeof(T))) return false;
    *pValue = Z_Decode<T>(m_pData + dwOffset, sizeof(T));
    return true;
  }
  // The integer at dwOffset, the bytes that lie past the end of the view taken as zero: how a
  // last word that the contents end inside is shown. 0 at or past the end.
  template <class T>
  T ReadZeroExtended(DWORD dwOffset) const {
    if (!m_pData || dwOffset >= m_dwSize) return 0;
    const DWORD dwLeft = m_dwSize - dwOffset;
    return Z_Decode<T>(m_pData + dwOffset, dwLeft < sizeof(T) ? dwLeft : static_cast<DWORD>(sizeof(T)));
  }

  // dwSize bytes at dwOffset in the same byte order, or an invalid view when they do not lie
  // inside this one.
  C_ByteView Slice(DWORD dwOffset, DWORD dwSize) const {
    return Holds(dwOffset, dwSize) ? C_ByteView(m_pData + dwOffset, dwSize, m_bBigEndian) : C_ByteView();
  }
  // The bytes from dwOffset to the end, or an invalid view past the end.
  C_ByteView Rest(DWORD dwOffset) const {
    return dwOffset <= m_dwSize ? Slice(dwOffset, m_dwSize - dwOffset) : C_ByteView();
  }

  // The string at dwOffset, only when its NUL lies inside the view; null otherwise.
  const char* CString(DWORD dwOffset) const {
    if (!m_pData || dwOffset >= m_dwSize) return nullptr;
    const BYTE* p = m_pData + dwOffset;
    return memchr(p, 0, m_dwSize - dwOffset) ? reinterpret_cast<const char*>(p) : nullptr;
  }

 private:
  template <class T>
  T Z_Decode(const BYTE* pBytes, DWORD dwHeld) const {
    static_assert(std::is_integral<T>::value && sizeof(T) <= sizeof(std::uint64_t), "integers only");
    BYTE bytes[sizeof(T)] = {};
    memcpy(bytes, pBytes, dwHeld);
    std::uint64_t qwValue = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      const std::size_t nShift = 8 * (m_bBigEndian ? sizeof(T) - 1 - i : i);
      qwValue |= static_cast<std::uint64_t>(bytes[i]) << nShift;
    }
    return static_cast<T>(qwValue);
  }

  const BYTE* m_pData = nullptr;
  DWORD m_dwSize = 0;
  bool m_bBigEndian = false;
};

// Zero bytes every block carries behind its contents: a block of size 0 is still a block, and a
// word that begins inside the contents ends inside the block.
constexpr DWORD kBlockPadding = 4;

// Bytes owned by their reader, zero-filled, with kBlockPadding zero bytes behind them. An empty
// block (no bytes at all) stands for a failed read.
class C_Block {
 public:
  C_Block() = default;
  // Throws std::bad_alloc when the bytes cannot be had.
  explicit C_Block(DWORD dwSize)
      : m_pData(new BYTE[static_cast<std::size_t>(dwSize) + kBlockPadding]()), m_dwSize(dwSize) {}

  // A block whose contents are left for a read to fill (only the padding is zeroed): a large
  // read does not write its bytes twice. The reader zeroes whatever it does not fill.
  static C_Block ForRead(DWORD dwSize) {
    C_Block block;
    block.m_pData.reset(new BYTE[static_cast<std::size_t>(dwSize) + kBlockPadding]);
    block.m_dwSize = dwSize;
    memset(block.m_pData.get() + dwSize, 0, kBlockPadding);
    return block;
  }
  // Hands the bytes (Size() and the padding) to the caller; the block is left empty.
  std::unique_ptr<BYTE[]> Release() {
    m_dwSize = 0;
    return std::move(m_pData);
  }

  bool IsEmpty() const { return !m_pData; }
  BYTE* Data() const { return m_pData.get(); }
  DWORD Size() const { return m_dwSize; }
  C_ByteView View(bool bBigEndian = false) const { return C_ByteView(m_pData.get(), m_dwSize, bBigEndian); }
  void Reset() {
    m_pData.reset();
    m_dwSize = 0;
  }

 private:
  std::unique_ptr<BYTE[]> m_pData;
  DWORD m_dwSize = 0;
};

// Reads dwSize bytes at dwBase + dwOffset of the file into a block. Refuses, as a failed read
// (an empty block), a region the file cannot supply: it never allocates more than the file
// holds. Whatever a short read leaves stays zero. The caller reports a failure in its own words.
C_Block ReadFileRegion(I_File* pFile, DWORD dwBase, DWORD dwOffset, DWORD dwSize);
