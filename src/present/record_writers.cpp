#include "present/record_writers.h"

#include "present/names.h"

void WriteFileHeaderBlock(std::ostream& os, const KEL_EHDR& header) {
  const BYTE* pIdent = header.e_ident;
  os << std::dec << "MAGIC\tCLASS\tDATA\tVER\n";
  // The magic and the version byte are written as raw characters.
  os.write(reinterpret_cast<const char*>(pIdent), 4);
  os << '\t' << FileClassName(pIdent[4]) << '\t' << DataEncodingName(pIdent[5]) << '\t';
  os.put(static_cast<char>(pIdent[6]));
  EndLine(os);
  os << "Chip\t\t= " << ChipName(header.e_chip);
  EndLine(os);
  os << "Reserved\t= " << header.e_reserved;
  EndLine(os);
  os << "Type\t\t= " << FileTypeName(header.e_type);
  EndLine(os);
  os << "Version\t\t= " << header.e_version;
  EndLine(os);
  // Entry sets hexadecimal, and PHOff and SHOff are still written in it.
  os << "Entry\t\t= " << std::hex << header.e_entry;
  EndLine(os);
  os << "PHOff\t\t= " << header.e_phoff;
  EndLine(os);
  os << "SHOff\t\t= " << header.e_shoff << std::dec;
  EndLine(os);
  os << "Flags\t\t= " << header.e_flags;
  EndLine(os);
  os << "EHSize\t\t= " << std::hex << header.e_ehsize;
  EndLine(os);
  os << "PHEntSize\t= " << header.e_phentsize << std::dec;
  EndLine(os);
  os << "PHNum\t\t= " << header.e_phnum;
  EndLine(os);
  os << "SHEntSize\t= " << std::hex << header.e_shentsize << std::dec;
  EndLine(os);
  os << "SHNum\t\t= " << header.e_shnum;
  EndLine(os);
  os << "SHStrndex\t= " << header.e_shstrndx;
  EndLine(os);
}

void WriteProgramHeaderTitles(std::ostream& os) {
  WriteHeading(os, "", {{"Index", 5}, {"Type", 8}, {"Offset", 9}, {"VAddr", 9}, {"PAddr", 9}, {"FileSize", 9},
                        {"MemSize", 9}, {"Flags", 6}, {"Align", 6}});
}

void AppendProgramHeaderFields(C_DumpLine& line, const KEL_PHDR& header) {
  line.Text(SegmentTypeName(header.p_type), 8)
      .Hex(header.p_offset, 9)
      .HexOrUndef(header.p_vaddr, 9)
      .HexOrUndef(header.p_paddr, 9)
      .Hex(header.p_filesz, 9)
      .Hex(header.p_memsz, 9)
      .Text(SegmentFlagsName(header.p_flags), 6)
      .Dec(header.p_align, 6);
}

void WriteSectionHeaderTable(std::ostream& os, const KEL_SHDR* pHeaders, DWORD dwCount) {
  os << "--------------- Section Header --------------------";
  EndLine(os);
  WriteHeading(os, "", {{"Index", 5}, {"Type", 8}, {"Flags", 6}, {"Addr", 9}, {"Offset", 9}, {"Size", 9},
                        {"Link", 5}, {"Info", 5}, {"Align", 6}, {"Entsize", 9}, {"Name", 5}});
  for (DWORD i = 0; i < dwCount; ++i) {
    const KEL_SHDR& header = pHeaders[i];
    C_DumpLine(os)
        .Index(i, kHeaderIndexBuffer)
        .Text(SectionTypeName(header.sh_type), 8)
        .Text(SectionFlagsName(header.sh_flags), 6)
        .HexOrUndef(header.sh_addr, 9)
        .Hex(header.sh_offset, 9)
        .Hex(header.sh_size, 9)
        .Dec(header.sh_link, 5)
        .Dec(header.sh_info, 5)
        .Dec(header.sh_addralign, 6)
        .Hex(header.sh_entsize, 9)
        .Dec(header.sh_name, 5)
        .End();
  }
}

void WriteSymbolHeading(std::ostream& os) {
  WriteHeading(os, "\n---------------- Symbol Table Information -------------------\n",
               {{"Index", 0}, {"Value", 9}, {"Size", 9}, {"Type", 8}, {"Bind", 7}, {"Other", 6}, {"Shndx", 9},
                {"Name", 5}});
}

void AppendSymbolFields(C_DumpLine& line, const ELF32_SYM& symbol) {
  line.HexOrUndef(symbol.st_value, 9)
      .Hex(symbol.st_size, 9)
      .Text(SymbolTypeName(symbol.st_info), 8)
      .Text(SymbolBindName(symbol.st_info), 7)
      .Char(static_cast<char>(symbol.st_other), 6)
      .Dec(symbol.st_shndx, 9)
      .Dec(symbol.st_name, 5);
}
