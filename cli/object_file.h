// Opening an object for a command, and choosing its sections by index or name.
#pragma once

#include <memory>
#include <string>

#include "archive/archive.h"
#include "object/kofd_elf.h"

namespace cli {

// What a file is, as the factory decides from its first bytes.
enum class FileKind { kObject, kArchive, kOther };
FileKind KindOfFile(const std::string& sPath);

// The newest document revision, opened on sPath; throws the document's failure.
std::unique_ptr<C_KOfdELF4> OpenObject(const std::string& sPath);

// Attaches the archive to sPath and opens it; throws the archive's failure.
void OpenArchive(C_KOfdArchive& archive, const std::string& sPath);

// The section that sSelector names: by index when it is all digits, else by name ignoring case
// (the first match). The document's own failure when it names none: 0x800403F1 for an index
// past the sections, 0x80004005 for a name no section has. A section without a class is null.
HRESULT FindSelectedSection(I_KOfdELF& document, const std::string& sSelector, I_KOfdSection** ppSection);

// The section's name, "" when it has none.
std::string SectionName(I_KOfdELF& document, DWORD dwIndex);

}  // namespace cli
