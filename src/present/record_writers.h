// Writers of the records that more than one dump shows: the file header block, program and
// section header lines, and the symbol line. Each writes to the stream it is given.
#pragma once

#include <ostream>

#include "object/kelf_records.h"
#include "present/dump.h"

// "MAGIC\tCLASS\tDATA\tVER" and the identification, then one "Label\t= value" line per field.
void WriteFileHeaderBlock(std::ostream& os, const KEL_EHDR& header);

// The column titles of the program header lines, and the fields of one line after its "[i]".
void WriteProgramHeaderTitles(std::ostream& os);
void AppendProgramHeaderFields(C_DumpLine& line, const KEL_PHDR& header);

// "--------------- Section Header --------------------", the column titles and one line per
// section header.
void WriteSectionHeaderTable(std::ostream& os, const KEL_SHDR* pHeaders, DWORD dwCount);

// The symbol table's heading and column titles, and the fields of a symbol line between its
// "[i]" and its name.
void WriteSymbolHeading(std::ostream& os);
void AppendSymbolFields(C_DumpLine& line, const ELF32_SYM& symbol);
