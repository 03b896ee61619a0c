/* What the codec manager tests and their decoder plug-ins share: the layout
   of a test decoder instance and the extra functions the plug-ins export to
   let tests look inside. Plain C so the plug-ins stay free of C++ runtime
   symbols (a library exporting STB_GNU_UNIQUE symbols is never unloaded). */
#ifndef NCB_TESTS_CODEC_TEST_DECODER_H
#define NCB_TESTS_CODEC_TEST_DECODER_H

#include <stdint.h>

#define NTEST_DECODER_LIVE 0x4C495645u /* "LIVE" */
#define NTEST_DECODER_DEAD 0x44454144u /* "DEAD" */

/* Plug-in variants, chosen at build time. */
#define NTEST_VARIANT_DECODER 0      /* both entry points, counts instances */
#define NTEST_VARIANT_NO_ENTRY 1     /* neither entry point */
#define NTEST_VARIANT_CREATE_ONLY 2  /* NCreateInstance only */
#define NTEST_VARIANT_DESTROY_ONLY 3 /* NDestroyInstance only */
#define NTEST_VARIANT_REFUSE 4       /* NCreateInstance always returns null */

/* A decoder instance. Allocated with malloc by the plug-in; it outlives the
   plug-in when the manager unloads it with live instances. */
typedef struct NTestDecoder {
    uint32_t magic; /* NTEST_DECODER_LIVE until NDestroyInstance */
    int32_t codecType;
    int32_t codecSubType;
    char fileName[40]; /* the plug-in file that made it */
} NTestDecoder;

/* Called by NCreateInstance / NDestroyInstance when set (NTestSetHooks). */
typedef void (*NTestHook)(void* context);

/* Extra exports of NTEST_VARIANT_DECODER plug-ins. */
typedef int (*NTestLiveInstancesProc)(void);
typedef int (*NTestDestroyCallsProc)(void);
typedef void (*NTestSetHooksProc)(NTestHook onCreate, NTestHook onDestroy, void* context);

#endif
