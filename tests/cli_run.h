// Runs the built kofd tool as a user runs it: output, error text and exit status.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "frame_temp_dir.h"

struct Outcome {
  int status;
  std::string out, err;
};

inline std::string Quoted(const std::string& sArgument) {
  std::string quoted = "'";
  for (char ch : sArgument) quoted += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
  return quoted + "'";
}

inline Outcome Kofd(const TempDir& dir, const std::string& sArguments) {
  const std::string sOut = dir.Path("stdout"), sErr = dir.Path("stderr");
  const int raw = std::system((Quoted(KOFD_CLI_PATH) + " " + sArguments + " >" + Quoted(sOut) + " 2>" + Quoted(sErr)).c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, TempDir::Read(sOut), TempDir::Read(sErr)};
}
