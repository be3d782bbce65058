// The static-library archive document.
//
//   0              "!<arch>\n"
//   8              linker member: header (60) + L bytes (offsets and global symbols)
//   68 + L         name member: header (60) + M bytes (member names)
//   128 + L + M    object members, each a header (60) and its bytes, back to back
//
// The object members are found only through the offsets the linker member stores.
#pragma once

#include <string>
#include <vector>

#include "archive/link_member.h"
#include "archive/name_member.h"
#include "archive/object_member.h"
#include "frame/exception.h"
#include "frame/file.h"
#include "present/browse.h"

class C_ReplacingFile;

class I_KOfdELF;

// What FindSymbol reports: the defining symbol's section index, its info byte, value and size
// as the member's object holds them (0, 0, 0xFFFFFFFF, 0xFFFFFFFF when the object does not
// hold it), and a fifth argument, 0.
class I_KArcSymbolCallback {
 public:
  virtual HRESULT OnSymbol(DWORD dwSection, DWORD dwInfo, DWORD dwValue, DWORD dwSize, DWORD dwReserved) = 0;

 protected:
  virtual ~I_KArcSymbolCallback() = default;
};

class I_KOfdArchive : public virtual I_Unknown {
 public:
  // Reads the archive at the document's path: magic, linker member, name member and the header
  // of every object member; throws on failure.
  virtual HRESULT Open() = 0;
  // Reports the member that defines pszName (case-sensitive) to the callback; nothing happens
  // when the callback is null or no member does.
  virtual void FindSymbol(const char* pszName, I_KArcSymbolCallback* pCallback) = 0;
  // The same, for a callback object reached by run-time conversion; any other object is ignored.
  virtual void FindSymbol(const char* pszName, I_Unknown* pCallback) = 0;
  // Appends the object file at pszPath, named by pszPath, and lists its defined global symbols,
  // each once, also those other members define already: the linker member lists every
  // definition, and a lookup answers the first member in archive order.
  virtual HRESULT Add(const char* pszPath, DWORD dwAttribute) = 0;
  // Takes the first member named pszName (ignoring case) out of the linker member only.
  virtual HRESULT Remove(const char* pszName) = 0;
  // Rewrites the archive at its own path, through a temporary file renamed over it.
  virtual HRESULT Save() = 0;
  // Empties the name member, destroys the object members and closes the file.
  virtual HRESULT Close() = 0;

  // A new archive without members, to be saved at the document's path.
  virtual HRESULT Create() = 0;
  // Writes the archive to pszPath, leaving the document's own file as it is.
  virtual HRESULT SaveAs(const char* pszPath) = 0;
  // Deletes the first member named pszName (ignoring case) with its name and its symbols,
  // renumbers the symbols of the later members and recomputes the offsets: the archive stays
  // whole, every other member keeping its bytes.
  virtual HRESULT Delete(const char* pszName) = 0;
  virtual HRESULT GetMemberCount(DWORD* pdwCount) = 0;
  // Member dwIndex in member order; 0x800403F1 past the end.
  virtual HRESULT GetMember(DWORD dwIndex, I_KArcObjectMember** ppMember) = 0;
  // The index of the first member named pszName ignoring case; E_FAIL when there is none.
  virtual HRESULT FindMember(const char* pszName, DWORD* pdwIndex) = 0;
  // The member index the linker member stores for the first symbol named pszName
  // (case-sensitive), or -1 when no symbol has that name.
  virtual HRESULT FindSymbolMember(const char* pszName, long* plMember) = 0;
  virtual HRESULT GetLinkMember(C_KArcLinkMember** ppMember) = 0;
  virtual HRESULT GetNameMember(C_KArcNameMember** ppMember) = 0;
};

class C_KOfdArchive : public virtual I_KOfdArchive, public virtual C_File, public virtual C_Browse {
 public:
  // Browse: the linker member, the name member, then every object member, each under the
  // archive's tree item, which is also what *phNewItem receives.
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;

  C_KOfdArchive() = default;
  C_KOfdArchive(const C_KOfdArchive&) = delete;
  C_KOfdArchive& operator=(const C_KOfdArchive&) = delete;
  ~C_KOfdArchive() override;

  HRESULT Open() override;
  void FindSymbol(const char* pszName, I_KArcSymbolCallback* pCallback) override;
  void FindSymbol(const char* pszName, I_Unknown* pCallback) override;
  HRESULT Add(const char* pszPath, DWORD dwAttribute) override;
  HRESULT Remove(const char* pszName) override;
  HRESULT Save() override;
  // Both the document's Close and its file's: the file layer's own close is C_File::Close.
  HRESULT Close() override;
  HRESULT Create() override;
  HRESULT SaveAs(const char* pszPath) override;
  // Writes the archive through an output begun before the archive was read (which holds the
  // file's lock since) and commits it; Save and SaveAs begin their own.
  HRESULT SaveTo(C_ReplacingFile& output);
  HRESULT Delete(const char* pszName) override;
  HRESULT GetMemberCount(DWORD* pdwCount) override;
  HRESULT GetMember(DWORD dwIndex, I_KArcObjectMember** ppMember) override;
  HRESULT FindMember(const char* pszName, DWORD* pdwIndex) override;
  HRESULT FindSymbolMember(const char* pszName, long* plMember) override;
  HRESULT GetLinkMember(C_KArcLinkMember** ppMember) override;
  HRESULT GetNameMember(C_KArcNameMember** ppMember) override;
  using C_File::Open;

  DWORD MemberCount() const { return static_cast<DWORD>(m_vMembers.size()); }
  C_KArcObjectMember& MemberAt(DWORD dwIndex) { return *m_vMembers[dwIndex]; }
  C_KArcNameMember& NameMember() { return m_NameMember; }
  C_KArcLinkMember& LinkMember() { return m_LinkMember; }

 private:
  void Z_DestroyMembers();
  C_KArcObjectMember& Z_AppendMember();
  // The index of the first member named pszName ignoring case, or -1.
  long Z_FindMember(const char* pszName) const;
  // Takes the name at dwNameAt out of the name member unless another member's name shares it.
  void Z_EraseName(DWORD dwNameAt);
  // Lays the members out behind the linker and name members: the linker member's offsets and
  // each member's own follow the sizes, in member order.
  void Z_PlaceMembers();
  // Before a file is rewritten: every member's file holds its bytes and the budget its Size.
  void Z_CheckSources(C_KArcSources& sources);
  // Writes the whole archive at the handle's position, copying the bytes of members not held
  // from their files; the data offsets of the members written.
  std::vector<std::uint64_t> Z_Write(HANDLE hFile, const char* pszName, C_KArcSources& sources);

  C_KArcLinkMember m_LinkMember;
  C_KArcNameMember m_NameMember;
  std::vector<C_KArcObjectMember*> m_vMembers;
  C_KArcReadBudget m_Budget;
  // Open merged offsets listed more than once: the next save recomputes the offsets.
  bool m_bMerged = false;
};

// The names of the global symbols pDocument defines, in symbol order: every symbol from the
// symbol table's first global on whose section index is neither 0 nor 0xFFFF.
HRESULT CollectDefinedGlobals(I_KOfdELF* pDocument, std::vector<std::string>* pvNames);
