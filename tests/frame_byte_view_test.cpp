// C_ByteView: every read of file bytes is checked against the view, whatever the offsets say.
#include <gtest/gtest.h>

#include "frame/byte_view.h"

TEST(ByteView, RefusesRangesThatWrapOrPassTheEnd) {
  const BYTE bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const C_ByteView view(bytes, sizeof bytes);
  EXPECT_TRUE(view.Holds(4, 4));
  EXPECT_FALSE(view.Holds(4, 5));
  // offset + size wraps to 4 in 32 bits.
  EXPECT_FALSE(view.Holds(0xFFFFFFFCu, 8));
  EXPECT_FALSE(view.Slice(0xFFFFFFFFu, 2).IsValid());
  EXPECT_FALSE(view.Rest(9).IsValid());
  const C_ByteView end = view.Slice(8, 0);
  EXPECT_TRUE(end.IsValid());
  EXPECT_EQ(end.Size(), 0u);
  DWORD dwValue = 0xDEADBEEF;
  EXPECT_FALSE(view.Read(5, &dwValue));
  EXPECT_EQ(dwValue, 0xDEADBEEFu);
  EXPECT_FALSE(C_ByteView().Holds(0, 0));
}

TEST(ByteView, ChecksCountsByDivision) {
  const BYTE bytes[8] = {};
  const C_ByteView view(bytes, sizeof bytes);
  EXPECT_TRUE(view.HoldsEntries(0, 2, 4));
  EXPECT_FALSE(view.HoldsEntries(0, 3, 4));
  // 0x40000001 x 4 wraps to 4, which would fit.
  EXPECT_FALSE(view.HoldsEntries(4, 0x40000001u, 4));
  EXPECT_FALSE(view.HoldsEntries(9, 0, 4));
}

TEST(ByteView, ReadsEitherByteOrderAtAnyAlignment) {
  const BYTE bytes[5] = {0, 0x12, 0x34, 0x56, 0x78};
  const C_ByteView little(bytes, sizeof bytes);
  const C_ByteView big(bytes, sizeof bytes, true);
  DWORD dwValue = 0;
  ASSERT_TRUE(little.Read(1, &dwValue));
  EXPECT_EQ(dwValue, 0x78563412u);
  ASSERT_TRUE(big.Read(1, &dwValue));
  EXPECT_EQ(dwValue, 0x12345678u);
  WORD wValue = 0;
  ASSERT_TRUE(big.Slice(3, 2).Read(0, &wValue));
  EXPECT_EQ(wValue, 0x5678u);
  // A word cut short by the end reads its missing bytes as zero.
  EXPECT_EQ(little.ReadZeroExtended<DWORD>(3), 0x7856u);
  EXPECT_EQ(big.ReadZeroExtended<DWORD>(3), 0x56780000u);
  EXPECT_EQ(little.ReadZeroExtended<DWORD>(5), 0u);
}

TEST(ByteView, FindsAStringOnlyWhenItsNulLiesInside) {
  const char text[] = "ab\0cd";
  // The NUL behind "cd" lies outside a view of five bytes.
  const C_ByteView view(reinterpret_cast<const BYTE*>(text), 5);
  EXPECT_STREQ(view.CString(0), "ab");
  EXPECT_STREQ(view.CString(2), "");
  EXPECT_EQ(view.CString(3), nullptr);
  EXPECT_EQ(view.CString(5), nullptr);
  // An empty block is still a block, with its zero padding.
  const C_Block block(0);
  ASSERT_FALSE(block.IsEmpty());
  EXPECT_TRUE(block.View().IsValid());
  for (DWORD i = 0; i < kBlockPadding; ++i) EXPECT_EQ(block.Data()[i], 0);
}
