// Converts ELF64 relocatable objects (a real toolchain's output, e.g. the members of libc.a) into
// KELF objects of the same shape: every section keeps its index, name, flags and, where its
// contents still fit, its file offset and alignment, so the gaps and padding of real files
// survive. Symbols become 16-byte records; each RELA section becomes a relocation table of type
// 22 whose records compute SYM s, NUM addend, + in one shared expression table appended last.
// Types without a KELF meaning become 0x1000 + type, kept byte for byte by kofd.
//
// Usage: kofd_make_corpus OUT_DIR ELF64_OBJECT...     (writes OUT_DIR/<name>.kelf; inputs that
// are no ELF64 relocatable object are skipped and counted)
#include <elf.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kChip = 110;
constexpr std::uint32_t kShtExpr = 18, kShtRelxeb = 22, kUnknownBase = 0x1000;
constexpr std::uint32_t kTokenAdd = 1, kTokenNum = 12, kTokenSym = 13;
constexpr std::size_t kHeaderSize = 56, kSectionHeaderSize = 40;

void Put16(Bytes& out, std::size_t at, std::uint32_t value) {
  if (out.size() < at + 2) out.resize(at + 2, 0);
  out[at] = static_cast<std::uint8_t>(value);
  out[at + 1] = static_cast<std::uint8_t>(value >> 8);
}
void Put32(Bytes& out, std::size_t at, std::uint32_t value) {
  if (out.size() < at + 4) out.resize(at + 4, 0);
  for (int i = 0; i < 4; ++i) out[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}
void Append32(Bytes& out, std::uint32_t value) { Put32(out, out.size(), value); }
std::uint32_t AlignUp(std::uint64_t value, std::uint64_t align) {
  if (align < 2) return static_cast<std::uint32_t>(value);
  return static_cast<std::uint32_t>((value + align - 1) / align * align);
}

struct OutSection {
  std::uint32_t name = 0, type = 0, flags = 0, addr = 0, offset = 0, size = 0, link = 0, info = 0, align = 0,
                entsize = 0;
  Bytes data;  // empty for NOBITS
  bool nobits = false;
};

bool Convert(const Bytes& in, Bytes& out) {
  if (in.size() < sizeof(Elf64_Ehdr) || std::memcmp(in.data(), ELFMAG, SELFMAG) != 0 || in[EI_CLASS] != ELFCLASS64 ||
      in[EI_DATA] != ELFDATA2LSB)
    return false;
  Elf64_Ehdr eh;
  std::memcpy(&eh, in.data(), sizeof eh);
  if (eh.e_type != ET_REL || eh.e_shentsize != sizeof(Elf64_Shdr) || eh.e_shnum == 0 ||
      eh.e_shoff + std::uint64_t(eh.e_shnum) * sizeof(Elf64_Shdr) > in.size())
    return false;
  std::vector<Elf64_Shdr> shdrs(eh.e_shnum);
  std::memcpy(shdrs.data(), in.data() + eh.e_shoff, eh.e_shnum * sizeof(Elf64_Shdr));
  for (const Elf64_Shdr& sh : shdrs) {
    if (sh.sh_type != SHT_NOBITS && sh.sh_type != SHT_NULL && sh.sh_offset + sh.sh_size > in.size()) return false;
  }

  const std::uint32_t exprIndex = eh.e_shnum;  // the expression table goes after every original section
  std::uint32_t symtabIndex = 0;
  for (std::uint32_t i = 0; i < eh.e_shnum; ++i) {
    if (shdrs[i].sh_type == SHT_SYMTAB) symtabIndex = i;
  }
  Bytes tokens;
  std::vector<OutSection> sections(eh.e_shnum + 1);
  bool anyRela = false;
  for (std::uint32_t i = 1; i < eh.e_shnum; ++i) {
    const Elf64_Shdr& sh = shdrs[i];
    OutSection& s = sections[i];
    s.name = sh.sh_name;
    s.flags = static_cast<std::uint32_t>(sh.sh_flags);
    s.addr = static_cast<std::uint32_t>(sh.sh_addr);
    s.link = sh.sh_link;
    s.info = sh.sh_info;
    s.align = static_cast<std::uint32_t>(sh.sh_addralign);
    s.entsize = static_cast<std::uint32_t>(sh.sh_entsize);
    const std::uint8_t* src = in.data() + sh.sh_offset;
    switch (sh.sh_type) {
      case SHT_PROGBITS:
      case SHT_STRTAB:
        s.type = sh.sh_type;
        s.data.assign(src, src + sh.sh_size);
        break;
      case SHT_NOBITS:
        s.type = 8;
        s.nobits = true;
        s.size = static_cast<std::uint32_t>(sh.sh_size);
        break;
      case SHT_SYMTAB:
        s.type = 2;
        s.entsize = 16;
        for (std::size_t at = 0; at + sizeof(Elf64_Sym) <= sh.sh_size; at += sizeof(Elf64_Sym)) {
          Elf64_Sym sym;
          std::memcpy(&sym, src + at, sizeof sym);
          Append32(s.data, sym.st_name);
          Append32(s.data, static_cast<std::uint32_t>(sym.st_value));
          Append32(s.data, static_cast<std::uint32_t>(sym.st_size));
          s.data.push_back(sym.st_info);
          s.data.push_back(sym.st_other);
          Put16(s.data, s.data.size(), sym.st_shndx);
        }
        break;
      case SHT_RELA:
        anyRela = true;
        s.type = kShtRelxeb;
        s.entsize = 20;
        s.link = exprIndex;
        for (std::size_t at = 0; at + sizeof(Elf64_Rela) <= sh.sh_size; at += sizeof(Elf64_Rela)) {
          Elf64_Rela rela;
          std::memcpy(&rela, src + at, sizeof rela);
          const std::uint32_t symndx = static_cast<std::uint32_t>(ELF64_R_SYM(rela.r_info));
          const std::uint32_t first = static_cast<std::uint32_t>(tokens.size() / 8);
          // A relocation against no symbol computes its addend alone.
          if (symndx != 0) {
            Append32(tokens, kTokenSym);
            Append32(tokens, symndx);
          }
          Append32(tokens, kTokenNum);
          Append32(tokens, static_cast<std::uint32_t>(rela.r_addend));
          if (symndx != 0) {
            Append32(tokens, kTokenAdd);
            Append32(tokens, 0);
          }
          const std::uint32_t last = static_cast<std::uint32_t>(tokens.size() / 8) - 1;
          Append32(s.data, static_cast<std::uint32_t>(rela.r_offset));
          Append32(s.data, (symndx << 8) | static_cast<std::uint8_t>(ELF64_R_TYPE(rela.r_info)));
          Put16(s.data, s.data.size(), 0);
          Put16(s.data, s.data.size(), 31);
          Append32(s.data, first);
          Append32(s.data, last);
        }
        break;
      default:
        s.type = kUnknownBase + sh.sh_type;
        s.data.assign(src, src + sh.sh_size);
        break;
    }
    if (!s.nobits) s.size = static_cast<std::uint32_t>(s.data.size());
  }

  // The original offsets hold: converted records are never larger than ELF64's.
  std::uint64_t end = kHeaderSize;
  for (std::uint32_t i = 1; i < eh.e_shnum; ++i) {
    OutSection& s = sections[i];
    s.offset = static_cast<std::uint32_t>(shdrs[i].sh_offset);
    if (s.offset < kHeaderSize) s.offset = AlignUp(kHeaderSize, s.align);
    if (!s.nobits) end = std::max<std::uint64_t>(end, s.offset + s.data.size());
  }
  // The section header table stays where it was when the larger count still fits there.
  const std::uint32_t shnum = anyRela ? eh.e_shnum + 1u : eh.e_shnum;
  std::uint64_t fileEnd = std::max<std::uint64_t>(in.size(), end);
  std::uint32_t shoff = static_cast<std::uint32_t>(eh.e_shoff);
  const bool tableFits = shnum * kSectionHeaderSize <= std::uint64_t(eh.e_shnum) * sizeof(Elf64_Shdr);
  if (anyRela) {
    OutSection& e = sections[exprIndex];
    e.name = 0;  // named below
    e.type = kShtExpr;
    e.link = symtabIndex;
    e.align = 4;
    e.entsize = 8;
    e.data = tokens;
    e.size = static_cast<std::uint32_t>(tokens.size());
    e.offset = AlignUp(fileEnd, 4);
    fileEnd = e.offset + e.data.size();
  } else {
    sections.pop_back();
  }
  if (!tableFits) {
    shoff = AlignUp(fileEnd, 4);
    fileEnd = shoff;
  }
  fileEnd = std::max<std::uint64_t>(fileEnd, shoff + std::uint64_t(shnum) * kSectionHeaderSize);

  // The expression table's name: ".expr" appended to the section-name table when it is last in
  // the file, else no name (offset 0, the empty string).
  if (anyRela && eh.e_shstrndx < eh.e_shnum) {
    OutSection& names = sections[eh.e_shstrndx];
    const std::uint64_t namesEnd = std::uint64_t(names.offset) + names.data.size();
    bool free = namesEnd + 6 <= fileEnd;
    for (std::uint32_t i = 1; i < sections.size() && free; ++i) {
      const OutSection& s = sections[i];
      if (i == eh.e_shstrndx || s.nobits || s.data.empty()) continue;
      if (s.offset < namesEnd + 6 && s.offset + s.data.size() > namesEnd) free = false;
    }
    if (shoff < namesEnd + 6 && shoff + std::uint64_t(shnum) * kSectionHeaderSize > namesEnd) free = false;
    if (free) {
      sections[exprIndex].name = static_cast<std::uint32_t>(names.data.size());
      for (char c : std::string(".expr")) names.data.push_back(static_cast<std::uint8_t>(c));
      names.data.push_back(0);
      names.size = static_cast<std::uint32_t>(names.data.size());
    }
  }

  out.assign(fileEnd, 0);
  out[0] = 0x7F, out[1] = 'E', out[2] = 'L', out[3] = 'F';
  out[4] = 1, out[5] = 1, out[6] = 1;
  Put16(out, 16, 1);  // RELOCATABLE
  Put16(out, 18, 0);
  Put32(out, 20, kChip);
  Put32(out, 24, 1);
  Put32(out, 28, 0);
  Put32(out, 32, 0);
  Put32(out, 36, shoff);
  Put32(out, 40, eh.e_flags);
  Put16(out, 44, kHeaderSize);
  Put16(out, 46, 0);
  Put16(out, 48, 0);
  Put16(out, 50, kSectionHeaderSize);
  Put16(out, 52, shnum);
  Put16(out, 54, eh.e_shstrndx);
  for (std::uint32_t i = 1; i < sections.size(); ++i) {
    const OutSection& s = sections[i];
    std::copy(s.data.begin(), s.data.end(), out.begin() + s.offset);
  }
  for (std::uint32_t i = 1; i < sections.size(); ++i) {
    const OutSection& s = sections[i];
    const std::size_t at = shoff + i * kSectionHeaderSize;
    const std::uint32_t fields[] = {s.name, s.type, s.flags, s.addr, s.offset, s.size, s.link, s.info, s.align, s.entsize};
    for (std::size_t f = 0; f < 10; ++f) Put32(out, at + 4 * f, fields[f]);
  }
  return true;
}

bool ReadFile(const std::string& path, Bytes& data) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: kofd_make_corpus OUT_DIR ELF64_OBJECT...\n");
    return 2;
  }
  const std::string outDir = argv[1];
  std::size_t written = 0, skipped = 0;
  Bytes in, out;
  for (int i = 2; i < argc; ++i) {
    std::string name = argv[i];
    name = name.substr(name.find_last_of('/') + 1);
    if (!ReadFile(argv[i], in) || !Convert(in, out)) {
      ++skipped;
      continue;
    }
    std::ofstream file(outDir + "/" + name.substr(0, name.rfind('.')) + ".kelf", std::ios::binary);
    file.write(reinterpret_cast<const char*>(out.data()), static_cast<std::streamsize>(out.size()));
    if (!file) {
      fprintf(stderr, "kofd_make_corpus: cannot write into %s\n", outDir.c_str());
      return 1;
    }
    ++written;
  }
  printf("%zu objects written, %zu inputs skipped\n", written, skipped);
  return 0;
}
