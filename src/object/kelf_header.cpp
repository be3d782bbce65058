#include "object/kelf_header.h"

#include <cstddef>
#include <cstring>

#include "frame/error.h"
#include "sections/section.h"
#include "sections/string_table.h"

namespace {

constexpr BYTE kDataBigEndian = 2;
constexpr DWORD kProgramTypeLoad = 1;
constexpr DWORD kIdentMagic0 = 0;
constexpr DWORD kIdentMagic1 = 1;
constexpr DWORD kIdentData = 5;

// The field at nOffset of a record the view holds whole.
template <class T>
T Field(const C_ByteView& view, std::size_t nOffset) {
  T value = 0;
  view.Read(static_cast<DWORD>(nOffset), &value);
  return value;
}

}  // namespace

// ---- Signature ---------------------------------------------------------------------------

HRESULT C_KElfSignature::Read(I_File* pFile, DWORD dwBase) {
  Clear();
  return GuardAllocation(*this, [&] {
    m_Ident = ReadFileRegion(pFile, dwBase, 0, kSignatureSize);
    if (m_Ident.IsEmpty()) ThrowLibraryError(true, KE_READ_FAILED, "When read signature");
    return S_OK;
  });
}

HRESULT C_KElfSignature::Clear() {
  m_Ident.Reset();
  return S_OK;
}

// Bytes 2 and 3 are left to the factory's probe, so a damaged "ELF" still opens as an object.
bool C_KElfSignature::IsInvalidSignature() {
  const C_ByteView view = m_Ident.View();
  return !view.Holds(0, kSignatureSize) || Field<BYTE>(view, kIdentMagic0) != 0x7F ||
         Field<BYTE>(view, kIdentMagic1) != 'E';
}

bool C_KElfSignature::IsNotBigEndian() {
  const C_ByteView view = m_Ident.View();
  return !view.Holds(0, kSignatureSize) || Field<BYTE>(view, kIdentData) != kDataBigEndian;
}

// ---- File header -------------------------------------------------------------------------

HRESULT C_KElfHeader::Read(I_File* pFile, DWORD dwBase) {
  m_pRecord.reset();
  if (m_Signature.Read(pFile, dwBase) != S_OK) {
    throw C_Exception(m_Signature.Code(), m_Signature.Message().c_str());
  }
  if (m_Signature.IsInvalidSignature()) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, "Invalid Signature");
  const HRESULT hr = GuardAllocation(*this, [&] {
    const C_Block block = ReadFileRegion(pFile, dwBase, 0, kFileHeaderSize);
    if (block.IsEmpty()) ThrowLibraryError(true, KE_READ_FAILED, "When read file header");
    m_pRecord.reset(new KEL_EHDR);
    memcpy(m_pRecord.get(), block.Data(), kFileHeaderSize);
    Z_TakeFields(block.View(!m_Signature.IsNotBigEndian()));
    return S_OK;
  });
  if (hr != S_OK) return hr;
  if (m_pRecord->e_version > kMaxFormatVersion) Z_Reject("Invalid format version");
  if (m_pRecord->e_ehsize != kFileHeaderSize) Z_Reject("Invalid header size");
  if (m_pRecord->e_shentsize != kSectionHeaderSize) Z_Reject("Invalid section header entry size");
  return S_OK;
}

void C_KElfHeader::Z_Reject(const char* pszWhy) {
  m_pRecord.reset();
  ThrowLibraryError(false, KE_CORRUPT_FILE, pszWhy);
}

void C_KElfHeader::Z_TakeFields(const C_ByteView& view) {
  KEL_EHDR& header = *m_pRecord;
  header.e_type = Field<WORD>(view, offsetof(KEL_EHDR, e_type));
  header.e_chip = Field<DWORD>(view, offsetof(KEL_EHDR, e_chip));
  header.e_version = Field<DWORD>(view, offsetof(KEL_EHDR, e_version));
  header.e_entry = Field<DWORD>(view, offsetof(KEL_EHDR, e_entry));
  header.e_phoff = Field<DWORD>(view, offsetof(KEL_EHDR, e_phoff));
  header.e_shoff = Field<DWORD>(view, offsetof(KEL_EHDR, e_shoff));
  header.e_flags = Field<DWORD>(view, offsetof(KEL_EHDR, e_flags));
  header.e_ehsize = Field<WORD>(view, offsetof(KEL_EHDR, e_ehsize));
  header.e_phentsize = Field<WORD>(view, offsetof(KEL_EHDR, e_phentsize));
  header.e_phnum = Field<WORD>(view, offsetof(KEL_EHDR, e_phnum));
  header.e_shentsize = Field<WORD>(view, offsetof(KEL_EHDR, e_shentsize));
  header.e_shnum = Field<WORD>(view, offsetof(KEL_EHDR, e_shnum));
  header.e_shstrndx = Field<WORD>(view, offsetof(KEL_EHDR, e_shstrndx));
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
  m_Block.Reset();
  if (m_dwCount == 0) return S_OK;
  return GuardAllocation(*this, [&] {
    // At most 65535 records, so the size cannot overflow; the file must hold all of them.
    m_Block = ReadFileRegion(pFile, dwBase, m_dwOffset, m_dwCount * static_cast<DWORD>(sizeof(T)));
    if (m_Block.IsEmpty()) ThrowLibraryError(true, KE_READ_FAILED, pszContext);
    return S_OK;
  });
}

// ---- Program headers ---------------------------------------------------------------------

HRESULT C_KElfProgramHeader::Read(I_File* pFile, DWORD dwBase) {
  m_vSegments.clear();
  return Y_ReadRecords(pFile, dwBase, "When read program header");
}

HRESULT C_KElfProgramHeader::Clear() {
  m_vSegments.clear();
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
    if (m_vSegments.empty()) m_vSegments.resize(Held());
    const KEL_PHDR& header = *Record(dwIndex);
    C_Block& segment = m_vSegments[dwIndex];
    segment = ReadFileRegion(pFile, dwBase, header.p_offset, header.p_filesz);
    if (segment.IsEmpty()) ThrowLibraryError(true, KE_READ_FAILED, "When read segment");
    return S_OK;
  });
}

HRESULT C_KElfProgramHeader::GetSegment(DWORD dwIndex, const BYTE** ppData, DWORD* pdwSize) {
  if (!ppData) return E_POINTER;
  if (dwIndex >= Held()) return RecordOutOfRange(*this);
  const C_Block* pSegment = m_vSegments.empty() ? nullptr : &m_vSegments[dwIndex];
  *ppData = pSegment ? pSegment->Data() : nullptr;
  if (pdwSize) *pdwSize = pSegment ? pSegment->Size() : 0;
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
