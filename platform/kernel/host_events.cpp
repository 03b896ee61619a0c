// The exported event helpers a host uses to make the handles it passes to the
// renders. They are thin doors into the library's synchronisation domain, so
// a host's waits and the renders' sets meet on the same events.
#include "ncodecbase/host_events.h"

#include "platform/kernel/sync.h"

NCB_API nplat::HANDLE NCreateEvent(int manualReset, int initialState) {
    return nplat::CreateEvent(manualReset != 0, initialState != 0);
}

NCB_API int NSetEvent(nplat::HANDLE event) { return nplat::SetEvent(event) ? 1 : 0; }

NCB_API int NResetEvent(nplat::HANDLE event) { return nplat::ResetEvent(event) ? 1 : 0; }

NCB_API nplat::DWORD NWaitForSingleObject(nplat::HANDLE event, nplat::DWORD timeoutMs) {
    return nplat::WaitForSingleObject(event, timeoutMs);
}

NCB_API nplat::DWORD NWaitForMultipleObjects(nplat::DWORD count, const nplat::HANDLE* events,
                                             int waitAll, nplat::DWORD timeoutMs) {
    return nplat::WaitForMultipleObjects(count, events, waitAll != 0, timeoutMs);
}

NCB_API int NCloseHandle(nplat::HANDLE event) { return nplat::CloseHandle(event) ? 1 : 0; }
