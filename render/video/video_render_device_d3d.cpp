// CNVideoRender: the Direct3D, Direct3D-software and DXVA2 back-ends.
//
// Device set-up never creates a Direct3D 9 object nor sets the capability
// bits that mark Direct3D (0x4) or DXVA2 (0x8) as available, so the
// composition cascade never selects these back-ends and every composition
// goes through DirectDraw. They keep their places in the cascade and answer
// with their "cannot serve" results, so a later Direct3D set-up only has to
// fill them in.
#include "render/video/video_render_internal.h"

namespace {
constexpr int kCannotServe = -1;
}  // namespace

int CNVideoRender::OpenDevice_D3D(int monitor) {
    (void)monitor;
    m_uCapability &= ~0x3Cu;
    return 0;
}

void CNVideoRender::CloseDevice_D3D(int monitor) {
    MonitorInfoTag& m = m_monitors[monitor];
    m.uD3DFlags = 0;
    m.pD3DDevice = nullptr;
    m.pBackBuffer = nullptr;
    m.pVideoService = nullptr;
}

void CNVideoRender::ReleaseAllD3DBackupSurface() {}

int CNVideoRender::RenderNormalMode_D3D(BufferInfoTag* buffer) {
    (void)buffer;
    return kCannotServe;
}

int CNVideoRender::RenderSelectBGMode_D3D(BufferInfoTag* buffer) {
    (void)buffer;
    return kCannotServe;
}

int CNVideoRender::RenderNormalMode_D3DSoft(BufferInfoTag* buffer) {
    (void)buffer;
    return kCannotServe;
}

int CNVideoRender::RenderSelectBGMode_D3DSoft(BufferInfoTag* buffer) {
    (void)buffer;
    return kCannotServe;
}

int CNVideoRender::RenderNormalMode_DXVA2(BufferInfoTag* buffer) {
    (void)buffer;
    return kCannotServe;
}
