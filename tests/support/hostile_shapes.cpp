#include "hostile_shapes.h"

#include <unordered_map>

#include "archive_writer.h"

namespace kelf_test {

namespace {

constexpr std::uint32_t kTokenPlus = 1, kTokenNum = 12;

Bytes Symbols(const std::vector<std::string>& names, StringTable& strings) {
  Bytes symbols = Sym(0, 0, 0, kStbLocal, kSttNoType, 0, kShnUndef);
  for (std::size_t i = 0; i < names.size(); ++i) {
    Append(symbols, Sym(strings.Add(names[i]), static_cast<std::uint32_t>(4 * i), 4, kStbGlobal, kSttFunction, 0, 1));
  }
  return symbols;
}

Bytes ObjectOf(const std::vector<std::string>& names, std::size_t dataSize) {
  ObjectBuilder builder;
  builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(dataSize, 0x5A), {}, {}, {}});
  StringTable strings = StringTable::WithNul();
  const Bytes symbols = Symbols(names, strings);
  builder.AddSection({".symtab", kShtSymtab, 0, 0, 3, 1, 4, 16, symbols, {}, {}, {}});
  builder.AddSection({".symstrtab", kShtStrtab, 0, 0, 0, 0, 1, 0, strings.Data(), {}, {}, {}});
  return builder.Build();
}

// h = (h x 33) XOR c, c the byte taken as a signed value.
std::uint32_t HashStep(std::uint32_t h, const std::string& bytes) {
  for (char c : bytes) h = (h * 33u) ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(c)));
  return h;
}

}  // namespace

Bytes ObjectWithSymbol(const std::string& name, std::size_t dataSize) { return ObjectOf({name}, dataSize); }

Bytes ObjectWithSymbols(const std::vector<std::string>& names) { return ObjectOf(names, 4 * names.size()); }

Bytes RepeatedMemberArchive(std::size_t memberSize, std::size_t listings) {
  ArchiveBuilder builder;
  builder.AddMember("shared.o", ObjectWithSymbol("shared", memberSize));
  for (std::size_t i = 0; i < listings; ++i) builder.AddSymbol("shared_" + std::to_string(i), static_cast<std::uint32_t>(i));
  // The linker member's size depends on the number of offsets only: lay out once to learn where
  // the member lies, then list that place again and again.
  ArchiveLayout layout;
  builder.Offsets(std::vector<std::uint32_t>(listings, 0)).Build(&layout);
  return builder.Offsets(std::vector<std::uint32_t>(listings, static_cast<std::uint32_t>(layout.memberHeaders[0]))).Build();
}

Bytes OverlappingMemberArchive(std::size_t members, std::size_t dataSize) {
  const Bytes object = ObjectWithSymbol("overlap", dataSize);
  const Bytes names = {'m', '.', 'o', 0};
  const std::size_t linkerSize = 12 + 4 * members;
  const std::size_t first = kArchiveMagicSize + 2 * kMemberHeaderSize + linkerSize + names.size();
  const std::size_t end = first + members * kMemberHeaderSize + object.size();
  std::vector<std::uint32_t> offsets;
  for (std::size_t i = 0; i < members; ++i) offsets.push_back(static_cast<std::uint32_t>(first + i * kMemberHeaderSize));
  Bytes out(kArchiveMagic, kArchiveMagic + kArchiveMagicSize);
  Append(out, MemberHeader(std::nullopt, 0, 0, static_cast<std::int64_t>(linkerSize)));
  Append(out, LinkerMemberData(1, offsets, {}, {}));
  Append(out, MemberHeader(std::nullopt, 0, 0, static_cast<std::int64_t>(names.size())));
  Append(out, names);
  for (std::uint32_t offset : offsets) {
    Append(out, MemberHeader(0, 0, 0, static_cast<std::int64_t>(end - offset - kMemberHeaderSize)));
  }
  Append(out, object);
  return out;
}

Bytes OverlappingSectionsObject(std::size_t sections, std::size_t dataSize) {
  ObjectBuilder builder;
  const std::size_t first = builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 1, 0, Bytes(dataSize, 0x5A), {}, {}, {}});
  ObjectLayout layout;
  builder.Build(&layout);
  for (std::size_t i = 1; i < sections; ++i) {
    builder.AddSection({".copy" + std::to_string(i), kShtPrgbit, 6, 0, 0, 0, 1, 0, {}, {}, static_cast<std::uint32_t>(dataSize),
                        layout.sectionOffsets[first]});
  }
  return builder.Build();
}

Bytes SharedRunObject(std::size_t records, std::size_t runPairs) {
  ObjectBuilder builder;
  const std::size_t text = builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(4 * records, 0), {}, {}, {}});
  Bytes tokens = Exp(kTokenNum, 1);
  for (std::size_t i = 0; i < runPairs; ++i) Append(tokens, Join({Exp(kTokenNum, 1), Exp(kTokenPlus, 0)}));
  const std::size_t expressions = builder.AddSection({".expr", kShtExpr, 0, 0, 0, 0, 4, 8, tokens, {}, {}, {}});
  Bytes relocations;
  for (std::size_t i = 0; i < records; ++i) {
    Append(relocations, Relxeb(static_cast<std::uint32_t>(4 * i), 0, 0, 0, 31, 0, static_cast<std::uint32_t>(2 * runPairs)));
  }
  builder.AddSection({".relxeb", kShtRelxeb, 0, 0, static_cast<std::uint32_t>(expressions), static_cast<std::uint32_t>(text),
                      4, 20, relocations, {}, {}, {}});
  return builder.Build();
}

std::vector<std::string> CollidingNames(unsigned stages) {
  std::vector<std::string> names{"h"};
  std::uint32_t hash = HashStep(5381, "h");
  std::uint32_t random = 12345;
  const auto nextBlock = [&random] {
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.";
    std::string block;
    for (int i = 0; i < 4; ++i) {
      random = random * 1103515245u + 12345u;
      block.push_back(kLetters[(random >> 16) & 63]);
    }
    return block;
  };
  for (unsigned stage = 0; stage < stages; ++stage) {
    // Two blocks that take this hash to the same next one: a birthday search over 32 bits.
    std::unordered_map<std::uint32_t, std::string> seen;
    std::string first, second;
    while (second.empty()) {
      std::string block = nextBlock();
      const auto found = seen.emplace(HashStep(hash, block), block);
      if (!found.second && found.first->second != block) {
        first = found.first->second;
        second = block;
      }
    }
    hash = HashStep(hash, first);
    std::vector<std::string> longer;
    for (const std::string& name : names) {
      longer.push_back(name + first);
      longer.push_back(name + second);
    }
    names.swap(longer);
  }
  return names;
}

Bytes ArchiveWithSymbols(const std::vector<std::string>& names) {
  ArchiveBuilder builder;
  builder.AddMember("names.o", ObjectWithSymbols(names));
  for (const std::string& name : names) builder.AddSymbol(name, 0);
  return builder.Build();
}

}  // namespace kelf_test
