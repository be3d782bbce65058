// The edit and save operations of the extended object documents: every edit goes to the
// document's object image through the image editor, and a save writes the image and reads the
// saved file back into the document.
#include <exception>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "edit/image_editor.h"
#include "edit/image_layout.h"
#include "frame/error.h"
#include "frame/replacing_file.h"
#include "object/kofd_elf.h"

namespace {

// Arguments arrive from a host as C strings: a null one is an error, not an empty name.
bool Present(std::initializer_list<const void*> pointers) {
  for (const void* p : pointers) {
    if (!p) return false;
  }
  return true;
}

std::vector<BYTE> Bytes(const BYTE* pData, DWORD dwSize) {
  return dwSize == 0 ? std::vector<BYTE>() : std::vector<BYTE>(pData, pData + dwSize);
}

}  // namespace

C_KOfdELFX::C_KOfdELFX() = default;
C_KOfdELFX::~C_KOfdELFX() = default;

// Nothing thrown inside reaches the host: every failure becomes the recorded last error and the
// returned code (E_FAIL when the code would not read as a failure).
template <class Body>
HRESULT C_KOfdELFX::Z_Guarded(Body body) {
  try {
    return GuardAllocation(*this, body);
  } catch (const C_Exception& error) {
    const HRESULT hrCode = error.Code() < 0 ? error.Code() : E_FAIL;
    SetCodeAndMessage(hrCode, error.Message().c_str());
    return hrCode;
  } catch (const std::exception& error) {
    // Nothing the standard library throws may unwind into a host built by another compiler.
    SetCodeAndMessage(E_FAIL, error.what());
    return E_FAIL;
  }
}

template <class Edit>
HRESULT C_KOfdELFX::Y_Edit(Edit edit) {
  return Z_Guarded([&] {
    C_ImageEditor editor(Z_Image());
    edit(editor);
    return S_OK;
  });
}

C_ObjectImage& C_KOfdELFX::Z_Image() {
  if (m_pImage) return *m_pImage;
  const std::string sPath = GetPath();
  if (sPath.empty()) ThrowImageFailure("no object to edit: open one, or create one with Create");
  // The image reads the object's bytes from the start of the file.
  if (GetBaseOffset() != 0) ThrowImageFailure("an object inside an archive is edited as a file of its own");
  I_KElfHeader* pHeader = nullptr;
  GetFileHeader(&pHeader);
  if (pHeader->IsEmpty()) {
    const HRESULT hr = Read();
    if (hr != S_OK) ThrowLibraryError(false, hr, sPath.c_str());
  }
  m_pImage = std::make_unique<C_ObjectImage>(*this, sPath.c_str());
  return *m_pImage;
}

HRESULT C_KOfdELFX::Create(DWORD dwChip, DWORD dwType) {
  return Z_Guarded([&] {
    if (dwType > 0xFFFF) ThrowImageFailure("file type " + std::to_string(dwType) + " does not fit in 16 bits");
    m_pImage = std::make_unique<C_ObjectImage>(dwChip, static_cast<WORD>(dwType));
    m_bCreated = true;
    return S_OK;
  });
}

HRESULT C_KOfdELFX::AddSection(const char* pszName, DWORD dwType, const BYTE* pData, DWORD dwSize) {
  if (!Present({pszName}) || (dwSize != 0 && !pData)) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.AddSection(pszName, Bytes(pData, dwSize), dwType); });
}

HRESULT C_KOfdELFX::RemoveSection(const char* pszSelector) {
  if (!Present({pszSelector})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.RemoveSection(pszSelector); });
}

HRESULT C_KOfdELFX::RenameSection(const char* pszSelector, const char* pszNewName) {
  if (!Present({pszSelector, pszNewName})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.RenameSection(pszSelector, pszNewName); });
}

HRESULT C_KOfdELFX::SetSectionAddress(const char* pszSelector, DWORD dwAddress) {
  if (!Present({pszSelector})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.SetSectionAddress(pszSelector, dwAddress); });
}

HRESULT C_KOfdELFX::SetContents(const char* pszSelector, const BYTE* pData, DWORD dwSize) {
  if (!Present({pszSelector}) || (dwSize != 0 && !pData)) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.SetContents(pszSelector, Bytes(pData, dwSize)); });
}

HRESULT C_KOfdELFX::Patch(const char* pszSelector, DWORD dwOffset, const BYTE* pBytes, DWORD dwSize, DWORD dwForce) {
  if (!Present({pszSelector}) || (dwSize != 0 && !pBytes)) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.Patch(pszSelector, dwOffset, Bytes(pBytes, dwSize), dwForce != 0); });
}

HRESULT C_KOfdELFX::AddSymbol(const char* pszName, const char* pszSection, DWORD dwValue, DWORD dwGlobal) {
  if (!Present({pszName, pszSection})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.AddSymbol(pszName, pszSection, dwValue, dwGlobal != 0); });
}

HRESULT C_KOfdELFX::RemoveSymbol(const char* pszName) {
  if (!Present({pszName})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.RemoveSymbol(pszName); });
}

HRESULT C_KOfdELFX::RenameSymbol(const char* pszName, const char* pszNewName) {
  if (!Present({pszName, pszNewName})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.RenameSymbol(pszName, pszNewName); });
}

HRESULT C_KOfdELFX::SetSymbolValue(const char* pszName, DWORD dwValue) {
  if (!Present({pszName})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.SetSymbolValue(pszName, dwValue); });
}

HRESULT C_KOfdELFX::AddExpression(const KEL_EXP* pTokens, DWORD dwCount, DWORD* pdwFirst) {
  if (!Present({pTokens, pdwFirst})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { *pdwFirst = editor.AddExpression(std::vector<KEL_EXP>(pTokens, pTokens + dwCount)); });
}

HRESULT C_KOfdELFX::AddRelocation(const char* pszTarget, const KEL_RELXEB* pRecord) {
  if (!Present({pszTarget, pRecord})) return E_POINTER;
  return Y_Edit([&](C_ImageEditor& editor) { editor.AddRelocation(pszTarget, *pRecord); });
}

HRESULT C_KOfdELFX::Save() {
  if (m_bCreated) {
    SetCodeAndMessage(E_FAIL, "a created object has no file of its own yet: save it with SaveAs first");
    return E_FAIL;
  }
  const std::string sPath = GetPath();
  return Y_SaveTo(sPath.c_str(), false);
}

HRESULT C_KOfdELFX::SaveAs(const char* pszPath) {
  if (!Present({pszPath})) return E_POINTER;
  return Y_SaveTo(pszPath, false);
}

HRESULT C_KOfdELFX::Y_SaveTo(const char* pszPath, bool bCompact) {
  return Z_Guarded([&] {
    // Built before the target is replaced: saving an unedited document copies its file.
    C_ObjectImage& image = Z_Image();
    {
      C_ReplacingFile output(pszPath);
      WriteObjectImage(image, output, bCompact);
    }
    // The image's kept layout describes the file it was read from, which the save replaced: the
    // next edit reads the saved file afresh.
    m_pImage.reset();
    m_bCreated = false;
    const std::string sTarget = pszPath;
    AttachPath(sTarget.c_str(), GetAttributeB());
    I_KElfHeader* pHeader = nullptr;
    GetFileHeader(&pHeader);
    pHeader->Clear();
    const HRESULT hr = Read();
    if (hr != S_OK) ThrowLibraryError(false, hr, sTarget.c_str());
    return S_OK;
  });
}

HRESULT C_KOfdELFX2::SaveCompactedAs(const char* pszPath) {
  if (!pszPath) return E_POINTER;
  return Y_SaveTo(pszPath, true);
}

HRESULT C_KOfdELFX2::AddBankRecord(DWORD dwAddress, DWORD dwBank) {
  return Y_Edit([&](C_ImageEditor& editor) { editor.AddBankRecord(dwAddress, dwBank); });
}
