// The browse views, checked through the requests that reach the portable tree and list models.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame_temp_dir.h"
#include "archive/archive.h"
#include "archive/unknown_object.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"
#include "platform/control_model.h"
#include "sections/kmd_tables.h"
#include "sections/line_table.h"
#include "sections/share_rom_table.h"
#include "sections_file.h"

namespace {

using Log = std::vector<std::string>;

// The host's part: both controls, recording into one log, and an item for the file on top.
class Host {
 public:
  explicit Host(I_Browse& browse) {
    browse.SetWindows(&tree, &list);
    hFile = tree.Insert(platform::kTreeRoot, "file", 0, 0);
    browse.SetRootItem(hFile);
    tree.SetLog(&log);
    list.SetLog(&log);
  }
  std::vector<std::string> Row(std::size_t i) const { return list.Rows().at(i).vCells; }

  platform::TreeModel tree;
  platform::ListModel list{7};
  platform::TreeItem hFile;
  Log log;
};

// Calls what and expects the exception the library reports with, returning its message.
template <class What>
std::string Thrown(What what, HRESULT hrCode) {
  try {
    what();
  } catch (const C_Exception& error) {
    EXPECT_EQ(error.Code(), hrCode);
    return error.Message();
  }
  ADD_FAILURE() << "nothing thrown";
  return "";
}

class Probe : public C_Browse {
 public:
  using C_Browse::Z_FindItem;
  using C_Browse::Z_InsertListNumber;
  using C_Browse::Z_SetSubItemNumber;
};

}  // namespace

TEST(Browse, ClassWithoutAListShowsTheMessageAndHidesWhatItInserted) {
  C_KOfdLineTable line;
  line.SetName(".line");
  Host host(line);
  platform::TreeItem hItem = nullptr;
  ASSERT_EQ(line.AddToTree(&hItem), S_OK);
  EXPECT_EQ(host.tree.Find(hItem)->lParam, reinterpret_cast<std::intptr_t>(static_cast<I_Browse*>(&line)));
  ASSERT_EQ(line.ShowInList(), S_OK);
  EXPECT_TRUE(host.tree.Find(host.hFile)->bExpanded);
  ASSERT_EQ(line.HideAll(), S_OK);
  EXPECT_EQ(host.log, (Log{"TVM_INSERTITEMA 1 \".line\" 5", "GetTextMetricsA",
                           "LVM_INSERTCOLUMNA 0 \"Browse Interface Message\" 168", "LVM_SETCOLUMNWIDTH 0 -2",
                           "LVM_INSERTITEMA 0 \"This Class does not support for Browse Interface!\"",
                           "TVM_EXPAND 1 0x4002", "LVM_DELETEALLITEMS", "LVM_DELETECOLUMN 0"}));
  EXPECT_TRUE(host.list.Columns().empty());
  EXPECT_EQ(line.GetColumnCount(), 0);
  EXPECT_EQ(line.RemoveFromTree(), S_OK);
  EXPECT_EQ(line.RemoveFromTree(), static_cast<HRESULT>(0x800403F4));
}

TEST(Browse, ShareRomRowsRepeatTheFirstWordAndHideAllDeletesEveryColumn) {
  SectionFile file(kelf_test::Words({0x41424344, 0x20212223, 0x30313233, 0x00000000, 0x7A797877}));
  C_KOfdShareRomTable rom;
  file.Load(rom, 0, 20);
  Host host(rom);
  ASSERT_EQ(rom.ShowInList(), static_cast<HRESULT>(0x800403F4));  // the file item has no children
  ASSERT_EQ(host.list.Rows().size(), 2u);
  EXPECT_EQ(host.Row(1), (std::vector<std::string>{
                             "00000010", "44 43 42 41 - 20 20 20 20 -- 20 20 20 20 - 20 20 20 20", "DCBA"}));
  EXPECT_EQ(host.Row(0)[2], "DCBA....3210....");
  host.log.clear();
  rom.HideAll();
  EXPECT_EQ(host.log, (Log{"LVM_DELETEALLITEMS", "LVM_DELETECOLUMN 0", "LVM_DELETECOLUMN 0", "LVM_DELETECOLUMN 0"}));
  EXPECT_EQ(rom.ShowRow(2), E_FAIL);
  C_KOfdShareRomTable empty;
  Host none(empty);
  empty.ShowInList();
  EXPECT_TRUE(none.list.Rows().empty());
  EXPECT_EQ(empty.ShowRow(0), E_FAIL);
}

TEST(Browse, RefusedRequestsAreSystemErrorsNamingTheRequest) {
  C_KOfdKmdTable sound;
  Host host(sound);
  host.list.Refuse("LVM_INSERTCOLUMNA");
  const std::string sMessage = Thrown([&] { sound.ShowInList(); }, static_cast<HRESULT>(0x800403F4));
  EXPECT_EQ(sMessage.rfind("error 1012: internal exception - System Error(function ListViewInsertColumn at "
                           "C_Browse::Z_InsertColumn(...)). \nSystem Error: ",
                           0),
            0u)
      << sMessage;
  Probe probe;
  Host other(probe);
  probe.AddToTree(nullptr);
  other.list.Refuse("LVM_DELETECOLUMN");
  probe.ShowInList();
  EXPECT_NE(Thrown([&] { probe.HideAll(); }, static_cast<HRESULT>(0x800403F4)).find("ListView_DeleteColumn at C_Browse::HideAll()"),
            std::string::npos);
  other.tree.Refuse("TVM_INSERTITEMA");
  other.list.Refuse("LVM_INSERTITEMA");
  C_KOfdLineTable line;
  line.SetRootItem(other.hFile);
  EXPECT_NE(Thrown([&] { line.AddToTree(nullptr); }, static_cast<HRESULT>(0x800403F4)).find("TreeView_InsertItem"),
            std::string::npos);
  EXPECT_NE(Thrown([&] { probe.Z_InsertListNumber(0, 1, 0); }, static_cast<HRESULT>(0x800403F4)).find("ListView_InsertItem"),
            std::string::npos);
}

TEST(Browse, WithoutATreeItemAddToTreeNamesTheClass) {
  C_KElfHeader header;
  C_KElfSectionHeader sections;
  C_KOfdShareRomTable rom;
  C_KOfdELF4 document;
  EXPECT_EQ(Thrown([&] { header.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem at C_KElfHeader::AddToTree");
  EXPECT_EQ(Thrown([&] { sections.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem C_KElfSectionHeader::AddToTree");
  EXPECT_EQ(Thrown([&] { rom.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem at C_KOfdSection::AddToTree");
  EXPECT_EQ(Thrown([&] { document.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem at C_KOfdELF::AddToTree");
  C_KArcNameMember names;
  C_UnknownObject raw;
  C_KOfdArchive archive;
  EXPECT_EQ(Thrown([&] { names.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem C_KArcLinkMember::AddToTree");
  EXPECT_EQ(Thrown([&] { raw.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem at C_UnknownObject::AddToTree");
  EXPECT_EQ(Thrown([&] { archive.AddToTree(nullptr); }, E_POINTER),
            "Exception: 0x80004003. m_hRootItem at C_KOfdELF::AddToTree");
  EXPECT_EQ(C_KArcObjectMember().AddToTree(nullptr), E_POINTER);
  EXPECT_EQ(Probe().AddToTree(nullptr), E_FAIL);
  EXPECT_STREQ(LoadLabel(IDS_ELF_HEADER, "x").text, "ELF Header");
  EXPECT_STREQ(LoadLabel(1023, "ELF Header").text, "ELF Header");
}

TEST(Browse, FindItemMatchesThePrefixAfterTheStartAndNumbersAreUpperCase) {
  Probe probe;
  Host host(probe);
  probe.Z_InsertListNumber(0, 0xABC, 0);
  probe.Z_InsertListNumber(1, 0xAB, 0);
  probe.Z_SetSubItemNumber(1, 0, 0xFFFFFFFF);
  EXPECT_EQ(host.Row(1)[0], "FFFFFFFF");
  EXPECT_EQ(probe.Z_FindItem(-1, "ab"), 0);
  EXPECT_EQ(probe.Z_FindItem(0, "ff"), 1);
  EXPECT_NE(Thrown([&] { probe.Z_FindItem(1, "A"); }, static_cast<HRESULT>(0x800403F4)).find("ListViewFindItem"),
            std::string::npos);
}

// A small object whose tables are damaged where a view could read out of bounds.
TEST(Browse, DocumentPutsHeadersThenSectionsInTheTreeAndListsDamagedTables) {
  using namespace kelf_test;
  TempDir dir;
  StringTable names = StringTable::WithNul();
  ObjectBuilder builder;
  builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes{1, 2, 3, 4, 5}, {}, {}, {}});
  builder.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16,
                      Join({Sym(0, 0, 0, 0, 0, 0, 0), Sym(names.Add("main"), 0xFFFFFFFF, 4, 3, 7, 0, 1),
                            Sym(500, 1, 0, 0, 0, 0, 1)}),
                      {}, {}, {}});
  names.Add("");
  Bytes unterminated = names.Data();
  unterminated.push_back('x');
  builder.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, unterminated, {}, {}, {}});
  builder.AddSection({".expr", kShtExpr, 0, 0, 2, 0, 4, 8, Join({Exp(13, 9), Exp(1, 0)}), {}, {}, {}});
  builder.AddSection({".rel", kShtRelxeb, 0, 0, 4, 1, 4, 20, Join({Relxeb(4, 1, 2, 0, 7, 0, 0), Relxeb(0, 0, 0, 0, 7, 1, 5)}), {}, {}, {}});
  builder.AddSection({".bankinfo", kShtBnkInfo, 0, 0, 0, 0, 1, 8, BankInfo(0x100, 0xFFFFFFFF), {}, {}, {}});
  builder.AddSection({".kmd", kShtKdm, 0, 0, 0, 0, 1, 0, Bytes(9, 0xAB), {}, {}, {}});
  const Bytes bytes = builder.Build();
  C_KOfdELF4 document;
  document.AttachPath(dir.Write("damaged.o", std::string(bytes.begin(), bytes.end())).c_str(), 0);
  ASSERT_EQ(document.Read(), S_OK);
  Host host(document);
  ASSERT_EQ(document.AddToTree(nullptr), S_OK);
  std::vector<std::string> captions;
  for (platform::TreeItem hItem : host.tree.Children(host.hFile)) captions.push_back(host.tree.Find(hItem)->sText);
  EXPECT_EQ(captions, (std::vector<std::string>{"ELF Header", "Program Header", "Section Header", ".text", ".symtab",
                                                 ".symstrtab", ".expr", ".rel", ".bankinfo", ".kmd", ".shstrtab"}));
  auto show = [&](std::size_t nItem) {
    I_Browse* pBrowse = reinterpret_cast<I_Browse*>(host.tree.Find(host.tree.Children(host.hFile)[nItem])->lParam);
    pBrowse->HideAll();
    EXPECT_EQ(pBrowse->ShowInList(), S_OK);
    std::vector<std::vector<std::string>> rows;
    for (const platform::ListModel::Row& row : host.list.Rows()) rows.push_back(row.vCells);
    pBrowse->HideAll();
    return rows;
  };
  EXPECT_EQ(show(3), (std::vector<std::vector<std::string>>{{"00000000", "04030201  00000005"}}));
  const auto symbols = show(4);
  EXPECT_EQ(symbols.at(1), (std::vector<std::string>{"[1]", "UNDEF", "4", "", "Err", "0", "1", "1", "main"}));
  EXPECT_EQ(symbols.at(2).back(), "");
  EXPECT_EQ(show(5).back(), (std::vector<std::string>{"[7]", "x"}));
  EXPECT_EQ(show(6).at(0), (std::vector<std::string>{"[0]", "SYM", "9", ""}));
  const auto relocations = show(7);
  EXPECT_EQ(relocations.at(0).back(), "Error!");
  EXPECT_EQ(relocations.at(1), (std::vector<std::string>{"[1]", "0", "0", "0", "0", "7", "1", "5", "Error!"}));
  EXPECT_EQ(show(8), (std::vector<std::vector<std::string>>{{"100", "ffffffff"}}));
  const auto soundRows = show(9);
  ASSERT_EQ(soundRows.size(), 2u);
  EXPECT_EQ(soundRows[1], (std::vector<std::string>{"[1]", "AB", "", "", "", "", "", "", ""}));
}
