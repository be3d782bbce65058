// kofd reloc FILE: the relocation sections of type 22 with each record's field, value and
// expression; with --apply, the object with every relocation applied, written to OUT.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "escape.h"
#include "object_file.h"
#include "reloc/relocation_tables.h"
#include "report.h"

namespace cli {
namespace {

struct RelocOptions {
  std::string sPath;
  std::string sSection;
  std::string sApply;
  std::string sOutput;
};

// The relocation section of type 22 at dwIndex, or null.
C_KOfdRelxebTable* TableAt(C_KOfdELF4& document, DWORD dwIndex) {
  I_KOfdSection* pSection = nullptr;
  document.GetSection(dwIndex, &pSection);
  return dynamic_cast<C_KOfdRelxebTable*>(pSection);
}

// The sections to work on: the selected one, or every relocation section of type 22.
bool SelectTables(C_KOfdELF4& document, const RelocOptions& options, std::vector<DWORD>* pIndexes) {
  if (options.sSection.empty()) {
    DWORD dwCount = 0;
    document.GetSectionCount(&dwCount);
    for (DWORD i = 0; i < dwCount; ++i) {
      if (TableAt(document, i)) pIndexes->push_back(i);
    }
    return true;
  }
  I_KOfdSection* pSection = SelectSection(document, options.sSection);
  if (!dynamic_cast<C_KOfdRelxebTable*>(pSection)) {
    ReportFailure(options.sPath, "section " + EscapeText(options.sSection) + " is not a relocation section of type 22");
    return false;
  }
  *pIndexes = {pSection->GetKeyIndex()};
  return true;
}

// Standard output, formatted by hand into a block that is written when full: a listing of
// many records is one short line each, and printf's format parsing would be most of its cost.
class ListingWriter {
 public:
  ~ListingWriter() { Flush(); }
  ListingWriter& Text(const char* psz) {
    const std::size_t nLength = strlen(psz);
    if (nLength > sizeof m_szBlock - m_nUsed) Flush();
    if (nLength > sizeof m_szBlock) {
      fwrite(psz, 1, nLength, stdout);
    } else {
      memcpy(m_szBlock + m_nUsed, psz, nLength);
      m_nUsed += nLength;
    }
    return *this;
  }
  ListingWriter& Char(char ch) {
    Z_Put(ch);
    return *this;
  }
  ListingWriter& Decimal(DWORD dwValue) {
    char szDigits[10];
    int n = 0;
    do szDigits[n++] = static_cast<char>('0' + dwValue % 10); while ((dwValue /= 10) != 0);
    while (n > 0) Z_Put(szDigits[--n]);
    return *this;
  }
  ListingWriter& Hex8(DWORD dwValue) {
    static const char kDigits[] = "0123456789abcdef";
    for (int shift = 28; shift >= 0; shift -= 4) Z_Put(kDigits[(dwValue >> shift) & 0xF]);
    return *this;
  }
  void EndLine() { Z_Put('\n'); }
  void Flush() {
    fwrite(m_szBlock, 1, m_nUsed, stdout);
    m_nUsed = 0;
  }

 private:
  void Z_Put(char ch) {
    if (m_nUsed == sizeof m_szBlock) Flush();
    m_szBlock[m_nUsed++] = ch;
  }

  char m_szBlock[1 << 16];
  std::size_t m_nUsed = 0;
};

void PrintTable(C_KOfdELF4& document, DWORD dwIndex, ListingWriter& out) {
  out.Text("section ").Decimal(dwIndex).Char(' ').Text(EscapeText(SectionName(document, dwIndex)).c_str()).EndLine();
  C_KOfdRelxebTable* pTable = TableAt(document, dwIndex);
  // Records naming one expression run share its value and text: each run is walked once.
  struct Remembering {
    C_KOfdRelxebTable* pTable;
    ~Remembering() { pTable->RememberRuns(false); }
  } remembering{pTable};
  pTable->RememberRuns(true);
  char szText[256];
  for (DWORD i = 0; i < pTable->GetCount(); ++i) {
    KEL_RELXEB* pRecord = nullptr;
    pTable->GetAt(i, &pRecord);
    out.Decimal(i).Char('\t').Hex8(pRecord->Offset).Char('\t');
    out.Decimal(pRecord->to_start).Text("..").Decimal(pRecord->to_end).Char('\t');
    DWORD dwValue = 0;
    const HRESULT hr = pTable->Evaluate(i, &dwValue);
    if (hr == S_OK) out.Hex8(dwValue);
    else out.Text("error 0x").Hex8(static_cast<DWORD>(hr));
    const bool bText = pTable->GetExpressionText(i, szText, sizeof szText) == S_OK;
    out.Char('\t').Text(bText ? EscapeText(szText).c_str() : "Error!").EndLine();
  }
}

// Prints each high-byte report as it comes.
class PrintingSink : public C_KOfdRelocationSink {
 public:
  HRESULT ReportHighByte(const DWORD* pPair) override {
    printf("high byte %02x at %08x\n", static_cast<unsigned>(pPair[1]), static_cast<unsigned>(pPair[0]));
    return S_OK;
  }
};

// Writes a copy of the input whose patched program sections hold their new bytes. The copy is
// made beside OUT and renamed over it only once it is complete.
void WritePatchedCopy(const RelocOptions& options, const std::map<DWORD, C_KOfdProgramTable*>& targets) {
  std::ifstream in(options.sPath, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in.good() && !in.eof()) throw std::runtime_error("cannot read the object again");
  for (const auto& target : targets) {
    KEL_SHDR* pHeader = nullptr;
    BYTE* pData = nullptr;
    DWORD dwHeld = 0;
    target.second->GetHeader(&pHeader);
    target.second->GetData(&pData, &dwHeld);
    // The document read these bytes from the file, so they lie inside it.
    const std::size_t nOffset = pHeader->sh_offset;
    const std::size_t nSize = std::min<std::size_t>(dwHeld, bytes.size() - std::min(bytes.size(), nOffset));
    if (pData) bytes.replace(nOffset, nSize, reinterpret_cast<const char*>(pData), nSize);
  }
  const std::filesystem::path output(options.sOutput);
  std::filesystem::path temporary = output;
  temporary += ".kofd-tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
      std::error_code ignored;
      std::filesystem::remove(temporary, ignored);
      throw std::runtime_error("cannot write " + temporary.string());
    }
  }
  std::filesystem::rename(temporary, output);
}

int RunReloc(const RelocOptions& options) {
  return RunReporting(options.sPath, [&] {
    std::unique_ptr<C_KOfdELF4> document = OpenObject(options.sPath);
    std::vector<DWORD> indexes;
    if (!SelectTables(*document, options, &indexes)) return kExitFailure;
    if (options.sApply.empty()) {
      ListingWriter out;
      for (DWORD dwIndex : indexes) PrintTable(*document, dwIndex, out);
      return 0;
    }
    const DWORD dwMode = options.sApply == "byte" ? KEL_RELOCATE_BYTE
                         : options.sApply == "half" ? KEL_RELOCATE_HALF
                                                    : KEL_RELOCATE_WORD;
    PrintingSink sink;
    std::map<DWORD, C_KOfdProgramTable*> targets;
    for (DWORD dwIndex : indexes) {
      C_KOfdRelxebTable* pTable = TableAt(*document, dwIndex);
      const HRESULT hr = pTable->Relocate(dwMode, &sink);
      if (hr != S_OK) {
        return ReportFailure(options.sPath, "relocation section " + std::to_string(dwIndex) + " cannot be applied", hr);
      }
      I_KOfdProgramTable* pTarget = nullptr;
      pTable->GetProgramTable(&pTarget);
      if (C_KOfdProgramTable* pProgram = dynamic_cast<C_KOfdProgramTable*>(pTarget)) {
        targets[pProgram->GetKeyIndex()] = pProgram;
      }
    }
    try {
      WritePatchedCopy(options, targets);
    } catch (const std::exception& error) {
      return ReportFailure(options.sOutput, std::string(error.what()));
    }
    return 0;
  });
}

}  // namespace

void RegisterReloc(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("reloc", "List the relocations of type 22 with their values and expressions, or apply them");
  auto options = std::make_shared<RelocOptions>();
  command->add_option("FILE", options->sPath, "The KELF object")->required();
  command->add_option("--section", options->sSection, "One relocation section, by index or name (ignoring case)");
  CLI::Option* apply = command->add_option("--apply", options->sApply, "Apply the relocations; Offset counts bytes, 16-bit or 32-bit units")
                           ->check(CLI::IsMember({"byte", "half", "word"}));
  CLI::Option* output = command->add_option("-o", options->sOutput, "Where to write the relocated copy of FILE");
  apply->needs(output);
  output->needs(apply);
  command->callback([options, &result] { result.status = RunReloc(*options); });
}

}  // namespace cli
