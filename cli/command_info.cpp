// kofd info FILE: what kind of file FILE is, as the factory decides from its first bytes.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "escape.h"
#include "frame/exports.h"
#include "frame/file.h"
#include "input_file.h"
#include "json_result.h"
#include "object/kofd_elf.h"
#include "present/names.h"
#include "report.h"
#include "sections/symbol_table.h"

namespace cli {
namespace {

struct FactoryDeleter {
  void operator()(I_Factory* pFactory) const { pFactory->Destroy(); }
};

struct SectionSummary {
  DWORD dwIndex;
  std::string sName;
  DWORD dwType;
  DWORD dwSize;
};

// Chip, type, the sections and the symbol count of an object the factory built.
struct ObjectSummary {
  bool bHeader = false;
  DWORD dwChip = 0;
  WORD wType = 0;
  std::vector<SectionSummary> vSections;
  DWORD dwSectionCount = 0;
  DWORD dwSymbols = 0;
};

// False when the factory built no object (an archive).
// Only the headers and the section names are read: the symbol count is what the table holds
// once read.
bool ReadObjectSummary(I_Unknown* pDocument, const std::string& sPath, ObjectSummary* pSummary) {
  C_KOfdELF* pElf = dynamic_cast<C_KOfdELF*>(pDocument);
  if (!pElf) return false;
  pElf->AttachPath(sPath.c_str(), 0);
  ThrowIfFailed(pElf->ReadHeaders(), pDocument);
  I_KElfHeader* pHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  if (pElf->GetFileHeader(&pHeader) == S_OK && pHeader->GetRecord(&pRecord) == S_OK && pRecord) {
    pSummary->bHeader = true;
    pSummary->dwChip = pRecord->e_chip;
    pSummary->wType = pRecord->e_type;
  }
  I_KElfSectionHeader* pSections = nullptr;
  pElf->GetSectionHeader(&pSections);
  pElf->GetSectionCount(&pSummary->dwSectionCount);
  for (DWORD i = 0; pSections && i < pSummary->dwSectionCount; ++i) {
    KEL_SHDR* pSection = nullptr;
    const char* pszName = nullptr;
    if (pSections->GetAt(i, &pSection) != S_OK || !pSection) continue;
    if (pElf->GetSectionName(i, &pszName) != S_OK || !pszName) pszName = "";
    pSummary->vSections.push_back({i, pszName, pSection->sh_type, pSection->sh_size});
  }
  pSummary->dwSymbols = pElf->CountSymbols();
  return true;
}

void PrintObjectSummary(const ObjectSummary& summary) {
  if (summary.bHeader) printf("chip: %s\ntype: %s\n", ChipName(summary.dwChip).c_str(), FileTypeName(summary.wType));
  printf("sections: %u\n", static_cast<unsigned>(summary.dwSectionCount));
  if (!summary.vSections.empty()) printf("  %5s  %-16s %-8s %10s\n", "index", "name", "type", "size");
  for (const SectionSummary& section : summary.vSections) {
    printf("  %5u  %-16s %-8s 0x%08x\n", static_cast<unsigned>(section.dwIndex), EscapeText(section.sName).c_str(),
           SectionTypeName(section.dwType), static_cast<unsigned>(section.dwSize));
  }
  printf("symbols: %u\n", static_cast<unsigned>(summary.dwSymbols));
}

void WriteObjectSummary(C_JsonWriter& json, const ObjectSummary& summary) {
  json.BeginObject();
  json.Key("chip");
  if (summary.bHeader) json.Named(summary.dwChip, ChipName(summary.dwChip));
  else json.Null();
  json.Key("type");
  if (summary.bHeader) json.Named(summary.wType, FileTypeName(summary.wType));
  else json.Null();
  json.Key("section_count").Number(summary.dwSectionCount);
  json.Key("sections").BeginArray();
  for (const SectionSummary& section : summary.vSections) {
    json.BeginObject();
    json.Key("index").Number(section.dwIndex);
    json.Name("name", section.sName);
    json.Key("type").Named(section.dwType, SectionTypeName(section.dwType));
    json.Key("size").Number(section.dwSize);
    json.EndObject();
  }
  json.EndArray();
  json.Key("symbols").Number(summary.dwSymbols);
  json.EndObject();
}

int RunInfo(const std::string& sGiven, bool bJson, C_JsonWriter* pShared) {
  const std::string sShown = ShownName(sGiven);
  return RunReporting(sShown, [&] {
    const std::string sPath = OpenedPath(sGiven);
    // Attaching takes the size and turns an unreadable file into a message that says why.
    C_File file;
    file.AttachPath(sPath.c_str(), 0);
    DWORD dwSizeHigh = 0;
    const DWORD dwSizeLow = file.GetSize(&dwSizeHigh);

    std::unique_ptr<I_Factory, FactoryDeleter> factory(CreateFactory());
    if (!factory) return ReportFailure(sShown, E_OUTOFMEMORY);
    I_Unknown* pDocument = nullptr;
    const char* pszInterface = nullptr;
    HRESULT hr = S_FALSE;
    // An empty file has no first bytes to read: it is simply of no known kind.
    if (dwSizeLow != 0 || dwSizeHigh != 0) hr = factory->CreateInstance(sPath.c_str(), &pDocument, &pszInterface);
    const char* pszKind = nullptr;
    const char* pszJsonKind = "other";
    if (hr == S_OK) {
      const bool bObject = std::string(pszInterface) == "I_KOfdELF";
      pszKind = bObject ? "KELF object" : "archive";
      pszJsonKind = bObject ? "object" : "archive";
    } else if (hr == S_FALSE) {
      pszKind = "neither a KELF object nor an archive";
    } else {
      return ReportFailure(sShown, hr);
    }
    ObjectSummary summary;
    if (!bJson) {
      printf("%s: %s\n", EscapeText(sShown).c_str(), pszKind);
      if (pDocument && ReadObjectSummary(pDocument, sPath, &summary)) PrintObjectSummary(summary);
      return 0;
    }
    const bool bSummary = pDocument && ReadObjectSummary(pDocument, sPath, &summary);
    C_FileJson target(pShared);
    C_JsonWriter& json = *target;
    json.BeginDocument("info");
    json.Name("file", sGiven);
    json.Key("kind").String(pszJsonKind);
    json.Key("object");
    if (bSummary) WriteObjectSummary(json, summary);
    else json.Null();
    json.EndObject();
    return FinishJson(json, sShown);
  });
}

}  // namespace

void RegisterInfo(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("info", "Say whether FILE is a KELF object, an archive or neither, and summarise an object");
  struct Options {
    std::vector<std::string> vPaths;
    bool bJson = false;
  };
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->vPaths, "The files to inspect (- for standard input); several are each headed by their name")->required();
  command->add_flag("--json", options->bJson, JsonHelp("info") + "; several files make one document of their documents");
  command->callback([options, &result] {
    result.status = RunEachFile(options->vPaths, "info", options->bJson,
                                [&](const std::string& sGiven, C_JsonWriter* pJson) { return RunInfo(sGiven, options->bJson, pJson); });
  });
}

}  // namespace cli
