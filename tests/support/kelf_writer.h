// Independent byte-level writer of KELF objects for the tests and the sample generators.
// It shares nothing with the readers under src/, so a reader fault cannot hide behind
// a writer fault.
//
//   0        56-byte file header (16 identification bytes first)
//   56       program headers, 32 bytes each (only when there are some)
//   ...      section contents, in section order
//   ...      section headers, 40 bytes each
//
// Only the header fields after the identification (Reserved excepted) follow the byte
// order the header names; program headers, section headers and records are always
// little-endian.
#ifndef KOFD_TESTS_SUPPORT_KELF_WRITER_H
#define KOFD_TESTS_SUPPORT_KELF_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace kelf_test {

using Bytes = std::vector<std::uint8_t>;

// Section types.
constexpr std::uint32_t kShtNull = 0;
constexpr std::uint32_t kShtPrgbit = 1;
constexpr std::uint32_t kShtSymtab = 2;
constexpr std::uint32_t kShtStrtab = 3;
constexpr std::uint32_t kShtRelx = 16;
constexpr std::uint32_t kShtRelxe = 17;
constexpr std::uint32_t kShtExpr = 18;
constexpr std::uint32_t kShtLine = 19;
constexpr std::uint32_t kShtBnkInfo = 20;
constexpr std::uint32_t kShtSRom = 21;
constexpr std::uint32_t kShtRelxeb = 22;
constexpr std::uint32_t kShtKdm = 23;
constexpr std::uint32_t kShtKdmInfo = 24;
constexpr std::uint32_t kShtSrcLine = 25;

// Symbol bindings, symbol types and special section indices.
constexpr std::uint8_t kStbLocal = 0, kStbGlobal = 1, kStbWeak = 2;
constexpr std::uint8_t kSttNoType = 0, kSttObject = 1, kSttFunction = 2, kSttSection = 3,
                       kSttFile = 4, kSttLookup = 5, kSttShRom = 6;
constexpr std::uint16_t kShnUndef = 0, kShnAbs = 0xFFF1;

// Record sizes.
constexpr std::size_t kHeaderSize = 56, kProgramHeaderSize = 32, kSectionHeaderSize = 40;

// Byte helpers. Put* writes over existing bytes (growing the vector when needed);
// Append* adds at the end.
void Put16(Bytes& out, std::size_t at, std::uint16_t value, bool bigEndian = false);
void Put32(Bytes& out, std::size_t at, std::uint32_t value, bool bigEndian = false);
void Append8(Bytes& out, std::uint8_t value);
void Append16(Bytes& out, std::uint16_t value, bool bigEndian = false);
void Append32(Bytes& out, std::uint32_t value, bool bigEndian = false);
void Append(Bytes& out, const Bytes& more);
Bytes Join(std::initializer_list<Bytes> parts);  // records back to back
Bytes Words(std::initializer_list<std::uint32_t> words, bool bigEndian = false);
void WriteFile(const std::string& path, const Bytes& bytes);  // throws std::runtime_error

// Record encoders (little-endian, packed).
Bytes Sym(std::uint32_t nameOffset, std::uint32_t value, std::uint32_t size, std::uint8_t bind,
          std::uint8_t type, std::uint8_t other, std::uint16_t shndx);
Bytes Line(std::uint32_t offset, std::uint32_t line);
Bytes SrcLine(std::uint32_t offset, std::uint32_t line, std::uint32_t nameIndex);
Bytes Stab(std::uint32_t nameIndex, std::uint8_t type, std::uint8_t other, std::uint16_t desc,
           std::uint32_t value);
Bytes Exp(std::uint32_t type, std::uint32_t value);
Bytes Relxe(std::uint32_t offset, std::uint32_t symndx, std::uint8_t type, std::uint16_t tStart,
            std::uint16_t tEnd, std::uint16_t eStart, std::uint16_t eEnd);
Bytes Relxeb(std::uint32_t offset, std::uint32_t symndx, std::uint8_t type, std::uint16_t toStart,
             std::uint16_t toEnd, std::uint32_t expStart, std::uint32_t expEnd);
Bytes BankInfo(std::uint32_t address, std::uint32_t bank);
Bytes KmdInfo(std::uint32_t nameIndex, std::uint32_t value, std::uint32_t size, std::uint32_t gain);

// NUL-terminated strings back to back; Add returns the string's offset. Strings are
// never shared, as in the files the toolchain writes.
class StringTable {
 public:
  StringTable() = default;
  static StringTable WithNul();  // offset 0 holds the empty string
  std::uint32_t Add(const std::string& text);
  std::uint32_t Size() const { return static_cast<std::uint32_t>(m_bytes.size()); }
  const Bytes& Data() const { return m_bytes; }

 private:
  Bytes m_bytes;
};

struct FileHeader {
  std::array<std::uint8_t, 4> magic{{0x7F, 'E', 'L', 'F'}};
  std::uint8_t fileClass = 1;     // 1 = 32-bit
  std::uint8_t data = 1;          // 1 = LSB, 2 = MSB
  std::uint8_t identVersion = 1;
  std::uint16_t type = 1;         // RELOCATABLE
  std::uint16_t reserved = 0;
  std::uint32_t chip = 0;
  std::uint32_t version = 1;
  std::uint32_t entry = 0;
  std::uint32_t flags = 0;
  std::uint16_t ehsize = kHeaderSize;
  std::uint16_t phentsize = kProgramHeaderSize;
  std::uint16_t shentsize = kSectionHeaderSize;
  // Left empty, these follow the layout that Build makes.
  std::optional<std::uint32_t> phoff, shoff;
  std::optional<std::uint16_t> phnum, shnum, shstrndx;
};

struct ProgramHeader {
  std::uint32_t type = 0, offset = 0, vaddr = 0, paddr = 0;
  std::uint32_t filesz = 0, memsz = 0, flags = 0, align = 0;
};

struct Section {
  std::string name;
  std::uint32_t type = kShtNull, flags = 0, addr = 0, link = 0, info = 0;
  std::uint32_t addralign = 1, entsize = 0;
  Bytes data;
  // Overrides of the header only: the data is still laid out where it falls.
  std::optional<std::uint32_t> nameOffset, size, offset;
};

// A section of that name, type, contents and links, the other fields as Section has them.
Section MakeSection(const std::string& name, std::uint32_t type, Bytes data = {}, std::uint32_t link = 0,
                    std::uint32_t info = 0);

struct ObjectOptions {
  bool nullSection = true;  // section 0 is the empty null section
  bool shstrtab = true;     // ".shstrtab" appended last, named by SHStrndex
  bool align4 = false;      // contents and section header table on 4-byte boundaries
};

// Where Build placed things, as offsets from the object's start.
struct ObjectLayout {
  std::uint32_t phoff = 0, shoff = 0;
  std::vector<std::uint32_t> sectionOffsets;  // by section index, null section included
  std::uint32_t shstrndx = 0;
};

class ObjectBuilder {
 public:
  explicit ObjectBuilder(ObjectOptions options = {});

  FileHeader& Header() { return m_header; }
  ObjectBuilder& BigEndian() { m_header.data = 2; return *this; }

  // Both return the new entry's index; section indices count the null section.
  std::size_t AddProgramHeader(const ProgramHeader& header);
  ProgramHeader& ProgramHeaderAt(std::size_t index) { return m_programs.at(index); }
  std::size_t AddSection(Section section);
  Section& SectionAt(std::size_t index);  // index as returned by AddSection
  std::size_t SectionCount() const;       // including the automatic ones

  Bytes Build(ObjectLayout* layout = nullptr) const;
  void WriteFile(const std::string& path) const;

 private:
  ObjectOptions m_options;
  FileHeader m_header;
  std::vector<ProgramHeader> m_programs;
  std::vector<Section> m_sections;  // user sections only
};

}  // namespace kelf_test

#endif  // KOFD_TESTS_SUPPORT_KELF_WRITER_H
