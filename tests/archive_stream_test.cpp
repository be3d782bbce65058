// Archive writes copy the members they do not hold from their files, a block at a time: the
// members come out byte for byte, larger than a block or odd-sized, and a file that shrinks
// before its bytes are copied fails the write, leaving the archive as it was.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "archive/archive.h"
#include "archive/archive_check.h"
#include "archive/archive_io.h"
#include "archive_objects.h"
#include "frame/fileio.h"
#include "frame/replacing_file.h"
#include "archive_writer.h"
#include "frame_temp_dir.h"

namespace {

using kelf_test::ArchiveBuilder;
using kelf_test::Bytes;

constexpr std::size_t kBlock = 1024 * 1024;

// Bytes that differ from block to block, so that a block copied twice or skipped shows.
Bytes Pattern(std::size_t nSize, std::uint32_t seed) {
  Bytes bytes(nSize);
  std::uint32_t x = seed;
  for (BYTE& byte : bytes) byte = static_cast<BYTE>((x = x * 1664525u + 1013904223u) >> 24);
  return bytes;
}

// An object with a code section of nCode bytes and one global, f_NAME.
Bytes BigObject(const std::string& sName, std::size_t nCode) {
  using namespace kelf_test;
  StringTable names = StringTable::WithNul();
  Bytes symbols = Sym(0, 0, 0, 0, 0, 0, 0);
  Append(symbols, Sym(names.Add("f_" + sName), 0, 4, kStbGlobal, kSttFunction, 0, 1));
  ObjectBuilder object;
  object.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 1, 0, Pattern(nCode, 7), {}, {}, {}});
  object.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  object.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, names.Data(), {}, {}, {}});
  return object.Build();
}

// The member of out at the offset the archive gives: its header (60) and bytes.
std::string RawMember(const std::string& sFile, C_KOfdArchive& archive, DWORD dwIndex) {
  C_KArcObjectMember& member = archive.MemberAt(dwIndex);
  return sFile.substr(member.GetOffset(), 60 + member.GetSize());
}

std::size_t FilesIn(const TempDir& dir) {
  std::size_t n = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path(""))) n += entry.is_regular_file();
  return n;
}

struct Members {
  std::vector<std::string> vNames;
  std::vector<Bytes> vData;
};

// lib.a of a member 2.5 blocks and one byte long, an odd-sized one of 3 bytes, and one exactly
// a block long: bytes of no object, which a write copies without reading them as one.
Members OldMembers() {
  return {{"big.o", "odd.o", "block.o"}, {Pattern(2 * kBlock + kBlock / 2 + 1, 1), Pattern(3, 2), Pattern(kBlock, 3)}};
}

std::string WriteArchive(const TempDir& dir, const Members& members, kelf_test::ArchiveLayout* pLayout = nullptr) {
  ArchiveBuilder builder;
  for (std::size_t i = 0; i < members.vNames.size(); ++i) builder.AddMember(members.vNames[i], members.vData[i], 1700000000);
  return dir.Write("lib.a", AsString(builder.Build(pLayout)));
}

}  // namespace

TEST(KOfdArchiveStream, AddAndDeleteCopyEveryMemberByteForByte) {
  TempDir dir;
  const Members old = OldMembers();
  kelf_test::ArchiveLayout layout;
  const std::string sLibrary = WriteArchive(dir, old, &layout);
  const std::string sOld = TempDir::Read(sLibrary);
  // An added object larger than a block, made odd-sized by a byte behind its last section.
  Bytes added = BigObject("added", kBlock + 12345);
  if (added.size() % 2 == 0) added.push_back(0x5A);
  const std::string sAdded = dir.Write("added.o", AsString(added));

  C_KOfdArchive archive;
  archive.AttachPath(sLibrary.c_str(), 0);
  ASSERT_EQ(archive.Open(), S_OK);
  ASSERT_EQ(archive.Add(sAdded.c_str(), 0), S_OK);
  ASSERT_EQ(archive.Save(), S_OK);

  const std::string sNew = TempDir::Read(sLibrary);
  C_KOfdArchive saved;
  saved.AttachPath(sLibrary.c_str(), 0);
  ASSERT_EQ(saved.Open(), S_OK);
  ASSERT_EQ(saved.MemberCount(), 4u);
  for (DWORD i = 0; i < 3; ++i) {
    // Header and bytes as they were, the members back to back: the odd one has no pad byte.
    EXPECT_EQ(RawMember(sNew, saved, i), sOld.substr(layout.memberHeaders[i], 60 + old.vData[i].size())) << i;
    EXPECT_EQ(saved.MemberAt(i + 1).GetOffset(), saved.MemberAt(i).GetOffset() + 60 + saved.MemberAt(i).GetSize()) << i;
  }
  EXPECT_EQ(RawMember(sNew, saved, 3).substr(60), AsString(added));
  EXPECT_EQ(saved.MemberAt(3).GetOffset() + 60 + added.size(), sNew.size()) << "bytes behind the last member";
  long lMember = -1;
  saved.FindSymbolMember("f_added", &lMember);
  EXPECT_EQ(lMember, 3);
  // The document saved over its own file reads its members from their new places.
  for (DWORD i = 0; i < 4; ++i) {
    const BYTE* pData = nullptr;
    DWORD dwSize = 0;
    ASSERT_EQ(archive.MemberAt(i).GetData(&pData, &dwSize), S_OK);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(pData), dwSize), RawMember(sNew, saved, i).substr(60)) << i;
  }

  // Deleting the odd member moves the block-sized one up by three bytes, its bytes unchanged.
  ASSERT_EQ(saved.Delete("odd.o"), S_OK);
  ASSERT_EQ(saved.SaveAs(dir.Path("out.a").c_str()), S_OK);
  const std::string sOut = TempDir::Read(dir.Path("out.a"));
  C_KOfdArchive out;
  out.AttachPath(dir.Path("out.a").c_str(), 0);
  ASSERT_EQ(out.Open(), S_OK);
  ASSERT_EQ(out.MemberCount(), 3u);
  EXPECT_EQ(RawMember(sOut, out, 0).substr(60), AsString(old.vData[0]));
  EXPECT_EQ(RawMember(sOut, out, 1).substr(60), AsString(old.vData[2]));
  EXPECT_EQ(RawMember(sOut, out, 2).substr(60), AsString(added));
  EXPECT_EQ(TempDir::Read(sLibrary), sNew) << "SaveAs changed the document's own file";
}

TEST(KOfdArchiveStream, AFileShortenedBeforeItsBytesAreCopiedFailsTheWriteAndChangesNothing) {
  TempDir dir;
  const std::string sLibrary = WriteArchive(dir, OldMembers());
  const std::string sOld = TempDir::Read(sLibrary);
  const Bytes added = BigObject("added", kBlock + 100);
  const std::string sAdded = dir.Write("added.o", AsString(added));

  // The added object loses its tail between the Add that measured it and the save.
  {
    C_KOfdArchive archive;
    archive.AttachPath(sLibrary.c_str(), 0);
    ASSERT_EQ(archive.Open(), S_OK);
    ASSERT_EQ(archive.Add(sAdded.c_str(), 0), S_OK);
    ASSERT_EQ(::truncate(sAdded.c_str(), static_cast<off_t>(added.size() - 1)), 0);
    try {
      archive.Save();
      ADD_FAILURE() << "the save succeeded";
    } catch (const C_Exception& error) {
      EXPECT_EQ(error.Code(), KE_READ_FAILED);
      EXPECT_EQ(error.Message().rfind("error 1016: failed to read from file specified(" + sAdded + ")", 0), 0u)
          << error.Message();
    }
    EXPECT_EQ(TempDir::Read(sLibrary), sOld);
    EXPECT_EQ(FilesIn(dir), 2u) << "the temporary file was left behind";
  }

  // A file that shrinks after it was looked at, while its bytes are copied: the copy reads to
  // the end and reports it, having put what it got.
  const std::string sData = dir.Write("data.bin", AsString(Pattern(3 * kBlock, 9)));
  const std::string sSink = dir.Path("sink.bin");
  {
    HANDLE hSink = nullptr;
    ASSERT_EQ(OpenFileForWrite(sSink.c_str(), &hSink), S_OK);
    C_KArcWriter writer(hSink, 1024 * 1024);
    C_KArcSources sources;
    EXPECT_EQ(sources.SizeOf(sData), 3 * kBlock);
    ASSERT_EQ(::truncate(sData.c_str(), static_cast<off_t>(2 * kBlock + 5)), 0);
    sources.Copy(sData, kBlock, kBlock + 5, writer, sData.c_str());
    try {
      sources.Copy(sData, kBlock, kBlock + 6, writer, sData.c_str());
      ADD_FAILURE() << "the copy succeeded";
    } catch (const C_Exception& error) {
      EXPECT_EQ(error.Code(), KE_READ_FAILED);
      EXPECT_NE(error.Message().find(sData), std::string::npos) << error.Message();
    }
    writer.Flush();
    sources.Close();
    EXPECT_EQ(CloseFileHandle(hSink), S_OK);
  }
  const std::string sCopied = TempDir::Read(sSink);
  ASSERT_GE(sCopied.size(), kBlock + 5);
  EXPECT_EQ(sCopied.substr(0, kBlock + 5), AsString(Pattern(3 * kBlock, 9)).substr(kBlock, kBlock + 5));

  // The archive itself cut short behind its last member's header: refused before anything is
  // written, the file left as it is.
  ASSERT_EQ(::truncate(sLibrary.c_str(), static_cast<off_t>(sOld.size() - 10)), 0);
  C_KOfdArchive archive;
  archive.AttachPath(sLibrary.c_str(), 0);
  ASSERT_EQ(archive.Open(), S_OK);
  ASSERT_EQ(archive.Delete("odd.o"), S_OK);
  try {
    archive.Save();
    ADD_FAILURE() << "the save succeeded";
  } catch (const C_Exception& error) {
    EXPECT_EQ(error.Code(), KE_READ_FAILED);
  }
  EXPECT_EQ(TempDir::Read(sLibrary), sOld.substr(0, sOld.size() - 10));
}

// The check's rebuild copies the members the same way: a replacement that shrinks before the
// rebuild fails it with its path, the archive untouched; one that stays rebuilds byte for byte.
TEST(KArcImageStream, ARebuildCopiesMembersFromTheirFilesAndRefusesAShrunkOne) {
  TempDir dir;
  const Members old = OldMembers();
  const std::string sLibrary = WriteArchive(dir, old);
  const std::string sOld = TempDir::Read(sLibrary);
  const Bytes replacement = BigObject("odd", kBlock + 3);
  const std::string sReplacement = dir.Write("odd.o", AsString(replacement));
  {
    C_ReplacingFile output(sLibrary.c_str());
    C_KArcImage image;
    image.Read(sLibrary.c_str());
    ASSERT_EQ(image.Members().size(), 3u);
    image.ReplaceMember(1, sReplacement.c_str());
    ASSERT_EQ(::truncate(sReplacement.c_str(), static_cast<off_t>(replacement.size() / 2)), 0);
    try {
      image.Rebuild(output);
      ADD_FAILURE() << "the rebuild succeeded";
    } catch (const C_Exception& error) {
      EXPECT_EQ(error.Code(), KE_READ_FAILED);
      EXPECT_NE(error.Message().find(sReplacement), std::string::npos) << error.Message();
    }
  }
  EXPECT_EQ(TempDir::Read(sLibrary), sOld);
  EXPECT_EQ(FilesIn(dir), 2u) << "the temporary file was left behind";

  dir.Write("odd.o", AsString(replacement));
  {
    C_ReplacingFile output(sLibrary.c_str());
    C_KArcImage image;
    image.Read(sLibrary.c_str());
    image.ReplaceMember(1, sReplacement.c_str());
    image.Rebuild(output);
    output.Commit();
  }
  C_KArcImage rebuilt;
  rebuilt.Read(sLibrary.c_str());
  ASSERT_EQ(rebuilt.Members().size(), 3u);
  const std::string sNew = TempDir::Read(sLibrary);
  const Bytes* expected[] = {&old.vData[0], &replacement, &old.vData[2]};
  for (std::size_t i = 0; i < 3; ++i) {
    const S_KArcImageMember& member = rebuilt.Members()[i];
    EXPECT_EQ(sNew.substr(member.qwDataAt, member.dwSize), AsString(*expected[i])) << i;
  }
  EXPECT_EQ(rebuilt.Members()[2].qwDataAt + rebuilt.Members()[2].dwSize, sNew.size());
}
