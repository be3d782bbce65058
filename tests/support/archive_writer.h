// Independent byte-level writer of "!<arch>" libraries of KELF objects.
//
//   0          "!<arch>\n"
//   8          member header (60) + linker member data (L)
//   68 + L     member header (60) + name member data (M)
//   128 + L + M  per object: member header (60) + object bytes, no padding anywhere
//
// Linker member data (32-bit little-endian words): Version, N, N header offsets, S,
// S member indices, then S NUL-terminated symbol names. Name member data: the object
// names NUL-terminated back to back; an object's Name Index is the offset of its name.
#ifndef KOFD_TESTS_SUPPORT_ARCHIVE_WRITER_H
#define KOFD_TESTS_SUPPORT_ARCHIVE_WRITER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kelf_writer.h"

namespace kelf_test {

constexpr char kArchiveMagic[] = "!<arch>\n";
constexpr std::size_t kArchiveMagicSize = 8, kMemberHeaderSize = 60;

// Member header fields: offset and width inside the 60 bytes.
struct HeaderField {
  std::size_t offset, width;
};
constexpr HeaderField kFieldName{0, 16}, kFieldDate{16, 12}, kFieldOwner{28, 6}, kFieldSize{48, 10};

// A 60-byte header: "/" then blanks, apostrophe and line feed at the end, numbers in
// decimal over the blanks. Without a name index the name field stays "/".
Bytes MemberHeader(std::optional<std::int64_t> nameIndex, std::int64_t date, std::int64_t owner,
                   std::int64_t size);

// Blanks one field of the header that starts at headerAt and writes text at its start;
// text longer than the field throws std::invalid_argument.
void SetHeaderField(Bytes& bytes, std::size_t headerAt, HeaderField field, const std::string& text);

Bytes LinkerMemberData(std::uint32_t version, const std::vector<std::uint32_t>& offsets,
                       const std::vector<std::uint32_t>& memberIndices,
                       const std::vector<std::string>& names);

// Where Build placed each member header, as file offsets.
struct ArchiveLayout {
  std::size_t linkerHeader = kArchiveMagicSize, nameHeader = 0;
  std::vector<std::size_t> memberHeaders;
};

// Hostile archives: replace the linker or name member data or the stored offsets here,
// or edit the built bytes with SetHeaderField, Put32 and resize at the places the layout
// reports.
class ArchiveBuilder {
 public:
  ArchiveBuilder& Version(std::uint32_t version) { m_version = version; return *this; }
  // Date written in the linker and name member headers.
  ArchiveBuilder& Date(std::int64_t date) { m_date = date; return *this; }
  std::size_t AddMember(std::string name, Bytes data, std::int64_t date = 0);
  ArchiveBuilder& AddSymbol(std::string name, std::uint32_t memberIndex);

  ArchiveBuilder& Offsets(std::vector<std::uint32_t> offsets) { m_offsets = std::move(offsets); return *this; }
  ArchiveBuilder& LinkerData(Bytes raw) { m_linkerData = std::move(raw); return *this; }
  ArchiveBuilder& NameData(Bytes raw) { m_nameData = std::move(raw); return *this; }

  Bytes Build(ArchiveLayout* layout = nullptr) const;
  void WriteFile(const std::string& path) const;

 private:
  struct Member {
    std::string name;
    Bytes data;
    std::int64_t date;
  };
  std::uint32_t m_version = 1;
  std::int64_t m_date = 0;
  std::vector<Member> m_members;
  std::vector<std::string> m_symbolNames;
  std::vector<std::uint32_t> m_symbolMembers;
  std::optional<std::vector<std::uint32_t>> m_offsets;
  std::optional<Bytes> m_linkerData, m_nameData;
};

}  // namespace kelf_test

#endif  // KOFD_TESTS_SUPPORT_ARCHIVE_WRITER_H
