#include "archive/unknown_object.h"

#include "frame/error.h"
#include "platform/platform.h"

HRESULT C_UnknownObject::Open(DWORD dwMode) { return C_File::Open(dwMode); }

void C_UnknownObject::SetRegion(DWORD dwOffset, DWORD dwSize) {
  m_Storage.SetRegion(dwOffset, dwSize);
  m_bRegionSet = true;
}

HRESULT C_UnknownObject::Load() {
  const HRESULT hrOpen = C_File::Open(1);
  if (hrOpen != S_OK && hrOpen != S_FALSE) return hrOpen;
  HRESULT hr = S_OK;
  try {
    hr = GuardAllocation(*this, [&] {
      if (!m_Storage.IsEmpty()) return S_OK;
      if (!m_bRegionSet) {
        // Bound to a whole file: the region is all of it, as far as 32 bits reach.
        std::uint64_t qwSize = 0;
        platform::FileSize(GetHandle(), &qwSize);
        m_Storage.SetRegion(0, qwSize > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<DWORD>(qwSize));
      }
      return m_Storage.Read(this, m_Storage.GetOffset(), m_Storage.GetStoredSize());
    });
  } catch (...) {
    C_File::Close();
    throw;
  }
  C_File::Close();
  return hr;
}
