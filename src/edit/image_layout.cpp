#include "edit/image_layout.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "frame/replacing_file.h"

namespace {

constexpr std::uint64_t kFileLimit = 0xFFFFFFFFu;
constexpr DWORD kTableAlignment = 4;
constexpr BYTE kBigEndian = 2;

// Padding the layout adds for alignment, in all: past it an alignment is taken as hostile rather
// than padded out to a file of gigabytes.
constexpr std::uint64_t kMaxPadding = 16u << 20;

// Aligns up to a power of two (0 and any other value count as 1: no alignment), adding the
// padding to *pqwPadding.
std::uint64_t AlignUp(std::uint64_t qwAt, DWORD dwAlignment, std::uint64_t* pqwPadding) {
  const std::uint64_t qwStep = dwAlignment > 1 && (dwAlignment & (dwAlignment - 1)) == 0 ? dwAlignment : 1;
  const std::uint64_t qwAligned = (qwAt + qwStep - 1) / qwStep * qwStep;
  *pqwPadding += qwAligned - qwAt;
  if (*pqwPadding > kMaxPadding) ThrowImageFailure("alignment would pad the saved object by more than 16 MiB");
  if (qwAligned > kFileLimit) ThrowImageFailure("the saved object would pass 4 GiB");
  return qwAligned;
}

std::uint64_t ProgramTableSize(const KEL_EHDR& header) { return std::uint64_t(header.e_phnum) * sizeof(KEL_PHDR); }

// A section stays where it was while its bytes still fit there.
bool StaysInPlace(const C_ImageSection& section) {
  return section.m_bPlaced && (!section.HasFileBytes() || section.m_vData.size() <= section.m_dwPlacedSize);
}

}  // namespace

C_ImageLayout PlanImageLayout(const C_ObjectImage& image, bool bCompact) {
  const KEL_EHDR& header = image.Header();
  const auto& sections = image.Sections();
  C_ImageLayout layout;
  layout.m_vOffsets.assign(sections.size(), 0);
  std::uint64_t qwEnd = sizeof(KEL_EHDR);
  std::uint64_t qwPadding = 0;
  layout.m_dwProgramTable = header.e_phoff;
  if (bCompact) {
    if (header.e_phnum != 0) layout.m_dwProgramTable = sizeof(KEL_EHDR);
    qwEnd += ProgramTableSize(header);
  } else {
    qwEnd = std::max<std::uint64_t>(qwEnd, image.Original().size());
  }
  std::vector<std::size_t> vMoving;
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const C_ImageSection& section = *sections[i];
    if (!bCompact && StaysInPlace(section)) {
      layout.m_vOffsets[i] = section.m_dwPlacedOffset;
    } else if (section.m_Header.sh_type == SHT_KEL_NULL && section.m_vData.empty()) {
      layout.m_vOffsets[i] = 0;  // the null section lies nowhere
    } else if (!section.HasFileBytes()) {
      std::uint64_t qwUnused = qwPadding;  // a section of no file bytes pads nothing
      layout.m_vOffsets[i] = static_cast<DWORD>(AlignUp(qwEnd, section.m_Header.sh_addralign, &qwUnused));
    } else if (bCompact) {
      const std::uint64_t qwAt = AlignUp(qwEnd, section.m_Header.sh_addralign, &qwPadding);
      layout.m_vOffsets[i] = static_cast<DWORD>(qwAt);
      qwEnd = qwAt + section.m_vData.size();
    } else {
      vMoving.push_back(i);
    }
  }
  for (std::size_t i : vMoving) {
    const std::uint64_t qwAt = AlignUp(qwEnd, sections[i]->m_Header.sh_addralign, &qwPadding);
    layout.m_vOffsets[i] = static_cast<DWORD>(qwAt);
    qwEnd = qwAt + sections[i]->m_vData.size();
  }
  layout.m_dwSectionTable = header.e_shoff;
  if (!sections.empty()) {
    // A table is kept only where the bytes read held it whole, whatever the reader accepted.
    const bool bKeepTable = !bCompact && image.HadSectionTable() && sections.size() <= image.OriginalSectionCount() &&
                            image.OriginalSectionTable() + std::uint64_t(image.OriginalSectionCount()) * sizeof(KEL_SHDR) <= image.Original().size();
    if (bKeepTable) {
      layout.m_dwSectionTable = image.OriginalSectionTable();
    } else {
      const std::uint64_t qwAt = AlignUp(qwEnd, kTableAlignment, &qwPadding);
      layout.m_dwSectionTable = static_cast<DWORD>(qwAt);
      qwEnd = qwAt + sections.size() * sizeof(KEL_SHDR);
    }
  }
  if (qwEnd > kFileLimit) ThrowImageFailure("the saved object would pass 4 GiB");
  layout.m_dwSize = static_cast<DWORD>(qwEnd);
  return layout;
}

std::vector<BYTE> RenderImage(const C_ObjectImage& image, const C_ImageLayout& layout, bool bCompact) {
  const std::vector<BYTE>& vOriginal = image.Original();
  const auto& sections = image.Sections();
  std::vector<BYTE> vFile(layout.m_dwSize, 0);
  // What lies between the parts (padding, bytes no header names) is kept; what the parts held is
  // cleared first, so that a removed or moved section leaves zeros.
  if (!bCompact) {
    std::copy(vOriginal.begin(), vOriginal.begin() + std::min<std::size_t>(vOriginal.size(), vFile.size()), vFile.begin());
    auto clear = [&](std::uint64_t qwAt, std::uint64_t qwSize) {
      if (qwAt >= vFile.size()) return;
      std::fill_n(vFile.begin() + qwAt, std::min<std::uint64_t>(qwSize, vFile.size() - qwAt), BYTE(0));
    };
    for (const auto& range : image.OriginalRanges()) clear(range.first, range.second);
    if (image.HadSectionTable()) clear(image.OriginalSectionTable(), std::uint64_t(image.OriginalSectionCount()) * sizeof(KEL_SHDR));
  }
  KEL_EHDR header = image.Header();
  header.e_phoff = layout.m_dwProgramTable;
  header.e_shoff = layout.m_dwSectionTable;
  const std::uint64_t qwProgramFrom = image.Header().e_phoff;
  for (DWORD i = 0; i < header.e_phnum && qwProgramFrom + (i + 1) * std::uint64_t(sizeof(KEL_PHDR)) <= vOriginal.size(); ++i) {
    KEL_PHDR program;
    memcpy(&program, vOriginal.data() + qwProgramFrom + i * sizeof(KEL_PHDR), sizeof program);
    // A segment that began where a section began follows it.
    for (std::size_t j = 0; j < sections.size(); ++j) {
      const C_ImageSection& section = *sections[j];
      if (section.m_bPlaced && section.HasFileBytes() && section.m_dwPlacedSize != 0 && section.m_dwPlacedOffset == program.p_offset) {
        program.p_offset = layout.m_vOffsets[j];
        break;
      }
    }
    memcpy(vFile.data() + layout.m_dwProgramTable + i * sizeof(KEL_PHDR), &program, sizeof program);
  }
  if (header.e_ident[5] == kBigEndian) SwapHeaderFields(header);
  memcpy(vFile.data(), &header, sizeof header);
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const C_ImageSection& section = *sections[i];
    if (section.HasFileBytes() && !section.m_vData.empty()) {
      memcpy(vFile.data() + layout.m_vOffsets[i], section.m_vData.data(), section.m_vData.size());
    }
    KEL_SHDR record = section.m_Header;
    record.sh_offset = layout.m_vOffsets[i];
    memcpy(vFile.data() + layout.m_dwSectionTable + i * sizeof(KEL_SHDR), &record, sizeof record);
  }
  return vFile;
}

void CheckRenderedObject(const std::vector<BYTE>& vFile, const C_ObjectImage& image) {
  struct Part {
    std::uint64_t qwFrom, qwTo;
    std::string sName;
  };
  if (vFile.size() < sizeof(KEL_EHDR)) ThrowImageFailure("the saved object is shorter than its file header");
  KEL_EHDR header;
  memcpy(&header, vFile.data(), sizeof header);
  if (header.e_ident[5] == kBigEndian) SwapHeaderFields(header);
  std::vector<Part> parts{{0, sizeof(KEL_EHDR), "the file header"}};
  if (header.e_phnum != 0) parts.push_back({header.e_phoff, header.e_phoff + ProgramTableSize(header), "the program header table"});
  if (header.e_shnum != 0) {
    parts.push_back({header.e_shoff, header.e_shoff + std::uint64_t(header.e_shnum) * sizeof(KEL_SHDR), "the section header table"});
  }
  for (const Part& part : parts) {
    if (part.qwTo > vFile.size()) ThrowImageFailure(part.sName + " would lie past the end of the saved object");
  }
  for (DWORD i = 0; i < header.e_shnum; ++i) {
    KEL_SHDR record;
    memcpy(&record, vFile.data() + header.e_shoff + i * sizeof(KEL_SHDR), sizeof record);
    if (record.sh_type == C_ImageSection::kNobitsType || record.sh_size == 0) continue;
    const std::string sName = std::to_string(i) + (i < image.Sections().size() ? " (" + image.Sections()[i]->m_Name.m_sText + ")" : "");
    const Part part{record.sh_offset, std::uint64_t(record.sh_offset) + record.sh_size, "section " + sName};
    if (part.qwTo > vFile.size()) ThrowImageFailure(part.sName + " would lie past the end of the saved object");
    parts.push_back(part);
  }
  std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.qwFrom < b.qwFrom; });
  const Part* pReach = nullptr;  // of the parts so far, the one that reaches furthest
  for (const Part& part : parts) {
    if (pReach && part.qwFrom < pReach->qwTo) {
      ThrowImageFailure(part.sName + " would overlap " + pReach->sName + " (--compact lays the object out afresh)");
    }
    if (!pReach || part.qwTo > pReach->qwTo) pReach = &part;
  }
}

DWORD WriteObjectImage(C_ObjectImage& image, C_ReplacingFile& output, bool bCompact) {
  image.Finalize();
  const C_ImageLayout layout = PlanImageLayout(image, bCompact);
  const std::vector<BYTE> vFile = RenderImage(image, layout, bCompact);
  std::string sContext = "While writing %s";
  sContext.replace(sContext.find("%s"), 2, output.Target());
  output.Write(vFile.data(), static_cast<DWORD>(vFile.size()), sContext.c_str());
  // What reached the file is what is checked: it is read back before it replaces the target.
  const std::vector<BYTE> vSaved = output.ReadBack(static_cast<DWORD>(vFile.size()));
  if (vSaved != vFile) {
    const auto mismatch = std::mismatch(vSaved.begin(), vSaved.end(), vFile.begin());
    ThrowImageFailure("the saved object read back differs from what was written, from byte " +
                      std::to_string(mismatch.first - vSaved.begin()));
  }
  CheckRenderedObject(vSaved, image);
  output.Commit();
  return layout.m_dwSize;
}
