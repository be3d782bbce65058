// The header records of a KELF object: the 16-byte signature, the 56-byte file header, and the
// tables of 32-byte program headers and 40-byte section headers.
//
//   base + 0        signature (16) ........ first 16 bytes of the file header
//   base + 0        file header (56) ...... big-endian fields when DATA is 2
//   base + PHOff    PHNum x 32 ............ program headers, always little-endian
//   base + SHOff    SHNum x 40 ............ section headers, always little-endian
//
// Each record class reads itself from a file at a base offset (the object's position in the
// file) and never allocates more than the file can supply. Writing belongs to the document.
#pragma once

#include <memory>
#include <vector>

#include "frame/byte_view.h"
#include "frame/error.h"
#include "frame/exception.h"
#include "frame/file.h"
#include "object/kelf_records.h"
#include "present/browse.h"
#include "present/dump.h"

class I_KOfdStringTable;

constexpr DWORD kSignatureSize = 16;
constexpr DWORD kFileHeaderSize = sizeof(KEL_EHDR);
constexpr DWORD kProgramHeaderSize = sizeof(KEL_PHDR);
constexpr DWORD kSectionHeaderSize = sizeof(KEL_SHDR);
constexpr DWORD kMaxFormatVersion = 2;

// The operations every header record shares.
class I_KElfRecord : public virtual I_Unknown {
 public:
  virtual HRESULT Read(I_File* pFile, DWORD dwBase) = 0;
  // True when no record buffer is held.
  virtual bool IsEmpty() = 0;
  virtual HRESULT Clear() = 0;
  // Always E_FAIL: the document writes the headers.
  virtual HRESULT Write(I_File* pFile) = 0;
};

class I_KElfSignature : public virtual I_KElfRecord {
 public:
  // Only the first two bytes (0x7F 'E') are examined; the factory's probe checks all four.
  virtual bool IsInvalidSignature() = 0;
  // True unless DATA (byte 5) is 2.
  virtual bool IsNotBigEndian() = 0;
};

class I_KElfHeader : public virtual I_KElfRecord {
 public:
  virtual HRESULT GetSignature(I_KElfSignature** ppSignature) = 0;
  // The record in host byte order; null and E_POINTER when none is held.
  virtual HRESULT GetRecord(KEL_EHDR** ppRecord) = 0;
};

class I_KElfProgramHeader : public virtual I_KElfRecord {
 public:
  // PHNum, as copied from the file header.
  virtual HRESULT GetCount(DWORD* pdwCount) = 0;
  // 0x800403F1 when dwIndex is not below the records held.
  virtual HRESULT GetAt(DWORD dwIndex, KEL_PHDR** ppRecord) = 0;
  // The sum of MemSize over the headers of type 1 (LOAD).
  virtual HRESULT GetLoadableMemorySize(DWORD* pdwSize) = 0;
  // Reads the FileSize bytes of segment dwIndex at base + Offset.
  virtual HRESULT ReadSegment(I_File* pFile, DWORD dwBase, DWORD dwIndex) = 0;
  // The bytes of segment dwIndex, null while it has not been read.
  virtual HRESULT GetSegment(DWORD dwIndex, const BYTE** ppData, DWORD* pdwSize) = 0;
};

class I_KElfSectionHeader : public virtual I_KElfRecord {
 public:
  // SHNum, as copied from the file header.
  virtual HRESULT GetCount(DWORD* pdwCount) = 0;
  // 0x800403F1 when dwIndex is not below the records held.
  virtual HRESULT GetAt(DWORD dwIndex, KEL_SHDR** ppRecord) = 0;
  // The section-name table's text at the section's Name offset. E_POINTER when no headers are
  // held or there is no section-name table (*ppszName null then), 0x800403F1 for a bad index.
  virtual HRESULT GetSectionName(DWORD dwIndex, const char** ppszName) = 0;
};

class C_KElfSignature : public virtual I_KElfSignature, public virtual C_Exception {
 public:
  C_KElfSignature() = default;
  C_KElfSignature(const C_KElfSignature&) = delete;
  C_KElfSignature& operator=(const C_KElfSignature&) = delete;

  HRESULT Read(I_File* pFile, DWORD dwBase) override;
  bool IsEmpty() override { return m_Ident.IsEmpty(); }
  HRESULT Clear() override;
  HRESULT Write(I_File*) override { return E_FAIL; }
  bool IsInvalidSignature() override;
  bool IsNotBigEndian() override;

  // The 16 identification bytes, or null.
  const BYTE* GetBytes() const { return m_Ident.Data(); }

 private:
  C_Block m_Ident;
};

// The header classes dump as listings to std::cout; DumpHead and DumpRecord stay E_FAIL.
class C_KElfHeader : public virtual I_KElfHeader, public virtual C_Exception, public virtual C_KOfdDump,
                    public virtual C_Browse {
 public:
  C_KElfHeader() = default;
  C_KElfHeader(const C_KElfHeader&) = delete;
  C_KElfHeader& operator=(const C_KElfHeader&) = delete;

  // Browse: its item, and its list columns and rows (present/*_views.cpp).
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  // Reads and checks the signature, reads the header, converts a big-endian one to host order
  // and validates Version, EHSize and SHEntSize.
  HRESULT Read(I_File* pFile, DWORD dwBase) override;
  bool IsEmpty() override { return !m_pRecord; }
  // Frees the record and clears the signature.
  HRESULT Clear() override;
  HRESULT Write(I_File*) override { return E_FAIL; }
  HRESULT GetSignature(I_KElfSignature** ppSignature) override;
  HRESULT GetRecord(KEL_EHDR** ppRecord) override;
  // "ELF Header Information" and the file header block; E_POINTER when no header is held.
  HRESULT DumpAll() override;

  C_KElfSignature& Signature() { return m_Signature; }
  // The record, or null.
  const KEL_EHDR* Record() const { return m_pRecord.get(); }

 private:
  // Takes every field but Reserved and the identification, which stay as read, in the byte
  // order of the view.
  void Z_TakeFields(const C_ByteView& view);
  [[noreturn]] void Z_Reject(const char* pszWhy);

  C_KElfSignature m_Signature;
  std::unique_ptr<KEL_EHDR> m_pRecord;
};

// A table of fixed-size records read in one block at base + offset, behind one of the table
// interfaces above.
template <class T, class Interface>
class C_KElfRecordTable : public virtual Interface, public virtual C_Exception, public virtual C_KOfdDump {
 public:
  C_KElfRecordTable() = default;
  C_KElfRecordTable(const C_KElfRecordTable&) = delete;
  C_KElfRecordTable& operator=(const C_KElfRecordTable&) = delete;

  bool IsEmpty() override { return m_Block.IsEmpty(); }
  HRESULT Write(I_File*) override { return E_FAIL; }
  HRESULT GetCount(DWORD* pdwCount) override {
    if (!pdwCount) return E_POINTER;
    *pdwCount = m_dwCount;
    return S_OK;
  }
  HRESULT GetAt(DWORD dwIndex, T** ppRecord) override {
    if (!ppRecord) return E_POINTER;
    if (dwIndex >= Held()) return RecordOutOfRange(*this);
    *ppRecord = Record(dwIndex);
    return S_OK;
  }

  void SetTable(DWORD dwCount, DWORD dwOffset) {
    m_dwCount = dwCount;
    m_dwOffset = dwOffset;
  }
  DWORD Count() const { return m_dwCount; }
  DWORD Offset() const { return m_dwOffset; }
  // The records held (0 until the table has been read).
  DWORD Held() const { return m_Block.IsEmpty() ? 0 : m_dwCount; }
  T* Record(DWORD dwIndex) const { return reinterpret_cast<T*>(m_Block.Data()) + dwIndex; }

 protected:
  // Reads the whole table, or nothing when the count is 0; a table the file cannot supply
  // throws 1016 with pszContext and the system text.
  HRESULT Y_ReadRecords(I_File* pFile, DWORD dwBase, const char* pszContext);
  void Y_Free() { m_Block.Reset(); }

 private:
  DWORD m_dwCount = 0;
  DWORD m_dwOffset = 0;
  C_Block m_Block;
};

class C_KElfProgramHeader : public C_KElfRecordTable<KEL_PHDR, I_KElfProgramHeader>, public virtual C_Browse {
 public:
  // Browse: its item, and its list columns and rows (present/*_views.cpp).
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  // Nothing is read when PHNum is 0. Records lie 32 bytes apart whatever PHEntSize says.
  HRESULT Read(I_File* pFile, DWORD dwBase) override;
  // Frees the records and the segment bytes.
  HRESULT Clear() override;
  HRESULT GetLoadableMemorySize(DWORD* pdwSize) override;
  HRESULT ReadSegment(I_File* pFile, DWORD dwBase, DWORD dwIndex) override;
  HRESULT GetSegment(DWORD dwIndex, const BYTE** ppData, DWORD* pdwSize) override;
  // "ELF Program Header" and the line of the first program header, without its number;
  // E_POINTER, writing nothing, when there is none.
  HRESULT DumpAll() override;

 private:
  // One block per record once a segment has been read; a segment not read is empty.
  std::vector<C_Block> m_vSegments;
};

class C_KElfSectionHeader : public C_KElfRecordTable<KEL_SHDR, I_KElfSectionHeader>, public virtual C_Browse {
 public:
  // Browse: its item, and its list columns and rows (present/*_views.cpp).
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  // Nothing is read or allocated when SHNum is 0.
  HRESULT Read(I_File* pFile, DWORD dwBase) override;
  HRESULT Clear() override;
  HRESULT GetSectionName(DWORD dwIndex, const char** ppszName) override;
  // The section header table: heading, titles, one line per section header held.
  HRESULT DumpAll() override;

  // The section-name table (owned by the document), or null.
  void SetStringTable(I_KOfdStringTable* pStrings) { m_pStrings = pStrings; }
  I_KOfdStringTable* GetStringTable() const { return m_pStrings; }

 private:
  I_KOfdStringTable* m_pStrings = nullptr;
};
