// The dumps of a whole object.
#pragma once

#include <vector>

#include "object/kofd_elf.h"
#include "present/dump.h"

// What an object's whole dump is made of, in its order: the file header, program header and
// section header listings, then every section that has a section object, in index order.
std::vector<I_KOfdDump*> GetDumpParts(I_KOfdELF& document);
