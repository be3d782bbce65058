// The static-library archive document.
#pragma once

#include "frame/exception.h"
#include "frame/file.h"

class I_KOfdArchive : public virtual I_Unknown {};

class C_KOfdArchive : public virtual I_KOfdArchive, public virtual C_File {};
