# Platform tests: the shared library for the export checks of the host event
# helpers.
add_dependencies(ncodecbase_tests ncodecbase)
