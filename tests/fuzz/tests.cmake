# Replays every fuzz target's seed corpus (fuzz/corpus/<name>/) and its past
# crashers (tests/<area>/crashers/<name>/) as ordinary ctest tests, labelled
# `fuzz`. Normal builds link the target with fuzz/replay_main.cpp; a tree that
# also builds libFuzzer targets lets those replay with -runs=0 instead, since
# its objects carry coverage hooks that only libFuzzer provides.
file(GLOB _ncb_fuzz_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/fuzz/*_fuzz.cpp)
foreach(_source IN LISTS _ncb_fuzz_sources)
    get_filename_component(_stem ${_source} NAME_WE)
    string(REGEX REPLACE "_fuzz$" "" _name ${_stem})

    set(_inputs ${PROJECT_SOURCE_DIR}/fuzz/corpus/${_name})
    file(GLOB _crashers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*/crashers/${_name}/*)
    foreach(_crasher IN LISTS _crashers)
        get_filename_component(_dir ${_crasher} DIRECTORY)
        list(APPEND _inputs ${_dir})
    endforeach()
    list(REMOVE_DUPLICATES _inputs)

    if(NCB_BUILD_FUZZ)
        add_test(NAME fuzz-replay-${_name} COMMAND fuzz-${_name} -runs=0 ${_inputs})
    else()
        add_executable(fuzz-replay-${_name} ${_source} ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
        target_link_libraries(fuzz-replay-${_name} PRIVATE ncodecbase_static ncb_flags)
        add_test(NAME fuzz-replay-${_name} COMMAND fuzz-replay-${_name} ${_inputs})
    endif()
    set_tests_properties(fuzz-replay-${_name} PROPERTIES LABELS fuzz)
endforeach()
