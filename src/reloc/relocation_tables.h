// The relocation sections: KEL_RELXE (16 bytes, 16-bit expression indices) and KEL_RELXEB
// (20 bytes, 32-bit expression indices, evaluated and applied). Each record places the value of
// its expression run into a bit field of one unit of the target program section.
//
//   KEL_RELXE   +0 Offset  +4 info (symbol << 8 | type)  +8 t_start  +10 t_end   +12 e_start  +14 e_end
//   KEL_RELXEB  +0 Offset  +4 info (symbol << 8 | type)  +8 to_start +10 to_end  +12 exp_start +16 exp_end
//
// A relocation section's sh_link names its expression section, its sh_info the program section
// it patches; both links are converted to the wanted interface on each request.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "reloc/expression_table.h"
#include "reloc/expression_visitors.h"
#include "sections/storage.h"

class I_KOfdRelxeTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetAt(DWORD dwIndex, KEL_RELXE** ppRecord) = 0;
  // The target byte at Offset; E_FAIL without a target or for an Offset above its size.
  virtual HRESULT GetByteTarget(DWORD dwIndex, BYTE** ppByte) = 0;
  // The target's 32-bit unit number Offset; E_FAIL without a target or above size / 4.
  virtual HRESULT GetWordTarget(DWORD dwIndex, DWORD** ppWord) = 0;
  virtual HRESULT GetExpressionTable(I_KOfdExpressionTable** ppTable) = 0;
  virtual HRESULT GetProgramTable(I_KOfdProgramTable** ppTable) = 0;
};

class I_KOfdRelxebTable : public virtual I_Unknown {
 public:
  virtual HRESULT GetCount(DWORD* pdwCount) = 0;
  virtual HRESULT GetAt(DWORD dwIndex, KEL_RELXEB** ppRecord) = 0;
  // The target unit at Offset counted in bytes, 16-bit and 32-bit units: E_FAIL without a
  // target, 0x800403F1 unless Offset is below the target's size in those units.
  virtual HRESULT GetByteTarget(DWORD dwIndex, BYTE** ppByte) = 0;
  virtual HRESULT GetHalfTarget(DWORD dwIndex, WORD** ppHalf) = 0;
  virtual HRESULT GetWordTarget(DWORD dwIndex, DWORD** ppWord) = 0;
  virtual HRESULT Evaluate(DWORD dwIndex, DWORD* pdwValue) = 0;
  // The infix text of the record's expression, copied only when it fits whole.
  virtual HRESULT GetExpressionText(DWORD dwIndex, char* pszBuffer, DWORD nSize) = 0;
  virtual HRESULT GetExpressionTable(I_KOfdExpressionTable** ppTable) = 0;
  virtual HRESULT GetProgramTable(I_KOfdProgramTable** ppTable) = 0;
};

// What Relocate tells its caller. The first four operations are the host's own; Relocate calls
// only ReportHighByte, with {address, byte}: a value had bits above 24 that the field drops.
class I_KOfdRelocationSink {
 public:
  virtual HRESULT Reserved1() = 0;
  virtual HRESULT Reserved2() = 0;
  virtual HRESULT Reserved3() = 0;
  virtual HRESULT Reserved4() = 0;
  virtual HRESULT ReportHighByte(const DWORD* pPair) = 0;

 protected:
  virtual ~I_KOfdRelocationSink() = default;
};

// A sink for callers that only want the reports: the host operations do nothing.
class C_KOfdRelocationSink : public I_KOfdRelocationSink {
 public:
  HRESULT Reserved1() override { return S_OK; }
  HRESULT Reserved2() override { return S_OK; }
  HRESULT Reserved3() override { return S_OK; }
  HRESULT Reserved4() override { return S_OK; }
};

class I_KOfdRelocation : public virtual I_Unknown {
 public:
  // Patches the target with every record's value. Offset counts bytes (mode 0, 32-bit unit),
  // 16-bit units (1) or 32-bit units (2); any other mode evaluates and reports only.
  virtual HRESULT Relocate(DWORD dwMode, I_KOfdRelocationSink* pSink) = 0;
};

// The relocation modes of Relocate.
enum : DWORD { KEL_RELOCATE_BYTE = 0, KEL_RELOCATE_HALF = 1, KEL_RELOCATE_WORD = 2 };

// The links both relocation tables share.
class C_KOfdRelocationLinks : public virtual C_KOfdSection {
 protected:
  // Every expression section and program section is of these classes, so one conversion
  // serves both the interface the callers ask for and the walks and bounds that need more.
  C_KOfdExpressionTable* Y_ExpressionTable() { return m_Expressions.Get(GetLinkedSection()); }
  C_KOfdProgramTable* Y_ProgramTable() { return m_Program.Get(GetInfoSection()); }
  // The target unit of nWidth bytes at dwOffset × nScale, when dwOffset passes the bound
  // (dwOffset < dwLimit, or <= with bInclusive) taken from the target's recorded size / nScale.
  // Fails with hrRange; E_FAIL when there is no target.
  HRESULT Y_Target(DWORD dwOffset, DWORD nScale, DWORD nWidth, bool bInclusive, HRESULT hrRange, BYTE** ppUnit);

 private:
  C_LinkAs<C_KOfdExpressionTable> m_Expressions;
  C_LinkAs<C_KOfdProgramTable> m_Program;
};

class C_KOfdRelxeTable : public virtual I_KOfdRelxeTable,
                         public C_KOfdRelocationLinks,
                         public C_KOfdSectionTable<KEL_RELXE> {
 public:
  // Browse: the list columns and rows (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetAt(DWORD dwIndex, KEL_RELXE** ppRecord) override { return C_BaseTable<KEL_RELXE>::GetAt(dwIndex, ppRecord); }
  HRESULT GetByteTarget(DWORD dwIndex, BYTE** ppByte) override;
  HRESULT GetWordTarget(DWORD dwIndex, DWORD** ppWord) override;
  HRESULT GetExpressionTable(I_KOfdExpressionTable** ppTable) override;
  HRESULT GetProgramTable(I_KOfdProgramTable** ppTable) override;
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
};

class C_KOfdRelxebTable : public virtual I_KOfdRelxebTable,
                          public virtual I_KOfdRelocation,
                          public C_KOfdRelocationLinks,
                          public C_KOfdSectionTable<KEL_RELXEB> {
 public:
  // Browse: the list columns and rows, with the expression of each record (present/section_views.cpp).
  HRESULT SetColumns() override;
  HRESULT ShowRow(DWORD dwRow) override;
  HRESULT FillList() override;

  HRESULT GetCount(DWORD* pdwCount) override;
  HRESULT GetAt(DWORD dwIndex, KEL_RELXEB** ppRecord) override { return C_BaseTable<KEL_RELXEB>::GetAt(dwIndex, ppRecord); }
  HRESULT GetByteTarget(DWORD dwIndex, BYTE** ppByte) override;
  HRESULT GetHalfTarget(DWORD dwIndex, WORD** ppHalf) override;
  HRESULT GetWordTarget(DWORD dwIndex, DWORD** ppWord) override;
  HRESULT Evaluate(DWORD dwIndex, DWORD* pdwValue) override;
  HRESULT GetExpressionText(DWORD dwIndex, char* pszBuffer, DWORD nSize) override;
  HRESULT GetExpressionTable(I_KOfdExpressionTable** ppTable) override;
  HRESULT GetProgramTable(I_KOfdProgramTable** ppTable) override;
  HRESULT Relocate(DWORD dwMode, I_KOfdRelocationSink* pSink) override;
  HRESULT DumpHead() override;
  HRESULT DumpRecord(DWORD dwIndex) override;
  using C_BaseTable<KEL_RELXEB>::GetCount;

  // While on, each expression run (exp_start, exp_end) of kRememberedRun tokens or more is
  // walked once for its value and once per text buffer size, however many records name it; off
  // forgets what was kept. Shorter runs are walked for every record that names them: that costs
  // less than keeping them, and a record's work stays below kRememberedRun tokens. For passes
  // that change neither expressions nor symbols: a listing, Relocate, the browse list.
  void RememberRuns(bool bOn);
  // Evaluate and GetExpressionText of one record, their results in *phrValue and the return
  // value, with one walk of a run that is not remembered: what a listing asks of every record.
  HRESULT EvaluateWithText(DWORD dwIndex, DWORD* pdwValue, HRESULT* phrValue, char* pszBuffer, DWORD nSize);
  // How many runs have been walked since the table was made.
  std::uint64_t GetWalkCount() const { return m_qwWalks; }

 private:
  struct RunResult {
    bool bValue = false;
    HRESULT hrValue = S_OK;
    DWORD dwValue = 0;
    bool bText = false;
    DWORD nTextSize = 0;
    HRESULT hrText = S_OK;
    std::string sText;
  };
  // The kept result of record dwIndex's run, or null when runs are not remembered.
  RunResult* Z_Remembered(DWORD dwIndex);
  // Runs body with runs remembered, forgetting them after unless they were remembered before.
  template <class Body>
  HRESULT Z_Remembering(Body&& body);

  // Feeds the record's expression run to visit(type, value, name, symbol).
  template <class Visit>
  HRESULT Z_Walk(DWORD dwIndex, Visit&& visit);
  // The target unit that Relocate patches in dwMode, as a byte pointer and width.
  HRESULT Z_Unit(DWORD dwIndex, DWORD dwMode, BYTE** ppUnit);
  HRESULT Z_Relocate(DWORD dwMode, I_KOfdRelocationSink* pSink);

  // Reset for every run: their stacks keep the memory they grew, so a listing of many records
  // does not allocate a stack per record.
  C_KOfdCalculator m_Calculator;
  C_KOfdExpressioner m_Expressioner;
  // Keyed by exp_start << 32 | exp_end; ordered, so that keys from the file cannot collide.
  std::map<std::uint64_t, RunResult> m_Runs;
  bool m_bRemember = false;
  std::uint64_t m_qwWalks = 0;
};

// Runs are remembered for as long as it lives: the scope of one listing.
class C_RememberedRuns {
 public:
  explicit C_RememberedRuns(C_KOfdRelxebTable& table) : m_Table(table) { m_Table.RememberRuns(true); }
  ~C_RememberedRuns() { m_Table.RememberRuns(false); }
  C_RememberedRuns(const C_RememberedRuns&) = delete;
  C_RememberedRuns& operator=(const C_RememberedRuns&) = delete;

 private:
  C_KOfdRelxebTable& m_Table;
};

template <class Body>
inline HRESULT C_KOfdRelxebTable::Z_Remembering(Body&& body) {
  if (m_bRemember) return body();
  RememberRuns(true);
  try {
    const HRESULT hr = body();
    RememberRuns(false);
    return hr;
  } catch (...) {
    RememberRuns(false);
    throw;
  }
}

// Shortest expression run that a listing remembers (see RememberRuns). Toolchain runs are
// shorter (SYM, NUM, + for most), so an ordinary listing keeps nothing.
constexpr DWORD kRememberedRun = 16;

// Longest expression run that is walked. Toolchain expressions are a handful of tokens; the
// bound keeps the work of a damaged table proportional to its record count.
constexpr DWORD kMaxExpressionRun = 4096;
