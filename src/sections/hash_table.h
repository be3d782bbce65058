// Name indexes over records: C_HashTable (one record per name) and C_MultiHashTable (any number
// per name), keyed by NUL-terminated names that the index does not own, and the record-table
// sections that keep such an index.
#pragma once

#include <cstring>
#include <unordered_map>

#include "frame/exception.h"

// h = (h x 33) XOR c from 5381, each byte taken as a signed 8-bit value.
inline DWORD HashName(const char* pszName) {
  std::uint32_t h = 5381;
  for (const char* p = pszName; *p; ++p) {
    h = (h * 33u) ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(*p)));
  }
  return static_cast<DWORD>(h);
}

struct NameHash {
  std::size_t operator()(const char* pszName) const { return HashName(pszName); }
};
struct NameEqual {
  bool operator()(const char* a, const char* b) const { return strcmp(a, b) == 0; }
};

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

template <class K, class V>
class C_HashTable;
template <class K, class V>
class C_MultiHashTable;

template <class T>
class C_HashTable<const char*, T*> : public virtual I_HashTable<T>, public virtual C_Exception {
 public:
  DWORD GetCount() override { return static_cast<DWORD>(m_Map.size()); }
  HRESULT GetAt(DWORD dwIndex, T** ppRecord) override {
    auto it = m_Map.begin();
    for (DWORD i = 0; i < dwIndex && it != m_Map.end(); ++i) ++it;
    if (it == m_Map.end()) return E_FAIL;
    *ppRecord = it->second;
    return S_OK;
  }
  HRESULT Insert(const char* pszName, T* pRecord) override {
    return m_Map.emplace(pszName, pRecord).second ? S_OK : E_FAIL;
  }
  HRESULT Find(const char* pszName, T** ppRecord) override {
    auto it = m_Map.find(pszName);
    if (it == m_Map.end()) return E_FAIL;
    *ppRecord = it->second;
    return S_OK;
  }
  HRESULT Clear() override {
    m_Map.clear();
    return S_OK;
  }
  void Reserve(std::size_t nCount) { m_Map.reserve(nCount); }

 private:
  std::unordered_map<const char*, T*, NameHash, NameEqual> m_Map;
};

template <class T>
class C_MultiHashTable<const char*, T*> : public virtual I_MultiHashTable<T>, public virtual C_Exception {
 public:
  DWORD CountOf(const char* pszName) override { return static_cast<DWORD>(m_Map.count(pszName)); }
  DWORD GetCount() override { return static_cast<DWORD>(m_Map.size()); }
  HRESULT Insert(const char* pszName, T* pRecord) override {
    m_Map.emplace(pszName, pRecord);
    return S_OK;
  }
  HRESULT FindNth(const char* pszName, DWORD dwNth, T** ppRecord) override {
    auto range = m_Map.equal_range(pszName);
    for (DWORD i = 0; range.first != range.second; ++range.first, ++i) {
      if (i == dwNth) {
        *ppRecord = range.first->second;
        return S_OK;
      }
    }
    return E_FAIL;
  }
  // Visits the records under pszName in the container's order until visit returns true.
  template <class Visit>
  T* FindIf(const char* pszName, Visit visit) const {
    auto range = m_Map.equal_range(pszName);
    for (; range.first != range.second; ++range.first) {
      if (visit(range.first->second)) return range.first->second;
    }
    return nullptr;
  }
  HRESULT Clear() {
    m_Map.clear();
    return S_OK;
  }
  void Reserve(std::size_t nCount) { m_Map.reserve(nCount); }

 private:
  std::unordered_multimap<const char*, T*, NameHash, NameEqual> m_Map;
};
