// The library's own version, for the places where the Windows code queried a
// module's version resource (the renders report the version of their device
// layer, which here is this library).
//
// Thread safety: pure functions.
#pragma once

#include "ncodecbase/win_types.h"

namespace nplat {

// The four numbers of the version, as a version resource has them; parts the
// version string leaves out are 0. Any pointer may be null. True unless the
// built-in version string is malformed.
bool GetLibraryVersion(int* major, int* minor, int* build, int* revision);
// The same packed as a fixed file version: (major << 16 | minor) and
// (build << 16 | revision).
bool GetLibraryFileVersion(DWORD* versionMS, DWORD* versionLS);
// The version string the library was built with, e.g. "0.1.0".
const char* GetLibraryVersionString();

}  // namespace nplat
