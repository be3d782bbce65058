// Report-and-throw, the message table and the last-error record.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/error.h"
#include "frame/file.h"
#include "platform/platform.h"

namespace {

C_Exception Thrown(bool bSystemText, HRESULT hrCode, const std::string& sArgument) {
  try {
    ThrowError(bSystemText, platform::LibraryModule(), hrCode, sArgument.c_str());
  } catch (const C_Exception& error) {
    return error;
  }
}

}  // namespace

TEST(ThrowError, CodesWithoutTextFallBackToTheCodeInHex) {
  C_Exception error = Thrown(false, E_POINTER, "pSection at C_KOfdELF::Z_ReadAt");
  HRESULT hrCode = S_OK;
  const char* pszText = nullptr;
  error.GetCodeAndMessage(&hrCode, &pszText);
  EXPECT_EQ(hrCode, E_POINTER);
  EXPECT_STREQ(pszText, "Exception: 0x80004003. pSection at C_KOfdELF::Z_ReadAt");
  // Numbers 1023 to 1025 lie between entries of the table and have no text either.
  EXPECT_EQ(Thrown(false, KofdCode(1023), "x").Message(), "Exception: 0x800403ff. x");
  EXPECT_EQ(Thrown(false, KofdCode(1024), "x").Message(), "Exception: 0x80040400. x");
  EXPECT_EQ(Thrown(false, KofdCode(1025), "x").Message(), "Exception: 0x80040401. x");
}

TEST(ThrowError, LibraryCodesUseTheirTableText) {
  const std::string sContext = FormatContext("When read %s", DisplayTypeName(typeid(C_File)).c_str()).text;
  EXPECT_EQ(sContext, "When read class C_File");
  C_Exception error = Thrown(false, KE_READ_FAILED, "When read class C_KOfdStringTable");
  EXPECT_EQ(error.Code(), KE_READ_FAILED);
  EXPECT_EQ(error.Message(), "error 1016: failed to read from file specified(When read class C_KOfdStringTable). ");
  // A "%" in the argument is copied, never interpreted.
  EXPECT_EQ(Thrown(false, KE_CORRUPT_FILE, "%s%n%%").Message(), "error 1022: Invalid or corrupt file(%s%n%%). ");
}

TEST(ThrowError, MessagesAreCutAt1023Characters) {
  const std::string sLong(2000, 'a');
  const std::string sMessage = Thrown(false, KE_READ_FAILED, sLong).Message();
  EXPECT_EQ(sMessage, ("error 1016: failed to read from file specified(" + sLong).substr(0, 1023));
  platform::SetLastSystemError(2);
  EXPECT_EQ(Thrown(true, KE_READ_FAILED, sLong).Message(), sMessage);
}

TEST(ThrowError, AppendsTheSystemTextOfTheLastError) {
  platform::SetLastSystemError(2);
  EXPECT_EQ(Thrown(true, KE_OPEN_FAILED, "lib.a").Message(),
            std::string("error 1013: failed to open file specified(lib.a). \nSystem Error: ") + strerror(2));
}

TEST(LastErrorRecord, AllocationAndIndexFailuresAreRecordedNotThrown) {
  C_Exception record;
  EXPECT_EQ(GuardAllocation(record, []() -> HRESULT { throw std::bad_alloc(); }), E_OUTOFMEMORY);
  EXPECT_EQ(record.Code(), E_OUTOFMEMORY);
  EXPECT_EQ(record.Message(), "error 1020: internal Exception - Out of memory. ");
  EXPECT_EQ(GuardAllocation(record, [] { return HRESULT(std::vector<int>().at(3)); }), KE_OUT_OF_RANGE);
  EXPECT_EQ(record.Code(), static_cast<HRESULT>(0x800403F1));
  EXPECT_EQ(record.Message(), "error 1009: internal exception - Out of range(%s). ");
  EXPECT_EQ(GuardAllocation(record, [] { return S_FALSE; }), S_FALSE);
}
