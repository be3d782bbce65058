// C_NameSlots: finds distinct names, each known by a 32-bit id, through their name hash. The
// names come from files, so their hashes may be chosen to collide: a name is looked for in at
// most kProbeWindow slots from its bucket (hash & (slots - 1)), and a name whose window is full
// lives in an ordered overflow instead. Every lookup and insertion then costs at most the window
// and one tree search, whatever the hashes.
//
//   slots      {hash, id + 1} (0: empty), at most half full, probed linearly
//   overflow   name -> id, ordered by the name's bytes; holds a name only while its window is full
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <utility>
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

class C_NameSlots {
 public:
  static constexpr std::size_t kProbeWindow = 32;

  // The id of pszName, or -1. nameOf(id) gives the name of an id.
  template <class NameOf>
  long Find(const char* pszName, DWORD dwHash, NameOf&& nameOf) const {
    if (m_vSlots.empty()) return -1;
    const std::size_t nMask = m_vSlots.size() - 1;
    for (std::size_t n = 0, i = dwHash & nMask; n < kProbeWindow; ++n, i = (i + 1) & nMask) {
      ++m_qwSteps;
      const Slot& slot = m_vSlots[i];
      if (slot.second == 0) return -1;
      if (slot.first == dwHash && strcmp(nameOf(slot.second - 1), pszName) == 0) return static_cast<long>(slot.second - 1);
    }
    if (m_Overflow.empty()) return -1;
    ++m_qwSteps;
    const auto found = m_Overflow.find(pszName);
    return found == m_Overflow.end() ? -1 : static_cast<long>(found->second);
  }

  // The id of the name of dwId when it is known; otherwise adds dwId and gives -1. One probe.
  template <class NameOf>
  long FindOrAdd(DWORD dwId, DWORD dwHash, NameOf&& nameOf) {
    if (2 * (m_nCount + 1) > m_vSlots.size()) Z_Rehash(m_vSlots.empty() ? 16 : 2 * m_vSlots.size(), nameOf);
    const char* pszName = nameOf(dwId);
    const std::size_t nMask = m_vSlots.size() - 1;
    for (std::size_t n = 0, i = dwHash & nMask; n < kProbeWindow; ++n, i = (i + 1) & nMask) {
      ++m_qwSteps;
      Slot& slot = m_vSlots[i];
      if (slot.second == 0) {
        slot = {dwHash, dwId + 1};
        ++m_nCount;
        return -1;
      }
      if (slot.first == dwHash && strcmp(nameOf(slot.second - 1), pszName) == 0) return static_cast<long>(slot.second - 1);
    }
    ++m_qwSteps;
    const auto placed = m_Overflow.emplace(pszName, dwId);
    if (!placed.second) return static_cast<long>(placed.first->second);
    ++m_nCount;
    return -1;
  }

  template <class NameOf>
  void Reserve(std::size_t nCount, NameOf&& nameOf) {
    std::size_t nSlots = 16;
    while (nSlots < 2 * nCount) nSlots *= 2;
    if (nSlots > m_vSlots.size()) Z_Rehash(nSlots, nameOf);
  }

  void Clear() {
    m_vSlots.clear();
    m_Overflow.clear();
    m_nCount = 0;
  }

  // Slots probed and trees searched so far: the work that chosen collisions would drive up.
  std::uint64_t GetSteps() const { return m_qwSteps; }

 private:
  using Slot = std::pair<DWORD, DWORD>;

  template <class NameOf>
  void Z_Place(DWORD dwId, DWORD dwHash, NameOf& nameOf) {
    const std::size_t nMask = m_vSlots.size() - 1;
    for (std::size_t n = 0, i = dwHash & nMask; n < kProbeWindow; ++n, i = (i + 1) & nMask) {
      ++m_qwSteps;
      if (m_vSlots[i].second == 0) {
        m_vSlots[i] = {dwHash, dwId + 1};
        return;
      }
    }
    ++m_qwSteps;
    m_Overflow.emplace(nameOf(dwId), dwId);
  }

  // Places every name again, the ids in increasing order so that the layout is the same for
  // the same names.
  template <class NameOf>
  void Z_Rehash(std::size_t nSlots, NameOf& nameOf) {
    std::vector<Slot> vNames;
    vNames.reserve(m_nCount);
    for (const Slot& slot : m_vSlots) {
      if (slot.second != 0) vNames.push_back({slot.second - 1, slot.first});
    }
    for (const auto& overflow : m_Overflow) vNames.push_back({overflow.second, HashName(overflow.first.c_str())});
    std::sort(vNames.begin(), vNames.end());
    m_vSlots.assign(nSlots, Slot{0, 0});
    m_Overflow.clear();
    for (const Slot& name : vNames) Z_Place(name.first, name.second, nameOf);
  }

  std::vector<Slot> m_vSlots;
  std::map<std::string, DWORD, std::less<>> m_Overflow;
  std::size_t m_nCount = 0;
  mutable std::uint64_t m_qwSteps = 0;
};
