# JPEG decoder tests: TurboJPEG is the independent decoder, linked into the
# test binary only; cjpeg (run by the tests) makes the input files in the
# build tree.
find_library(NCB_TURBOJPEG_LIBRARY turbojpeg REQUIRED)
target_sources(ncodecbase_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/jpeg_oracle.cpp)
target_link_libraries(ncodecbase_tests PRIVATE ${NCB_TURBOJPEG_LIBRARY})
