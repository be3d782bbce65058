// I_Factory and its two implementations: C_Factory, which refuses everything, and
// C_KOfdFactory, which builds documents by interface name or by a file's first bytes and keeps
// what it builds until it is released.
#pragma once

#include <vector>

#include "frame/exception.h"

class I_Factory : public virtual I_Unknown {
 public:
  virtual HRESULT CreateInstance(const char* pszInterface, I_Unknown** ppObject) = 0;
  // Chooses the document kind from the first bytes of the file at pszPath; *ppszInterface
  // receives the interface name of what was built.
  virtual HRESULT CreateInstance(const char* pszPath, I_Unknown** ppObject, const char** ppszInterface) = 0;
  virtual HRESULT ReleaseInstance(I_Unknown* pObject) = 0;
  virtual HRESULT ReleaseAll() = 0;
};

class C_Factory : public virtual I_Factory, public virtual C_Exception {
 public:
  HRESULT CreateInstance(const char* pszInterface, I_Unknown** ppObject) override;
  HRESULT CreateInstance(const char* pszPath, I_Unknown** ppObject, const char** ppszInterface) override;
  HRESULT ReleaseInstance(I_Unknown* pObject) override;
  HRESULT ReleaseAll() override { return E_FAIL; }
};

class C_KOfdFactory : public C_Factory {
 public:
  C_KOfdFactory() = default;
  C_KOfdFactory(const C_KOfdFactory&) = delete;
  C_KOfdFactory& operator=(const C_KOfdFactory&) = delete;
  // The factory owns what it built: objects still listed are destroyed with it.
  ~C_KOfdFactory() override;

  HRESULT CreateInstance(const char* pszInterface, I_Unknown** ppObject) override;
  HRESULT CreateInstance(const char* pszPath, I_Unknown** ppObject, const char** ppszInterface) override;
  HRESULT ReleaseInstance(I_Unknown* pObject) override;
  HRESULT ReleaseAll() override;

  const std::vector<I_Unknown*>& Instances() const { return m_vInstances; }

 private:
  std::vector<I_Unknown*> m_vInstances;
};

// One row of a creation table: an accepted interface name and the class it builds.
struct CreationEntry {
  const char* pszInterface;
  I_Unknown* (*pfnCreate)();
};

// The first entry whose name equals pszInterface exactly, or null.
const CreationEntry* FindCreationEntry(const CreationEntry* pTable, std::size_t nCount, const char* pszInterface);

// What the exported CreateInstance builds, in matching order.
extern const CreationEntry g_ExportClasses[5];
