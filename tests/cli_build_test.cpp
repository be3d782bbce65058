// kofd build, run as a user runs it: a dump with contents builds back the object byte for byte,
// a hand-written document builds the sections and symbols it names, and a document that cannot be
// built is refused with its JSON path and leaves the output as it was.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cli_run.h"
#include "edit/object_image.h"
#include "kelf_writer.h"

namespace {

using kelf_test::Bytes;
using Json = nlohmann::json;
using kelf_test::MakeSection;

const std::string kSample = std::string(KOFD_EXAMPLES_DIR) + "/sample.o";
const std::string kHello = std::string(KOFD_EXAMPLES_DIR) + "/hello.json";

// Symbols, expressions and a relocation table, and 4 bytes after .text that only a gap holds.
kelf_test::ObjectBuilder GappedObject() {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const std::uint32_t main = names.Add("main");
  kelf_test::ObjectBuilder builder(kelf_test::ObjectOptions{true, true, true});
  kelf_test::Section text = MakeSection(".text", kelf_test::kShtPrgbit, kelf_test::Words({0x11111111, 0x22222222, 0xDEADBEEF}));
  text.size = 8;
  text.addralign = 4;
  builder.AddSection(text);
  builder.AddSection(MakeSection(".symtab", kelf_test::kShtSymtab,
                                 kelf_test::Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0),
                                                  kelf_test::Sym(main, 4, 4, kelf_test::kStbGlobal, kelf_test::kSttFunction, 7, 1)}),
                                 3, 1));
  builder.AddSection(MakeSection(".symstrtab", kelf_test::kShtStrtab, names.Data()));
  builder.AddSection(MakeSection(".expr", kelf_test::kShtExpr, kelf_test::Join({kelf_test::Exp(13, 1), kelf_test::Exp(1, 0)}), 2));
  builder.AddSection(MakeSection(".relxeb", kelf_test::kShtRelxeb, kelf_test::Relxeb(1, 1, 0, 0, 31, 0, 1), 4, 1));
  return builder;
}

Json DumpJson(const TempDir& dir, const std::string& sObject) {
  const Outcome dump = Kofd(dir, "dump --json --contents " + Quoted(sObject));
  EXPECT_EQ(dump.status, 0) << dump.err;
  return Json::parse(dump.out);
}

TEST(CliBuild, ADumpWithContentsBuildsBackTheSameBytes) {
  TempDir dir;
  kelf_test::ObjectBuilder big = GappedObject();
  big.BigEndian();
  big.Header().chip = 0x01020304;
  kelf_test::ObjectBuilder segments = GappedObject();
  segments.AddProgramHeader({1, 0x40, 0, 0, 8, 8, 5, 4});
  segments.Header().reserved = 0xBEEF;
  std::vector<std::string> objects{kSample};
  int n = 0;
  for (const kelf_test::ObjectBuilder& builder : {GappedObject(), big, segments}) {
    objects.push_back(dir.Path("in" + std::to_string(n++) + ".o"));
    builder.WriteFile(objects.back());
  }
  // A tail no header names is a gap too.
  objects.push_back(dir.Write("tail.o", TempDir::Read(objects[1]) + "trailing"));
  for (const std::string& sObject : objects) {
    const std::string sJson = dir.Write("dump.json", DumpJson(dir, sObject).dump());
    const Outcome run = Kofd(dir, "build " + Quoted(sJson) + " -o " + Quoted(dir.Path("out.o")) + " --json");
    ASSERT_EQ(run.status, 0) << sObject << ": " << run.err;
    EXPECT_EQ(TempDir::Read(dir.Path("out.o")), TempDir::Read(sObject)) << sObject;
    const Json result = Json::parse(run.out);
    EXPECT_EQ(result["command"], "build");
    EXPECT_EQ(result["layout"], "exact");
    EXPECT_EQ(result["size"], TempDir::Read(sObject).size()) << sObject;
  }
  // The gapped object's dump does hold a gap, and the big-endian one says so in its header.
  EXPECT_FALSE(DumpJson(dir, objects[1])["object"]["gaps"].empty());
  EXPECT_EQ(DumpJson(dir, objects[2])["object"]["header"]["data"]["value"], 2);
}

TEST(CliBuild, AHandWrittenDocumentBuildsItsSectionsAndSymbols) {
  TempDir dir;
  const Outcome run = Kofd(dir, "build " + Quoted(kHello) + " -o " + Quoted(dir.Path("hello.o")));
  ASSERT_EQ(run.status, 0) << run.err;
  const Json object = DumpJson(dir, dir.Path("hello.o"))["object"];
  const Json& sections = object["sections"];
  ASSERT_EQ(sections.size(), 7u);
  const char* names[] = {"", ".text", ".data", ".bss", ".shstrtab", ".symstrtab", ".symtab"};
  for (std::size_t i = 0; i < 7; ++i) EXPECT_EQ(sections[i]["name"], names[i]) << i;
  EXPECT_EQ(sections[1]["contents"], "48656c6c6f2c204b454c462100000000");
  EXPECT_EQ(sections[2]["address"], 4096);
  EXPECT_EQ(sections[3]["type"]["value"], 8);
  EXPECT_EQ(sections[3]["size"], 64);
  EXPECT_EQ(sections[6]["link"], 5);
  EXPECT_EQ(object["header"]["shstrndx"], 4);
  const Json& symbols = object["symbols"];
  ASSERT_EQ(symbols.size(), 5u);
  // The local file symbol comes first; sh_info counts the locals.
  EXPECT_EQ(symbols[1]["name"], "hello.c");
  EXPECT_EQ(symbols[1]["section"], 0xFFF1);
  EXPECT_EQ(sections[6]["info"], 2);
  EXPECT_EQ(symbols[2]["name"], "main");
  EXPECT_EQ(symbols[2]["size"], 16);
  EXPECT_EQ(symbols[2]["type"]["value"], 2);
  EXPECT_EQ(symbols[2]["section"], 1);
  EXPECT_EQ(symbols[3]["section"], 2);
  EXPECT_EQ(symbols[4]["section"], 3);
  // What was built from text builds back from its dump byte for byte.
  const std::string sDump = dir.Write("hello_dump.json", DumpJson(dir, dir.Path("hello.o")).dump());
  ASSERT_EQ(Kofd(dir, "build " + Quoted(sDump) + " -o " + Quoted(dir.Path("again.o"))).status, 0);
  EXPECT_EQ(TempDir::Read(dir.Path("again.o")), TempDir::Read(dir.Path("hello.o")));

  // A given null section, links named forward, info naming a section where the type says so.
  dir.Write("links.json", R"({"object": {"header": {"chip": 7, "type": {"value": 1, "name": "RELOCATABLE"}, "data": 2},
    "sections": [{"type": 0}, {"name": ".rel", "type": 22, "link": 3, "info": 2},
                 {"name": ".code", "type": 1, "contents": "00ff"}, {"name": ".expr", "type": 18},
                 {"name": "?", "name_hex": "2e78ff", "type": 1}],
    "symbols": [{"name": "g", "section": ".CODE"}]}})");
  ASSERT_EQ(Kofd(dir, "build " + Quoted(dir.Path("links.json")) + " -o " + Quoted(dir.Path("links.o"))).status, 0);
  const Json links = DumpJson(dir, dir.Path("links.o"))["object"];
  EXPECT_EQ(links["header"]["data"]["value"], 2);
  EXPECT_EQ(links["header"]["chip"]["value"], 7);
  EXPECT_EQ(links["sections"][1]["link"], 3);
  EXPECT_EQ(links["sections"][1]["info"], 2);
  EXPECT_EQ(links["sections"][2]["contents"], "00ff");
  ASSERT_EQ(links["sections"].size(), 8u);
  EXPECT_EQ(links["sections"][4]["name_hex"], "2e78ff");
  ASSERT_EQ(links["symbols"].size(), 2u);
  EXPECT_EQ(links["symbols"][1]["section"], 2);

  // A local symbol goes before the first global one, whatever the order given.
  dir.Write("order.json", R"({"object": {"header": {"chip": 7, "type": 1}, "sections": [{"name": ".code", "type": 1}],
    "symbols": [{"name": "g", "section": "1"}, {"name": "l", "bind": {"value": 0, "name": "Local"}, "section": ".CODE"}]}})");
  ASSERT_EQ(Kofd(dir, "build " + Quoted(dir.Path("order.json")) + " -o " + Quoted(dir.Path("order.o"))).status, 0);
  const Json order = DumpJson(dir, dir.Path("order.o"))["object"];
  ASSERT_EQ(order["symbols"].size(), 3u);
  EXPECT_EQ(order["symbols"][1]["name"], "l");
  EXPECT_EQ(order["symbols"][1]["section"], 1);
  EXPECT_EQ(order["symbols"][2]["name"], "g");
  EXPECT_EQ(order["sections"][4]["info"], 2);
}

TEST(CliBuild, ADocumentThatCannotBeBuiltIsRefusedByItsPathAndWritesNothing) {
  TempDir dir;
  const Json sample = DumpJson(dir, kSample);
  const auto exact = [&](const std::function<void(Json&)>& change) {
    Json document = sample;
    change(document["object"]);
    return document.dump();
  };
  const std::string kFresh = R"({"object": {"header": {"chip": 1, "type": 1}, "sections": [)";
  struct Case {
    std::string sDocument, sWords;
  };
  const Case cases[] = {
      {"{\"schema\": \"kofd/2\", \"object\": {}}", "schema: \"kofd/2\" is not \"kofd/1\""},
      {R"({"schema": "kofd/1", "command": "dump", "kind": "archive", "archive": {}})", "object: missing"},
      {"{\"object\": ", "not a JSON document"},
      {kFresh + R"({"name": ".text", "type": 1, "contents": "123"}]}})", "object.sections[0].contents: odd number of hex digits"},
      {kFresh + R"({"name": ".text", "type": 1, "contents": "12zz"}]}})", "object.sections[0].contents: character 2 is no hex digit"},
      {kFresh + R"({"name": ".text", "type": 1, "link": 9}]}})", "object.sections[0].link: no section 9, the document gives 2"},
      {kFresh + R"({"name": ".text", "type": 1}, {"name": ".TEXT", "type": 1}]}})", "object.sections[1]: section 1 (.text) has the name .TEXT"},
      {kFresh + R"({"name": ".text", "type": -1}]}})", "object.sections[0].type: not an unsigned whole number"},
      {kFresh + R"({"name": ".text", "type": 1, "align": 4294967296}]}})", "object.sections[0].align: 4294967296 is past 4294967295"},
      {kFresh + R"({"type": 1}]}})", "object.sections[0].name: missing"},
      {R"({"object": {"header": {"chip": 1, "type": 1}, "symbols": [{"name": "x", "section": ".nowhere"}]}})",
       "object.symbols[0].section: no section named .nowhere"},
      {R"({"object": {"header": {"chip": 1, "type": 1}, "symbols": [{"name": "x"}, {"name": "y"}, {"name": "x"}]}})",
       "object.symbols[2].name: x is the name of symbols[0] already"},
      {kFresh + R"({"name": ".e", "type": 18, "contents": "00"}]}})", "object.sections[0]: section .e of type 18 needs a multiple of 8 bytes, not 1"},
      {kFresh + R"({"name": ".e", "type": 18, "contents": "0100000002000000"}], "symbols": [{"name": "g"}, {"name": "l", "bind": "local"}]}})",
       "object.symbols: cannot add local symbol l: section 1 (.e) holds records"},
      {exact([](Json& o) { o["sections"][1]["offset"] = 4294967290u; }), "object.sections[1].offset: offset 4294967290 and 1280 bytes end past 4 GiB"},
      {exact([](Json& o) { o["gaps"] = Json::array(); o["sections"][1]["offset"] = 100000; }),
       "object.sections[2].offset: bytes 88 to 1368 of the file are given by nothing"},
      {exact([](Json& o) { o["sections"][2]["contents"] = "00"; }), "object.sections[2].contents: 1 bytes, but size is 128"},
      {exact([](Json& o) { o["sections"][2].erase("contents"); }), "object.sections[2].contents: missing"},
      {exact([](Json& o) { o["header"]["shnum"] = 3; }), "object.sections: 16 given, but header.shnum is 3"},
      {exact([](Json& o) {
         o["sections"][1]["size"] = 1288;
         o["sections"][1]["contents"] = o["sections"][1]["contents"].get<std::string>() + "0000000000000000";
       }),
       "section 2 (.data) would overlap section 1 (.text)"},
  };
  for (const Case& c : cases) {
    const std::string sJson = dir.Write("bad.json", c.sDocument);
    const std::string sOut = dir.Write("out.o", "kept");
    const Outcome run = Kofd(dir, "build " + Quoted(sJson) + " -o " + Quoted(sOut) + " --json");
    EXPECT_EQ(run.status, 1) << c.sWords;
    EXPECT_NE(run.err.find(c.sWords), std::string::npos) << run.err;
    EXPECT_EQ(run.err.rfind("kofd: " + sJson + ": ", 0), 0u) << run.err;
    EXPECT_EQ(run.out, "") << c.sWords;
    EXPECT_EQ(TempDir::Read(sOut), "kept") << c.sWords;
  }
}

}  // namespace

namespace {

// The image read from bytes in memory refuses bytes that do not hold what the header places.
TEST(ImageFromBytes, RefusesAHeaderOrTableOutsideTheBytes) {
  EXPECT_THROW(C_ObjectImage(std::vector<BYTE>(40)), C_Exception);
  kelf_test::ObjectBuilder builder = GappedObject();
  const Bytes bytes = builder.Build();
  const std::vector<BYTE> whole(bytes.begin(), bytes.end());
  C_ObjectImage image{std::vector<BYTE>(whole)};
  EXPECT_EQ(image.Sections().size(), builder.SectionCount());
  EXPECT_EQ(image.Sections()[1]->m_Name.m_sText, ".text");
  EXPECT_EQ(image.SymbolTable(), image.Sections()[2].get());
  // Cut inside the section header table (the last part Build lays out).
  EXPECT_THROW(C_ObjectImage(std::vector<BYTE>(whole.begin(), whole.end() - 1)), C_Exception);
}

}  // namespace
