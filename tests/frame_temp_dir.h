// A directory of the test's own, removed when the test ends, and files written into it byte
// for byte.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

class TempDir {
 public:
  TempDir() {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    m_path = std::filesystem::path(::testing::TempDir()) / ("kofd_" + std::string(info->test_suite_name()) + "_" +
                                                           info->name() + "_" + std::to_string(::getpid()));
    std::filesystem::create_directories(m_path);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  std::string Path(const std::string& name) const { return (m_path / name).string(); }

  // Writes bytes to name, creating its directories, and returns the full path.
  std::string Write(const std::string& name, const std::string& bytes) const {
    std::filesystem::create_directories((m_path / name).parent_path());
    std::ofstream(m_path / name, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
    return Path(name);
  }

  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

 private:
  std::filesystem::path m_path;
};
