// Writes the inputs that once cost far more than their size, at the sizes the measurements of
// docs/performance.md use ("full"), or small as the fuzz seeds of fuzz/corpus ("seeds").
//
// Usage: kofd_make_hostile_inputs full DIR     repeated.a overlap.a sparse.o run.o run8m.o
//                                              names.o names.a
//        kofd_make_hostile_inputs seeds CORPUS the same shapes, a few KB each, into
//                                              CORPUS/archive and CORPUS/object
#include <cstdio>
#include <filesystem>
#include <string>

#include "archive_writer.h"
#include "hostile_shapes.h"
#include "kelf_writer.h"

using namespace kelf_test;

namespace {

// Two program sections of dataSize bytes at the same offset, past the section headers: the
// file is extended to hold them without writing them, so it takes no room on the disk.
void WriteSparseObject(const std::string& path, std::uint32_t dataSize) {
  ObjectBuilder builder;
  builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, {}, {}, dataSize, 0u});
  builder.AddSection({".data", kShtPrgbit, 3, 0, 0, 0, 4, 0, {}, {}, dataSize, 0u});
  const std::uint32_t dataAt = static_cast<std::uint32_t>(builder.Build().size());
  builder.SectionAt(1).offset = dataAt;
  builder.SectionAt(2).offset = dataAt;
  WriteFile(path, builder.Build());
  std::filesystem::resize_file(path, static_cast<std::uintmax_t>(dataAt) + dataSize);
}

// An object with one empty program section whose offset lies far past the end of the file.
Bytes EmptySectionPastTheEnd() {
  ObjectBuilder builder;
  builder.AddSection({".text", kShtPrgbit, 6, 0, 0, 0, 4, 0, Bytes(16, 1), {}, {}, {}});
  builder.AddSection({".empty", kShtPrgbit, 6, 0, 0, 0, 4, 0, {}, {}, 0u, 0x7FFFFFF0u});
  return builder.Build();
}

void WriteFull(const std::string& dir) {
  WriteFile(dir + "/repeated.a", RepeatedMemberArchive(500000, 8000));
  WriteFile(dir + "/overlap.a", OverlappingMemberArchive(4000, 250000));
  WriteSparseObject(dir + "/sparse.o", 0xFFFFF000u);
  WriteFile(dir + "/run.o", SharedRunObject(20000, 2047));
  WriteFile(dir + "/run8m.o", SharedRunObject(380000, 2047));
  const std::vector<std::string> names = CollidingNames(16);
  WriteFile(dir + "/names.o", ObjectWithSymbols(names));
  WriteFile(dir + "/names.a", ArchiveWithSymbols(names));
}

void WriteSeeds(const std::string& corpus) {
  std::filesystem::create_directories(corpus + "/archive");
  std::filesystem::create_directories(corpus + "/object");
  WriteFile(corpus + "/archive/repeated.a", RepeatedMemberArchive(1500, 150));
  WriteFile(corpus + "/archive/overlap.a", OverlappingMemberArchive(48, 1500));
  const std::vector<std::string> names = CollidingNames(7);
  WriteFile(corpus + "/archive/names.a", ArchiveWithSymbols(names));
  WriteFile(corpus + "/object/names.o", ObjectWithSymbols(names));
  WriteFile(corpus + "/object/overlap.o", OverlappingSectionsObject(3, 1500));
  WriteFile(corpus + "/object/run.o", SharedRunObject(400, 255));
  WriteFile(corpus + "/object/empty_past_end.o", EmptySectionPastTheEnd());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc == 3 ? argv[1] : "";
  if (mode != "full" && mode != "seeds") {
    std::fprintf(stderr, "usage: %s full DIR | seeds CORPUS\n", argv[0]);
    return 2;
  }
  try {
    if (mode == "full") WriteFull(argv[2]);
    else WriteSeeds(argv[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
