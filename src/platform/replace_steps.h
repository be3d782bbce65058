// The steps of the replacing output, which each backend gives; platform/replace.cpp orders them.
#pragma once

#include <string>

#include "platform/platform.h"

namespace platform {

struct ReplaceToken;

// A token for pszTarget without a temporary yet; null, with the system error, for no target or
// no memory.
ReplaceToken* NewReplaceToken(const char* pszTarget, unsigned uFlags);
HANDLE ReplaceHandle(ReplaceToken* pOut);
ReplaceToken* ReplaceTokenOf(HANDLE hOutput);
// Finds the file to replace and locks it when it exists.
bool PrepareTarget(ReplaceToken& out);
bool CreateTemporary(ReplaceToken& out);
// "TARGET.kofd-<16 hex digits of random>.tmp" beside the target (pszSeparators end a directory);
// a long name is cut so that the temporary's still fits a directory entry.
std::string TemporaryName(const std::string& sTarget, const char* pszSeparators, const unsigned char (&random)[8]);
// How many names CreateTemporary tries before it gives up.
constexpr int kTemporaryAttempts = 16;
// The block in which CopyTarget copies.
constexpr DWORD kCopyChunk = 1u << 20;
// Copies the locked target's contents into the temporary; nothing to do for a new file.
bool CopyTarget(ReplaceToken& out);
ReplaceFailure FinishReplace(ReplaceToken& out);
// Closes, removes a temporary that was not moved, unlocks and frees, keeping the system error.
void ReleaseReplace(ReplaceToken* pOut);

}  // namespace platform
