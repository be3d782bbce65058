// The end of a command's JSON document: a stream that could not take it is the command's failure.
#pragma once

#include <string>

#include "json_writer.h"
#include "report.h"

namespace cli {

// The help text of a command's --json flag, naming its schema file.
inline std::string JsonHelp(const std::string& sSchema) {
  return "Write one JSON document (schema kofd/1, docs/schema/kofd-" + sSchema + ".schema.json) instead of text";
}

// Writes out what the writer holds; 0, or 1 reported against sFile when the output failed.
inline int FinishJson(C_JsonWriter& json, const std::string& sFile, int status = 0) {
  return json.Finish() ? status : ReportFailure(sFile, "standard output cannot be written");
}

}  // namespace cli
