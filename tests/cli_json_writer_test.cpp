// The tool's JSON writer: what it writes must parse as the one document the commands meant, with
// every byte of a name kept, however large the document grows past the writer's block.
#include <cstdio>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "json_writer.h"

namespace {

// Runs write on a writer over a temporary file; the text it made, and whether Finish succeeded.
template <class Write>
std::string Written(Write&& write, bool bLines = false) {
  std::FILE* pFile = std::tmpfile();
  {
    cli::C_JsonWriter json(pFile, bLines);
    write(json);
    EXPECT_TRUE(json.Finish());
  }
  std::string sText;
  std::rewind(pFile);
  for (int ch; (ch = std::fgetc(pFile)) != EOF;) sText += static_cast<char>(ch);
  std::fclose(pFile);
  return sText;
}

TEST(CliJsonWriter, NestsValuesWithCommasAndKeepsNumbersExact) {
  const std::string sText = Written([](cli::C_JsonWriter& json) {
    json.BeginDocument("info");
    json.Key("empty").BeginArray();
    json.EndArray();
    json.Key("list").BeginArray();
    json.Number(std::numeric_limits<std::uint64_t>::max());
    json.SignedNumber(std::numeric_limits<std::int64_t>::min());
    json.BeginObject();
    json.Key("type").Named(2, "Symtab");
    json.Key("none").Null();
    json.EndObject();
    json.Bool(false);
    json.EndArray();
    json.EndObject();
  });
  EXPECT_EQ(sText,
            "{\"schema\":\"kofd/1\",\"command\":\"info\",\"empty\":[],\"list\":[18446744073709551615,-9223372036854775808,"
            "{\"type\":{\"value\":2,\"name\":\"Symtab\"},\"none\":null},false]}");
  // Lines mode: each top-level value on its own line, nested ones not.
  EXPECT_EQ(Written([](cli::C_JsonWriter& json) {
              json.Number(1);
              json.BeginArray();
              json.Number(2);
              json.Number(3);
              json.EndArray();
            }, true),
            "1\n[2,3]\n");
}

TEST(CliJsonWriter, EscapesControlsAndKeepsTheBytesOfInvalidNames) {
  const std::string sText = Written([](cli::C_JsonWriter& json) {
    json.BeginObject();
    json.Name("valid", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80");
    json.Name("controls", std::string("q\"b\\\n\t\x01\x7F\xC2\x85\xC2\x9F\xC2\xA0", 14));
    // A stray byte, an overlong slash, a surrogate and a sequence cut off at the end.
    json.Name("invalid", "a\xFF" "b\xC0\xAF" "c\xED\xA0\x80" "d\xE2\x82");
    json.EndObject();
  });
  EXPECT_EQ(sText,
            "{\"valid\":\"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80\","
            "\"controls\":\"q\\\"b\\\\\\n\\t\\u0001\\u007f\\u0085\\u009f\xC2\xA0\","
            "\"invalid\":\"a\\u00ffb\\u00c0\\u00afc\\u00ed\\u00a0\\u0080d\\u00e2\\u0082\","
            "\"invalid_hex\":\"61ff62c0af63eda08064e282\"}");
  const nlohmann::json parsed = nlohmann::json::parse(sText);
  EXPECT_EQ(parsed.size(), 4u);
}

TEST(CliJsonWriter, WritesDocumentsLargerThanItsBlockInOrderAndReportsAFailedStream) {
  const std::string sLong(3u << 20, 'x');
  const std::string sText = Written([&](cli::C_JsonWriter& json) {
    json.BeginArray();
    for (int i = 0; i < 200000; ++i) json.Number(static_cast<std::uint64_t>(i));
    json.String(sLong);
    json.Number(7);
    json.EndArray();
  });
  const nlohmann::json parsed = nlohmann::json::parse(sText);
  ASSERT_EQ(parsed.size(), 200002u);
  EXPECT_EQ(parsed[199999], 199999);
  EXPECT_EQ(parsed[200000].get<std::string>().size(), sLong.size());
  EXPECT_EQ(parsed[200001], 7);

  std::FILE* pReadOnly = std::fopen("/dev/null", "r");
  ASSERT_NE(pReadOnly, nullptr);
  cli::C_JsonWriter json(pReadOnly);
  json.Number(1);
  EXPECT_FALSE(json.Finish());
  std::fclose(pReadOnly);
}

}  // namespace
