// Entry point of kofd.dll: records the module whose string table holds the messages.
#include <windows.h>

namespace platform {
void RecordLibraryModule(HINSTANCE hInstance);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID) {
  if (dwReason == DLL_PROCESS_ATTACH) {
    platform::RecordLibraryModule(hInstance);
    ::DisableThreadLibraryCalls(hInstance);
  }
  return TRUE;
}
