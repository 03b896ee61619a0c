// Dynamic libraries the Windows way: LoadLibrary, GetProcAddress,
// FreeLibrary over dlopen/dlsym/dlclose. Plug-ins keep their ".dll" file
// names; dlopen does not care what a file is called.
//
// Each library is opened RTLD_NOW (a plug-in with unresolved symbols fails to
// load rather than failing later in a call) and RTLD_LOCAL (plug-ins do not
// see each other's symbols). Loads are reference-counted by the system, as on
// Windows: every successful LoadLibrary needs one FreeLibrary.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include "ncodecbase/win_types.h"

namespace nplat {

// Null for a null path or when the file is missing or cannot be loaded.
// A name without '/' is searched the way dlopen searches.
HMODULE LoadLibrary(const char* path);
// The same with a UTF-16 path (converted to UTF-8 first).
HMODULE LoadLibraryW(const WCHAR* path);
// The exported symbol, or null for a null module or name or a missing symbol.
FARPROC GetProcAddress(HMODULE module, const char* name);
// false for a null module or when the system refuses.
bool FreeLibrary(HMODULE module);

}  // namespace nplat
