// The two walkers of an expression run: C_KOfdCalculator computes its 32-bit value,
// C_KOfdExpressioner writes it back as fully parenthesised infix text. Both are stack machines
// fed one token at a time, in ascending record order; a run is good when one entry is left.
#pragma once

#include <deque>
#include <string>

#include "frame/types.h"

class C_KOfdCalculator {
 public:
  virtual ~C_KOfdCalculator() = default;
  // dwOperand is the record's Value, or for SYM the symbol's value. Always S_OK: a token that
  // cannot be applied marks the run as failed.
  virtual HRESULT Apply(DWORD dwType, DWORD dwOperand);
  // The single value left (the stack is emptied), or E_FAIL with pdwValue untouched.
  virtual HRESULT GetResult(DWORD* pdwValue);

  // Back to an empty stack, keeping the memory it has grown, for the next run.
  void Reset() {
    m_Stack.clear();
    m_bFailed = false;
  }

 private:
  bool Z_Pop(DWORD* pdwValue);

  std::deque<DWORD> m_Stack;
  bool m_bFailed = false;
};

class C_KOfdExpressioner {
 public:
  // Texts longer than nLimit characters can never be handed out, so building stops there: a
  // damaged run cannot make the printer build texts without bound.
  explicit C_KOfdExpressioner(std::size_t nLimit = std::string::npos) : m_nLimit(nLimit) {}
  virtual ~C_KOfdExpressioner() = default;
  // dwValue is the record's Value; pszName the symbol's name, for SYM only.
  virtual HRESULT Apply(DWORD dwType, DWORD dwValue, const char* pszName = nullptr);
  // Copies the single text left into pszBuffer when it fits whole (length < nSize); otherwise
  // E_FAIL and nothing is written. The stack is kept.
  virtual HRESULT GetText(char* pszBuffer, DWORD nSize);

  // Back to an empty stack with a new limit, for the next run.
  void Reset(std::size_t nLimit) {
    m_nDepth = 0;
    m_nLimit = nLimit;
    m_bFailed = false;
  }

 private:
  // The stack holds m_nDepth texts; the strings above them are kept with their memory, so a
  // printer reused run after run builds its texts without allocating.
  std::string& Z_Push();
  std::string& Z_Top(std::size_t nBelow = 0) { return m_Stack[m_nDepth - 1 - nBelow]; }
  void Z_CheckLimit(const std::string& sText);

  std::deque<std::string> m_Stack;
  std::size_t m_nDepth = 0;
  std::string m_sScratch;
  std::size_t m_nLimit;
  bool m_bFailed = false;
};
