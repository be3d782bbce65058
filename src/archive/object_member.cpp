#include "archive/object_member.h"

#include <typeinfo>

#include "frame/error.h"
#include "object/kofd_elf.h"
#include "platform/platform.h"

void C_KArcObjectMember::DocumentDeleter::operator()(C_KOfdELF4* pDocument) const { pDocument->Destroy(); }

C_KArcObjectMember::C_KArcObjectMember() = default;

C_KArcObjectMember::~C_KArcObjectMember() = default;

const char* C_KArcObjectMember::GetName() {
  return m_pNames && m_dwNameAt < m_pNames->GetLength() ? m_pNames->GetData() + m_dwNameAt : "";
}

HRESULT C_KArcObjectMember::Read(C_KArcReadWindow& window, const char* pszArchive, DWORD dwOffset) {
  m_Header.Read(window, dwOffset);
  m_dwOffset = dwOffset;
  SetSource(pszArchive, static_cast<std::uint64_t>(dwOffset) + kArcMemberHeaderSize);
  return S_OK;
}

HRESULT C_KArcObjectMember::Write(I_File* pFile) {
  C_KArcWriter writer(pFile, 0);
  return Write(writer);
}

HRESULT C_KArcObjectMember::Write(C_KArcWriter& writer) {
  m_Header.Write(writer, "While writing object member");
  if (!m_Data.IsEmpty()) writer.Put(m_Data.Data(), GetSize(), "While writing object member");
  return S_OK;
}

void C_KArcObjectMember::SetSource(const char* pszPath, std::uint64_t qwDataAt) {
  m_sSource = pszPath ? pszPath : "";
  m_qwDataAt = qwDataAt;
}

namespace {

ContextText ReadContext() { return FormatContext("When read %s", DisplayTypeName(typeid(C_KArcObjectMember)).c_str()); }

}  // namespace

void C_KArcObjectMember::Z_Charge() {
  if (m_bCharged || !m_pBudget) return;
  if (!m_pBudget->Take(m_sSource, GetSize())) {
    platform::SetEndOfFileError();
    ThrowLibraryError(true, KE_READ_FAILED, ReadContext().text);
  }
  m_bCharged = true;
}

void C_KArcObjectMember::CheckSource(C_KArcSources& sources) {
  if (IsLoaded()) return;
  const std::uint64_t qwFileSize = sources.SizeOf(m_sSource);
  if (m_qwDataAt > qwFileSize || GetSize() > qwFileSize - m_qwDataAt) {
    platform::SetEndOfFileError();
    ThrowLibraryError(true, KE_READ_FAILED, m_sSource.c_str());
  }
  Z_Charge();
}

void C_KArcObjectMember::WriteCopying(C_KArcWriter& writer, C_KArcSources& sources) {
  m_Header.Write(writer, "While writing object member");
  if (IsLoaded()) {
    writer.Put(m_Data.Data(), GetSize(), "While writing object member");
    return;
  }
  sources.Copy(m_sSource, m_qwDataAt, GetSize(), writer, m_sSource.c_str());
}

void C_KArcObjectMember::Load(C_KArcReadWindow* pWindow) {
  if (!m_Data.IsEmpty()) return;
  const DWORD dwSize = GetSize();
  const ContextText context = ReadContext();
  // A window over another file is no use: the bytes are then read from their own file.
  C_File file;
  C_KArcReadWindow own(&file, 0);
  C_KArcReadWindow* pReader = pWindow;
  if (!pReader || m_sSource != pReader->File()->GetPath()) {
    file.Attach(m_sSource.c_str(), m_sSource.c_str(), 0, 0, 0);
    if (file.Open(1) != S_OK) ThrowLibraryError(true, KE_OPEN_FAILED, m_sSource.c_str());
    pReader = &own;
  }
  // Nothing is allocated for bytes the file does not hold.
  if (!pReader->Holds(m_qwDataAt, dwSize)) ThrowLibraryError(true, KE_READ_FAILED, context.text);
  Z_Charge();
  C_Block data(dwSize);
  if (!pReader->ReadAt(m_qwDataAt, data.Data(), dwSize)) ThrowLibraryError(true, KE_READ_FAILED, context.text);
  m_Data = std::move(data);
}

HRESULT C_KArcObjectMember::GetData(const BYTE** ppData, DWORD* pdwSize) {
  if (!ppData || !pdwSize) return E_POINTER;
  Load(nullptr);
  *ppData = m_Data.Data();
  *pdwSize = GetSize();
  return S_OK;
}

HRESULT C_KArcObjectMember::GetDocument(I_KOfdELF** ppDocument) {
  if (!ppDocument) return E_POINTER;
  if (!m_pDocument) {
    // The object is read where it lies, its offsets taken from the first byte of the member.
    if (m_qwDataAt > 0xFFFFFFFFu) ThrowLibraryError(false, KE_OUT_OF_RANGE, "m_qwDataAt at C_KArcObjectMember::GetDocument");
    Z_Charge();
    std::unique_ptr<C_KOfdELF4, DocumentDeleter> pDocument(new C_KOfdELF4);
    pDocument->AttachPath(m_sSource.c_str(), 0);
    pDocument->SetBaseOffset(static_cast<DWORD>(m_qwDataAt));
    pDocument->SetExtent(GetSize());
    pDocument->Read();
    m_pDocument = std::move(pDocument);
  }
  *ppDocument = m_pDocument.get();
  return S_OK;
}
