// The unknown object: a file, or a region of one, held as raw bytes.
#include <gtest/gtest.h>

#include <string>

#include "archive/unknown_object.h"
#include "frame_temp_dir.h"

TEST(UnknownObject, LoadsTheWholeFileOrARegionOnceAndNeverSaves) {
  TempDir dir;
  const std::string sPath = dir.Write("raw.bin", "0123456789abcdefXYZ");
  C_UnknownObject whole;
  whole.AttachPath(sPath.c_str(), 0);
  ASSERT_EQ(whole.Load(), S_OK);
  EXPECT_EQ(whole.GetHandle(), nullptr);
  EXPECT_EQ(whole.GetRegionSize(), 19u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(whole.GetData()), 19), "0123456789abcdefXYZ");
  // Loading again reads nothing: the file may be gone.
  dir.Write("raw.bin", "");
  EXPECT_EQ(whole.Load(), S_OK);
  EXPECT_EQ(whole.GetData()[18], 'Z');
  EXPECT_EQ(whole.Save(), E_FAIL);

  C_UnknownObject region;
  region.Attach(dir.Write("raw2.bin", "0123456789").c_str(), "raw2.bin", 0, 0, 0);
  region.SetRegion(4, 3);
  ASSERT_EQ(region.Open(1), S_OK);
  EXPECT_EQ(region.Open(1), S_FALSE);
  ASSERT_EQ(region.Load(), S_OK);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(region.GetData()), 3), "456");

  C_UnknownObject past;
  past.Attach(dir.Path("raw2.bin").c_str(), "raw2.bin", 0, 0, 0);
  past.SetRegion(8, 3);
  C_Exception error;
  try {
    past.Load();
    ADD_FAILURE() << "a region past the end was loaded";
  } catch (const C_Exception& thrown) {
    error = thrown;
  }
  EXPECT_EQ(error.Message().rfind("error 1016: failed to read from file specified(When read unsigned char). ", 0), 0u);
  EXPECT_EQ(past.GetData(), nullptr);
  EXPECT_EQ(past.GetHandle(), nullptr);
  C_UnknownObject missing;
  missing.Attach(dir.Path("missing").c_str(), "missing", 0, 0, 0);
  EXPECT_EQ(missing.Load(), KE_OPEN_FAILED);
  EXPECT_EQ(missing.Open(0), S_OK);
}
