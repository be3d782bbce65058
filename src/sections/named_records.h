// Reading the records of a table whose names lie in its linked string table (source lines,
// stabs, KDM entries), with the name each record carries.
#pragma once

#include "sections/string_table.h"

// Record dwIndex and its name; E_FAIL past the end.
template <class Table, class T>
HRESULT GetNamedRecordAt(Table& table, DWORD dwIndex, const char** ppszName, T** ppRecord) {
  if (dwIndex >= table.GetCount()) return E_FAIL;
  T* pRecord = nullptr;
  table.GetAt(dwIndex, &pRecord);
  if (ppszName) *ppszName = table.GetRecordName(pRecord);
  if (ppRecord) *ppRecord = pRecord;
  return S_OK;
}
