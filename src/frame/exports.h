// The four functions that kofd.dll exports; the only way into the library for a host.
#pragma once

#include "frame/factory.h"
#include "frame/types.h"

#if defined(_WIN32) && defined(KOFD_BUILDING_DLL)
#define KOFD_EXPORT extern "C" __declspec(dllexport)
#else
#define KOFD_EXPORT extern "C"
#endif

KOFD_EXPORT I_Factory* CreateFactory();
KOFD_EXPORT I_Unknown* CreateInstance(const char* pszInterface);
// Writes the banner, its terminating zero and one more zero: 53 bytes.
KOFD_EXPORT HRESULT EnumBodyNames(DWORD dwReserved, char* pszBuffer);
KOFD_EXPORT void Stop();

// Types of the exports, for hosts that find them with GetProcAddress.
typedef I_Factory* (*PFN_CreateFactory)();
typedef I_Unknown* (*PFN_CreateInstance)(const char*);
typedef HRESULT (*PFN_EnumBodyNames)(DWORD, char*);
typedef void (*PFN_Stop)();

constexpr char kBanner[] = "Quillbox object file descriptor Ver. 3.00.01-122499";
constexpr unsigned kBodyNamesSize = sizeof kBanner + 1;
