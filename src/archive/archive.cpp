#include "archive/archive.h"

#include <cstring>
#include <map>
#include <set>

#include "frame/error.h"
#include "frame/fileio.h"
#include "frame/replacing_file.h"
#include "frame/text.h"
#include "object/kofd_elf.h"
#include "platform/platform.h"
#include "sections/symbol_table.h"

namespace {

constexpr char kMagic[] = "!<arch>\n";
constexpr DWORD kMagicSize = 8;
// Version word of the linker member of a new archive.
constexpr DWORD kNewVersion = 1;
// Opening reads headers scattered over the file; saving copies the members through one buffer.
constexpr DWORD kHeaderWindow = 64 * 1024;
constexpr DWORD kWriteBuffer = 1024 * 1024;

// Runs body on an open file and closes the file if body throws.
template <class Body>
void ClosingOnFailure(C_File& file, Body&& body) {
  try {
    body();
  } catch (...) {
    file.C_File::Close();
    throw;
  }
}

// An allocation failure caught by GuardAllocation is thrown on as the recorded exception.
void ThrowIfRecorded(HRESULT hr, const C_Exception& record) {
  if (hr < 0) throw C_Exception(record.Code(), record.Message().c_str());
}

}  // namespace

HRESULT CollectDefinedGlobals(I_KOfdELF* pDocument, std::vector<std::string>* pvNames) {
  if (!pDocument || !pvNames) return E_POINTER;
  I_KOfdSymbolTable* pTable = nullptr;
  pDocument->GetSymbolTable(&pTable);
  C_KOfdSymbolTable* pSymbols = dynamic_cast<C_KOfdSymbolTable*>(pTable);
  if (!pSymbols) return S_OK;
  DWORD dwFirst = 0, dwCount = 0;
  pSymbols->GetFirstGlobal(&dwFirst);
  pSymbols->GetSymbolCount(&dwCount);
  for (DWORD i = dwFirst; i < dwCount; ++i) {
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    if (pSymbols->GetSymbolAt(i, &pszName, &pSymbol) != S_OK || IsUndefinedSection(pSymbol->st_shndx)) continue;
    pvNames->push_back(pszName);
  }
  return S_OK;
}

C_KOfdArchive::~C_KOfdArchive() { Z_DestroyMembers(); }

void C_KOfdArchive::Z_DestroyMembers() {
  for (C_KArcObjectMember* pMember : m_vMembers) pMember->Destroy();
  m_vMembers.clear();
}

C_KArcObjectMember& C_KOfdArchive::Z_AppendMember() {
  // Room first, so that a failed allocation leaves nothing behind.
  if (m_vMembers.size() == m_vMembers.capacity()) m_vMembers.reserve(m_vMembers.empty() ? 16 : 2 * m_vMembers.size());
  m_vMembers.push_back(new C_KArcObjectMember);
  m_vMembers.back()->SetBudget(&m_Budget);
  return *m_vMembers.back();
}

long C_KOfdArchive::Z_FindMember(const char* pszName) const {
  if (!pszName) return -1;
  for (std::size_t i = 0; i < m_vMembers.size(); ++i) {
    if (kofd_text::EqualIgnoringCase(m_vMembers[i]->GetName(), pszName)) return static_cast<long>(i);
  }
  return -1;
}

// ---- Opening ------------------------------------------------------------------------------

HRESULT C_KOfdArchive::Open() {
  const HRESULT hrOpen = C_File::Open(1);
  if (hrOpen != S_OK && hrOpen != S_FALSE) ThrowLibraryError(true, KE_OPEN_FAILED, GetPath());
  ClosingOnFailure(*this, [&] {
    ThrowIfRecorded(GuardAllocation(*this, [&] {
      Z_DestroyMembers();
      m_NameMember.m_sBuffer.clear();
      char magic[kMagicSize] = {0};
      if (SeekFileTo(GetHandle(), 0) != S_OK || ReadFileBlock(GetHandle(), magic, kMagicSize, 1) != S_OK) {
        ThrowLibraryError(true, KE_READ_FAILED, GetPath());
      }
      if (memcmp(magic, kMagic, kMagicSize) != 0) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, GetPath());

      C_KArcReadWindow window(this, kHeaderWindow);
      m_LinkMember.Read(window, kMagicSize);
      // Every member takes a header's worth of the file at least: more offsets than that cannot
      // name members, and would only make us build objects the file does not hold.
      std::uint64_t qwFileSize = 0;
      platform::FileSize(GetHandle(), &qwFileSize);
      if (m_LinkMember.GetObjectCount() > qwFileSize / kArcMemberHeaderSize) {
        platform::SetEndOfFileError();
        ThrowLibraryError(true, KE_READ_FAILED, "When read linker member");
      }
      const std::uint64_t qwNameAt = kMagicSize + kArcMemberHeaderSize + static_cast<std::uint64_t>(m_LinkMember.GetSize());
      if (qwNameAt > 0xFFFFFFFFu) {
        platform::SetEndOfFileError();
        ThrowLibraryError(true, KE_READ_FAILED, "When read linker member");
      }
      m_NameMember.Read(window, static_cast<DWORD>(qwNameAt));

      m_Budget.Reset(GetPath(), qwFileSize);
      // An offset listed again names the member already read there: one member, read once.
      std::map<DWORD, DWORD> memberAt;
      std::vector<DWORD> vMemberOf(m_LinkMember.GetObjectCount());
      for (DWORD i = 0; i < m_LinkMember.GetObjectCount(); ++i) {
        const DWORD dwOffset = m_LinkMember.Y_GetOffsetAt(i);
        const auto listed = memberAt.emplace(dwOffset, MemberCount());
        vMemberOf[i] = listed.first->second;
        if (!listed.second) continue;
        C_KArcObjectMember& member = Z_AppendMember();
        member.Read(window, GetPath(), dwOffset);
        m_NameMember.Y_GetAt(member.GetNameIndex());
        member.SetName(&m_NameMember, member.GetNameIndex());
      }
      m_bMerged = MemberCount() < m_LinkMember.GetObjectCount();
      if (m_bMerged) m_LinkMember.Z_MergeOffsets(vMemberOf, MemberCount());
      return S_OK;
    }), *this);
  });
  if (C_File::Close() != S_OK) ThrowLibraryError(true, KE_CLOSE_FAILED, GetPath());
  return S_OK;
}

HRESULT C_KOfdArchive::Create() {
  Z_DestroyMembers();
  m_bMerged = false;
  m_LinkMember.Reset(kNewVersion);
  m_NameMember.Clear();
  return S_OK;
}

// ---- Symbols ------------------------------------------------------------------------------

HRESULT C_KOfdArchive::FindSymbolMember(const char* pszName, long* plMember) {
  if (!plMember) return E_POINTER;
  *plMember = -1;
  const long lSymbol = m_LinkMember.FindSymbol(pszName);
  DWORD dwMember = 0;
  if (lSymbol >= 0 && m_LinkMember.GetSymbolMember(static_cast<DWORD>(lSymbol), &dwMember)) {
    *plMember = static_cast<long>(dwMember);
  }
  return S_OK;
}

void C_KOfdArchive::FindSymbol(const char* pszName, I_KArcSymbolCallback* pCallback) {
  long lMember = -1;
  if (!pCallback || !pszName) return;
  FindSymbolMember(pszName, &lMember);
  // A member index that names no member is as good as none.
  if (lMember < 0 || static_cast<unsigned long>(lMember) >= m_vMembers.size()) return;
  DWORD values[4] = {0, 0, 0xFFFFFFFFu, 0xFFFFFFFFu};
  I_KOfdELF* pDocument = nullptr;
  I_KOfdSymbolTable* pSymbols = nullptr;
  ELF32_SYM* pSymbol = nullptr;
  m_vMembers[static_cast<std::size_t>(lMember)]->GetDocument(&pDocument);
  if (pDocument->GetSymbolTable(&pSymbols) == S_OK && pSymbols && pSymbols->FindSymbol(pszName, &pSymbol) == S_OK &&
      pSymbol) {
    values[0] = pSymbol->st_shndx;
    values[1] = pSymbol->st_info;
    values[2] = pSymbol->st_value;
    values[3] = pSymbol->st_size;
  }
  pCallback->OnSymbol(values[0], values[1], values[2], values[3], 0);
}

void C_KOfdArchive::FindSymbol(const char* pszName, I_Unknown* pCallback) {
  FindSymbol(pszName, dynamic_cast<I_KArcSymbolCallback*>(pCallback));
}

// ---- Changing -----------------------------------------------------------------------------

HRESULT C_KOfdArchive::Add(const char* pszPath, DWORD dwAttribute) {
  return GuardAllocation(*this, [&]() -> HRESULT {
    C_KOfdELF object;
    object.AttachPath(pszPath, dwAttribute);
    object.Read();
    std::vector<std::string> vNames;
    CollectDefinedGlobals(&object, &vNames);

    const DWORD dwNewMember = m_LinkMember.GetObjectCount();
    m_LinkMember.m_vOffsets.push_back(0);
    // Every definition is listed, also of a name other members define: the lookup answers the
    // first member in archive order. A name the object defines twice is listed once.
    std::set<std::string> seen;
    DWORD dwGrowth = 4;
    for (const std::string& sName : vNames) {
      if (!seen.insert(sName).second) continue;
      m_LinkMember.Z_AddSym(sName.c_str(), dwNewMember);
      dwGrowth += 4 + static_cast<DWORD>(sName.size()) + 1;
    }
    m_LinkMember.GetHeader().BuildSpecial(m_LinkMember.GetSize() + dwGrowth);

    C_KArcObjectMember& member = Z_AppendMember();
    const DWORD dwNameIndex = m_NameMember.Append(pszPath);
    member.SetName(&m_NameMember, dwNameIndex);
    member.SetSource(pszPath, 0);

    std::uint64_t qwSize = 0;
    std::int64_t llTime = 0;
    if (!platform::PathStatus(pszPath, &qwSize, &llTime) || qwSize > 0xFFFFFFFFu) return E_FAIL;
    const std::int32_t lDate = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(llTime)));
    member.GetHeader().Build(true, dwNameIndex, lDate, 0, static_cast<DWORD>(qwSize));
    Z_PlaceMembers();
    return S_OK;
  });
}

HRESULT C_KOfdArchive::Remove(const char* pszName) {
  const long lMember = Z_FindMember(pszName);
  if (lMember < 0) ThrowLibraryError(false, E_POINTER, "pMember at C_KOfdArchive::Remove");
  const DWORD dwLinkSize = m_LinkMember.GetSize();
  std::vector<DWORD>& vOffsets = m_LinkMember.m_vOffsets;
  const DWORD dwOffset = m_vMembers[static_cast<std::size_t>(lMember)]->GetOffset();
  DWORD p = 0;
  while (p < vOffsets.size() && vOffsets[p] != dwOffset) ++p;
  if (p == vOffsets.size()) return E_FAIL;
  m_LinkMember.Z_RemoveMember(p);
  vOffsets.erase(vOffsets.begin() + p);
  m_LinkMember.GetHeader().BuildSpecial(dwLinkSize - 4);
  return S_OK;
}

HRESULT C_KOfdArchive::Delete(const char* pszName) {
  const long lMember = Z_FindMember(pszName);
  if (lMember < 0) ThrowLibraryError(false, E_POINTER, "pMember at C_KOfdArchive::Delete");
  return GuardAllocation(*this, [&] {
    const DWORD dwMember = static_cast<DWORD>(lMember);
    std::vector<DWORD>& vOffsets = m_LinkMember.m_vOffsets;
    if (dwMember < vOffsets.size()) vOffsets.erase(vOffsets.begin() + dwMember);
    m_LinkMember.Z_DeleteMember(dwMember);
    const DWORD dwNameAt = m_vMembers[dwMember]->GetNameOffset();
    m_vMembers[dwMember]->Destroy();
    m_vMembers.erase(m_vMembers.begin() + dwMember);
    Z_EraseName(dwNameAt);
    m_NameMember.GetHeader().BuildSpecial(m_NameMember.GetLength());
    m_LinkMember.GetHeader().BuildSpecial(static_cast<DWORD>(m_LinkMember.DataSize()));
    Z_PlaceMembers();
    return S_OK;
  });
}

void C_KOfdArchive::Z_EraseName(DWORD dwNameAt) {
  std::string& sNames = m_NameMember.m_sBuffer;
  if (dwNameAt >= sNames.size()) return;
  const DWORD dwEnd = static_cast<DWORD>(strlen(sNames.c_str() + dwNameAt)) + dwNameAt + 1;
  // A name that begins after the last NUL before the erased one runs into it: such a name, or
  // one that begins inside it, shares its bytes, which then stay.
  const std::size_t nLastNul = sNames.rfind('\0', dwNameAt == 0 ? std::string::npos : dwNameAt - 1);
  const DWORD dwShared = dwNameAt == 0 || nLastNul == std::string::npos ? 0 : static_cast<DWORD>(nLastNul) + 1;
  for (C_KArcObjectMember* pMember : m_vMembers) {
    if (pMember->GetNameOffset() >= dwShared && pMember->GetNameOffset() < dwEnd) return;
  }
  const DWORD dwErased = (dwEnd < sNames.size() ? dwEnd : static_cast<DWORD>(sNames.size())) - dwNameAt;
  sNames.erase(dwNameAt, dwErased);
  // The names behind move up; their members' Name Index follows, every other header byte stays.
  for (C_KArcObjectMember* pMember : m_vMembers) {
    if (pMember->GetNameOffset() < dwEnd) continue;
    const DWORD dwMoved = pMember->GetNameOffset() - dwErased;
    pMember->SetName(&m_NameMember, dwMoved);
    pMember->GetHeader().SetNameIndex(dwMoved);
  }
}

void C_KOfdArchive::Z_PlaceMembers() {
  std::vector<DWORD> vSizes;
  vSizes.reserve(m_vMembers.size());
  for (C_KArcObjectMember* pMember : m_vMembers) vSizes.push_back(pMember->GetSize());
  const DWORD dwPlaced = m_LinkMember.Y_Update(m_NameMember.GetSize(), vSizes);
  for (DWORD i = 0; i < dwPlaced && i < vSizes.size(); ++i) m_vMembers[i]->SetOffset(m_LinkMember.m_vOffsets[i]);
  if (dwPlaced < m_LinkMember.GetObjectCount()) {
    ThrowLibraryError(false, KE_OUT_OF_RANGE, "when call C_KArcLinkMember::Y_Update");
  }
}

// ---- Writing ------------------------------------------------------------------------------

void C_KOfdArchive::Z_CheckSources(C_KArcSources& sources) {
  for (C_KArcObjectMember* pMember : m_vMembers) pMember->CheckSource(sources);
  // The offsets of merged listings are those of the file read; the file written lays the
  // members out anew, and its index must say where.
  if (m_bMerged) {
    Z_PlaceMembers();
    m_bMerged = false;
  }
}

std::vector<std::uint64_t> C_KOfdArchive::Z_Write(HANDLE hFile, const char* pszName, C_KArcSources& sources) {
  C_KArcWriter writer(hFile, kWriteBuffer);
  writer.StartWriteBackAsItGoes();
  writer.Put(kMagic, kMagicSize, pszName);
  m_LinkMember.Write(writer);
  m_NameMember.Write(writer);
  // As many members as the linker member lists, whatever the member list holds.
  std::uint64_t qwAt = kMagicSize + kArcMemberHeaderSize + m_LinkMember.DataSize() + kArcMemberHeaderSize +
                       m_NameMember.GetLength();
  std::vector<std::uint64_t> vDataAt;
  vDataAt.reserve(m_LinkMember.GetObjectCount() < m_vMembers.size() ? m_LinkMember.GetObjectCount() : m_vMembers.size());
  for (DWORD i = 0; i < m_LinkMember.GetObjectCount(); ++i) {
    if (i >= m_vMembers.size()) {
      writer.Flush();
      ThrowLibraryError(false, KE_OUT_OF_RANGE, "invalid vector subscript");
    }
    C_KArcObjectMember& member = *m_vMembers[i];
    member.WriteCopying(writer, sources);
    vDataAt.push_back(qwAt + kArcMemberHeaderSize);
    qwAt += kArcMemberHeaderSize + member.GetSize();
  }
  writer.Flush();
  return vDataAt;
}

HRESULT C_KOfdArchive::Save() {
  C_ReplacingFile output(GetPath());
  return SaveTo(output);
}

HRESULT C_KOfdArchive::SaveAs(const char* pszPath) {
  if (!pszPath) return E_POINTER;
  C_ReplacingFile output(pszPath);
  return SaveTo(output);
}

HRESULT C_KOfdArchive::SaveTo(C_ReplacingFile& output) {
  if (GetHandle() && C_File::Close() != S_OK) ThrowLibraryError(true, KE_CLOSE_FAILED, GetPath());
  // The bytes of members not held are copied from their files (the old archive among them,
  // which the output keeps locked) as the new file is written, a block at a time; every file is
  // looked at before the first byte is written, and closed before the rename.
  C_KArcSources sources;
  ThrowIfRecorded(GuardAllocation(*this, [&] {
    Z_CheckSources(sources);
    return S_OK;
  }), *this);
  const std::vector<std::uint64_t> vDataAt = Z_Write(output.Handle(), output.Target().c_str(), sources);
  sources.Close();
  output.Commit();
  // The members written over the document's own file are read from their new places from now on.
  if (output.Target() == GetPath()) {
    for (std::size_t i = 0; i < vDataAt.size(); ++i) {
      m_vMembers[i]->SetSource(GetPath(), vDataAt[i]);
      m_vMembers[i]->MarkCharged();
    }
  }
  return S_OK;
}

HRESULT C_KOfdArchive::Close() {
  m_NameMember.m_sBuffer.clear();
  Z_DestroyMembers();
  C_File::Close();
  return S_OK;
}

// ---- Access -------------------------------------------------------------------------------

HRESULT C_KOfdArchive::GetMemberCount(DWORD* pdwCount) {
  if (!pdwCount) return E_POINTER;
  *pdwCount = MemberCount();
  return S_OK;
}

HRESULT C_KOfdArchive::GetMember(DWORD dwIndex, I_KArcObjectMember** ppMember) {
  if (!ppMember) return E_POINTER;
  if (dwIndex >= m_vMembers.size()) return RecordOutOfRange(*this);
  *ppMember = m_vMembers[dwIndex];
  return S_OK;
}

HRESULT C_KOfdArchive::FindMember(const char* pszName, DWORD* pdwIndex) {
  if (!pdwIndex) return E_POINTER;
  const long lMember = Z_FindMember(pszName);
  if (lMember < 0) return E_FAIL;
  *pdwIndex = static_cast<DWORD>(lMember);
  return S_OK;
}

HRESULT C_KOfdArchive::GetLinkMember(C_KArcLinkMember** ppMember) {
  if (!ppMember) return E_POINTER;
  *ppMember = &m_LinkMember;
  return S_OK;
}

HRESULT C_KOfdArchive::GetNameMember(C_KArcNameMember** ppMember) {
  if (!ppMember) return E_POINTER;
  *ppMember = &m_NameMember;
  return S_OK;
}
