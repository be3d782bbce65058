// Opens the input as a KELF object and exports it as an ELF32 object: the export either refuses
// with the library's failure or gives an object whose section header table lies inside it, one
// header a section, with every section's bytes inside the file.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "edit/object_image.h"
#include "export/elf_export.h"
#include "fuzz_file.h"
#include "object/kofd_elf.h"

namespace {

std::uint32_t Read32(const std::vector<BYTE>& vBytes, std::size_t nAt) {
  if (nAt + 4 > vBytes.size()) std::abort();
  std::uint32_t dwValue;
  memcpy(&dwValue, vBytes.data() + nAt, 4);
  return dwValue;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  const std::string& sPath = WriteFuzzInput(pData, nSize);
  C_KOfdELF4 document;
  document.AttachPath(sPath.c_str(), 0);
  try {
    if (document.Read() != S_OK) return 0;
    C_ObjectImage image(document, sPath.c_str());
    const C_ElfExport elf = ExportElfObject(image);
    const std::vector<BYTE>& vOut = elf.m_vBytes;
    const std::uint32_t dwShoff = Read32(vOut, 32);
    std::uint16_t wShnum;
    memcpy(&wShnum, vOut.data() + 48, 2);
    if (wShnum != elf.m_dwSections || dwShoff + std::uint64_t(wShnum) * 40 != vOut.size()) std::abort();
    for (std::uint32_t i = 1; i < wShnum; ++i) {
      const std::uint32_t dwType = Read32(vOut, dwShoff + 40 * i + 4), dwOffset = Read32(vOut, dwShoff + 40 * i + 16);
      const std::uint32_t dwSize = Read32(vOut, dwShoff + 40 * i + 20);
      if (dwType != 8 && std::uint64_t(dwOffset) + dwSize > dwShoff) std::abort();
    }
  } catch (const C_Exception&) {
  }
  return 0;
}
