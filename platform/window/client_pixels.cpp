// Client pixels: the store each window keeps in the screen format, the
// keyed overlay over it, and the transfers in and out as 0x00RRGGBB.
//
// The store follows the client size and the screen format lazily (under the
// pixel lock, at the next transfer), keeping its top-left part across a
// resize, as a window's surface does; a format change clears it. Keying
// compares stored values, so a 16-bit key matches exactly the pixels a
// 16-bit colour fill wrote.
//
// Not here: alpha, gamma, palettes; an overlay is one per window.
#include <algorithm>
#include <cstring>
#include <mutex>

#include "platform/kernel/heap.h"
#include "platform/window/window_internal.h"

namespace nplat {

int ScreenFormatBytes(ScreenFormat format) {
    switch (format) {
        case ScreenFormat::kRGB32:
            return 4;
        case ScreenFormat::kRGB24:
            return 3;
        default:
            return 2;
    }
}

uint32_t ScreenValueFromRGB(ScreenFormat format, uint32_t rgb) {
    const uint32_t r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
    switch (format) {
        case ScreenFormat::kRGB565:
            return (r >> 3) << 11 | (g >> 2) << 5 | b >> 3;
        case ScreenFormat::kRGB555:
            return (r >> 3) << 10 | (g >> 3) << 5 | b >> 3;
        default:
            return rgb & 0xFFFFFF;
    }
}

uint32_t RGBFromScreenValue(ScreenFormat format, uint32_t v) {
    uint32_t r, g, b;
    switch (format) {
        case ScreenFormat::kRGB565:
            r = (v >> 11) & 31, g = (v >> 5) & 63, b = v & 31;
            return (r << 3 | r >> 2) << 16 | (g << 2 | g >> 4) << 8 | (b << 3 | b >> 2);
        case ScreenFormat::kRGB555:
            r = (v >> 10) & 31, g = (v >> 5) & 31, b = v & 31;
            return (r << 3 | r >> 2) << 16 | (g << 3 | g >> 2) << 8 | (b << 3 | b >> 2);
        default:
            return v & 0xFFFFFF;
    }
}

uint32_t ReadScreenValue(ScreenFormat format, const uint8_t* p) {
    switch (format) {
        case ScreenFormat::kRGB32: {
            uint32_t v;
            std::memcpy(&v, p, 4);
            return v;
        }
        case ScreenFormat::kRGB24:
            return p[0] | p[1] << 8 | p[2] << 16;
        default:
            return static_cast<uint32_t>(p[0] | p[1] << 8);
    }
}

void WriteScreenValue(ScreenFormat format, uint8_t* p, uint32_t value) {
    switch (format) {
        case ScreenFormat::kRGB32:
            std::memcpy(p, &value, 4);
            break;
        case ScreenFormat::kRGB24:
            p[0] = value & 0xFF, p[1] = (value >> 8) & 0xFF, p[2] = (value >> 16) & 0xFF;
            break;
        default:
            p[0] = value & 0xFF, p[1] = (value >> 8) & 0xFF;
            break;
    }
}

void RowToScreen(ScreenFormat format, const uint32_t* rgb, uint8_t* dst, int count) {
    if (format == ScreenFormat::kRGB32) {
        std::memcpy(dst, rgb, static_cast<size_t>(count) * 4);
        return;
    }
    const int bytes = ScreenFormatBytes(format);
    for (int i = 0; i < count; ++i) {
        WriteScreenValue(format, dst + i * bytes, ScreenValueFromRGB(format, rgb[i]));
    }
}

void RowFromScreen(ScreenFormat format, const uint8_t* src, uint32_t* rgb, int count) {
    const int bytes = ScreenFormatBytes(format);
    for (int i = 0; i < count; ++i) {
        rgb[i] = RGBFromScreenValue(format, ReadScreenValue(format, src + i * bytes));
    }
}

bool Window::EnsureStore() {
    const WindowGeometry g = Geometry();
    const ScreenFormat format = GetScreenFormat();
    if (store.bits && store.width == g.width && store.height == g.height &&
        store.format == format) {
        return true;
    }
    const int bytes = ScreenFormatBytes(format);
    const int pitch = (g.width * bytes + 15) & ~15;
    auto* bits = static_cast<uint8_t*>(HeapAlloc(static_cast<size_t>(pitch) * g.height));
    if (!bits) return false;
    std::memset(bits, 0, static_cast<size_t>(pitch) * g.height);
    if (store.bits && store.format == format) {
        const int rows = std::min(store.height, g.height);
        const size_t rowBytes = static_cast<size_t>(std::min(store.width, g.width)) * bytes;
        for (int y = 0; y < rows; ++y) {
            std::memcpy(bits + static_cast<size_t>(y) * pitch,
                        store.bits + static_cast<size_t>(y) * store.pitch, rowBytes);
        }
    }
    HeapFree(store.bits);
    store = {bits, g.width, g.height, pitch, format};
    return true;
}

void Window::Resized() {
    std::lock_guard<std::mutex> lock(pixelLock);
    if (store.bits) EnsureStore();
}

void Window::Compose(const RECT& r, uint32_t* out, int pitchBytes) {
    const int bytes = ScreenFormatBytes(store.format);
    RECT shown{};
    const bool hasOverlay = overlay.rgb && IntersectRect(&shown, &overlay.rect, &r);
    const int overlayWidth = overlay.rect.right - overlay.rect.left;
    for (int y = r.top; y < r.bottom; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(reinterpret_cast<uint8_t*>(out) +
                                                static_cast<ptrdiff_t>(y - r.top) * pitchBytes);
        const uint8_t* src = store.bits + static_cast<size_t>(y) * store.pitch;
        RowFromScreen(store.format, src + static_cast<size_t>(r.left) * bytes, row,
                      r.right - r.left);
        if (!hasOverlay || y < shown.top || y >= shown.bottom) continue;
        const uint32_t* over =
            overlay.rgb + static_cast<size_t>(y - overlay.rect.top) * overlayWidth;
        for (int x = shown.left; x < shown.right; ++x) {
            uint32_t value = ReadScreenValue(store.format, src + static_cast<size_t>(x) * bytes);
            if (store.format == ScreenFormat::kRGB32) value &= 0xFFFFFF;
            if (!overlay.keyed || value == overlay.key) {
                row[x - r.left] = over[x - overlay.rect.left];
            }
        }
    }
}

int PutClientPixels(HWND handle, const RECT& clientDst, const void* rgb32, int pitchBytes) {
    WindowRef w(handle);
    if (!w || !rgb32) return 0;
    std::lock_guard<std::mutex> lock(w->pixelLock);
    if (!w->EnsureStore()) return 0;
    const WindowGeometry g = w->Geometry();
    RECT r = clientDst;
    if (!g.visible || !ClipToSize(&r, w->store.width, w->store.height)) return 1;
    const int bytes = ScreenFormatBytes(w->store.format);
    const bool covered = !IsRectEmpty(&g.covered);
    for (int y = r.top; y < r.bottom; ++y) {
        const auto* src = reinterpret_cast<const uint32_t*>(
            static_cast<const uint8_t*>(rgb32) +
            static_cast<ptrdiff_t>(y - clientDst.top) * pitchBytes);
        uint8_t* dst = w->store.bits + static_cast<size_t>(y) * w->store.pitch;
        const bool rowCovered = covered && y >= g.covered.top && y < g.covered.bottom;
        // A covered row is written in up to two spans, left and right of the cover.
        const int spans[2][2] = {
            {r.left, rowCovered ? std::min(r.right, g.covered.left) : r.right},
            {rowCovered ? std::max(r.left, g.covered.right) : r.right, r.right}};
        for (const auto& span : spans) {
            if (span[1] <= span[0]) continue;
            RowToScreen(w->store.format, src + (span[0] - clientDst.left),
                        dst + static_cast<size_t>(span[0]) * bytes, span[1] - span[0]);
        }
    }
    w->ScanOut(r);
    return 1;
}

int SnapshotClient(HWND handle, void* rgb32, int pitchBytes) {
    WindowRef w(handle);
    if (!w || !rgb32) return 0;
    std::lock_guard<std::mutex> lock(w->pixelLock);
    if (!w->EnsureStore()) return 0;
    w->Compose({0, 0, w->store.width, w->store.height}, static_cast<uint32_t*>(rgb32), pitchBytes);
    return 1;
}

int LockClientPixels(HWND handle, ClientPixels* out) {
    Window* w = AcquireWindow(handle);
    if (!w || !out) {
        if (w) ReleaseWindow(w);
        return 0;
    }
    w->pixelLock.lock();
    if (!w->EnsureStore()) {
        w->pixelLock.unlock();
        ReleaseWindow(w);
        return 0;
    }
    // The reference and the lock stay with the caller until Unlock.
    const WindowGeometry g = w->Geometry();
    *out = {w->store.bits,   w->store.pitch, w->store.width, w->store.height,
            w->store.format, g.visible,      g.covered};
    return 1;
}

void UnlockClientPixels(HWND handle, const RECT* changed) {
    auto* w = static_cast<Window*>(handle);
    if (changed) {
        RECT r = *changed;
        if (ClipToSize(&r, w->store.width, w->store.height)) w->ScanOut(r);
    }
    w->pixelLock.unlock();
    ReleaseWindow(w);
}

int SetClientOverlay(HWND handle, const RECT& dstRect, const void* rgb32, int pitchBytes,
                     bool keyed, uint32_t key) {
    WindowRef w(handle);
    if (!w) return 0;
    uint32_t* copy = nullptr;
    const int width = dstRect.right - dstRect.left, height = dstRect.bottom - dstRect.top;
    if (rgb32) {
        if (width <= 0 || height <= 0) return 0;
        copy = static_cast<uint32_t*>(HeapAlloc(static_cast<size_t>(width) * height * 4));
        if (!copy) return 0;
        for (int y = 0; y < height; ++y) {
            std::memcpy(copy + static_cast<size_t>(y) * width,
                        static_cast<const uint8_t*>(rgb32) + static_cast<ptrdiff_t>(y) * pitchBytes,
                        static_cast<size_t>(width) * 4);
        }
    }
    std::lock_guard<std::mutex> lock(w->pixelLock);
    RECT old = w->overlay.rect;
    HeapFree(w->overlay.rgb);
    w->overlay = {copy, copy ? dstRect : RECT{}, keyed, key};
    if (w->EnsureStore()) {
        // Both the area the overlay left and the one it now covers change.
        if (ClipToSize(&old, w->store.width, w->store.height)) w->ScanOut(old);
        RECT now = w->overlay.rect;
        if (copy && ClipToSize(&now, w->store.width, w->store.height)) w->ScanOut(now);
    }
    return 1;
}

}  // namespace nplat
