// I_KOfdSection / C_KOfdSection: one section of an opened object, coupling its header record
// (owned by the document), its name and, in derived classes, its contents. I_KOfdStorage is
// the contents side: read once from a file at a base offset, cleared, written back.
#pragma once

#include <cstdint>
#include <string>

#include "frame/byte_view.h"
#include "frame/exception.h"
#include "frame/file.h"
#include "object/kelf_records.h"
#include "present/browse.h"
#include "present/dump.h"

class I_KOfdSection : public virtual I_Unknown {
 public:
  virtual HRESULT SetReference(DWORD dwValue) = 0;
  virtual HRESULT GetOrigin(DWORD* pdwOrigin) = 0;
  virtual HRESULT GetReference(DWORD* pdwReference) = 0;
  virtual DWORD GetKeyValue() = 0;
  virtual WORD GetKeyIndex() = 0;
  // sh_size / sh_entsize; asked only of sections whose entry size is not 0 (0 answers 0).
  virtual DWORD GetEntryCount() = 0;
  virtual DWORD GetAddress() = 0;
  virtual HRESULT SetAddress(DWORD dwAddress) = 0;
  virtual DWORD GetSize() = 0;
  virtual DWORD GetType() = 0;
  virtual DWORD GetAlignment() = 0;
  virtual DWORD GetEntrySize() = 0;
  virtual DWORD GetFlags() = 0;
  virtual DWORD GetLink() = 0;
  virtual DWORD GetInfo() = 0;
  virtual HRESULT SetLink(DWORD dwLink) = 0;
  virtual HRESULT SetInfo(DWORD dwInfo) = 0;
  virtual HRESULT SetName(const char* pszName) = 0;
  virtual const char* GetName() = 0;
};

class I_KOfdStorage : public virtual I_Unknown {
 public:
  // Loads the contents; dwBase is where the object begins in the file.
  virtual HRESULT Read(I_File* pFile, DWORD dwBase) = 0;
  virtual bool IsEmpty() = 0;
  virtual HRESULT Clear() = 0;
  // Appends the contents at the file's current position.
  virtual HRESULT Write(I_File* pFile) = 0;
};

// What the sections learn of the expressions of their document: whether one names a symbol.
// The expression table answers; the sections need not know it.
class I_KOfdSymbolReferences {
 public:
  // True when an expression names a symbol called pszName, letter case ignored.
  virtual bool NamesSymbol(const char* pszName) = 0;

 protected:
  virtual ~I_KOfdSymbolReferences() = default;
};

// What a section may ask of the document that holds it.
class I_KOfdSectionHost {
 public:
  // The section object of section dwIndex; fails for an index out of range.
  virtual HRESULT GetSectionByIndex(DWORD dwIndex, I_KOfdSection** ppSection) = 0;
  // The expressions of the document's kept expression table, or null without one.
  virtual I_KOfdSymbolReferences* GetSymbolReferences() = 0;

 protected:
  virtual ~I_KOfdSectionHost() = default;
};

#pragma pack(push, 1)
struct KEL_SECTION_KEY {
  WORD wIndex;
  DWORD dwValue;
  WORD wReserved;
};
#pragma pack(pop)
static_assert(sizeof(KEL_SECTION_KEY) == 8, "section key");

class C_KOfdSection : public virtual I_KOfdSection, public virtual C_Exception, public virtual C_KOfdDump,
                      public virtual C_Browse {
 public:
  C_KOfdSection() = default;
  C_KOfdSection(const C_KOfdSection&) = delete;
  C_KOfdSection& operator=(const C_KOfdSection&) = delete;

  // Browse: one item, the section's name with image 5. A section class without list columns
  // of its own shows the default message.
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;

  HRESULT SetReference(DWORD dwValue) override;
  HRESULT GetOrigin(DWORD* pdwOrigin) override;
  HRESULT GetReference(DWORD* pdwReference) override;
  DWORD GetKeyValue() override { return m_Key.dwValue; }
  WORD GetKeyIndex() override { return m_Key.wIndex; }
  DWORD GetEntryCount() override;
  DWORD GetAddress() override { return Y_Header().sh_addr; }
  HRESULT SetAddress(DWORD dwAddress) override;
  DWORD GetSize() override { return Y_Header().sh_size; }
  DWORD GetType() override { return Y_Header().sh_type; }
  DWORD GetAlignment() override { return Y_Header().sh_addralign; }
  DWORD GetEntrySize() override { return Y_Header().sh_entsize; }
  DWORD GetFlags() override { return Y_Header().sh_flags; }
  DWORD GetLink() override { return Y_Header().sh_link; }
  DWORD GetInfo() override { return Y_Header().sh_info; }
  HRESULT SetLink(DWORD dwLink) override;
  HRESULT SetInfo(DWORD dwInfo) override;
  HRESULT SetName(const char* pszName) override;
  const char* GetName() override { return m_sName.c_str(); }

  virtual HRESULT SetAuxiliary(DWORD dwValue);
  virtual HRESULT GetHeader(KEL_SHDR** ppHeader);
  virtual std::uint64_t GetKey();
  // The sections named by sh_link and sh_info, or null.
  virtual HRESULT Attach(I_KOfdSection* pLinked, I_KOfdSection* pInfo);

  // Set by the document when it creates the section.
  // The index, the identifier (document << 16 | index) and the document identifier's high half.
  void SetKey(WORD wIndex, DWORD dwValue, WORD wReserved = 0);
  void SetHeader(KEL_SHDR* pHeader) { m_pHeader = pHeader; }
  void SetOrigin(DWORD dwOrigin) { m_dwOrigin = dwOrigin; }
  void SetHost(I_KOfdSectionHost* pHost) { m_pHost = pHost; }
  I_KOfdSectionHost* GetHost() const { return m_pHost; }
  I_KOfdSection* GetLinkedSection() const { return m_pLinked; }
  I_KOfdSection* GetInfoSection() const { return m_pInfo; }
  DWORD GetAuxiliary() const { return m_dwAuxiliary; }

 protected:
  // The header record; a section without one reads as all zeros.
  KEL_SHDR& Y_Header();

 private:
  KEL_SECTION_KEY m_Key = {0, 0, 0};
  KEL_SHDR* m_pHeader = nullptr;
  DWORD m_dwOrigin = 0;
  DWORD m_dwReference = 0;
  std::string m_sName;
  I_KOfdSection* m_pLinked = nullptr;
  I_KOfdSection* m_pInfo = nullptr;
  DWORD m_dwAuxiliary = 0;
  I_KOfdSectionHost* m_pHost = nullptr;
  KEL_SHDR m_EmptyHeader = {};
};

// A link converted to the interface a section wants of it. The conversion of the same section
// always gives the same answer, so it is redone only when the link changes.
template <class To>
class C_LinkAs {
 public:
  To* Get(I_KOfdSection* pLinked) {
    if (pLinked != m_pFrom) {
      m_pFrom = pLinked;
      m_pTo = dynamic_cast<To*>(pLinked);
    }
    return m_pTo;
  }

 private:
  I_KOfdSection* m_pFrom = nullptr;
  To* m_pTo = nullptr;
};

