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
// sharing the file for reading only. Returns null on failure; the system error is kept.
HANDLE FileOpen(const char* pszPath, DWORD dwAccess, DWORD dwCreation);
// Sets the position from the beginning of the file.
bool FileSeek(HANDLE hFile, std::uint64_t qwOffset);
// One read request; *pdwRead receives the bytes actually read (possibly fewer).
bool FileRead(HANDLE hFile, void* pBuffer, DWORD dwBytes, DWORD* pdwRead);
bool FileWrite(HANDLE hFile, const void* pBuffer, DWORD dwBytes, DWORD* pdwWritten);
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
bool PathRemove(const char* pszPath);
// Renames over an existing file, in one step where the system allows it.
bool PathReplace(const char* pszFrom, const char* pszTo);
// Looks for pszName in pszDirectory, or on the system's default search path when
// pszDirectory is null. On success the full path is written to pszOut (cchOut characters).
bool PathSearch(const char* pszDirectory, const char* pszName, char* pszOut, DWORD cchOut);

// ---- Errors and messages -----------------------------------------------------------------
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
