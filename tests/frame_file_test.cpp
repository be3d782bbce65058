// C_File and the free functions on raw file handles.
#include <stdlib.h>
#include <time.h>
#include <utime.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "frame/file.h"
#include "frame/fileio.h"
#include "frame_temp_dir.h"

TEST(File, OpensOnceAndNamesTheFileAfterTheLastBackslash) {
  TempDir dir;
  C_File file;
  file.Attach("C:\\dir\\lib.o", "C:\\dir\\lib.o", 7, 9, 100);
  EXPECT_STREQ(file.GetFileName(), "lib.o");
  EXPECT_EQ(file.GetAttributeA(), 9u);
  EXPECT_EQ(file.GetAttributeB(), 7u);
  file.AttachPath(dir.Write("five.o", "12345").c_str(), 3);
  EXPECT_STREQ(file.GetFileName(), dir.Path("five.o").c_str());
  EXPECT_EQ(file.GetSize(nullptr), 5u);
  EXPECT_EQ(file.GetHandle(), nullptr);

  ASSERT_EQ(file.Open(1), S_OK);
  HANDLE hFirst = file.GetHandle();
  EXPECT_EQ(file.Open(1), S_FALSE);
  EXPECT_EQ(file.GetHandle(), hFirst);
  // A copy shares the handle without owning it: closing both closes it once.
  C_File copy;
  copy.AssignFrom(&file);
  EXPECT_EQ(copy.GetHandle(), hFirst);
  EXPECT_EQ(copy.Close(), S_OK);
  char ch = 0;
  EXPECT_EQ(ReadFileBlock(hFirst, &ch, 1, 1), S_OK);
  EXPECT_EQ(ch, '1');
  EXPECT_EQ(file.Reset(), S_OK);
  EXPECT_EQ(file.GetHandle(), nullptr);

  const std::string sMissing = dir.Path("missing.o");
  try {
    file.AttachWithSize(sMissing.c_str(), "missing.o", 0);
    ADD_FAILURE() << "no exception";
  } catch (const C_Exception& error) {
    EXPECT_EQ(error.Code(), static_cast<HRESULT>(0x800403F5));
    EXPECT_EQ(error.Message().rfind("error 1013: failed to open file specified(" + sMissing + "). \nSystem Error: ", 0), 0u);
  }
  EXPECT_EQ(file.Open(1), KE_OPEN_FAILED);
  EXPECT_EQ(file.GetHandle(), nullptr);
}

TEST(File, ModeZeroCreatesOrTruncatesForWriting) {
  TempDir dir;
  for (const std::string& sPath : {dir.Write("old.o", "old contents"), dir.Path("new.o")}) {
    C_File file;
    file.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
    ASSERT_EQ(file.Open(0), S_OK);
    EXPECT_EQ(WriteFileBlock(file.GetHandle(), "abcdef", 3, 2), S_OK);
    EXPECT_EQ(file.Close(), S_OK);
    EXPECT_EQ(TempDir::Read(sPath), "abcdef");
  }
}

TEST(FileIo, ReadsWholeBlocksAcceptsShortOnesAndFailsAtTheEnd) {
  TempDir dir;
  HANDLE hFile = nullptr;
  ASSERT_EQ(OpenFileForRead(dir.Write("abc", "abc").c_str(), &hFile), S_OK);
  char buffer[8] = {0};
  EXPECT_EQ(ReadFileBlock(hFile, buffer, 4, 0), S_OK);
  EXPECT_EQ(ReadFileBlock(hFile, buffer, 0, 4), S_OK);
  EXPECT_EQ(ReadFileBlock(hFile, buffer, 1, 1), S_OK);
  EXPECT_EQ(buffer[0], 'a');  // the empty reads left the position alone
  ASSERT_EQ(SeekFileTo(hFile, 0), S_OK);
  EXPECT_EQ(ReadFileBlock(hFile, buffer, 4, 2), S_OK);
  EXPECT_EQ(std::string(buffer, 8), std::string("abc\0\0\0\0\0", 8));
  EXPECT_EQ(ReadFileBlock(hFile, buffer, 1, 1), E_FAIL);
  EXPECT_EQ(CloseFileHandle(hFile), S_OK);
  EXPECT_EQ(OpenFileForRead(dir.Path("missing").c_str(), &hFile), E_FAIL);
}

TEST(FileIo, ProbesTellObjectsArchivesAndNameFiles) {
  TempDir dir;
  const std::string sObject = dir.Write("a.o", "\x7F" "ELF"), sArchive = dir.Write("c.a", "!<arch>\n");
  EXPECT_EQ(IsObjectFile(sObject.c_str()), S_OK);
  EXPECT_EQ(IsObjectFile(dir.Write("b.o", "\x7F" "ELX....").c_str()), S_FALSE);
  EXPECT_EQ(IsArchiveFile(sArchive.c_str()), S_OK);
  EXPECT_EQ(IsArchiveFile(dir.Write("d.a", "!<arch>").c_str()), S_FALSE);
  EXPECT_EQ(IsNameFile(dir.Write("e", "NF").c_str()), S_OK);
  EXPECT_EQ(IsNameFile(sArchive.c_str()), S_FALSE);
  for (const std::string& sPath : {dir.Write("empty", ""), dir.Path("missing")}) {
    EXPECT_EQ(IsObjectFile(sPath.c_str()), E_FAIL);
    EXPECT_EQ(IsArchiveFile(sPath.c_str()), E_FAIL);
    EXPECT_EQ(IsNameFile(sPath.c_str()), E_FAIL);
  }
  HANDLE hFile = nullptr;
  ASSERT_EQ(OpenFileForRead(dir.Write("g", "xx!<arch>\n\x7F" "ELF").c_str(), &hFile), S_OK);
  EXPECT_EQ(IsArchiveFileAt(hFile, 2), S_OK);
  EXPECT_EQ(IsObjectFileAt(hFile, 10), S_OK);
  CloseFileHandle(hFile);
}

TEST(FileIo, ChipFollowsTheByteOrderOfTheHeader) {
  TempDir dir;
  std::string header = std::string("\x7F" "ELF\x01\x01", 6) + std::string(50, '\0');
  header.replace(20, 4, "\x04\x03\x02\x01");
  DWORD dwChip = 0;
  EXPECT_EQ(GetChipOfObjectFile(dir.Write("le.o", header).c_str(), &dwChip), S_OK);
  EXPECT_EQ(dwChip, 0x01020304u);
  header[5] = 2;
  EXPECT_EQ(GetChipOfObjectFile(dir.Write("be.o", header).c_str(), &dwChip), S_OK);
  EXPECT_EQ(dwChip, 0x04030201u);
  dwChip = 77;
  EXPECT_NE(GetChipOfObjectFile(dir.Write("text", "plain text, not an object").c_str(), &dwChip), S_OK);
  EXPECT_EQ(dwChip, 77u);
}

TEST(FileIo, DateOfFileIsTheUtcLastWriteDate) {
  TempDir dir;
  const std::string sPath = dir.Write("dated.o", "x");
  // 2001-02-03 20:00 UTC is already February 4th in a zone nine hours east.
  const struct utimbuf times = {981230400, 981230400};
  ASSERT_EQ(::utime(sPath.c_str(), &times), 0);
  const char* pszZone = getenv("TZ");
  const std::string sZone = pszZone ? pszZone : "";
  setenv("TZ", "JST-9", 1);
  tzset();
  WORD wYear = 0, wMonth = 0, wDay = 0;
  const HRESULT hr = GetDateOfFile(sPath.c_str(), &wYear, &wMonth, &wDay);
  pszZone ? setenv("TZ", sZone.c_str(), 1) : unsetenv("TZ");
  tzset();
  EXPECT_EQ(hr, S_OK);
  EXPECT_EQ(wYear * 10000 + wMonth * 100 + wDay, 20010203);
  EXPECT_EQ(GetDateOfFile(dir.Path("missing").c_str(), &wYear, &wMonth, &wDay), E_FAIL);
}

TEST(FileIo, FilesDifferBySizeOrFirstByteOnly) {
  TempDir dir;
  const std::string sAbc = dir.Write("abc", "abc");
  EXPECT_EQ(FilesDiffer(sAbc.c_str(), dir.Write("abcd", "abcd").c_str()), 1);
  EXPECT_EQ(FilesDiffer(sAbc.c_str(), dir.Write("xbc", "xbc").c_str()), 1);
  EXPECT_EQ(FilesDiffer(sAbc.c_str(), dir.Write("abz", "abz").c_str()), 0);
  EXPECT_EQ(FilesDiffer(sAbc.c_str(), dir.Path("missing").c_str()), E_FAIL);
  EXPECT_EQ(FilesDiffer(dir.Path("missing").c_str(), sAbc.c_str()), E_FAIL);
}

TEST(FileIo, SearchFileInTriesEachDirectoryInOrder) {
  TempDir dir;
  dir.Write("second/lib.a", "2");
  const std::string sFirst = dir.Path("first"), sSecond = dir.Path("second");
  const char* directories[] = {sFirst.c_str(), sSecond.c_str(), nullptr};
  char szFound[kMaxPath] = {0};
  ASSERT_EQ(SearchFileIn(szFound, "lib.a", directories), S_OK);
  EXPECT_EQ(TempDir::Read(szFound), "2");
  dir.Write("first/lib.a", "1");
  ASSERT_EQ(SearchFileIn(szFound, "lib.a", directories), S_OK);
  EXPECT_EQ(TempDir::Read(szFound), "1");
  EXPECT_EQ(SearchFileIn(szFound, "kofd-no-such-library.a", directories), E_FAIL);
}
