// The replacing output, in the same order on every system: the target, the temporary, the copy
// of the old contents when asked for, then the commit or the abandon.
#include "platform/replace_steps.h"

namespace platform {

std::string TemporaryName(const std::string& sTarget, const char* pszSeparators, const unsigned char (&random)[8]) {
  constexpr std::size_t kMaxBaseName = 200;
  static const char kDigits[] = "0123456789abcdef";
  const std::size_t nSlash = sTarget.find_last_of(pszSeparators);
  const std::size_t nBase = nSlash == std::string::npos ? 0 : nSlash + 1;
  std::string sName = sTarget.substr(0, nBase) + sTarget.substr(nBase, kMaxBaseName) + ".kofd-";
  for (unsigned char byte : random) sName += {kDigits[byte >> 4], kDigits[byte & 0xF]};
  return sName + ".tmp";
}

HANDLE ReplaceBegin(const char* pszTarget, unsigned uFlags, ReplaceFailure* pFailure) {
  *pFailure = kReplaceTarget;
  ReplaceToken* pOut = NewReplaceToken(pszTarget, uFlags);
  if (!pOut) return nullptr;
  bool bReady = PrepareTarget(*pOut);
  if (bReady) {
    *pFailure = kReplaceTemporary;
    bReady = CreateTemporary(*pOut);
  }
  if (bReady && (uFlags & kReplaceKeepContents)) {
    *pFailure = kReplaceWrite;
    bReady = CopyTarget(*pOut);
  }
  if (!bReady) {
    ReleaseReplace(pOut);
    return nullptr;
  }
  *pFailure = kReplaceDone;
  return ReplaceHandle(pOut);
}

ReplaceFailure ReplaceCommit(HANDLE hOutput) {
  ReplaceToken* pOut = ReplaceTokenOf(hOutput);
  if (!pOut) return kReplaceWrite;
  const ReplaceFailure failure = FinishReplace(*pOut);
  ReleaseReplace(pOut);
  return failure;
}

void ReplaceAbandon(HANDLE hOutput) {
  if (hOutput) ReleaseReplace(ReplaceTokenOf(hOutput));
}

}  // namespace platform
