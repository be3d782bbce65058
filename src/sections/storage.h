// Raw contents of a section: the plain byte store, the sections that hold their bytes (or
// 32-bit words) as they are in the file, and the program-data section.
#pragma once

#include "frame/error.h"
#include "frame/fileio.h"
#include "sections/section.h"

// The names the messages give the element types.
template <class T>
const char* ElementTypeName();
template <>
inline const char* ElementTypeName<BYTE>() { return "unsigned char"; }
template <>
inline const char* ElementTypeName<DWORD>() { return "unsigned long"; }

template <class T>
class C_KOfdStorage;

// A region of a file (offset and size), read once and kept.
template <>
class C_KOfdStorage<BYTE> : public virtual I_KOfdStorage, public virtual C_Exception {
 public:
  C_KOfdStorage() = default;
  C_KOfdStorage(const C_KOfdStorage&) = delete;
  C_KOfdStorage& operator=(const C_KOfdStorage&) = delete;
  ~C_KOfdStorage() override { Free(); }

  // Reads the stored region, relative to dwBase.
  HRESULT Read(I_File* pFile, DWORD dwBase) override { return Read(pFile, dwBase + m_dwOffset, m_dwSize); }
  bool IsEmpty() override { return m_Block.IsEmpty(); }
  HRESULT Clear() override {
    Free();
    m_dwOffset = 0;
    m_dwSize = 0;
    return S_OK;
  }
  HRESULT Write(I_File* pFile) override {
    if (WriteFileBlock(pFile ? pFile->GetHandle() : nullptr, m_Block.Data(), 1, m_dwSize) != S_OK) {
      ThrowLibraryError(true, KE_WRITE_FAILED, FormatContext("When write %s", "unsigned char").text);
    }
    return S_OK;
  }

  // Reads dwSize bytes at dwOffset, unless the contents are already held.
  HRESULT Read(I_File* pFile, DWORD dwOffset, DWORD dwSize) {
    if (!m_Block.IsEmpty()) return S_OK;
    m_dwOffset = dwOffset;
    m_dwSize = dwSize;
    m_Block = ReadFileRegion(pFile, 0, dwOffset, dwSize);
    if (m_Block.IsEmpty()) {
      ThrowLibraryError(true, KE_READ_FAILED, FormatContext("When read %s", "unsigned char").text);
    }
    return S_OK;
  }
  void SetRegion(DWORD dwOffset, DWORD dwSize) {
    m_dwOffset = dwOffset;
    m_dwSize = dwSize;
  }
  DWORD GetOffset() const { return m_dwOffset; }
  DWORD GetStoredSize() const { return m_dwSize; }
  // No range check beyond the padding: callers stay inside GetStoredSize().
  BYTE* GetData(DWORD dwOffset) { return m_Block.IsEmpty() ? nullptr : m_Block.Data() + dwOffset; }
  void Free() { m_Block.Reset(); }

 private:
  DWORD m_dwOffset = 0;
  DWORD m_dwSize = 0;
  C_Block m_Block;
};

// A section whose contents are its bytes (T = BYTE) or 32-bit words (T = DWORD), unconverted.
template <class T>
class C_KOfdSectionStorage : public virtual I_KOfdStorage, public virtual C_KOfdSection {
 public:
  HRESULT Read(I_File* pFile, DWORD dwBase) override {
    KEL_SHDR* pHeader = nullptr;
    GetHeader(&pHeader);
    return ReadData(pFile, dwBase, pHeader->sh_size, pHeader->sh_offset);
  }
  bool IsEmpty() override { return m_Block.IsEmpty(); }
  HRESULT Clear() override {
    Free();
    return S_OK;
  }
  HRESULT Write(I_File* pFile) override {
    if (WriteFileBlock(pFile ? pFile->GetHandle() : nullptr, m_Block.Data(), sizeof(T), m_dwCount) != S_OK) {
      ThrowLibraryError(true, KE_WRITE_FAILED, FormatContext("While writing %s", ElementTypeName<T>()).text);
    }
    return S_OK;
  }

  virtual HRESULT Free() {
    m_Block.Reset();
    m_dwCount = 0;
    return S_OK;
  }
  // A word section whose size is not a multiple of 4 is left empty, without a report.
  virtual HRESULT ReadData(I_File* pFile, DWORD dwBase, DWORD dwSize, DWORD dwOffset) {
    if (dwSize % sizeof(T) != 0) return S_OK;
    Free();
    m_dwCount = dwSize / sizeof(T);
    m_Block = ReadFileRegion(pFile, dwBase, dwOffset, dwSize);
    if (m_Block.IsEmpty()) {
      Free();
      // The wording "While writing" on this read path is the message the host knows.
      ThrowLibraryError(true, KE_READ_FAILED, FormatContext("While writing %s", ElementTypeName<T>()).text);
    }
    return S_OK;
  }

  // The contents as elements; the block is aligned for any element type.
  T* Y_GetData() const { return reinterpret_cast<T*>(m_Block.Data()); }
  // The contents as bytes, in the file's byte order.
  C_ByteView Y_View() const { return C_ByteView(m_Block.Data(), Y_GetByteSize()); }
  DWORD Y_GetCount() const { return m_dwCount; }
  DWORD Y_GetByteSize() const { return m_dwCount * static_cast<DWORD>(sizeof(T)); }

 private:
  C_Block m_Block;
  DWORD m_dwCount = 0;
};

class I_KOfdProgramTable : public virtual I_Unknown {
 public:
  // The word (or half word) that begins at index x 4 (x 2); null with S_OK when it begins past
  // the contents.
  virtual HRESULT GetDword(DWORD dwIndex, DWORD** ppWord) = 0;
  virtual HRESULT GetWord(DWORD dwIndex, WORD** ppHalf) = 0;
  // 0x800403F1 when dwOffset is past the contents.
  virtual HRESULT GetByte(DWORD dwOffset, BYTE** ppByte) = 0;
  virtual HRESULT GetData(BYTE** ppData, DWORD* pdwSize) = 0;
  virtual HRESULT GetSize(DWORD* pdwSize) = 0;
  // The section's address (sh_addr) and flags (sh_flags).
  virtual HRESULT GetSectionAddress(DWORD* pdwAddress) = 0;
  virtual HRESULT GetSectionFlags(DWORD* pdwFlags) = 0;
};

class C_KOfdProgramTable : public virtual I_KOfdProgramTable, public C_KOfdSectionStorage<BYTE> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetDword(DWORD dwIndex, DWORD** ppWord) override;
  HRESULT GetWord(DWORD dwIndex, WORD** ppHalf) override;
  HRESULT GetByte(DWORD dwOffset, BYTE** ppByte) override;
  HRESULT GetData(BYTE** ppData, DWORD* pdwSize) override;
  HRESULT GetSize(DWORD* pdwSize) override;
  HRESULT GetSectionAddress(DWORD* pdwAddress) override;
  HRESULT GetSectionFlags(DWORD* pdwFlags) override;
  using C_KOfdSection::GetSize;

  // "Program Raw Data": eight-digit words, five on a line. A last word that the contents end
  // inside is shown with zero bytes after them.
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
  HRESULT DumpAll() override;
};
