// Name indexes over records: C_HashTable (one record per name) and C_MultiHashTable (any number
// per name), keyed by NUL-terminated names that the index does not own, and the record-table
// sections that keep such an index.
#pragma once

#include <cstring>
#include <vector>

#include "frame/exception.h"

// h = (h x 33) XOR c from 5381, each byte taken as a signed 8-bit value.
inline DWORD HashName(const char* pszName) {
  std::uint32_t h = 5381;
  for (const char* p = pszName; *p; ++p) {
    h = (h * 33u) ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(*p)));
  }
  return static_cast<DWORD>(h);
}

template <class T>
class I_HashTable : public virtual I_Unknown {
 public:
  virtual DWORD GetCount() = 0;
  virtual HRESULT GetAt(DWORD dwIndex, T** ppRecord) = 0;
  // E_FAIL, and nothing changes, when the name is already present.
  virtual HRESULT Insert(const char* pszName, T* pRecord) = 0;
  virtual HRESULT Find(const char* pszName, T** ppRecord) = 0;
  // Forgets the entries; the records belong to the record table.
  virtual HRESULT Clear() = 0;
};

template <class T>
class I_MultiHashTable : public virtual I_Unknown {
 public:
  virtual DWORD CountOf(const char* pszName) = 0;
  virtual DWORD GetCount() = 0;
  virtual HRESULT Insert(const char* pszName, T* pRecord) = 0;
  virtual HRESULT FindNth(const char* pszName, DWORD dwNth, T** ppRecord) = 0;
};

// An open-addressing index of (name, record) entries: one flat array of slots, probed linearly
// from the name's hash, kept at most three quarters full. Entries under one name are met in the order they
// were inserted, and nothing is allocated per entry.
template <class T>
class C_NameIndex {
 public:
  std::size_t Count() const { return m_nCount; }
  void Reserve(std::size_t nCount) {
    std::size_t nSlots = 16;
    while (3 * nSlots < 4 * nCount) nSlots *= 2;
    if (nSlots > m_vSlots.size()) Z_Rehash(nSlots);
  }
  void Insert(const char* pszName, T* pRecord) {
    if (4 * (m_nCount + 1) > 3 * m_vSlots.size()) Z_Rehash(m_vSlots.empty() ? 16 : 2 * m_vSlots.size());
    Z_Place({pszName, pRecord, HashName(pszName)});
    ++m_nCount;
  }
  // Calls visit(record) for each entry under pszName in insertion order until it returns true;
  // returns the record it stopped at, or null.
  template <class Visit>
  T* FindIf(const char* pszName, Visit visit) const {
    if (m_vSlots.empty()) return nullptr;
    const DWORD dwHash = HashName(pszName);
    const std::size_t nMask = m_vSlots.size() - 1;
    for (std::size_t i = dwHash & nMask; m_vSlots[i].pszName; i = (i + 1) & nMask) {
      const Slot& slot = m_vSlots[i];
      if (slot.dwHash == dwHash && strcmp(slot.pszName, pszName) == 0 && visit(slot.pRecord)) return slot.pRecord;
    }
    return nullptr;
  }
  // The entry at position dwIndex of the slot order, or null.
  T* EntryAt(DWORD dwIndex) const {
    for (const Slot& slot : m_vSlots) {
      if (slot.pszName && dwIndex-- == 0) return slot.pRecord;
    }
    return nullptr;
  }
  void Clear() {
    m_vSlots.clear();
    m_nCount = 0;
  }

 private:
  struct Slot {
    const char* pszName;
    T* pRecord;
    DWORD dwHash;
  };

  void Z_Place(const Slot& slot) {
    const std::size_t nMask = m_vSlots.size() - 1;
    std::size_t i = slot.dwHash & nMask;
    while (m_vSlots[i].pszName) i = (i + 1) & nMask;
    m_vSlots[i] = slot;
  }
  // Entries are re-placed in their old slot order, which keeps the order under each name.
  void Z_Rehash(std::size_t nSlots) {
    std::vector<Slot> vOld(nSlots, Slot{nullptr, nullptr, 0});
    vOld.swap(m_vSlots);
    for (const Slot& slot : vOld) {
      if (slot.pszName) Z_Place(slot);
    }
  }

  std::vector<Slot> m_vSlots;
  std::size_t m_nCount = 0;
};

template <class K, class V>
class C_HashTable;
template <class K, class V>
class C_MultiHashTable;

template <class T>
class C_HashTable<const char*, T*> : public virtual I_HashTable<T>, public virtual C_Exception {
 public:
  DWORD GetCount() override { return static_cast<DWORD>(m_Index.Count()); }
  HRESULT GetAt(DWORD dwIndex, T** ppRecord) override {
    T* pRecord = m_Index.EntryAt(dwIndex);
    if (!pRecord) return E_FAIL;
    *ppRecord = pRecord;
    return S_OK;
  }
  HRESULT Insert(const char* pszName, T* pRecord) override {
    if (m_Index.FindIf(pszName, [](T*) { return true; })) return E_FAIL;
    m_Index.Insert(pszName, pRecord);
    return S_OK;
  }
  HRESULT Find(const char* pszName, T** ppRecord) override {
    T* pRecord = m_Index.FindIf(pszName, [](T*) { return true; });
    if (!pRecord) return E_FAIL;
    *ppRecord = pRecord;
    return S_OK;
  }
  HRESULT Clear() override {
    m_Index.Clear();
    return S_OK;
  }
  void Reserve(std::size_t nCount) { m_Index.Reserve(nCount); }

 private:
  C_NameIndex<T> m_Index;
};

template <class T>
class C_MultiHashTable<const char*, T*> : public virtual I_MultiHashTable<T>, public virtual C_Exception {
 public:
  DWORD CountOf(const char* pszName) override {
    DWORD dwCount = 0;
    m_Index.FindIf(pszName, [&dwCount](T*) {
      ++dwCount;
      return false;
    });
    return dwCount;
  }
  DWORD GetCount() override { return static_cast<DWORD>(m_Index.Count()); }
  HRESULT Insert(const char* pszName, T* pRecord) override {
    m_Index.Insert(pszName, pRecord);
    return S_OK;
  }
  HRESULT FindNth(const char* pszName, DWORD dwNth, T** ppRecord) override {
    T* pRecord = m_Index.FindIf(pszName, [&dwNth](T*) { return dwNth-- == 0; });
    if (!pRecord) return E_FAIL;
    *ppRecord = pRecord;
    return S_OK;
  }
  // Visits the records under pszName in insertion order until visit returns true.
  template <class Visit>
  T* FindIf(const char* pszName, Visit visit) const {
    return m_Index.FindIf(pszName, visit);
  }
  HRESULT Clear() {
    m_Index.Clear();
    return S_OK;
  }
  void Reserve(std::size_t nCount) { m_Index.Reserve(nCount); }

 private:
  C_NameIndex<T> m_Index;
};
