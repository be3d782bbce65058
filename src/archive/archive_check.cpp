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

// The archive file, open for the walk: its size, and its blocks read through a read-ahead window.
class C_KArcImage::Reader {
 public:
  explicit Reader(const std::string& sPath) : m_window(&m_file, kHeaderWindow) {
    m_file.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
    if (m_file.Open(1) != S_OK) ThrowLibraryError(true, KE_OPEN_FAILED, sPath.c_str());
    if (!platform::FileSize(m_file.GetHandle(), &m_qwSize)) ThrowLibraryError(true, KE_READ_FAILED, sPath.c_str());
  }
  ~Reader() { m_file.Close(); }
  std::uint64_t Size() const { return m_qwSize; }
  // dwSize bytes at qwAt, which the caller has checked the file holds; 1016 when it no longer does.
  void Read(std::uint64_t qwAt, void* pOut, DWORD dwSize) {
    if (!m_window.ReadAt(qwAt, pOut, dwSize)) ThrowLibraryError(true, KE_READ_FAILED, m_file.GetPath());
  }

 private:
  static constexpr DWORD kHeaderWindow = 64 * 1024;
  C_File m_file;
  C_KArcReadWindow m_window;
  std::uint64_t m_qwSize = 0;
};

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
  Reader file(m_sPath);
  BYTE magic[kMagicSize] = {0};
  if (file.Size() < kMagicSize) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, m_sPath.c_str());
  file.Read(0, magic, kMagicSize);
  if (memcmp(magic, kMagic, kMagicSize) != 0) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, m_sPath.c_str());
  // The linker and name members must be whole: every member lies behind them.
  C_KArcMemberHeader header;
  std::uint64_t qwAt = kMagicSize;
  std::vector<BYTE> vIndex;
  std::string sNames;
  for (int nSpecial = 0; nSpecial < 2; ++nSpecial) {
    const char* pszWhat = nSpecial == 0 ? "the linker member runs past the end of the file"
                                        : "the name member runs past the end of the file";
    if (file.Size() - qwAt < kArcMemberHeaderSize) ThrowLibraryError(false, KE_READ_FAILED, pszWhat);
    BYTE bytes[kArcMemberHeaderSize];
    file.Read(qwAt, bytes, kArcMemberHeaderSize);
    header.Assign(bytes);
    const std::uint64_t qwSize = header.GetSize();
    if (file.Size() - qwAt - kArcMemberHeaderSize < qwSize) ThrowLibraryError(false, KE_READ_FAILED, pszWhat);
    std::vector<BYTE> vData(qwSize);
    file.Read(qwAt + kArcMemberHeaderSize, vData.data(), static_cast<DWORD>(qwSize));
    if (nSpecial == 0) vIndex = std::move(vData);
    else sNames.assign(vData.begin(), vData.end());
    qwAt += kArcMemberHeaderSize + qwSize;
  }
  if (!sNames.empty() && sNames.back() != '\0') {
    Z_Find("name-unterminated", "the name member does not end with a NUL: its last name is not terminated");
  }
  Z_WalkMembers(file, qwAt, sNames);
  Z_CheckIndex(file, vIndex);
}

void C_KArcImage::Z_WalkMembers(Reader& file, std::uint64_t qwAt, const std::string& sNames) {
  C_KArcMemberHeader header;
  DWORD dwLastSize = 0;
  const std::uint64_t qwFileSize = file.Size();
  while (qwAt < qwFileSize) {
    const std::string sAt = "at offset " + Number(qwAt);
    if (qwFileSize - qwAt < kArcMemberHeaderSize) {
      Z_Find("member-past-end", "a member header " + sAt + " is cut short by the end of the file");
      return;
    }
    // The header, and the byte behind it for a padding byte in front of the next.
    BYTE bytes[kArcMemberHeaderSize + 1];
    const bool bOneMore = qwFileSize - qwAt > kArcMemberHeaderSize;
    file.Read(qwAt, bytes, kArcMemberHeaderSize + (bOneMore ? 1 : 0));
    const BYTE* pHeader = bytes;
    if (!HeaderEndsWell(pHeader)) {
      // Archives of other tools pad an odd-sized member with a line feed; members here lie back
      // to back, and the byte is one too many.
      if ((dwLastSize & 1) && pHeader[0] == '\n' && bOneMore && HeaderEndsWell(pHeader + 1)) {
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
    if (qwFileSize - qwAt - kArcMemberHeaderSize < dwSize) {
      Z_Find("member-past-end", "the " + Number(dwSize) + " bytes of the member " + sAt + " run past the end of the file (" +
                                    Number(qwFileSize) + " bytes)",
             member.sName);
      return;
    }
    member.vHeader.assign(pHeader, pHeader + kArcMemberHeaderSize);
    member.sSource = m_sPath;
    member.qwDataAt = qwAt + kArcMemberHeaderSize;
    member.dwSize = dwSize;
    member.dwHeaderAt = static_cast<DWORD>(qwAt);
    member.bObject = ReadSymbols(m_sPath.c_str(), qwAt + kArcMemberHeaderSize, dwSize, &member.vSymbols);
    if (!member.bObject) Z_Find("member-not-object", "the member's bytes do not read as a KELF object", member.sName);
    m_vMembers.push_back(std::move(member));
    dwLastSize = dwSize;
    qwAt += kArcMemberHeaderSize + dwSize;
  }
}

void C_KArcImage::Z_CheckIndex(Reader& file, const std::vector<BYTE>& vIndex) {
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
    if (file.Size() < kArcMemberHeaderSize || dwOffset > file.Size() - kArcMemberHeaderSize) continue;
    BYTE bytes[kArcMemberHeaderSize];
    file.Read(dwOffset, bytes, kArcMemberHeaderSize);
    header.Assign(bytes);
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
    if (extent.second > file.Size()) {
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
  std::uint64_t qwSize = 0;
  std::int64_t llTime = 0;
  {
    // Opened as every read opens: no device, FIFO or file past 4 GiB.
    C_KArcSources sources;
    qwSize = sources.SizeOf(pszPath);
  }
  if (qwSize > 0xFFFFFFF0u) ThrowLibraryError(false, KE_OUT_OF_RANGE, pszPath);
  if (!ReadSymbols(pszPath, 0, qwSize, &member.vSymbols)) {
    // The object's own failure, with its words.
    C_KOfdELF4 object;
    object.AttachPath(pszPath, 0);
    object.Read();
  }
  member.bObject = true;
  member.sSource = pszPath;
  member.qwDataAt = 0;
  member.dwSize = static_cast<DWORD>(qwSize);
  platform::PathStatus(pszPath, &qwSize, &llTime);
  C_KArcMemberHeader header;
  header.Build(true, 0, static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(llTime))), 0,
               member.dwSize);
  member.vHeader.assign(header.GetBytes(), header.GetBytes() + kArcMemberHeaderSize);
  m_vMembers[dwIndex] = std::move(member);
}

void C_KArcImage::Rebuild(C_ReplacingFile& output) const {
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
    qwAt += kArcMemberHeaderSize + member.dwSize;
  }
  PutWord(vIndex, static_cast<DWORD>(vIndices.size()));
  for (DWORD dwMember : vIndices) PutWord(vIndex, dwMember);
  vIndex.insert(vIndex.end(), vSymbolNames.begin(), vSymbolNames.end());

  // Every member's file is looked at before the first byte is written.
  C_KArcSources sources;
  for (const S_KArcImageMember& member : m_vMembers) {
    const std::uint64_t qwSize = sources.SizeOf(member.sSource);
    if (member.qwDataAt > qwSize || member.dwSize > qwSize - member.qwDataAt) {
      platform::SetEndOfFileError();
      ThrowLibraryError(true, KE_READ_FAILED, member.sSource.c_str());
    }
  }
  C_KArcWriter writer(output.Handle(), 1024 * 1024);
  writer.StartWriteBackAsItGoes();
  const char* pszTarget = output.Target().c_str();
  writer.Put(kMagic, kMagicSize, pszTarget);
  C_KArcMemberHeader header;
  header.Build(false, 0, 0, 0, static_cast<DWORD>(vIndex.size()));
  writer.Put(header.GetBytes(), kArcMemberHeaderSize, pszTarget);
  if (!vIndex.empty()) writer.Put(vIndex.data(), static_cast<DWORD>(vIndex.size()), pszTarget);
  header.Build(false, 0, 0, 0, static_cast<DWORD>(vNames.size()));
  writer.Put(header.GetBytes(), kArcMemberHeaderSize, pszTarget);
  if (!vNames.empty()) writer.Put(vNames.data(), static_cast<DWORD>(vNames.size()), pszTarget);
  for (std::size_t m = 0; m < m_vMembers.size(); ++m) {
    const S_KArcImageMember& member = m_vMembers[m];
    header.Assign(member.vHeader.data());
    header.SetNameIndex(vNameAt[m]);
    header.SetSize(member.dwSize);
    BYTE bytes[kArcMemberHeaderSize];
    memcpy(bytes, header.GetBytes(), kArcMemberHeaderSize);
    bytes[58] = '\'';
    bytes[59] = '\n';
    writer.Put(bytes, kArcMemberHeaderSize, pszTarget);
    sources.Copy(member.sSource, member.qwDataAt, member.dwSize, writer, member.sSource.c_str());
  }
  writer.Flush();
  sources.Close();
}

void C_KArcImage::WriteMember(DWORD dwIndex, C_ReplacingFile& output) const {
  if (dwIndex >= m_vMembers.size()) ThrowLibraryError(false, KE_OUT_OF_RANGE, "when call C_KArcImage::WriteMember");
  const S_KArcImageMember& member = m_vMembers[dwIndex];
  C_KArcSources sources;
  C_KArcWriter writer(output.Handle(), 1024 * 1024);
  writer.StartWriteBackAsItGoes();
  sources.Copy(member.sSource, member.qwDataAt, member.dwSize, writer, member.sSource.c_str());
  writer.Flush();
  sources.Close();
}
