// The section suites read their tables from a file of given bytes, as the document would: each
// section gets a header that places it in the file.
#pragma once

#include <deque>
#include <string>

#include <gtest/gtest.h>

#include "frame/file.h"
#include "frame_temp_dir.h"
#include "kelf_writer.h"
#include "object/kelf_records.h"

class SectionFile {
 public:
  explicit SectionFile(const kelf_test::Bytes& bytes) {
    const std::string sPath = m_dir.Path("sections.o");
    kelf_test::WriteFile(sPath, bytes);
    m_file.AttachPath(sPath.c_str(), 0);
    EXPECT_EQ(m_file.Open(1), S_OK);
  }
  C_File* File() { return &m_file; }

  // Gives the section a header at dwOffset, dwSize bytes long, and reads it.
  template <class Section>
  Section& Load(Section& section, DWORD dwOffset, std::size_t nSize, DWORD dwAddress = 0, DWORD dwInfo = 0) {
    m_headers.push_back(KEL_SHDR{});
    KEL_SHDR& header = m_headers.back();
    header.sh_offset = dwOffset;
    header.sh_size = static_cast<DWORD>(nSize);
    header.sh_addr = dwAddress;
    header.sh_info = dwInfo;
    section.SetHeader(&header);
    section.Read(&m_file, 0);
    return section;
  }

 private:
  TempDir m_dir;
  C_File m_file;
  std::deque<KEL_SHDR> m_headers;
};

// Runs read, which must fail as a read of the file does (0x800403F8), naming sWhat.
template <class Read>
void ExpectReadError(Read read, const std::string& sWhat) {
  try {
    read();
    ADD_FAILURE() << "no read error for " << sWhat;
  } catch (const C_Exception& error) {
    EXPECT_EQ(error.Code(), static_cast<HRESULT>(0x800403F8));
    EXPECT_NE(error.Message().find(sWhat), std::string::npos) << error.Message();
  }
}
