// kofd map FILE [--addr ADDR]: the address -> source line map of an object (of each object
// member of an archive), merged from its line, source-line and stab tables, with banks and
// share-ROM words; or the one range that holds ADDR.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "analyze/map.h"
#include "archive/object_member.h"
#include "commands.h"
#include "escape.h"
#include "input_file.h"
#include "frame/error.h"
#include "json_result.h"
#include "object_file.h"
#include "report.h"

namespace cli {
namespace {

struct MapOptions {
  std::string sPath;
  std::string sAddress;
  bool bJson = false;
};

// One object's map: the file itself, or an archive member (its index and name).
struct ObjectMap {
  bool bMember = false;
  DWORD dwMember = 0;
  std::string sMember;
  kofd_analyze::AddressMap map;
};

// Decimal, or hexadecimal after 0x; 32 bits.
bool ParseAddress(const std::string& sText, DWORD* pdwAddress) {
  const bool bHex = sText.size() > 2 && sText[0] == '0' && (sText[1] == 'x' || sText[1] == 'X');
  const std::string sDigits = bHex ? sText.substr(2) : sText;
  if (sDigits.empty() || sDigits.size() > 10) return false;
  std::uint64_t qwValue = 0;
  for (char ch : sDigits) {
    int digit = -1;
    if (ch >= '0' && ch <= '9') digit = ch - '0';
    else if (bHex && ch >= 'a' && ch <= 'f') digit = ch - 'a' + 10;
    else if (bHex && ch >= 'A' && ch <= 'F') digit = ch - 'A' + 10;
    if (digit < 0) return false;
    qwValue = qwValue * (bHex ? 16 : 10) + static_cast<unsigned>(digit);
  }
  if (qwValue > 0xFFFFFFFFu) return false;
  *pdwAddress = static_cast<DWORD>(qwValue);
  return true;
}

std::string Hex8(std::uint64_t qwValue) {
  char szText[24];
  snprintf(szText, sizeof szText, "%08llx", static_cast<unsigned long long>(qwValue));
  return szText;
}

std::string Place(const kofd_analyze::LineEntry& entry) {
  return (entry.bFileKnown ? EscapeText(entry.sFile) : std::string("<unknown file>")) + ":" + std::to_string(entry.dwLine);
}

std::string Bank(const kofd_analyze::MapRange& range) {
  return range.bBankKnown ? "bank " + std::to_string(range.dwBank) : "no bank";
}

std::string Origin(const kofd_analyze::LineEntry& entry) {
  return std::string(kofd_analyze::LineSourceName(entry.source)) + " section " + std::to_string(entry.dwSection) +
         " record " + std::to_string(entry.dwRecord);
}

void PrintRange(const kofd_analyze::MapRange& range) {
  printf("%s-%s  %s  %s  (%s)\n", Hex8(range.qwFrom).c_str(), Hex8(range.qwTo).c_str(), Place(range.line).c_str(),
         Bank(range).c_str(), Origin(range.line).c_str());
  for (const auto& entry : range.vConflicts) printf("    conflict: %s from %s\n", Place(entry).c_str(), Origin(entry).c_str());
  for (const auto& entry : range.vAgreeing) printf("    also: %s from %s\n", Place(entry).c_str(), Origin(entry).c_str());
  if (!range.vShareRom.empty()) {
    printf("    share ROM:");
    for (const auto& word : range.vShareRom) printf(" %s=%s", Hex8(word.dwAddress).c_str(), Hex8(word.dwWord).c_str());
    printf("\n");
  }
}

void WriteEntry(C_JsonWriter& json, const kofd_analyze::LineEntry& entry) {
  json.BeginObject();
  json.Key("address").Number(entry.dwAddress);
  if (entry.bFileKnown) json.Name("file", entry.sFile);
  else json.Key("file").Null();
  json.Key("line").Number(entry.dwLine);
  json.Key("source").String(kofd_analyze::LineSourceName(entry.source));
  json.Key("section").Number(entry.dwSection);
  json.Key("record").Number(entry.dwRecord);
  json.EndObject();
}

void WriteRange(C_JsonWriter& json, const kofd_analyze::MapRange& range) {
  json.BeginObject();
  json.Key("from").Number(range.qwFrom);
  json.Key("to").Number(range.qwTo);
  if (range.line.bFileKnown) json.Name("file", range.line.sFile);
  else json.Key("file").Null();
  json.Key("line").Number(range.line.dwLine);
  json.Key("source").String(kofd_analyze::LineSourceName(range.line.source));
  json.Key("section").Number(range.line.dwSection);
  json.Key("record").Number(range.line.dwRecord);
  json.Key("bank");
  if (range.bBankKnown) json.Number(range.dwBank);
  else json.Null();
  json.Key("share_rom").BeginArray();
  for (const auto& word : range.vShareRom) {
    json.BeginObject();
    json.Key("address").Number(word.dwAddress);
    json.Key("word").Number(word.dwWord);
    json.Key("section").Number(word.dwSection);
    json.EndObject();
  }
  json.EndArray();
  json.Key("conflicts").BeginArray();
  for (const auto& entry : range.vConflicts) WriteEntry(json, entry);
  json.EndArray();
  json.Key("agreeing").BeginArray();
  for (const auto& entry : range.vAgreeing) WriteEntry(json, entry);
  json.EndArray();
  json.EndObject();
}

// The ranges to show of one map: all of them, or the one holding the address.
std::vector<const kofd_analyze::MapRange*> Shown(const ObjectMap& object, bool bAddress, DWORD dwAddress) {
  std::vector<const kofd_analyze::MapRange*> vShown;
  if (bAddress) {
    if (const kofd_analyze::MapRange* pRange = kofd_analyze::FindAddress(object.map, dwAddress)) vShown.push_back(pRange);
  } else {
    for (const auto& range : object.map.vRanges) vShown.push_back(&range);
  }
  return vShown;
}

int RunMap(const MapOptions& options, bool bAddress, DWORD dwAddress) {
  return RunFinding(ShownName(options.sPath), [&] {
    const std::string sPath = OpenedPath(options.sPath);
    std::vector<ObjectMap> objects;
    const FileKind kind = KindOfFile(sPath);
    if (kind == FileKind::kArchive) {
      C_KOfdArchive archive;
      OpenArchive(archive, sPath);
      DWORD dwCount = 0;
      archive.GetMemberCount(&dwCount);
      for (DWORD i = 0; i < dwCount; ++i) {
        C_KArcObjectMember& member = archive.MemberAt(i);
        I_KOfdELF* pElf = nullptr;
        const HRESULT hr = member.GetDocument(&pElf);
        if (hr != S_OK || !pElf) ThrowLibraryError(false, hr != S_OK ? hr : E_POINTER, member.GetName());
        ObjectMap object;
        object.bMember = true;
        object.dwMember = i;
        object.sMember = member.GetName() ? member.GetName() : "";
        object.map = kofd_analyze::BuildAddressMap(*pElf);
        objects.push_back(std::move(object));
      }
    } else {
      std::unique_ptr<C_KOfdELF4> document = OpenObject(sPath);
      ObjectMap object;
      object.map = kofd_analyze::BuildAddressMap(*document);
      objects.push_back(std::move(object));
    }
    std::size_t nShown = 0;
    for (const ObjectMap& object : objects) nShown += Shown(object, bAddress, dwAddress).size();
    const int status = nShown > 0 ? 0 : kExitFound;
    if (options.bJson) {
      C_JsonWriter json(stdout);
      json.BeginDocument("map");
      json.Name("file", options.sPath);
      json.Key("kind").String(kind == FileKind::kArchive ? "archive" : "object");
      if (bAddress) json.Key("address").Number(dwAddress);
      json.Key("objects").BeginArray();
      for (const ObjectMap& object : objects) {
        json.BeginObject();
        if (object.bMember) {
          json.Key("member").Number(object.dwMember);
          json.Name("name", object.sMember);
        }
        json.Key("entries").Number(object.map.nEntries);
        json.Key("conflicting_ranges").Number(object.map.ConflictCount());
        json.Key("ranges").BeginArray();
        for (const kofd_analyze::MapRange* pRange : Shown(object, bAddress, dwAddress)) WriteRange(json, *pRange);
        json.EndArray();
        json.EndObject();
      }
      json.EndArray();
      json.EndObject();
      if (!json.Finish()) Fail("standard output cannot be written");
      return status;
    }
    for (const ObjectMap& object : objects) {
      const std::string sWho = object.bMember ? "member " + EscapeText(object.sMember) + ": " : "";
      const auto vShown = Shown(object, bAddress, dwAddress);
      if (bAddress) {
        for (const kofd_analyze::MapRange* pRange : vShown) {
          printf("%s%s  %s  (%s)\n", sWho.c_str(), Place(pRange->line).c_str(), Bank(*pRange).c_str(),
                 Origin(pRange->line).c_str());
        }
        continue;
      }
      if (object.bMember) printf("member %s\n", EscapeText(object.sMember).c_str());
      if (vShown.empty()) {
        printf("no address maps to a source line\n");
        continue;
      }
      printf("%zu ranges from %zu entries, %zu with conflicts\n", vShown.size(), object.map.nEntries,
             object.map.ConflictCount());
      for (const kofd_analyze::MapRange* pRange : vShown) PrintRange(*pRange);
    }
    if (bAddress && nShown == 0) printf("no range holds 0x%08x\n", static_cast<unsigned>(dwAddress));
    if (fflush(stdout) != 0) Fail("standard output cannot be written");
    return status;
  });
}

}  // namespace

void RegisterMap(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand(
      "map", "Map addresses to source lines from the line, source-line and stab tables, with banks and share-ROM words");
  auto options = std::make_shared<MapOptions>();
  command->add_option("FILE", options->sPath, "The KELF object, or an archive of them (each member mapped); - for standard input")->required();
  command->add_option("--addr", options->sAddress, "Answer one address (decimal or 0x hexadecimal, 32-bit) as FILE:LINE and its bank");
  command->add_flag("--json", options->bJson, JsonHelp("map"));
  command->footer("Exit status: 0 when the map was shown or the address found, 1 when nothing maps, 2 on trouble.");
  command->callback([options, command, &result] {
    DWORD dwAddress = 0;
    const bool bAddress = command->count("--addr") > 0;
    if (bAddress && !ParseAddress(options->sAddress, &dwAddress)) {
      result.status =
          UsageFailure("map", "--addr " + EscapeText(options->sAddress) + " is not a 32-bit address (decimal or 0x hexadecimal)");
      return;
    }
    result.status = RunMap(*options, bAddress, dwAddress);
  });
}

}  // namespace cli
