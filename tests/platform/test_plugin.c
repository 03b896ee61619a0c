/* A minimal plug-in for the dynamic-library tests: built as "NTestPlugin.dll"
   so the loader is exercised with the file names plug-ins really have. */
__attribute__((visibility("default"))) int NTestPluginAdd(int a, int b) { return a + b; }

__attribute__((visibility("default"))) const char* NTestPluginName(void) { return "NTestPlugin"; }
