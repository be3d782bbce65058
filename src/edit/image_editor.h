// The edits an object image takes, each checked against every reference the image holds: an
// edit that would leave a number naming nothing, or the wrong thing, is refused with words that
// name the reference, and the image is left as it was.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "edit/object_image.h"

// A section for C_ImageEditor::AddSections.
struct C_NewSection {
  std::string m_sName;
  DWORD m_dwType = SHT_KEL_PROGBITS;
  std::vector<BYTE> m_vData;
  DWORD m_dwNobitsSize = 0;
};

class C_ImageEditor {
 public:
  explicit C_ImageEditor(C_ObjectImage& image) : m_Image(image) {}

  // By index when sSelector is all digits, else the first section whose name equals it ignoring
  // case, as the dump command selects.
  C_ImageSection& SelectSection(const std::string& sSelector);

  // Symbols are named in the symbol table that the image edits (C_ObjectImage::SymbolTable);
  // a name that several symbols share is refused as ambiguous.
  void RemoveSymbol(const std::string& sName);
  void RenameSymbol(const std::string& sName, const std::string& sNewName);
  void SetSymbolValue(const std::string& sName, DWORD dwValue);
  // A symbol of no type and size 0; a local one goes before the first non-local symbol. The
  // tables ".symtab" and ".symstrtab" are created when the object has none.
  void AddSymbol(const std::string& sName, const std::string& sSection, DWORD dwValue, bool bGlobal);

  // Adds many symbols in time linear in their number, as AddSymbol adds each in turn: a name
  // that is empty or that another symbol has (given or in the table) is refused, locals go, in
  // their order, before the first non-local symbol and the others at the end. Each symbol's
  // section is given by m_pSection (a section of the image) or, when null, m_wIndex. Nothing is
  // added when one is refused.
  void AddSymbols(std::vector<std::unique_ptr<C_ImageSymbol>> vSymbols);

  void RemoveSection(const std::string& sSelector);
  void RenameSection(const std::string& sSelector, const std::string& sNewName);
  void SetSectionAddress(const std::string& sSelector, DWORD dwAddress);
  void AddSection(const std::string& sName, std::vector<BYTE> vData, DWORD dwType);
  // Adds the sections in order, each as AddSection adds it (a type-8 section, which AddSection
  // refuses, with no bytes and the size m_dwNobitsSize), in time linear in their number; returns them. When one is refused
  // *pnRefused is its place in vSections and nothing is added.
  std::vector<C_ImageSection*> AddSections(std::vector<C_NewSection> vSections, std::size_t* pnRefused);
  // Appends a record to the object's bank table, creating ".bankinfo" when it has none.
  void AddBankRecord(DWORD dwAddress, DWORD dwBank);
  // Contents edits apply to sections the image keeps as bytes only.
  void SetContents(const std::string& sSelector, std::vector<BYTE> vData);
  // Refused where a relocation rewrites a byte of the range, unless bForce.
  void Patch(const std::string& sSelector, DWORD dwOffset, const std::vector<BYTE>& vBytes, bool bForce);

  // Appends tokens to the expression table (the last one the image models); a SYM token's value
  // indexes the symbol table that expression table links to. Returns the first token's index.
  DWORD AddExpression(const std::vector<KEL_EXP>& vTokens);
  // Appends a record to the first modelled relocation table whose Info names the target; its
  // symbol index and run bounds index the symbols and tokens that table reaches.
  void AddRelocation(const std::string& sTarget, const KEL_RELXEB& record);

 private:
  C_ImageSymbol& Z_FindSymbol(const std::string& sName);
  // Refuses when a section of one of the types holds numbers the image does not follow.
  void Z_RequireFollowed(std::initializer_list<DWORD> types, const std::string& sEdit) const;
  void Z_RequireBytes(const C_ImageSection& section) const;
  void Z_RequireNewSectionName(const std::string& sName) const;
  // Refuses contents that a section of the type cannot take (type 8, a part of a record).
  static void Z_RequireContentsFit(const std::string& sName, const std::vector<BYTE>& vData, DWORD dwType);
  C_ImageSection& Z_AddChecked(const std::string& sName, std::vector<BYTE> vData, DWORD dwType);
  C_ImageSection& Z_SymbolTableToAddTo();
  C_ImageSection& Z_AppendSection(const std::string& sName, DWORD dwType);
  void Z_RequireFreeBytes(const C_ImageSection& section, std::uint64_t qwFrom, std::uint64_t qwTo) const;

  C_ObjectImage& m_Image;
};
