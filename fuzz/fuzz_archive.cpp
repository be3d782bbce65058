// Opens the input as an archive, lists it, finds every symbol, opens and walks every member;
// then opens it afresh, deletes the first member and writes the archive out, copying the other
// members from the input: what it writes must open again with the members that remain, each
// with the bytes it had.
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
  for (C_KOfdDump* pDump : {static_cast<C_KOfdDump*>(&link), static_cast<C_KOfdDump*>(&archive.NameMember())}) {
    pDump->SetStream(NullStream());
    pDump->DumpHead();
    pDump->DumpAll();
  }
  for (DWORD i = 0; i < archive.MemberCount() && i < kMaxVisits; ++i) {
    archive.MemberAt(i).GetHeader().SetStream(NullStream());
    archive.MemberAt(i).GetHeader().DumpAll();
  }

  if (archive.MemberCount() == 0) return 0;
  // A document that has read none of its members' bytes copies them all from the file as it
  // writes: the archive written must open again with the members that remain, byte for byte.
  const std::string sFirst = archive.MemberAt(0).GetName();
  const std::string sOut = sPath + ".out";
  C_KOfdArchive fresh;
  bool bWritten = false;
  Tolerating([&] {
    fresh.AttachPath(sPath.c_str(), 0);
    fresh.Open();
    fresh.Delete(sFirst.c_str());
    fresh.SaveAs(sOut.c_str());
    bWritten = true;
  });
  if (!bWritten) return 0;
  C_KOfdArchive written;
  written.AttachPath(sOut.c_str(), 0);
  written.Open();  // an archive this library wrote must open: a throw here is a finding
  if (written.MemberCount() != fresh.MemberCount()) __builtin_trap();
  for (DWORD i = 0; i < written.MemberCount(); ++i) {
    if (strcmp(written.MemberAt(i).GetName(), fresh.MemberAt(i).GetName()) != 0) __builtin_trap();
    if (i >= kMaxVisits) continue;
    // Both read through the member's own load, from the input and from the file written.
    const BYTE *pOld = nullptr, *pNew = nullptr;
    DWORD dwOld = 0, dwNew = 0;
    fresh.MemberAt(i).GetData(&pOld, &dwOld);
    written.MemberAt(i).GetData(&pNew, &dwNew);
    if (dwOld != dwNew || (dwOld != 0 && memcmp(pOld, pNew, dwOld) != 0)) __builtin_trap();
  }
  return 0;
}
