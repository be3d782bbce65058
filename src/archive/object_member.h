// C_KArcObjectMember: one object of an archive, its header and its bytes.
//
//   offset         header (60): Name Index, Date, Size
//   offset + 60    Size bytes: a KELF object, opened in place when asked
//
// Neither the bytes nor the object are read when the archive opens: the bytes load when the
// caller asks for them, the object when the caller asks for it, and a write copies bytes not
// held from their file in blocks. All take the member's Size from the archive's read budget, once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "archive/member_header.h"
#include "archive/name_member.h"

class I_KOfdELF;
class C_KOfdELF4;

class I_KArcObjectMember : public virtual I_Unknown {
 public:
  // Where the member's header lies in the archive, as the linker member lists it.
  virtual DWORD GetOffset() = 0;
  // The member's name, from the name member ("" when it has none).
  virtual const char* GetName() = 0;
  // The member's bytes (Size of them), loaded on the first call.
  virtual HRESULT GetData(const BYTE** ppData, DWORD* pdwSize) = 0;
  // The member's object document, opened on the first call.
  virtual HRESULT GetDocument(I_KOfdELF** ppDocument) = 0;
};

class C_KArcObjectMember : public virtual I_KArcObjectMember, public C_KArcMember {
 public:
  // Browse: the member's name, then its object document's items under it; E_POINTER without a
  // tree item. Its list is the default one.
  HRESULT AddToTree(platform::TreeItem* phNewItem) override;

  C_KArcObjectMember();
  C_KArcObjectMember(const C_KArcObjectMember&) = delete;
  C_KArcObjectMember& operator=(const C_KArcObjectMember&) = delete;
  ~C_KArcObjectMember() override;

  DWORD GetOffset() override { return m_dwOffset; }
  const char* GetName() override;
  HRESULT GetData(const BYTE** ppData, DWORD* pdwSize) override;
  HRESULT GetDocument(I_KOfdELF** ppDocument) override;

  // Reads the header at dwOffset of the archive at pszArchive; the bytes follow it there.
  HRESULT Read(C_KArcReadWindow& window, const char* pszArchive, DWORD dwOffset);
  // The header, then the bytes when they are held.
  HRESULT Write(I_File* pFile);
  HRESULT Write(C_KArcWriter& writer);
  // Before a write that copies the bytes from their file: that the file holds them (1016 with
  // its path when not, 1013 when it cannot be opened), and their Size taken from the budget. Nothing is read.
  void CheckSource(C_KArcSources& sources);
  // The header, then the bytes: those held, else Size of them copied from their file through
  // the writer's buffer; 1016 naming the file when it has been shortened since it was checked.
  void WriteCopying(C_KArcWriter& writer, C_KArcSources& sources);
  // Loads the bytes, through window when it reads the file that holds them.
  void Load(C_KArcReadWindow* pWindow);
  bool IsLoaded() const { return !m_Data.IsEmpty(); }

  // Where the bytes come from: a file and the position of the first byte in it.
  void SetSource(const char* pszPath, std::uint64_t qwDataAt);
  const std::string& GetSource() const { return m_sSource; }
  std::uint64_t GetDataPosition() const { return m_qwDataAt; }
  // The name is read where it lies in the name member, never copied: names may be shared.
  void SetName(const C_KArcNameMember* pNames, DWORD dwOffset) {
    m_pNames = pNames;
    m_dwNameAt = dwOffset;
  }
  DWORD GetNameOffset() const { return m_dwNameAt; }
  void SetOffset(DWORD dwOffset) { m_dwOffset = dwOffset; }
  // The budget the member's bytes and object take their Size from, once; null: none.
  void SetBudget(C_KArcReadBudget* pBudget) { m_pBudget = pBudget; }
  // The member has its bytes: nothing more is taken for it.
  void MarkCharged() { m_bCharged = true; }

 private:
  struct DocumentDeleter {
    void operator()(C_KOfdELF4* pDocument) const;
  };

  // Takes Size from the budget the first time the member reads its archive; 1016 when it
  // cannot.
  void Z_Charge();

  DWORD m_dwOffset = 0;
  C_KArcReadBudget* m_pBudget = nullptr;
  bool m_bCharged = false;
  const C_KArcNameMember* m_pNames = nullptr;
  DWORD m_dwNameAt = 0;
  std::string m_sSource;
  std::uint64_t m_qwDataAt = 0;
  C_Block m_Data;
  std::unique_ptr<C_KOfdELF4, DocumentDeleter> m_pDocument;
};
