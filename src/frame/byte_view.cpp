#include "frame/byte_view.h"

#include <cstring>

#include "frame/file.h"
#include "frame/fileio.h"
#include "platform/platform.h"

C_Block ReadFileRegion(I_File* pFile, DWORD dwBase, DWORD dwOffset, DWORD dwSize) {
  if (!pFile || !pFile->GetHandle()) return C_Block();
  // Reading nothing cannot fail, wherever the region is said to begin.
  if (dwSize == 0) return C_Block(0);
  const std::uint64_t qwPosition = static_cast<std::uint64_t>(dwBase) + dwOffset;
  std::uint64_t qwFileSize = 0;
  if (!platform::FileSize(pFile->GetHandle(), &qwFileSize)) return C_Block();
  C_File* pBudget = dynamic_cast<C_File*>(pFile);
  if (qwPosition > qwFileSize || dwSize > qwFileSize - qwPosition ||
      (pBudget && !pBudget->TakeFromReadBudget(dwSize))) {
    platform::SetEndOfFileError();
    return C_Block();
  }
  C_Block block = C_Block::ForRead(dwSize);
  DWORD dwRead = 0;
  if (SeekFileTo(pFile->GetHandle(), qwPosition) != S_OK ||
      ReadFileBlockCounted(pFile->GetHandle(), block.Data(), dwSize, 1, &dwRead) != S_OK) {
    return C_Block();
  }
  if (dwRead < dwSize) memset(block.Data() + dwRead, 0, dwSize - dwRead);
  return block;
}
