#include "reloc/expression_visitors.h"

#include <cstdint>
#include <cstring>

#include "reloc/expression_table.h"

namespace {

std::int32_t Signed(DWORD dwValue) { return static_cast<std::int32_t>(dwValue); }

// Arithmetic shift right, the sign bit copied in, for any count 0..31.
DWORD ShiftRightArithmetic(DWORD dwValue, DWORD dwCount) {
  const DWORD dwShifted = dwValue >> dwCount;
  const bool bNegative = (dwValue & 0x80000000u) != 0;
  return bNegative && dwCount != 0 ? dwShifted | ~(0xFFFFFFFFu >> dwCount) : dwShifted;
}

// The binary operators; false for a division that has no 32-bit answer.
bool Combine(DWORD dwType, DWORD dwLeft, DWORD dwRight, DWORD* pdwResult) {
  switch (dwType) {
    case KEL_EXP_ADD: *pdwResult = dwLeft + dwRight; return true;
    case KEL_EXP_SUB: *pdwResult = dwLeft - dwRight; return true;
    case KEL_EXP_MUL: *pdwResult = dwLeft * dwRight; return true;  // the low 32 bits are the same signed
    case KEL_EXP_AND: *pdwResult = dwLeft & dwRight; return true;
    case KEL_EXP_OR: *pdwResult = dwLeft | dwRight; return true;
    case KEL_EXP_XOR: *pdwResult = dwLeft ^ dwRight; return true;
    case KEL_EXP_SHL: *pdwResult = dwLeft << (dwRight % 32); return true;
    case KEL_EXP_SHR: *pdwResult = ShiftRightArithmetic(dwLeft, dwRight % 32); return true;
    case KEL_EXP_NIBBLE: {
      // left[7] sign-extends: the nibble is cut out with an arithmetic shift.
      const DWORD dwShift = (4 * dwRight) % 32;
      *pdwResult = ShiftRightArithmetic(dwLeft & (0xFu << dwShift), dwShift);
      return true;
    }
    case KEL_EXP_DIV:
    case KEL_EXP_MOD: {
      if (dwRight == 0 || (dwLeft == 0x80000000u && dwRight == 0xFFFFFFFFu)) return false;
      const std::int32_t quotient = Signed(dwLeft) / Signed(dwRight);
      *pdwResult = static_cast<DWORD>(dwType == KEL_EXP_DIV ? quotient : Signed(dwLeft) % Signed(dwRight));
      return true;
    }
    default:
      return false;
  }
}

bool IsBinary(DWORD dwType) {
  return (dwType >= KEL_EXP_ADD && dwType <= KEL_EXP_XOR) || dwType == KEL_EXP_NIBBLE ||
         (dwType >= KEL_EXP_SHR && dwType <= KEL_EXP_MOD);
}

// The infix text of the operators printed as (left OP right).
const char* OperatorText(DWORD dwType) {
  static const char* const kTexts[] = {nullptr, " + ", " - ", " * ", " / ", " & ", " | ", " ^ "};
  if (dwType >= KEL_EXP_ADD && dwType <= KEL_EXP_XOR) return kTexts[dwType];
  if (dwType == KEL_EXP_SHR) return ">>";
  if (dwType == KEL_EXP_SHL) return "<<";
  if (dwType == KEL_EXP_MOD) return "%";
  return nullptr;
}

}  // namespace

// ---- C_KOfdCalculator ----------------------------------------------------------------------

bool C_KOfdCalculator::Z_Pop(DWORD* pdwValue) {
  if (m_Stack.empty()) return false;
  *pdwValue = m_Stack.back();
  m_Stack.pop_back();
  return true;
}

HRESULT C_KOfdCalculator::Apply(DWORD dwType, DWORD dwOperand) {
  if (m_bFailed) return S_OK;
  if (dwType == KEL_EXP_NUM || dwType == KEL_EXP_SYM) {
    m_Stack.push_back(dwOperand);
  } else if (dwType == KEL_EXP_NOT) {
    // The operand stays beneath its complement.
    if (m_Stack.empty()) m_bFailed = true;
    else m_Stack.push_back(m_Stack.back() ^ 0xFFFFFFFFu);
  } else if (IsBinary(dwType)) {
    DWORD dwLeft = 0, dwRight = 0, dwResult = 0;
    if (!Z_Pop(&dwRight) || !Z_Pop(&dwLeft) || !Combine(dwType, dwLeft, dwRight, &dwResult)) m_bFailed = true;
    else m_Stack.push_back(dwResult);
  }
  // Every other code (no type, brackets, "Err" and unknown codes) is ignored.
  return S_OK;
}

HRESULT C_KOfdCalculator::GetResult(DWORD* pdwValue) {
  if (m_bFailed || m_Stack.size() != 1) return E_FAIL;
  *pdwValue = m_Stack.back();
  m_Stack.clear();
  return S_OK;
}

// ---- C_KOfdExpressioner --------------------------------------------------------------------

std::string& C_KOfdExpressioner::Z_Push() {
  if (m_nDepth == m_Stack.size()) m_Stack.emplace_back();
  std::string& sSlot = m_Stack[m_nDepth++];
  sSlot.clear();
  return sSlot;
}

void C_KOfdExpressioner::Z_CheckLimit(const std::string& sText) {
  // Too long to be handed out: nothing the run still holds can change that.
  if (sText.size() > m_nLimit) m_bFailed = true;
}

HRESULT C_KOfdExpressioner::Apply(DWORD dwType, DWORD dwValue, const char* pszName) {
  if (m_bFailed) return S_OK;
  if (dwType == KEL_EXP_NUM) {
    // Unsigned decimal, written backwards from the last digit.
    char szDigits[10];
    char* pDigit = szDigits + sizeof szDigits;
    do *--pDigit = static_cast<char>('0' + dwValue % 10); while ((dwValue /= 10) != 0);
    Z_CheckLimit(Z_Push().append(pDigit, szDigits + sizeof szDigits));
  } else if (dwType == KEL_EXP_SYM) {
    Z_CheckLimit(Z_Push().append(pszName ? pszName : ""));
  } else if (dwType == KEL_EXP_NOT) {
    if (m_nDepth < 1) m_bFailed = true;
    else Z_CheckLimit(Z_Top().insert(0, " ~"));
  } else if (IsBinary(dwType)) {
    if (m_nDepth < 2) {
      m_bFailed = true;
      return S_OK;
    }
    std::string& sLeft = Z_Top(1);
    const std::string& sRight = Z_Top();
    if (dwType == KEL_EXP_NIBBLE) {
      sLeft.append("[").append(sRight).append("]");
    } else {
      m_sScratch.assign("(").append(sLeft).append(OperatorText(dwType)).append(sRight).append(")");
      sLeft.swap(m_sScratch);
    }
    --m_nDepth;
    Z_CheckLimit(sLeft);
  }
  return S_OK;
}

HRESULT C_KOfdExpressioner::GetText(char* pszBuffer, DWORD nSize) {
  if (m_bFailed || m_nDepth != 1) return E_FAIL;
  const std::string& sText = Z_Top();
  if (sText.size() >= nSize) return E_FAIL;
  std::memcpy(pszBuffer, sText.c_str(), sText.size() + 1);
  return S_OK;
}
