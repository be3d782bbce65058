#include "archive/archive_check.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>
#include <utility>

#include "archive/archive_io.h"
#include "archive/member_header.h"
#include "frame/error.h"
#include "frame/replacing_file.h"
#include "frame/text.h"
#include "object/kofd_elf.h"
#include "platform/platform.h"
#include "sections/section.h"
#include "sections/symbol_table.h"

namespace {

constexpr char kMagic[] = "!<arch>\n";
constexpr std::uint64_t kMagicSize = 8;
constexpr DWORD kShfGroup = 0x200;
constexpr DWORD kRebuiltVersion = 1;

DWORD LoadWord(const BYTE* p) {
  return static_cast<DWORD>(p[0]) | static_cast<DWORD>(p[1]) << 8 | static_cast<DWORD>(p[2]) << 16 |
         static_cast<DWORD>(p[3]) << 24;
}

void PutWord(std::vector<BYTE>& v, DWORD dwValue) {
  BYTE b[4];
  StoreWord(b, dwValue);
  v.insert(v.end(), b, b + 4);
}

std::string Hex(std::uint64_t qwValue) {
  char sz[24];
  snprintf(sz, sizeof sz, "0x%llx", static_cast<unsigned long long>(qwValue));
  return sz;
}

std::string Number(std::uint64_t qwValue) { return std::to_string(qwValue); }

// The whole file; throws the library's open or read failure.
std::vector<BYTE> ReadWholeFile(const char* pszPath) {
  FILE* pFile = fopen(pszPath, "rb");
  if (!pFile) ThrowLibraryError(true, KE_OPEN_FAILED, pszPath);
  std::vector<BYTE> vBytes;
  BYTE buffer[65536];
  for (;;) {
    const std::size_t n = fread(buffer, 1, sizeof buffer, pFile);
    vBytes.insert(vBytes.end(), buffer, buffer + n);
    if (n < sizeof buffer) break;
  }
  const bool bFailed = ferror(pFile) != 0;
  fclose(pFile);
  if (bFailed) ThrowLibraryError(true, KE_READ_FAILED, pszPath);
  return vBytes;
}

// The object at qwBase (qwSize bytes) of pszPath: its defined globals; false when it is no
// object the library reads.
bool ReadSymbols(const char* pszPath, std::uint64_t qwBase, std::uint64_t qwSize,
                 std::vector<S_KArcDefinedSymbol>* pvSymbols) {
  if (qwBase > 0xFFFFFFFFu) return false;
  try {
    C_KOfdELF4 object;
    object.AttachPath(pszPath, 0);
    object.SetBaseOffset(static_cast<DWORD>(qwBase));
    object.SetExtent(qwSize);
    object.Read();
    CollectDefinedSymbols(&object, pvSymbols);
    return true;
  } catch (const C_Exception&) {
    pvSymbols->clear();
    return false;
  }
}

bool HeaderEndsWell(const BYTE* pHeader) { return pHeader[58] == '\'' && pHeader[59] == '\n'; }

}  // namespace

void CollectDefinedSymbols(I_KOfdELF* pDocument, std::vector<S_KArcDefinedSymbol>* pvSymbols) {
  if (!pDocument || !pvSymbols) return;
  I_KOfdSymbolTable* pTable = nullptr;
  pDocument->GetSymbolTable(&pTable);
  C_KOfdSymbolTable* pSymbols = dynamic_cast<C_KOfdSymbolTable*>(pTable);
  if (!pSymbols) return;
  DWORD dwFirst = 0, dwCount = 0;
  pSymbols->GetFirstGlobal(&dwFirst);
  pSymbols->GetSymbolCount(&dwCount);
  std::set<std::string> seen;
  for (DWORD i = dwFirst; i < dwCount; ++i) {
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    if (pSymbols->GetSymbolAt(i, &pszName, &pSymbol) != S_OK || IsUndefinedSection(pSymbol->st_shndx)) continue;
    if (!seen.insert(pszName).second) continue;
    S_KArcDefinedSymbol symbol;
    symbol.sName = pszName;
    symbol.bWeak = (pSymbol->st_info >> 4) == 2;
    I_KOfdSection* pSection = nullptr;
    if (pSymbol->st_shndx < 0xFF00 && pDocument->GetSection(pSymbol->st_shndx, &pSection) == S_OK && pSection) {
      symbol.bGrouped = (pSection->GetFlags() & kShfGroup) != 0;
    }
    pvSymbols->push_back(std::move(symbol));
  }
}

void C_KArcImage::Z_Find(const char* pszKind, const std::string& sWords, const std::string& sMember,
                         const std::string& sSymbol) {
  m_vFindings.push_back({pszKind, sWords, sMember, sSymbol});
}

long C_KArcImage::FindMember(const std::string& sName) const {
  for (std::size_t i = 0; i < m_vMembers.size(); ++i) {
    if (kofd_text::EqualIgnoringCase(m_vMembers[i].sName.c_str(), sName.c_str())) return static_cast<long>(i);
  }
  return -1;
}

void C_KArcImage::Read(const char* pszPath) {
  m_sPath = pszPath ? pszPath : "";
  m_vFindings.clear();
  m_vMembers.clear();
  const std::vector<BYTE> vFile = ReadWholeFile(m_sPath.c_str());
  if (vFile.size() < kMagicSize || memcmp(vFile.data(), kMagic, kMagicSize) != 0) {
    ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, m_sPath.c_str());
  }
  // The linker and name members must be whole: every member lies behind them.
  C_KArcMemberHeader header;
  std::uint64_t qwAt = kMagicSize;
  std::vector<BYTE> vIndex;
  std::string sNames;
  for (int nSpecial = 0; nSpecial < 2; ++nSpecial) {
    const char* pszWhat = nSpecial == 0 ? "the linker member runs past the end of the file"
                                        : "the name member runs past the end of the file";
    if (vFile.size() - qwAt < kArcMemberHeaderSize) ThrowLibraryError(false, KE_READ_FAILED, pszWhat);
    header.Assign(vFile.data() + qwAt);
    const std::uint64_t qwSize = header.GetSize();
    if (vFile.size() - qwAt - kArcMemberHeaderSize < qwSize) ThrowLibraryError(false, KE_READ_FAILED, pszWhat);
    const BYTE* pData = vFile.data() + qwAt + kArcMemberHeaderSize;
    if (nSpecial == 0) vIndex.assign(pData, pData + qwSize);
    else sNames.assign(reinterpret_cast<const char*>(pData), qwSize);
    qwAt += kArcMemberHeaderSize + qwSize;
  }
  if (!sNames.empty() && sNames.back() != '\0') {
    Z_Find("name-unterminated", "the name member does not end with a NUL: its last name is not terminated");
  }
  Z_WalkMembers(vFile, qwAt, sNames);
  Z_CheckIndex(vFile, vIndex);
}

void C_KArcImage::Z_WalkMembers(const std::vector<BYTE>& vFile, std::uint64_t qwAt, const std::string& sNames) {
  C_KArcMemberHeader header;
  DWORD dwLastSize = 0;
  while (qwAt < vFile.size()) {
    const std::string sAt = "at offset " + Number(qwAt);
    if (vFile.size() - qwAt < kArcMemberHeaderSize) {
      Z_Find("member-past-end", "a member header " + sAt + " is cut short by the end of the file");
      return;
    }
    const BYTE* pHeader = vFile.data() + qwAt;
    if (!HeaderEndsWell(pHeader)) {
      // Archives of other tools pad an odd-sized member with a line feed; members here lie back
      // to back, and the byte is one too many.
      if ((dwLastSize & 1) && pHeader[0] == '\n' && vFile.size() - qwAt - 1 >= kArcMemberHeaderSize &&
          HeaderEndsWell(pHeader + 1)) {
        Z_Find("member-padding", "a padding byte " + sAt + " follows an odd-sized member; members lie back to back",
               m_vMembers.empty() ? "" : m_vMembers.back().sName);
        ++qwAt;
        continue;
      }
      Z_Find("member-header-bad", "the member header " + sAt + " does not end with \"'\\n\"");
      return;
    }
    header.Assign(pHeader);
    const DWORD dwSize = header.GetSize();
    S_KArcImageMember member;
    // The name, as the library finds it: from the Name Index up to a NUL.
    const DWORD dwNameIndex = header.GetNameIndex();
    const std::string sIndex = "member " + Number(m_vMembers.size()) + " (header " + sAt + ")";
    if (dwNameIndex >= sNames.size()) {
      Z_Find("name-outside", "the Name Index " + Number(dwNameIndex) + " of " + sIndex +
                                 " lies outside the name member (" + Number(sNames.size()) + " bytes)");
    } else {
      if (dwNameIndex > 0 && sNames[dwNameIndex - 1] != '\0') {
        Z_Find("name-not-at-start", "the Name Index " + Number(dwNameIndex) + " of " + sIndex +
                                        " points into the middle of a name",
               sNames.c_str() + dwNameIndex);
      }
      member.sName = sNames.c_str() + dwNameIndex;
    }
    if (member.sName.empty() && dwNameIndex < sNames.size()) Z_Find("name-empty", sIndex + " has an empty name");
    // A member without a name of its own is called after its place.
    if (member.sName.empty()) member.sName = "member" + Number(m_vMembers.size()) + ".o";
    if (vFile.size() - qwAt - kArcMemberHeaderSize < dwSize) {
      Z_Find("member-past-end", "the " + Number(dwSize) + " bytes of the member " + sAt + " run past the end of the file (" +
                                    Number(vFile.size()) + " bytes)",
             member.sName);
      return;
    }
    member.vHeader.assign(pHeader, pHeader + kArcMemberHeaderSize);
    member.vData.assign(pHeader + kArcMemberHeaderSize, pHeader + kArcMemberHeaderSize + dwSize);
    member.dwHeaderAt = static_cast<DWORD>(qwAt);
    member.bObject = ReadSymbols(m_sPath.c_str(), qwAt + kArcMemberHeaderSize, dwSize, &member.vSymbols);
    if (!member.bObject) Z_Find("member-not-object", "the member's bytes do not read as a KELF object", member.sName);
    m_vMembers.push_back(std::move(member));
    dwLastSize = dwSize;
    qwAt += kArcMemberHeaderSize + dwSize;
  }
}

void C_KArcImage::Z_CheckIndex(const std::vector<BYTE>& vFile, const std::vector<BYTE>& vIndex) {
  // Version, N and N offsets, S and S member indices, then the names.
  std::uint64_t qwAt = 4;
  std::vector<DWORD> vOffsets, vIndices;
  bool bWhole = vIndex.size() >= 4;
  for (std::vector<DWORD>* pvWords : {&vOffsets, &vIndices}) {
    if (!bWhole || vIndex.size() - qwAt < 4) {
      bWhole = false;
      break;
    }
    const DWORD dwCount = LoadWord(vIndex.data() + qwAt);
    qwAt += 4;
    if ((vIndex.size() - qwAt) / 4 < dwCount) {
      bWhole = false;
      break;
    }
    for (DWORD i = 0; i < dwCount; ++i) pvWords->push_back(LoadWord(vIndex.data() + qwAt + 4 * i));
    qwAt += 4ull * dwCount;
  }
  if (!bWhole) {
    Z_Find("index-damaged", "the linker member's counts ask for more words than its " + Number(vIndex.size()) +
                                " bytes hold");
    for (const S_KArcImageMember& member : m_vMembers) {
      for (const S_KArcDefinedSymbol& symbol : member.vSymbols) {
        Z_Find("symbol-missing", "the index does not list the symbol", member.sName, symbol.sName);
      }
    }
    return;
  }
  std::vector<std::string> vNames;
  for (std::uint64_t q = qwAt; q < vIndex.size();) {
    const BYTE* pStart = vIndex.data() + q;
    const BYTE* pEnd = static_cast<const BYTE*>(memchr(pStart, 0, vIndex.size() - q));
    if (!pEnd) {
      Z_Find("index-damaged", "the index's last symbol name is not terminated", "",
             std::string(reinterpret_cast<const char*>(pStart), vIndex.size() - q));
      pEnd = vIndex.data() + vIndex.size();
    }
    vNames.emplace_back(reinterpret_cast<const char*>(pStart), static_cast<std::size_t>(pEnd - pStart));
    q = static_cast<std::uint64_t>(pEnd - vIndex.data()) + 1;
  }
  if (vNames.size() != vIndices.size()) {
    Z_Find("index-damaged", "the index lists " + Number(vIndices.size()) + " member indices but " +
                                Number(vNames.size()) + " symbol names");
  }

  // Offsets against the members the walk found.
  const std::size_t nMembers = m_vMembers.size();
  for (std::size_t i = 0; i < vOffsets.size() || i < nMembers; ++i) {
    if (i >= vOffsets.size()) {
      Z_Find("offset-missing", "the index lists no offset for the member", m_vMembers[i].sName);
    } else if (i >= nMembers) {
      Z_Find("offset-stale", "offset " + Number(i) + " (" + Hex(vOffsets[i]) + ") names no member of the archive");
    } else if (vOffsets[i] != m_vMembers[i].dwHeaderAt) {
      Z_Find("offset-wrong", "the index places the member at " + Hex(vOffsets[i]) + ", its header lies at " +
                                 Hex(m_vMembers[i].dwHeaderAt),
             m_vMembers[i].sName);
    }
  }
  // The members as the index places them: a header and its Size bytes each.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> vExtents;
  C_KArcMemberHeader header;
  for (DWORD dwOffset : vOffsets) {
    if (vFile.size() < kArcMemberHeaderSize || dwOffset > vFile.size() - kArcMemberHeaderSize) continue;
    header.Assign(vFile.data() + dwOffset);
    vExtents.emplace_back(dwOffset, static_cast<std::uint64_t>(dwOffset) + kArcMemberHeaderSize + header.GetSize());
  }
  std::sort(vExtents.begin(), vExtents.end());
  vExtents.erase(std::unique(vExtents.begin(), vExtents.end()), vExtents.end());
  for (std::size_t i = 1; i < vExtents.size(); ++i) {
    if (vExtents[i].first < vExtents[i - 1].second) {
      Z_Find("member-overlap", "the members the index places at " + Hex(vExtents[i - 1].first) + " and " +
                                   Hex(vExtents[i].first) + " overlap");
    }
  }
  for (const auto& extent : vExtents) {
    if (extent.second > vFile.size()) {
      Z_Find("member-past-end", "the member the index places at " + Hex(extent.first) + " runs past the end of the file");
    }
  }

  // Symbols: each (name, member) the members define, listed once.
  std::set<std::pair<std::string, DWORD>> defined, listed;
  for (DWORD m = 0; m < nMembers; ++m) {
    for (const S_KArcDefinedSymbol& symbol : m_vMembers[m].vSymbols) defined.emplace(symbol.sName, m);
  }
  for (std::size_t i = 0; i < vIndices.size() && i < vNames.size(); ++i) {
    const DWORD dwMember = vIndices[i];
    const std::string& sName = vNames[i];
    if (dwMember >= nMembers) {
      Z_Find("symbol-stale", "the index gives the symbol member " + Number(dwMember) + ", which does not exist", "", sName);
    } else if (!defined.count({sName, dwMember})) {
      Z_Find("symbol-stale", "the index lists the symbol for a member that does not define it", m_vMembers[dwMember].sName,
             sName);
    } else if (!listed.emplace(sName, dwMember).second) {
      Z_Find("symbol-duplicate", "the index lists the symbol for the member more than once", m_vMembers[dwMember].sName,
             sName);
    }
  }
  for (DWORD m = 0; m < nMembers; ++m) {
    for (const S_KArcDefinedSymbol& symbol : m_vMembers[m].vSymbols) {
      if (!listed.count({symbol.sName, m})) {
        Z_Find("symbol-missing", "the member defines the symbol but the index does not list it", m_vMembers[m].sName,
               symbol.sName);
      }
    }
  }
}

void C_KArcImage::ReplaceMember(DWORD dwIndex, const char* pszPath) {
  if (dwIndex >= m_vMembers.size()) ThrowLibraryError(false, KE_OUT_OF_RANGE, "when call C_KArcImage::ReplaceMember");
  S_KArcImageMember member;
  member.sName = m_vMembers[dwIndex].sName;
  member.vData = ReadWholeFile(pszPath);
  if (member.vData.size() > 0xFFFFFFF0u) ThrowLibraryError(false, KE_OUT_OF_RANGE, pszPath);
  if (!ReadSymbols(pszPath, 0, member.vData.size(), &member.vSymbols)) {
    // The object's own failure, with its words.
    C_KOfdELF4 object;
    object.AttachPath(pszPath, 0);
    object.Read();
  }
  member.bObject = true;
  std::uint64_t qwSize = 0;
  std::int64_t llTime = 0;
  platform::PathStatus(pszPath, &qwSize, &llTime);
  C_KArcMemberHeader header;
  header.Build(true, 0, static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(llTime))), 0,
               static_cast<DWORD>(member.vData.size()));
  member.vHeader.assign(header.GetBytes(), header.GetBytes() + kArcMemberHeaderSize);
  m_vMembers[dwIndex] = std::move(member);
}

std::vector<BYTE> C_KArcImage::RebuiltBytes() const {
  std::vector<BYTE> vNames;
  std::vector<DWORD> vNameAt;
  for (const S_KArcImageMember& member : m_vMembers) {
    vNameAt.push_back(static_cast<DWORD>(vNames.size()));
    vNames.insert(vNames.end(), member.sName.begin(), member.sName.end());
    vNames.push_back(0);
  }
  std::vector<DWORD> vIndices;
  std::vector<BYTE> vSymbolNames;
  for (DWORD m = 0; m < m_vMembers.size(); ++m) {
    for (const S_KArcDefinedSymbol& symbol : m_vMembers[m].vSymbols) {
      vIndices.push_back(m);
      vSymbolNames.insert(vSymbolNames.end(), symbol.sName.begin(), symbol.sName.end());
      vSymbolNames.push_back(0);
    }
  }
  const std::uint64_t qwIndexSize = 12 + 4ull * (m_vMembers.size() + vIndices.size()) + vSymbolNames.size();
  std::uint64_t qwAt = kMagicSize + kArcMemberHeaderSize + qwIndexSize + kArcMemberHeaderSize + vNames.size();
  std::vector<BYTE> vIndex;
  PutWord(vIndex, kRebuiltVersion);
  PutWord(vIndex, static_cast<DWORD>(m_vMembers.size()));
  for (const S_KArcImageMember& member : m_vMembers) {
    if (qwAt > 0xFFFFFFFFu) ThrowLibraryError(false, KE_OUT_OF_RANGE, "when call C_KArcImage::Rebuild");
    PutWord(vIndex, static_cast<DWORD>(qwAt));
    qwAt += kArcMemberHeaderSize + member.vData.size();
  }
  PutWord(vIndex, static_cast<DWORD>(vIndices.size()));
  for (DWORD dwMember : vIndices) PutWord(vIndex, dwMember);
  vIndex.insert(vIndex.end(), vSymbolNames.begin(), vSymbolNames.end());

  std::vector<BYTE> vOut(kMagic, kMagic + kMagicSize);
  vOut.reserve(qwAt);
  C_KArcMemberHeader header;
  header.Build(false, 0, 0, 0, static_cast<DWORD>(vIndex.size()));
  vOut.insert(vOut.end(), header.GetBytes(), header.GetBytes() + kArcMemberHeaderSize);
  vOut.insert(vOut.end(), vIndex.begin(), vIndex.end());
  header.Build(false, 0, 0, 0, static_cast<DWORD>(vNames.size()));
  vOut.insert(vOut.end(), header.GetBytes(), header.GetBytes() + kArcMemberHeaderSize);
  vOut.insert(vOut.end(), vNames.begin(), vNames.end());
  for (std::size_t m = 0; m < m_vMembers.size(); ++m) {
    const S_KArcImageMember& member = m_vMembers[m];
    header.Assign(member.vHeader.data());
    header.SetNameIndex(vNameAt[m]);
    header.SetSize(static_cast<DWORD>(member.vData.size()));
    std::vector<BYTE> vHeader(header.GetBytes(), header.GetBytes() + kArcMemberHeaderSize);
    vHeader[58] = '\'';
    vHeader[59] = '\n';
    vOut.insert(vOut.end(), vHeader.begin(), vHeader.end());
    vOut.insert(vOut.end(), member.vData.begin(), member.vData.end());
  }
  return vOut;
}

void C_KArcImage::Rebuild(C_ReplacingFile& output) const {
  const std::vector<BYTE> vBytes = RebuiltBytes();
  // In blocks: one write of a size a DWORD holds at a time.
  constexpr std::size_t kBlock = 1u << 30;
  for (std::size_t at = 0; at < vBytes.size(); at += kBlock) {
    const std::size_t n = std::min(kBlock, vBytes.size() - at);
    output.Write(vBytes.data() + at, static_cast<DWORD>(n));
  }
}
