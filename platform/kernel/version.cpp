// Parses the version string the build bakes in (NCB_VERSION_STRING, from the
// project version) into the four numbers of a version resource.
#include "platform/kernel/version.h"

#ifndef NCB_VERSION_STRING
#error "NCB_VERSION_STRING must come from the build"
#endif

namespace nplat {
namespace {

// Up to four dot-separated numbers, each 0..65535; false if anything else.
bool Parse(const char* text, int parts[4]) {
    for (int i = 0; i < 4; ++i) parts[i] = 0;
    int index = 0;
    const char* p = text;
    for (;;) {
        if (*p < '0' || *p > '9') return false;
        long value = 0;
        while (*p >= '0' && *p <= '9') {
            value = value * 10 + (*p++ - '0');
            if (value > 0xFFFF) return false;
        }
        parts[index++] = static_cast<int>(value);
        if (*p == '\0') return true;
        if (*p != '.' || index == 4) return false;
        ++p;
    }
}

}  // namespace

const char* GetLibraryVersionString() { return NCB_VERSION_STRING; }

bool GetLibraryVersion(int* major, int* minor, int* build, int* revision) {
    int parts[4];
    if (!Parse(NCB_VERSION_STRING, parts)) return false;
    if (major) *major = parts[0];
    if (minor) *minor = parts[1];
    if (build) *build = parts[2];
    if (revision) *revision = parts[3];
    return true;
}

bool GetLibraryFileVersion(DWORD* versionMS, DWORD* versionLS) {
    int parts[4];
    if (!Parse(NCB_VERSION_STRING, parts)) return false;
    if (versionMS) *versionMS = static_cast<DWORD>(parts[0]) << 16 | static_cast<DWORD>(parts[1]);
    if (versionLS) *versionLS = static_cast<DWORD>(parts[2]) << 16 | static_cast<DWORD>(parts[3]);
    return true;
}

}  // namespace nplat
