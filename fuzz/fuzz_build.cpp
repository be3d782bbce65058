// Feeds the input as the JSON document of `kofd build` to the build logic: it must refuse or
// build, never crash or hang, and what it builds is bounded by the document (each byte of an
// exact object is given in hex; a fresh one adds at most its headers, a symbol record and a
// name for each few bytes of the document, and 16 MiB of alignment).
#include <cstdint>
#include <cstdlib>
#include <string>

#include "edit/object_image.h"
#include "frame/replacing_file.h"
#include "fuzz_file.h"
#include "json_build.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  NullStream();
  static const std::string sOutput = WriteFuzzInput(nullptr, 0) + ".built";
  const std::string sText(reinterpret_cast<const char*>(pData), nSize);
  try {
    C_ReplacingFile output(sOutput.c_str());
    const cli::BuildResult result = cli::BuildObjectFromJson(sText, output);
    const std::uint64_t qwTables = 56 + 65535ull * (32 + 40);
    if (result.dwSize > 2 * std::uint64_t(nSize) + qwTables + (16u << 20)) abort();
  } catch (const C_Exception&) {
    return 0;
  }
  return 0;
}
