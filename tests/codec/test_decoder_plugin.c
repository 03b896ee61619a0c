/* A decoder plug-in for the codec manager tests, built once per file name of
   the mapping tables and once per broken variant (NTEST_PLUGIN_VARIANT).

   Its counters are plain ints on purpose: the manager promises to hold its
   lock around every call into a plug-in, so under ThreadSanitizer any
   unserialised call shows up as a race here. Plain C with no C++ runtime, so
   the system really unloads the library when its last reference goes. */
#include <stdlib.h>
#include <string.h>

#include "test_decoder.h"

#define EXPORT __attribute__((visibility("default")))

#if NTEST_PLUGIN_VARIANT == NTEST_VARIANT_DECODER

static int g_live;
static int g_destroyCalls;
static NTestHook g_onCreate;
static NTestHook g_onDestroy;
static void* g_hookContext;

EXPORT void* NCreateInstance(int codecType, int codecSubType) {
    if (g_onCreate) g_onCreate(g_hookContext);
    NTestDecoder* decoder = (NTestDecoder*)malloc(sizeof(NTestDecoder));
    if (!decoder) return NULL;
    decoder->magic = NTEST_DECODER_LIVE;
    decoder->codecType = codecType;
    decoder->codecSubType = codecSubType;
    strncpy(decoder->fileName, NTEST_PLUGIN_FILE, sizeof decoder->fileName - 1);
    decoder->fileName[sizeof decoder->fileName - 1] = 0;
    ++g_live;
    return decoder;
}

EXPORT int NDestroyInstance(void* instance) {
    ++g_destroyCalls;
    if (g_onDestroy) g_onDestroy(g_hookContext);
    NTestDecoder* decoder = (NTestDecoder*)instance;
    if (!decoder || decoder->magic != NTEST_DECODER_LIVE) return 0;
    decoder->magic = NTEST_DECODER_DEAD;
    free(decoder);
    --g_live;
    return 1;
}

EXPORT int NTestLiveInstances(void) { return g_live; }
EXPORT int NTestDestroyCalls(void) { return g_destroyCalls; }

EXPORT void NTestSetHooks(NTestHook onCreate, NTestHook onDestroy, void* context) {
    g_onCreate = onCreate;
    g_onDestroy = onDestroy;
    g_hookContext = context;
}

#elif NTEST_PLUGIN_VARIANT == NTEST_VARIANT_NO_ENTRY

EXPORT int NTestNotADecoder(void) { return 1; }

#elif NTEST_PLUGIN_VARIANT == NTEST_VARIANT_CREATE_ONLY

EXPORT void* NCreateInstance(int codecType, int codecSubType) {
    (void)codecType;
    (void)codecSubType;
    return malloc(1);
}

#elif NTEST_PLUGIN_VARIANT == NTEST_VARIANT_DESTROY_ONLY

EXPORT int NDestroyInstance(void* instance) {
    free(instance);
    return 1;
}

#elif NTEST_PLUGIN_VARIANT == NTEST_VARIANT_REFUSE

static int g_createCalls;

EXPORT void* NCreateInstance(int codecType, int codecSubType) {
    (void)codecType;
    (void)codecSubType;
    ++g_createCalls;
    return NULL;
}

EXPORT int NDestroyInstance(void* instance) {
    (void)instance;
    abort(); /* nothing was ever created, so the manager must never get here */
}

EXPORT int NTestCreateCalls(void) { return g_createCalls; }

#else
#error "unknown NTEST_PLUGIN_VARIANT"
#endif
