// Basic types and result codes shared by every layer of the library and by its hosts.
//
// The typedefs repeat the Win32 ones exactly on Windows, so a host that includes <windows.h>
// and these headers sees the same types twice, which C++ allows. Include <windows.h> first in
// such a host: the result-code macros below are only defined when Windows has not done so.
#pragma once

#include <cstdint>

#ifdef _WIN32
typedef unsigned long DWORD;
typedef long HRESULT;
#else
typedef std::uint32_t DWORD;
typedef std::int32_t HRESULT;
#endif
typedef unsigned short WORD;
typedef unsigned char BYTE;
typedef void* HANDLE;

// The library's own module, whose string table holds the messages. On Windows it is the DLL's
// HINSTANCE; on POSIX it designates a string table.
typedef const void* ModuleHandle;

#ifndef S_OK
#define S_OK ((HRESULT)0L)
#endif
#ifndef S_FALSE
#define S_FALSE ((HRESULT)1L)
#endif
#ifndef E_FAIL
#define E_FAIL ((HRESULT)0x80004005L)
#endif
#ifndef E_POINTER
#define E_POINTER ((HRESULT)0x80004003L)
#endif
#ifndef E_INVALIDARG
#define E_INVALIDARG ((HRESULT)0x80070057L)
#endif
#ifndef E_OUTOFMEMORY
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#endif

// Library codes: bit 31, facility 4, and the number of the message in the string table.
constexpr HRESULT KofdCode(unsigned number) { return (HRESULT)(0x80040000u | (number & 0xFFFFu)); }

enum MessageNumber : unsigned {
  IDS_ELF_HEADER = 1,
  IDS_PROGRAM_HEADER = 2,
  IDS_SECTION_HEADER = 3,
  IDS_LINK_MEMBER = 4,
  IDS_NAME_MEMBER = 5,
  IDS_COMMON_HEADER = 6,
  IDS_INFORMATION_HEADER = 7,
  IDS_COMPACT_HEADER = 8,
  IDS_OUT_OF_RANGE = 1009,
  IDS_INVALID_ARGUMENT = 1010,
  IDS_INVALID_POINTER = 1011,
  IDS_SYSTEM_ERROR = 1012,
  IDS_OPEN_FAILED = 1013,
  IDS_CLOSE_FAILED = 1014,
  IDS_WRITE_FAILED = 1015,
  IDS_READ_FAILED = 1016,
  IDS_DELETE_FAILED = 1017,
  IDS_NOT_OBJECT_FILE = 1018,
  IDS_NOT_ARCHIVE_FILE = 1019,
  IDS_OUT_OF_MEMORY = 1020,
  IDS_UNEXPECTED = 1021,
  IDS_CORRUPT_FILE = 1022,
  IDS_CREATE_INSTANCE_FAILED = 1026,
  IDS_LOAD_MODULE_FAILED = 1027,
  IDS_TEMPORARY_FILE_FAILED = 1028,
  IDS_MOVE_TEMPORARY_FAILED = 1029,
};

constexpr HRESULT KE_OUT_OF_RANGE = KofdCode(IDS_OUT_OF_RANGE);        // 0x800403F1
constexpr HRESULT KE_SYSTEM_ERROR = KofdCode(IDS_SYSTEM_ERROR);        // 0x800403F4
constexpr HRESULT KE_OPEN_FAILED = KofdCode(IDS_OPEN_FAILED);          // 0x800403F5
constexpr HRESULT KE_CLOSE_FAILED = KofdCode(IDS_CLOSE_FAILED);        // 0x800403F6
constexpr HRESULT KE_WRITE_FAILED = KofdCode(IDS_WRITE_FAILED);        // 0x800403F7
constexpr HRESULT KE_READ_FAILED = KofdCode(IDS_READ_FAILED);          // 0x800403F8
constexpr HRESULT KE_NOT_OBJECT_FILE = KofdCode(IDS_NOT_OBJECT_FILE);  // 0x800403FA
constexpr HRESULT KE_NOT_ARCHIVE_FILE = KofdCode(IDS_NOT_ARCHIVE_FILE);  // 0x800403FB
constexpr HRESULT KE_CORRUPT_FILE = KofdCode(IDS_CORRUPT_FILE);        // 0x800403FE

// Win32 access rights and creation dispositions, as the file layer computes them from a mode.
enum : DWORD {
  KOFD_GENERIC_READ = 0x80000000u,
  KOFD_GENERIC_WRITE = 0x40000000u,
  KOFD_CREATE_NEW = 1,
  KOFD_CREATE_ALWAYS = 2,
  KOFD_OPEN_EXISTING = 3,
  KOFD_OPEN_ALWAYS = 4,
  KOFD_TRUNCATE_EXISTING = 5,
};

// Message box styles, Win32 values.
enum : unsigned { KOFD_MB_OK = 0x0, KOFD_MB_ICONSTOP = 0x10 };
