#include "kelf_writer.h"

#include <fstream>
#include <stdexcept>
#include <utility>

namespace kelf_test {

static void PutBytes(Bytes& out, std::size_t at, std::uint32_t value, std::size_t width, bool bigEndian) {
  if (out.size() < at + width) out.resize(at + width);
  for (std::size_t i = 0; i < width; ++i) {
    const std::size_t shift = 8 * (bigEndian ? width - 1 - i : i);
    out[at + i] = static_cast<std::uint8_t>(value >> shift);
  }
}

void Put16(Bytes& out, std::size_t at, std::uint16_t value, bool bigEndian) {
  PutBytes(out, at, value, 2, bigEndian);
}

void Put32(Bytes& out, std::size_t at, std::uint32_t value, bool bigEndian) {
  PutBytes(out, at, value, 4, bigEndian);
}

void Append8(Bytes& out, std::uint8_t value) { out.push_back(value); }

void Append16(Bytes& out, std::uint16_t value, bool bigEndian) {
  Put16(out, out.size(), value, bigEndian);
}

void Append32(Bytes& out, std::uint32_t value, bool bigEndian) {
  Put32(out, out.size(), value, bigEndian);
}

void Append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) Append(out, part);
  return out;
}

Bytes Words(std::initializer_list<std::uint32_t> words, bool bigEndian) {
  Bytes out;
  for (std::uint32_t word : words) Append32(out, word, bigEndian);
  return out;
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

Bytes Sym(std::uint32_t nameOffset, std::uint32_t value, std::uint32_t size, std::uint8_t bind,
          std::uint8_t type, std::uint8_t other, std::uint16_t shndx) {
  Bytes out;
  Append32(out, nameOffset);
  Append32(out, value);
  Append32(out, size);
  Append8(out, static_cast<std::uint8_t>((bind << 4) | (type & 0x0F)));
  Append8(out, other);
  Append16(out, shndx);
  return out;
}

Bytes Line(std::uint32_t offset, std::uint32_t line) { return Words({offset, line}); }

Bytes SrcLine(std::uint32_t offset, std::uint32_t line, std::uint32_t nameIndex) {
  return Words({offset, line, nameIndex});
}

Bytes Stab(std::uint32_t nameIndex, std::uint8_t type, std::uint8_t other, std::uint16_t desc,
           std::uint32_t value) {
  Bytes out;
  Append32(out, nameIndex);
  Append8(out, type);
  Append8(out, other);
  Append16(out, desc);
  Append32(out, value);
  return out;
}

Bytes Exp(std::uint32_t type, std::uint32_t value) { return Words({type, value}); }

static std::uint32_t RelocationInfo(std::uint32_t symndx, std::uint8_t type) {
  return (symndx << 8) | type;
}

Bytes Relxe(std::uint32_t offset, std::uint32_t symndx, std::uint8_t type, std::uint16_t tStart,
            std::uint16_t tEnd, std::uint16_t eStart, std::uint16_t eEnd) {
  Bytes out = Words({offset, RelocationInfo(symndx, type)});
  for (std::uint16_t half : {tStart, tEnd, eStart, eEnd}) Append16(out, half);
  return out;
}

Bytes Relxeb(std::uint32_t offset, std::uint32_t symndx, std::uint8_t type, std::uint16_t toStart,
             std::uint16_t toEnd, std::uint32_t expStart, std::uint32_t expEnd) {
  Bytes out = Words({offset, RelocationInfo(symndx, type)});
  Append16(out, toStart);
  Append16(out, toEnd);
  Append32(out, expStart);
  Append32(out, expEnd);
  return out;
}

Bytes BankInfo(std::uint32_t address, std::uint32_t bank) { return Words({address, bank}); }

Bytes KmdInfo(std::uint32_t nameIndex, std::uint32_t value, std::uint32_t size, std::uint32_t gain) {
  return Words({nameIndex, value, size, gain});
}

StringTable StringTable::WithNul() {
  StringTable table;
  table.Add("");
  return table;
}

std::uint32_t StringTable::Add(const std::string& text) {
  const std::uint32_t offset = Size();
  m_bytes.insert(m_bytes.end(), text.begin(), text.end());
  m_bytes.push_back(0);
  return offset;
}

ObjectBuilder::ObjectBuilder(ObjectOptions options) : m_options(options) {}

std::size_t ObjectBuilder::AddProgramHeader(const ProgramHeader& header) {
  m_programs.push_back(header);
  return m_programs.size() - 1;
}

std::size_t ObjectBuilder::AddSection(Section section) {
  m_sections.push_back(std::move(section));
  return m_sections.size() - (m_options.nullSection ? 0 : 1);
}

Section& ObjectBuilder::SectionAt(std::size_t index) {
  return m_sections.at(index - (m_options.nullSection ? 1 : 0));
}

std::size_t ObjectBuilder::SectionCount() const {
  return m_sections.size() + (m_options.nullSection ? 1 : 0) + (m_options.shstrtab ? 1 : 0);
}

static std::uint32_t AlignUp(std::uint32_t value, bool align4) {
  return align4 ? (value + 3u) & ~3u : value;
}

Bytes ObjectBuilder::Build(ObjectLayout* layoutOut) const {
  // The full section list: null section, the caller's sections, then the name table.
  std::vector<Section> sections;
  if (m_options.nullSection) {
    sections.emplace_back();
    sections.back().addralign = 0;  // all fields zero
  }
  sections.insert(sections.end(), m_sections.begin(), m_sections.end());

  StringTable names = StringTable::WithNul();
  std::vector<std::uint32_t> nameOffsets;
  for (const Section& section : sections) {
    if (section.nameOffset) nameOffsets.push_back(*section.nameOffset);
    else if (m_options.shstrtab && !section.name.empty()) nameOffsets.push_back(names.Add(section.name));
    else nameOffsets.push_back(0);
  }

  ObjectLayout layout;
  if (m_options.shstrtab) {
    layout.shstrndx = static_cast<std::uint32_t>(sections.size());
    nameOffsets.push_back(names.Add(".shstrtab"));
    Section table;
    table.name = ".shstrtab";
    table.type = kShtStrtab;
    table.data = names.Data();
    sections.push_back(std::move(table));
  }

  std::uint32_t position = kHeaderSize;
  if (!m_programs.empty()) {
    layout.phoff = position;
    position += static_cast<std::uint32_t>(m_programs.size() * kProgramHeaderSize);
  }
  for (std::size_t i = 0; i < sections.size(); ++i) {
    if (i == 0 && m_options.nullSection) {
      layout.sectionOffsets.push_back(0);
      continue;
    }
    position = AlignUp(position, m_options.align4);
    layout.sectionOffsets.push_back(position);
    position += static_cast<std::uint32_t>(sections[i].data.size());
  }
  if (!sections.empty()) layout.shoff = AlignUp(position, m_options.align4);

  const FileHeader& h = m_header;
  const bool big = h.data == 2;
  Bytes out(kHeaderSize, 0);
  for (std::size_t i = 0; i < h.magic.size(); ++i) out[i] = h.magic[i];
  out[4] = h.fileClass;
  out[5] = h.data;
  out[6] = h.identVersion;
  Put16(out, 16, h.type, big);
  Put16(out, 18, h.reserved);  // never converted
  Put32(out, 20, h.chip, big);
  Put32(out, 24, h.version, big);
  Put32(out, 28, h.entry, big);
  Put32(out, 32, h.phoff.value_or(layout.phoff), big);
  Put32(out, 36, h.shoff.value_or(layout.shoff), big);
  Put32(out, 40, h.flags, big);
  Put16(out, 44, h.ehsize, big);
  Put16(out, 46, h.phentsize, big);
  Put16(out, 48, h.phnum.value_or(static_cast<std::uint16_t>(m_programs.size())), big);
  Put16(out, 50, h.shentsize, big);
  Put16(out, 52, h.shnum.value_or(static_cast<std::uint16_t>(sections.size())), big);
  Put16(out, 54, h.shstrndx.value_or(static_cast<std::uint16_t>(layout.shstrndx)), big);

  for (const ProgramHeader& p : m_programs) {
    for (std::uint32_t field : {p.type, p.offset, p.vaddr, p.paddr, p.filesz, p.memsz, p.flags, p.align})
      Append32(out, field);
  }
  for (std::size_t i = 0; i < sections.size(); ++i) {
    if (sections[i].data.empty()) continue;
    out.resize(layout.sectionOffsets[i], 0);
    Append(out, sections[i].data);
  }
  if (!sections.empty()) out.resize(layout.shoff, 0);
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const Section& s = sections[i];
    const auto size = s.size.value_or(static_cast<std::uint32_t>(s.data.size()));
    const auto offset = s.offset.value_or(layout.sectionOffsets[i]);
    for (std::uint32_t field : {nameOffsets[i], s.type, s.flags, s.addr, offset, size, s.link, s.info,
                                s.addralign, s.entsize})
      Append32(out, field);
  }
  if (layoutOut) *layoutOut = std::move(layout);
  return out;
}

Section MakeSection(const std::string& name, std::uint32_t type, Bytes data, std::uint32_t link, std::uint32_t info) {
  Section section;
  section.name = name;
  section.type = type;
  section.data = std::move(data);
  section.link = link;
  section.info = info;
  return section;
}

void ObjectBuilder::WriteFile(const std::string& path) const { kelf_test::WriteFile(path, Build()); }

}  // namespace kelf_test
