// Reading and writing the blocks of an archive file: a read-ahead window for the many small
// member headers met while opening, and the checked block read and write the members share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/file.h"

// Reads blocks of one open file through a window of read-ahead bytes, so that the headers of
// thousands of members cost a few large reads instead of a seek and a read each. A block is
// served only when the file holds all of it; nothing is allocated beyond the window.
class C_KArcReadWindow {
 public:
  C_KArcReadWindow(I_File* pFile, DWORD dwWindowSize);
  // Copies dwSize bytes at qwOffset to pOut; false (with the system error set) when the file
  // cannot supply them all.
  bool ReadAt(std::uint64_t qwOffset, void* pOut, DWORD dwSize);
  // True when the file holds dwSize bytes at qwOffset (false, with the system error set, if not).
  bool Holds(std::uint64_t qwOffset, DWORD dwSize);
  I_File* File() const { return m_pFile; }

 private:
  I_File* m_pFile;
  std::uint64_t m_qwFileSize = 0;
  bool m_bSized = false;
  std::vector<BYTE> m_vWindow;
  std::uint64_t m_qwWindowStart = 0;
  DWORD m_dwWindowUsed = 0;
};

// ReadFileRegion (frame/byte_view.h) reads the larger blocks: linker, name and object data.

// What the object members of one archive file may take of it in all, bytes and objects alike:
// the file's size, so that members whose bytes overlap cannot make us hold it many times over.
// Bytes from any other file are not counted here.
class C_KArcReadBudget {
 public:
  void Reset(const std::string& sPath, std::uint64_t qwBytes) {
    m_sPath = sPath;
    m_qwLeft = qwBytes;
  }
  // False, taking nothing, when bytes of sPath are more than what is left.
  bool Take(const std::string& sPath, std::uint64_t qwBytes) {
    if (sPath != m_sPath) return true;
    if (qwBytes > m_qwLeft) return false;
    m_qwLeft -= qwBytes;
    return true;
  }
  std::uint64_t Left() const { return m_qwLeft; }

 private:
  std::string m_sPath;
  std::uint64_t m_qwLeft = 0;
};

// Writes the blocks of an archive at the file's position, gathered into large writes when it has
// a buffer, so that thousands of members do not cost two system calls each. A failed write
// throws 1015 with the context of the first block it held and the system text.
class C_KArcWriter {
 public:
  C_KArcWriter(I_File* pFile, DWORD dwBufferSize);
  C_KArcWriter(HANDLE hFile, DWORD dwBufferSize);
  ~C_KArcWriter() = default;
  C_KArcWriter(const C_KArcWriter&) = delete;
  C_KArcWriter& operator=(const C_KArcWriter&) = delete;

  void Put(const void* pData, DWORD dwSize, const char* pszContext);
  // Puts dwSize bytes read from hSource at its position, read straight into the buffer (a
  // buffer of the copy block is made when the writer has none). The count put is what the file
  // gave: less than dwSize when it ended first. A failed read throws 1016 with pszContext.
  DWORD PutFrom(HANDLE hSource, DWORD dwSize, const char* pszContext);
  // The same, copied inside the system where it can copy between the two files (what the buffer
  // holds is written first), else through the buffer; a failed write throws 1015 with
  // pszContext, a failed read 1016.
  DWORD CopyFrom(HANDLE hSource, DWORD dwSize, const char* pszContext);
  // For a writer that starts at the beginning of its file: every 16 MiB written are handed to
  // the disk at once (FileStartWriteBack), so that the sync at the end has little left to do.
  void StartWriteBackAsItGoes() { m_bWriteBack = true; }
  // Writes what the buffer holds; the owner calls it once the last block is put.
  void Flush();

 private:
  void Z_Write(const void* pData, DWORD dwSize, const char* pszContext);
  // Counts bytes that reached the file, handing each full 16 MiB to the disk when asked to.
  void Z_Written(DWORD dwSize);

  HANDLE m_hFile;
  bool m_bWriteBack = false;
  bool m_bCopyUnsupported = false;
  std::uint64_t m_qwWritten = 0;
  std::uint64_t m_qwHanded = 0;
  std::vector<BYTE> m_vBuffer;
  DWORD m_dwUsed = 0;
  std::string m_sContext;
};

// The files whose bytes an archive write copies, each opened once and kept open while the write
// lasts, so that a member costs no open and close of its own. Nothing is read before it is
// copied: a member's bytes pass through the writer's buffer, never held whole.
class C_KArcSources {
 public:
  C_KArcSources() = default;
  // Closes what a failed write left open, quietly.
  ~C_KArcSources();
  C_KArcSources(const C_KArcSources&) = delete;
  C_KArcSources& operator=(const C_KArcSources&) = delete;

  // The size of the file at sPath; 1013 with the path when it cannot be opened.
  std::uint64_t SizeOf(const std::string& sPath);
  // Copies dwSize bytes at qwOffset of sPath to writer; 1016 with pszContext and "end of file"
  // when the file no longer holds them all (shortened since it was looked at).
  void Copy(const std::string& sPath, std::uint64_t qwOffset, DWORD dwSize, C_KArcWriter& writer, const char* pszContext);
  // Closes every file; 1014 with the path of one that fails to close.
  void Close();

 private:
  struct Source {
    std::string sPath;
    HANDLE hFile = nullptr;
    std::uint64_t qwSize = 0;
  };
  Source& Z_Open(const std::string& sPath);

  // The archive and the objects added to it, which come one after another: a few at most open.
  static constexpr std::size_t kOpenSources = 4;
  std::vector<Source> m_vSources;
};

// 32-bit little-endian words, as the linker member stores them.
inline void StoreWord(BYTE* p, DWORD dwValue) {
  p[0] = static_cast<BYTE>(dwValue);
  p[1] = static_cast<BYTE>(dwValue >> 8);
  p[2] = static_cast<BYTE>(dwValue >> 16);
  p[3] = static_cast<BYTE>(dwValue >> 24);
}
