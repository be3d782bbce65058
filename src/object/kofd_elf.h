// The KELF object document and its revisions. The document owns its file, the four header
// records and one section object per section header; each revision adds section classes that
// the one before it does not build, and the extended classes build on the newest revision.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "frame/exception.h"
#include "frame/file.h"
#include "object/kelf_header.h"
#include "sections/section.h"

class I_KOfdSymbolTable;
class I_KOfdExpressionTable;
class C_ObjectImage;

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
// Edits and saves. The first edit reads the opened object into an editable image (or Create
// makes a new one); the edits change that image alone, and the read operations above show the
// file as last read or saved. Every operation returns S_OK or records its failure as the last
// error and returns its code: a refused edit (E_FAIL, with words naming what stands in its way)
// changes nothing. Sections are selected by index (all digits) or by name ignoring case.
class I_KOfdELFX : public virtual I_KOfdELF4 {
 public:
  // A new object of no sections but its ".shstrtab", to be saved with SaveAs; dwType is 16-bit.
  virtual HRESULT Create(DWORD dwChip, DWORD dwType) = 0;
  virtual HRESULT AddSection(const char* pszName, DWORD dwType, const BYTE* pData, DWORD dwSize) = 0;
  virtual HRESULT RemoveSection(const char* pszSelector) = 0;
  virtual HRESULT RenameSection(const char* pszSelector, const char* pszNewName) = 0;
  virtual HRESULT SetSectionAddress(const char* pszSelector, DWORD dwAddress) = 0;
  virtual HRESULT SetContents(const char* pszSelector, const BYTE* pData, DWORD dwSize) = 0;
  // Refused where a relocation rewrites a byte of the range, unless dwForce is non-zero.
  virtual HRESULT Patch(const char* pszSelector, DWORD dwOffset, const BYTE* pBytes, DWORD dwSize, DWORD dwForce) = 0;
  // dwGlobal non-zero for a global symbol, else a local one.
  virtual HRESULT AddSymbol(const char* pszName, const char* pszSection, DWORD dwValue, DWORD dwGlobal) = 0;
  virtual HRESULT RemoveSymbol(const char* pszName) = 0;
  virtual HRESULT RenameSymbol(const char* pszName, const char* pszNewName) = 0;
  virtual HRESULT SetSymbolValue(const char* pszName, DWORD dwValue) = 0;
  // Appends dwCount tokens to the expression table, as the file holds them (a SYM token's value
  // indexes the symbol table the expression table links to); *pdwFirst receives the first's index.
  virtual HRESULT AddExpression(const KEL_EXP* pTokens, DWORD dwCount, DWORD* pdwFirst) = 0;
  // Appends a record to the relocation table that relocates the target section: Info's symbol
  // index and the run exp_start..exp_end index that table's symbols and expression tokens.
  virtual HRESULT AddRelocation(const char* pszTarget, const KEL_RELXEB* pRecord) = 0;
  // Writes the object, edited or not, over the document's own file or to pszPath (replacing it
  // whole, atomically), then reads the saved file: after SaveAs the document is that file.
  virtual HRESULT Save() = 0;
  virtual HRESULT SaveAs(const char* pszPath) = 0;
};

class I_KOfdELFX2 : public virtual I_KOfdELFX {
 public:
  // SaveAs with every section laid out afresh in index order, the section header table last.
  virtual HRESULT SaveCompactedAs(const char* pszPath) = 0;
  // Appends the whole-file dump (file header, program headers, section headers, symbols) to
  // the named file, which is replaced whole. E_FAIL, changing nothing, when it cannot be written
  // (the failure recorded as the last error); E_POINTER when no file header has been read.
  virtual HRESULT DumpFile(const char* pszFileName) = 0;
  // Appends an address and bank pair to the bank table, creating ".bankinfo" when there is none.
  virtual HRESULT AddBankRecord(DWORD dwAddress, DWORD dwBank) = 0;
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
  // Opens the object's headers alone: the file header, the program header and section header
  // tables, one section object per section header, attached, and the section-name string table
  // (with the sections its Link names), read. Every other section is read, with every section
  // its Link and Info name in turn, the first time it is handed out (GetSection, FindSection,
  // GetSectionByIndex, the kept tables): a disk operation of its own, within what the open left
  // of the object's read budget. A read that fails there is recorded as the last error and its
  // code returned, with no section handed out; asked again, the section is read again.
  HRESULT ReadHeaders();
  // The index of the first section whose name equals pszName ignoring case, reading nothing;
  // E_FAIL when none does.
  HRESULT FindSectionIndex(const char* pszName, DWORD* pdwIndex);
  // The kept symbol table's record count, reading nothing: a table not read yet counts what
  // reading it would hold (its size in whole records, none for a size that is not). 0 when
  // there is no symbol table.
  DWORD CountSymbols();
  // The document's identifier; its low 16 bits go into the high half of each section key.
  void SetIdentifier(DWORD dwIdentifier) { m_dwIdentifier = dwIdentifier; }
  DWORD GetIdentifier() const { return m_dwIdentifier; }
  // The kept program-data table (the last section of type 1 that was built), or null, also
  // when reading it on demand failed (recorded as the last error).
  I_KOfdSection* GetProgramTable();

 protected:
  // Builds the object for a type of the base revision (1, 2, 3, 17, 18) and keeps the program
  // data, symbol and expression tables; null for any other type.
  I_KOfdSection* Y_CreateBaseSection(DWORD dwType);

 private:
  // The open, read-header, work, close frame of every disk operation. The file is closed even
  // when the work throws; a handle that was already open is left open.
  // How much a disk operation may read: the object's extent, or what an earlier operation of
  // the same open left (kRest); kWholeKeepRest and kRest keep what they leave for the next.
  enum class Budget { kWhole, kWholeKeepRest, kRest };
  template <class Work>
  HRESULT Z_OnDisk(Work work, Budget budget = Budget::kWhole);
  void Z_ReadFileHeaderIfEmpty();
  // Reads the header tables, makes the section objects, attaches them and names them.
  void Z_OpenHeaders();
  void Z_DestroySections();
  void Z_CreateSections();
  void Z_AttachAll();
  void Z_ResolveSectionNames();
  // Reads section dwIndex after the sections its Link field names, without recursion.
  void Z_ReadWithLinks(DWORD dwIndex);
  void Z_ReadAt(DWORD dwIndex);
  // Reads section dwIndex, if the document was opened by ReadHeaders and it is not read yet,
  // with every section its Link and Info fields name, and theirs, in index order. A failure is
  // recorded and returned.
  HRESULT Z_ReadOnDemand(DWORD dwIndex);
  // A kept table (program data, symbols, expressions) once read on demand; null on failure.
  I_KOfdSection* Z_Kept(I_KOfdSection* pTable, DWORD dwIndex);
  // Z_ReadOnDemand of a kept table, when it is section dwIndex of the document.
  HRESULT Z_ReadKept(I_KOfdSection* pTable, DWORD dwIndex);
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
  // The indexes of the kept tables (kNoSection when there is none).
  static constexpr DWORD kNoSection = ~DWORD(0);
  DWORD m_dwProgramIndex = kNoSection;
  DWORD m_dwSymbolIndex = kNoSection;
  DWORD m_dwExpressionIndex = kNoSection;
  // Opened by ReadHeaders: sections are read when first handed out.
  bool m_bOnDemand = false;
  std::uint64_t m_qwBudgetLeft = 0;
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

class C_KOfdELFX : public virtual I_KOfdELFX, public C_KOfdELF4 {
 public:
  C_KOfdELFX();
  ~C_KOfdELFX() override;

  HRESULT Create(DWORD dwChip, DWORD dwType) override;
  HRESULT AddSection(const char* pszName, DWORD dwType, const BYTE* pData, DWORD dwSize) override;
  HRESULT RemoveSection(const char* pszSelector) override;
  HRESULT RenameSection(const char* pszSelector, const char* pszNewName) override;
  HRESULT SetSectionAddress(const char* pszSelector, DWORD dwAddress) override;
  HRESULT SetContents(const char* pszSelector, const BYTE* pData, DWORD dwSize) override;
  HRESULT Patch(const char* pszSelector, DWORD dwOffset, const BYTE* pBytes, DWORD dwSize, DWORD dwForce) override;
  HRESULT AddSymbol(const char* pszName, const char* pszSection, DWORD dwValue, DWORD dwGlobal) override;
  HRESULT RemoveSymbol(const char* pszName) override;
  HRESULT RenameSymbol(const char* pszName, const char* pszNewName) override;
  HRESULT SetSymbolValue(const char* pszName, DWORD dwValue) override;
  HRESULT AddExpression(const KEL_EXP* pTokens, DWORD dwCount, DWORD* pdwFirst) override;
  HRESULT AddRelocation(const char* pszTarget, const KEL_RELXEB* pRecord) override;
  HRESULT Save() override;
  HRESULT SaveAs(const char* pszPath) override;

 protected:
  HRESULT Y_SaveTo(const char* pszPath, bool bCompact);
  // Runs an edit on the image; a refusal becomes the last error and the returned code.
  template <class Edit>
  HRESULT Y_Edit(Edit edit);

 private:
  template <class Body>
  HRESULT Z_Guarded(Body body);
  // The image, read from the document's file on the first edit.
  C_ObjectImage& Z_Image();

  std::unique_ptr<C_ObjectImage> m_pImage;
  // Made by Create and not saved yet: there is no file of its own to save over.
  bool m_bCreated = false;
};

class C_KOfdELFX2 : public virtual I_KOfdELFX2, public C_KOfdELFX {
 public:
  HRESULT DumpFile(const char* pszFileName) override;
  HRESULT SaveCompactedAs(const char* pszPath) override;
  HRESULT AddBankRecord(DWORD dwAddress, DWORD dwBank) override;

 private:
  void Z_DumpWholeFile(std::ostream& file, const KEL_EHDR& header);

  C_Messenger m_Messenger;
};

// The section as an expression table, or null.
I_KOfdExpressionTable* AsExpressionTable(I_KOfdSection* pSection);
