#include "archive/link_member.h"

#include <cstring>

#include "frame/error.h"
#include "platform/platform.h"

namespace {

constexpr char kReadContext[] = "When read linker member";
constexpr char kWriteContext[] = "When write linker member";
constexpr char kListsContext[] = "When write member offsets or global symbols";
constexpr char kUpdateContext[] = "when call C_KArcLinkMember::Y_Update";

[[noreturn]] void ThrowShortData() {
  platform::SetEndOfFileError();
  ThrowLibraryError(true, KE_READ_FAILED, kReadContext);
}

// The count word at dwAt followed by that many words; false when the data cannot hold them.
bool ReadWords(const C_ByteView& data, DWORD* pdwAt, std::vector<DWORD>* pvWords) {
  DWORD dwCount = 0;
  if (!data.Read(*pdwAt, &dwCount)) return false;
  *pdwAt += 4;
  if (!data.HoldsEntries(*pdwAt, dwCount, 4)) return false;
  pvWords->resize(dwCount);
  for (DWORD i = 0; i < dwCount; ++i) data.Read(*pdwAt + 4 * i, &(*pvWords)[i]);
  *pdwAt += 4 * dwCount;
  return true;
}

// The count and the words in one block, as they are written.
std::vector<BYTE> CountedWords(const std::vector<DWORD>& vWords) {
  std::vector<BYTE> vBytes(4 * (vWords.size() + 1));
  StoreWord(vBytes.data(), static_cast<DWORD>(vWords.size()));
  for (std::size_t i = 0; i < vWords.size(); ++i) StoreWord(vBytes.data() + 4 * (i + 1), vWords[i]);
  return vBytes;
}

}  // namespace

HRESULT C_KArcLinkMember::Read(I_File* pFile, DWORD dwOffset) {
  C_KArcReadWindow window(pFile, kArcMemberHeaderSize);
  return Read(window, dwOffset);
}

HRESULT C_KArcLinkMember::Read(C_KArcReadWindow& window, DWORD dwOffset) {
  m_bValid = false;
  const C_Block data = m_Header.ReadWithData(window, dwOffset);
  Z_Parse(data.View());
  m_bValid = true;
  return S_OK;
}

void C_KArcLinkMember::Z_Parse(const C_ByteView& data) {
  m_vOffsets.clear();
  m_vMemberIndices.clear();
  m_sNameBytes.clear();
  m_vNameAt.clear();
  m_bIndexed = false;
  if (!data.Read(0, &m_dwVersion)) ThrowShortData();
  DWORD dwAt = 4;
  if (!ReadWords(data, &dwAt, &m_vOffsets) || !ReadWords(data, &dwAt, &m_vMemberIndices)) ThrowShortData();
  // The names fill the rest; the last one may lack its NUL, and is then taken to the end.
  const C_ByteView names = data.Rest(dwAt);
  m_sNameBytes.assign(reinterpret_cast<const char*>(names.Data()), names.Size());
  for (DWORD dwName = 0; dwName < names.Size();) {
    m_vNameAt.push_back(dwName);
    const char* pszName = names.CString(dwName);
    if (!pszName) {
      m_sNameBytes.push_back('\0');
      break;
    }
    dwName += static_cast<DWORD>(strlen(pszName)) + 1;
  }
}

HRESULT C_KArcLinkMember::Write(I_File* pFile) {
  C_KArcWriter writer(pFile, 0);
  return Write(writer);
}

HRESULT C_KArcLinkMember::Write(C_KArcWriter& writer) {
  m_Header.Write(writer, kWriteContext);
  BYTE version[4];
  StoreWord(version, m_dwVersion);
  writer.Put(version, sizeof version, kWriteContext);
  const std::vector<BYTE> vOffsets = CountedWords(m_vOffsets);
  writer.Put(vOffsets.data(), static_cast<DWORD>(vOffsets.size()), kListsContext);
  const std::vector<BYTE> vIndices = CountedWords(m_vMemberIndices);
  writer.Put(vIndices.data(), static_cast<DWORD>(vIndices.size()), kListsContext);
  // Every name with its NUL, gathered into one write.
  std::string sNames;
  sNames.reserve(m_sNameBytes.size());
  for (DWORD i = 0; i < GetNameCount(); ++i) sNames.append(GetSymbolName(i), strlen(GetSymbolName(i)) + 1);
  writer.Put(sNames.data(), static_cast<DWORD>(sNames.size()), kListsContext);
  return S_OK;
}

void C_KArcLinkMember::Reset(DWORD dwVersion) {
  m_dwVersion = dwVersion;
  m_vOffsets.clear();
  m_vMemberIndices.clear();
  m_sNameBytes.clear();
  m_vNameAt.clear();
  m_bIndexed = false;
  m_Header.BuildSpecial(static_cast<DWORD>(DataSize()));
  m_bValid = true;
}

const char* C_KArcLinkMember::GetSymbolName(DWORD dwIndex) const {
  return dwIndex < m_vNameAt.size() ? m_sNameBytes.c_str() + m_vNameAt[dwIndex] : "";
}

bool C_KArcLinkMember::GetSymbolMember(DWORD dwIndex, DWORD* pdwMember) const {
  if (dwIndex >= m_vMemberIndices.size()) return false;
  *pdwMember = m_vMemberIndices[dwIndex];
  return true;
}

void C_KArcLinkMember::Z_Place(DWORD dwIndex, DWORD dwHash) {
  // A name listed before keeps its first position.
  m_Slots.FindOrAdd(dwIndex, dwHash, [this](DWORD dwName) { return GetSymbolName(dwName); });
}

void C_KArcLinkMember::Z_Index() {
  if (m_bIndexed) return;
  m_Slots.Clear();
  m_Slots.Reserve(m_vNameAt.size(), [this](DWORD dwName) { return GetSymbolName(dwName); });
  m_bIndexed = true;
  for (DWORD i = 0; i < m_vNameAt.size(); ++i) Z_Place(i, HashName(GetSymbolName(i)));
}

long C_KArcLinkMember::FindSymbol(const char* pszName) {
  if (!pszName) return -1;
  Z_Index();
  return m_Slots.Find(pszName, HashName(pszName), [this](DWORD dwName) { return GetSymbolName(dwName); });
}

std::uint64_t C_KArcLinkMember::DataSize() const {
  std::uint64_t qwSize = 12 + 4 * static_cast<std::uint64_t>(m_vOffsets.size() + m_vMemberIndices.size());
  for (DWORD i = 0; i < GetNameCount(); ++i) qwSize += strlen(GetSymbolName(i)) + 1;
  return qwSize;
}

DWORD C_KArcLinkMember::Y_GetOffsetAt(DWORD dwIndex) {
  if (dwIndex >= m_vOffsets.size()) ThrowLibraryError(false, KE_OUT_OF_RANGE, "when call C_KArcLinkMember::Y_GetOffsetAt");
  return m_vOffsets[dwIndex];
}

DWORD C_KArcLinkMember::Y_Update(DWORD dwNameMemberSize, const std::vector<DWORD>& vMemberSizes) {
  if (m_vOffsets.size() < vMemberSizes.size()) ThrowLibraryError(false, KE_OUT_OF_RANGE, kUpdateContext);
  std::uint64_t qwAt = 8 + (kArcMemberHeaderSize + static_cast<std::uint64_t>(m_Header.GetSize())) +
                       (kArcMemberHeaderSize + static_cast<std::uint64_t>(dwNameMemberSize));
  // Offsets past the member list (a damaged index) all take the position after the last.
  for (DWORD i = 0; i < m_vOffsets.size(); ++i) {
    if (qwAt > 0xFFFFFFFFu) return i;
    m_vOffsets[i] = static_cast<DWORD>(qwAt);
    if (i < vMemberSizes.size()) qwAt += kArcMemberHeaderSize + static_cast<std::uint64_t>(vMemberSizes[i]);
  }
  return static_cast<DWORD>(m_vOffsets.size());
}

void C_KArcLinkMember::Z_AppendName(const char* pszName, std::size_t nLength) {
  const DWORD dwAt = static_cast<DWORD>(m_sNameBytes.size());
  m_sNameBytes.append(pszName, nLength + 1);
  m_vNameAt.push_back(dwAt);
  if (m_bIndexed) Z_Place(static_cast<DWORD>(m_vNameAt.size() - 1), HashName(pszName));
}

void C_KArcLinkMember::Z_EraseName(DWORD dwIndex) {
  if (dwIndex >= m_vNameAt.size()) return;
  // The bytes stay in the block; only the name's place in the list goes.
  m_vNameAt.erase(m_vNameAt.begin() + dwIndex);
  m_bIndexed = false;
}

void C_KArcLinkMember::Z_AddSym(const char* pszName, DWORD dwMember) {
  if (!pszName) ThrowLibraryError(false, E_INVALIDARG, "when call C_KArcLinkMember::Z_AddSym");
  m_vMemberIndices.push_back(dwMember);
  Z_AppendName(pszName, strlen(pszName));
}

void C_KArcLinkMember::Z_RemoveMember(DWORD dwMember) {
  for (DWORD i = 0; i < m_vMemberIndices.size(); ++i) {
    const DWORD dwIndex = m_vMemberIndices[i];
    if (dwIndex == dwMember) {
      // The entry that moves into place i is passed over: i advances all the same.
      m_vMemberIndices.erase(m_vMemberIndices.begin() + i);
      Z_EraseName(i);
    } else if (dwIndex > dwMember) {
      m_vMemberIndices.assign(i, dwIndex - 1);
      break;
    }
  }
}

void C_KArcLinkMember::Z_DeleteMember(DWORD dwMember) {
  std::vector<DWORD> vIndices, vNameAt;
  for (DWORD i = 0; i < GetSymbolCount(); ++i) {
    const DWORD dwIndex = m_vMemberIndices[i];
    const bool bNamed = i < GetNameCount();
    if (dwIndex == dwMember) continue;
    vIndices.push_back(dwIndex > dwMember ? dwIndex - 1 : dwIndex);
    if (bNamed) vNameAt.push_back(m_vNameAt[i]);
  }
  // Names that a damaged index holds beyond its member indices stay as they are.
  for (DWORD i = GetSymbolCount(); i < GetNameCount(); ++i) vNameAt.push_back(m_vNameAt[i]);
  m_vMemberIndices.swap(vIndices);
  m_vNameAt.swap(vNameAt);
  m_bIndexed = false;
}

void C_KArcLinkMember::Z_MergeOffsets(const std::vector<DWORD>& vMemberOf, DWORD dwMembers) {
  const DWORD dwListed = static_cast<DWORD>(m_vOffsets.size());
  std::vector<DWORD> vOffsets;
  vOffsets.reserve(dwMembers);
  for (DWORD i = 0; i < dwListed && i < vMemberOf.size(); ++i) {
    if (vMemberOf[i] == vOffsets.size()) vOffsets.push_back(m_vOffsets[i]);
  }
  // A member index that names no member goes on naming none.
  for (DWORD& dwMember : m_vMemberIndices) {
    dwMember = dwMember < vMemberOf.size() ? vMemberOf[dwMember] : dwMember - (dwListed - dwMembers);
  }
  m_Header.SetSize(m_Header.GetSize() - 4 * (dwListed - static_cast<DWORD>(vOffsets.size())));
  m_vOffsets.swap(vOffsets);
}
