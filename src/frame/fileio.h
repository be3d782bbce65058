// Free functions on raw file handles. All return S_OK on success and E_FAIL on failure unless
// stated. A failed read or write closes the system handle it was given; the handle token stays
// valid, and its owner still closes it.
#pragma once

#include <cstdint>

#include "frame/types.h"

HRESULT OpenFileWith(const char* pszPath, DWORD dwAccess, DWORD dwCreation, HANDLE* phFile);
HRESULT OpenFileForRead(const char* pszPath, HANDLE* phFile);
HRESULT OpenFileForWrite(const char* pszPath, HANDLE* phFile);
// Positions at qwOffset from the beginning; callers add a base and an offset without overflow.
HRESULT SeekFileTo(HANDLE hFile, std::uint64_t qwOffset);
// Reads dwSize x dwCount bytes in one request. Nothing happens when either is 0. A read that
// returns at least one byte is accepted: callers rely on the file being long enough and read
// into zero-filled buffers.
HRESULT ReadFileBlock(HANDLE hFile, void* pBuffer, DWORD dwSize, DWORD dwCount);
// The same, telling how many bytes the request brought in.
HRESULT ReadFileBlockCounted(HANDLE hFile, void* pBuffer, DWORD dwSize, DWORD dwCount, DWORD* pdwRead);
HRESULT WriteFileBlock(HANDLE hFile, const void* pBuffer, DWORD dwSize, DWORD dwCount);
HRESULT CloseFileHandle(HANDLE hFile);
HRESULT DeleteFilePath(const char* pszPath);

// Probes: S_OK when the bytes match, S_FALSE when they do not, E_FAIL on an I/O failure.
HRESULT IsObjectFile(const char* pszPath);              // 0x7F 'E' 'L' 'F'
HRESULT IsObjectFileAt(HANDLE hFile, DWORD dwOffset);
HRESULT IsArchiveFile(const char* pszPath);             // "!<arch>\n"
HRESULT IsArchiveFileAt(HANDLE hFile, DWORD dwOffset);
HRESULT IsNameFile(const char* pszPath);                // 'N' 'F'
HRESULT IsNameFileAt(HANDLE hFile, DWORD dwOffset);

// The Chip field of an object file's header; S_FALSE (and *pdwChip untouched) for a file that
// is not an object file.
HRESULT GetChipOfObjectFile(const char* pszPath, DWORD* pdwChip);
// The last-write date of a file, in UTC.
HRESULT GetDateOfFile(const char* pszPath, WORD* pwYear, WORD* pwMonth, WORD* pwDay);
// 1 when the sizes or the first bytes differ, 0 when they agree, E_FAIL when either file cannot
// be opened or read. Only the size and the first byte are compared.
HRESULT FilesDiffer(const char* pszFirst, const char* pszSecond);
// Looks for pszName in each directory of the null-terminated list in order, then on the
// system's default path. The full path goes to pszOut, which holds 260 characters.
HRESULT SearchFileIn(char* pszOut, const char* pszName, const char* const* ppszDirectories);

constexpr DWORD kMaxPath = 260;
