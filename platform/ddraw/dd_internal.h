// State the DirectDraw objects share with the test controls: the one lock,
// the call counters and armed failures, the offered FOURCCs and caps, and
// the list of live surfaces that a forced loss walks.
#pragma once

#include <mutex>

#include "platform/ddraw/ddraw.h"

namespace nplat::dd {

// Every object and control runs under this lock. Recursive because a method
// may release another object (a clipper, an overlay's target) while it holds it.
std::recursive_mutex& LayerLock();

// Counts the call and answers an armed failure: DD_OK to go on, else the
// result the call must return. Lock held.
HRESULT Enter(ddtest::Call call);

// Current offered FOURCC codes (at most kMaxFourCC) and driver caps. Lock held.
constexpr int kMaxFourCC = 16;
int OfferedFourCCs(DWORD* codes);
bool IsOffered(DWORD code);
DWORD Caps();
// Consumes one pending "wrong mode" answer of TestCooperativeLevel.
bool TakeWrongMode();

// Surfaces register themselves so a forced loss reaches every one.
class SurfaceBase : public IDirectDrawSurface {
  public:
    virtual void MarkLost() = 0;
    SurfaceBase* prevLive = nullptr;
    SurfaceBase* nextLive = nullptr;
};
void AddLiveSurface(SurfaceBase* surface);
void RemoveLiveSurface(SurfaceBase* surface);
void ForEachLiveSurface(void (*fn)(SurfaceBase*));

void CountObject(int delta);  // live DirectDraw objects, surfaces, clippers

}  // namespace nplat::dd
