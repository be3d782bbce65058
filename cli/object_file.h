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
// The same with its headers alone read (C_KOfdELF::ReadHeaders): a section is read the first
// time it is asked for, and its failure then is the one OpenObject would have thrown.
std::unique_ptr<C_KOfdELF4> OpenObjectHeaders(const std::string& sPath);

// Attaches the archive to sPath and opens it; throws the archive's failure.
void OpenArchive(C_KOfdArchive& archive, const std::string& sPath);

// The object of an archive member, opened whole as the archive opens its members; a failure
// names the member.
C_KOfdELF4& MemberDocument(C_KArcObjectMember& member);
// The object of the member named sName: "no member named NAME" when there is none.
C_KOfdELF4& MemberObject(C_KOfdArchive& archive, const std::string& sName);

// The section that sSelector names: by index when it is all digits (of any length), else by name
// ignoring case (the first match). A section without a class is null. Naming none throws the
// document's code with words that say so: "no section 99, the object has 16 (0x800403f1)"; a
// name that is near one of the object's names is followed by "; did you mean ".text"?". A
// section that fails to read throws the document's failure.
I_KOfdSection* SelectSection(C_KOfdELF& document, const std::string& sSelector);

// The section's name, "" when it has none.
std::string SectionName(I_KOfdELF& document, DWORD dwIndex);

}  // namespace cli
