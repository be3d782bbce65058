// Opening objects of many symbols and looking every symbol up by name.
//
//   build/default/bench/kofd_bench_object --benchmark_filter=Open
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kelf_writer.h"
#include "object/kofd_elf.h"
#include "sections/symbol_table.h"

namespace {

std::string SymbolName(std::size_t i) { return "symbol_" + std::to_string(i * 2654435761u % 1000003u) + "_" + std::to_string(i); }

// An object with a code section and nSymbols global symbols in it, written once per size.
const std::string& ObjectWithSymbols(std::size_t nSymbols) {
  static std::vector<std::pair<std::size_t, std::string>> s_made;
  for (const auto& made : s_made) {
    if (made.first == nSymbols) return made.second;
  }
  using namespace kelf_test;
  ObjectBuilder object;
  const std::size_t text = object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(4096, 0x90), {}, {}, {}});
  StringTable names = StringTable::WithNul();
  Bytes symbols = Sym(0, 0, 0, kStbLocal, kSttNoType, 0, kShnUndef);
  symbols.reserve((nSymbols + 1) * 16);
  for (std::size_t i = 0; i < nSymbols; ++i) {
    Append(symbols, Sym(names.Add(SymbolName(i)), static_cast<std::uint32_t>(i * 4), 4, kStbGlobal, kSttFunction, 0,
                        static_cast<std::uint16_t>(text)));
  }
  const std::size_t strings = object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, static_cast<std::uint32_t>(strings), 1, 4, 16, symbols, {}, {}, {}});
  const std::string path = "/tmp/kofd_bench_" + std::to_string(nSymbols) + ".o";
  object.WriteFile(path);
  s_made.emplace_back(nSymbols, path);
  return s_made.back().second;
}

// Opens the object and hands back its symbol table.
I_KOfdSymbolTable* OpenSymbols(C_KOfdELF4& document, const std::string& path) {
  document.AttachPath(path.c_str(), 0);
  document.Read();
  I_KOfdSymbolTable* pSymbols = nullptr;
  document.GetSymbolTable(&pSymbols);
  return pSymbols;
}

void OpenAndFindEverySymbol(benchmark::State& state) {
  const std::size_t nSymbols = static_cast<std::size_t>(state.range(0));
  const std::string& path = ObjectWithSymbols(nSymbols);
  // The names to look up, back to back, so the benchmark's own reading of them stays sequential.
  std::string names;
  for (std::size_t i = 0; i < nSymbols; ++i) names += SymbolName(i) + '\0';
  for (auto _ : state) {
    C_KOfdELF4 document;
    I_KOfdSymbolTable* pSymbols = OpenSymbols(document, path);
    std::size_t nFound = 0;
    for (const char* pszName = names.data(); pszName < names.data() + names.size(); pszName += strlen(pszName) + 1) {
      ELF32_SYM* pSymbol = nullptr;
      nFound += pSymbols->FindSymbol(pszName, &pSymbol) == S_OK;
    }
    if (nFound != nSymbols) state.SkipWithError("a symbol was not found");
    benchmark::DoNotOptimize(nFound);
  }
  state.SetComplexityN(static_cast<benchmark::IterationCount>(nSymbols));
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * nSymbols));
}

void OpenOnly(benchmark::State& state) {
  const std::string& path = ObjectWithSymbols(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    C_KOfdELF4 document;
    I_KOfdSymbolTable* pSymbols = OpenSymbols(document, path);
    DWORD dwCount = 0;
    pSymbols->GetSymbolCount(&dwCount);
    benchmark::DoNotOptimize(dwCount);
  }
  state.SetComplexityN(state.range(0));
}

}  // namespace

BENCHMARK(OpenOnly)->Arg(100000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);
BENCHMARK(OpenAndFindEverySymbol)->Arg(100000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

BENCHMARK_MAIN();
