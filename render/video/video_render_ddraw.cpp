// CNVideoRender: the DirectDraw back-end and the surface cache.
//
// TEMPORARY: only the cache entry points that the scene model calls are
// here, as no-ops over an always-empty cache (the minimal Open of
// video_render_loop.cpp opens no device, so no frame ever holds a cached
// conversion). The device back-end replaces this whole file.
#include "render/video/video_render_internal.h"

void CNVideoRender::FreeBuffer(void* handle) { (void)handle; }

void CNVideoRender::FreeCachedDataInOffScreenBuffer(int index) { (void)index; }

void CNVideoRender::AdjustBufferPoint(void* handle, nplat::POINT* point) {
    (void)handle;
    (void)point;
}
