#include "input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "escape.h"
#include "report.h"

namespace cli {
namespace {

constexpr std::uint64_t kMostBytes = 0xFFFFFFFFu;  // the library's limit on a file's size
const char kStandardInput[] = "(standard input)";
const char kTooLarge[] = "standard input holds more than 4294967295 bytes (0xffffffff), the most kofd reads";

std::string SystemText(const std::string& sWhat) { return sWhat + ": " + std::strerror(errno); }

bool WriteAll(int fd, const char* pData, std::size_t nLength) {
  while (nLength > 0) {
    const ssize_t nWritten = write(fd, pData, nLength);
    if (nWritten < 0 && errno == EINTR) continue;
    if (nWritten <= 0) return false;
    pData += nWritten;
    nLength -= static_cast<std::size_t>(nWritten);
  }
  return true;
}

// The copy of standard input: its descriptor stays open (and the file with it) until the tool ends.
std::string CopyStandardInput() {
  // A file given as standard input says its size: one past the limit is refused before a byte
  // is copied.
  struct stat status {};
  if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
    const off_t at = lseek(STDIN_FILENO, 0, SEEK_CUR);
    if (status.st_size - (at > 0 ? at : 0) > static_cast<off_t>(kMostBytes)) Fail(kTooLarge);
  }
  const char* pszDirectory = std::getenv("TMPDIR");
  std::string sTemplate = std::string(pszDirectory && *pszDirectory ? pszDirectory : "/tmp") + "/kofd-stdin-XXXXXX";
  std::vector<char> vName(sTemplate.begin(), sTemplate.end());
  vName.push_back('\0');
  const int fd = mkstemp(vName.data());
  if (fd < 0) Fail(SystemText("standard input cannot be copied to a temporary file in " + sTemplate.substr(0, sTemplate.rfind('/'))));
  unlink(vName.data());
  std::vector<char> vBlock(1 << 16);
  std::uint64_t qwTotal = 0;
  for (;;) {
    const ssize_t nRead = read(STDIN_FILENO, vBlock.data(), vBlock.size());
    if (nRead < 0 && errno == EINTR) continue;
    if (nRead < 0) {
      const std::string sText = SystemText("standard input cannot be read");
      close(fd);
      Fail(sText);
    }
    if (nRead == 0) break;
    qwTotal += static_cast<std::uint64_t>(nRead);
    if (qwTotal > kMostBytes) {
      close(fd);
      Fail(kTooLarge);
    }
    if (!WriteAll(fd, vBlock.data(), static_cast<std::size_t>(nRead))) {
      const std::string sText = SystemText("standard input cannot be copied to a temporary file");
      close(fd);
      Fail(sText);
    }
  }
  const std::string sPath = "/proc/self/fd/" + std::to_string(fd);
  ShowPathAs(sPath, kStandardInput);
  return sPath;
}

}  // namespace

std::string ShownName(const std::string& sGiven) { return sGiven == "-" ? kStandardInput : sGiven; }

std::string OpenedPath(const std::string& sGiven) {
  if (sGiven != "-") return sGiven;
  static std::string sCopy;
  if (sCopy.empty()) sCopy = CopyStandardInput();
  return sCopy;
}

int RunEachFile(const std::vector<std::string>& vFiles, const char* pszCommand, bool bJson, const FileBody& body) {
  if (vFiles.size() == 1) return body(vFiles[0], nullptr);
  int status = 0;
  if (!bJson) {
    for (const std::string& sFile : vFiles) {
      printf("\nFile: %s\n", EscapeText(ShownName(sFile)).c_str());
      status = std::max(status, body(sFile, nullptr));
    }
    return status;
  }
  C_JsonWriter json(stdout);
  json.BeginDocument(pszCommand);
  json.Key("files").BeginArray();
  for (const std::string& sFile : vFiles) status = std::max(status, body(sFile, &json));
  json.EndArray();
  json.EndObject();
  if (!json.Finish()) return std::max(status, ReportFailure("(standard output)", "cannot be written"));
  return status;
}

}  // namespace cli
