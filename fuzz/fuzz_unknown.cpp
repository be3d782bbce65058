// Loads the input as an unknown object, whole and as a region whose offset and size come from the
// input's first eight bytes, and reads every byte it hands out.
#include <cstdint>
#include <cstring>
#include <string>

#include "archive/unknown_object.h"
#include "fuzz_file.h"

namespace {

volatile std::uint32_t g_dwSink;

void Walk(C_UnknownObject& object) {
  try {
    if (object.Load() != S_OK) return;
  } catch (const C_Exception&) {
    return;
  }
  const BYTE* pData = object.GetData();
  for (DWORD i = 0; i < object.GetRegionSize(); ++i) g_dwSink = g_dwSink + pData[i];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
  const std::string& sPath = WriteFuzzInput(pData, nSize);
  C_UnknownObject whole;
  whole.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
  Walk(whole);

  DWORD words[2] = {0, 0};
  memcpy(words, pData, nSize < sizeof words ? nSize : sizeof words);
  C_UnknownObject region;
  region.Attach(sPath.c_str(), sPath.c_str(), 0, 0, 0);
  region.SetRegion(words[0], words[1]);
  Walk(region);
  return 0;
}
