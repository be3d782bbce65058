// Cross references and comparisons: kofd xref and kofd diff, through the library's analyses and as
// a user runs them. Each input is made here, one small object per finding.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "analyze/diff.h"
#include "analyze/xref.h"
#include "cli_run.h"
#include "edit/object_image.h"
#include "kelf_writer.h"
#include "object/kofd_elf.h"

namespace {

using kelf_test::Bytes;
using kelf_test::MakeSection;
using Json = nlohmann::json;

// What one object is made of; each test changes one thing.
struct Shape {
  std::uint32_t textAddress = 0;
  Bytes text = kelf_test::Words({0x11111111, 0x22222222});
  std::uint32_t mainValue = 4;
  std::string mainName = "main";
  bool externDefined = false;        // "ext" defined in .text instead of undefined
  std::uint32_t addend = 4;          // the NUM of main + addend
  bool extraSection = false;
  bool align4 = false;               // the same parts, laid out on 4-byte boundaries
  std::string unusedName = "unused"; // objects of one archive define globals of their own
  std::uint32_t extRunEnd = 3;       // past the expression table: a damaged run
};

// Symbols: main (global, .text), ext (global, undefined unless defined), unused (global),
// here (local). Expressions: main 4 + | ext | here. Relocations: main+4 at 0, ext at 4, main at 8.
kelf_test::ObjectBuilder Make(const Shape& shape) {
  kelf_test::StringTable names = kelf_test::StringTable::WithNul();
  const std::uint32_t main = names.Add(shape.mainName), ext = names.Add("ext"), unused = names.Add(shape.unusedName),
                      here = names.Add("here");
  kelf_test::ObjectBuilder builder(kelf_test::ObjectOptions{true, true, shape.align4});
  kelf_test::Section text = MakeSection(".text", kelf_test::kShtPrgbit, shape.text);
  text.addr = shape.textAddress;
  builder.AddSection(text);  // 1
  builder.AddSection(MakeSection(
      ".symtab", kelf_test::kShtSymtab,
      kelf_test::Join({kelf_test::Sym(0, 0, 0, 0, 0, 0, 0),
                       kelf_test::Sym(here, 0, 0, kelf_test::kStbLocal, kelf_test::kSttNoType, 0, 1),
                       kelf_test::Sym(main, shape.mainValue, 4, kelf_test::kStbGlobal, kelf_test::kSttFunction, 0, 1),
                       kelf_test::Sym(ext, 0, 0, kelf_test::kStbGlobal, kelf_test::kSttNoType, 0, shape.externDefined ? 1 : 0),
                       kelf_test::Sym(unused, 8, 0, kelf_test::kStbGlobal, kelf_test::kSttObject, 0, 1)}),
      3, 2));  // 2
  builder.AddSection(MakeSection(".symstrtab", kelf_test::kShtStrtab, names.Data()));  // 3
  builder.AddSection(MakeSection(".expr", kelf_test::kShtExpr,
                                 kelf_test::Join({kelf_test::Exp(13, 2), kelf_test::Exp(12, shape.addend), kelf_test::Exp(1, 0),
                                                  kelf_test::Exp(13, 3), kelf_test::Exp(13, 1)}),
                                 2));  // 4
  builder.AddSection(MakeSection(".relxeb", kelf_test::kShtRelxeb,
                                 kelf_test::Join({kelf_test::Relxeb(0, 2, 0, 0, 31, 0, 2), kelf_test::Relxeb(4, 3, 0, 0, 31, 3, shape.extRunEnd),
                                                  kelf_test::Relxeb(8, 2, 0, 0, 31, 0, 0)}),
                                 4, 1));  // 5
  if (shape.extraSection) builder.AddSection(MakeSection(".extra", kelf_test::kShtPrgbit, kelf_test::Words({7})));
  return builder;
}

// An object written and opened, as the commands open it.
struct Opened {
  Opened(const TempDir& dir, const std::string& sName, const Shape& shape) {
    path = dir.Path(sName);
    Make(shape).WriteFile(path);
    bytes = ReadFileBytes(path.c_str());
    document = std::make_unique<C_KOfdELF4>();
    document->AttachPath(path.c_str(), 0);
    EXPECT_EQ(document->Read(), S_OK);
    object.pDocument = document.get();
    object.bytes = C_ByteView(bytes.data(), static_cast<DWORD>(bytes.size()));
  }
  std::string path;
  std::vector<BYTE> bytes;
  std::unique_ptr<C_KOfdELF4> document;
  kofd_analyze::AnalyzedObject object;
};

TEST(Xref, ReferencesUndefinedAndUnreferencedSymbols) {
  TempDir dir;
  Opened plain(dir, "plain.o", Shape{});
  const std::vector<kofd_analyze::AnalyzedObject> one{plain.object};

  const auto mains = kofd_analyze::FindReferences(one, "main");
  ASSERT_EQ(mains.size(), 2u);
  EXPECT_EQ(mains[0].dwRecord, 0u);
  EXPECT_EQ(mains[0].sSection, ".relxeb");
  EXPECT_EQ(mains[0].dwSection, 5u);
  EXPECT_EQ(mains[0].sExpression, "(main + 4)");
  EXPECT_TRUE(mains[0].bValue);
  EXPECT_EQ(mains[0].dwValue, 8u);
  EXPECT_EQ(mains[1].dwRecord, 2u);
  EXPECT_EQ(mains[1].dwOffset, 8u);
  ASSERT_EQ(kofd_analyze::FindReferences(one, "ext").size(), 1u);
  EXPECT_TRUE(kofd_analyze::FindReferences(one, "MAIN").empty());    // letter case counts
  EXPECT_TRUE(kofd_analyze::FindReferences(one, "here").empty());    // named by a token no run reaches
  EXPECT_TRUE(kofd_analyze::FindReferences(one, "unused").empty());

  const auto undefined = kofd_analyze::FindUndefined(one);
  ASSERT_EQ(undefined.size(), 1u);
  EXPECT_EQ(undefined[0].sName, "ext");
  const auto unreferenced = kofd_analyze::FindUnreferenced(one);
  ASSERT_EQ(unreferenced.size(), 1u);  // "here" is local; main and ext are named
  EXPECT_EQ(unreferenced[0].sName, "unused");

  // Another object that defines ext resolves it.
  Shape defines;
  defines.externDefined = true;
  defines.mainName = "other";
  Opened second(dir, "defines.o", defines);
  EXPECT_TRUE(kofd_analyze::FindUndefined({plain.object, second.object}).empty());

  // A run past the expression table names nothing, and its record is shown as failing to evaluate.
  Shape damaged;
  damaged.extRunEnd = 99;
  Opened broken(dir, "broken.o", damaged);
  EXPECT_TRUE(kofd_analyze::FindReferences({broken.object}, "ext").empty());
  EXPECT_EQ(kofd_analyze::FindReferences({broken.object}, "main").size(), 2u);
  const auto differences = kofd_analyze::DiffObjects(plain.object, broken.object, kofd_analyze::DiffOptions{});
  ASSERT_EQ(differences.size(), 2u);
  EXPECT_EQ(differences[0].sField, "value");
  EXPECT_TRUE(differences[0].b.bText);
  EXPECT_EQ(differences[0].b.sText.rfind("error 0x", 0), 0u);
  EXPECT_EQ(differences[1].sField, "expression");
  EXPECT_FALSE(differences[1].b.bPresent);
}

TEST(Xref, TheCommandListsReferencesAndExitsAsGrepDoes) {
  TempDir dir;
  const std::string sObject = dir.Path("x.o");
  Make(Shape{}).WriteFile(sObject);
  Outcome found = Kofd(dir, "xref " + Quoted(sObject) + " main");
  EXPECT_EQ(found.status, 0) << found.err;
  EXPECT_EQ(found.out, "5 .relxeb\t0\t00000000\t(main + 4)\n5 .relxeb\t2\t00000008\tmain\n");
  EXPECT_EQ(Kofd(dir, "xref " + Quoted(sObject) + " nobody").status, 1);
  Outcome undefined = Kofd(dir, "xref " + Quoted(sObject) + " --undefined --json");
  EXPECT_EQ(undefined.status, 1);
  EXPECT_EQ(Json::parse(undefined.out)["undefined"][0]["name"], "ext");
  Outcome unreferenced = Kofd(dir, "xref " + Quoted(sObject) + " --unreferenced");
  EXPECT_EQ(unreferenced.status, 1);
  EXPECT_EQ(unreferenced.out, "unused\n");
  EXPECT_EQ(Kofd(dir, "xref " + Quoted(sObject) + " main --undefined").status, 2);
  EXPECT_EQ(Kofd(dir, "xref " + Quoted(dir.Path("missing.o")) + " main").status, 2);

  // In an archive: the member that defines ext resolves it; references name their member.
  Shape defines;
  defines.externDefined = true;
  defines.mainName = "other";
  defines.unusedName = "spare";
  Make(defines).WriteFile(dir.Path("y.o"));
  const std::string cd = "cd " + Quoted(dir.Path("")) + " && ";
  ASSERT_EQ(Kofd(dir, "ar lib.a create x.o y.o", cd).status, 0);
  Outcome members = Kofd(dir, "xref lib.a ext --json", cd);
  EXPECT_EQ(members.status, 0) << members.err;
  const Json refs = Json::parse(members.out)["references"];
  ASSERT_EQ(refs.size(), 2u);
  EXPECT_EQ(refs[0]["member"], "x.o");
  EXPECT_EQ(refs[1]["member"], "y.o");
  EXPECT_EQ(Kofd(dir, "xref lib.a --undefined", cd).status, 0);
}

// The fields each diff names for one change.
std::vector<std::string> Fields(const std::vector<kofd_analyze::Difference>& differences) {
  std::vector<std::string> fields;
  for (const auto& d : differences) {
    fields.push_back(std::string(kofd_analyze::PartName(d.part)) + " " + d.sName + " " +
                     (d.sField.empty() ? kofd_analyze::ChangeName(d.change) : d.sField) + (d.bLayout ? " layout" : ""));
  }
  return fields;
}

TEST(Diff, EachChangeIsTheDifferenceItMakes) {
  TempDir dir;
  Opened base(dir, "base.o", Shape{});
  const kofd_analyze::DiffOptions meaning;
  kofd_analyze::DiffOptions layout;
  layout.bLayout = true;
  EXPECT_TRUE(kofd_analyze::DiffObjects(base.object, base.object, layout).empty());

  using V = std::vector<std::string>;
  auto diff = [&](const Shape& shape, const kofd_analyze::DiffOptions& options) {
    Opened other(dir, "other.o", shape);
    return Fields(kofd_analyze::DiffObjects(base.object, other.object, options));
  };
  Shape s;
  s.textAddress = 0x100;
  EXPECT_EQ(diff(s, meaning), (V{"section .text address"}));
  s = Shape{};
  s.mainValue = 0;  // main's value and both values of the relocations naming it
  EXPECT_EQ(diff(s, meaning), (V{"symbol main value", "relocation .relxeb value", "relocation .relxeb value"}));
  s = Shape{};
  s.addend = 5;
  EXPECT_EQ(diff(s, meaning), (V{"relocation .relxeb value", "relocation .relxeb expression"}));
  s = Shape{};
  s.externDefined = true;
  EXPECT_EQ(diff(s, meaning), (V{"symbol ext section"}));
  s = Shape{};
  s.extraSection = true;  // the section and, with the layout, where the names and headers moved
  EXPECT_EQ(diff(s, meaning), (V{"section .extra added"}));
  s = Shape{};
  s.mainName = "start";
  EXPECT_EQ(diff(s, meaning), (V{"symbol main removed", "symbol start added", "relocation .relxeb expression",
                                 "relocation .relxeb expression"}));
  s = Shape{};
  s.text = kelf_test::Words({0x11111111, 0x22332222, 0x33333333});
  Opened changed(dir, "text.o", s);
  const auto ranges = kofd_analyze::DiffObjects(base.object, changed.object, meaning);
  ASSERT_EQ(ranges.size(), 3u);  // size, then [6, 7) and the new tail [8, 12)
  EXPECT_EQ(ranges[0].sField, "size");
  EXPECT_TRUE(ranges[1].bRange);
  EXPECT_EQ(ranges[1].dwFrom, 6u);
  EXPECT_EQ(ranges[1].dwTo, 7u);
  EXPECT_EQ(ranges[2].dwFrom, 8u);
  EXPECT_EQ(ranges[2].dwTo, 12u);

  // The same parts laid out otherwise: equal in meaning, different in layout.
  s = Shape{};
  s.align4 = true;
  EXPECT_TRUE(diff(s, meaning).empty());
  const V laidOut = diff(s, layout);
  ASSERT_FALSE(laidOut.empty());
  for (const std::string& field : laidOut) EXPECT_NE(field.find(" layout"), std::string::npos) << field;
}

TEST(Diff, TheCommandComparesObjectsAndArchives) {
  TempDir dir;
  const std::string cd = "cd " + Quoted(dir.Path("")) + " && ";
  Make(Shape{}).WriteFile(dir.Path("a.o"));
  Shape moved;
  moved.textAddress = 0x40;
  moved.mainName = "start";
  moved.unusedName = "spare";
  Make(moved).WriteFile(dir.Path("b.o"));
  EXPECT_EQ(Kofd(dir, "diff a.o a.o", cd).status, 0);
  Outcome changed = Kofd(dir, "diff a.o b.o", cd);
  EXPECT_EQ(changed.status, 1);
  EXPECT_EQ(changed.out,
            "section .text: address 0x0 -> 0x40\nsymbol main: removed\nsymbol unused: removed\nsymbol start: added\n"
            "symbol spare: added\nrelocation .relxeb at 0x0: expression \"(main + 4)\" -> \"(start + 4)\"\n"
            "relocation .relxeb at 0x8: expression \"main\" -> \"start\"\n");
  Outcome json = Kofd(dir, "diff a.o b.o --json", cd);
  EXPECT_EQ(json.status, 1);
  const Json document = Json::parse(json.out);
  EXPECT_EQ(document["equal"], false);
  EXPECT_EQ(document["differences"][0]["b"], 0x40);
  // Laid out afresh: the same object, but not the same layout.
  const std::string sSample = Quoted(std::string(KOFD_EXAMPLES_DIR) + "/sample.o");
  ASSERT_EQ(Kofd(dir, "edit " + sSample + " --compact -o c.o", cd).status, 0);
  EXPECT_EQ(Kofd(dir, "diff " + sSample + " c.o", cd).status, 0);
  Outcome layout = Kofd(dir, "diff " + sSample + " c.o --layout", cd);
  EXPECT_EQ(layout.status, 1);
  EXPECT_NE(layout.out.find("header: shoff "), std::string::npos) << layout.out;
  EXPECT_EQ(Kofd(dir, "diff a.o missing.o", cd).status, 2);

  ASSERT_EQ(Kofd(dir, "ar one.a create a.o", cd).status, 0);
  ASSERT_EQ(Kofd(dir, "ar two.a create a.o b.o", cd).status, 0);
  EXPECT_EQ(Kofd(dir, "diff one.a one.a", cd).status, 0);
  Outcome added = Kofd(dir, "diff one.a two.a", cd);
  EXPECT_EQ(added.status, 1);
  EXPECT_EQ(added.out, "member b.o: added\n");
  EXPECT_EQ(Kofd(dir, "diff one.a a.o", cd).status, 2);  // an archive and an object
}

// One edit of examples/sample.o at a time, and the lines diff shows for it.
TEST(Diff, EachEditOfTheSampleIsOneFinding) {
  TempDir dir;
  const std::string cd = "cd " + Quoted(dir.Path("")) + " && ";
  const std::string sSample = Quoted(std::string(KOFD_EXAMPLES_DIR) + "/sample.o");
  kelf_test::WriteFile(dir.Path("blob"), Bytes{1, 2, 3});
  const struct {
    const char* pszEdit;
    const char* pszLines;
  } cases[] = {
      {"--set-symbol led_toggle=0x99",
       "symbol led_toggle: value 0xe0 -> 0x99\nrelocation .relxeb.text at 0x12: value 0x38 -> 0x26\n"},
      {"--rename-symbol tick_count=ticks",
       "symbol tick_count: removed\nsymbol ticks: added\n"
       "relocation .relxeb.text at 0x20: expression \"(tick_count + 32768)\" -> \"(ticks + 32768)\"\n"},
      {"--set-section-address .text=0x4000", "section .text: address 0x0 -> 0x4000\n"},
      {"--patch .text:0=aabb", "section .text: contents [0x0, 0x2)\n"},
      {"--add-section .blob=blob", "section .blob: added\n"},
      {"--remove-symbol idle_hook", "symbol idle_hook: removed\n"},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(Kofd(dir, "edit " + sSample + " -o edited.o " + c.pszEdit, cd).status, 0) << c.pszEdit;
    const Outcome diff = Kofd(dir, "diff " + sSample + " edited.o", cd);
    EXPECT_EQ(diff.status, 1) << c.pszEdit;
    EXPECT_EQ(diff.out, c.pszLines) << c.pszEdit;
  }

  // Archives of one member each, changed, and of no member.
  ASSERT_EQ(RunShell(dir, cd + "mkdir a b && cp " + sSample + " a/s.o && cp edited.o b/s.o").status, 0);
  ASSERT_EQ(Kofd(dir, "ar ../a.a create s.o", cd + "cd a && ").status, 0);
  ASSERT_EQ(Kofd(dir, "ar ../b.a create s.o", cd + "cd b && ").status, 0);
  ASSERT_EQ(Kofd(dir, "ar empty.a create", cd).status, 0);
  const Outcome changed = Kofd(dir, "diff a.a b.a", cd);
  EXPECT_EQ(changed.status, 1);
  EXPECT_EQ(changed.out, "member s.o: symbol idle_hook: removed\n");
  const Outcome removed = Kofd(dir, "diff a.a empty.a", cd);
  EXPECT_EQ(removed.status, 1);
  EXPECT_EQ(removed.out, "member s.o: removed\n");
}

}  // namespace
