# ALSA smoke tests: their own binary, so their tests carry the label `alsa`
# (the PCMs they open need no sound card; each test skips where it cannot
# open its PCM). Left out when the library was built without ALSA.
if(NOT NCB_HAVE_ALSA)
    return()
endif()
add_executable(ncodecbase_alsa_tests ${CMAKE_CURRENT_LIST_DIR}/audio/alsa_smoke.cpp)
target_link_libraries(ncodecbase_alsa_tests PRIVATE ncb_test_support GTest::gtest_main)
gtest_discover_tests(ncodecbase_alsa_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS alsa)
