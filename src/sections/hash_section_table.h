// Record-table sections whose records carry a name in the linked string table, indexed by that
// name: C_KOfdHashSectionTable<T> (one record per name) and C_KOfdMultiHashSectionTable<K, T>
// (any number per name, with a selector of type K to pick among them).
//
// The index keys point into the string table's buffer. The index is built when it is first
// needed and rebuilt whenever the buffer has moved or been rewritten since, so a key never
// outlives the bytes it points at.
#pragma once

#include "sections/base_table.h"
#include "sections/hash_table.h"
#include "sections/string_table.h"

template <class T, class Index>
class C_KOfdIndexedSectionTable : public virtual C_KOfdSectionTable<T> {
 public:
  HRESULT AddRecord(const T* pRecord) override {
    const HRESULT hr = C_BaseTable<T>::AddRecord(pRecord);
    if (m_bIndexed) {
      // A current index takes the new record at once; a stale one is rebuilt when next needed.
      C_KOfdStringTable* pStrings = Y_GetStringTable();
      T* pAdded = this->Y_Record(this->GetCount() - 1);
      if (Z_IndexCurrent(pStrings)) {
        m_Index.Insert(pStrings->GetStringAt(GetNameOffset(pAdded)), pAdded);
      } else {
        m_bIndexed = false;
      }
    }
    return hr;
  }
  HRESULT RemoveAt(DWORD dwIndex) override {
    m_bIndexed = false;
    return C_BaseTable<T>::RemoveAt(dwIndex);
  }
  HRESULT Clear() override {
    m_bIndexed = false;
    return C_KOfdSectionTable<T>::Clear();
  }
  // Records read from the file join the table without passing through AddRecord.
  bool ReadRecords(I_File* pFile, DWORD dwBase, DWORD dwSize, DWORD dwOffset) override {
    const bool bRead = C_KOfdSectionTable<T>::ReadRecords(pFile, dwBase, dwSize, dwOffset);
    m_bIndexed = false;
    return bRead;
  }

  // Where the concrete table keeps a record's name: its offset in the linked string table.
  virtual HRESULT SetNameOffset(T* pRecord, DWORD dwOffset) = 0;
  virtual DWORD GetNameOffset(const T* pRecord) = 0;

  // The record's name, or "" when the table is linked to no string table or the offset lies
  // outside it.
  const char* GetRecordName(const T* pRecord) {
    C_KOfdStringTable* pStrings = Y_GetStringTable();
    return pStrings ? pStrings->GetStringAt(GetNameOffset(pRecord)) : "";
  }
  // The same name with its length.
  std::string_view GetRecordNameView(const T* pRecord) {
    C_KOfdStringTable* pStrings = Y_GetStringTable();
    return pStrings ? pStrings->GetStringView(GetNameOffset(pRecord)) : std::string_view();
  }

 protected:
  // The linked section as a string table, or null.
  C_KOfdStringTable* Y_GetStringTable() { return m_Strings.Get(this->GetLinkedSection()); }

  // The name index, brought up to date with the records and the string table.
  Index& Y_Index() {
    C_KOfdStringTable* pStrings = Y_GetStringTable();
    if (!m_bIndexed || !Z_IndexCurrent(pStrings)) {
      m_Index.Clear();
      m_Index.Reserve(this->GetCount());
      for (DWORD i = 0; pStrings && i < this->GetCount(); ++i) {
        T* pRecord = this->Y_Record(i);
        m_Index.Insert(pStrings->GetStringAt(GetNameOffset(pRecord)), pRecord);
      }
      m_pIndexedBuffer = pStrings ? pStrings->GetBuffer() : nullptr;
      m_dwIndexedRewrites = pStrings ? pStrings->GetRewriteCount() : 0;
      m_bIndexed = pStrings != nullptr;
    }
    return m_Index;
  }

  // Stores a copy of pRecord named pszName: the name is appended to the string table and the
  // record's name offset set to where it lands.
  HRESULT Y_AddNamed(const char* pszName, const T* pRecord) {
    C_KOfdStringTable* pStrings = Y_GetStringTable();
    if (!pStrings || !pRecord) return E_POINTER;
    T record = *pRecord;
    SetNameOffset(&record, pStrings->GetUsed());
    pStrings->Append(pszName);
    return this->AddRecord(&record);
  }
  // Y_AddNamed that also hands the stored name offset back in the caller's record.
  HRESULT Y_AddNamedInPlace(const char* pszName, T* pRecord) {
    if (Y_AddNamed(pszName ? pszName : "", pRecord) != S_OK) return E_FAIL;
    SetNameOffset(pRecord, GetNameOffset(this->Y_Record(this->GetCount() - 1)));
    return S_OK;
  }

 private:
  bool Z_IndexCurrent(C_KOfdStringTable* pStrings) const {
    return pStrings && pStrings->GetBuffer() == m_pIndexedBuffer && pStrings->GetRewriteCount() == m_dwIndexedRewrites;
  }

  Index m_Index;
  C_LinkAs<C_KOfdStringTable> m_Strings;
  bool m_bIndexed = false;
  const char* m_pIndexedBuffer = nullptr;
  DWORD m_dwIndexedRewrites = 0;
};

template <class T>
class C_KOfdHashSectionTable : public virtual C_KOfdIndexedSectionTable<T, C_HashTable<const char*, T*>> {
 public:
  // The record under pszName; E_FAIL when there is none.
  HRESULT FindByName(const char* pszName, T** ppRecord) {
    if (!pszName) return E_FAIL;
    return this->Y_Index().Find(pszName, ppRecord);
  }
};

template <class K, class T>
class C_KOfdMultiHashSectionTable : public virtual C_KOfdIndexedSectionTable<T, C_MultiHashTable<const char*, T*>> {
 public:
  // The first record under pszName and its name as stored in the string table.
  virtual HRESULT FindName(const char* pszName, const char** ppszStored, T** ppRecord) {
    T* pRecord = nullptr;
    if (!pszName || this->Y_Index().FindNth(pszName, 0, &pRecord) != S_OK) return E_FAIL;
    if (ppszStored) *ppszStored = this->GetRecordName(pRecord);
    if (ppRecord) *ppRecord = pRecord;
    return S_OK;
  }
  // The first record under pszName whose selector is not zero. The counter argument is ignored.
  virtual HRESULT FindMatching(const char* pszName, DWORD, T** ppRecord) {
    T* pFound = pszName ? this->Y_Index().FindIf(pszName, [this](T* p) { return GetSelector(p) != K(0); }) : nullptr;
    *ppRecord = pFound;
    return pFound ? S_OK : E_FAIL;
  }
  virtual HRESULT AddNamed(const char* pszName, const T* pRecord) { return this->Y_AddNamed(pszName, pRecord); }
  // The stored name of the first record under pszName, or null.
  virtual const char* GetNameOf(const char* pszName) {
    const char* pszStored = nullptr;
    return FindName(pszName, &pszStored, nullptr) == S_OK ? pszStored : nullptr;
  }
  virtual K GetSelector(const T* pRecord) = 0;

  DWORD CountOf(const char* pszName) { return pszName ? this->Y_Index().CountOf(pszName) : 0; }
  HRESULT FindNth(const char* pszName, DWORD dwNth, T** ppRecord) {
    return pszName ? this->Y_Index().FindNth(pszName, dwNth, ppRecord) : E_FAIL;
  }
};
