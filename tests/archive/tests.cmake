# Archive reader tests: shared helpers, and the path of the ncodec tool for
# the command-line checks. Oracles (zlib, Info-ZIP zip, Python's zipfile)
# are used by the tests only, never by the library.
target_sources(ncodecbase_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/archive_test_util.cpp)
target_compile_definitions(ncodecbase_tests PRIVATE NCB_NCODEC_PATH="$<TARGET_FILE:ncodec>")
add_dependencies(ncodecbase_tests ncodec)
