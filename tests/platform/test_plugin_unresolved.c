/* A plug-in that needs a symbol nothing provides: loading it must fail at
   once (RTLD_NOW), not at the first call. */
extern int NTestPluginMissingSymbol(void);

__attribute__((visibility("default"))) int NTestPluginCallsMissing(void) {
    return NTestPluginMissingSymbol();
}
