// The fixed-size records of a KELF object, as they lie in the file: little-endian, packed.
// Hosts are little-endian (x86), so records are copied out of file bytes as they stand.
//
//   file header (56)       identification (16) | Type Reserved Chip Version Entry PHOff SHOff
//                          Flags EHSize PHEntSize PHNum SHEntSize SHNum SHStrndex
//   program header (32)    Type Offset VAddr PAddr FileSize MemSize Flags Align
//   section header (40)    Name Type Flags Addr Offset Size Link Info Addralign Entsize
#pragma once

#include "frame/types.h"

#pragma pack(push, 1)

struct KEL_EHDR {
  BYTE e_ident[16];
  WORD e_type;
  WORD e_reserved;
  DWORD e_chip;
  DWORD e_version;
  DWORD e_entry;
  DWORD e_phoff;
  DWORD e_shoff;
  DWORD e_flags;
  WORD e_ehsize;
  WORD e_phentsize;
  WORD e_phnum;
  WORD e_shentsize;
  WORD e_shnum;
  WORD e_shstrndx;
};

struct KEL_PHDR {
  DWORD p_type;
  DWORD p_offset;
  DWORD p_vaddr;
  DWORD p_paddr;
  DWORD p_filesz;
  DWORD p_memsz;
  DWORD p_flags;
  DWORD p_align;
};

struct KEL_SHDR {
  DWORD sh_name;
  DWORD sh_type;
  DWORD sh_flags;
  DWORD sh_addr;
  DWORD sh_offset;
  DWORD sh_size;
  DWORD sh_link;
  DWORD sh_info;
  DWORD sh_addralign;
  DWORD sh_entsize;
};

struct ELF32_SYM {
  DWORD st_name;
  DWORD st_value;
  DWORD st_size;
  BYTE st_info;
  BYTE st_other;
  WORD st_shndx;
};

struct KEL_LINE {
  DWORD Offset;
  DWORD Line;
};

struct KEL_SRCLINE {
  DWORD Offset;
  DWORD Line;
  DWORD NameIndex;
};

struct KEL_STAB {
  DWORD n_strx;
  BYTE n_type;
  BYTE n_other;
  WORD n_desc;
  DWORD n_value;
};

struct KEL_EXP {
  DWORD Type;
  DWORD Value;
};

struct KEL_RELXE {
  DWORD Offset;
  DWORD Info;
  WORD t_start;
  WORD t_end;
  WORD e_start;
  WORD e_end;
};

struct KEL_RELXEB {
  DWORD Offset;
  DWORD Info;
  WORD to_start;
  WORD to_end;
  DWORD exp_start;
  DWORD exp_end;
};

struct KEL_BANKINFO {
  DWORD Address;
  DWORD Bank;
};

struct KEL_KMDINFO {
  DWORD NameIndex;
  DWORD Value;
  DWORD Size;
  DWORD Gain;
};

#pragma pack(pop)

static_assert(sizeof(KEL_EHDR) == 56, "file header");
static_assert(sizeof(KEL_PHDR) == 32, "program header");
static_assert(sizeof(KEL_SHDR) == 40, "section header");
static_assert(sizeof(ELF32_SYM) == 16, "symbol");
static_assert(sizeof(KEL_LINE) == 8, "line");
static_assert(sizeof(KEL_SRCLINE) == 12, "source line");
static_assert(sizeof(KEL_STAB) == 12, "stab");
static_assert(sizeof(KEL_EXP) == 8, "expression item");
static_assert(sizeof(KEL_RELXE) == 16, "relocation");
static_assert(sizeof(KEL_RELXEB) == 20, "relocation with 32-bit expression indices");
static_assert(sizeof(KEL_BANKINFO) == 8, "bank information");
static_assert(sizeof(KEL_KMDINFO) == 16, "KDM information");

// Section types.
enum : DWORD {
  SHT_KEL_NULL = 0,
  SHT_KEL_PROGBITS = 1,
  SHT_KEL_SYMTAB = 2,
  SHT_KEL_STRTAB = 3,
  SHT_KEL_RELX = 16,
  SHT_KEL_RELXE = 17,
  SHT_KEL_EXPR = 18,
  SHT_KEL_LINE = 19,
  SHT_KEL_BNKINFO = 20,
  SHT_KEL_SROM = 21,
  SHT_KEL_RELXEB = 22,
  SHT_KEL_KDM = 23,
  SHT_KEL_KDMINFO = 24,
  SHT_KEL_SRCLINE = 25,
};

// Special symbol section indexes.
enum : WORD { SHN_KEL_UNDEF = 0, SHN_KEL_ABS = 0xFFF1, SHN_KEL_UNDEF2 = 0xFFFF };
