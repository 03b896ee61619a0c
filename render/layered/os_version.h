// The system-version query the layered render grades its device features
// by, shaped like GetVersionExA and VerifyVersionInfoA. This platform always
// offers what the newest Windows did (flip-ex presentation, the video
// processor service), so the stand-in reports 10.0; tests may report another
// version to drive the render's older-system paths.
#pragma once

#include <cstdint>

namespace ncb::layered {

struct OSVERSIONINFOEXA {
    uint32_t dwOSVersionInfoSize;
    uint32_t dwMajorVersion;
    uint32_t dwMinorVersion;
    uint32_t dwBuildNumber;
    uint32_t dwPlatformId;
    char szCSDVersion[128];
    uint16_t wServicePackMajor;
    uint16_t wServicePackMinor;
    uint16_t wSuiteMask;
    uint8_t wProductType;
    uint8_t wReserved;
};

constexpr uint32_t VER_MINORVERSION = 0x1;
constexpr uint32_t VER_MAJORVERSION = 0x2;
constexpr uint8_t VER_GREATER_EQUAL = 3;

// 0 for a null pointer or a size word other than the structure's.
int GetVersionExA(OSVERSIONINFOEXA* info);
// 1 when the reported version is at least the major (and, with
// VER_MINORVERSION, minor) version in `info`.
int VerifyVersionInfoA(const OSVERSIONINFOEXA* info, uint32_t typeMask);

namespace versiontest {
// The version the stand-in reports from now on (10.0 by default).
void SetReportedVersion(uint32_t major, uint32_t minor);
}  // namespace versiontest

}  // namespace ncb::layered
