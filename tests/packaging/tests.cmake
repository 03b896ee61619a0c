# The installed library as a host sees it: install into a scratch prefix,
# build and run examples/hello through the CMake package and pkg-config, check
# the SONAME and that every exported symbol is ours (consumer_test.sh).
string(REPLACE ";" "," _ncb_consumer_sanitize "${NCB_SANITIZE}")
add_test(NAME packaging-consumer
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/consumer_test.sh
        --build ${PROJECT_BINARY_DIR}
        --source ${PROJECT_SOURCE_DIR}
        --scratch ${PROJECT_BINARY_DIR}/packaging-test
        --cmake ${CMAKE_COMMAND}
        --cxx ${CMAKE_CXX_COMPILER}
        --generator ${CMAKE_GENERATOR}
        --sanitize "${_ncb_consumer_sanitize}")
set_tests_properties(packaging-consumer PROPERTIES LABELS packaging TIMEOUT 300)
