# Platform tests: tiny plug-ins with Windows file names for the dynamic
# library tests, the shared library for the export checks of the host event
# helpers, and the project version for the version query.
function(ncb_add_test_plugin target source file_name)
    add_library(${target} MODULE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${source})
    set_target_properties(${target} PROPERTIES
        PREFIX "" OUTPUT_NAME "${file_name}" SUFFIX ".dll"
        C_VISIBILITY_PRESET hidden
        LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/test-plugins)
    add_dependencies(ncodecbase_tests ${target})
endfunction()

ncb_add_test_plugin(ncb_test_plugin test_plugin.c NTestPlugin)
ncb_add_test_plugin(ncb_test_plugin_unresolved test_plugin_unresolved.c NTestPluginUnresolved)

add_dependencies(ncodecbase_tests ncodecbase)
target_compile_definitions(ncodecbase_tests PRIVATE
    NCB_TEST_PLUGIN_DIR="${PROJECT_BINARY_DIR}/test-plugins"
    NCB_TEST_PROJECT_VERSION="${PROJECT_VERSION}")

# X11 smoke test: windows and DirectDraw on a private Xvfb. Its own binary
# (not a *_test.cpp) so it links Xlib directly and carries the label `x11`;
# each test skips where Xvfb cannot run.
if(NCB_HAVE_X11)
    add_executable(ncb_x11_smoke ${CMAKE_CURRENT_LIST_DIR}/x11_smoke.cpp)
    target_link_libraries(ncb_x11_smoke PRIVATE ncb_test_support GTest::gtest_main X11::X11
        X11::Xrandr)
    gtest_discover_tests(ncb_x11_smoke NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 60 PROPERTIES LABELS x11)
endif()
