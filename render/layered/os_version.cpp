// System-version stand-in: a reported major.minor pair (10.0 unless a test
// changes it) answered through the two Windows-shaped queries.
#include "render/layered/os_version.h"

#include <atomic>
#include <cstring>

namespace ncb::layered {
namespace {

std::atomic<uint32_t> g_major{10};
std::atomic<uint32_t> g_minor{0};

}  // namespace

int GetVersionExA(OSVERSIONINFOEXA* info) {
    if (!info || info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOEXA)) return 0;
    std::memset(reinterpret_cast<char*>(info) + sizeof(uint32_t), 0,
                sizeof(*info) - sizeof(uint32_t));
    info->dwMajorVersion = g_major.load(std::memory_order_relaxed);
    info->dwMinorVersion = g_minor.load(std::memory_order_relaxed);
    info->dwPlatformId = 2;
    return 1;
}

int VerifyVersionInfoA(const OSVERSIONINFOEXA* info, uint32_t typeMask) {
    if (!info) return 0;
    const uint32_t major = g_major.load(std::memory_order_relaxed);
    const uint32_t minor = g_minor.load(std::memory_order_relaxed);
    if (typeMask & VER_MAJORVERSION) {
        if (major != info->dwMajorVersion) return major > info->dwMajorVersion;
    }
    if (typeMask & VER_MINORVERSION) return minor >= info->dwMinorVersion;
    return 1;
}

namespace versiontest {

void SetReportedVersion(uint32_t major, uint32_t minor) {
    g_major.store(major, std::memory_order_relaxed);
    g_minor.store(minor, std::memory_order_relaxed);
}

}  // namespace versiontest
}  // namespace ncb::layered
