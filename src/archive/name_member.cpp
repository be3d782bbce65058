#include "archive/name_member.h"

#include <cstring>

#include "frame/error.h"

HRESULT C_KArcNameMember::Read(I_File* pFile, DWORD dwOffset) {
  C_KArcReadWindow window(pFile, kArcMemberHeaderSize);
  return Read(window, dwOffset);
}

HRESULT C_KArcNameMember::Read(C_KArcReadWindow& window, DWORD dwOffset) {
  m_bValid = false;
  const C_Block data = m_Header.ReadWithData(window, dwOffset);
  m_sBuffer.append(reinterpret_cast<const char*>(data.Data()), data.Size());
  m_bValid = true;
  return S_OK;
}

HRESULT C_KArcNameMember::Write(I_File* pFile) {
  C_KArcWriter writer(pFile, 0);
  return Write(writer);
}

HRESULT C_KArcNameMember::Write(C_KArcWriter& writer) {
  m_Header.Write(writer, "when write name member");
  writer.Put(m_sBuffer.data(), GetLength(), "when write name member");
  return S_OK;
}

DWORD C_KArcNameMember::Append(const char* pszName) {
  const DWORD dwOffset = GetLength();
  m_sBuffer.append(pszName ? pszName : "", (pszName ? strlen(pszName) : 0) + 1);
  m_Header.BuildSpecial(GetLength());
  m_bValid = true;
  return dwOffset;
}

void C_KArcNameMember::Clear() {
  m_sBuffer.clear();
  m_Header.BuildSpecial(0);
  m_bValid = true;
}

const char* C_KArcNameMember::Y_GetAt(DWORD dwOffset) {
  if (dwOffset >= GetLength()) ThrowLibraryError(false, KE_OUT_OF_RANGE, " When call C_KArcNameMember::Y_GetAt");
  return m_sBuffer.c_str() + dwOffset;
}
