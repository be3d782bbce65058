// Record tables: an ordered list of fixed-size records (C_BaseTable<T>), and a section whose
// contents are such a list, read from and written back to the file as a packed array of T
// (C_KOfdSectionTable<T>).
#pragma once

#include <deque>
#include <stdexcept>
#include <typeinfo>
#include <vector>

#include "frame/error.h"
#include "frame/fileio.h"
#include "sections/section.h"

template <class T>
class I_BaseTable : public virtual I_Unknown {
 public:
  virtual DWORD GetCount() = 0;
  // The table's own copy of record dwIndex; throws std::out_of_range past the end.
  virtual HRESULT GetAt(DWORD dwIndex, T** ppRecord) = 0;
  virtual HRESULT AddArray(const T* pRecords, DWORD dwCount) = 0;
  virtual HRESULT Add(const T* pRecord) = 0;
  virtual HRESULT AddRecord(const T* pRecord) = 0;
  // E_FAIL past the end.
  virtual HRESULT RemoveAt(DWORD dwIndex) = 0;
  virtual HRESULT Clear() = 0;
};

template <class T>
class C_BaseTable : public virtual I_BaseTable<T> {
 public:
  DWORD GetCount() override { return m_dwRun != 0 ? m_dwRun : static_cast<DWORD>(m_vRecords.size()); }
  HRESULT GetAt(DWORD dwIndex, T** ppRecord) override {
    if (dwIndex >= GetCount()) throw std::out_of_range("invalid vector subscript");
    *ppRecord = Y_Record(dwIndex);
    return S_OK;
  }
  HRESULT AddArray(const T* pRecords, DWORD dwCount) override {
    for (DWORD i = 0; i < dwCount; ++i) {
      if (AddRecord(pRecords + i) < 0) return E_FAIL;
    }
    return S_OK;
  }
  HRESULT Add(const T* pRecord) override {
    AddRecord(pRecord);
    return S_OK;
  }
  HRESULT AddRecord(const T* pRecord) override {
    Z_IndexRun();
    m_Store.push_back(*pRecord);
    m_vRecords.push_back(&m_Store.back());
    return S_OK;
  }
  // The record leaves the order at once; its storage goes with the table's next Clear.
  HRESULT RemoveAt(DWORD dwIndex) override {
    if (dwIndex >= GetCount()) return E_FAIL;
    Z_IndexRun();
    m_vRecords.erase(m_vRecords.begin() + dwIndex);
    return S_OK;
  }
  HRESULT Clear() override {
    m_vRecords.clear();
    m_Store.clear();
    m_Blocks.clear();
    m_pRun = nullptr;
    m_dwRun = 0;
    return S_OK;
  }

 protected:
  // Appends the packed records that lie in block, where they lie: a table read from a file
  // keeps the block it was read into instead of copying every record out of it. The records of
  // the first block of an empty table are addressed by their position in it, with no index of
  // pointers, until records are added or removed.
  // The block holds whole records only: a partial one at its end is not taken.
  void Y_AdoptArray(C_Block block) {
    static_assert(alignof(T) == 1, "records are packed");
    const DWORD dwCount = block.Size() / static_cast<DWORD>(sizeof(T));
    T* pFirst = reinterpret_cast<T*>(block.Data());
    m_Blocks.push_back(std::move(block));
    if (dwCount == 0) return;
    if (GetCount() == 0) {
      m_pRun = pFirst;
      m_dwRun = dwCount;
      return;
    }
    Z_IndexRun();
    m_vRecords.reserve(m_vRecords.size() + dwCount);
    for (DWORD i = 0; i < dwCount; ++i) m_vRecords.push_back(pFirst + i);
  }
  T* Y_Record(DWORD dwIndex) const { return m_dwRun != 0 ? m_pRun + dwIndex : m_vRecords[dwIndex]; }
  // Record dwIndex, or null past the end.
  T* Y_RecordOrNull(DWORD dwIndex) const {
    if (m_dwRun != 0) return dwIndex < m_dwRun ? m_pRun + dwIndex : nullptr;
    return dwIndex < m_vRecords.size() ? m_vRecords[dwIndex] : nullptr;
  }

 private:
  // Turns the run of adopted records into pointers, before the order changes.
  void Z_IndexRun() {
    if (m_dwRun == 0) return;
    m_vRecords.reserve(m_dwRun);
    for (DWORD i = 0; i < m_dwRun; ++i) m_vRecords.push_back(m_pRun + i);
    m_pRun = nullptr;
    m_dwRun = 0;
  }

  // Records live in blocks whose addresses never change as records are added, so a record's
  // pointer stays valid for the index and for callers that hold it.
  std::deque<T> m_Store;
  std::vector<C_Block> m_Blocks;
  // Either a run of records in one adopted block (m_dwRun != 0, m_vRecords empty) or pointers.
  T* m_pRun = nullptr;
  DWORD m_dwRun = 0;
  std::vector<T*> m_vRecords;
};

template <class T>
class C_KOfdSectionTable : public virtual I_KOfdStorage, public virtual C_KOfdSection, public virtual C_BaseTable<T> {
 public:
  HRESULT Read(I_File* pFile, DWORD dwBase) override {
    KEL_SHDR* pHeader = nullptr;
    GetHeader(&pHeader);
    ReadRecords(pFile, dwBase, pHeader->sh_size, pHeader->sh_offset);
    return S_OK;
  }
  bool IsEmpty() override { return !m_bLoaded; }
  HRESULT Clear() override {
    C_BaseTable<T>::Clear();
    m_bLoaded = false;
    return S_OK;
  }
  HRESULT Write(I_File* pFile) override {
    for (DWORD i = 0; i < this->GetCount(); ++i) {
      T* pRecord = nullptr;
      this->GetAt(i, &pRecord);
      if (WriteFileBlock(pFile ? pFile->GetHandle() : nullptr, pRecord, sizeof(T), 1) != S_OK) {
        ThrowLibraryError(true, KE_WRITE_FAILED, FormatContext("when write %s", Z_TypeName().c_str()).text);
      }
    }
    return S_OK;
  }

  // Loads the records once. A size that is not a whole number of records loads nothing and
  // reports nothing.
  virtual bool ReadRecords(I_File* pFile, DWORD dwBase, DWORD dwSize, DWORD dwOffset) {
    if (m_bLoaded) return true;
    if (dwSize % sizeof(T) != 0) return false;
    C_Block block = ReadFileRegion(pFile, dwBase, dwOffset, dwSize);
    if (block.IsEmpty()) ThrowLibraryError(false, KE_READ_FAILED, FormatContext("When read %s", Z_TypeName().c_str()).text);
    this->Y_AdoptArray(std::move(block));
    m_bLoaded = true;
    return true;
  }

  bool IsLoaded() const { return m_bLoaded; }

  HRESULT DumpAll() override { return DumpRecordTable(*this, *this, this->GetCount()); }

 private:
  static std::string Z_TypeName() { return DisplayTypeName(typeid(T)); }

  bool m_bLoaded = false;
};
