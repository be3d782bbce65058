// Opens the input as a KELF object, builds its image and saves it twice: as it is, which must
// give the input's bytes back, and compacted, which must reopen with the same section dumps.
// A save that is refused (overlapping parts, a number that cannot hold) writes nothing.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "edit/image_layout.h"
#include "frame/replacing_file.h"
#include "fuzz_file.h"
#include "object/kofd_elf.h"
#include "present/object_dumps.h"

namespace {

std::string ReadBack(const std::string& sPath) {
  std::ifstream in(sPath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The dumps of the sections, in index order, as one text; the header listings name offsets.
std::string SectionDumps(C_KOfdELF4& document) {
  std::ostringstream text;
  for (I_KOfdDump* pDump : GetDumpParts(document)) {
    if (!dynamic_cast<I_KOfdSection*>(pDump)) continue;
    pDump->SetStream(text);
    pDump->DumpAll();
    pDump->SetStream(NullStream());
  }
  return text.str();
}

// Saves the image to sPath; false when the save was refused.
bool Save(C_ObjectImage& image, const std::string& sPath, bool bCompact) {
  try {
    C_ReplacingFile output(sPath.c_str());
    WriteObjectImage(image, output, bCompact);
    return true;
  } catch (const C_Exception&) {
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  NullStream();
  const std::string& sPath = WriteFuzzInput(pData, nSize);
  const std::string sSaved = sPath + ".saved", sCompact = sPath + ".compact";
  C_KOfdELF4 document;
  try {
    document.AttachPath(sPath.c_str(), 0);
    if (document.Read() != S_OK) return 0;
  } catch (const C_Exception&) {
    return 0;
  }
  try {
    C_ObjectImage image(document, sPath.c_str());
    if (Save(image, sSaved, false) && ReadBack(sSaved) != std::string(reinterpret_cast<const char*>(pData), nSize)) abort();
  } catch (const C_Exception&) {
    return 0;
  }
  C_ObjectImage compact(document, sPath.c_str());
  if (!Save(compact, sCompact, true)) return 0;
  C_KOfdELF4 reopened;
  reopened.AttachPath(sCompact.c_str(), 0);
  try {
    if (reopened.Read() != S_OK) abort();
  } catch (const C_Exception&) {
    abort();
  }
  if (SectionDumps(reopened) != SectionDumps(document)) abort();
  return 0;
}
