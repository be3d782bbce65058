#include "reloc/relocation_tables.h"

#include <cstdint>
#include <cstring>

#include "frame/error.h"

// ---- Links and targets ---------------------------------------------------------------------

HRESULT C_KOfdRelocationLinks::Y_Target(DWORD dwOffset, DWORD nScale, DWORD nWidth, bool bInclusive, HRESULT hrRange,
                                        BYTE** ppUnit) {
  C_KOfdProgramTable* pTarget = Y_ProgramTable();
  if (!pTarget) return E_FAIL;
  // The bound is the target's recorded size, asked afresh on every call.
  const DWORD dwLimit = pTarget->GetSize() / nScale;
  if (bInclusive ? dwOffset > dwLimit : dwOffset >= dwLimit) return hrRange;
  // The unit must also lie in the bytes held, which can be fewer than the recorded size. An
  // inclusive bound may point just past them, into the zero padding every held block carries.
  BYTE* pData = nullptr;
  DWORD dwHeld = 0;
  pTarget->GetData(&pData, &dwHeld);
  const std::uint64_t qwEnd = static_cast<std::uint64_t>(dwOffset) * nScale + nWidth;
  if (!pData || qwEnd > static_cast<std::uint64_t>(dwHeld) + (bInclusive ? kBlockPadding : 0)) return hrRange;
  *ppUnit = pData + static_cast<std::size_t>(dwOffset) * nScale;
  return S_OK;
}

// ---- C_KOfdRelxeTable ----------------------------------------------------------------------

HRESULT C_KOfdRelxeTable::GetByteTarget(DWORD dwIndex, BYTE** ppByte) {
  if (dwIndex >= GetCount()) return E_FAIL;
  return Y_Target(Y_Record(dwIndex)->Offset, 1, 1, true, E_FAIL, ppByte);
}

HRESULT C_KOfdRelxeTable::GetWordTarget(DWORD dwIndex, DWORD** ppWord) {
  if (dwIndex >= GetCount()) return E_FAIL;
  return Y_Target(Y_Record(dwIndex)->Offset, 4, 4, true, E_FAIL, reinterpret_cast<BYTE**>(ppWord));
}

HRESULT C_KOfdRelxeTable::GetExpressionTable(I_KOfdExpressionTable** ppTable) {
  *ppTable = Y_ExpressionTable();
  return S_OK;
}

HRESULT C_KOfdRelxeTable::GetProgramTable(I_KOfdProgramTable** ppTable) {
  *ppTable = Y_ProgramTable();
  return S_OK;
}

// ---- C_KOfdRelxebTable ---------------------------------------------------------------------

HRESULT C_KOfdRelxebTable::GetCount(DWORD* pdwCount) {
  *pdwCount = GetCount();
  return S_OK;
}

HRESULT C_KOfdRelxebTable::GetByteTarget(DWORD dwIndex, BYTE** ppByte) {
  if (dwIndex >= GetCount()) return E_FAIL;
  return Y_Target(Y_Record(dwIndex)->Offset, 1, 1, false, KE_OUT_OF_RANGE, ppByte);
}

HRESULT C_KOfdRelxebTable::GetHalfTarget(DWORD dwIndex, WORD** ppHalf) {
  if (dwIndex >= GetCount()) return E_FAIL;
  return Y_Target(Y_Record(dwIndex)->Offset, 2, 2, false, KE_OUT_OF_RANGE, reinterpret_cast<BYTE**>(ppHalf));
}

HRESULT C_KOfdRelxebTable::GetWordTarget(DWORD dwIndex, DWORD** ppWord) {
  if (dwIndex >= GetCount()) return E_FAIL;
  return Y_Target(Y_Record(dwIndex)->Offset, 4, 4, false, KE_OUT_OF_RANGE, reinterpret_cast<BYTE**>(ppWord));
}

HRESULT C_KOfdRelxebTable::GetExpressionTable(I_KOfdExpressionTable** ppTable) {
  *ppTable = Y_ExpressionTable();
  return S_OK;
}

HRESULT C_KOfdRelxebTable::GetProgramTable(I_KOfdProgramTable** ppTable) {
  *ppTable = Y_ProgramTable();
  return S_OK;
}

template <class Visit>
HRESULT C_KOfdRelxebTable::Z_Walk(DWORD dwIndex, Visit&& visit) {
  if (dwIndex >= GetCount()) return E_FAIL;
  const KEL_RELXEB& record = *Y_Record(dwIndex);
  ++m_qwWalks;
  if (record.exp_start > record.exp_end) return S_OK;
  if (record.exp_end - record.exp_start >= kMaxExpressionRun) return E_FAIL;
  C_KOfdExpressionTable* pExpressions = Y_ExpressionTable();
  if (!pExpressions) return E_POINTER;
  const DWORD dwCount = pExpressions->GetCount();
  for (DWORD i = record.exp_start;; ++i) {
    // The record lookup would throw here; the walk reports it as the range failure it is.
    if (i >= dwCount) return RecordOutOfRange(*this);
    const KEL_EXP* pToken = nullptr;
    const char* pszName = nullptr;
    ELF32_SYM* pSymbol = nullptr;
    const HRESULT hr = pExpressions->GetToken(i, &pToken, &pszName, &pSymbol);
    if (hr != S_OK) return hr;
    visit(*pToken, pszName, pSymbol);
    if (i == record.exp_end) return S_OK;
  }
}

void C_KOfdRelxebTable::RememberRuns(bool bOn) {
  m_bRemember = bOn;
  if (!bOn) m_Runs.clear();
}

C_KOfdRelxebTable::RunResult* C_KOfdRelxebTable::Z_Remembered(DWORD dwIndex) {
  if (!m_bRemember || dwIndex >= GetCount()) return nullptr;
  const KEL_RELXEB& record = *Y_Record(dwIndex);
  // A run that is empty (start after end) or short is walked again: no lookup, no memory.
  if (record.exp_start > record.exp_end || record.exp_end - record.exp_start < kRememberedRun - 1) return nullptr;
  return &m_Runs[static_cast<std::uint64_t>(record.exp_start) << 32 | record.exp_end];
}

HRESULT C_KOfdRelxebTable::Evaluate(DWORD dwIndex, DWORD* pdwValue) {
  RunResult* pRun = Z_Remembered(dwIndex);
  if (!pRun || !pRun->bValue) {
    m_Calculator.Reset();
    HRESULT hr = Z_Walk(dwIndex, [&](const KEL_EXP& token, const char*, const ELF32_SYM* pSymbol) {
      m_Calculator.Apply(token.Type, pSymbol ? pSymbol->st_value : token.Value);
    });
    DWORD dwValue = 0;
    if (hr == S_OK) hr = m_Calculator.GetResult(&dwValue);
    if (!pRun) {
      if (hr == S_OK) *pdwValue = dwValue;
      return hr;
    }
    pRun->bValue = true;
    pRun->hrValue = hr;
    pRun->dwValue = dwValue;
  }
  if (pRun->hrValue == S_OK) *pdwValue = pRun->dwValue;
  return pRun->hrValue;
}

HRESULT C_KOfdRelxebTable::GetExpressionText(DWORD dwIndex, char* pszBuffer, DWORD nSize) {
  RunResult* pRun = Z_Remembered(dwIndex);
  // The text depends on the buffer's size only through the length it may reach.
  if (pRun && pRun->bText && pRun->nTextSize == nSize) {
    if (pRun->hrText == S_OK) memcpy(pszBuffer, pRun->sText.c_str(), pRun->sText.size() + 1);
    return pRun->hrText;
  }
  m_Expressioner.Reset(nSize != 0 ? nSize - 1 : 0);
  HRESULT hr = Z_Walk(dwIndex, [&](const KEL_EXP& token, const char* pszName, const ELF32_SYM*) {
    m_Expressioner.Apply(token.Type, token.Value, pszName);
  });
  if (hr == S_OK) hr = m_Expressioner.GetText(pszBuffer, nSize);
  if (pRun) {
    pRun->bText = true;
    pRun->nTextSize = nSize;
    pRun->hrText = hr;
    if (hr == S_OK) pRun->sText = pszBuffer;
  }
  return hr;
}

HRESULT C_KOfdRelxebTable::EvaluateWithText(DWORD dwIndex, DWORD* pdwValue, HRESULT* phrValue, char* pszBuffer,
                                            DWORD nSize) {
  if (Z_Remembered(dwIndex)) {
    *phrValue = Evaluate(dwIndex, pdwValue);
    return GetExpressionText(dwIndex, pszBuffer, nSize);
  }
  // Both machines take each token as Evaluate and GetExpressionText feed it, so the results are
  // theirs.
  m_Calculator.Reset();
  m_Expressioner.Reset(nSize != 0 ? nSize - 1 : 0);
  const HRESULT hrWalk = Z_Walk(dwIndex, [&](const KEL_EXP& token, const char* pszName, const ELF32_SYM* pSymbol) {
    m_Calculator.Apply(token.Type, pSymbol ? pSymbol->st_value : token.Value);
    m_Expressioner.Apply(token.Type, token.Value, pszName);
  });
  HRESULT hrValue = hrWalk;
  DWORD dwValue = 0;
  if (hrValue == S_OK) hrValue = m_Calculator.GetResult(&dwValue);
  if (hrValue == S_OK) *pdwValue = dwValue;
  *phrValue = hrValue;
  return hrWalk == S_OK ? m_Expressioner.GetText(pszBuffer, nSize) : hrWalk;
}

HRESULT C_KOfdRelxebTable::Z_Unit(DWORD dwIndex, DWORD dwMode, BYTE** ppUnit) {
  const DWORD dwOffset = Y_Record(dwIndex)->Offset;
  switch (dwMode) {
    case KEL_RELOCATE_BYTE:
      // The 32-bit unit that begins at a byte offset must end inside the section as well.
      return Y_Target(dwOffset, 1, 4, false, KE_OUT_OF_RANGE, ppUnit);
    case KEL_RELOCATE_HALF:
      return Y_Target(dwOffset, 2, 2, false, KE_OUT_OF_RANGE, ppUnit);
    default:
      return Y_Target(dwOffset, 4, 4, false, KE_OUT_OF_RANGE, ppUnit);
  }
}

namespace {

DWORD LoadUnit(const BYTE* pUnit, DWORD nWidth) {
  DWORD dwValue = 0;
  for (DWORD i = 0; i < nWidth; ++i) dwValue |= static_cast<DWORD>(pUnit[i]) << (8 * i);
  return dwValue;
}

void StoreUnit(BYTE* pUnit, DWORD nWidth, DWORD dwValue) {
  for (DWORD i = 0; i < nWidth; ++i) pUnit[i] = static_cast<BYTE>(dwValue >> (8 * i));
}

}  // namespace

HRESULT C_KOfdRelxebTable::Relocate(DWORD dwMode, I_KOfdRelocationSink* pSink) {
  return Z_Remembering([&] { return Z_Relocate(dwMode, pSink); });
}

HRESULT C_KOfdRelxebTable::Z_Relocate(DWORD dwMode, I_KOfdRelocationSink* pSink) {
  const DWORD dwBase = GetAddress();
  for (DWORD i = 0; i < GetCount(); ++i) {
    const KEL_RELXEB& record = *Y_Record(i);
    DWORD dwValue = 0;
    HRESULT hr = Evaluate(i, &dwValue);
    if (hr != S_OK) return hr;
    if (dwValue >> 24 != 0 && pSink) {
      const DWORD pair[2] = {record.Offset + dwBase, dwValue >> 24};
      pSink->ReportHighByte(pair);
    }
    if (dwMode > KEL_RELOCATE_WORD) continue;

    // The field runs from bit to_start to bit to_end; the value keeps its low (width) bits.
    const DWORD dwShift = ((record.to_start & 0xFFu) - (record.to_end & 0xFFu) + 31u) % 32u;
    const DWORD dwStart = record.to_start % 32u;
    const DWORD dwField = (dwValue << dwShift) >> dwShift;
    const DWORD dwMask = ((0xFFFFFFFFu << dwShift) >> dwShift) << dwStart;
    BYTE* pUnit = nullptr;
    hr = Z_Unit(i, dwMode, &pUnit);
    if (hr != S_OK) return hr;
    const DWORD nWidth = dwMode == KEL_RELOCATE_HALF ? 2 : 4;
    StoreUnit(pUnit, nWidth, (LoadUnit(pUnit, nWidth) & ~dwMask) | (dwField << dwStart));
  }
  return S_OK;
}
