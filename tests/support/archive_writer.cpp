#include "archive_writer.h"

#include <stdexcept>
#include <utility>

namespace kelf_test {

void SetHeaderField(Bytes& bytes, std::size_t headerAt, HeaderField field, const std::string& text) {
  if (text.size() > field.width) throw std::invalid_argument("header field text too long: " + text);
  if (bytes.size() < headerAt + field.offset + field.width) bytes.resize(headerAt + field.offset + field.width);
  for (std::size_t i = 0; i < field.width; ++i)
    bytes[headerAt + field.offset + i] = i < text.size() ? static_cast<std::uint8_t>(text[i]) : ' ';
}

Bytes MemberHeader(std::optional<std::int64_t> nameIndex, std::int64_t date, std::int64_t owner,
                   std::int64_t size) {
  Bytes header(kMemberHeaderSize, ' ');
  header[0] = '/';
  header[58] = '\'';
  header[59] = '\n';
  if (nameIndex) SetHeaderField(header, 0, kFieldName, std::to_string(*nameIndex));
  SetHeaderField(header, 0, kFieldDate, std::to_string(date));
  SetHeaderField(header, 0, kFieldOwner, std::to_string(owner));
  SetHeaderField(header, 0, kFieldSize, std::to_string(size));
  return header;
}

Bytes LinkerMemberData(std::uint32_t version, const std::vector<std::uint32_t>& offsets,
                       const std::vector<std::uint32_t>& memberIndices,
                       const std::vector<std::string>& names) {
  Bytes out;
  Append32(out, version);
  Append32(out, static_cast<std::uint32_t>(offsets.size()));
  for (std::uint32_t offset : offsets) Append32(out, offset);
  Append32(out, static_cast<std::uint32_t>(memberIndices.size()));
  for (std::uint32_t index : memberIndices) Append32(out, index);
  for (const std::string& name : names) {
    out.insert(out.end(), name.begin(), name.end());
    out.push_back(0);
  }
  return out;
}

std::size_t ArchiveBuilder::AddMember(std::string name, Bytes data, std::int64_t date) {
  m_members.push_back({std::move(name), std::move(data), date});
  return m_members.size() - 1;
}

ArchiveBuilder& ArchiveBuilder::AddSymbol(std::string name, std::uint32_t memberIndex) {
  m_symbolNames.push_back(std::move(name));
  m_symbolMembers.push_back(memberIndex);
  return *this;
}

Bytes ArchiveBuilder::Build(ArchiveLayout* layoutOut) const {
  StringTable names;
  std::vector<std::uint32_t> nameIndices;
  for (const Member& member : m_members) nameIndices.push_back(names.Add(member.name));
  const Bytes nameData = m_nameData.value_or(names.Data());

  // The linker member's size does not depend on the offsets it stores, so it is laid
  // out with placeholders first and rebuilt once the member headers are placed.
  const auto linkerDataFor = [&](const std::vector<std::uint32_t>& offsets) {
    return m_linkerData.value_or(
        LinkerMemberData(m_version, m_offsets.value_or(offsets), m_symbolMembers, m_symbolNames));
  };
  std::vector<std::uint32_t> offsets(m_members.size(), 0);
  Bytes linkerData = linkerDataFor(offsets);

  ArchiveLayout layout;
  layout.nameHeader = layout.linkerHeader + kMemberHeaderSize + linkerData.size();
  std::size_t position = layout.nameHeader + kMemberHeaderSize + nameData.size();
  for (std::size_t i = 0; i < m_members.size(); ++i) {
    layout.memberHeaders.push_back(position);
    offsets[i] = static_cast<std::uint32_t>(position);
    position += kMemberHeaderSize + m_members[i].data.size();
  }
  linkerData = linkerDataFor(offsets);

  Bytes out(kArchiveMagic, kArchiveMagic + kArchiveMagicSize);
  Append(out, MemberHeader(std::nullopt, m_date, 0, static_cast<std::int64_t>(linkerData.size())));
  Append(out, linkerData);
  Append(out, MemberHeader(std::nullopt, m_date, 0, static_cast<std::int64_t>(nameData.size())));
  Append(out, nameData);
  for (std::size_t i = 0; i < m_members.size(); ++i) {
    const Member& member = m_members[i];
    Append(out, MemberHeader(nameIndices[i], member.date, 0, static_cast<std::int64_t>(member.data.size())));
    Append(out, member.data);
  }
  if (layoutOut) *layoutOut = std::move(layout);
  return out;
}

void ArchiveBuilder::WriteFile(const std::string& path) const { kelf_test::WriteFile(path, Build()); }

}  // namespace kelf_test
