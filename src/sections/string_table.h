// C_KOfdStringTable: a string-table section, NUL-terminated strings packed back to back and
// addressed by byte offset, held as one growable buffer.
#pragma once

#include <memory>
#include <string_view>

#include "sections/section.h"

class I_KOfdStringTable : public virtual I_Unknown {
 public:
  virtual I_KOfdStringTable* AssignFromString(const char* psz) = 0;
  virtual I_KOfdStringTable* AssignFromTable(I_KOfdStringTable* pOther) = 0;
  virtual I_KOfdStringTable* AppendString(const char* psz) = 0;
  virtual I_KOfdStringTable* AppendFromTable(I_KOfdStringTable* pOther) = 0;
  virtual const char* GetString(DWORD dwOffset) = 0;
  // Writes s at offset 0; when the buffer is already large enough the length is not reset.
  virtual HRESULT Assign(const char* psz) = 0;
  virtual HRESULT AssignTable(I_KOfdStringTable* pOther) = 0;
  // Stores a copy at offset GetLength(); strings are never shared.
  virtual HRESULT Append(const char* psz) = 0;
  virtual HRESULT AppendTable(I_KOfdStringTable* pOther) = 0;
  virtual char* GetBuffer() = 0;
  virtual char* GetEnd() = 0;
  virtual const char* GetStringAt(DWORD dwOffset) = 0;
  virtual char* GetStrings() = 0;
  virtual DWORD GetLength() = 0;
  virtual DWORD GetUsed() = 0;
  virtual bool HasStrings() = 0;
};

class C_KOfdStringTable : public virtual I_KOfdStringTable, public virtual I_KOfdStorage, public virtual C_KOfdSection {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  I_KOfdStringTable* AssignFromString(const char* psz) override;
  I_KOfdStringTable* AssignFromTable(I_KOfdStringTable* pOther) override;
  I_KOfdStringTable* AppendString(const char* psz) override;
  I_KOfdStringTable* AppendFromTable(I_KOfdStringTable* pOther) override;
  // The string at dwOffset. An offset at or past the length, or a string whose NUL does not lie
  // inside the table, gives the empty string.
  const char* GetString(DWORD dwOffset) override;
  // GetString with its length, found in the same pass.
  std::string_view GetStringView(DWORD dwOffset) const;
  HRESULT Assign(const char* psz) override;
  HRESULT AssignTable(I_KOfdStringTable* pOther) override;
  HRESULT Append(const char* psz) override;
  HRESULT AppendTable(I_KOfdStringTable* pOther) override;
  char* GetBuffer() override { return m_Buffer.Chars(); }
  char* GetEnd() override { return m_Buffer.pBytes ? m_Buffer.Chars() + m_Buffer.dwLength : nullptr; }
  const char* GetStringAt(DWORD dwOffset) override { return GetString(dwOffset); }
  char* GetStrings() override { return m_Buffer.Chars(); }
  DWORD GetLength() override { return m_Buffer.dwLength; }
  DWORD GetUsed() override { return m_Buffer.dwLength; }
  bool HasStrings() override { return m_Buffer.dwLength != 0; }

  // Appends the section's bytes (again on every call).
  HRESULT Read(I_File* pFile, DWORD dwBase) override;
  bool IsEmpty() override { return GetLength() == 0; }
  HRESULT Clear() override { return Assign(""); }
  // Returns 0x800403F7, with the error recorded, when the bytes were written, and 0 when the
  // write failed: callers ignore the result.
  HRESULT Write(I_File* pFile) override;

  // One "[offset]\tstring" line per string; DumpRecord takes a byte offset.
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwOffset) override;
  HRESULT DumpAll() override;

  DWORD GetCapacity() const { return m_Buffer.dwCapacity; }
  // Counts the writes that may change strings already stored (assignments, releases), so that
  // name indexes over the buffer know when to rebuild.
  DWORD GetRewriteCount() const { return m_dwRewrites; }

 private:
  bool Z_Grow(DWORD dwBytes);
  void Z_Release();
  HRESULT Z_Store(const char* pBytes, DWORD dwBytes, bool bAtStart);

  struct Buffer {
    // Allocated by the table, or the block its section was read into (see Read).
    std::unique_ptr<BYTE[]> pBytes;
    char* Chars() const { return reinterpret_cast<char*>(pBytes.get()); }
    DWORD dwLength = 0;
    DWORD dwCapacity = 0;
  } m_Buffer;
  DWORD m_dwRewrites = 0;
};
