// Which RAR library table the readers use: the built-in one unless a test
// installed its own.
#include "archive/rar/rar_library.h"

namespace ncb::rar {
namespace {
const RarLibrary* g_testLibrary = nullptr;
}  // namespace

const RarLibrary& ActiveRarLibrary() {
    return g_testLibrary ? *g_testLibrary : BuiltInRarLibrary();
}

void SetRarLibraryForTesting(const RarLibrary* library) { g_testLibrary = library; }

}  // namespace ncb::rar
