// The portable string table: the same list as the Windows string resources.
#include "platform/string_table.h"

namespace {

#define KOFD_STRING(id, text) {id, text},
const platform::StringEntry kEntries[] = {
#include "resources/strings.def"
};
#undef KOFD_STRING

}  // namespace

namespace platform {

const StringTable g_LibraryStrings = {kEntries, sizeof kEntries / sizeof kEntries[0]};

}  // namespace platform
