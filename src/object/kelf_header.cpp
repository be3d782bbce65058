#include "object/kelf_header.h"

#include <cstring>

#include "frame/error.h"
#include "sections/section.h"
#include "sections/string_table.h"

namespace {

constexpr BYTE kDataBigEndian = 2;
constexpr DWORD kProgramTypeLoad = 1;

WORD Swap16(WORD w) { return static_cast<WORD>((w >> 8) | (w << 8)); }
DWORD Swap32(DWORD dw) {
  return (dw >> 24) | ((dw >> 8) & 0xFF00u) | ((dw << 8) & 0xFF0000u) | (dw << 24);
}

}  // namespace

// ---- Signature ---------------------------------------------------------------------------

HRESULT C_KElfSignature::Read(I_File* pFile, DWORD dwBase) {
  Clear();
  return GuardAllocation(*this, [&] {
    BYTE* pIdent = ReadFileRegion(pFile, dwBase, 0, kSignatureSize);
    if (!pIdent) ThrowLibraryError(true, KE_READ_FAILED, "When read signature");
    m_pIdent.reset(pIdent);
    return S_OK;
  });
}

HRESULT C_KElfSignature::Clear() {
  m_pIdent.reset();
  return S_OK;
}

// Bytes 2 and 3 are left to the factory's probe, so a damaged "ELF" still opens as an object.
bool C_KElfSignature::IsInvalidSignature() {
  return !m_pIdent || m_pIdent[0] != 0x7F || m_pIdent[1] != 'E';
}

bool C_KElfSignature::IsNotBigEndian() { return !m_pIdent || m_pIdent[5] != kDataBigEndian; }

// ---- File header -------------------------------------------------------------------------

HRESULT C_KElfHeader::Read(I_File* pFile, DWORD dwBase) {
  m_pRecord.reset();
  if (m_Signature.Read(pFile, dwBase) != S_OK) {
    throw C_Exception(m_Signature.Code(), m_Signature.Message().c_str());
  }
  if (m_Signature.IsInvalidSignature()) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, "Invalid Signature");
  const HRESULT hr = GuardAllocation(*this, [&] {
    std::unique_ptr<BYTE[]> block(ReadFileRegion(pFile, dwBase, 0, kFileHeaderSize));
    if (!block) ThrowLibraryError(true, KE_READ_FAILED, "When read file header");
    m_pRecord.reset(new KEL_EHDR);
    memcpy(m_pRecord.get(), block.get(), kFileHeaderSize);
    return S_OK;
  });
  if (hr != S_OK) return hr;
  if (!m_Signature.IsNotBigEndian()) Z_ConvertFromBigEndian();
  if (m_pRecord->e_version > kMaxFormatVersion) Z_Reject("Invalid format version");
  if (m_pRecord->e_ehsize != kFileHeaderSize) Z_Reject("Invalid header size");
  if (m_pRecord->e_shentsize != kSectionHeaderSize) Z_Reject("Invalid section header entry size");
  return S_OK;
}

void C_KElfHeader::Z_Reject(const char* pszWhy) {
  m_pRecord.reset();
  ThrowLibraryError(false, KE_CORRUPT_FILE, pszWhy);
}

void C_KElfHeader::Z_ConvertFromBigEndian() {
  KEL_EHDR& header = *m_pRecord;
  header.e_type = Swap16(header.e_type);
  header.e_chip = Swap32(header.e_chip);
  header.e_version = Swap32(header.e_version);
  header.e_entry = Swap32(header.e_entry);
  header.e_phoff = Swap32(header.e_phoff);
  header.e_shoff = Swap32(header.e_shoff);
  header.e_flags = Swap32(header.e_flags);
  header.e_ehsize = Swap16(header.e_ehsize);
  header.e_phentsize = Swap16(header.e_phentsize);
  header.e_phnum = Swap16(header.e_phnum);
  header.e_shentsize = Swap16(header.e_shentsize);
  header.e_shnum = Swap16(header.e_shnum);
  header.e_shstrndx = Swap16(header.e_shstrndx);
}

HRESULT C_KElfHeader::Clear() {
  m_pRecord.reset();
  return m_Signature.Clear();
}

HRESULT C_KElfHeader::GetSignature(I_KElfSignature** ppSignature) {
  if (!ppSignature) return E_POINTER;
  *ppSignature = &m_Signature;
  return S_OK;
}

HRESULT C_KElfHeader::GetRecord(KEL_EHDR** ppRecord) {
  if (!ppRecord) return E_POINTER;
  *ppRecord = m_pRecord.get();
  return m_pRecord ? S_OK : E_POINTER;
}

// ---- Record tables -----------------------------------------------------------------------

template <class T, class Interface>
HRESULT C_KElfRecordTable<T, Interface>::Y_ReadRecords(I_File* pFile, DWORD dwBase, const char* pszContext) {
  m_pData.reset();
  if (m_dwCount == 0) return S_OK;
  return GuardAllocation(*this, [&] {
    // At most 65535 records, so the size cannot overflow; the file must hold all of them.
    m_pData.reset(ReadFileRegion(pFile, dwBase, m_dwOffset, m_dwCount * static_cast<DWORD>(sizeof(T))));
    if (!m_pData) ThrowLibraryError(true, KE_READ_FAILED, pszContext);
    return S_OK;
  });
}

// ---- Program headers ---------------------------------------------------------------------

HRESULT C_KElfProgramHeader::Read(I_File* pFile, DWORD dwBase) {
  m_pSegments.reset();
  return Y_ReadRecords(pFile, dwBase, "When read program header");
}

HRESULT C_KElfProgramHeader::Clear() {
  m_pSegments.reset();
  Y_Free();
  return S_OK;
}

HRESULT C_KElfProgramHeader::GetLoadableMemorySize(DWORD* pdwSize) {
  if (!pdwSize) return E_POINTER;
  DWORD dwSize = 0;
  for (DWORD i = 0; i < Held(); ++i) {
    if (Record(i)->p_type == kProgramTypeLoad) dwSize += Record(i)->p_memsz;
  }
  *pdwSize = dwSize;
  return S_OK;
}

HRESULT C_KElfProgramHeader::ReadSegment(I_File* pFile, DWORD dwBase, DWORD dwIndex) {
  if (dwIndex >= Held()) return RecordOutOfRange(*this);
  return GuardAllocation(*this, [&] {
    if (!m_pSegments) m_pSegments.reset(new Segment[Held()]);
    const KEL_PHDR& header = *Record(dwIndex);
    Segment& segment = m_pSegments[dwIndex];
    segment.pData.reset(ReadFileRegion(pFile, dwBase, header.p_offset, header.p_filesz));
    segment.dwSize = segment.pData ? header.p_filesz : 0;
    if (!segment.pData) ThrowLibraryError(true, KE_READ_FAILED, "When read segment");
    return S_OK;
  });
}

HRESULT C_KElfProgramHeader::GetSegment(DWORD dwIndex, const BYTE** ppData, DWORD* pdwSize) {
  if (!ppData) return E_POINTER;
  if (dwIndex >= Held()) return RecordOutOfRange(*this);
  const Segment* pSegment = m_pSegments ? &m_pSegments[dwIndex] : nullptr;
  *ppData = pSegment ? pSegment->pData.get() : nullptr;
  if (pdwSize) *pdwSize = pSegment ? pSegment->dwSize : 0;
  return S_OK;
}

// ---- Section headers ---------------------------------------------------------------------

HRESULT C_KElfSectionHeader::Read(I_File* pFile, DWORD dwBase) {
  return Y_ReadRecords(pFile, dwBase, "When read section header");
}

HRESULT C_KElfSectionHeader::Clear() {
  m_pStrings = nullptr;
  Y_Free();
  return S_OK;
}

HRESULT C_KElfSectionHeader::GetSectionName(DWORD dwIndex, const char** ppszName) {
  if (!ppszName) return E_POINTER;
  if (IsEmpty()) return E_POINTER;
  if (!m_pStrings) {
    *ppszName = nullptr;
    return E_POINTER;
  }
  if (dwIndex >= Held()) return RecordOutOfRange(*this);
  // The string table answers "" for a name offset outside it or a name without its NUL.
  *ppszName = m_pStrings->GetString(Record(dwIndex)->sh_name);
  return S_OK;
}
