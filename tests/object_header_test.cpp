// The header records of a KELF object: signature, file header, program and section headers.
#include <gtest/gtest.h>

#include <string>

#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"

namespace {

using kelf_test::Bytes;

std::string AsString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// A file of the given bytes, opened for reading.
struct OpenFile {
  OpenFile(const TempDir& dir, const Bytes& bytes) {
    file.AttachPath(dir.Write("header.o", AsString(bytes)).c_str(), 0);
    file.Open(1);
  }
  C_File file;
};

// The exception a header read throws; a read that does not throw fails the test.
C_Exception ReadFailure(const Bytes& bytes) {
  TempDir dir;
  OpenFile open(dir, bytes);
  C_KElfHeader header;
  try {
    header.Read(&open.file, 0);
  } catch (const C_Exception& error) {
    EXPECT_TRUE(header.IsEmpty());
    return error;
  }
  ADD_FAILURE() << "the header was accepted";
  return C_Exception();
}

}  // namespace

TEST(KElfHeader, ChecksOnlyTheFirstTwoSignatureBytesAndAcceptsVersionsUpToTwo) {
  TempDir dir;
  for (DWORD dwVersion : {0u, 1u, 2u}) {
    kelf_test::ObjectBuilder builder;
    builder.Header().magic = {{0x7F, 'E', 'X', 'Y'}};
    builder.Header().version = dwVersion;
    builder.Header().chip = 0x1234;
    OpenFile open(dir, builder.Build());
    C_KElfHeader header;
    ASSERT_EQ(header.Read(&open.file, 0), S_OK);
    EXPECT_FALSE(header.Signature().IsInvalidSignature());
    EXPECT_TRUE(header.Signature().IsNotBigEndian());
    EXPECT_EQ(header.Record()->e_version, dwVersion);
    EXPECT_EQ(header.Record()->e_chip, 0x1234u);
  }
}

TEST(KElfHeader, RejectsBadFieldsWithTheirOwnMessages) {
  struct Case {
    void (*change)(kelf_test::FileHeader&);
    HRESULT hrCode;
    const char* pszMessage;
  };
  const Case cases[] = {
      {[](kelf_test::FileHeader& h) { h.version = 3; }, KE_CORRUPT_FILE,
       "error 1022: Invalid or corrupt file(Invalid format version). "},
      {[](kelf_test::FileHeader& h) { h.ehsize = 52; }, KE_CORRUPT_FILE,
       "error 1022: Invalid or corrupt file(Invalid header size). "},
      {[](kelf_test::FileHeader& h) { h.shentsize = 32; }, KE_CORRUPT_FILE,
       "error 1022: Invalid or corrupt file(Invalid section header entry size). "},
      {[](kelf_test::FileHeader& h) { h.magic[1] = 'F'; }, KE_NOT_OBJECT_FILE,
       "error 1018: specified file is not a right object file(Invalid Signature). "},
  };
  for (const Case& c : cases) {
    kelf_test::ObjectBuilder builder;
    c.change(builder.Header());
    const C_Exception error = ReadFailure(builder.Build());
    EXPECT_EQ(error.Code(), c.hrCode);
    EXPECT_EQ(error.Message(), c.pszMessage);
  }
}

TEST(KElfHeader, ShortFilesFailAsReadsOfTheirPart) {
  const Bytes object = kelf_test::ObjectBuilder().Build();
  const C_Exception signature = ReadFailure(Bytes(object.begin(), object.begin() + 10));
  EXPECT_EQ(signature.Code(), KE_READ_FAILED);
  EXPECT_EQ(signature.Message().rfind("error 1016: failed to read from file specified(When read signature). \nSystem Error: ", 0), 0u);
  const C_Exception header = ReadFailure(Bytes(object.begin(), object.begin() + 40));
  EXPECT_EQ(header.Message().rfind("error 1016: failed to read from file specified(When read file header). ", 0), 0u);
}

TEST(KElfHeader, BigEndianHeaderIsConvertedButItsTablesAreNot) {
  TempDir dir;
  kelf_test::ObjectBuilder builder;
  builder.BigEndian();
  builder.Header().chip = 0x01020304;
  builder.Header().reserved = 0x1122;
  kelf_test::Section text;
  text.name = ".text";
  text.type = kelf_test::kShtPrgbit;
  text.addr = 0x40;
  builder.AddSection(text);
  const Bytes bytes = builder.Build();
  ASSERT_EQ(bytes[45], 0x38);  // EHSize as stored: 0x0038 big-endian
  C_KOfdELF4 document;
  document.AttachPath(dir.Write("big.o", AsString(bytes)).c_str(), 0);
  ASSERT_EQ(document.Read(), S_OK);
  I_KElfHeader* pHeader = nullptr;
  KEL_EHDR* pRecord = nullptr;
  document.GetFileHeader(&pHeader);
  pHeader->GetRecord(&pRecord);
  EXPECT_EQ(pRecord->e_ehsize, 56);
  EXPECT_EQ(pRecord->e_chip, 0x01020304u);
  EXPECT_EQ(pRecord->e_reserved, 0x1122);  // stored little-endian and never converted
  I_KOfdSection* pText = nullptr;
  ASSERT_EQ(document.FindSection(".text", &pText), S_OK);
  EXPECT_EQ(pText->GetAddress(), 0x40u);
}

TEST(KElfProgramHeader, RecordsLie32BytesApartWhateverTheEntrySizeSays) {
  TempDir dir;
  kelf_test::ObjectBuilder builder;
  builder.Header().phentsize = 40;
  builder.AddProgramHeader({1, 0, 0x100, 0x100, 4, 0x30, 5, 4});
  builder.AddProgramHeader({4, 0, 0, 0, 0, 0x1000, 4, 4});
  builder.AddProgramHeader({1, 0, 0x200, 0x200, 0, 0x12, 6, 4});
  kelf_test::ObjectLayout layout;
  OpenFile open(dir, builder.Build(&layout));
  C_KElfProgramHeader table;
  table.SetTable(3, layout.phoff);
  ASSERT_EQ(table.Read(&open.file, 0), S_OK);
  KEL_PHDR* pRecord = nullptr;
  ASSERT_EQ(table.GetAt(2, &pRecord), S_OK);
  EXPECT_EQ(pRecord->p_vaddr, 0x200u);
  EXPECT_EQ(pRecord->p_flags, 6u);
  DWORD dwSize = 0;
  table.GetLoadableMemorySize(&dwSize);
  EXPECT_EQ(dwSize, 0x42u);
  EXPECT_EQ(table.GetAt(3, &pRecord), KE_OUT_OF_RANGE);

  // A table of no records reads nothing, wherever its offset points.
  C_KElfProgramHeader none;
  none.SetTable(0, 0xFFFFFF00u);
  EXPECT_EQ(none.Read(&open.file, 0), S_OK);
  EXPECT_TRUE(none.IsEmpty());
}
