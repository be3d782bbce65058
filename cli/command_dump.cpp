// kofd dump FILE [SELECTOR...]: the text dumps of a file on standard output, in the order they
// are made, whichever destination each dump writes to.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "frame/error.h"
#include "frame/exports.h"
#include "object/kofd_elf.h"
#include "present/object_dumps.h"
#include "report.h"
#include "tool_output.h"

namespace cli {
namespace {

enum class Selector { kFileHeader, kProgramHeaders, kSectionHeaders, kSection };

struct Selection {
  Selector selector;
  std::string sSection;  // for kSection: an index or a name
};

struct FactoryDeleter {
  void operator()(I_Factory* pFactory) const { pFactory->Destroy(); }
};

// DumpAll of an object, writing to standard output whichever stream it uses.
HRESULT DumpAllOf(I_Unknown* pObject) {
  I_KOfdDump* pDump = dynamic_cast<I_KOfdDump*>(pObject);
  if (!pDump) return E_POINTER;
  pDump->SetStream(std::cout);
  const HRESULT hr = pDump->DumpAll();
  std::cout.flush();
  return hr;
}

bool IsIndex(const std::string& sSelector) {
  return !sSelector.empty() && sSelector.size() <= 9 && sSelector.find_first_not_of("0123456789") == std::string::npos;
}

// The section that sSelector names: by index when it is all digits, else by name ignoring case.
HRESULT FindSelected(I_KOfdELF& document, const std::string& sSelector, I_KOfdSection** ppSection) {
  if (!IsIndex(sSelector)) return document.FindSection(sSelector.c_str(), ppSection);
  return document.GetSection(static_cast<DWORD>(std::stoul(sSelector)), ppSection);
}

// Headers, then every section that has a section object, in index order. A listing or a
// section that has nothing to show is passed over.
void DumpWholeObject(I_KOfdELF& document) {
  for (I_KOfdDump* pDump : GetDumpParts(document)) DumpAllOf(pDump);
}

HRESULT DumpSelection(I_KOfdELF& document, const Selection& selection) {
  I_KElfHeader* pHeader = nullptr;
  I_KElfProgramHeader* pPrograms = nullptr;
  I_KElfSectionHeader* pSections = nullptr;
  I_KOfdSection* pSection = nullptr;
  switch (selection.selector) {
    case Selector::kFileHeader:
      document.GetFileHeader(&pHeader);
      return DumpAllOf(pHeader);
    case Selector::kProgramHeaders:
      document.GetProgramHeader(&pPrograms);
      return DumpAllOf(pPrograms);
    case Selector::kSectionHeaders:
      document.GetSectionHeader(&pSections);
      return DumpAllOf(pSections);
    case Selector::kSection: {
      const HRESULT hr = FindSelected(document, selection.sSection, &pSection);
      if (hr != S_OK) return hr;
      return DumpAllOf(pSection);
    }
  }
  return E_FAIL;
}

int RunDump(const std::string& sPath, const std::vector<Selection>& selections) {
  return RunReporting(sPath, [&] {
    // Reports go to standard error only after the output made before them.
    C_ToolOutput output;
    std::unique_ptr<I_Factory, FactoryDeleter> factory(CreateFactory());
    if (!factory) return ReportFailure(sPath, E_OUTOFMEMORY);
    I_Unknown* pDocument = nullptr;
    const char* pszInterface = nullptr;
    factory->CreateInstance(sPath.c_str(), &pDocument, &pszInterface);
    I_KOfdELF* pElf = dynamic_cast<I_KOfdELF*>(pDocument);
    I_File* pFile = dynamic_cast<I_File*>(pDocument);
    if (!pElf || !pFile) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, sPath.c_str());
    pFile->AttachPath(sPath.c_str(), 0);
    pElf->Read();
    if (selections.empty()) {
      DumpWholeObject(*pElf);
      return 0;
    }
    for (const Selection& selection : selections) {
      const HRESULT hr = DumpSelection(*pElf, selection);
      if (hr < 0) return ReportFailure(sPath, hr);
    }
    return 0;
  });
}

}  // namespace

void RegisterDump(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("dump", "Write the text dumps of FILE: without a selector its header listings and every section, else what the selectors name, in their order");
  auto path = std::make_shared<std::string>();
  auto sections = std::make_shared<std::vector<std::string>>();
  command->add_option("FILE", *path, "The object file to dump")->required();
  CLI::Option* fileHeader = command->add_flag("--file-header", "The ELF header listing");
  CLI::Option* programHeaders =
      command->add_flag("--program-headers", "The program header listing (a failure when there is none)");
  CLI::Option* sectionHeaders = command->add_flag("--section-headers", "The section header listing");
  CLI::Option* section =
      command->add_option("--section", *sections, "One section's dump, by index or by name (ignoring case); repeatable")
          ->type_name("SEL")
          ->expected(1)
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command->callback([=, &result] {
    // Selectors are dumped in the order they were given.
    std::vector<Selection> selections;
    std::size_t nSection = 0;
    for (const CLI::Option* pOption : command->parse_order()) {
      if (pOption == fileHeader) selections.push_back({Selector::kFileHeader, {}});
      if (pOption == programHeaders) selections.push_back({Selector::kProgramHeaders, {}});
      if (pOption == sectionHeaders) selections.push_back({Selector::kSectionHeaders, {}});
      if (pOption == section && nSection < sections->size()) selections.push_back({Selector::kSection, (*sections)[nSection++]});
    }
    result.status = RunDump(*path, selections);
  });
}

}  // namespace cli
