// kofd ar check, check --fix, replace and extract on archives damaged one way each.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include <functional>
#include <string>

#include "archive_objects.h"
#include "archive_writer.h"
#include "cli_run.h"

namespace {

using kelf_test::ArchiveBuilder;
using kelf_test::ArchiveLayout;
using kelf_test::Bytes;

// a.o (alpha, beta) and b.o (gamma), indexed right unless a change says otherwise.
ArchiveBuilder Good(const Bytes& extraA = {}) {
  ArchiveBuilder builder;
  Bytes a = ObjectWith({{"alpha", 1}, {"beta", 1}});
  a.insert(a.end(), extraA.begin(), extraA.end());
  builder.AddMember("a.o", a);
  builder.AddMember("b.o", ObjectWith({{"gamma", 1}}));
  builder.AddSymbol("alpha", 0).AddSymbol("beta", 0).AddSymbol("gamma", 1);
  return builder;
}

Outcome Ar(const TempDir& dir, const std::string& sArguments) {
  return Kofd(dir, "ar lib.a " + sArguments, "cd " + Quoted(dir.Path("")) + " && ");
}

struct Damage {
  const char* pszKind;
  std::function<Bytes()> make;
  bool bFixable = true;
  // The member the repaired index gives gamma: a member whose name is lost is called after its
  // place, one cut short or behind a bad header is dropped ("" when gamma goes with it).
  const char* pszGamma = "b.o";
};

}  // namespace

TEST(CliArCheck, EachDamageIsFoundAndTheFixMakesTheArchiveClean) {
  ArchiveLayout layout;
  const Bytes good = Good().Build(&layout);
  const auto offset = [&](std::size_t i) { return static_cast<std::uint32_t>(layout.memberHeaders[i]); };
  const auto patched = [&](std::size_t headerAt, kelf_test::HeaderField field, const std::string& sText) {
    Bytes bytes = good;
    kelf_test::SetHeaderField(bytes, headerAt, field, sText);
    return bytes;
  };
  const std::vector<Damage> damages = {
      {"symbol-missing", [] {
         ArchiveBuilder builder;
         builder.AddMember("a.o", ObjectWith({{"alpha", 1}, {"beta", 1}}));
         builder.AddMember("b.o", ObjectWith({{"gamma", 1}}));
         return builder.AddSymbol("alpha", 0).AddSymbol("beta", 0).Build();
       }},
      {"symbol-duplicate", [] { return ArchiveBuilder(Good()).AddSymbol("beta", 0).Build(); }},
      {"symbol-stale", [] { return ArchiveBuilder(Good()).AddSymbol("ghost", 7).Build(); }},
      {"offset-wrong", [&] { return ArchiveBuilder(Good()).Offsets({offset(0), offset(1) + 4}).Build(); }},
      {"offset-missing", [&] { return ArchiveBuilder(Good()).Offsets({offset(0)}).Build(); }},
      {"offset-stale", [&] { return ArchiveBuilder(Good()).Offsets({offset(0), offset(1), offset(1) + 60}).Build(); }},
      {"member-overlap", [&] { return ArchiveBuilder(Good()).Offsets({offset(0), offset(0) + 8}).Build(); }},
      {"index-damaged", [] { return ArchiveBuilder(Good()).LinkerData(Bytes{1, 0, 0, 0, 0xff, 0xff, 0, 0}).Build(); }},
      {"name-outside", [&] { return patched(layout.memberHeaders[1], kelf_test::kFieldName, "999"); }, true, "member1.o"},
      {"name-not-at-start", [&] { return patched(layout.memberHeaders[1], kelf_test::kFieldName, "5"); }, true, ".o"},
      {"name-unterminated", [] { return ArchiveBuilder(Good()).NameData(Bytes{'a', '.', 'o', 0, 'b', '.', 'o'}).Build(); }},
      {"member-past-end", [&] { return Bytes(good.begin(), good.end() - 3); }, true, ""},
      {"member-header-bad", [&] {
         Bytes bytes = good;
         bytes[layout.memberHeaders[1] + 59] = ' ';
         return bytes;
       }, true, ""},
      {"member-padding", [] {
         ArchiveLayout odd;
         Bytes bytes = Good(Bytes{0}).Build(&odd);
         bytes.insert(bytes.begin() + static_cast<long>(odd.memberHeaders[1]), '\n');
         return bytes;
       }},
      {"member-not-object",
       [] {
         ArchiveBuilder builder = Good();
         builder.AddMember("junk.o", Bytes{'j', 'u', 'n', 'k'});
         return builder.Build();
       },
       false},
  };
  {
    TempDir dir;
    dir.Write("lib.a", AsString(good));
    const Outcome clean = Ar(dir, "check");
    EXPECT_EQ(clean.status, 0) << clean.out;
    EXPECT_EQ(clean.out, "lib.a: 2 members, 3 symbols, 0 findings\n");
  }
  for (const Damage& damage : damages) {
    TempDir dir;
    dir.Write("lib.a", AsString(damage.make()));
    const Outcome found = Ar(dir, "check");
    EXPECT_EQ(found.status, 1) << damage.pszKind << "\n" << found.out << found.err;
    EXPECT_NE(found.out.find(std::string(damage.pszKind) + "\t"), std::string::npos) << damage.pszKind << "\n" << found.out;
    const Outcome fixed = Ar(dir, "check --fix");
    EXPECT_EQ(fixed.status, damage.bFixable ? 0 : 1) << damage.pszKind << "\n" << fixed.out << fixed.err;
    const Outcome after = Ar(dir, "check");
    EXPECT_EQ(after.status, damage.bFixable ? 0 : 1) << damage.pszKind << "\n" << after.out;
    if (damage.bFixable) {
      // The library reads the repaired archive: alpha and gamma answer their members.
      EXPECT_EQ(Ar(dir, "find alpha").out, "a.o\n") << damage.pszKind;
      const std::string sGamma = damage.pszGamma;
      EXPECT_EQ(Ar(dir, "find gamma").out, sGamma.empty() ? "" : sGamma + "\n") << damage.pszKind;
    }
  }
}

TEST(CliArCheck, TheFixIsDeterministicRebuildsAGoodIndexAndTroubleExits2) {
  TempDir dir;
  dir.Write("a.o", AsString(ObjectWith({{"alpha", 1}, {"beta", 1}})));
  dir.Write("b.o", AsString(ObjectWith({{"gamma", 1}})));
  ASSERT_EQ(Ar(dir, "create a.o b.o").status, 0);
  const std::string sCreated = TempDir::Read(dir.Path("lib.a"));
  ASSERT_EQ(Ar(dir, "check --fix").status, 0);
  const std::string sFixed = TempDir::Read(dir.Path("lib.a"));
  // Always rewritten: the linker and name member headers are dated 0 now.
  EXPECT_NE(sFixed, sCreated);
  EXPECT_EQ(sFixed.size(), sCreated.size());
  ASSERT_EQ(Ar(dir, "check --fix").status, 0);
  EXPECT_EQ(TempDir::Read(dir.Path("lib.a")), sFixed);
  EXPECT_EQ(Ar(dir, "symbols").out, "alpha\ta.o\nbeta\ta.o\ngamma\tb.o\n");

  dir.Write("notar.a", "hello");
  const Outcome notArchive = Kofd(dir, "ar " + Quoted(dir.Path("notar.a")) + " check");
  EXPECT_EQ(notArchive.status, 2);
  EXPECT_EQ(notArchive.out, "");
  EXPECT_EQ(Kofd(dir, "ar " + Quoted(dir.Path("none.a")) + " check --json").status, 2);
  EXPECT_EQ(Kofd(dir, "ar lib.a check --frob").status, 2);
}

TEST(CliArCheck, DuplicateGlobalsAreListedAndTheFirstMemberAnswers) {
  TempDir dir;
  dir.Write("a.o", AsString(ObjectWith({{"alpha", 1}, {"shared", 1}})));
  dir.Write("b.o", AsString(ObjectWith({{"shared", 1}, {"gamma", 1}})));
  const Outcome created = Ar(dir, "create a.o b.o");
  EXPECT_EQ(created.status, 0);
  EXPECT_EQ(created.err, "kofd: warning: b.o: symbol shared is also defined by member a.o, which lookups answer\n");
  EXPECT_EQ(Ar(dir, "symbols").out, "alpha\ta.o\nshared\ta.o\nshared\tb.o\ngamma\tb.o\n");
  EXPECT_EQ(Ar(dir, "find shared").out, "a.o\n");
  EXPECT_EQ(Ar(dir, "check").status, 0);
  EXPECT_EQ(Ar(dir, "remove a.o").status, 0);
  EXPECT_EQ(Ar(dir, "find shared").out, "b.o\n");
}

TEST(CliArCheck, ReplaceKeepsThePlaceAndExtractStaysInsideItsDirectory) {
  TempDir dir;
  dir.Write("a.o", AsString(ObjectWith({{"alpha", 1}})));
  dir.Write("b.o", AsString(ObjectWith({{"gamma", 1}})));
  dir.Write("c.o", AsString(ObjectWith({{"delta", 1}})));
  ASSERT_EQ(Ar(dir, "create a.o b.o c.o").status, 0);
  ASSERT_EQ(mkdir(dir.Path("new").c_str(), 0755), 0);
  const std::string sNewA = AsString(ObjectWith({{"omega", 1}, {"alpha2", 1}}));
  dir.Write("new/a.o", sNewA);
  const Outcome replaced = Ar(dir, "replace new/a.o --json");
  EXPECT_EQ(replaced.status, 0) << replaced.err;
  EXPECT_NE(replaced.out.find("\"member\":\"a.o\""), std::string::npos) << replaced.out;
  EXPECT_EQ(Ar(dir, "symbols").out, "omega\ta.o\nalpha2\ta.o\ngamma\tb.o\ndelta\tc.o\n");
  EXPECT_EQ(Ar(dir, "check").status, 0);
  const std::string sBefore = TempDir::Read(dir.Path("lib.a"));
  const Outcome missing = Ar(dir, "replace a.o new/zz.o");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "kofd: lib.a: no member named zz.o\n");
  EXPECT_EQ(TempDir::Read(dir.Path("lib.a")), sBefore);

  ASSERT_EQ(mkdir(dir.Path("out").c_str(), 0755), 0);
  EXPECT_EQ(Ar(dir, "extract A.O b.o -C out").status, 0);
  EXPECT_EQ(TempDir::Read(dir.Path("out/a.o")), sNewA);
  EXPECT_EQ(TempDir::Read(dir.Path("out/b.o")), TempDir::Read(dir.Path("b.o")));
  EXPECT_EQ(Ar(dir, "extract ../a.o -C out").status, 1);
  // A link in the directory would write wherever it points: refused, nothing written.
  ASSERT_EQ(symlink(dir.Path("victim").c_str(), dir.Path("out/c.o").c_str()), 0);
  const Outcome linked = Ar(dir, "extract c.o -C out");
  EXPECT_EQ(linked.status, 1);
  EXPECT_NE(linked.err.find("no ordinary file"), std::string::npos) << linked.err;
  EXPECT_FALSE(std::ifstream(dir.Path("victim")).good());
  EXPECT_EQ(Ar(dir, "extract").status, 2);
  EXPECT_EQ(Ar(dir, "replace").status, 2);
}
