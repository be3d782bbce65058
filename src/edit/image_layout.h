// Where a finalized object image goes in its file, and the file's bytes.
//
//   kept layout    the file read, byte for byte; each section stays where it was unless it
//                  grew or is new (then: the end, at its alignment); the section header table
//                  stays unless it grew (then: the end, 4-aligned)
//   compact        file header | program headers | sections in index order, each at its
//                  alignment | section header table (4-aligned)
#pragma once

#include <vector>

#include "edit/object_image.h"

class C_ReplacingFile;

struct C_ImageLayout {
  std::vector<DWORD> m_vOffsets;  // by section index
  DWORD m_dwProgramTable = 0;
  DWORD m_dwSectionTable = 0;
  DWORD m_dwSize = 0;
};

// Plans every offset of a finalized image. Throws ThrowImageFailure's failure when the object
// would pass 4 GiB.
C_ImageLayout PlanImageLayout(const C_ObjectImage& image, bool bCompact);
// The file's bytes as planned: the header in its own byte order, the program headers (their
// offsets following the sections they pointed at), the contents and the section headers.
std::vector<BYTE> RenderImage(const C_ObjectImage& image, const C_ImageLayout& layout, bool bCompact);
// Reads the headers of a saved object's bytes and fails, naming the parts, when a table or a
// section lies past the end or two of them overlap.
void CheckRenderedObject(const std::vector<BYTE>& vFile, const C_ObjectImage& image);

// Finalize, plan, render, write to the output, read the written bytes back and check them, then
// commit. The target is untouched when any step fails. Returns the size written.
DWORD WriteObjectImage(C_ObjectImage& image, C_ReplacingFile& output, bool bCompact);
