// C_KArcNameMember: the second member of an archive, the names of the object members back to
// back, each NUL-terminated; a member's Name Index is the offset of its name here.
//
//   header (60)    name "/", Size = M
//   M bytes        "a.o\0b.o\0..."
#pragma once

#include <string>

#include "archive/member_header.h"

class C_KOfdArchive;

class C_KArcNameMember : public C_KArcMember, public virtual C_KOfdDump {
 public:
  HRESULT DumpHead() override;
  HRESULT DumpAll() override;
  // Browse: its item, and its list columns and rows (present/archive_views.cpp).
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  // Reads the header at dwOffset, then appends its Size bytes to the buffer.
  HRESULT Read(I_File* pFile, DWORD dwOffset);
  HRESULT Read(C_KArcReadWindow& window, DWORD dwOffset);
  HRESULT Write(I_File* pFile);
  HRESULT Write(C_KArcWriter& writer);
  // Appends a name with its NUL and rebuilds the header for the new length; returns the name's
  // offset (its Name Index).
  DWORD Append(const char* pszName);
  // Empties the buffer; the member is then as a new archive has it.
  void Clear();
  // S_OK once the member has been read or built; E_POINTER before.
  HRESULT Validate() const { return m_bValid ? S_OK : E_POINTER; }

  DWORD GetLength() const { return static_cast<DWORD>(m_sBuffer.size()); }
  // The bytes, with a NUL kept behind the last one so that every name ends inside the buffer.
  const char* GetData() const { return m_sBuffer.c_str(); }

 protected:
  // The name at dwOffset; 1009 " When call C_KArcNameMember::Y_GetAt" when dwOffset is not
  // below the length.
  const char* Y_GetAt(DWORD dwOffset);

 private:
  friend class C_KOfdArchive;

  std::string m_sBuffer;
  bool m_bValid = false;
};
