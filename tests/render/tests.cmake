# `ncodec play` on the virtual device: what the device played must begin
# with the input, sample for sample (sox makes the input and reads both
# files back). Left out without sox.
find_program(NCB_PLAY_SOX sox)
if(NCB_PLAY_SOX)
    add_test(NAME ncodec_play.virtual_capture
        COMMAND sh -c "set -e; d=\"$1\"/play-cli; rm -rf \"$d\"; mkdir -p \"$d\"
            \"$2\" -n -r 44100 -c 2 -b 16 \"$d/in.wav\" synth 1.5 sine 440 sine 660 vol 0.5
            \"$0\" play \"$d/in.wav\" --device virtual:\"$d/out.wav\"
            \"$2\" \"$d/in.wav\" -t raw \"$d/in.raw\"
            \"$2\" \"$d/out.wav\" -t raw \"$d/out.raw\"
            cmp -n $(wc -c < \"$d/in.raw\") \"$d/in.raw\" \"$d/out.raw\"
            \"$0\" play \"$d/in.wav\" --device virtual:\"$d/fast.wav\" --tempo 2
            test \"$(\"$2\" --i -r \"$d/fast.wav\")\" = 44100
            ! \"$0\" play \"$d/missing.wav\" --device virtual:\"$d/x.wav\"
            ! \"$0\" play \"$d/in.wav\" --tempo 0"
        $<TARGET_FILE:ncodec> ${PROJECT_BINARY_DIR} ${NCB_PLAY_SOX})
endif()

# ALSA smoke tests: their own binary, so their tests carry the label `alsa`
# (the PCMs they open need no sound card; each test skips where it cannot
# open its PCM). Left out when the library was built without ALSA.
if(NOT NCB_HAVE_ALSA)
    return()
endif()
add_executable(ncodecbase_alsa_tests ${CMAKE_CURRENT_LIST_DIR}/audio/alsa_smoke.cpp)
target_link_libraries(ncodecbase_alsa_tests PRIVATE ncb_test_support GTest::gtest_main)
gtest_discover_tests(ncodecbase_alsa_tests NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60 PROPERTIES LABELS alsa)
