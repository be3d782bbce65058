// kofd ar LIB list|symbols|find|create|add|remove: archives of KELF objects (check, replace and
// extract: command_ar_repair.cpp).
//
// Changes never touch LIB until they have all succeeded: the new archive is written through the
// replacing output, which locks LIB before it is read and renames the new archive over it once
// complete, so that two changes at once both take effect. The library's own Add would leave its
// mark in the linker member when it refuses an object, and its Remove leaves the member list
// alone, so the tool checks before it adds and removes with Delete.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "archive/archive.h"
#include "archive/archive_check.h"
#include "commands.h"
#include "escape.h"
#include "frame/error.h"
#include "frame/replacing_file.h"
#include "json_result.h"
#include "object/kofd_elf.h"
#include "object_file.h"
#include "platform/platform.h"
#include "report.h"

namespace cli {
namespace {

// Below this many objects or names a change is quick enough to need no progress line.
constexpr std::size_t kProgressThreshold = 10;

struct ArOptions {
  std::string sLibrary;
  std::string sSymbol;
  std::vector<std::string> vItems;
  bool bJson = false;
};

// "kofd: adding 12/200" on standard error, rewritten in place, when it is a terminal.
class Progress {
 public:
  Progress(const char* pszVerb, std::size_t nTotal)
      : m_pszVerb(pszVerb), m_nTotal(nTotal), m_bShown(nTotal >= kProgressThreshold && isatty(STDERR_FILENO)) {}
  ~Progress() {
    if (m_bShown) fprintf(stderr, "\r\x1b[K");
  }
  void Step(std::size_t nDone) {
    if (m_bShown) fprintf(stderr, "\rkofd: %s %zu/%zu", m_pszVerb, nDone, m_nTotal);
  }

 private:
  const char* m_pszVerb;
  std::size_t m_nTotal;
  bool m_bShown;
};

// The name of the member that symbol dwSymbol of the linker member names.
const char* MemberOfSymbol(C_KOfdArchive& archive, DWORD dwSymbol, const char* pszSymbol) {
  DWORD dwMember = 0;
  if (!archive.LinkMember().GetSymbolMember(dwSymbol, &dwMember) || dwMember >= archive.MemberCount()) {
    Fail("the linker member gives symbol " + EscapeText(pszSymbol) + " no member of the archive");
  }
  return archive.MemberAt(dwMember).GetName();
}

// Refuses, before anything changes, an object whose name is a member's already. A global symbol
// other members define too is listed again (a lookup answers the first member); in text a warning
// names the clash when both definitions are strong and neither lies in a section group, the
// copies a linker keeps once (as __x86.get_pc_thunk.bx in every member of a C library).
void CheckAddable(C_KOfdArchive& archive, const std::string& sObject, bool bWarn) {
  DWORD dwMember = 0;
  if (archive.FindMember(sObject.c_str(), &dwMember) == S_OK) {
    Fail("the archive already has a member named " + EscapeText(archive.MemberAt(dwMember).GetName()));
  }
  C_KOfdELF object;
  object.AttachPath(sObject.c_str(), 0);
  ThrowIfFailed(object.Read(), &object);
  if (!bWarn) return;
  std::vector<S_KArcDefinedSymbol> vSymbols;
  CollectDefinedSymbols(&object, &vSymbols);
  for (const S_KArcDefinedSymbol& symbol : vSymbols) {
    if (symbol.bWeak || symbol.bGrouped) continue;
    long lMember = -1;
    archive.FindSymbolMember(symbol.sName.c_str(), &lMember);
    if (lMember < 0 || static_cast<unsigned long>(lMember) >= archive.MemberCount()) continue;
    C_KArcObjectMember& member = archive.MemberAt(static_cast<DWORD>(lMember));
    I_KOfdELF* pDocument = nullptr;
    std::vector<S_KArcDefinedSymbol> vOther;
    if (member.GetDocument(&pDocument) == S_OK) CollectDefinedSymbols(pDocument, &vOther);
    for (const S_KArcDefinedSymbol& other : vOther) {
      if (other.sName != symbol.sName || other.bWeak || other.bGrouped) continue;
      fprintf(stderr, "kofd: warning: %s: symbol %s is also defined by member %s, which lookups answer\n",
              EscapeText(sObject).c_str(), EscapeText(symbol.sName).c_str(), EscapeText(member.GetName()).c_str());
    }
  }
}

int RunAdd(C_KOfdArchive& archive, C_ReplacingFile& output, const ArOptions& options, std::size_t* pnMembers) {
  Progress progress("adding", options.vItems.size());
  for (std::size_t i = 0; i < options.vItems.size(); ++i) {
    const std::string& sObject = options.vItems[i];
    const int status = RunReporting(sObject, [&] {
      CheckAddable(archive, sObject, !options.bJson);
      const HRESULT hr = archive.Add(sObject.c_str(), 0);
      return hr == S_OK ? 0 : ReportFailure(sObject, "the archive cannot take the object", hr);
    });
    if (status != 0) return status;
    progress.Step(i + 1);
  }
  archive.SaveTo(output);
  *pnMembers = archive.MemberCount();
  return 0;
}

// The change made; *pnMembers is the count of members the archive then has.
int ChangeArchive(const std::string& sCommand, const ArOptions& options, std::size_t* pnMembers) {
  return RunReporting(options.sLibrary, [&] {
    const bool bCreate = sCommand == "create";
    // A dangling symbolic link counts: creating through it would write where it points.
    if (bCreate && platform::PathTaken(options.sLibrary.c_str())) Fail("already exists");
    C_ReplacingFile output(options.sLibrary.c_str(), bCreate ? unsigned(platform::kReplaceNew) : 0u);
    C_KOfdArchive archive;
    if (bCreate) {
      archive.Attach(options.sLibrary.c_str(), options.sLibrary.c_str(), 0, 0, 0);
      archive.Create();
      *pnMembers = archive.MemberCount();
      return RunAdd(archive, output, options, pnMembers);
    }
    OpenArchive(archive, options.sLibrary);
    if (sCommand == "add") return RunAdd(archive, output, options, pnMembers);
    Progress progress("removing", options.vItems.size());
    for (std::size_t i = 0; i < options.vItems.size(); ++i) {
      DWORD dwMember = 0;
      if (archive.FindMember(options.vItems[i].c_str(), &dwMember) != S_OK) Fail("no member named " + EscapeText(options.vItems[i]));
      archive.Delete(options.vItems[i].c_str());
      progress.Step(i + 1);
    }
    archive.SaveTo(output);
    *pnMembers = archive.MemberCount();
    return 0;
  });
}

// The result of a change that succeeded: the items as given and the members the archive has now.
int WriteChange(const std::string& sCommand, const ArOptions& options, std::size_t nMembers) {
  C_JsonWriter json(stdout);
  json.BeginDocument("ar " + sCommand);
  json.Name("file", options.sLibrary);
  json.Key("items").BeginArray();
  for (const std::string& sItem : options.vItems) {
    json.BeginObject();
    json.Name("name", sItem);
    json.EndObject();
  }
  json.EndArray();
  json.Key("member_count").Number(nMembers);
  json.EndObject();
  return FinishJson(json, options.sLibrary);
}

int RunChange(const std::string& sCommand, const ArOptions& options) {
  std::size_t nMembers = 0;
  const int status = ChangeArchive(sCommand, options, &nMembers);
  return status == 0 && options.bJson ? WriteChange(sCommand, options, nMembers) : status;
}

int RunList(const ArOptions& options) {
  return RunReporting(options.sLibrary, [&] {
    C_KOfdArchive archive;
    OpenArchive(archive, options.sLibrary);
    if (options.bJson) {
      C_JsonWriter json(stdout);
      json.BeginDocument("ar list");
      json.Name("file", options.sLibrary);
      json.Key("members").BeginArray();
      for (DWORD i = 0; i < archive.MemberCount(); ++i) {
        C_KArcObjectMember& member = archive.MemberAt(i);
        json.BeginObject();
        json.Key("index").Number(i);
        json.Key("size").Number(member.GetSize());
        json.Name("name", member.GetName());
        json.EndObject();
      }
      json.EndArray();
      json.EndObject();
      return FinishJson(json, options.sLibrary);
    }
    for (DWORD i = 0; i < archive.MemberCount(); ++i) {
      C_KArcObjectMember& member = archive.MemberAt(i);
      printf("%u\t%u\t%s\n", static_cast<unsigned>(i), static_cast<unsigned>(member.GetSize()), EscapeText(member.GetName()).c_str());
    }
    return 0;
  });
}

int RunSymbols(const ArOptions& options) {
  return RunReporting(options.sLibrary, [&] {
    C_KOfdArchive archive;
    OpenArchive(archive, options.sLibrary);
    C_KArcLinkMember& link = archive.LinkMember();
    if (options.bJson) {
      // Every symbol's member is checked first, so that a damaged linker member fails before the
      // document starts; the document is then written as it is made, however many symbols.
      for (DWORD i = 0; i < link.GetNameCount(); ++i) MemberOfSymbol(archive, i, link.GetSymbolName(i));
      C_JsonWriter json(stdout);
      json.BeginDocument("ar symbols");
      json.Name("file", options.sLibrary);
      json.Key("symbols").BeginArray();
      for (DWORD i = 0; i < link.GetNameCount(); ++i) {
        const char* pszSymbol = link.GetSymbolName(i);
        json.BeginObject();
        json.Name("name", pszSymbol);
        json.Name("member", MemberOfSymbol(archive, i, pszSymbol));
        json.EndObject();
      }
      json.EndArray();
      json.EndObject();
      return FinishJson(json, options.sLibrary);
    }
    for (DWORD i = 0; i < link.GetNameCount(); ++i) {
      const char* pszSymbol = link.GetSymbolName(i);
      printf("%s\t%s\n", EscapeText(pszSymbol).c_str(), EscapeText(MemberOfSymbol(archive, i, pszSymbol)).c_str());
    }
    return 0;
  });
}

int RunFind(const ArOptions& options) {
  return RunReporting(options.sLibrary, [&] {
    C_KOfdArchive archive;
    OpenArchive(archive, options.sLibrary);
    const long lSymbol = archive.LinkMember().FindSymbol(options.sSymbol.c_str());
    if (options.bJson) {
      // An absent symbol is an answer, not a failure: the document says so with a null member.
      const char* pszMember = lSymbol < 0 ? nullptr : MemberOfSymbol(archive, static_cast<DWORD>(lSymbol), options.sSymbol.c_str());
      C_JsonWriter json(stdout);
      json.BeginDocument("ar find");
      json.Name("file", options.sLibrary);
      json.Name("symbol", options.sSymbol);
      if (pszMember) json.Name("member", pszMember);
      else json.Key("member").Null();
      json.EndObject();
      return FinishJson(json, options.sLibrary, pszMember ? 0 : kExitFailure);
    }
    if (lSymbol < 0) Fail("no member defines " + EscapeText(options.sSymbol));
    printf("%s\n", EscapeText(MemberOfSymbol(archive, static_cast<DWORD>(lSymbol), options.sSymbol.c_str())).c_str());
    return 0;
  });
}

}  // namespace

void RegisterAr(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("ar", "List, search and change an archive of KELF objects");
  auto options = std::make_shared<ArOptions>();
  command->add_option("LIB", options->sLibrary, "The archive")->required();
  command->require_subcommand(1);

  CLI::App* list = command->add_subcommand("list", "One line per member: INDEX<TAB>SIZE<TAB>NAME");
  list->add_flag("--json", options->bJson, JsonHelp("ar-list"));
  list->callback([options, &result] { result.status = RunList(*options); });
  CLI::App* symbols = command->add_subcommand("symbols", "One line per global symbol: SYMBOL<TAB>MEMBER NAME");
  symbols->add_flag("--json", options->bJson, JsonHelp("ar-symbols"));
  symbols->callback([options, &result] { result.status = RunSymbols(*options); });
  CLI::App* find = command->add_subcommand("find", "The name of the member that defines SYMBOL (exit 1 if none)");
  find->add_option("SYMBOL", options->sSymbol, "A global symbol, matched exactly")->required();
  find->add_flag("--json", options->bJson, JsonHelp("ar-find") + "; an absent symbol has a null member");
  find->callback([options, &result] { result.status = RunFind(*options); });

  struct Change {
    const char* pszName;
    const char* pszHelp;
    const char* pszItems;
    const char* pszItemHelp;
    bool bRequired;
  };
  const Change changes[] = {
      {"create", "Make a new archive LIB (which must not exist) of the objects OBJ", "OBJ", "Objects to put in, named as given", false},
      {"add", "Append the objects OBJ, refusing one whose name the archive has already; a global symbol other members "
              "define is listed again, lookups answering the first member", "OBJ",
       "Objects to add, named as given", true},
      {"remove", "Delete the members NAME (ignoring case), every other member keeping its bytes", "NAME", "Members to delete", true},
  };
  for (const Change& change : changes) {
    CLI::App* sub = command->add_subcommand(change.pszName, change.pszHelp);
    CLI::Option* items = sub->add_option(change.pszItems, options->vItems, change.pszItemHelp);
    if (change.bRequired) items->required();
    sub->add_flag("--json", options->bJson, JsonHelp("ar-change"));
    const std::string sName = change.pszName;
    sub->callback([options, sName, &result] { result.status = RunChange(sName, *options); });
  }
  RegisterArRepair(*command, result, std::shared_ptr<const std::string>(options, &options->sLibrary));
}

}  // namespace cli
