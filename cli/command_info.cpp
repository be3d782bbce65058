// kofd info FILE: what kind of file FILE is, as the factory decides from its first bytes.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "frame/exports.h"
#include "frame/file.h"
#include "report.h"

namespace cli {
namespace {

struct FactoryDeleter {
  void operator()(I_Factory* pFactory) const { pFactory->Destroy(); }
};

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
    printf("%s: %s\n", sPath.c_str(), pszKind);
    return 0;
  });
}

}  // namespace

void RegisterInfo(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("info", "Say whether FILE is a KELF object, an archive or neither");
  auto path = std::make_shared<std::string>();
  command->add_option("FILE", *path, "The file to inspect")->required();
  command->callback([path, &result] { result.status = RunInfo(*path); });
}

}  // namespace cli
