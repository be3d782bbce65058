// The browse views of a KELF object: its three headers and the document that puts them and its
// sections into the tree. Rows show the fields of the header listings, in their bases.
#include <cstdio>

#include "object/kofd_elf.h"
#include "present/names.h"

namespace {

// The rows of the ELF header list: the fields of the file header block, in its order.
constexpr DWORD kHeaderFieldCount = 18;

// The identification bytes 0..3; a byte that is not a letter or digit shows as ".", as the raw
// listings show them.
CellText MagicCell(const BYTE* pIdent) {
  CellText cell = {};
  for (int i = 0; i < 4; ++i) cell.text[i] = platform::IsAlphaNumeric(static_cast<char>(pIdent[i])) ? static_cast<char>(pIdent[i]) : '.';
  return cell;
}

CellText NameCell(const char* pszName) {
  CellText cell;
  snprintf(cell.text, sizeof cell.text, "%s", pszName);
  return cell;
}

// Field dwRow's label and value.
const char* HeaderField(const KEL_EHDR& header, DWORD dwRow, CellText* pValue) {
  switch (dwRow) {
    case 0: *pValue = MagicCell(header.e_ident); return "MAGIC";
    case 1: *pValue = NameCell(FileClassName(header.e_ident[4])); return "CLASS";
    case 2: *pValue = NameCell(DataEncodingName(header.e_ident[5])); return "DATA";
    case 3: *pValue = DecCell(header.e_ident[6]); return "VER";
    case 4: *pValue = NameCell(ChipName(header.e_chip).c_str()); return "Chip";
    case 5: *pValue = DecCell(header.e_reserved); return "Reserved";
    case 6: *pValue = NameCell(FileTypeName(header.e_type)); return "Type";
    case 7: *pValue = DecCell(header.e_version); return "Version";
    case 8: *pValue = HexCell(header.e_entry); return "Entry";
    case 9: *pValue = HexCell(header.e_phoff); return "PHOff";
    case 10: *pValue = HexCell(header.e_shoff); return "SHOff";
    case 11: *pValue = DecCell(header.e_flags); return "Flags";
    case 12: *pValue = HexCell(header.e_ehsize); return "EHSize";
    case 13: *pValue = HexCell(header.e_phentsize); return "PHEntSize";
    case 14: *pValue = DecCell(header.e_phnum); return "PHNum";
    case 15: *pValue = HexCell(header.e_shentsize); return "SHEntSize";
    case 16: *pValue = DecCell(header.e_shnum); return "SHNum";
    default: *pValue = DecCell(header.e_shstrndx); return "SHStrndex";
  }
}

}  // namespace

// ---- ELF header ----------------------------------------------------------------------------

HRESULT C_KElfHeader::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem at C_KElfHeader::AddToTree");
  return Y_AddItem(LoadLabel(IDS_ELF_HEADER, "ELF Header").text, kHeaderImage, phNewItem);
}

HRESULT C_KElfHeader::SetColumns() { return Y_SetColumns({"ELF Header", "Value"}); }

HRESULT C_KElfHeader::ShowRow(DWORD dwRow) {
  if (!Record() || dwRow >= kHeaderFieldCount) return E_FAIL;
  CellText value;
  const char* pszLabel = HeaderField(*Record(), dwRow, &value);
  return Y_InsertRow(dwRow, 0, {pszLabel, value});
}

// A header that has not been read lists nothing.
HRESULT C_KElfHeader::FillList() { return Y_FillRows(Record() ? kHeaderFieldCount : 0); }

// ---- Program header ------------------------------------------------------------------------

HRESULT C_KElfProgramHeader::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem at C_KElfProgramHeader::AddToTree");
  return Y_AddItem(LoadLabel(IDS_PROGRAM_HEADER, "Program Header").text, kHeaderImage, phNewItem);
}

HRESULT C_KElfProgramHeader::SetColumns() {
  return Y_SetColumns({"Index", "Type", "Offset", "V_Address", "P_Address", "F_Size", "M_Size", "Flags", "Align"});
}

HRESULT C_KElfProgramHeader::ShowRow(DWORD dwRow) {
  if (dwRow >= Held()) return E_FAIL;
  const KEL_PHDR& segment = *Record(dwRow);
  return Y_InsertRow(dwRow, reinterpret_cast<std::intptr_t>(&segment),
                     {IndexCell(dwRow), SegmentTypeName(segment.p_type), HexCell(segment.p_offset),
                      HexOrUndefCell(segment.p_vaddr), HexOrUndefCell(segment.p_paddr), HexCell(segment.p_filesz),
                      HexCell(segment.p_memsz), SegmentFlagsName(segment.p_flags), DecCell(segment.p_align)});
}

HRESULT C_KElfProgramHeader::FillList() { return Y_FillRows(Held()); }

// ---- Section header ------------------------------------------------------------------------

// The message names no "at": it is the text the host has always shown.
HRESULT C_KElfSectionHeader::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem C_KElfSectionHeader::AddToTree");
  return Y_AddItem(LoadLabel(IDS_SECTION_HEADER, "Section Header").text, kHeaderImage, phNewItem);
}

HRESULT C_KElfSectionHeader::SetColumns() {
  return Y_SetColumns(
      {"Index", "Type", "Attr", "Address", "Offset", "Size", "Link", "Info", "Align", "E_Size", "N_Index", "Name"});
}

HRESULT C_KElfSectionHeader::ShowRow(DWORD dwRow) {
  if (dwRow >= Held()) return E_FAIL;
  const KEL_SHDR& section = *Record(dwRow);
  const char* pszName = nullptr;
  if (GetSectionName(dwRow, &pszName) != S_OK || !pszName) pszName = "";
  return Y_InsertRow(dwRow, reinterpret_cast<std::intptr_t>(&section),
                     {IndexCell(dwRow), SectionTypeName(section.sh_type), SectionFlagsName(section.sh_flags),
                      HexOrUndefCell(section.sh_addr), HexCell(section.sh_offset), HexCell(section.sh_size),
                      DecCell(section.sh_link), DecCell(section.sh_info), DecCell(section.sh_addralign),
                      HexCell(section.sh_entsize), DecCell(section.sh_name), pszName});
}

HRESULT C_KElfSectionHeader::FillList() { return Y_FillRows(Held()); }

// ---- Document ------------------------------------------------------------------------------

HRESULT C_KOfdELF::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem at C_KOfdELF::AddToTree");
  C_Browse* const pHeaders[] = {&m_Header, &m_ProgramHeader, &m_SectionHeader};
  for (C_Browse* pHeader : pHeaders) {
    pHeader->SetRootItem(GetRootItem());
    pHeader->AddToTree(nullptr);
  }
  for (I_KOfdSection* pSection : m_vSections) {
    if (I_Browse* pBrowse = dynamic_cast<I_Browse*>(pSection)) {
      pBrowse->SetRootItem(GetRootItem());
      pBrowse->AddToTree(nullptr);
    }
  }
  if (phNewItem) *phNewItem = GetRootItem();
  return S_OK;
}
