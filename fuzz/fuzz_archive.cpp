// Opens the input as an archive, lists it, finds every symbol, opens and walks every member,
// then deletes the first member and writes the archive out: what it writes must open again with
// the members that remain.
#include <cstdint>
#include <cstring>
#include <string>

#include "archive/archive.h"
#include "fuzz_file.h"
#include "object/kofd_elf.h"
#include "sections/symbol_table.h"

namespace {

volatile std::uint32_t g_dwSink;

void Touch(const char* psz) { g_dwSink = g_dwSink + static_cast<std::uint32_t>(strlen(psz)); }

// At most this many symbols and members are visited, so that a large valid input stays fast.
constexpr DWORD kMaxVisits = 512;

struct Sink : I_KArcSymbolCallback {
  HRESULT OnSymbol(DWORD dwSection, DWORD dwInfo, DWORD dwValue, DWORD dwSize, DWORD) override {
    g_dwSink = dwSection + dwInfo + dwValue + dwSize;
    return S_OK;
  }
};

template <class Body>
void Tolerating(Body&& body) {
  try {
    body();
  } catch (const C_Exception&) {
    // A damaged archive or member is refused with the library's own result.
  }
}

void WalkMember(C_KArcObjectMember& member) {
  Touch(member.GetName());
  g_dwSink = member.GetSize() + member.GetDate() + member.GetNameIndex() + member.GetOffset();
  Tolerating([&] {
    const BYTE* pData = nullptr;
    DWORD dwSize = 0;
    member.GetData(&pData, &dwSize);
    if (dwSize) g_dwSink = pData[0] + pData[dwSize - 1];
  });
  Tolerating([&] {
    I_KOfdELF* pDocument = nullptr;
    member.GetDocument(&pDocument);
    DWORD dwCount = 0;
    pDocument->GetSectionCount(&dwCount);
    for (DWORD i = 0; i < dwCount && i < kMaxVisits; ++i) {
      const char* pszName = nullptr;
      if (pDocument->GetSectionName(i, &pszName) == S_OK && pszName) Touch(pszName);
    }
    I_KOfdSymbolTable* pSymbols = nullptr;
    if (pDocument->GetSymbolTable(&pSymbols) == S_OK && pSymbols) pSymbols->GetSymbolCount(&dwCount);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  const std::string& sPath = WriteFuzzInput(pData, nSize);
  C_KOfdArchive archive;
  bool bOpened = false;
  Tolerating([&] {
    archive.AttachPath(sPath.c_str(), 0);
    archive.Open();
    bOpened = true;
  });
  if (!bOpened) return 0;

  C_KArcLinkMember& link = archive.LinkMember();
  g_dwSink = link.GetVersion() + link.GetObjectCount() + link.GetSymbolCount();
  Sink sink;
  for (DWORD i = 0; i < link.GetNameCount() && i < kMaxVisits; ++i) {
    const char* pszSymbol = link.GetSymbolName(i);
    Touch(pszSymbol);
    Tolerating([&] { archive.FindSymbol(pszSymbol, static_cast<I_KArcSymbolCallback*>(&sink)); });
  }
  for (DWORD i = 0; i < archive.MemberCount() && i < kMaxVisits; ++i) WalkMember(archive.MemberAt(i));
  Touch(archive.NameMember().GetData());

  if (archive.MemberCount() == 0) return 0;
  const std::string sFirst = archive.MemberAt(0).GetName();
  const std::string sOut = sPath + ".out";
  bool bWritten = false;
  Tolerating([&] {
    archive.Delete(sFirst.c_str());
    archive.SaveAs(sOut.c_str());
    bWritten = true;
  });
  if (!bWritten) return 0;
  C_KOfdArchive written;
  written.AttachPath(sOut.c_str(), 0);
  written.Open();  // an archive this library wrote must open: a throw here is a finding
  if (written.MemberCount() != archive.MemberCount()) __builtin_trap();
  for (DWORD i = 0; i < written.MemberCount(); ++i) {
    if (strcmp(written.MemberAt(i).GetName(), archive.MemberAt(i).GetName()) != 0) __builtin_trap();
  }
  return 0;
}
