// The editable image of one KELF object. Header fields are held by value; sections, symbols,
// expression tokens and relocation records are entries that name one another by pointer, never
// by number. The numbers the file holds for those links (section indexes, sh_link and sh_info,
// st_shndx, SYM operands, expression runs, name offsets) are computed by Finalize alone.
//
//   image ── sections ── symbols (a symbol table)  ── section each lives in
//                     ── tokens (an expression table) ── symbol a SYM token names
//                     ── relocations (types 17, 22)    ── token run, symbol of Symndx
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "frame/exception.h"
#include "object/kelf_records.h"

class I_KOfdELF;
class C_ImageSection;

// The whole of an ordinary file, through the platform's checked open: 1013 when it cannot be
// opened (a FIFO or device included), 1016 when it cannot be read whole.
std::vector<BYTE> ReadFileBytes(const char* pszPath);

// Offset of a name not stored yet in its string table.
constexpr DWORD kNoNameOffset = 0xFFFFFFFFu;

// A name stored in a string table: kept at its offset while the bytes there still spell it.
struct C_ImageName {
  std::string m_sText;
  DWORD m_dwOffset = kNoNameOffset;
  // The file's number could not be read as a name (no table, or no NUL inside it): kept as is.
  bool m_bRaw = false;
};

class C_ImageSymbol {
 public:
  C_ImageName m_Name;
  DWORD m_dwValue = 0;
  DWORD m_dwSize = 0;
  BYTE m_byInfo = 0;
  BYTE m_byOther = 0;
  // The section the symbol lives in; when null, m_wIndex is kept (undefined, absolute, reserved
  // or an index that named no section).
  C_ImageSection* m_pSection = nullptr;
  WORD m_wIndex = 0;
  DWORD m_dwPosition = 0;  // set by Finalize

  bool IsLocal() const { return (m_byInfo >> 4) == 0; }
};

class C_ImageToken {
 public:
  DWORD m_dwType = 0;
  DWORD m_dwValue = 0;           // kept when m_pSymbol is null
  C_ImageSymbol* m_pSymbol = nullptr;  // the symbol of a SYM token
  DWORD m_dwPosition = 0;        // set by Finalize
};

class C_ImageRelocation {
 public:
  DWORD m_dwOffset = 0;
  BYTE m_byType = 0;
  C_ImageSymbol* m_pSymbol = nullptr;  // Symndx, when it names a symbol
  DWORD m_dwSymbolIndex = 0;            // Symndx kept when it does not
  WORD m_wBitStart = 0;
  WORD m_wBitEnd = 0;
  // The expression run; both null when the numbers named no run, which are then kept.
  C_ImageToken* m_pFirst = nullptr;
  C_ImageToken* m_pLast = nullptr;
  DWORD m_dwFirst = 0;
  DWORD m_dwLast = 0;
};

// What the image understands of a section's contents.
enum class SectionModel { kBytes, kSymbols, kTokens, kRelocations };

class C_ImageSection {
 public:
  C_ImageName m_Name;
  // Type, flags, address, alignment, entry size as held; the other fields are what was read and
  // are replaced by Finalize (name, size, link, info) and by the layout (offset).
  KEL_SHDR m_Header{};
  C_ImageSection* m_pLink = nullptr;  // sh_link, when it names another section
  C_ImageSection* m_pInfo = nullptr;  // sh_info, likewise
  bool m_bInfoFirstGlobal = false;    // sh_info counts the symbols before the first non-local one
  SectionModel m_eModel = SectionModel::kBytes;
  std::vector<BYTE> m_vData;  // the contents; rebuilt from the entries for modelled sections
  std::vector<std::unique_ptr<C_ImageSymbol>> m_vSymbols;
  std::vector<std::unique_ptr<C_ImageToken>> m_vTokens;
  std::vector<C_ImageRelocation> m_vRelocations;
  // Where the contents lay in the file read; a new section has none.
  bool m_bPlaced = false;
  DWORD m_dwPlacedOffset = 0;
  DWORD m_dwPlacedSize = 0;
  DWORD m_dwPosition = 0;  // the section index, set by Finalize

  bool HasFileBytes() const { return m_Header.sh_type != kNobitsType; }
  static constexpr DWORD kNobitsType = 8;
};

class C_ObjectImage {
 public:
  // An object of no sections but the null section and its ".shstrtab".
  C_ObjectImage(DWORD dwChip, WORD wType);
  // The object that an opened document read from pszPath (the document gives the validated
  // headers, the file gives the bytes). Throws 1016 when the bytes cannot be read and 1022 when
  // a section lies outside the file.
  C_ObjectImage(I_KOfdELF& document, const char* pszPath);
  // The object whose bytes are already in memory: its file header (turned to host order when
  // DATA is 2) and the section header table that header places are read from the bytes, which
  // stay the image's original. Throws ThrowImageFailure's failure when the header, the table or a
  // section lies outside the bytes.
  explicit C_ObjectImage(std::vector<BYTE> vBytes);
  C_ObjectImage(const C_ObjectImage&) = delete;
  C_ObjectImage& operator=(const C_ObjectImage&) = delete;

  KEL_EHDR& Header() { return m_Header; }
  const KEL_EHDR& Header() const { return m_Header; }
  std::vector<std::unique_ptr<C_ImageSection>>& Sections() { return m_vSections; }
  const std::vector<std::unique_ptr<C_ImageSection>>& Sections() const { return m_vSections; }
  // The section-name table, or null when the object has none.
  C_ImageSection* NameTable() const { return m_pNameTable; }
  // Appends a ".shstrtab" (a lone NUL so far) and makes it the section-name table.
  C_ImageSection& AddNameTable();
  // Makes a section of the image (or none) the section-name table.
  void SetNameTable(C_ImageSection* pTable) { m_pNameTable = pTable; }
  // sBase when no section has that name (ignoring case), else the first of sBase1, sBase2, ...
  // that is free: the name a section the image creates is given.
  std::string FreeSectionName(const std::string& sBase) const;
  // The bytes the image was read from (empty for a new object): what lies between sections.
  const std::vector<BYTE>& Original() const { return m_vOriginal; }
  // The section header table's place in the file read, if any.
  bool HadSectionTable() const { return m_bHadSectionTable; }
  DWORD OriginalSectionTable() const { return m_dwOriginalShoff; }
  DWORD OriginalSectionCount() const { return m_dwOriginalShnum; }
  // Every section's bytes in the file read, {offset, size}, removed sections included.
  const std::vector<std::pair<DWORD, DWORD>>& OriginalRanges() const { return m_vOriginalRanges; }

  // Computes every number that stands for a reference, stores new names in their string tables
  // and rebuilds the contents of modelled sections. Throws ThrowImageFailure's failure when a
  // number cannot hold what it must (more than 65,535 sections, a 16-bit run bound past 65,535...).
  void Finalize();

  // The symbol table that symbol edits use: the last section whose symbols are modelled, as the
  // document keeps the last symbol table it builds.
  C_ImageSection* SymbolTable() const;
  // "3 (.text)": how messages name a section.
  std::string Describe(const C_ImageSection& section) const;
  // The index of the section now (a linear search; Finalize sets the positions).
  DWORD IndexOf(const C_ImageSection& section) const;

 private:
  void Z_LoadSections(const std::vector<KEL_SHDR>& vHeaders);
  void Z_LoadSymbols(C_ImageSection& table);
  void Z_LoadTokens(C_ImageSection& table);
  void Z_LoadRelocations(C_ImageSection& table);
  // The section an index names (itself included, so a renumbering keeps a link to itself), or
  // null for 0 and an index past the end, which are kept as numbers.
  C_ImageSection* Z_Named(DWORD dwIndex) const;
  void Z_EncodeSymbols(C_ImageSection& table);
  void Z_EncodeTokens(C_ImageSection& table);
  void Z_EncodeRelocations(C_ImageSection& table);

  KEL_EHDR m_Header{};
  std::vector<std::unique_ptr<C_ImageSection>> m_vSections;
  C_ImageSection* m_pNameTable = nullptr;
  WORD m_wRawNameTable = 0;  // e_shstrndx kept when it names no section
  std::vector<BYTE> m_vOriginal;
  bool m_bHadSectionTable = false;
  DWORD m_dwOriginalShoff = 0;
  DWORD m_dwOriginalShnum = 0;
  std::vector<std::pair<DWORD, DWORD>> m_vOriginalRanges;
};

// An edit or a save the image cannot make, with words that say why; the caller adds nothing.
// A refusal of the image's own, as E_FAIL: its text quotes names from the file as they are,
// and the tool escapes them where it shows the text.
class C_ImageFailure : public C_Exception {
 public:
  explicit C_ImageFailure(const std::string& sReason) : C_Exception(E_FAIL, sReason.c_str()) {}
};
[[noreturn]] void ThrowImageFailure(const std::string& sReason);
// Turns the file header's fields between host order and a big-endian file's order (both ways).
void SwapHeaderFields(KEL_EHDR& header);
// Reads the name at dwOffset of a string table's bytes; false when no NUL ends it inside them.
bool ReadImageString(const std::vector<BYTE>& vTable, DWORD dwOffset, std::string* psText);
// Where the name lies in the table: its offset when the bytes there still spell it, else at the
// end, appended.
void StoreImageName(C_ImageSection& table, C_ImageName& name);
