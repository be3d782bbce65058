// A file, or a region of a file, of no known kind: shown as raw bytes.
#pragma once

#include "frame/exception.h"
#include "frame/file.h"

class I_UnknownObject : public virtual I_Unknown {};

class C_UnknownObject : public virtual I_UnknownObject, public virtual C_File {};
