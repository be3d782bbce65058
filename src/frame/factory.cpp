#include "frame/factory.h"

#include <cstring>
#include <new>

#include "archive/archive.h"
#include "archive/unknown_object.h"
#include "frame/error.h"
#include "frame/fileio.h"
#include "object/kofd_elf.h"
#include "platform/platform.h"

namespace {

template <class T>
I_Unknown* Create() {
  return static_cast<I_Unknown*>(new T);
}

// The factory's own table: the same names as the export but for I_Factory, and it builds the
// second extended revision where the export builds the first.
const CreationEntry kFactoryClasses[] = {
    {"I_KOfdELF", &Create<C_KOfdELF4>},
    {"I_KOfdArchive", &Create<C_KOfdArchive>},
    {"I_UnknownObject", &Create<C_UnknownObject>},
    {"I_KOfdELFX", &Create<C_KOfdELFX2>},
};

HRESULT Refuse(const char* pszText) {
  platform::ShowMessageBox(pszText, "Error", KOFD_MB_OK);
  return E_FAIL;
}

// The object as one of the documents a factory builds, tried in the factory's order; null when
// it is none of them.
I_Unknown* AsDocument(I_Unknown* pObject) {
  if (I_KOfdELF* pElf = dynamic_cast<I_KOfdELF*>(pObject)) return pElf;
  if (I_KOfdArchive* pArchive = dynamic_cast<I_KOfdArchive*>(pObject)) return pArchive;
  if (I_UnknownObject* pUnknown = dynamic_cast<I_UnknownObject*>(pObject)) return pUnknown;
  if (I_KOfdELFX* pElfX = dynamic_cast<I_KOfdELFX*>(pObject)) return pElfX;
  return nullptr;
}

// The complete object an interface pointer belongs to.
const void* CompleteObject(I_Unknown* pObject) { return dynamic_cast<const void*>(pObject); }

}  // namespace

const CreationEntry g_ExportClasses[5] = {
    {"I_KOfdELF", &Create<C_KOfdELF4>},
    {"I_KOfdArchive", &Create<C_KOfdArchive>},
    {"I_UnknownObject", &Create<C_UnknownObject>},
    {"I_KOfdELFX", &Create<C_KOfdELFX>},
    {"I_Factory", &Create<C_KOfdFactory>},
};

const CreationEntry* FindCreationEntry(const CreationEntry* pTable, std::size_t nCount, const char* pszInterface) {
  if (!pszInterface) return nullptr;
  for (std::size_t i = 0; i < nCount; ++i) {
    if (strcmp(pTable[i].pszInterface, pszInterface) == 0) return &pTable[i];
  }
  return nullptr;
}

HRESULT C_Factory::CreateInstance(const char*, I_Unknown**) {
  return Refuse("This component does not support for first CreateInstance method of I_Factory.");
}

HRESULT C_Factory::CreateInstance(const char*, I_Unknown**, const char**) {
  return Refuse("This component does not support for second CreateInstance method of I_Factory.");
}

HRESULT C_Factory::ReleaseInstance(I_Unknown*) {
  return Refuse("This component does not support for ReleaseInstance method of I_Factory.");
}

C_KOfdFactory::~C_KOfdFactory() { ReleaseAll(); }

HRESULT C_KOfdFactory::CreateInstance(const char* pszInterface, I_Unknown** ppObject) {
  const CreationEntry* pEntry =
      FindCreationEntry(kFactoryClasses, sizeof kFactoryClasses / sizeof kFactoryClasses[0], pszInterface);
  if (!pEntry || !ppObject) return E_FAIL;
  I_Unknown* pObject = nullptr;
  // An object that could not be made is handed out, and listed, as null.
  GuardAllocation(*this, [&] {
    pObject = pEntry->pfnCreate();
    return S_OK;
  });
  const HRESULT hr = GuardAllocation(*this, [&] {
    m_vInstances.push_back(pObject);
    return S_OK;
  });
  if (hr != S_OK) {
    if (pObject) pObject->Destroy();
    return hr;
  }
  *ppObject = pObject;
  return S_OK;
}

HRESULT C_KOfdFactory::CreateInstance(const char* pszPath, I_Unknown** ppObject, const char** ppszInterface) {
  if (!ppObject) return E_POINTER;
  const char* pszInterface = nullptr;
  HRESULT hr = IsObjectFile(pszPath);
  if (hr == S_OK) {
    pszInterface = "I_KOfdELF";
  } else {
    hr = IsArchiveFile(pszPath);
    if (hr != S_OK) return hr;
    pszInterface = "I_KOfdArchive";
  }
  hr = CreateInstance(pszInterface, ppObject);
  if (hr == S_OK && ppszInterface) *ppszInterface = pszInterface;
  return hr;
}

HRESULT C_KOfdFactory::ReleaseInstance(I_Unknown* pObject) {
  if (!pObject) return E_FAIL;
  I_Unknown* pConverted = AsDocument(pObject);
  if (!pConverted) return E_FAIL;
  const void* pComplete = CompleteObject(pConverted);
  for (auto it = m_vInstances.begin(); it != m_vInstances.end(); ++it) {
    if (*it && CompleteObject(*it) == pComplete) {
      I_Unknown* pListed = *it;
      m_vInstances.erase(it);
      pListed->Destroy();
      return S_OK;
    }
  }
  return E_FAIL;
}

HRESULT C_KOfdFactory::ReleaseAll() {
  for (I_Unknown* pObject : m_vInstances) {
    if (pObject) pObject->Destroy();
  }
  m_vInstances.clear();
  return S_OK;
}
