// Events that a host creates and hands to the renders, which set them to
// notify the host (play time reached, state changes). Same semantics as
// Windows kernel events: manual-reset events stay signalled until reset;
// auto-reset events are consumed by the one wait they wake.
//
// Closing an event while another thread waits on it is safe: that wait
// returns WAIT_FAILED. Using a handle after closing it is not.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include "ncodecbase/export.h"
#include "ncodecbase/win_types.h"

// A new event, or null when memory runs out.
NCB_API nplat::HANDLE NCreateEvent(int manualReset, int initialState);
// 1, or 0 for a null handle or one that is being closed.
NCB_API int NSetEvent(nplat::HANDLE event);
NCB_API int NResetEvent(nplat::HANDLE event);
// WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED; timeout in ms or INFINITE.
NCB_API nplat::DWORD NWaitForSingleObject(nplat::HANDLE event, nplat::DWORD timeoutMs);
// WAIT_OBJECT_0 + index (lowest signalled index when waitAll is 0),
// WAIT_TIMEOUT or WAIT_FAILED (count 0 or above MAXIMUM_WAIT_OBJECTS,
// null or repeated handle).
NCB_API nplat::DWORD NWaitForMultipleObjects(nplat::DWORD count, const nplat::HANDLE* events,
                                             int waitAll, nplat::DWORD timeoutMs);
NCB_API int NCloseHandle(nplat::HANDLE event);  // 1, or 0 for a null handle
