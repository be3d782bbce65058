// kofd reloc FILE: the relocation sections of type 22 with each record's field, value and
// expression; with --apply, the object with every relocation applied, written to OUT.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "escape.h"
#include "frame/error.h"
#include "frame/fileio.h"
#include "frame/replacing_file.h"
#include "input_file.h"
#include "json_result.h"
#include "json_object.h"
#include "object_file.h"
#include "platform/platform.h"
#include "reloc/relocation_tables.h"
#include "report.h"

namespace cli {
namespace {

struct RelocOptions {
  std::vector<std::string> vFiles;
  std::string sMember;  // of an archive FILE: the member whose object is listed
  std::string sPath;    // the file being worked on, as the tool opens it
  std::string sSection;
  std::string sApply;
  std::string sOutput;
  bool bJson = false;
};

// The relocation section of type 22 at dwIndex, or null. The type comes from the section header,
// so no other section is read; a table that fails to read throws its failure.
C_KOfdRelxebTable* TableAt(C_KOfdELF4& document, DWORD dwIndex) {
  I_KElfSectionHeader* pHeaders = nullptr;
  KEL_SHDR* pRecord = nullptr;
  if (document.GetSectionHeader(&pHeaders) != S_OK || !pHeaders || pHeaders->GetAt(dwIndex, &pRecord) != S_OK ||
      !pRecord || pRecord->sh_type != SHT_KEL_RELXEB) {
    return nullptr;
  }
  I_KOfdSection* pSection = nullptr;
  ThrowIfFailed(document.GetSection(dwIndex, &pSection), &document);
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
  ListingWriter& Text(const char* psz) { return Bytes(psz, strlen(psz)); }
  ListingWriter& Bytes(const char* pBytes, std::size_t nLength) {
    if (nLength > sizeof m_szBlock - m_nUsed) Flush();
    if (nLength > sizeof m_szBlock) {
      fwrite(pBytes, 1, nLength, stdout);
    } else {
      memcpy(m_szBlock + m_nUsed, pBytes, nLength);
      m_nUsed += nLength;
    }
    return *this;
  }
  // A name from the file, escaped; the usual printable one is copied as it is.
  ListingWriter& Escaped(std::string_view sText) {
    if (IsPlainText(sText)) return Bytes(sText.data(), sText.size());
    const std::string sEscaped = EscapeText(sText);
    return Bytes(sEscaped.data(), sEscaped.size());
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
  const C_RememberedRuns remembered(*pTable);
  char szText[256];
  for (DWORD i = 0; i < pTable->GetCount(); ++i) {
    KEL_RELXEB* pRecord = nullptr;
    pTable->GetAt(i, &pRecord);
    out.Decimal(i).Char('\t').Hex8(pRecord->Offset).Char('\t');
    out.Decimal(pRecord->to_start).Text("..").Decimal(pRecord->to_end).Char('\t');
    DWORD dwValue = 0;
    HRESULT hr = S_OK;
    const bool bText = pTable->EvaluateWithText(i, &dwValue, &hr, szText, sizeof szText) == S_OK;
    if (hr == S_OK) out.Hex8(dwValue);
    else out.Text("error 0x").Hex8(static_cast<DWORD>(hr));
    out.Char('\t');
    if (bText) out.Escaped(szText);
    else out.Text("Error!");
    out.EndLine();
  }
}

// The same records as dump --json lists them.
void WriteTable(C_KOfdELF4& document, DWORD dwIndex, C_JsonWriter& json) {
  json.BeginObject();
  json.Key("index").Number(dwIndex);
  json.Name("name", SectionName(document, dwIndex));
  json.Key("relocations").BeginArray();
  C_KOfdRelxebTable* pTable = TableAt(document, dwIndex);
  const C_RememberedRuns remembered(*pTable);
  for (DWORD i = 0; i < pTable->GetCount(); ++i) WriteRelocationJson(json, *pTable, dwIndex, i);
  json.EndArray();
  json.EndObject();
}

// Prints each high-byte report as it comes.
class PrintingSink : public C_KOfdRelocationSink {
 public:
  HRESULT ReportHighByte(const DWORD* pPair) override {
    printf("high byte %02x at %08x\n", static_cast<unsigned>(pPair[1]), static_cast<unsigned>(pPair[0]));
    return S_OK;
  }
};

// Keeps the high-byte reports for the JSON document, written once OUT is complete.
class CollectingSink : public C_KOfdRelocationSink {
 public:
  HRESULT ReportHighByte(const DWORD* pPair) override {
    m_vReports.push_back({pPair[0], pPair[1]});
    return S_OK;
  }
  std::vector<std::pair<DWORD, DWORD>> m_vReports;  // address, byte
};

// The bytes a patched program section holds, and where the file has them.
struct Patch {
  std::uint64_t qwOffset;
  const BYTE* pData;
  DWORD dwSize;
};

// Copies the input to OUT a block at a time, the patched sections' bytes taking the place of
// theirs as their ranges pass, so that a large input is never held whole.
void WritePatchedCopy(const RelocOptions& options, const std::vector<Patch>& patches, C_ReplacingFile& output) {
  constexpr DWORD kBlock = 1u << 20;
  HANDLE hInput = nullptr;
  if (OpenFileForRead(options.sPath.c_str(), &hInput) != S_OK) ThrowLibraryError(true, KE_OPEN_FAILED, options.sPath.c_str());
  std::unique_ptr<void, HRESULT (*)(HANDLE)> closer(hInput, CloseFileHandle);
  std::uint64_t qwSize = 0;
  if (!platform::FileSize(hInput, &qwSize)) ThrowLibraryError(true, KE_READ_FAILED, options.sPath.c_str());
  std::vector<BYTE> vBlock(static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, qwSize)));
  for (std::uint64_t qwAt = 0; qwAt < qwSize;) {
    const DWORD dwBlock = static_cast<DWORD>(std::min<std::uint64_t>(kBlock, qwSize - qwAt));
    DWORD dwRead = 0;
    if (ReadFileBlockCounted(hInput, vBlock.data(), dwBlock, 1, &dwRead) != S_OK || dwRead != dwBlock) {
      if (dwRead != 0) platform::SetEndOfFileError();
      ThrowLibraryError(true, KE_READ_FAILED, options.sPath.c_str());
    }
    for (const Patch& patch : patches) {
      const std::uint64_t qwFrom = std::max(qwAt, patch.qwOffset);
      const std::uint64_t qwTo = std::min(qwAt + dwBlock, patch.qwOffset + patch.dwSize);
      if (qwFrom < qwTo) memcpy(&vBlock[qwFrom - qwAt], patch.pData + (qwFrom - patch.qwOffset), qwTo - qwFrom);
    }
    output.Write(vBlock.data(), dwBlock);
    qwAt += dwBlock;
  }
  output.Commit();
}

// The object whose relocations are listed: FILE itself, or its member --member names.
struct OpenedObject {
  std::unique_ptr<C_KOfdELF4> object;
  std::unique_ptr<C_KOfdArchive> archive;
  C_KOfdELF4* pDocument = nullptr;
};

void OpenRelocObject(const RelocOptions& options, OpenedObject& opened) {
  if (options.sMember.empty()) {
    if (KindOfFile(options.sPath) == FileKind::kArchive) Fail("an archive: name the member to list with --member NAME", KE_NOT_OBJECT_FILE);
    // A listing reads the relocation tables and what they name; --apply patches every program section.
    opened.object = options.sApply.empty() ? OpenObjectHeaders(options.sPath) : OpenObject(options.sPath);
    opened.pDocument = opened.object.get();
    return;
  }
  if (KindOfFile(options.sPath) != FileKind::kArchive) ThrowLibraryError(false, KE_NOT_ARCHIVE_FILE, options.sPath.c_str());
  opened.archive = std::make_unique<C_KOfdArchive>();
  OpenArchive(*opened.archive, options.sPath);
  opened.pDocument = &MemberObject(*opened.archive, options.sMember);
}

int RunReloc(const RelocOptions& given, const std::string& sGiven, C_JsonWriter* pShared) {
  RelocOptions options = given;
  options.sPath = ShownName(sGiven);
  return RunReporting(options.sPath, [&] {
    options.sPath = OpenedPath(sGiven);
    // OUT is locked before anything is read, so that two runs writing it take turns.
    std::unique_ptr<C_ReplacingFile> output;
    try {
      if (!options.sApply.empty()) output = std::make_unique<C_ReplacingFile>(options.sOutput.c_str());
    } catch (const C_Exception& error) {
      return ReportFailure(options.sOutput, error);
    }
    OpenedObject opened;
    OpenRelocObject(options, opened);
    C_KOfdELF4* document = opened.pDocument;
    std::vector<DWORD> indexes;
    if (!SelectTables(*document, options, &indexes)) return kExitFailure;
    if (options.sApply.empty() && options.bJson) {
      C_FileJson target(pShared);
      C_JsonWriter& json = *target;
      json.BeginDocument("reloc");
      json.Name("file", sGiven);
      if (!options.sMember.empty()) json.Name("member", options.sMember);
      json.Key("sections").BeginArray();
      for (DWORD dwIndex : indexes) WriteTable(*document, dwIndex, json);
      json.EndArray();
      json.EndObject();
      return FinishJson(json, ShownName(sGiven));
    }
    if (options.sApply.empty()) {
      ListingWriter out;
      for (DWORD dwIndex : indexes) PrintTable(*document, dwIndex, out);
      return 0;
    }
    const DWORD dwMode = options.sApply == "byte" ? KEL_RELOCATE_BYTE
                         : options.sApply == "half" ? KEL_RELOCATE_HALF
                                                    : KEL_RELOCATE_WORD;
    PrintingSink printing;
    CollectingSink collecting;
    C_KOfdRelocationSink& sink = options.bJson ? static_cast<C_KOfdRelocationSink&>(collecting) : printing;
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
    std::vector<Patch> patches;
    for (const auto& target : targets) {
      KEL_SHDR* pHeader = nullptr;
      BYTE* pData = nullptr;
      DWORD dwHeld = 0;
      target.second->GetHeader(&pHeader);
      target.second->GetData(&pData, &dwHeld);
      if (pData) patches.push_back({pHeader->sh_offset, pData, dwHeld});
    }
    try {
      WritePatchedCopy(options, patches, *output);
    } catch (const C_Exception& error) {
      return ReportFailure(options.sOutput, error);
    }
    if (!options.bJson) return 0;
    C_JsonWriter json(stdout);
    json.BeginDocument("reloc");
    json.Name("file", sGiven);
    json.Name("output", options.sOutput);
    json.Key("mode").Named(dwMode, options.sApply);
    json.Key("sections").BeginArray();
    for (DWORD dwIndex : indexes) json.Number(dwIndex);
    json.EndArray();
    json.Key("high_bytes").BeginArray();
    for (const auto& report : collecting.m_vReports) {
      json.BeginObject();
      json.Key("address").Number(report.first);
      json.Key("byte").Number(report.second);
      json.EndObject();
    }
    json.EndArray();
    json.EndObject();
    return FinishJson(json, ShownName(sGiven));
  });
}

}  // namespace

void RegisterReloc(CLI::App& app, CommandResult& result) {
  CLI::App* command = app.add_subcommand("reloc", "List the relocations of type 22 with their values and expressions, or apply them");
  auto options = std::make_shared<RelocOptions>();
  command->add_option("FILE", options->vFiles, "The KELF objects (- for standard input); several are each headed by their name")
      ->required();
  command->add_option("--section", options->sSection, "One relocation section, by index or name (ignoring case)")->type_name("SEL");
  command->add_option("--member", options->sMember, "Of an archive FILE: list the relocations of this member's object")->type_name("NAME");
  CLI::Option* apply = command->add_option("--apply", options->sApply, "Apply the relocations; Offset counts bytes, 16-bit or 32-bit units")
                           ->check(CLI::IsMember({"byte", "half", "word"}));
  CLI::Option* output = command->add_option("-o", options->sOutput, "Where to write the relocated copy of FILE");
  command->add_flag("--json", options->bJson, JsonHelp("reloc"));
  apply->needs(output);
  output->needs(apply);
  command->callback([options, &result] {
    if (!options->sApply.empty() && (options->vFiles.size() > 1 || !options->sMember.empty())) {
      result.status = UsageFailure("reloc", "--apply writes the copy of one object file: give one FILE and no --member");
      return;
    }
    result.status = RunEachFile(options->vFiles, "reloc", options->bJson, [&](const std::string& sGiven, C_JsonWriter* pJson) {
      return RunReloc(*options, sGiven, pJson);
    });
  });
}

}  // namespace cli
