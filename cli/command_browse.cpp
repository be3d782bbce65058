// kofd browse FILE: the document's tree view, and with --select or --all the list views of its
// items, filled through the browse interfaces into the portable control models. The tool plays
// the host: it owns both controls, puts an item for the file at the top of the tree and hands
// that item to the document.
#include <cstdio>
#include <memory>
#include <string>

#include "archive/archive.h"
#include "archive/unknown_object.h"
#include "commands.h"
#include "escape.h"
#include "frame/text.h"
#include "json_result.h"
#include "object_file.h"
#include "platform/control_model.h"
#include "present/browse.h"
#include "report.h"
#include "view_text.h"

namespace cli {
namespace {

struct BrowseOptions {
  std::string sPath;
  std::string sSelect;
  bool bAll = false;
  bool bJson = false;
};

struct Destroyer {
  void operator()(I_Unknown* pObject) const { pObject->Destroy(); }
};

// The opened document, as its owner and as its browse interface.
struct BrowsedDocument {
  std::unique_ptr<I_Unknown, Destroyer> pOwner;
  I_Browse* pBrowse = nullptr;
};

// An object, an archive, or any other file as an unknown object, as its first bytes say.
BrowsedDocument OpenBrowsed(const std::string& sPath) {
  BrowsedDocument document;
  const FileKind kind = KindOfFile(sPath);
  if (kind == FileKind::kObject) {
    std::unique_ptr<C_KOfdELF4> pObject = OpenObject(sPath);
    document.pBrowse = pObject.get();
    document.pOwner.reset(pObject.release());
  } else if (kind == FileKind::kArchive) {
    auto* pArchive = new C_KOfdArchive;
    document.pOwner.reset(pArchive);
    document.pBrowse = pArchive;
    OpenArchive(*pArchive, sPath);
  } else {
    auto* pUnknown = new C_UnknownObject;
    document.pOwner.reset(pUnknown);
    document.pBrowse = pUnknown;
    pUnknown->AttachPath(sPath.c_str(), 0);
    ThrowIfFailed(pUnknown->Load(), pUnknown);
  }
  return document;
}

std::string BaseName(const std::string& sPath) {
  const std::size_t nSlash = sPath.find_last_of('/');
  return nSlash == std::string::npos ? sPath : sPath.substr(nSlash + 1);
}

// The items in tree order, each with its depth.
struct TreeEntry {
  int nDepth;
  platform::TreeItem hItem;
};

void Walk(const platform::TreeModel& tree, platform::TreeItem hParent, int nDepth, std::vector<TreeEntry>* pEntries) {
  for (platform::TreeItem hChild : tree.Children(hParent)) {
    pEntries->push_back({nDepth, hChild});
    Walk(tree, hChild, nDepth + 1, pEntries);
  }
}

I_Browse* BrowseOf(const platform::TreeModel& tree, platform::TreeItem hItem) {
  return reinterpret_cast<I_Browse*>(tree.Find(hItem)->lParam);
}

// The item's list, shown, read off the model and hidden again.
view_text::ListView ShowList(I_Browse* pBrowse, const platform::ListModel& list, const std::string& sItem) {
  view_text::ListView view;
  const HRESULT hr = pBrowse->ShowInList();
  if (hr < 0) Fail("the list of " + EscapeText(sItem) + " cannot be filled", hr);
  for (const platform::ListModel::Column& column : list.Columns()) view.vTitles.push_back(column.sTitle);
  for (const platform::ListModel::Row& row : list.Rows()) view.vRows.push_back(row.vCells);
  pBrowse->HideAll();
  return view;
}

// The items under hParent, each with its text and its own children.
void WriteTree(C_JsonWriter& json, const platform::TreeModel& tree, platform::TreeItem hParent) {
  json.BeginArray();
  for (platform::TreeItem hChild : tree.Children(hParent)) {
    json.BeginObject();
    json.Name("text", tree.Find(hChild)->sText);
    json.Key("children");
    WriteTree(json, tree, hChild);
    json.EndObject();
  }
  json.EndArray();
}

// A list as its item's text, its column titles and its rows; a row whose cells are not all
// valid UTF-8 also has every cell's bytes in hexadecimal.
void WriteList(C_JsonWriter& json, const std::string& sItem, const view_text::ListView& view) {
  json.BeginObject();
  json.Name("item", sItem);
  json.Key("columns").BeginArray();
  for (const std::string& sTitle : view.vTitles) json.String(sTitle);
  json.EndArray();
  json.Key("rows").BeginArray();
  for (const std::vector<std::string>& vCells : view.vRows) {
    json.BeginObject();
    json.Key("cells").BeginArray();
    bool bValid = true;
    for (const std::string& sCell : vCells) bValid = json.String(sCell) && bValid;
    json.EndArray();
    if (!bValid) {
      json.Key("cells_hex").BeginArray();
      for (const std::string& sCell : vCells) json.Hex(sCell.data(), sCell.size());
      json.EndArray();
    }
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
}

// The whole tree, then the lists chosen (one with --select, every one with --all), each filled
// before the document starts.
int WriteBrowse(const BrowseOptions& options, const platform::TreeModel& tree, const platform::ListModel& list,
                const std::vector<TreeEntry>& entries) {
  std::vector<std::pair<std::string, view_text::ListView>> lists;
  for (const TreeEntry& entry : entries) {
    I_Browse* pBrowse = BrowseOf(tree, entry.hItem);
    const std::string& sItem = tree.Find(entry.hItem)->sText;
    const bool bChosen = options.sSelect.empty() ? options.bAll : kofd_text::EqualIgnoringCase(sItem.c_str(), options.sSelect.c_str());
    if (!pBrowse || !bChosen) continue;
    lists.emplace_back(sItem, ShowList(pBrowse, list, options.sSelect.empty() ? sItem : options.sSelect));
    if (!options.sSelect.empty()) break;
  }
  if (!options.sSelect.empty() && lists.empty()) return ReportFailure(options.sPath, "no item " + EscapeText(options.sSelect) + " in the tree");
  C_JsonWriter json(stdout);
  json.BeginDocument("browse");
  json.Name("file", options.sPath);
  json.Key("tree");
  WriteTree(json, tree, platform::kTreeRoot);
  json.Key("lists").BeginArray();
  for (const auto& item : lists) WriteList(json, item.first, item.second);
  json.EndArray();
  json.EndObject();
  return FinishJson(json, options.sPath);
}

int RunBrowse(const BrowseOptions& options) {
  return RunReporting(options.sPath, [&] {
    BrowsedDocument document = OpenBrowsed(options.sPath);
    platform::TreeModel tree;
    platform::ListModel list;
    document.pBrowse->SetWindows(&tree, &list);
    platform::TreeItem hFile = tree.Insert(platform::kTreeRoot, BaseName(options.sPath).c_str(), 0, 0);
    document.pBrowse->SetRootItem(hFile);
    const HRESULT hr = document.pBrowse->AddToTree(nullptr);
    if (hr < 0) return ReportFailure(options.sPath, "the tree view cannot be filled", hr);

    std::vector<TreeEntry> entries;
    Walk(tree, platform::kTreeRoot, 0, &entries);
    if (options.bJson) return WriteBrowse(options, tree, list, entries);
    std::string sOut;
    if (!options.sSelect.empty()) {
      for (const TreeEntry& entry : entries) {
        I_Browse* pBrowse = BrowseOf(tree, entry.hItem);
        if (!pBrowse || !kofd_text::EqualIgnoringCase(tree.Find(entry.hItem)->sText.c_str(), options.sSelect.c_str())) continue;
        view_text::AppendList(&sOut, ShowList(pBrowse, list, options.sSelect));
        fputs(sOut.c_str(), stdout);
        return 0;
      }
      return ReportFailure(options.sPath, "no item " + EscapeText(options.sSelect) + " in the tree");
    }
    std::vector<view_text::TreeLine> lines;
    for (const TreeEntry& entry : entries) lines.push_back({entry.nDepth, tree.Find(entry.hItem)->sText});
    view_text::AppendTree(&sOut, lines);
    for (const TreeEntry& entry : entries) {
      I_Browse* pBrowse = options.bAll ? BrowseOf(tree, entry.hItem) : nullptr;
      if (!pBrowse) continue;
      const std::string& sItem = tree.Find(entry.hItem)->sText;
      view_text::AppendListHeading(&sOut, sItem);
      view_text::AppendList(&sOut, ShowList(pBrowse, list, sItem));
    }
    fputs(sOut.c_str(), stdout);
    return 0;
  });
}

}  // namespace

void RegisterBrowse(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("browse", "Show the tree view of FILE, and the list views of its items");
  auto options = std::make_shared<BrowseOptions>();
  command->add_option("FILE", options->sPath, "A KELF object, an archive, or any other file (shown as raw data)")->required();
  CLI::Option* select = command->add_option(
      "--select", options->sSelect, "Show the list of one item instead of the tree: a caption such as \"Section Header\", or a section or member name (ignoring case)");
  command->add_flag("--all", options->bAll, "After the tree, show the list of every item in tree order")->excludes(select);
  command->add_flag("--json", options->bJson, JsonHelp("browse") + ": the tree nested, then the lists chosen");
  command->callback([options, &result] { result.status = RunBrowse(*options); });
}

}  // namespace cli
