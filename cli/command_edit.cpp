// kofd edit IN [-o OUT] EDIT...: the object read into an image, edited in a fixed order
// (remove, rename, set, add) and saved; kofd new OUT: an empty object to edit.
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "edit/image_editor.h"
#include "edit/image_layout.h"
#include "escape.h"
#include "frame/replacing_file.h"
#include "json_result.h"
#include "present/names.h"
#include "object_file.h"
#include "platform/platform.h"
#include "report.h"

namespace cli {
namespace {

struct EditOptions {
  std::string sPath, sOutput;
  std::vector<std::string> vSetSymbol, vRenameSymbol, vAddSymbol, vRemoveSymbol;
  std::vector<std::string> vRenameSection, vSetAddress, vAddSection, vRemoveSection, vSetContents, vPatch, vAddBank;
  bool bCompact = false;
  bool bForce = false;
  bool bJson = false;
};

struct NewOptions {
  std::string sPath, sChip, sType;
  bool bJson = false;
};

// An argument that does not say what its option needs: a usage error.
struct UsageError {
  std::string sText;
};

[[noreturn]] void Usage(const std::string& sOption, const std::string& sArgument, const std::string& sNeed) {
  throw UsageError{sOption + " " + sArgument + ": " + sNeed};
}

// Unsigned 32-bit, decimal or 0x hexadecimal.
bool ParseNumber(const std::string& sText, std::uint64_t qwLimit, DWORD* pdwValue) {
  const bool bHex = sText.size() > 2 && sText[0] == '0' && (sText[1] == 'x' || sText[1] == 'X');
  const std::string sDigits = bHex ? sText.substr(2) : sText;
  if (sDigits.empty() || sDigits.find_first_not_of(bHex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos) return false;
  std::uint64_t qwValue = 0;
  for (char ch : sDigits) {
    const unsigned uDigit = ch <= '9' ? unsigned(ch - '0') : unsigned((ch | 0x20) - 'a' + 10);
    qwValue = qwValue * (bHex ? 16 : 10) + uDigit;
    if (qwValue > qwLimit) return false;
  }
  *pdwValue = static_cast<DWORD>(qwValue);
  return true;
}

DWORD NumberArgument(const std::string& sOption, const std::string& sArgument, const std::string& sText) {
  DWORD dwValue = 0;
  if (!ParseNumber(sText, 0xFFFFFFFFu, &dwValue)) Usage(sOption, sArgument, "\"" + sText + "\" is no unsigned 32-bit number (decimal or 0x hex)");
  return dwValue;
}

// The argument split at its first (or last) '=', both sides present.
std::pair<std::string, std::string> SplitAssignment(const std::string& sOption, const std::string& sArgument, bool bLast) {
  const std::size_t nAt = bLast ? sArgument.rfind('=') : sArgument.find('=');
  if (nAt == std::string::npos || nAt == 0 || nAt + 1 == sArgument.size()) Usage(sOption, sArgument, "needs the form LEFT=RIGHT");
  return {sArgument.substr(0, nAt), sArgument.substr(nAt + 1)};
}

std::vector<BYTE> HexBytes(const std::string& sOption, const std::string& sArgument, const std::string& sText) {
  if (sText.empty() || sText.size() % 2 != 0 || sText.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    Usage(sOption, sArgument, "HEXBYTES must be pairs of hexadecimal digits");
  }
  std::vector<BYTE> vBytes;
  for (std::size_t i = 0; i < sText.size(); i += 2) vBytes.push_back(static_cast<BYTE>(std::stoul(sText.substr(i, 2), nullptr, 16)));
  return vBytes;
}

// One edit, its arguments checked before the object is read, run on the image later.
struct Edit {
  const char* pszOption;
  std::string sArgument;
  std::function<void(C_ImageEditor&)> run;
};

std::vector<Edit> ParseEdits(const EditOptions& options) {
  std::vector<Edit> edits;
  for (const std::string& sArg : options.vRemoveSymbol) edits.push_back({"--remove-symbol", sArg, [sArg](C_ImageEditor& e) { e.RemoveSymbol(sArg); }});
  for (const std::string& sArg : options.vRemoveSection) edits.push_back({"--remove-section", sArg, [sArg](C_ImageEditor& e) { e.RemoveSection(sArg); }});
  for (const std::string& sArg : options.vRenameSymbol) {
    const auto names = SplitAssignment("--rename-symbol", sArg, false);
    edits.push_back({"--rename-symbol", sArg, [names](C_ImageEditor& e) { e.RenameSymbol(names.first, names.second); }});
  }
  for (const std::string& sArg : options.vRenameSection) {
    const auto names = SplitAssignment("--rename-section", sArg, false);
    edits.push_back({"--rename-section", sArg, [names](C_ImageEditor& e) { e.RenameSection(names.first, names.second); }});
  }
  for (const std::string& sArg : options.vSetSymbol) {
    const auto parts = SplitAssignment("--set-symbol", sArg, true);
    const DWORD dwValue = NumberArgument("--set-symbol", sArg, parts.second);
    edits.push_back({"--set-symbol", sArg, [parts, dwValue](C_ImageEditor& e) { e.SetSymbolValue(parts.first, dwValue); }});
  }
  for (const std::string& sArg : options.vSetAddress) {
    const auto parts = SplitAssignment("--set-section-address", sArg, true);
    const DWORD dwAddress = NumberArgument("--set-section-address", sArg, parts.second);
    edits.push_back({"--set-section-address", sArg, [parts, dwAddress](C_ImageEditor& e) { e.SetSectionAddress(parts.first, dwAddress); }});
  }
  for (const std::string& sArg : options.vSetContents) {
    const auto parts = SplitAssignment("--set-contents", sArg, false);
    edits.push_back({"--set-contents", sArg, [parts](C_ImageEditor& e) { e.SetContents(parts.first, ReadFileBytes(parts.second.c_str())); }});
  }
  for (const std::string& sArg : options.vPatch) {
    const auto parts = SplitAssignment("--patch", sArg, true);
    const std::size_t nColon = parts.first.rfind(':');
    if (nColon == std::string::npos || nColon == 0) Usage("--patch", sArg, "needs the form SEL:OFFSET=HEXBYTES");
    const DWORD dwOffset = NumberArgument("--patch", sArg, parts.first.substr(nColon + 1));
    const std::vector<BYTE> vBytes = HexBytes("--patch", sArg, parts.second);
    const std::string sSection = parts.first.substr(0, nColon);
    const bool bForce = options.bForce;
    edits.push_back({"--patch", sArg, [sSection, dwOffset, vBytes, bForce](C_ImageEditor& e) { e.Patch(sSection, dwOffset, vBytes, bForce); }});
  }
  for (const std::string& sArg : options.vAddSection) {
    auto parts = SplitAssignment("--add-section", sArg, false);
    DWORD dwType = SHT_KEL_PROGBITS;
    const std::size_t nColon = parts.second.rfind(':');
    if (nColon != std::string::npos && ParseNumber(parts.second.substr(nColon + 1), 0xFFFFFFFFu, &dwType)) parts.second.resize(nColon);
    edits.push_back({"--add-section", sArg, [parts, dwType](C_ImageEditor& e) { e.AddSection(parts.first, ReadFileBytes(parts.second.c_str()), dwType); }});
  }
  for (const std::string& sArg : options.vAddSymbol) {
    const auto parts = SplitAssignment("--add-symbol", sArg, false);
    std::string sRest = parts.second;
    bool bGlobal = true;
    const std::size_t nBind = sRest.rfind(':');
    if (nBind != std::string::npos && (sRest.substr(nBind + 1) == "local" || sRest.substr(nBind + 1) == "global")) {
      bGlobal = sRest.substr(nBind + 1) == "global";
      sRest.resize(nBind);
    }
    const std::size_t nColon = sRest.rfind(':');
    if (nColon == std::string::npos || nColon == 0) Usage("--add-symbol", sArg, "needs the form NAME=SEL:VALUE[:local|global]");
    const DWORD dwValue = NumberArgument("--add-symbol", sArg, sRest.substr(nColon + 1));
    const std::string sSection = sRest.substr(0, nColon), sName = parts.first;
    edits.push_back({"--add-symbol", sArg, [sName, sSection, dwValue, bGlobal](C_ImageEditor& e) { e.AddSymbol(sName, sSection, dwValue, bGlobal); }});
  }
  for (const std::string& sArg : options.vAddBank) {
    const auto parts = SplitAssignment("--add-bank", sArg, false);
    const DWORD dwAddress = NumberArgument("--add-bank", sArg, parts.first);
    const DWORD dwBank = NumberArgument("--add-bank", sArg, parts.second);
    edits.push_back({"--add-bank", sArg, [dwAddress, dwBank](C_ImageEditor& e) { e.AddBankRecord(dwAddress, dwBank); }});
  }
  return edits;
}

int UsageFailure(const std::string& sCommand, const UsageError& error) {
  return cli::UsageFailure(sCommand, EscapeText(error.sText));
}

// Failures name the file they concern; the image's refusals quote names from the file, so they
// are escaped, while the library's own texts stay as they are.
template <class Body>
int RunEscaped(const std::string& sFile, Body&& body) {
  return RunReporting(sFile, [&] {
    try {
      return body();
    } catch (const C_ImageFailure& error) {
      return ReportFailure(sFile, EscapeText(error.Message()));
    }
  });
}

int RunEdit(const EditOptions& options) {
  std::vector<Edit> edits;
  try {
    edits = ParseEdits(options);
  } catch (const UsageError& error) {
    return UsageFailure("edit", error);
  }
  const std::string sTarget = options.sOutput.empty() ? options.sPath : options.sOutput;
  // The target is locked before the object is read, so that two edits of one file take turns.
  std::unique_ptr<C_ReplacingFile> output;
  const int status = RunEscaped(sTarget, [&] {
    output = std::make_unique<C_ReplacingFile>(sTarget.c_str());
    return 0;
  });
  if (status != 0) return status;
  return RunEscaped(options.sPath, [&] {
    if (KindOfFile(options.sPath) == FileKind::kArchive) Fail("an archive; kofd edit edits one object");
    std::unique_ptr<C_KOfdELF4> document = OpenObject(options.sPath);
    C_ObjectImage image(*document, options.sPath.c_str());
    document.reset();
    C_ImageEditor editor(image);
    for (const Edit& edit : edits) edit.run(editor);
    WriteObjectImage(image, *output, options.bCompact);
    if (!options.bJson) return 0;
    C_JsonWriter json(stdout);
    json.BeginDocument("edit");
    json.Name("file", options.sPath);
    json.Name("output", sTarget);
    json.Key("compact").Bool(options.bCompact);
    json.Key("edits").BeginArray();
    for (const Edit& edit : edits) {
      json.BeginObject();
      json.Key("option").String(edit.pszOption);
      json.Name("argument", edit.sArgument);
      json.EndObject();
    }
    json.EndArray();
    json.EndObject();
    return FinishJson(json, sTarget);
  });
}

int RunNew(const NewOptions& options) {
  DWORD dwChip = 0, dwType = 0;
  if (!ParseNumber(options.sChip, 0xFFFFFFFFu, &dwChip)) return UsageFailure("new", {"--chip " + options.sChip + ": no unsigned 32-bit number"});
  if (!ParseNumber(options.sType, 0xFFFFu, &dwType)) return UsageFailure("new", {"--type " + options.sType + ": no unsigned 16-bit number"});
  return RunEscaped(options.sPath, [&] {
    if (platform::PathTaken(options.sPath.c_str())) Fail("already exists");
    C_ReplacingFile output(options.sPath.c_str(), platform::kReplaceNew);
    C_ObjectImage image(dwChip, static_cast<WORD>(dwType));
    WriteObjectImage(image, output, false);
    if (!options.bJson) return 0;
    C_JsonWriter json(stdout);
    json.BeginDocument("new");
    json.Name("file", options.sPath);
    json.Name("output", options.sPath);
    json.Key("chip").Named(dwChip, ChipName(dwChip));
    json.Key("type").Named(dwType, FileTypeName(static_cast<WORD>(dwType)));
    json.EndObject();
    return FinishJson(json, options.sPath);
  });
}

}  // namespace

void RegisterEdit(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("edit", "Edit an object and save it (in place, or to OUT); edits run in the order remove, rename, set, add");
  auto options = std::make_shared<EditOptions>();
  command->add_option("IN", options->sPath, "The KELF object")->required();
  command->add_option("-o", options->sOutput, "Where to save the edited object (IN is replaced when absent)");
  const struct {
    const char* pszName;
    std::vector<std::string>* pValues;
    const char* pszHelp;
  } edits[] = {
      {"--remove-symbol", &options->vRemoveSymbol, "NAME: remove a symbol no expression or relocation names"},
      {"--remove-section", &options->vRemoveSection, "SEL: remove a section nothing links to or lives in"},
      {"--rename-symbol", &options->vRenameSymbol, "OLD=NEW"},
      {"--rename-section", &options->vRenameSection, "SEL=NEW"},
      {"--set-symbol", &options->vSetSymbol, "NAME=VALUE: a symbol's value (unsigned 32-bit, decimal or 0x hex)"},
      {"--set-section-address", &options->vSetAddress, "SEL=ADDR"},
      {"--set-contents", &options->vSetContents, "SEL=FILE: a section's bytes from FILE"},
      {"--patch", &options->vPatch, "SEL:OFFSET=HEXBYTES: overwrite bytes of a section"},
      {"--add-section", &options->vAddSection, "NAME=FILE[:TYPE]: a new section (type 1 unless given) holding FILE's bytes"},
      {"--add-symbol", &options->vAddSymbol, "NAME=SEL:VALUE[:local|global]: a new symbol (global unless told)"},
      {"--add-bank", &options->vAddBank, "ADDR=BANK: a bank table record (\".bankinfo\" is created when there is none)"},
  };
  for (const auto& edit : edits) command->add_option(edit.pszName, *edit.pValues, edit.pszHelp);
  command->add_flag("--compact", options->bCompact, "Lay every section out afresh in index order, the section header table last");
  command->add_flag("--force", options->bForce, "Patch bytes that a relocation rewrites all the same");
  command->add_flag("--json", options->bJson, JsonHelp("edit") + ": the output path and the edits applied, in order");
  command->callback([options, &result] { result.status = RunEdit(*options); });

  CLI::App* create = app.add_subcommand("new", "Create an empty object (its null section and \".shstrtab\") to edit");
  auto newOptions = std::make_shared<NewOptions>();
  create->add_option("OUT", newOptions->sPath, "The object to create; it must not exist")->required();
  create->add_option("--chip", newOptions->sChip, "The chip number (unsigned 32-bit, decimal or 0x hex)")->required();
  create->add_option("--type", newOptions->sType, "The file type: 1 relocatable, 2 executable...")->required();
  create->add_flag("--json", newOptions->bJson, JsonHelp("new"));
  create->callback([newOptions, &result] { result.status = RunNew(*newOptions); });
}

}  // namespace cli
