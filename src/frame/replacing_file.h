// C_ReplacingFile: a file's new contents, written through the platform's replacing output (an
// exclusive temporary beside the file, renamed over it once complete), with the library's errors.
// C_ReplacingStreamBuf: a dump stream's buffer over one.
#pragma once

#include <streambuf>
#include <string>
#include <vector>

#include "frame/types.h"

class C_ReplacingFile {
 public:
  // Locks pszTarget (when it exists) for the read-modify-write that follows and creates the
  // temporary; uFlags are platform::ReplaceFlags. Throws, with the system text, 1013 with the
  // target when it cannot be locked or is no ordinary file, 1028 when the temporary cannot be
  // made, 1015 with the target when its contents cannot be copied.
  explicit C_ReplacingFile(const char* pszTarget, unsigned uFlags = 0);
  // Abandons an output that was not committed: the temporary goes, the target stays as it was.
  ~C_ReplacingFile();
  C_ReplacingFile(const C_ReplacingFile&) = delete;
  C_ReplacingFile& operator=(const C_ReplacingFile&) = delete;

  HANDLE Handle() const { return m_hOutput; }
  const std::string& Target() const { return m_sTarget; }
  // Appends dwSize bytes; 1015 with the system text and pszContext (the target when null) when
  // the write fails.
  void Write(const void* pData, DWORD dwSize, const char* pszContext = nullptr);
  // The first dwSize bytes written, read back from the temporary (the output stays at its end);
  // 1016 with the target and the system text when fewer can be read.
  std::vector<BYTE> ReadBack(DWORD dwSize);
  // Puts the new file in place; 1015 (the data could not reach the disk) or 1029 (the rename
  // failed) with the target and the system text, the temporary removed.
  void Commit();

 private:
  HANDLE m_hOutput = nullptr;
  std::string m_sTarget;
};

// Gathers text into large blocks. A flush writes nothing, so the end of line that flushes every
// dump line costs no system call: nothing is visible before the commit anyway.
class C_ReplacingStreamBuf : public std::streambuf {
 public:
  explicit C_ReplacingStreamBuf(C_ReplacingFile& output);
  // Writes what is gathered; throws as C_ReplacingFile::Write, also for a block that failed before.
  void Drain();

 protected:
  int_type overflow(int_type ch) override;

 private:
  bool Z_WriteBlock();

  C_ReplacingFile& m_Output;
  std::vector<char> m_vBlock;
  bool m_bFailed = false;
  DWORD m_dwError = 0;
};
