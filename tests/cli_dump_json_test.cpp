// kofd dump --json: one document that a JSON parser reads, names kept to the byte, and with
// --contents every byte of the object in exactly one place; a failure writes no document.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

#include "cli_run.h"
#include "kelf_writer.h"

namespace {

using kelf_test::Bytes;
using kelf_test::MakeSection;
using nlohmann::json;

std::vector<std::uint8_t> FromHex(const std::string& sHex) {
  std::vector<std::uint8_t> vBytes;
  for (std::size_t i = 0; i + 1 < sHex.size(); i += 2) vBytes.push_back(static_cast<std::uint8_t>(std::stoul(sHex.substr(i, 2), nullptr, 16)));
  return vBytes;
}

// Writes vPart at qwAt into vFile, failing when a byte is written twice.
void Place(std::vector<std::uint8_t>& vFile, std::vector<bool>& vHeld, std::uint64_t qwAt, const std::vector<std::uint8_t>& vPart) {
  for (std::size_t i = 0; i < vPart.size(); ++i) {
    ASSERT_LT(qwAt + i, vFile.size());
    EXPECT_FALSE(vHeld[qwAt + i]) << "byte " << qwAt + i << " is shown twice";
    vHeld[qwAt + i] = true;
    vFile[qwAt + i] = vPart[i];
  }
}

TEST(CliDumpJson, ContentsAndGapsHoldEveryByteOnceAndNamesKeepTheirBytes) {
  TempDir dir;
  kelf_test::ObjectBuilder builder;
  builder.BigEndian();
  kelf_test::Section text = MakeSection(".text", kelf_test::kShtPrgbit, kelf_test::Words({0x11223344, 0x55667788}, true));
  text.addralign = 16;  // padding before it is a gap
  builder.AddSection(text);
  builder.AddSection(MakeSection(std::string("bad\xff\x01name", 9), kelf_test::kShtPrgbit, Bytes{0xAA}));
  Bytes sFile = builder.Build();
  sFile.insert(sFile.end(), {'t', 'a', 'i', 'l'});  // bytes after the last part are a gap too
  kelf_test::WriteFile(dir.Path("in.o"), sFile);

  const Outcome outcome = Kofd(dir, "dump --json --contents " + Quoted(dir.Path("in.o")));
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const json document = json::parse(outcome.out);
  EXPECT_EQ(document.at("schema"), "kofd/1");
  const json& object = document.at("object");
  EXPECT_EQ(object.at("header").at("data").at("name"), "MSB");
  const json& bad = object.at("sections").at(2);
  EXPECT_EQ(bad.at("name").get<std::string>(), std::string("bad\xc3\xbf\x01name"));  // U+00FF stands for the stray byte
  EXPECT_EQ(bad.at("name_hex"), "626164ff016e616d65");

  // Header, both tables, the sections and the gaps give back the file, each byte once.
  std::vector<std::uint8_t> vFile(sFile.size()), vOriginal(sFile.begin(), sFile.end());
  std::vector<bool> vHeld(sFile.size());
  const json& header = object.at("header");
  Place(vFile, vHeld, 0, std::vector<std::uint8_t>(vOriginal.begin(), vOriginal.begin() + 56));
  const std::uint64_t qwSections = header.at("shoff").get<std::uint64_t>();
  Place(vFile, vHeld, qwSections, std::vector<std::uint8_t>(vOriginal.begin() + qwSections, vOriginal.begin() + qwSections + 40 * header.at("shnum").get<std::uint64_t>()));
  for (const json& section : object.at("sections")) {
    Place(vFile, vHeld, section.at("offset").get<std::uint64_t>(), FromHex(section.at("contents").get<std::string>()));
  }
  for (const json& gap : object.at("gaps")) {
    const auto vBytes = FromHex(gap.at("bytes").get<std::string>());
    EXPECT_EQ(vBytes.size(), gap.at("size").get<std::size_t>());
    Place(vFile, vHeld, gap.at("offset").get<std::uint64_t>(), vBytes);
  }
  EXPECT_EQ(vFile, vOriginal);
  EXPECT_EQ(std::count(vHeld.begin(), vHeld.end(), false), 0);
}

TEST(CliDumpJson, SelectorsChooseWhatIsShownAndFailuresWriteNoDocument) {
  TempDir dir;
  const std::string sSample = Quoted(std::string(KOFD_EXAMPLES_DIR) + "/sample.o");
  Outcome outcome = Kofd(dir, "dump --json --section .relxeb.text --file-header " + sSample);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  json object = json::parse(outcome.out).at("object");
  EXPECT_TRUE(object.contains("header"));
  EXPECT_FALSE(object.contains("program_headers"));
  EXPECT_FALSE(object.contains("symbols"));
  ASSERT_EQ(object.at("sections").size(), 1u);
  ASSERT_EQ(object.at("relocations").size(), 7u);
  EXPECT_EQ(object.at("relocations").at(0).at("expression"), "(led_toggle>>2)");
  EXPECT_EQ(object.at("relocations").at(0).at("value"), 0x38);

  // JSON Lines: the opening, then one item a line, in the document's order.
  outcome = Kofd(dir, "dump --json-lines " + sSample);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  std::vector<std::string> vKinds;
  std::size_t nAt = 0;
  for (std::size_t nEnd; (nEnd = outcome.out.find('\n', nAt)) != std::string::npos; nAt = nEnd + 1) {
    const json line = json::parse(outcome.out.substr(nAt, nEnd - nAt));
    vKinds.push_back(line.contains("record") ? line.at("record").get<std::string>() : line.at("schema").get<std::string>());
  }
  EXPECT_EQ(nAt, outcome.out.size()) << "the last line ends with a line feed";
  ASSERT_EQ(vKinds.size(), 1u + 1 + 1 + 16 + 15 + 7);
  EXPECT_EQ(vKinds[0], "kofd/1");
  EXPECT_EQ(vKinds[1], "header");
  EXPECT_EQ(vKinds[3], "section");
  EXPECT_EQ(vKinds[19], "symbol");
  EXPECT_EQ(vKinds.back(), "relocation");

  const std::string sArchive = Quoted(std::string(KOFD_EXAMPLES_DIR) + "/sample.a");
  outcome = Kofd(dir, "dump --json --member uart.o " + sArchive);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const json archive = json::parse(outcome.out).at("archive");
  EXPECT_FALSE(archive.contains("linker_member"));
  ASSERT_EQ(archive.at("members").size(), 1u);
  EXPECT_EQ(archive.at("members").at(0).at("name"), "uart.o");
  EXPECT_EQ(archive.at("members").at(0).at("index"), 1);

  for (const std::string& sArguments : {"dump --json --section 99 " + sSample, "dump --json --member nothing.o " + sArchive,
                                        "dump --json --contents " + sArchive, "dump --json-lines " + sArchive,
                                        "dump --json " + Quoted(dir.Path("missing.o"))}) {
    outcome = Kofd(dir, sArguments);
    EXPECT_EQ(outcome.status, 1) << sArguments;
    EXPECT_EQ(outcome.out, "") << sArguments;
    EXPECT_NE(outcome.err.find("kofd: "), std::string::npos) << sArguments;
  }
  EXPECT_EQ(Kofd(dir, "dump --contents " + sSample).status, 2);
}

}  // namespace
