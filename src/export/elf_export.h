// A KELF object as a standard ELF32 object that GNU readelf, objdump and nm read, and a KELF
// archive as a standard "!<arch>" library of such objects.
//
//   sections      every section at its own index, so symbols keep their section numbers; the
//                 types the standard knows (below 16) as they are, the chip's own types as
//                 SHT_LOUSER + type, their bytes unchanged
//   symbols       the symbol table as it is (KELF and ELF32 symbols have one layout)
//   relocations   a type-22 or type-17 record whose expression is SYM, SYM+NUM, SYM-NUM or NUM
//                 becomes an Elf32_Rela in ".rela" + the target's name (r_info: the symbol and
//                 the record's type byte; r_addend: the number); every other record is kept as
//                 text in the note
//   appended      ".shstrtab.elf" (all the names), ".note.kofd" (owner "kofd": type 1 the chip
//                 and file type, type 2 the relocations without a standard form)
//   byte order    little-endian, as the records of every KELF object are (a big-endian object
//                 has only its headers in that order); contents are copied as they are
//   not written   program headers (their offsets describe the KELF file's layout)
#pragma once

#include <string>
#include <vector>

#include "edit/object_image.h"

struct C_ElfExport {
  std::vector<BYTE> m_vBytes;
  DWORD m_dwSections = 0;          // in the ELF object, the appended ones included
  DWORD m_dwSymbols = 0;
  DWORD m_dwRelocations = 0;       // written as Elf32_Rela
  DWORD m_dwKeptRelocations = 0;   // without a standard form: text in the note
  std::vector<std::string> m_vGlobals;  // defined global and weak symbols, for an archive index
};

// The ELF32 object of a KELF object image (finalized here). Throws ThrowImageFailure's failure
// when the object would pass 4 GiB.
C_ElfExport ExportElfObject(C_ObjectImage& image);

struct C_ElfMember {
  std::string sName;
  C_ElfExport object;
};

// A standard archive: the symbol index "/" (every defined global of every member, in member
// order), the long-name table "//" when a name passes 15 characters, then the members; dates,
// owners and modes fixed, so one input gives one output.
std::vector<BYTE> WriteElfArchive(const std::vector<C_ElfMember>& vMembers);
