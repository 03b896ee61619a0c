// Test controls of the software DirectDraw: call counters, armed failures,
// offered FOURCCs and caps, forced loss. The defaults describe a display
// driver with YUV overlays when headless and an X server's (no FOURCC, no
// overlay) once the screen is an X11 one.
#include <algorithm>
#include <cstring>

#include "platform/ddraw/dd_internal.h"
#include "platform/window/window.h"

namespace nplat {
namespace dd {
namespace {

constexpr int kCalls = static_cast<int>(ddtest::Call::kCount);

constexpr const char* kCallNames[kCalls] = {"DirectDrawEnumerateExA",
                                            "DirectDrawCreate",
                                            "SetCooperativeLevel",
                                            "GetCaps",
                                            "GetFourCCCodes",
                                            "CreateSurface",
                                            "CreateClipper",
                                            "SetHWnd",
                                            "SetClipper",
                                            "QueryInterface",
                                            "TestCooperativeLevel",
                                            "Lock",
                                            "Unlock",
                                            "Blt",
                                            "IsLost",
                                            "Restore",
                                            "GetPixelFormat",
                                            "UpdateOverlay",
                                            "GetDC"};

struct Failure {
    int skip = 0;
    int count = 0;  // -1: every call
    HRESULT result = DD_OK;
};

struct Controls {
    int counts[kCalls] = {};
    Failure failures[kCalls];
    bool fourccSet = false;
    DWORD fourcc[kMaxFourCC] = {};
    int fourccCount = 0;
    bool capsSet = false;
    DWORD caps = 0;
    int wrongMode = 0;
};

Controls g_controls;
SurfaceBase* g_firstSurface = nullptr;
int g_liveObjects = 0;

constexpr DWORD kHeadlessFourCC[] = {MAKEFOURCC('Y', 'V', '1', '2'), MAKEFOURCC('N', 'V', '1', '2'),
                                     MAKEFOURCC('Y', 'U', 'Y', '2'),
                                     MAKEFOURCC('U', 'Y', 'V', 'Y')};

}  // namespace

std::recursive_mutex& LayerLock() {
    static std::recursive_mutex lock;
    return lock;
}

HRESULT Enter(ddtest::Call call) {
    const int i = static_cast<int>(call);
    ++g_controls.counts[i];
    Failure& f = g_controls.failures[i];
    if (f.count == 0) return DD_OK;
    if (f.skip > 0) {
        --f.skip;
        return DD_OK;
    }
    if (f.count > 0) --f.count;
    return f.result;
}

int OfferedFourCCs(DWORD* codes) {
    if (g_controls.fourccSet) {
        std::copy(g_controls.fourcc, g_controls.fourcc + g_controls.fourccCount, codes);
        return g_controls.fourccCount;
    }
    if (ScreenIsX11()) return 0;
    std::copy(std::begin(kHeadlessFourCC), std::end(kHeadlessFourCC), codes);
    return static_cast<int>(std::size(kHeadlessFourCC));
}

bool IsOffered(DWORD code) {
    DWORD codes[kMaxFourCC];
    const int n = OfferedFourCCs(codes);
    return std::find(codes, codes + n, code) != codes + n;
}

DWORD Caps() {
    if (g_controls.capsSet) return g_controls.caps;
    DWORD caps = DDCAPS_BLT | DDCAPS_BLTSTRETCH | DDCAPS_CANBLTSYSMEM | DDCAPS_BLTCOLORFILL |
                 DDCAPS_BLTFOURCC;
    DWORD codes[kMaxFourCC];
    if (OfferedFourCCs(codes) > 0) {
        caps |= DDCAPS_OVERLAY | DDCAPS_OVERLAYFOURCC | DDCAPS_OVERLAYSTRETCH | DDCAPS_COLORKEY;
    }
    return caps;
}

bool TakeWrongMode() {
    if (g_controls.wrongMode <= 0) return false;
    --g_controls.wrongMode;
    return true;
}

void AddLiveSurface(SurfaceBase* s) {
    s->nextLive = g_firstSurface;
    if (g_firstSurface) g_firstSurface->prevLive = s;
    g_firstSurface = s;
}

void RemoveLiveSurface(SurfaceBase* s) {
    if (s->prevLive) s->prevLive->nextLive = s->nextLive;
    if (s->nextLive) s->nextLive->prevLive = s->prevLive;
    if (g_firstSurface == s) g_firstSurface = s->nextLive;
    s->prevLive = s->nextLive = nullptr;
}

void ForEachLiveSurface(void (*fn)(SurfaceBase*)) {
    for (SurfaceBase* s = g_firstSurface; s; s = s->nextLive) fn(s);
}

void CountObject(int delta) { g_liveObjects += delta; }

}  // namespace dd

namespace ddtest {

const char* CallName(Call call) {
    const int i = static_cast<int>(call);
    return i >= 0 && i < dd::kCalls ? dd::kCallNames[i] : "";
}

bool CallByName(const char* name, Call* call) {
    if (!name) return false;
    for (int i = 0; i < dd::kCalls; ++i) {
        if (std::strcmp(name, dd::kCallNames[i]) == 0) {
            *call = static_cast<Call>(i);
            return true;
        }
    }
    return false;
}

void FailCall(Call call, int skip, int count, HRESULT result) {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    const int i = static_cast<int>(call);
    if (i < 0 || i >= dd::kCalls) return;
    dd::g_controls.failures[i] = {skip < 0 ? 0 : skip, count, result};
}

int CallCount(Call call) {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    const int i = static_cast<int>(call);
    return i >= 0 && i < dd::kCalls ? dd::g_controls.counts[i] : 0;
}

void SetOfferedFourCCs(const DWORD* codes, int count) {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    count = codes ? std::clamp(count, 0, dd::kMaxFourCC) : 0;
    std::copy(codes, codes + count, dd::g_controls.fourcc);
    dd::g_controls.fourccCount = count;
    dd::g_controls.fourccSet = true;
}

void SetCaps(DWORD caps) {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    dd::g_controls.caps = caps;
    dd::g_controls.capsSet = true;
}

void ForceLoss(int wrongModeCalls) {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    dd::g_controls.wrongMode = wrongModeCalls;
    dd::ForEachLiveSurface([](dd::SurfaceBase* s) { s->MarkLost(); });
}

int LiveObjects() {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    return dd::g_liveObjects;
}

void Reset() {
    std::lock_guard<std::recursive_mutex> lock(dd::LayerLock());
    dd::g_controls = dd::Controls{};
}

}  // namespace ddtest
}  // namespace nplat
