// C_Exception: a result code and its message text. Thrown by value by ThrowError, and carried
// once (as a virtual base) by every implementation class as its last-error record.
//
// The class is defined inline so that a host can catch it by type without linking the library's
// sources: type identity across modules is decided by name.
#pragma once

#include <string>

#include "frame/unknown.h"

class I_Exception : public virtual I_Unknown {
 public:
  virtual HRESULT GetCode(HRESULT* phrCode) = 0;
  virtual HRESULT GetMessageText(const char** ppszText) = 0;
  virtual HRESULT GetCodeAndMessage(HRESULT* phrCode, const char** ppszText) = 0;
};

// The writing side of the last-error record.
class I_ExceptionWriter : public virtual I_Unknown {
 public:
  virtual HRESULT SetCode(HRESULT hrCode) = 0;
  virtual HRESULT SetMessageText(const char* pszText) = 0;
  virtual HRESULT CopyFrom(I_Exception* pOther) = 0;
  virtual HRESULT SetCodeAndMessage(HRESULT hrCode, const char* pszText) = 0;
};

class C_Exception : public virtual I_Exception,
                    public virtual I_ExceptionWriter,
                    public virtual C_Unknown {
 public:
  C_Exception() : m_hrCode(S_OK) {}
  C_Exception(HRESULT hrCode, const char* pszText) : m_sMessage(pszText ? pszText : ""), m_hrCode(hrCode) {}
  C_Exception(const C_Exception& other) : I_Unknown(), I_Exception(), I_ExceptionWriter(), C_Unknown(),
      m_sMessage(other.m_sMessage), m_hrCode(other.m_hrCode) {}
  C_Exception& operator=(const C_Exception& other) {
    m_sMessage = other.m_sMessage;
    m_hrCode = other.m_hrCode;
    return *this;
  }

  HRESULT GetCode(HRESULT* phrCode) override {
    if (phrCode) *phrCode = m_hrCode;
    return S_OK;
  }
  HRESULT GetMessageText(const char** ppszText) override {
    if (ppszText) *ppszText = m_sMessage.c_str();
    return S_OK;
  }
  HRESULT GetCodeAndMessage(HRESULT* phrCode, const char** ppszText) override {
    GetCode(phrCode);
    return GetMessageText(ppszText);
  }

  HRESULT SetCode(HRESULT hrCode) override {
    m_hrCode = hrCode;
    return S_OK;
  }
  HRESULT SetMessageText(const char* pszText) override {
    m_sMessage = pszText ? pszText : "";
    return S_OK;
  }
  HRESULT CopyFrom(I_Exception* pOther) override {
    if (!pOther) return E_POINTER;
    HRESULT hrCode = S_OK;
    const char* pszText = nullptr;
    pOther->GetCode(&hrCode);
    pOther->GetMessageText(&pszText);
    return SetCodeAndMessage(hrCode, pszText);
  }
  HRESULT SetCodeAndMessage(HRESULT hrCode, const char* pszText) override {
    SetCode(hrCode);
    return SetMessageText(pszText);
  }

  // Convenience accessors for C++ callers inside and around the library.
  HRESULT Code() const { return m_hrCode; }
  const std::string& Message() const { return m_sMessage; }

 private:
  std::string m_sMessage;
  HRESULT m_hrCode;
};

// Objects of the extended object revision carry one; it has no behaviour of its own.
class C_Messenger {
 public:
  virtual ~C_Messenger() = default;
};
