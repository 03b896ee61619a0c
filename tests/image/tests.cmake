# Image codec tests: oracles linked into the test binary only, never into the
# library.
#
# PNG: libpng decodes the PNG suite and our encoder's files and writes test
# images of every colour type; the command-line checks run `ncodec` on suite
# files.
find_package(PNG REQUIRED)
target_sources(ncodecbase_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/png/png_oracle.cpp)
target_link_libraries(ncodecbase_tests PRIVATE PNG::PNG)
