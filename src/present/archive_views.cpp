// The browse views of an archive and of an unknown object: the archive's members in the tree (each
// object member with its object's items under it), the linker member's text lines, the names of
// the name member, and the unknown object's raw rows.
#include <cstdio>
#include <cstring>
#include <string>

#include "archive/archive.h"
#include "archive/unknown_object.h"
#include "object/kofd_elf.h"

namespace {

// One line of the linker member's list, formatted into the 256 bytes every line gets.
struct LinkLine {
  char text[256];
};

}  // namespace

// ---- Linker member: a one-column list of text lines ----------------------------------------

HRESULT C_KArcLinkMember::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem C_KArcLinkMember::AddToTree");
  return Y_AddItem(LoadLabel(IDS_LINK_MEMBER, "Link Member").text, kMemberImage, phNewItem);
}

HRESULT C_KArcLinkMember::SetColumns() { return Y_SetColumns({LoadLabel(IDS_LINK_MEMBER, "Link Member").text}); }

// The lines: three counts, two blank lines, the object offsets under their titles, two blank
// lines, the global symbols under theirs. A blank line is a single space.
HRESULT C_KArcLinkMember::ShowRow(DWORD dwRow) {
  const DWORD dwObjects = GetObjectCount(), dwSymbols = GetSymbolCount();
  const DWORD dwSymbolsAt = 7 + dwObjects + 4;
  if (Validate() != S_OK || dwRow >= dwSymbolsAt + dwSymbols) return E_FAIL;
  LinkLine line;
  if (dwRow >= dwSymbolsAt) {
    const DWORD dwSymbol = dwRow - dwSymbolsAt;
    DWORD dwMember = 0;
    const bool bMember = GetSymbolMember(dwSymbol, &dwMember) && dwMember < dwObjects;
    snprintf(line.text, sizeof line.text, "[%u]\t\t%u\t\t%s", static_cast<unsigned>(dwSymbol),
             static_cast<unsigned>(bMember ? m_vOffsets[dwMember] : 0), GetSymbolName(dwSymbol));
  } else if (dwRow >= 7 && dwRow < 7 + dwObjects) {
    const unsigned uOffset = m_vOffsets[dwRow - 7];
    snprintf(line.text, sizeof line.text, "[%u]\t\t%#8X (%u)", static_cast<unsigned>(dwRow - 7), uOffset, uOffset);
  } else {
    const DWORD dwLine = dwRow < 7 ? dwRow : dwRow - dwObjects + 7;
    switch (dwLine) {
      case 0: snprintf(line.text, sizeof line.text, "Version:\t\t%d", static_cast<int>(GetVersion())); break;
      case 1: snprintf(line.text, sizeof line.text, "Number of Objects:\t\t%d", static_cast<int>(dwObjects)); break;
      case 2: snprintf(line.text, sizeof line.text, "Number of Globals:\t\t%d", static_cast<int>(dwSymbols)); break;
      case 5: snprintf(line.text, sizeof line.text, "Index\t\tOffset"); break;
      case 16: snprintf(line.text, sizeof line.text, "Index\t\tName Index\t\tName"); break;
      default: snprintf(line.text, sizeof line.text, " "); break;
    }
  }
  Z_InsertListItem(static_cast<int>(dwRow), line.text, 0);
  return S_OK;
}

HRESULT C_KArcLinkMember::FillList() {
  const HRESULT hr = Validate();
  return hr != S_OK ? hr : Y_FillRows(7 + GetObjectCount() + 4 + GetSymbolCount());
}

// ---- Name member: the names as its dump walks them ------------------------------------------

// The message is the linker member's: it is the text the host has always shown.
HRESULT C_KArcNameMember::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem C_KArcLinkMember::AddToTree");
  return Y_AddItem(LoadLabel(IDS_NAME_MEMBER, "Name Member").text, kMemberImage, phNewItem);
}

HRESULT C_KArcNameMember::SetColumns() { return Y_SetColumns({"Index", "Name"}); }

// Row dwRow is the name the walk from offset 0 meets dwRow-th; its index cell is its offset.
HRESULT C_KArcNameMember::ShowRow(DWORD dwRow) {
  const DWORD dwLength = GetLength();
  DWORD dwOffset = 0;
  for (DWORD i = 0; i < dwRow && dwOffset < dwLength; ++i) dwOffset += static_cast<DWORD>(strlen(GetData() + dwOffset)) + 1;
  if (Validate() != S_OK || dwOffset >= dwLength) return E_FAIL;
  return Y_InsertRow(dwRow, 0, {IndexCell(dwOffset), GetData() + dwOffset});
}

HRESULT C_KArcNameMember::FillList() {
  const HRESULT hr = Validate();
  if (hr != S_OK) return hr;
  DWORD dwRow = 0;
  // The buffer keeps a NUL behind its last byte, so every name ends inside it.
  for (std::uint64_t qwOffset = 0; qwOffset < GetLength(); ++dwRow) {
    const char* pszName = GetData() + qwOffset;
    Y_InsertRow(dwRow, 0, {IndexCell(static_cast<DWORD>(qwOffset)), pszName});
    qwOffset += strlen(pszName) + 1;
  }
  return S_OK;
}

// ---- Object member and archive -------------------------------------------------------------

// An object that cannot be opened keeps its member's item without children; its failure is
// recorded as the member's last error.
HRESULT C_KArcObjectMember::AddToTree(platform::TreeItem* phNewItem) {
  if (!GetRootItem()) return E_POINTER;
  platform::TreeItem hItem = nullptr;
  Y_AddItem(GetName(), kMemberImage, &hItem);
  if (phNewItem) *phNewItem = hItem;
  try {
    I_KOfdELF* pDocument = nullptr;
    GetDocument(&pDocument);
    if (I_Browse* pBrowse = dynamic_cast<I_Browse*>(pDocument)) {
      pBrowse->SetRootItem(hItem);
      pBrowse->AddToTree(nullptr);
    }
  } catch (const C_Exception& error) {
    SetCodeAndMessage(error.Code(), error.Message().c_str());
  }
  return S_OK;
}

HRESULT C_KOfdArchive::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem at C_KOfdELF::AddToTree");
  C_Browse* const pParts[] = {&m_LinkMember, &m_NameMember};
  for (C_Browse* pPart : pParts) {
    pPart->SetRootItem(GetRootItem());
    pPart->AddToTree(nullptr);
  }
  for (C_KArcObjectMember* pMember : m_vMembers) {
    pMember->SetRootItem(GetRootItem());
    pMember->AddToTree(nullptr);
  }
  if (phNewItem) *phNewItem = GetRootItem();
  return S_OK;
}

// ---- Unknown object: the rows of its raw dump ----------------------------------------------

HRESULT C_UnknownObject::AddToTree(platform::TreeItem* phNewItem) {
  Y_RequireRootItem("m_hRootItem at C_UnknownObject::AddToTree");
  return Y_AddItem("Raw Data", kRawDataImage, phNewItem);
}

HRESULT C_UnknownObject::SetColumns() { return Y_SetColumns({"  Address          ", kRawDataTitle}); }

// As the dump's row: the sixteen bytes that follow the row's address, their hexadecimal text
// (blanks show as "20"), then two blanks and the bytes read as characters.
HRESULT C_UnknownObject::ShowRow(DWORD dwRow) {
  const DWORD dwSize = GetData() ? GetRegionSize() : 0;
  if (dwRow >= dwSize / 16 + (dwSize % 16 != 0 ? 1 : 0)) return E_FAIL;
  BYTE row[16];
  memset(row, 0x20, sizeof row);
  std::string sCharacters;
  std::uint64_t qwAt = static_cast<std::uint64_t>(dwRow) * 16;
  for (int i = 0; i < 16 && ++qwAt < dwSize; ++i) {
    row[i] = GetData()[qwAt];
    sCharacters.push_back(platform::IsAlphaNumeric(static_cast<char>(row[i])) ? static_cast<char>(row[i]) : '.');
  }
  char szText[96];
  snprintf(szText, sizeof szText, "%02X %02X %02X %02X %02X %02X %02X %02X - %02X %02X %02X %02X %02X %02X %02X %02X  %s",
           row[0], row[1], row[2], row[3], row[4], row[5], row[6], row[7], row[8], row[9], row[10], row[11], row[12],
           row[13], row[14], row[15], sCharacters.c_str());
  return Y_InsertRow(dwRow, 0, {AddressCell(dwRow * 16), szText});
}

HRESULT C_UnknownObject::FillList() {
  const DWORD dwSize = GetData() ? GetRegionSize() : 0;
  return Y_FillRows(dwSize / 16 + (dwSize % 16 != 0 ? 1 : 0));
}
