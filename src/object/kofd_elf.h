// The KELF object document and its revisions. The document owns its file, the four header
// records and one section object per section header; each revision adds section classes that
// the one before it does not build, and the extended classes build on the newest revision.
#pragma once

#include <ostream>
#include <vector>

#include "frame/exception.h"
#include "frame/file.h"
#include "object/kelf_header.h"
#include "sections/section.h"

class I_KOfdSymbolTable;
class I_KOfdExpressionTable;

class I_KOfdELF : public virtual I_Unknown {
 public:
  virtual HRESULT GetFileHeader(I_KElfHeader** ppHeader) = 0;
  virtual HRESULT GetProgramHeader(I_KElfProgramHeader** ppTable) = 0;
  virtual HRESULT GetSectionHeader(I_KElfSectionHeader** ppTable) = 0;
  // The kept tables: the last section of their type that was built, or null.
  virtual HRESULT GetSymbolTable(I_KOfdSymbolTable** ppTable) = 0;
  virtual HRESULT GetExpressionTable(I_KOfdExpressionTable** ppTable) = 0;
  virtual HRESULT GetSectionCount(DWORD* pdwCount) = 0;
  virtual HRESULT GetProgramHeaderCount(DWORD* pdwCount) = 0;
  // Null for a section type without a class; 0x800403F1 (recorded) for a bad index.
  virtual HRESULT GetSection(DWORD dwIndex, I_KOfdSection** ppSection) = 0;
  // The section's state word (kSectionRead once its contents are loaded).
  virtual HRESULT GetSectionWord(DWORD dwIndex, DWORD* pdwWord) = 0;
  // The first section whose name equals pszName ignoring case; E_FAIL when none does.
  virtual HRESULT FindSection(const char* pszName, I_KOfdSection** ppSection) = 0;
  virtual HRESULT GetSectionName(DWORD dwIndex, const char** ppszName) = 0;
  virtual HRESULT GetLoadableMemorySize(DWORD* pdwSize) = 0;

  // Disk operations: each opens the file, reads the file header if it is still empty, does its
  // work and closes the file again (1013 and 1014 on failure, with the path).
  virtual HRESULT ReadProgramHeader() = 0;
  virtual HRESULT ReadFileHeader() = 0;
  virtual HRESULT ReadSegment(DWORD dwIndex) = 0;
  virtual HRESULT ReadSectionHeader() = 0;
  virtual HRESULT ReadSegments() = 0;
  // Opens the object: headers, then one section object per section header, linked and read.
  virtual HRESULT Read() = 0;
  // Attaches every section to the sections its Link and Info fields name again, and reads those
  // that have not been read.
  virtual HRESULT Link() = 0;

  // The section object for a section type, or null when the revision has no class for it.
  virtual HRESULT CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) = 0;
};

class I_KOfdELF2 : public virtual I_KOfdELF {};
class I_KOfdELF3 : public virtual I_KOfdELF2 {};
class I_KOfdELF4 : public virtual I_KOfdELF3 {};
class I_KOfdELFX : public virtual I_KOfdELF4 {};
class I_KOfdELFX2 : public virtual I_KOfdELFX {
 public:
  // Appends the whole-file dump (file header, program headers, section headers, symbols) to
  // the named file, which is replaced whole. E_FAIL, changing nothing, when it cannot be written
  // (the failure recorded as the last error); E_POINTER when no file header has been read.
  virtual HRESULT DumpFile(const char* pszFileName) = 0;
};

// Bits of a section's state word.
enum : DWORD {
  kSectionRead = 0x1,
  kSectionPending = 0x2,  // waiting for the sections it names to be read
};

class C_KOfdELF : public virtual I_KOfdELF, public virtual I_KOfdSectionHost, public virtual C_File, public virtual C_Browse {
 public:
  C_KOfdELF() = default;
  C_KOfdELF(const C_KOfdELF&) = delete;
  C_KOfdELF& operator=(const C_KOfdELF&) = delete;
  ~C_KOfdELF() override;

  // Browse: the three headers, then every section that has a section object, each under the
  // document's tree item, which is also what *phNewItem receives.
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;

  HRESULT GetFileHeader(I_KElfHeader** ppHeader) override;
  HRESULT GetProgramHeader(I_KElfProgramHeader** ppTable) override;
  HRESULT GetSectionHeader(I_KElfSectionHeader** ppTable) override;
  HRESULT GetSymbolTable(I_KOfdSymbolTable** ppTable) override;
  HRESULT GetExpressionTable(I_KOfdExpressionTable** ppTable) override;
  HRESULT GetSectionCount(DWORD* pdwCount) override;
  HRESULT GetProgramHeaderCount(DWORD* pdwCount) override;
  HRESULT GetSection(DWORD dwIndex, I_KOfdSection** ppSection) override;
  HRESULT GetSectionWord(DWORD dwIndex, DWORD* pdwWord) override;
  HRESULT FindSection(const char* pszName, I_KOfdSection** ppSection) override;
  HRESULT GetSectionName(DWORD dwIndex, const char** ppszName) override;
  HRESULT GetLoadableMemorySize(DWORD* pdwSize) override;
  HRESULT ReadProgramHeader() override;
  HRESULT ReadFileHeader() override;
  HRESULT ReadSegment(DWORD dwIndex) override;
  HRESULT ReadSectionHeader() override;
  HRESULT ReadSegments() override;
  HRESULT Read() override;
  HRESULT Link() override;
  HRESULT CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) override;

  HRESULT GetSectionByIndex(DWORD dwIndex, I_KOfdSection** ppSection) override;
  I_KOfdSymbolReferences* GetSymbolReferences() override;

  // Where the object begins in the file: 0 for an object file, the member's data position for
  // an object inside an archive. Every offset of the object is relative to it.
  void SetBaseOffset(DWORD dwBase) { m_dwBase = dwBase; }
  DWORD GetBaseOffset() const { return m_dwBase; }
  // How many bytes from the base offset on are the object's own (an archive member's Size):
  // what one disk operation may read in all. The rest of the file by default.
  void SetExtent(std::uint64_t qwExtent) { m_qwExtent = qwExtent; }
  // The document's identifier; its low 16 bits go into the high half of each section key.
  void SetIdentifier(DWORD dwIdentifier) { m_dwIdentifier = dwIdentifier; }
  DWORD GetIdentifier() const { return m_dwIdentifier; }
  // The kept program-data table (the last section of type 1 that was built), or null.
  I_KOfdSection* GetProgramTable() const { return m_pProgramTable; }

 protected:
  // Builds the object for a type of the base revision (1, 2, 3, 17, 18) and keeps the program
  // data, symbol and expression tables; null for any other type.
  I_KOfdSection* Y_CreateBaseSection(DWORD dwType);

 private:
  // The open, read-header, work, close frame of every disk operation. The file is closed even
  // when the work throws; a handle that was already open is left open.
  template <class Work>
  HRESULT Z_OnDisk(Work work);
  void Z_ReadFileHeaderIfEmpty();
  void Z_DestroySections();
  void Z_CreateSections();
  void Z_AttachAll();
  void Z_ResolveSectionNames();
  // Reads section dwIndex after the sections its Link field names, without recursion.
  void Z_ReadWithLinks(DWORD dwIndex);
  void Z_ReadAt(DWORD dwIndex);
  void Z_Link();
  // The section at a Link or Info index, or null for 0, an index out of range, or dwSelf.
  I_KOfdSection* Z_Named(DWORD dwIndex, DWORD dwSelf) const;
  DWORD Z_SectionCount() const { return static_cast<DWORD>(m_vSections.size()); }

  DWORD m_dwBase = 0;
  std::uint64_t m_qwExtent = ~std::uint64_t(0);
  DWORD m_dwIdentifier = 0;
  C_KElfHeader m_Header;
  C_KElfProgramHeader m_ProgramHeader;
  C_KElfSectionHeader m_SectionHeader;
  std::vector<I_KOfdSection*> m_vSections;
  std::vector<DWORD> m_vSectionWords;
  I_KOfdSection* m_pProgramTable = nullptr;
  I_KOfdSection* m_pSymbolTable = nullptr;
  I_KOfdSection* m_pExpressionTable = nullptr;
  WORD m_wStringIndex = 0;
};

class C_KOfdELF2 : public virtual I_KOfdELF2, public C_KOfdELF {
 public:
  HRESULT CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) override;

 protected:
  // Line, bank, share ROM and relocation (with 32-bit expression indices) sections.
  static I_KOfdSection* Y_CreateSecondSection(DWORD dwType);
};

class C_KOfdELF3 : public virtual I_KOfdELF3, public C_KOfdELF2 {
 public:
  HRESULT CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) override;
};

class C_KOfdELF4 : public virtual I_KOfdELF4, public C_KOfdELF3 {
 public:
  HRESULT CreateSectionForType(DWORD dwType, I_KOfdSection** ppSection) override;
};

class C_KOfdELFX : public virtual I_KOfdELFX, public C_KOfdELF4 {};

class C_KOfdELFX2 : public virtual I_KOfdELFX2, public C_KOfdELFX {
 public:
  HRESULT DumpFile(const char* pszFileName) override;

 private:
  void Z_DumpWholeFile(std::ostream& file, const KEL_EHDR& header);

  C_Messenger m_Messenger;
};

// The section as an expression table, or null.
I_KOfdExpressionTable* AsExpressionTable(I_KOfdSection* pSection);
