// The KELF object document and its revisions. Each revision adds section classes that the one
// before it does not build; the extended classes build on the newest revision.
#pragma once

#include "frame/exception.h"
#include "frame/file.h"

class I_KOfdELF : public virtual I_Unknown {};
class I_KOfdELF2 : public virtual I_KOfdELF {};
class I_KOfdELF3 : public virtual I_KOfdELF2 {};
class I_KOfdELF4 : public virtual I_KOfdELF3 {};
class I_KOfdELFX : public virtual I_KOfdELF4 {};
class I_KOfdELFX2 : public virtual I_KOfdELFX {};

class C_KOfdELF : public virtual I_KOfdELF, public virtual C_File {};
class C_KOfdELF2 : public virtual I_KOfdELF2, public C_KOfdELF {};
class C_KOfdELF3 : public virtual I_KOfdELF3, public C_KOfdELF2 {};
class C_KOfdELF4 : public virtual I_KOfdELF4, public C_KOfdELF3 {};
class C_KOfdELFX : public virtual I_KOfdELFX, public C_KOfdELF4 {};
class C_KOfdELFX2 : public virtual I_KOfdELFX2, public C_KOfdELFX {
 private:
  C_Messenger m_Messenger;
};
