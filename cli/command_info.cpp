// kofd info FILE: what kind of file FILE is, as the factory decides from its first bytes.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "escape.h"
#include "frame/exports.h"
#include "frame/file.h"
#include "object/kofd_elf.h"
#include "present/names.h"
#include "report.h"
#include "sections/symbol_table.h"

namespace cli {
namespace {

struct FactoryDeleter {
  void operator()(I_Factory* pFactory) const { pFactory->Destroy(); }
};

// Chip, type, the sections and the symbol count of an object the factory built.
void PrintObjectSummary(I_Unknown* pDocument, const std::string& sPath) {
  I_KOfdELF* pElf = dynamic_cast<I_KOfdELF*>(pDocument);
  I_File* pFile = dynamic_cast<I_File*>(pDocument);
  if (!pElf || !pFile) return;
  pFile->AttachPath(sPath.c_str(), 0);
  ThrowIfFailed(pElf->Read(), pDocument);
  I_KElfHeader* pHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  if (pElf->GetFileHeader(&pHeader) == S_OK && pHeader->GetRecord(&pRecord) == S_OK && pRecord) {
    printf("chip: %s\ntype: %s\n", ChipName(pRecord->e_chip).c_str(), FileTypeName(pRecord->e_type));
  }
  I_KElfSectionHeader* pSections = nullptr;
  DWORD dwCount = 0;
  pElf->GetSectionHeader(&pSections);
  pElf->GetSectionCount(&dwCount);
  printf("sections: %u\n", static_cast<unsigned>(dwCount));
  for (DWORD i = 0; pSections && i < dwCount; ++i) {
    KEL_SHDR* pSection = nullptr;
    const char* pszName = nullptr;
    if (pSections->GetAt(i, &pSection) != S_OK || !pSection) continue;
    if (pElf->GetSectionName(i, &pszName) != S_OK || !pszName) pszName = "";
    printf("  %5u  %-16s %-8s %10u\n", static_cast<unsigned>(i), EscapeText(pszName).c_str(), SectionTypeName(pSection->sh_type),
           static_cast<unsigned>(pSection->sh_size));
  }
  I_KOfdSymbolTable* pSymbols = nullptr;
  DWORD dwSymbols = 0;
  if (pElf->GetSymbolTable(&pSymbols) == S_OK && pSymbols) pSymbols->GetSymbolCount(&dwSymbols);
  printf("symbols: %u\n", static_cast<unsigned>(dwSymbols));
}

int RunInfo(const std::string& sPath) {
  return RunReporting(sPath, [&] {
    // Attaching takes the size and turns an unreadable file into a message that says why.
    C_File file;
    file.AttachPath(sPath.c_str(), 0);
    DWORD dwSizeHigh = 0;
    const DWORD dwSizeLow = file.GetSize(&dwSizeHigh);

    std::unique_ptr<I_Factory, FactoryDeleter> factory(CreateFactory());
    if (!factory) return ReportFailure(sPath, E_OUTOFMEMORY);
    I_Unknown* pDocument = nullptr;
    const char* pszInterface = nullptr;
    HRESULT hr = S_FALSE;
    // An empty file has no first bytes to read: it is simply of no known kind.
    if (dwSizeLow != 0 || dwSizeHigh != 0) hr = factory->CreateInstance(sPath.c_str(), &pDocument, &pszInterface);
    const char* pszKind = nullptr;
    if (hr == S_OK) {
      pszKind = std::string(pszInterface) == "I_KOfdELF" ? "KELF object" : "archive";
    } else if (hr == S_FALSE) {
      pszKind = "neither a KELF object nor an archive";
    } else {
      return ReportFailure(sPath, hr);
    }
    printf("%s: %s\n", EscapeText(sPath).c_str(), pszKind);
    if (pDocument) PrintObjectSummary(pDocument, sPath);
    return 0;
  });
}

}  // namespace

void RegisterInfo(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("info", "Say whether FILE is a KELF object, an archive or neither, and summarise an object");
  auto path = std::make_shared<std::string>();
  command->add_option("FILE", *path, "The file to inspect")->required();
  command->callback([path, &result] { result.status = RunInfo(*path); });
}

}  // namespace cli
