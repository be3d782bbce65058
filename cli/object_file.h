// Opening an object for a command, and choosing its sections by index or name.
#pragma once

#include <memory>
#include <string>

#include "object/kofd_elf.h"

namespace cli {

// The newest document revision, opened on sPath; throws the document's failure.
std::unique_ptr<C_KOfdELF4> OpenObject(const std::string& sPath);

// The section that sSelector names: a decimal index, or a name compared ignoring case (the
// first match). False when it names none.
bool ResolveSection(I_KOfdELF& document, const std::string& sSelector, DWORD* pdwIndex);

// The section's name, "" when it has none.
std::string SectionName(I_KOfdELF& document, DWORD dwIndex);

}  // namespace cli
