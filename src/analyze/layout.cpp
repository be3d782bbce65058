#include "analyze/layout.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "archive/member_header.h"
#include "edit/object_image.h"
#include "frame/byte_view.h"
#include "object/kelf_records.h"

namespace kofd_analyze {
namespace {

constexpr char kArchiveMagic[] = "!<arch>\n";
constexpr std::uint64_t kMagicSize = 8;
constexpr DWORD kNoBitsType = 8;

// Little-endian integers from bytes that are known to hold them.
DWORD Word(const BYTE* p) { return DWORD(p[0]) | DWORD(p[1]) << 8 | DWORD(p[2]) << 16 | DWORD(p[3]) << 24; }

// The NUL-terminated text at qwAt, not past qwEnd nor the bytes' end; "" outside them.
std::string TextAt(const BYTE* pData, std::uint64_t qwSize, std::uint64_t qwAt, std::uint64_t qwEnd) {
  qwEnd = std::min(qwEnd, qwSize);
  if (qwAt >= qwEnd) return "";
  const BYTE* pFrom = pData + qwAt;
  const void* pNul = memchr(pFrom, 0, static_cast<std::size_t>(qwEnd - qwAt));
  const std::size_t nLength = pNul ? static_cast<const BYTE*>(pNul) - pFrom : static_cast<std::size_t>(qwEnd - qwAt);
  return std::string(reinterpret_cast<const char*>(pFrom), nLength);
}

void AddPart(FileLayout& layout, PartKind kind, std::int64_t llIndex, std::string sName, std::uint64_t qwFrom,
             std::uint64_t qwSize) {
  if (qwSize == 0) return;
  LayoutPart part;
  part.kind = kind;
  part.llIndex = llIndex;
  part.sName = std::move(sName);
  part.qwFrom = qwFrom;
  part.qwTo = qwFrom + qwSize;
  layout.vParts.push_back(std::move(part));
}

// Lays the parts over [qwBase, qwBase + qwSize): a sweep over their edges, the parts open at
// each step owning the range up to the next edge.
void Sweep(FileLayout& layout, std::uint64_t qwBase) {
  const std::uint64_t qwEnd = qwBase + layout.qwSize;
  std::vector<std::pair<std::uint64_t, std::pair<int, std::size_t>>> vEdges;  // offset, (0 end / 1 start, part)
  vEdges.reserve(layout.vParts.size() * 2);
  for (std::size_t i = 0; i < layout.vParts.size(); ++i) {
    const LayoutPart& part = layout.vParts[i];
    const std::uint64_t qwFrom = std::min(std::max(part.qwFrom, qwBase), qwEnd);
    const std::uint64_t qwTo = std::min(part.qwTo, qwEnd);
    if (qwFrom >= qwTo) continue;
    vEdges.push_back({qwFrom, {1, i}});
    vEdges.push_back({qwTo, {0, i}});
  }
  std::sort(vEdges.begin(), vEdges.end());
  std::set<std::size_t> open;
  std::uint64_t qwAt = qwBase;
  std::size_t e = 0;
  while (qwAt < qwEnd) {
    while (e < vEdges.size() && vEdges[e].first == qwAt) {
      if (vEdges[e].second.first == 1) open.insert(vEdges[e].second.second);
      else open.erase(vEdges[e].second.second);
      ++e;
    }
    const std::uint64_t qwNext = e < vEdges.size() ? vEdges[e].first : qwEnd;
    LayoutRange range;
    range.qwFrom = qwAt;
    range.qwTo = qwNext;
    range.nOwners = open.size();
    for (std::size_t nPart : open) {
      if (range.vOwners.size() == kMaxOwners) break;
      range.vOwners.push_back(nPart);
    }
    layout.vRanges.push_back(std::move(range));
    qwAt = qwNext;
  }
}

}  // namespace

const char* PartKindName(PartKind kind) {
  switch (kind) {
    case PartKind::kFileHeader: return "file_header";
    case PartKind::kProgramHeaders: return "program_headers";
    case PartKind::kSectionHeaders: return "section_headers";
    case PartKind::kSection: return "section";
    case PartKind::kMagic: return "magic";
    case PartKind::kMemberHeader: return "member_header";
    case PartKind::kLinkerMember: return "linker_member";
    case PartKind::kNameMember: return "name_member";
    case PartKind::kObjectMember: return "object_member";
  }
  return "part";
}

std::size_t FileLayout::OverlapCount() const {
  std::size_t n = 0;
  for (const LayoutRange& range : vRanges) n += range.nOwners > 1 ? 1 : 0;
  return n;
}

std::size_t FileLayout::OutOfFileCount() const {
  std::size_t n = 0;
  const std::uint64_t qwLimit = qwBase + qwSize;
  for (const LayoutPart& part : vParts) n += part.qwTo > qwLimit ? 1 : 0;
  return n;
}

std::size_t FileLayout::FlagCount() const {
  std::size_t n = OverlapCount() + OutOfFileCount();
  for (const LayoutNested& nested : vNested) n += nested.layout.FlagCount();
  return n;
}

FileLayout LayoutObject(const BYTE* pData, std::uint64_t qwSize, std::uint64_t qwBase) {
  FileLayout layout;
  layout.qwSize = qwSize;
  layout.qwBase = qwBase;
  AddPart(layout, PartKind::kFileHeader, -1, "", qwBase, sizeof(KEL_EHDR));
  if (qwSize < sizeof(KEL_EHDR)) {
    layout.vNotes.push_back("the file header passes the end: no table is read");
    Sweep(layout, qwBase);
    return layout;
  }
  KEL_EHDR header;
  memcpy(&header, pData, sizeof header);
  if (memcmp(header.e_ident, "\x7f" "ELF", 4) != 0) layout.vNotes.push_back("the file header has no ELF magic");
  if (header.e_phnum != 0) {
    AddPart(layout, PartKind::kProgramHeaders, -1, "", qwBase + header.e_phoff, std::uint64_t(header.e_phnum) * sizeof(KEL_PHDR));
  }
  if (header.e_shnum != 0) {
    AddPart(layout, PartKind::kSectionHeaders, -1, "", qwBase + header.e_shoff, std::uint64_t(header.e_shnum) * sizeof(KEL_SHDR));
  }
  // The section headers the file holds; those past its end own nothing we can know.
  std::vector<KEL_SHDR> vHeaders;
  for (DWORD i = 0; i < header.e_shnum; ++i) {
    const std::uint64_t qwAt = std::uint64_t(header.e_shoff) + std::uint64_t(i) * sizeof(KEL_SHDR);
    if (qwAt + sizeof(KEL_SHDR) > qwSize) {
      layout.vNotes.push_back("section headers " + std::to_string(i) + " to " + std::to_string(header.e_shnum - 1) +
                              " pass the end: their sections are not known");
      break;
    }
    KEL_SHDR section;
    memcpy(&section, pData + qwAt, sizeof section);
    vHeaders.push_back(section);
  }
  const KEL_SHDR* pNames = header.e_shstrndx < vHeaders.size() ? &vHeaders[header.e_shstrndx] : nullptr;
  for (std::size_t i = 0; i < vHeaders.size(); ++i) {
    const KEL_SHDR& section = vHeaders[i];
    if (section.sh_type == kNoBitsType) continue;
    std::string sName;
    if (pNames) {
      const std::uint64_t qwTable = pNames->sh_offset;
      sName = TextAt(pData, qwSize, qwTable + section.sh_name, qwTable + pNames->sh_size);
    }
    AddPart(layout, PartKind::kSection, static_cast<std::int64_t>(i), sName, qwBase + section.sh_offset, section.sh_size);
  }
  Sweep(layout, qwBase);
  return layout;
}

FileLayout LayoutArchive(const BYTE* pData, std::uint64_t qwSize) {
  FileLayout layout;
  layout.bArchive = true;
  layout.qwSize = qwSize;
  AddPart(layout, PartKind::kMagic, -1, "", 0, kMagicSize);
  // The data part of each member, to find the padding behind it.
  std::vector<std::size_t> vDataParts;
  // A member's header and data at qwAt; false when the header is not all in the file.
  const auto member = [&](std::uint64_t qwAt, PartKind kind, std::int64_t llIndex, std::string sName, DWORD* pdwSize,
                          DWORD* pdwNameIndex) {
    AddPart(layout, PartKind::kMemberHeader, llIndex, sName, qwAt, kArcMemberHeaderSize);
    if (qwAt + kArcMemberHeaderSize > qwSize) {
      layout.vNotes.push_back("member header " + std::to_string(llIndex) + " passes the end");
      return false;
    }
    *pdwSize = MemberHeaderSize(pData + qwAt);
    if (pdwNameIndex) *pdwNameIndex = MemberHeaderNameIndex(pData + qwAt);
    const std::size_t nBefore = layout.vParts.size();
    AddPart(layout, kind, llIndex, std::move(sName), qwAt + kArcMemberHeaderSize, *pdwSize);
    if (layout.vParts.size() > nBefore) vDataParts.push_back(nBefore);
    return true;
  };
  DWORD dwLinkSize = 0;
  DWORD dwNameSize = 0;
  std::vector<DWORD> vOffsets;
  std::uint64_t qwNames = 0;
  if (member(kMagicSize, PartKind::kLinkerMember, 0, "", &dwLinkSize, nullptr)) {
    const std::uint64_t qwLink = kMagicSize + kArcMemberHeaderSize;
    const std::uint64_t qwLinkEnd = std::min(qwLink + dwLinkSize, qwSize);
    // Version, N, then N offsets: as many as the data and the file hold.
    if (qwLink + 8 <= qwLinkEnd) {
      const DWORD dwCount = Word(pData + qwLink + 4);
      const std::uint64_t qwHeld = (qwLinkEnd - qwLink - 8) / 4;
      if (dwCount > qwHeld) layout.vNotes.push_back("the linker member lists more offsets than it holds");
      for (std::uint64_t i = 0; i < std::min<std::uint64_t>(dwCount, qwHeld); ++i) {
        vOffsets.push_back(Word(pData + qwLink + 8 + 4 * i));
      }
    }
    qwNames = qwLink + dwLinkSize;
    if (!member(qwNames, PartKind::kNameMember, 1, "", &dwNameSize, nullptr)) qwNames = 0;
  }
  std::sort(vOffsets.begin(), vOffsets.end());
  vOffsets.erase(std::unique(vOffsets.begin(), vOffsets.end()), vOffsets.end());
  std::vector<std::pair<std::size_t, std::uint64_t>> vObjects;  // data part, data size held
  for (std::size_t i = 0; i < vOffsets.size(); ++i) {
    DWORD dwSize = 0;
    DWORD dwNameIndex = 0;
    const std::int64_t llIndex = static_cast<std::int64_t>(i) + 2;
    const std::size_t nHeader = layout.vParts.size();
    if (!member(vOffsets[i], PartKind::kObjectMember, llIndex, "", &dwSize, &dwNameIndex)) continue;
    std::string sName;
    if (qwNames != 0) {
      const std::uint64_t qwData = qwNames + kArcMemberHeaderSize;
      sName = TextAt(pData, qwSize, qwData + dwNameIndex, qwData + dwNameSize);
    }
    layout.vParts[nHeader].sName = sName;
    if (layout.vParts.size() > nHeader + 1) {
      layout.vParts[nHeader + 1].sName = sName;
      vObjects.push_back({nHeader + 1, dwSize});
    }
  }
  Sweep(layout, 0);
  // Padding: the one "\n" behind data that ends at an odd offset, where nothing else lies.
  std::set<std::uint64_t> odd;
  for (std::size_t nPart : vDataParts) {
    if (layout.vParts[nPart].qwTo % 2 == 1) odd.insert(layout.vParts[nPart].qwTo);
  }
  for (LayoutRange& range : layout.vRanges) {
    if (range.nOwners == 0 && range.qwTo - range.qwFrom == 1 && odd.count(range.qwFrom) && pData[range.qwFrom] == '\n') {
      range.bPadding = true;
    }
  }
  for (const auto& object : vObjects) {
    const LayoutPart& part = layout.vParts[object.first];
    const std::uint64_t qwHeld = part.qwFrom < qwSize ? std::min(part.qwTo, qwSize) - part.qwFrom : 0;
    LayoutNested nested;
    nested.nPart = object.first;
    nested.layout = LayoutObject(pData + std::min(part.qwFrom, qwSize), qwHeld, part.qwFrom);
    layout.vNested.push_back(std::move(nested));
  }
  return layout;
}

FileLayout LayoutFile(const char* pszPath) {
  const std::vector<BYTE> vBytes = ReadFileBytes(pszPath);
  const BYTE* pData = vBytes.data();
  if (vBytes.size() >= kMagicSize && memcmp(pData, kArchiveMagic, kMagicSize) == 0) {
    return LayoutArchive(pData, vBytes.size());
  }
  if (vBytes.size() < 4 || memcmp(pData, "\x7f" "ELF", 4) != 0) {
    FileLayout layout;
    layout.bKnown = false;
    layout.qwSize = vBytes.size();
    return layout;
  }
  return LayoutObject(pData, vBytes.size());
}

}  // namespace kofd_analyze
