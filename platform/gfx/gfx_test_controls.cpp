// Process-wide state behind gfx_test_controls.h, and the reference counting
// shared by every object of the graphics layer (which also keeps the count
// of live objects the leak tests read). One mutex guards the controls; the
// devices consult them once per call, never per pixel.
#include "platform/gfx/gfx_test_controls.h"

#include <cstring>
#include <mutex>
#include <new>

#include "platform/kernel/heap.h"

namespace nplat {

namespace {

constexpr int kMaxQueued = 16;
constexpr int kMaxFormats = 32;
constexpr int kMaxProcessorDevices = 16;

struct Failure {
    int skip = 0;
    int count = 0;
    HRESULT result = D3DERR_INVALIDCALL;
};

struct FormatAnswer {
    DWORD usage;
    D3DFORMAT format;
    bool supported;
};

struct ResultQueue {
    HRESULT results[kMaxQueued];
    int head = 0;
    int size = 0;

    void Push(HRESULT hr) {
        if (size == kMaxQueued) return;
        results[(head + size) % kMaxQueued] = hr;
        ++size;
    }
    bool Pop(HRESULT* hr) {
        if (size == 0) return false;
        *hr = results[head];
        head = (head + 1) % kMaxQueued;
        --size;
        return true;
    }
};

struct Controls {
    std::mutex mutex;
    FormatAnswer formats[kMaxFormats];
    int formatCount = 0;
    bool refusePs2a = false;
    bool refuseFlipEx = false;
    ResultQueue deviceStates;
    ResultQueue presentResults;
    Failure failures[static_cast<int>(GfxCall::kCount)];
    GUID devices[kMaxProcessorDevices];
    int deviceCount = 0;
    GfxCounters counters;

    void SetDefaults() {
        formatCount = 0;
        refusePs2a = false;
        refuseFlipEx = false;
        deviceStates = ResultQueue{};
        presentResults = ResultQueue{};
        for (Failure& f : failures) f = Failure{};
        devices[0] = DXVA2_VideoProcProgressiveDeviceGuid();
        devices[1] = DXVA2_VideoProcBobDeviceGuid();
        deviceCount = 2;
        int live = counters.liveObjects;
        counters = GfxCounters{};
        counters.liveObjects = live;
    }

    // dxva2.h is not included here to keep this file independent of it; the
    // two identifiers are repeated.
    static GUID DXVA2_VideoProcProgressiveDeviceGuid() {
        return {0x5a54a0c9, 0xc7ec, 0x4bd9, {0x8e, 0xde, 0xf3, 0xc7, 0x5d, 0xc4, 0x39, 0x3b}};
    }
    static GUID DXVA2_VideoProcBobDeviceGuid() {
        return {0x335aa36e, 0x7884, 0x43a4, {0x9c, 0x91, 0x7f, 0x87, 0xfa, 0xf3, 0xe3, 0x7e}};
    }

    Controls() { SetDefaults(); }
};

Controls& State() {
    // Built in static storage and never destroyed: an object of the layer may
    // be released after main returns and still counts itself out.
    alignas(Controls) static unsigned char storage[sizeof(Controls)];
    static Controls* controls = new (storage) Controls();
    return *controls;
}

}  // namespace

// ---- GfxObject ----

GfxObject::GfxObject() { gfxtest::CountLiveObject(1); }
GfxObject::~GfxObject() { gfxtest::CountLiveObject(-1); }

HRESULT GfxObject::QueryInterface(const IID&, void** object) {
    if (object) *object = nullptr;
    return object ? E_NOINTERFACE : E_POINTER;
}

ULONG GfxObject::AddRef() { return static_cast<ULONG>(++m_refs); }

// Objects are made with HeapNew, so the last Release destroys in place and
// hands the block (the most-derived object's start) back to the heap.
ULONG GfxObject::Release() {
    int left = --m_refs;
    if (left == 0) {
        void* block = dynamic_cast<void*>(this);
        this->~GfxObject();
        HeapFree(block);
    }
    return static_cast<ULONG>(left < 0 ? 0 : left);
}

// ---- controls ----

namespace gfxtest {

void Reset() {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.SetDefaults();
}

void SetFormatSupported(DWORD usage, D3DFORMAT format, bool supported) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    for (int i = 0; i < c.formatCount; ++i) {
        if (c.formats[i].usage == usage && c.formats[i].format == format) {
            c.formats[i].supported = supported;
            return;
        }
    }
    if (c.formatCount < kMaxFormats) c.formats[c.formatCount++] = {usage, format, supported};
}

bool IsFormatSupported(DWORD usage, D3DFORMAT format) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    for (int i = 0; i < c.formatCount; ++i)
        if (c.formats[i].usage == usage && c.formats[i].format == format)
            return c.formats[i].supported;
    return true;
}

void SetRefusePs2a(bool refuse) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.refusePs2a = refuse;
}

bool RefusePs2a() {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.refusePs2a;
}

void SetRefuseFlipEx(bool refuse) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.refuseFlipEx = refuse;
}

bool RefuseFlipEx() {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.refuseFlipEx;
}

void QueueDeviceState(HRESULT result) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.deviceStates.Push(result);
}

void QueuePresentResult(HRESULT result) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.presentResults.Push(result);
}

bool NextDeviceState(HRESULT* result) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.deviceStates.Pop(result);
}

bool NextPresentResult(HRESULT* result) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.presentResults.Pop(result);
}

void FailCall(GfxCall call, int skip, int count, HRESULT result) {
    if (call >= GfxCall::kCount) return;
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.failures[static_cast<int>(call)] = Failure{skip, count, result};
}

void ClearFailures() {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    for (Failure& f : c.failures) f = Failure{};
}

bool ShouldFail(GfxCall call, HRESULT* result) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    Failure& f = c.failures[static_cast<int>(call)];
    if (f.count <= 0) return false;
    if (f.skip > 0) {
        --f.skip;
        return false;
    }
    --f.count;
    *result = f.result;
    return true;
}

HRESULT Injected(GfxCall call) {
    HRESULT hr = D3D_OK;
    return ShouldFail(call, &hr) ? hr : D3D_OK;
}

void SetVideoProcessorDevices(const GUID* guids, int count) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (count < 0 || !guids) count = 0;
    if (count > kMaxProcessorDevices) count = kMaxProcessorDevices;
    for (int i = 0; i < count; ++i) c.devices[i] = guids[i];
    c.deviceCount = count;
}

int VideoProcessorDevices(GUID* guids, int capacity) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    int n = c.deviceCount < capacity ? c.deviceCount : capacity;
    for (int i = 0; i < n; ++i) guids[i] = c.devices[i];
    return n;
}

GfxCounters Counters() {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.counters;
}

void Count(int GfxCounters::*counter, int amount) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.counters.*counter += amount;
}

void CountShaderCreated(uint32_t record) {
    if (record >= 43) return;
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    ++c.counters.shadersCreated[record];
}

void CountDeviceCreated(D3DSWAPEFFECT effect) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    ++c.counters.devicesCreated;
    c.counters.lastSwapEffect = effect;
}

void CountLiveObject(int delta) {
    Controls& c = State();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.counters.liveObjects += delta;
}

}  // namespace gfxtest
}  // namespace nplat
