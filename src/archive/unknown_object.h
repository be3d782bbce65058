// A file, or a region of a file, of no known kind: shown as raw bytes, never saved.
//
//   offset          first byte of the region (0 for a whole file)
//   offset + size   end of the region (the file's size for a whole file)
#pragma once

#include "frame/exception.h"
#include "frame/file.h"
#include "present/dump.h"
#include "present/browse.h"
#include "sections/storage.h"

class I_UnknownObject : public virtual I_Unknown {
 public:
  // Mode 1 opens the file for reading, mode 0 creates it for writing; S_FALSE when it is open
  // already, 0x800403F5 (and no file) when it cannot be opened.
  virtual HRESULT Open(DWORD dwMode) = 0;
  // Reads the region in one read, once, and closes the file; 1016 "When read unsigned char"
  // when the file does not hold it.
  virtual HRESULT Load() = 0;
  // Always E_FAIL: nothing is written.
  virtual HRESULT Save() = 0;
};

class C_UnknownObject : public virtual I_UnknownObject,
                        public virtual C_File,
                        public virtual C_KOfdDump,
                        public virtual C_Browse {
 public:
  // Rows of sixteen bytes, printf-style to stdout; each row shows the bytes after its address.
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwRow) override;
  HRESULT DumpAll() override;
  // Browse: its item "Raw Data", and its list columns and rows (present/archive_views.cpp).
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  // Both the object's open and its file's.
  HRESULT Open(DWORD dwMode) override;
  HRESULT Load() override;
  HRESULT Save() override { return E_FAIL; }

  // The region the object stands for; until it is set, Load takes the whole file.
  void SetRegion(DWORD dwOffset, DWORD dwSize);
  DWORD GetRegionOffset() const { return m_Storage.GetOffset(); }
  DWORD GetRegionSize() const { return m_Storage.GetStoredSize(); }
  bool IsLoaded() { return !m_Storage.IsEmpty(); }
  // The region's bytes once loaded (with zero padding behind them), or null.
  const BYTE* GetData() { return m_Storage.GetData(0); }

 private:
  C_KOfdStorage<BYTE> m_Storage;
  bool m_bRegionSet = false;
};
