// Name indexes over records: C_HashTable (one record per name) and C_MultiHashTable (any number
// per name), keyed by NUL-terminated names that the index does not own, and the record-table
// sections that keep such an index.
#pragma once

#include <cstring>
#include <vector>

#include "frame/exception.h"
#include "sections/name_slots.h"

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

// An index of (name, record) entries. Each distinct name is found through C_NameSlots and keeps
// its first record beside it; the later records under the name are chained in insertion order,
// so that entries under one name are met in the order they came and their count is known at once.
template <class T>
class C_NameIndex {
 public:
  C_NameIndex() = default;
  C_NameIndex(const C_NameIndex&) = delete;
  C_NameIndex& operator=(const C_NameIndex&) = delete;

  std::size_t Count() const { return m_vGroups.size() + m_vLater.size(); }
  void Reserve(std::size_t nCount) {
    m_vGroups.reserve(nCount);
    m_Slots.Reserve(nCount, Z_NameOf());
  }
  void Insert(const char* pszName, T* pRecord) {
    // A new name's group, taken back when the name has one.
    const DWORD dwNew = static_cast<DWORD>(m_vGroups.size());
    m_vGroups.push_back({pszName, pRecord, 1, 0, 0});
    const long lGroup = m_Slots.FindOrAdd(dwNew, HashName(pszName), Z_NameOf());
    if (lGroup < 0) return;
    m_vGroups.pop_back();
    Group& group = m_vGroups[static_cast<std::size_t>(lGroup)];
    m_vLater.push_back({pRecord, 0});
    const DWORD dwLater = static_cast<DWORD>(m_vLater.size());
    if (group.dwLast) m_vLater[group.dwLast - 1].dwNext = dwLater;
    else group.dwNext = dwLater;
    group.dwLast = dwLater;
    ++group.dwCount;
  }
  // Calls visit(record) for each entry under pszName in insertion order until it returns true;
  // returns the record it stopped at, or null.
  template <class Visit>
  T* FindIf(const char* pszName, Visit visit) const {
    const long lGroup = m_Slots.Find(pszName, HashName(pszName), Z_NameOf());
    if (lGroup < 0) return nullptr;
    const Group& group = m_vGroups[static_cast<std::size_t>(lGroup)];
    if (visit(group.pFirst)) return group.pFirst;
    for (DWORD dwLater = group.dwNext; dwLater != 0; dwLater = m_vLater[dwLater - 1].dwNext) {
      if (visit(m_vLater[dwLater - 1].pRecord)) return m_vLater[dwLater - 1].pRecord;
    }
    return nullptr;
  }
  DWORD CountOf(const char* pszName) const {
    const long lGroup = m_Slots.Find(pszName, HashName(pszName), Z_NameOf());
    return lGroup < 0 ? 0 : m_vGroups[static_cast<std::size_t>(lGroup)].dwCount;
  }
  // The first record of the dwIndex-th name, in the order the names came, or null: for an index
  // of unique names, its dwIndex-th entry.
  T* EntryAt(DWORD dwIndex) const { return dwIndex < m_vGroups.size() ? m_vGroups[dwIndex].pFirst : nullptr; }
  void Clear() {
    m_vGroups.clear();
    m_vLater.clear();
    m_Slots.Clear();
  }
  std::uint64_t GetSteps() const { return m_Slots.GetSteps(); }

 private:
  struct Group {
    const char* pszName;
    T* pFirst;
    DWORD dwCount;
    // The first and the last later record + 1; 0 for none.
    DWORD dwNext, dwLast;
  };
  struct Later {
    T* pRecord;
    DWORD dwNext;
  };

  auto Z_NameOf() const {
    return [this](DWORD dwGroup) { return m_vGroups[dwGroup].pszName; };
  }

  std::vector<Group> m_vGroups;
  std::vector<Later> m_vLater;
  C_NameSlots m_Slots;
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
  DWORD CountOf(const char* pszName) override { return m_Index.CountOf(pszName); }
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
