// I_File / C_File: the file a document describes (path, name, size, open handle).
#pragma once

#include <cstdint>
#include <string>

#include "frame/exception.h"

class I_File : public virtual I_Unknown {
 public:
  // Resets, then stores the values.
  virtual HRESULT Attach(const char* pszPath, const char* pszName, DWORD dwAttributeB, DWORD dwAttributeA,
                         DWORD dwSizeLow) = 0;
  // Resets, stores, then opens the file for reading to take its size, and closes it again.
  virtual HRESULT AttachWithSize(const char* pszPath, const char* pszName, DWORD dwAttributeB) = 0;
  virtual HRESULT AttachPath(const char* pszPath, DWORD dwAttributeB) = 0;
  // Copies name, attribute A, handle, size, attribute B and path of another file.
  virtual HRESULT AssignFrom(I_File* pOther) = 0;
  virtual const char* GetPath() = 0;
  virtual const char* GetPathName() = 0;
  virtual HRESULT Reserved7() = 0;
  // The part of the name after its last backslash, or the whole name.
  virtual const char* GetFileName() = 0;
  virtual DWORD GetAttributeA() = 0;
  virtual DWORD GetAttributeB() = 0;
  virtual HANDLE GetHandle() = 0;
  virtual DWORD GetSize(DWORD* pdwSizeHigh) = 0;
  // Mode 0 creates the file for writing, mode 1 opens it for reading. S_FALSE when already open.
  virtual HRESULT Open(DWORD dwMode) = 0;
  virtual HRESULT Close() = 0;
  virtual HRESULT Reserved15() = 0;
  virtual HRESULT Reserved16() = 0;
  virtual HRESULT Reset() = 0;
};

class C_File : public virtual I_File, public virtual C_Exception {
 public:
  C_File() = default;
  C_File(const C_File&) = delete;
  C_File& operator=(const C_File&) = delete;
  ~C_File() override;

  HRESULT Attach(const char* pszPath, const char* pszName, DWORD dwAttributeB, DWORD dwAttributeA,
                 DWORD dwSizeLow) override;
  HRESULT AttachWithSize(const char* pszPath, const char* pszName, DWORD dwAttributeB) override;
  HRESULT AttachPath(const char* pszPath, DWORD dwAttributeB) override;
  HRESULT AssignFrom(I_File* pOther) override;
  const char* GetPath() override { return m_sPath.c_str(); }
  const char* GetPathName() override { return m_sPath.c_str(); }
  HRESULT Reserved7() override { return S_OK; }
  const char* GetFileName() override;
  DWORD GetAttributeA() override { return m_dwAttributeA; }
  DWORD GetAttributeB() override { return m_dwAttributeB; }
  HANDLE GetHandle() override { return m_hFile; }
  DWORD GetSize(DWORD* pdwSizeHigh) override;
  HRESULT Open(DWORD dwMode) override;
  HRESULT Close() override;
  HRESULT Reserved15() override { return S_OK; }
  HRESULT Reserved16() override { return S_OK; }
  HRESULT Reset() override;

  // Bounds the bytes that reads through this file may take in all, so that a damaged object
  // whose many sections all cover the whole file cannot make us hold it many times over.
  void SetReadBudget(std::uint64_t qwBytes) { m_qwReadBudget = qwBytes; }
  void ClearReadBudget() { m_qwReadBudget = kUnlimited; }
  // What is left of the budget; all ones when there is none.
  std::uint64_t ReadBudget() const { return m_qwReadBudget; }
  // False, taking nothing, when qwBytes is more than what is left.
  bool TakeFromReadBudget(std::uint64_t qwBytes) {
    if (m_qwReadBudget == kUnlimited) return true;
    if (qwBytes > m_qwReadBudget) return false;
    m_qwReadBudget -= qwBytes;
    return true;
  }

 private:
  static constexpr std::uint64_t kUnlimited = ~std::uint64_t(0);

  void Z_Store(const char* pszPath, const char* pszName, DWORD dwAttributeB);

  std::string m_sPath;
  std::string m_sName;
  DWORD m_dwAttributeA = 0;
  DWORD m_dwSizeLow = 0;
  DWORD m_dwSizeHigh = 0;
  HANDLE m_hFile = nullptr;
  DWORD m_dwAttributeB = 0;
  // A handle taken over from another file by AssignFrom belongs to that file: closing this one
  // forgets the handle without closing it.
  bool m_bOwnsHandle = false;
  std::uint64_t m_qwReadBudget = kUnlimited;
};
