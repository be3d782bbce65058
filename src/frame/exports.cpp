#include "frame/exports.h"

#include <cstring>
#include <new>

#include "platform/platform.h"

namespace {

// Only an allocation failure is handled here; anything else reaches the host as it was thrown.
template <class Make>
auto CreateOrNull(Make make) -> decltype(make()) {
  try {
    return make();
  } catch (const std::bad_alloc&) {
    platform::ShowMessageBox("Out of Memrory!", "Exception", KOFD_MB_ICONSTOP);
    return nullptr;
  }
}

}  // namespace

I_Factory* CreateFactory() {
  return CreateOrNull([] { return static_cast<I_Factory*>(new C_KOfdFactory); });
}

I_Unknown* CreateInstance(const char* pszInterface) {
  const CreationEntry* pEntry = FindCreationEntry(g_ExportClasses, 5, pszInterface);
  if (!pEntry) return nullptr;
  return CreateOrNull([pEntry] { return pEntry->pfnCreate(); });
}

HRESULT EnumBodyNames(DWORD, char* pszBuffer) {
  if (!pszBuffer) return E_POINTER;
  memcpy(pszBuffer, kBanner, sizeof kBanner);
  pszBuffer[sizeof kBanner] = '\0';
  return S_OK;
}

void Stop() {}
