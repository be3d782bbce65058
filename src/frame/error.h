// Report-and-throw, and the out-of-memory and out-of-range handlers.
#pragma once

#include <cstddef>
#include <new>
#include <stdexcept>
#include <typeinfo>

#include "frame/exception.h"

// Builds the message of hrCode from the module's string table (or the "Exception: %#x. %s"
// fallback), fills its %s with pszArgument, optionally appends the system's text for the last
// error, and throws the result as a C_Exception. Messages are cut at 1023 characters.
[[noreturn]] void ThrowError(bool bAppendSystemText, ModuleHandle hModule, HRESULT hrCode,
                             const char* pszArgument);

// ThrowError with the library's own module.
[[noreturn]] void ThrowLibraryError(bool bAppendSystemText, HRESULT hrCode, const char* pszArgument);

// Formats pszFormat ("When read %s", "When write %s", ...) with a type name into a 128-byte
// buffer, as the record readers and writers name what failed.
struct ContextText {
  char text[128];
};
ContextText FormatContext(const char* pszFormat, const char* pszTypeName);

// The type name as the messages show it: "class C_KOfdStringTable", "struct KEL_LINE".
std::string DisplayTypeName(const std::type_info& type);

// Record an allocation failure (0x8007000E, message 1020) or an index failure (0x800403F1,
// message 1009) in an object's last-error record and return the code.
HRESULT RecordOutOfMemory(I_ExceptionWriter& record);
HRESULT RecordOutOfRange(I_ExceptionWriter& record);

// Runs body; an allocation or index failure inside it is recorded and returned instead of thrown.
template <class Body>
HRESULT GuardAllocation(I_ExceptionWriter& record, Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return RecordOutOfMemory(record);
  } catch (const std::length_error&) {
    return RecordOutOfMemory(record);
  } catch (const std::out_of_range&) {
    return RecordOutOfRange(record);
  }
}
