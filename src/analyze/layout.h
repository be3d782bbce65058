// Who owns every byte of a file: the parts a KELF object or an archive of them declares, laid
// over the file's bytes as ranges [from, to) that cover it exactly, in file order.
//
//   object    file header, program header table, section header table, each section other
//             than type 8 (sh_offset, sh_size), gaps between them
//   archive   "!<arch>\n", each member header, the linker and name member data, each object
//             member's data (with the layout of the object inside it), padding, gaps
//
// Headers are read from the raw bytes, leniently: a damaged file still gets its layout, with
// the bytes two parts claim (overlap) and the parts that pass the end of the file (out of file)
// flagged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/types.h"

namespace kofd_analyze {

enum class PartKind {
  kFileHeader,
  kProgramHeaders,
  kSectionHeaders,
  kSection,
  kMagic,
  kMemberHeader,
  kLinkerMember,
  kNameMember,
  kObjectMember,
};

// The word the tool shows for a kind: "file_header", "section", "member_header"...
const char* PartKindName(PartKind kind);

// One part the file's headers declare, where they say it lies (qwTo may pass the file's end).
struct LayoutPart {
  PartKind kind = PartKind::kSection;
  std::int64_t llIndex = -1;  // section index, or member index (0 linker, 1 name, 2.. objects)
  std::string sName;          // section or object member name, as the file spells it
  std::uint64_t qwFrom = 0;
  std::uint64_t qwTo = 0;
};

struct FileLayout;

// A range keeps this many of its owners: parts nested many deep cost no more than this each.
constexpr std::size_t kMaxOwners = 8;

// A range of the file and the parts that own it: none is a gap (or padding), two or more an
// overlap.
struct LayoutRange {
  std::uint64_t qwFrom = 0;
  std::uint64_t qwTo = 0;
  // Indexes into FileLayout::vParts, the first kMaxOwners of them; nOwners counts them all.
  std::vector<std::size_t> vOwners;
  std::size_t nOwners = 0;
  bool bPadding = false;             // the one "\n" behind member data of odd length
};

// The layout of an object found in an archive member's data.
struct LayoutNested;

struct FileLayout {
  bool bArchive = false;
  // False when the bytes begin with neither "\x7fELF" nor "!<arch>\n" (LayoutFile): not laid out.
  bool bKnown = true;
  std::uint64_t qwBase = 0;             // where the bytes begin in the file
  std::uint64_t qwSize = 0;             // the file's (or the member data's) size
  std::vector<LayoutPart> vParts;       // in the order the headers declare them
  std::vector<LayoutRange> vRanges;     // covering [0, qwSize) in file order
  std::vector<LayoutNested> vNested;    // archives: one per object member
  std::vector<std::string> vNotes;      // what could not be read ("no file header": too short)

  // Ranges owned by two parts or more.
  std::size_t OverlapCount() const;
  // Parts that pass the end of the file.
  std::size_t OutOfFileCount() const;
  // Overlaps and out-of-file parts, here and in every nested object.
  std::size_t FlagCount() const;
};

struct LayoutNested {
  std::size_t nPart = 0;  // the object member's data part
  FileLayout layout;    // offsets are the file's: the object's own plus its data's start
};

// The layout of bytes that hold a KELF object (bArchive false) or an archive (true), offsets
// counted from qwBase. Every count and offset the bytes give is checked against their size.
FileLayout LayoutObject(const BYTE* pData, std::uint64_t qwSize, std::uint64_t qwBase = 0);
FileLayout LayoutArchive(const BYTE* pData, std::uint64_t qwSize);

// The file read whole, laid out as an archive when it begins with "!<arch>\n", as an object when
// it begins with "\x7fELF"; any other file is not laid out (bKnown false). Throws the library's
// read failures.
FileLayout LayoutFile(const char* pszPath);

}  // namespace kofd_analyze
