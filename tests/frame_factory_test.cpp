// The exported entry points, the factories and the object model.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive.h"
#include "archive/unknown_object.h"
#include "frame/exports.h"
#include "frame_temp_dir.h"
#include "object/kofd_elf.h"
#include "platform/platform.h"

namespace {

I_Unknown* const kUntouched = reinterpret_cast<I_Unknown*>(0x1234);
typedef std::vector<I_Unknown*> List;

std::vector<std::string> g_boxes;
void CaptureBox(const char* pszText, const char* pszCaption, unsigned uStyle) {
  g_boxes.push_back(std::string(pszCaption) + "|" + pszText + "|" + std::to_string(uStyle));
}

int g_nDestroyed = 0;
class CountedELF : public C_KOfdELF4 {
 public:
  ~CountedELF() override { ++g_nDestroyed; }
};

}  // namespace

TEST(Exports, CreateInstanceMatchesNamesExactly) {
  for (const char* pszName : {"I_KOfdELF ", "i_kofdelf", "I_KOfdEL", "", "I_KOfdELFX2"}) {
    EXPECT_EQ(CreateInstance(pszName), nullptr) << '"' << pszName << '"';
  }
  I_Unknown* pElf = CreateInstance("I_KOfdELF");
  I_Unknown* pArchive = CreateInstance("I_KOfdArchive");
  I_Unknown* pElfX = CreateInstance("I_KOfdELFX");
  I_Unknown* pUnknown = CreateInstance("I_UnknownObject");
  I_Unknown* pFactory = CreateInstance("I_Factory");
  EXPECT_TRUE(dynamic_cast<C_KOfdELF4*>(pElf) && !dynamic_cast<C_KOfdELFX*>(pElf));
  EXPECT_TRUE(dynamic_cast<C_KOfdArchive*>(pArchive) && !dynamic_cast<I_KOfdELF*>(pArchive));
  // The export builds the first extended revision; the factory builds the second.
  EXPECT_TRUE(dynamic_cast<C_KOfdELFX*>(pElfX) && !dynamic_cast<C_KOfdELFX2*>(pElfX));
  EXPECT_NE(dynamic_cast<C_UnknownObject*>(pUnknown), nullptr);
  EXPECT_NE(dynamic_cast<C_KOfdFactory*>(pFactory), nullptr);
  for (I_Unknown* pObject : {pElf, pArchive, pElfX, pUnknown, pFactory}) {
    ASSERT_NE(pObject, nullptr);
    EXPECT_EQ(pObject->Destroy(), S_OK);
  }
}

TEST(Exports, EnumBodyNamesWritesTheBannerAndAnEmptyName) {
  char buffer[64];
  memset(buffer, 0xCC, sizeof buffer);
  EXPECT_EQ(EnumBodyNames(0xFFFFFFFF, buffer), S_OK);
  EXPECT_EQ(std::string(buffer, 53), std::string("Quillbox object file descriptor Ver. 3.00.01-122499\0\0", 53));
  EXPECT_EQ(static_cast<unsigned char>(buffer[53]), 0xCC);
}

TEST(ObjectModel, DestroyThroughAnyInterfaceEndsTheObjectOnce) {
  g_nDestroyed = 0;
  static_cast<I_File*>(new CountedELF)->Destroy();
  static_cast<I_ExceptionWriter*>(new CountedELF)->Destroy();
  static_cast<I_KOfdELF4*>(new CountedELF)->Destroy();
  EXPECT_EQ(g_nDestroyed, 3);
}

TEST(KOfdFactory, CreatesByNameAndReleasesOnlyItsOwn) {
  C_KOfdFactory* pFactory = dynamic_cast<C_KOfdFactory*>(CreateFactory());
  C_KOfdFactory* pOther = dynamic_cast<C_KOfdFactory*>(CreateFactory());
  ASSERT_TRUE(pFactory && pOther);
  I_Unknown* pOut = kUntouched;
  EXPECT_EQ(pFactory->CreateInstance("I_Factory", &pOut), E_FAIL);
  EXPECT_EQ(pFactory->CreateInstance("I_KOfdELF ", &pOut), E_FAIL);
  EXPECT_EQ(pOut, kUntouched);

  I_Unknown *pElfX = nullptr, *pElf = nullptr, *pArchive = nullptr, *pForeign = nullptr;
  ASSERT_EQ(pFactory->CreateInstance("I_KOfdELFX", &pElfX), S_OK);
  ASSERT_EQ(pFactory->CreateInstance("I_KOfdELF", &pElf), S_OK);
  ASSERT_EQ(pFactory->CreateInstance("I_KOfdArchive", &pArchive), S_OK);
  ASSERT_EQ(pOther->CreateInstance("I_UnknownObject", &pForeign), S_OK);
  EXPECT_NE(dynamic_cast<C_KOfdELFX2*>(pElfX), nullptr);
  EXPECT_EQ(pFactory->Instances(), (List{pElfX, pElf, pArchive}));

  // Objects of another factory or of the export, and non-documents, are refused and left alive.
  I_Unknown* pExported = CreateInstance("I_KOfdELF");
  EXPECT_EQ(pFactory->ReleaseInstance(pForeign), E_FAIL);
  EXPECT_EQ(pFactory->ReleaseInstance(pExported), E_FAIL);
  EXPECT_EQ(pFactory->ReleaseInstance(pOther), E_FAIL);
  EXPECT_EQ(pOther->Instances(), List{pForeign});
  pExported->Destroy();

  // Any interface of a listed object finds it; the later entries move up.
  EXPECT_EQ(pFactory->ReleaseInstance(dynamic_cast<I_File*>(pElf)), S_OK);
  EXPECT_EQ(pFactory->Instances(), (List{pElfX, pArchive}));
  EXPECT_EQ(pFactory->ReleaseAll(), S_OK);
  EXPECT_TRUE(pFactory->Instances().empty());
  static_cast<I_Factory*>(pFactory)->Destroy();
  static_cast<I_Factory*>(pOther)->Destroy();
}

TEST(KOfdFactory, ChoosesTheDocumentFromTheFirstBytes) {
  TempDir dir;
  C_KOfdFactory* pFactory = dynamic_cast<C_KOfdFactory*>(CreateFactory());
  ASSERT_NE(pFactory, nullptr);
  I_Unknown* pOut = kUntouched;
  const char* pszInterface = "untouched";
  EXPECT_EQ(pFactory->CreateInstance(dir.Write("near.a", "!<arch>\r\n").c_str(), &pOut, &pszInterface), S_FALSE);
  EXPECT_EQ(pFactory->CreateInstance(dir.Write("text", "hello, world\n").c_str(), &pOut, &pszInterface), S_FALSE);
  EXPECT_EQ(pFactory->CreateInstance(dir.Path("missing.o").c_str(), &pOut, &pszInterface), E_FAIL);
  EXPECT_EQ(pOut, kUntouched);
  EXPECT_STREQ(pszInterface, "untouched");
  EXPECT_TRUE(pFactory->Instances().empty());

  // Only the magic is looked at: the header behind it is checked when the document reads.
  ASSERT_EQ(pFactory->CreateInstance(dir.Write("bad.o", "\x7F" "ELF\xFF garbage").c_str(), &pOut, &pszInterface), S_OK);
  EXPECT_STREQ(pszInterface, "I_KOfdELF");
  EXPECT_TRUE(dynamic_cast<C_KOfdELF4*>(pOut) && !dynamic_cast<C_KOfdELFX*>(pOut));
  I_Unknown* pArchive = nullptr;
  ASSERT_EQ(pFactory->CreateInstance(dir.Write("lib.a", "!<arch>\n").c_str(), &pArchive, &pszInterface), S_OK);
  EXPECT_STREQ(pszInterface, "I_KOfdArchive");
  EXPECT_NE(dynamic_cast<C_KOfdArchive*>(pArchive), nullptr);
  EXPECT_EQ(pFactory->Instances(), (List{pOut, pArchive}));
  static_cast<I_Factory*>(pFactory)->Destroy();  // and with it what it still lists
}

TEST(Factory, BaseRefusesEveryOperationWithAMessageBox) {
  g_boxes.clear();
  const platform::MessageBoxHook previous = platform::SetMessageBoxHook(&CaptureBox);
  C_Factory factory;
  I_Unknown* pOut = nullptr;
  const char* pszInterface = nullptr;
  EXPECT_EQ(factory.CreateInstance("I_KOfdELF", &pOut), E_FAIL);
  EXPECT_EQ(factory.CreateInstance("lib.a", &pOut, &pszInterface), E_FAIL);
  EXPECT_EQ(factory.ReleaseInstance(nullptr), E_FAIL);
  platform::SetMessageBoxHook(previous);
  EXPECT_EQ(g_boxes, (std::vector<std::string>{
                         "Error|This component does not support for first CreateInstance method of I_Factory.|0",
                         "Error|This component does not support for second CreateInstance method of I_Factory.|0",
                         "Error|This component does not support for ReleaseInstance method of I_Factory.|0"}));
}
