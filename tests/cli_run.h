// Runs the built kofd tool as a user runs it, capturing its output, error text and exit status.
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

// Runs a shell command, capturing what it writes; the status is -1 when the command was killed.
inline Outcome RunShell(const TempDir& dir, const std::string& sCommand) {
  const std::string sOut = dir.Path("stdout"), sErr = dir.Path("stderr");
  const int raw = std::system(("{ " + sCommand + "; } >" + Quoted(sOut) + " 2>" + Quoted(sErr)).c_str());
  const int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return {status > 128 ? -1 : status, TempDir::Read(sOut), TempDir::Read(sErr)};
}

// sPrefix is shell text run before the tool in the same shell (a directory, limits, traps).
inline Outcome Kofd(const TempDir& dir, const std::string& sArguments, const std::string& sPrefix = "") {
  return RunShell(dir, sPrefix + Quoted(KOFD_CLI_PATH) + " " + sArguments);
}
