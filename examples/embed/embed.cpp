// embed: a program that embeds libkofd. It opens the KELF object named on the command line,
// lists its symbols and evaluates every relocation of each relocation section of type 22.
// Every call's HRESULT is checked, and a C_Exception from the library is caught: no failure
// ends the program with an uncaught exception. Exit 0 when all went well, 2 on trouble.
#include <cstdio>
#include <memory>

#include "frame/exception.h"
#include "object/kofd_elf.h"
#include "reloc/relocation_tables.h"
#include "sections/symbol_table.h"

namespace {

// The document's own record of the failure when it has one, else the bare code.
int Trouble(const char* pszPath, const C_Exception& record, HRESULT hr) {
  const char* pszText = record.Code() == hr && !record.Message().empty() ? record.Message().c_str() : "cannot be read";
  std::fprintf(stderr, "embed: %s: %s (0x%08lX)\n", pszPath, pszText, static_cast<unsigned long>(hr));
  return 2;
}

void ListSymbols(C_KOfdELF4& document) {
  I_KOfdSymbolTable* pSymbols = nullptr;
  auto* pTable = document.GetSymbolTable(&pSymbols) == S_OK ? dynamic_cast<C_KOfdSymbolTable*>(pSymbols) : nullptr;
  if (!pTable) {
    std::printf("no symbol table\n");
    return;
  }
  for (DWORD i = 0; i < pTable->GetCount(); ++i) {
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    if (pTable->GetSymbolAt(i, &pszName, &pSymbol) != S_OK || !pSymbol) continue;
    std::printf("symbol %lu %s value 0x%08lX size %lu\n", static_cast<unsigned long>(i), pszName ? pszName : "",
                static_cast<unsigned long>(pSymbol->st_value), static_cast<unsigned long>(pSymbol->st_size));
  }
}

void EvaluateRelocations(C_KOfdELF4& document) {
  DWORD dwSections = 0;
  document.GetSectionCount(&dwSections);
  for (DWORD s = 0; s < dwSections; ++s) {
    I_KOfdSection* pSection = nullptr;
    if (document.GetSection(s, &pSection) != S_OK) continue;
    auto* pTable = dynamic_cast<C_KOfdRelxebTable*>(pSection);
    if (!pTable) continue;  // not a relocation section of type 22
    const char* pszName = nullptr;
    document.GetSectionName(s, &pszName);
    DWORD dwCount = 0;
    pTable->GetCount(&dwCount);
    std::printf("relocations %s: %lu\n", pszName ? pszName : "", static_cast<unsigned long>(dwCount));
    for (DWORD i = 0; i < dwCount; ++i) {
      DWORD dwValue = 0;
      char szText[256] = "";
      const HRESULT hrValue = pTable->Evaluate(i, &dwValue);
      pTable->GetExpressionText(i, szText, sizeof szText);
      if (hrValue == S_OK) {
        std::printf("  %lu = 0x%08lX  %s\n", static_cast<unsigned long>(i), static_cast<unsigned long>(dwValue), szText);
      } else {
        std::printf("  %lu cannot be evaluated (0x%08lX)  %s\n", static_cast<unsigned long>(i),
                    static_cast<unsigned long>(hrValue), szText);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: embed OBJECT\n");
    return 2;
  }
  try {
    auto document = std::make_unique<C_KOfdELF4>();
    document->AttachPath(argv[1], 0);
    const HRESULT hr = document->Read();
    if (hr < 0) return Trouble(argv[1], *document, hr);
    ListSymbols(*document);
    EvaluateRelocations(*document);
    return 0;
  } catch (const C_Exception& error) {
    std::fprintf(stderr, "embed: %s: %s\n", argv[1], error.Message().c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "embed: %s: %s\n", argv[1], error.what());
  }
  return 2;
}
