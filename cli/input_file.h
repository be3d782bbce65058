// FILE arguments: "-" names standard input, and a command may be given several files.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "json_writer.h"

namespace cli {

// How messages and headings show a FILE argument: "(standard input)" for "-", else as given.
std::string ShownName(const std::string& sGiven);

// The path the tool opens for a FILE argument. For "-", standard input is copied (once a run) to
// a temporary regular file, unlinked at once, and its /proc/self/fd path is given: the library
// reads only ordinary files. Throws when standard input cannot be read or copied, or holds more
// than the 0xFFFFFFFF bytes the library reads.
std::string OpenedPath(const std::string& sGiven);

// The JSON writer a file's document goes into: the one document of several files, else the
// file's own document on standard output.
class C_FileJson {
 public:
  explicit C_FileJson(C_JsonWriter* pShared) : m_pWriter(pShared) {
    if (!m_pWriter) m_pWriter = &m_own.emplace(stdout);
  }
  C_JsonWriter& operator*() { return *m_pWriter; }

 private:
  std::optional<C_JsonWriter> m_own;
  C_JsonWriter* m_pWriter;
};

// One file's part of a command: its exit status. pJson is the shared writer of several files'
// document, or null.
using FileBody = std::function<int(const std::string& sGiven, C_JsonWriter* pJson)>;

// Runs the body for each file. One file: exactly what the command shows for it. Several: each
// file's text headed by an empty line and "File: NAME" (as readelf heads them); with JSON one
// document {"schema", "command", "files": [the document each file alone gives, ...]}. A failure
// on one file is reported and the others still run; the status is the highest any file had.
int RunEachFile(const std::vector<std::string>& vFiles, const char* pszCommand, bool bJson, const FileBody& body);

}  // namespace cli
