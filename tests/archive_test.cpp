// Archives: member headers, opening, finding symbols, adding, removing, saving, damaged files.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "archive/archive.h"
#include "archive_objects.h"
#include "archive_writer.h"
#include "frame_temp_dir.h"

namespace {

using kelf_test::ArchiveBuilder;
using kelf_test::Bytes;

C_Exception OpenFailure(const std::string& sPath) {
  C_KOfdArchive archive;
  archive.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
  try {
    archive.Open();
  } catch (const C_Exception& error) {
    EXPECT_EQ(archive.GetHandle(), nullptr) << "the file was left open";
    return error;
  }
  ADD_FAILURE() << "the archive was accepted: " << sPath;
  return C_Exception();
}

template <class Body>
C_Exception Failure(Body&& body) {
  try {
    body();
  } catch (const C_Exception& error) {
    return error;
  }
  ADD_FAILURE() << "no failure";
  return C_Exception();
}

std::vector<std::pair<std::string, DWORD>> Symbols(C_KOfdArchive& archive) {
  std::vector<std::pair<std::string, DWORD>> symbols;
  C_KArcLinkMember& link = archive.LinkMember();
  for (DWORD i = 0; i < link.GetNameCount(); ++i) {
    DWORD dwMember = 0xDEAD;
    link.GetSymbolMember(i, &dwMember);
    symbols.emplace_back(link.GetSymbolName(i), dwMember);
  }
  return symbols;
}

std::string MemberBytes(C_KOfdArchive& archive, DWORD dwIndex) {
  const BYTE* pData = nullptr;
  DWORD dwSize = 0;
  EXPECT_EQ(archive.MemberAt(dwIndex).GetData(&pData, &dwSize), S_OK);
  return std::string(reinterpret_cast<const char*>(pData), dwSize);
}

struct Recorder : I_KArcSymbolCallback, C_Unknown {
  HRESULT OnSymbol(DWORD dwSection, DWORD dwInfo, DWORD dwValue, DWORD dwSize, DWORD dwReserved) override {
    calls.push_back({dwSection, dwInfo, dwValue, dwSize, dwReserved});
    return S_OK;
  }
  std::vector<std::vector<DWORD>> calls;
};

// lib.a of a.o (alpha, beta) and b.o (gamma), as the test writer lays it out.
std::string TwoMemberArchive(const TempDir& dir, kelf_test::ArchiveLayout* pLayout = nullptr) {
  ArchiveBuilder builder;
  builder.AddMember("a.o", ObjectWith({{"alpha", 1}, {"beta", 1}}), 1700000000);
  builder.AddMember("b.o", ObjectWith({{"gamma", 1}}), 1700000001);
  builder.AddSymbol("alpha", 0).AddSymbol("beta", 0).AddSymbol("gamma", 1);
  return dir.Write("lib.a", AsString(builder.Build(pLayout)));
}

}  // namespace

TEST(KArcMemberHeader, ReadsFieldsAsTheCConversionAndBuildsThemInDecimal) {
  TempDir dir;
  const std::pair<const char*, DWORD> sizes[] = {{"0x40", 64}, {"010", 8}, {" 12abc", 12}, {"-5", 0xFFFFFFFBu},
                                                 {"", 0},      {"0xg", 0}, {"4294967295", 0xFFFFFFFFu}};
  for (const auto& size : sizes) {
    Bytes bytes = kelf_test::MemberHeader(std::nullopt, 1700000000, 0, 0);
    kelf_test::SetHeaderField(bytes, 0, kelf_test::kFieldSize, size.first);
    kelf_test::SetHeaderField(bytes, 0, kelf_test::kFieldName, "0x1f");
    C_File file;
    file.AttachPath(dir.Write("header", AsString(bytes)).c_str(), 0);
    ASSERT_EQ(file.Open(1), S_OK);
    C_KArcMemberHeader header;
    ASSERT_EQ(header.Read(&file, 0), S_OK);
    EXPECT_EQ(header.GetSize(), size.second) << size.first;
    EXPECT_EQ(header.GetNameIndex(), 0x1Fu);
    EXPECT_EQ(header.GetDate(), 1700000000u);
    // A header the file cannot supply whole is the read failure.
    const C_Exception error = Failure([&] { header.Read(&file, 1); });
    EXPECT_EQ(error.Code(), KE_READ_FAILED);
    EXPECT_EQ(error.Message().rfind("error 1016: failed to read from file specified(When read linker member). ", 0), 0u);
  }
  C_KArcMemberHeader header;
  header.Build(true, 7, -3, 0, 4294967295u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(header.GetBytes()), 60),
            "7" + std::string(15, ' ') + "-3" + std::string(10, ' ') + "0" + std::string(19, ' ') + "4294967295'\n");
  header.SetNameIndex(12345);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(header.GetBytes()), 20), "12345           -3  ");
  header.BuildSpecial(12);
  EXPECT_EQ(header.GetBytes()[0], '/');
  EXPECT_EQ(header.GetNameIndex(), 0u);
  EXPECT_EQ(header.GetSize(), 12u);
}

TEST(KOfdArchive, OpensMembersNamesSymbolsAndObjectsInPlace) {
  TempDir dir;
  kelf_test::ArchiveLayout layout;
  C_KOfdArchive archive;
  archive.AttachPath(TwoMemberArchive(dir, &layout).c_str(), 0);
  ASSERT_EQ(archive.Open(), S_OK);
  EXPECT_EQ(archive.GetHandle(), nullptr);
  ASSERT_EQ(archive.MemberCount(), 2u);
  EXPECT_STREQ(archive.MemberAt(1).GetName(), "b.o");
  EXPECT_EQ(archive.MemberAt(1).GetOffset(), layout.memberHeaders[1]);
  EXPECT_EQ(archive.MemberAt(1).GetDate(), 1700000001u);
  EXPECT_EQ(MemberBytes(archive, 0), AsString(ObjectWith({{"alpha", 1}, {"beta", 1}})));
  EXPECT_EQ(Symbols(archive), (std::vector<std::pair<std::string, DWORD>>{{"alpha", 0}, {"beta", 0}, {"gamma", 1}}));

  // Member names ignore case, symbol names do not.
  DWORD dwMember = 0;
  EXPECT_EQ(archive.FindMember("B.O", &dwMember), S_OK);
  EXPECT_EQ(dwMember, 1u);
  long lMember = 0;
  archive.FindSymbolMember("GAMMA", &lMember);
  EXPECT_EQ(lMember, -1);
  archive.FindSymbolMember("gamma", &lMember);
  EXPECT_EQ(lMember, 1);

  // The defining member's object is read where it lies and reports the symbol.
  Recorder recorder;
  archive.FindSymbol("gamma", static_cast<I_Unknown*>(static_cast<C_Unknown*>(&recorder)));
  archive.FindSymbol("GAMMA", static_cast<I_KArcSymbolCallback*>(&recorder));
  archive.FindSymbol("gamma", static_cast<I_KArcSymbolCallback*>(nullptr));
  ASSERT_EQ(recorder.calls.size(), 1u);
  EXPECT_EQ(recorder.calls[0], (std::vector<DWORD>{1, 0x12, 8, 4, 0}));
  C_Unknown stranger;
  archive.FindSymbol("gamma", &stranger);
  EXPECT_EQ(recorder.calls.size(), 1u);
}

TEST(KOfdArchive, CreatesAddsSavesAndReopensTheSameArchive) {
  TempDir dir;
  const std::string sLibrary = dir.Path("new.a");
  const std::string sFirst = dir.Write("first.o", AsString(ObjectWith({{"one", 1}, {"undef", 0}, {"undef2", 0xFFFF}, {"abs", 0xFFF1}})));
  const std::string sSecond = dir.Write("second.o", AsString(ObjectWith({{"two", 1}})));
  const std::string sLocal = dir.Write("local.o", AsString(ObjectWith({{"hidden", 1}}, 0)));
  {
    C_KOfdArchive archive;
    archive.Attach(sLibrary.c_str(), sLibrary.c_str(), 0, 0, 0);
    archive.Create();
    ASSERT_EQ(archive.Save(), S_OK);
  }
  C_KOfdArchive archive;
  archive.AttachPath(sLibrary.c_str(), 0);
  ASSERT_EQ(archive.Open(), S_OK);
  EXPECT_EQ(archive.LinkMember().GetSize(), 12u);
  EXPECT_EQ(archive.MemberCount(), 0u);
  for (const std::string& sObject : {sFirst, sSecond, sLocal}) ASSERT_EQ(archive.Add(sObject.c_str(), 0), S_OK);
  const DWORD dwFirstSize = archive.MemberAt(0).GetSize();
  EXPECT_EQ(archive.MemberAt(1).GetOffset() - archive.MemberAt(0).GetOffset(), 60 + dwFirstSize);
  ASSERT_EQ(archive.Save(), S_OK);

  C_KOfdArchive reopened;
  reopened.AttachPath(sLibrary.c_str(), 0);
  ASSERT_EQ(reopened.Open(), S_OK);
  ASSERT_EQ(reopened.MemberCount(), 3u);
  EXPECT_EQ(Symbols(reopened), (std::vector<std::pair<std::string, DWORD>>{{"one", 0}, {"abs", 0}, {"two", 1}}));
  EXPECT_STREQ(reopened.MemberAt(2).GetName(), sLocal.c_str());
  EXPECT_EQ(MemberBytes(reopened, 1), TempDir::Read(sSecond));
  EXPECT_EQ(reopened.LinkMember().GetSize(), reopened.LinkMember().DataSize());
  EXPECT_EQ(reopened.NameMember().GetSize(), reopened.NameMember().GetLength());
  I_KOfdELF* pDocument = nullptr;
  ASSERT_EQ(reopened.MemberAt(1).GetDocument(&pDocument), S_OK);
  EXPECT_EQ(MemberBytes(archive, 1), MemberBytes(reopened, 1));
}

TEST(KOfdArchive, AddListsEveryDefinitionAndRemoveLeavesItsMarkInTheLinkerMember) {
  TempDir dir;
  C_KOfdArchive archive;
  archive.AttachPath(TwoMemberArchive(dir).c_str(), 0);
  archive.Open();
  const DWORD dwLinkSize = archive.LinkMember().GetSize();
  const std::string sClash = dir.Write("clash.o", AsString(ObjectWith({{"delta", 1}, {"beta", 1}})));
  // beta is listed again for the new member; the lookup answers the first member.
  EXPECT_EQ(archive.Add(sClash.c_str(), 0), S_OK);
  EXPECT_EQ(archive.MemberCount(), 3u);
  EXPECT_EQ(archive.LinkMember().GetObjectCount(), 3u);
  EXPECT_EQ(archive.LinkMember().GetSize(), dwLinkSize + 4 + (4 + 6) + (4 + 5));
  EXPECT_EQ(Symbols(archive).back(), (std::pair<std::string, DWORD>{"beta", 2}));
  long lMember = -1;
  archive.FindSymbolMember("beta", &lMember);
  EXPECT_EQ(lMember, 0);
  archive.FindSymbolMember("delta", &lMember);
  EXPECT_EQ(lMember, 2);
  EXPECT_EQ(archive.SaveAs(dir.Path("out.a").c_str()), S_OK);

  // Remove walks the symbols of members 0, 0, 1 and keeps one index and two names.
  C_KOfdArchive other;
  other.AttachPath(TwoMemberArchive(dir).c_str(), 0);
  other.Open();
  ASSERT_EQ(other.Remove("A.O"), S_OK);
  EXPECT_EQ(other.LinkMember().GetSymbolCount(), 1u);
  EXPECT_EQ(Symbols(other), (std::vector<std::pair<std::string, DWORD>>{{"beta", 0}, {"gamma", 0xDEAD}}));
  EXPECT_EQ(other.LinkMember().GetSize(), dwLinkSize - 4);
  EXPECT_EQ(other.MemberCount(), 2u);
  EXPECT_EQ(other.Remove("a.o"), E_FAIL);
  EXPECT_EQ(Failure([&] { other.Remove("c.o"); }).Message(), "Exception: 0x80004003. pMember at C_KOfdArchive::Remove");
}

TEST(KOfdArchive, DeleteKeepsEveryOtherMemberWhole) {
  TempDir dir;
  ArchiveBuilder builder;
  for (const char* pszName : {"a.o", "bb.o", "c.o"}) {
    builder.AddMember(pszName, ObjectWith({{std::string(pszName) + "_f", 1}}), 1700000000);
    builder.AddSymbol(std::string(pszName) + "_f", static_cast<std::uint32_t>(pszName[0] - 'a'));
  }
  kelf_test::ArchiveLayout layout;
  const std::string sOld = AsString(builder.Build(&layout));
  C_KOfdArchive archive;
  archive.AttachPath(dir.Write("lib.a", sOld).c_str(), 0);
  archive.Open();
  ASSERT_EQ(archive.Delete("BB.O"), S_OK);
  ASSERT_EQ(archive.SaveAs(dir.Path("out.a").c_str()), S_OK);

  C_KOfdArchive result;
  result.AttachPath(dir.Path("out.a").c_str(), 0);
  ASSERT_EQ(result.Open(), S_OK);
  ASSERT_EQ(result.MemberCount(), 2u);
  EXPECT_STREQ(result.MemberAt(1).GetName(), "c.o");
  EXPECT_EQ(Symbols(result), (std::vector<std::pair<std::string, DWORD>>{{"a.o_f", 0}, {"c.o_f", 1}}));
  const std::string sNew = TempDir::Read(dir.Path("out.a"));
  for (DWORD i = 0; i < 2; ++i) {
    const std::size_t old = layout.memberHeaders[i == 0 ? 0 : 2];
    // The bytes, and the header but for the name field, are those of the original member.
    EXPECT_EQ(MemberBytes(result, i), sOld.substr(old + 60, result.MemberAt(i).GetSize()));
    EXPECT_EQ(sNew.substr(result.MemberAt(i).GetOffset() + 16, 44), sOld.substr(old + 16, 44));
  }
  EXPECT_EQ(Failure([&] { result.Delete("bb.o"); }).Code(), E_POINTER);

  // Members that share a name keep it when one of them goes.
  std::string sShared = sOld;
  for (std::size_t at : layout.memberHeaders) sShared.replace(at, 16, "4" + std::string(15, ' '));
  C_KOfdArchive shared;
  shared.AttachPath(dir.Write("shared.a", sShared).c_str(), 0);
  ASSERT_EQ(shared.Open(), S_OK);
  ASSERT_EQ(shared.Delete("BB.O"), S_OK);
  EXPECT_STREQ(shared.MemberAt(1).GetName(), "bb.o");
  EXPECT_EQ(shared.NameMember().GetLength(), 13u);
}

TEST(KOfdArchive, DamagedArchivesAreRefusedWithTheirOwnResult) {
  TempDir dir;
  EXPECT_EQ(OpenFailure(dir.Write("empty.a", "")).Code(), KE_READ_FAILED);
  EXPECT_EQ(OpenFailure(dir.Write("ar.a", "!<arch>\r")).Code(), KE_NOT_ARCHIVE_FILE);
  EXPECT_EQ(OpenFailure(dir.Write("magic.a", "!<arch>\n")).Code(), KE_READ_FAILED);

  kelf_test::ArchiveLayout layout;
  const auto damaged = [&](const char* pszName, auto&& change) {
    ArchiveBuilder builder;
    builder.AddMember("a.o", ObjectWith({{"f", 1}}));
    builder.AddSymbol("f", 0);
    change(builder);
    return dir.Write(pszName, AsString(builder.Build(&layout)));
  };
  // Counts larger than the linker member, a linker member too short for its counts, an offset
  // past the end, a name index past the name member.
  const std::string refused[] = {
      damaged("objects.a", [](ArchiveBuilder& b) { b.LinkerData(kelf_test::Words({1, 0x40000000, 0})); }),
      damaged("symbols.a", [](ArchiveBuilder& b) { b.LinkerData(kelf_test::Words({1, 0, 0xFFFFFFFF, 0})); }),
      damaged("short.a", [](ArchiveBuilder& b) { b.LinkerData({1, 0, 0}); }),
      damaged("past.a", [](ArchiveBuilder& b) { b.Offsets({0xFFFFFF00}); }),
  };
  for (const std::string& sPath : refused) EXPECT_EQ(OpenFailure(sPath).Code(), KE_READ_FAILED) << sPath;
  EXPECT_EQ(OpenFailure(damaged("index.a", [](ArchiveBuilder& b) { b.NameData({}); })).Message(),
            "error 1009: internal exception - Out of range( When call C_KArcNameMember::Y_GetAt). ");

  // Names without their NUL end where the data ends; an offset into the middle of a member reads
  // whatever lies there as a header.
  Bytes linker = kelf_test::Words({1, 0, 1, 0});
  linker.push_back('f');
  const std::string accepted[] = {
      damaged("names.a", [](ArchiveBuilder& b) { b.NameData({'a', '.', 'o'}); }),
      damaged("symbol.a", [&](ArchiveBuilder& b) { b.LinkerData(linker); }),
      damaged("middle.a", [&](ArchiveBuilder& b) { b.Offsets({static_cast<std::uint32_t>(layout.memberHeaders[0] + 60)}); }),
  };
  // The linker member of symbol.a lists no object; the others keep their one member, a.o.
  const DWORD counts[] = {1, 0, 1};
  for (std::size_t i = 0; i < 3; ++i) {
    C_KOfdArchive archive;
    archive.AttachPath(accepted[i].c_str(), 0);
    ASSERT_EQ(archive.Open(), S_OK) << accepted[i];
    ASSERT_EQ(archive.MemberCount(), counts[i]) << accepted[i];
    if (counts[i] != 0) {
      EXPECT_STREQ(archive.MemberAt(0).GetName(), "a.o") << accepted[i];
    }
  }
  C_KOfdArchive symbol;
  symbol.AttachPath(accepted[1].c_str(), 0);
  symbol.Open();
  EXPECT_EQ(Symbols(symbol), (std::vector<std::pair<std::string, DWORD>>{{"f", 0}}));

  // A size past the end fails when the bytes are needed, never before, and a save that needs
  // them leaves the file as it was.
  ArchiveBuilder sized;
  sized.AddMember("a.o", ObjectWith({{"f", 1}}));
  Bytes bytes = sized.Build(&layout);
  kelf_test::SetHeaderField(bytes, layout.memberHeaders[0], kelf_test::kFieldSize, "99999999");
  C_KOfdArchive archive;
  archive.AttachPath(dir.Write("size.a", AsString(bytes)).c_str(), 0);
  ASSERT_EQ(archive.Open(), S_OK);
  const BYTE* pData = nullptr;
  DWORD dwSize = 0;
  EXPECT_EQ(Failure([&] { archive.MemberAt(0).GetData(&pData, &dwSize); }).Message().rfind(
                "error 1016: failed to read from file specified(When read class C_KArcObjectMember). ", 0),
            0u);
  EXPECT_EQ(Failure([&] { archive.Save(); }).Code(), KE_READ_FAILED);
  EXPECT_EQ(TempDir::Read(dir.Path("size.a")), AsString(bytes)) << "a failed save changed the file";
}

TEST(KOfdArchive, ASaveThatCannotReplaceItsTargetIsReported) {
  TempDir dir;
  C_KOfdArchive archive;
  archive.AttachPath(TwoMemberArchive(dir).c_str(), 0);
  archive.Open();
  // A device is never replaced by a file; a directory that does not exist holds no temporary.
  const C_Exception device = Failure([&] { archive.SaveAs("/dev/full"); });
  EXPECT_EQ(device.Code(), KE_OPEN_FAILED);
  EXPECT_NE(device.Message().find("System Error: not an ordinary file"), std::string::npos) << device.Message();
  const C_Exception missing = Failure([&] { archive.SaveAs(dir.Path("no/such/dir.a").c_str()); });
  EXPECT_EQ(missing.Code(), KofdCode(IDS_TEMPORARY_FILE_FAILED));
  EXPECT_NE(missing.Message().find("System Error: "), std::string::npos);
}
