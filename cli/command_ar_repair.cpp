// kofd ar LIB check|replace|extract: an archive checked against its members and rebuilt from
// them, one member put in another's place, members written out as files.
//
// All three read the archive through C_KArcImage, which walks the members themselves instead of
// trusting the linker member; check --fix and replace write the archive afresh from that walk
// through the replacing output, extract writes each member through one of its own.
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "archive/archive_check.h"
#include "commands.h"
#include "escape.h"
#include "frame/replacing_file.h"
#include "json_result.h"
#include "report.h"

namespace cli {
namespace {

struct RepairOptions {
  std::vector<std::string> vItems;
  std::string sDirectory = ".";
  bool bFix = false;
  bool bJson = false;
};

const char* OrDash(const std::string& s) { return s.empty() ? "-" : nullptr; }

std::string TextField(const std::string& s) { return OrDash(s) ? "-" : EscapeText(s); }

void WriteFindings(C_JsonWriter& json, const char* pszKey, const std::vector<S_KArcFinding>& vFindings) {
  json.Key(pszKey).BeginArray();
  for (const S_KArcFinding& finding : vFindings) {
    json.BeginObject();
    json.Key("kind").String(finding.sKind);
    json.Key("words").String(finding.sWords);
    if (finding.sMember.empty()) json.Key("member").Null();
    else json.Name("member", finding.sMember);
    if (finding.sSymbol.empty()) json.Key("symbol").Null();
    else json.Name("symbol", finding.sSymbol);
    json.EndObject();
  }
  json.EndArray();
}

std::size_t SymbolCount(const C_KArcImage& image) {
  std::size_t n = 0;
  for (const S_KArcImageMember& member : image.Members()) n += member.vSymbols.size();
  return n;
}

int RunCheck(const std::string& sLibrary, const RepairOptions& options) {
  return RunFinding(sLibrary, [&] {
    // The fix locks the archive before it is read, so that no change slips in between.
    std::unique_ptr<C_ReplacingFile> pOutput;
    if (options.bFix) pOutput.reset(new C_ReplacingFile(sLibrary.c_str()));
    C_KArcImage image;
    image.Read(sLibrary.c_str());
    const std::vector<S_KArcFinding> vFound = image.Findings();
    C_KArcImage after;
    if (options.bFix) {
      image.Rebuild(*pOutput);
      pOutput->Commit();
      after.Read(sLibrary.c_str());
    }
    const C_KArcImage& final = options.bFix ? after : image;
    const int status = final.Findings().empty() ? 0 : kExitFound;
    if (options.bJson) {
      C_JsonWriter json(stdout);
      json.BeginDocument("ar check");
      json.Name("file", sLibrary);
      json.Key("member_count").Number(final.Members().size());
      json.Key("symbol_count").Number(SymbolCount(final));
      WriteFindings(json, "findings", vFound);
      json.Key("fixed").Bool(options.bFix);
      if (options.bFix) WriteFindings(json, "remaining", after.Findings());
      json.EndObject();
      if (!json.Finish()) Fail("standard output cannot be written");
      return status;
    }
    for (const S_KArcFinding& finding : vFound) {
      printf("%s\t%s\t%s\t%s\n", finding.sKind.c_str(), TextField(finding.sMember).c_str(),
             TextField(finding.sSymbol).c_str(), EscapeText(finding.sWords).c_str());
    }
    printf("%s: %zu members, %zu symbols, %zu findings\n", EscapeText(sLibrary).c_str(), image.Members().size(),
           SymbolCount(image), vFound.size());
    if (options.bFix) {
      printf("%s: rebuilt: %zu members, %zu symbols, %zu findings remain\n", EscapeText(sLibrary).c_str(),
             after.Members().size(), SymbolCount(after), after.Findings().size());
      for (const S_KArcFinding& finding : after.Findings()) {
        printf("%s\t%s\t%s\t%s\n", finding.sKind.c_str(), TextField(finding.sMember).c_str(),
               TextField(finding.sSymbol).c_str(), EscapeText(finding.sWords).c_str());
      }
    }
    return status;
  });
}

// The file name part of a path.
std::string BaseName(const std::string& sPath) {
  const std::size_t nSlash = sPath.find_last_of('/');
  return nSlash == std::string::npos ? sPath : sPath.substr(nSlash + 1);
}

// A walk that stopped early leaves bytes the rebuilt archive would not hold: refused.
void RefuseLosingBytes(const C_KArcImage& image) {
  for (const S_KArcFinding& finding : image.Findings()) {
    if (finding.sKind == "member-past-end" || finding.sKind == "member-header-bad") {
      Fail("the archive is damaged (" + finding.sKind + "); see kofd ar LIB check");
    }
  }
}

int RunReplace(const std::string& sLibrary, const RepairOptions& options) {
  std::vector<std::string> vMembers;
  std::size_t nMembers = 0;
  const int status = RunReporting(sLibrary, [&] {
    C_ReplacingFile output(sLibrary.c_str());
    C_KArcImage image;
    image.Read(sLibrary.c_str());
    RefuseLosingBytes(image);
    for (const std::string& sObject : options.vItems) {
      // The name as given (create and add name members so), else the file's base name.
      long lMember = image.FindMember(sObject);
      if (lMember < 0) lMember = image.FindMember(BaseName(sObject));
      if (lMember < 0) Fail("no member named " + EscapeText(BaseName(sObject)));
      vMembers.push_back(image.Members()[static_cast<std::size_t>(lMember)].sName);
      const int objectStatus = RunReporting(sObject, [&] {
        image.ReplaceMember(static_cast<DWORD>(lMember), sObject.c_str());
        return 0;
      });
      if (objectStatus != 0) return objectStatus;
    }
    image.Rebuild(output);
    output.Commit();
    nMembers = image.Members().size();
    return 0;
  });
  if (status != 0 || !options.bJson) return status;
  C_JsonWriter json(stdout);
  json.BeginDocument("ar replace");
  json.Name("file", sLibrary);
  json.Key("items").BeginArray();
  for (std::size_t i = 0; i < options.vItems.size(); ++i) {
    json.BeginObject();
    json.Name("name", options.vItems[i]);
    json.Name("member", vMembers[i]);
    json.EndObject();
  }
  json.EndArray();
  json.Key("member_count").Number(nMembers);
  json.EndObject();
  return FinishJson(json, sLibrary);
}

// A member name that is a plain file name: no directory part, not "." or "..", not empty.
bool IsPlainName(const std::string& sName) {
  return !sName.empty() && sName != "." && sName != ".." && sName.find('/') == std::string::npos &&
         sName.find('\\') == std::string::npos;
}

int RunExtract(const std::string& sLibrary, const RepairOptions& options) {
  struct Written {
    std::string sName, sPath;
    std::size_t nSize;
  };
  std::vector<Written> vWritten;
  const int status = RunReporting(sLibrary, [&] {
    C_KArcImage image;
    image.Read(sLibrary.c_str());
    struct stat directory;
    if (stat(options.sDirectory.c_str(), &directory) != 0 || !S_ISDIR(directory.st_mode)) {
      Fail(EscapeText(options.sDirectory) + " is no directory");
    }
    // Every name is checked before the first file is written.
    std::vector<std::size_t> vChosen;
    for (const std::string& sName : options.vItems) {
      const long lMember = image.FindMember(sName);
      if (lMember < 0) Fail("no member named " + EscapeText(sName));
      const std::string& sStored = image.Members()[static_cast<std::size_t>(lMember)].sName;
      if (!IsPlainName(sName) || !IsPlainName(sStored)) {
        Fail("the member name " + EscapeText(sStored) + " is no plain file name: it would be written outside " +
             EscapeText(options.sDirectory));
      }
      // A symbolic link in the directory would take the bytes wherever it points.
      struct stat target;
      const std::string sPath = options.sDirectory + "/" + sStored;
      if (lstat(sPath.c_str(), &target) == 0 && !S_ISREG(target.st_mode)) {
        Fail(EscapeText(sPath) + " exists and is no ordinary file (a symbolic link or a directory)");
      }
      vChosen.push_back(static_cast<std::size_t>(lMember));
    }
    for (std::size_t nMember : vChosen) {
      const S_KArcImageMember& member = image.Members()[nMember];
      const std::string sPath = options.sDirectory + "/" + member.sName;
      C_ReplacingFile output(sPath.c_str());
      image.WriteMember(static_cast<DWORD>(nMember), output);
      output.Commit();
      vWritten.push_back({member.sName, sPath, member.dwSize});
    }
    return 0;
  });
  if (status != 0 || !options.bJson) return status;
  C_JsonWriter json(stdout);
  json.BeginDocument("ar extract");
  json.Name("file", sLibrary);
  json.Name("directory", options.sDirectory);
  json.Key("items").BeginArray();
  for (const Written& written : vWritten) {
    json.BeginObject();
    json.Name("name", written.sName);
    json.Name("path", written.sPath);
    json.Key("size").Number(written.nSize);
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
  return FinishJson(json, sLibrary);
}

}  // namespace

void RegisterArRepair(CLI::App& ar, CommandResult& result, std::shared_ptr<const std::string> pLibrary) {
  auto options = std::make_shared<RepairOptions>();
  CLI::App* check = ar.add_subcommand(
      "check",
      "Check the linker member, the name member and the member layout against the members themselves: one line "
      "per finding, KIND<TAB>MEMBER<TAB>SYMBOL<TAB>WORDS, then a summary (exit 0 clean, 1 findings, 2 trouble)");
  check->add_flag("--fix", options->bFix,
                  "Rebuild the linker and name members from the members, always, deterministically, and replace LIB; "
                  "the exit status then tells whether the rebuilt archive is clean");
  check->add_flag("--json", options->bJson, JsonHelp("ar-check"));
  check->callback([options, pLibrary, &result] { result.status = RunCheck(*pLibrary, *options); });

  CLI::App* replace = ar.add_subcommand(
      "replace", "Put each object OBJ in the place of the member named as its file name (ignoring case); the index "
                 "is rebuilt. A name no member has is an error, and nothing is written");
  replace->add_option("OBJ", options->vItems, "Objects to put in, each replacing the member of its base name")->required();
  replace->add_flag("--json", options->bJson, JsonHelp("ar-replace"));
  replace->callback([options, pLibrary, &result] { result.status = RunReplace(*pLibrary, *options); });

  CLI::App* extract = ar.add_subcommand(
      "extract", "Write each member NAME (ignoring case) to DIR/NAME; names with a directory part, '.', '..' or "
                 "that meet a symbolic link there are refused before anything is written");
  extract->add_option("NAME", options->vItems, "Members to write out")->required();
  extract->add_option("-C", options->sDirectory, "The directory to write them in (default: the current one)");
  extract->add_flag("--json", options->bJson, JsonHelp("ar-extract"));
  extract->callback([options, pLibrary, &result] { result.status = RunExtract(*pLibrary, *options); });
}

}  // namespace cli
