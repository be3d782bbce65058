// Opens the input as a KELF object and writes its whole JSON document, contents and gaps
// included, into memory; the document must then parse as exactly one JSON value whose object
// holds as many sections as the object has.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "frame/exception.h"
#include "fuzz_file.h"
#include "json_object.h"
#include "object/kofd_elf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  const std::string& sPath = WriteFuzzInput(pData, nSize);
  C_KOfdELF4 document;
  document.AttachPath(sPath.c_str(), 0);
  try {
    if (document.Read() != S_OK) return 0;
  } catch (const C_Exception&) {
    return 0;
  }
  char* pText = nullptr;
  std::size_t nText = 0;
  std::FILE* pOut = open_memstream(&pText, &nText);
  if (!pOut) return 0;
  {
    cli::C_JsonWriter json(pOut);
    cli::ObjectJsonParts parts;
    parts.bContents = true;
    WriteObjectJson(json, document, C_ByteView(pData, static_cast<DWORD>(nSize)), parts);
    if (!json.Finish()) std::abort();
  }
  std::fclose(pOut);
  const nlohmann::json parsed = nlohmann::json::parse(pText, pText + nText);  // throws, and so fails, on invalid JSON
  DWORD dwSections = 0;
  document.GetSectionCount(&dwSections);
  if (parsed.at("sections").size() != dwSections) std::abort();
  std::free(pText);
  return 0;
}
