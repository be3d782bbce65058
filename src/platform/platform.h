// The only interface between the library and the operating system. Two backends implement it:
// posix/ and win32/. Nothing above this layer includes a system header.
#pragma once

#include <cstdint>
#include <string>

#include "frame/types.h"

namespace platform {

// ---- Files -------------------------------------------------------------------------------
// A file handle is a token owned by the caller. Release() gives back the system resource but
// keeps the token, so that a handle closed on an I/O failure stays safe to close again later.

// Opens with Win32 access rights and creation disposition (KOFD_GENERIC_*, KOFD_CREATE_*...),
// sharing the file for reading only. Returns null on failure; the system error is kept. Only an
// ordinary file of at most 0xFFFFFFFF bytes opens: a FIFO, socket or device is refused before any
// read could block (kErrorNotOrdinaryFile), a larger file because 32-bit offsets cannot address
// it (kErrorFileTooLarge).
HANDLE FileOpen(const char* pszPath, DWORD dwAccess, DWORD dwCreation);
// Sets the position from the beginning of the file.
bool FileSeek(HANDLE hFile, std::uint64_t qwOffset);
// One read request; *pdwRead receives the bytes actually read (possibly fewer).
bool FileRead(HANDLE hFile, void* pBuffer, DWORD dwBytes, DWORD* pdwRead);
bool FileWrite(HANDLE hFile, const void* pBuffer, DWORD dwBytes, DWORD* pdwWritten);
// Copies up to dwBytes from hSource's position to hTarget's inside the system, without passing
// them through the process; both positions advance and *pdwCopied receives the bytes copied
// (fewer when the source ends). False with nothing copied and kErrorCopyUnsupported when the
// system cannot copy between these two files (the caller then reads and writes); false with
// the system error on a failure (of the write, as a rule: no space, the file size limit).
bool FileCopy(HANDLE hSource, HANDLE hTarget, DWORD dwBytes, DWORD* pdwCopied);
// Starts writing the bytes [qwOffset, qwOffset + qwBytes) of a file being written to the disk
// without waiting for them, so that the sync that ends a large write finds little left to do.
// A hint: where the system has no such request it does nothing and returns true.
bool FileStartWriteBack(HANDLE hFile, std::uint64_t qwOffset, std::uint64_t qwBytes);
// Gives back the system resource; the token stays valid for FileClose.
void FileRelease(HANDLE hFile);
// Releases the system resource if still held and frees the token.
bool FileClose(HANDLE hFile);
bool FileSize(HANDLE hFile, std::uint64_t* pqwSize);

struct CalendarDate {
  unsigned year, month, day;
};
// Last-write time of an open file, as a UTC calendar date.
bool FileWriteDate(HANDLE hFile, CalendarDate* pDate);
// Size and last-write time (seconds since 1970-01-01 UTC) of a file by path.
bool PathStatus(const char* pszPath, std::uint64_t* pqwSize, std::int64_t* pllWriteTime);
// True when anything, even a symbolic link to nothing, has that name.
bool PathTaken(const char* pszPath);
bool PathRemove(const char* pszPath);
// Looks for pszName in pszDirectory, or on the system's default search path when
// pszDirectory is null. On success the full path is written to pszOut (cchOut characters).
bool PathSearch(const char* pszDirectory, const char* pszName, char* pszOut, DWORD cchOut);

// ---- Replacing output ----------------------------------------------------------------------
// Every file the library or the tool writes is written to a temporary file created exclusively,
// under an unpredictable name, beside the file it replaces, and renamed over it once complete and
// on disk: a failure or a kill leaves the old file or the new one, never a mix. A target that is
// a symbolic link is followed: the file it names is replaced and the link stays a link. The
// existing target is locked (advisory) from ReplaceBegin to the end, so that a read-modify-write
// done in between never loses a concurrent one; a replaced file keeps its mode, owner and group
// where the process may set them, a new file gets the mode a new file gets.
enum ReplaceFlags : unsigned {
  kReplaceNew = 1u,           // the target must not exist, not even as a dangling link
  kReplaceKeepContents = 2u,  // the temporary starts as a copy of the target (appending)
};
// Where a replacing output failed; the system error says why.
enum ReplaceFailure { kReplaceDone, kReplaceTarget, kReplaceTemporary, kReplaceWrite, kReplaceRename };
// The handle writes like any file handle (FileWrite, FileSeek) until ReplaceCommit or
// ReplaceAbandon frees it. Null on failure, with *pFailure and the system error set.
HANDLE ReplaceBegin(const char* pszTarget, unsigned uFlags, ReplaceFailure* pFailure);
// Puts the data on disk, renames the temporary over the target and syncs the directory, then
// unlocks and frees the handle. On failure the temporary is removed as well.
ReplaceFailure ReplaceCommit(HANDLE hOutput);
// Removes the temporary, unlocks and frees the handle, keeping the system error.
void ReplaceAbandon(HANDLE hOutput);

// ---- Errors and messages -----------------------------------------------------------------
// The platform layer's own refusals, with texts of their own (bit 29 marks them as Win32 does
// application error codes).
constexpr DWORD kErrorNotOrdinaryFile = 0x20000001;
constexpr DWORD kErrorFileTooLarge = 0x20000002;
constexpr DWORD kErrorDanglingLink = 0x20000003;
constexpr DWORD kErrorCopyUnsupported = 0x20000004;
// The text of one of those, or null.
inline const char* OwnErrorText(DWORD dwError) {
  switch (dwError) {
    case kErrorNotOrdinaryFile: return "not an ordinary file (a FIFO, socket or device is not read)";
    case kErrorFileTooLarge: return "larger than 4 GiB, which 32-bit offsets cannot address";
    case kErrorCopyUnsupported: return "the system cannot copy between these files";
    case kErrorDanglingLink: return "a symbolic link to a file that does not exist";
    default: return nullptr;
  }
}

DWORD LastSystemError();
void SetLastSystemError(DWORD dwError);
// Makes the last error say that the file ended before the bytes asked for.
void SetEndOfFileError();
// The system's text for an error number; false when the system has none.
bool SystemErrorMessage(DWORD dwError, std::string* psText);

// The library's own module handle, recorded when the library is loaded.
ModuleHandle LibraryModule();
// Copies string resource nId of the module into pszBuffer (cchBuffer bytes with the terminator)
// and returns its length; 0 when there is no such string.
int ResourceString(ModuleHandle hModule, unsigned nId, char* pszBuffer, int cchBuffer);

// A message box with no owner. On POSIX one line "CAPTION: TEXT" on standard error, or the
// hook when one is set.
void ShowMessageBox(const char* pszText, const char* pszCaption, unsigned uStyle);
typedef void (*MessageBoxHook)(const char* pszText, const char* pszCaption, unsigned uStyle);
#ifndef _WIN32
MessageBoxHook SetMessageBoxHook(MessageBoxHook pfnHook);
#endif

// The alphanumeric test of the current code page.
bool IsAlphaNumeric(char ch);

// ---- Window controls (browse views) ------------------------------------------------------
// On Win32 a window is the host's control and each request is a window message to it. On POSIX
// a window is a pointer to an in-memory control model (platform/control_model.h) that answers
// as the control would and can record the requests it receives.
typedef void* Window;
typedef void* TreeItem;

// The new item, last under hParent, or null when the control refuses it.
TreeItem TreeInsertItem(Window hTree, TreeItem hParent, const char* pszText, int nImage,
                        std::intptr_t lParam);
bool TreeDeleteItem(Window hTree, TreeItem hItem);
// False for an item without children, as the control answers.
bool TreeExpand(Window hTree, TreeItem hItem, unsigned uFlags);
// The index the column or row went to, or -1.
int ListInsertColumn(Window hList, int nColumn, const char* pszTitle, int nWidth);
bool ListDeleteColumn(Window hList, int nColumn);
bool ListSetColumnWidth(Window hList, int nColumn, int nWidth);
int ListInsertItem(Window hList, int nRow, const char* pszText, std::intptr_t lParam);
bool ListSetItemText(Window hList, int nRow, int nColumn, const char* pszText);
// The first row after nStart whose text begins with pszText (ignoring case), or -1.
int ListFindItem(Window hList, int nStart, const char* pszText);
bool ListDeleteAllItems(Window hList);
// tmAveCharWidth of the font a device context of the window starts with; 0 when unknown.
int AverageCharWidth(Window hList);

}  // namespace platform
