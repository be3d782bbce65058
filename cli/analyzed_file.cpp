#include "analyzed_file.h"

#include "edit/object_image.h"
#include "frame/error.h"
#include "frame/file.h"
#include "report.h"

namespace cli {

void OpenForAnalysis(const std::string& sPath, AnalyzedFile& file, bool bBytes) {
  // An unreadable file is reported as such (with the system's words), not as of no known kind.
  C_File probe;
  probe.AttachPath(sPath.c_str(), 0);
  file.kind = KindOfFile(sPath);
  if (file.kind == FileKind::kObject) {
    file.object = OpenObject(sPath);
    if (bBytes) file.vBytes = ReadFileBytes(sPath.c_str());
    kofd_analyze::AnalyzedObject object;
    object.pDocument = file.object.get();
    object.bytes = C_ByteView(file.vBytes.data(), static_cast<DWORD>(file.vBytes.size()));
    file.objects.push_back(object);
    return;
  }
  if (file.kind != FileKind::kArchive) ThrowLibraryError(false, KE_NOT_OBJECT_FILE, sPath.c_str());
  file.archive = std::make_unique<C_KOfdArchive>();
  OpenArchive(*file.archive, sPath);
  for (DWORD i = 0; i < file.archive->MemberCount(); ++i) {
    C_KArcObjectMember& member = file.archive->MemberAt(i);
    I_KOfdELF* pDocument = nullptr;
    HRESULT hr = member.GetDocument(&pDocument);
    if (hr != S_OK || !pDocument) ThrowLibraryError(false, hr != S_OK ? hr : E_POINTER, member.GetName());
    const BYTE* pData = nullptr;
    DWORD dwSize = 0;
    if (bBytes) {
      hr = member.GetData(&pData, &dwSize);
      if (hr != S_OK) ThrowLibraryError(false, hr, member.GetName());
    }
    kofd_analyze::AnalyzedObject object;
    object.sMember = member.GetName();
    object.pDocument = pDocument;
    object.bytes = C_ByteView(pData, dwSize);
    file.objects.push_back(object);
  }
}

}  // namespace cli
