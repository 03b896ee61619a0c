# JPEG decoder tests: TurboJPEG is the independent decoder, linked into the
# test binary only; cjpeg (run by the tests) makes the input files in the
# build tree.
find_library(NCB_TURBOJPEG_LIBRARY turbojpeg REQUIRED)
target_sources(ncodecbase_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/jpeg_oracle.cpp)
target_link_libraries(ncodecbase_tests PRIVATE ${NCB_TURBOJPEG_LIBRARY})

# The command line: `ncodec info` reads the frame and scan structure and
# decodes, a damaged file is refused, `convert` writes the picture as PPM.
set(NCB_JPEG_DATA_DIR ${PROJECT_SOURCE_DIR}/../shared/testdata/jpeg)
add_test(NAME ncodec_cli.jpeg_info
    COMMAND $<TARGET_FILE:ncodec> info ${NCB_JPEG_DATA_DIR}/valid/rose_440_prog.jpg)
set_tests_properties(ncodec_cli.jpeg_info PROPERTIES PASS_REGULAR_EXPRESSION
    "size: 70 x 46\nprocess: SOF2 \\(progressive\\)[^\n]*\nsampling: 1x2[^\n]*\nrestart interval: 0\nscans: 10\nplanes: YUV444 70 x 46 \\(stored 80 x 48\\)")
add_test(NAME ncodec_cli.jpeg_info_refused
    COMMAND $<TARGET_FILE:ncodec> info ${NCB_JPEG_DATA_DIR}/corrupt/trunc_half.jpg)
set_tests_properties(ncodec_cli.jpeg_info_refused PROPERTIES WILL_FAIL TRUE)
add_test(NAME ncodec_cli.jpeg_convert_ppm
    COMMAND sh -c "mkdir -p \"$1\" && \"$0\" convert \"$2\" \"$1/rose.ppm\" && head -c 15 \"$1/rose.ppm\" | grep -q '^P6'"
        $<TARGET_FILE:ncodec> ${PROJECT_BINARY_DIR}/jpeg-cli-test
        ${NCB_JPEG_DATA_DIR}/valid/rose_422_q85.jpg)
add_test(NAME ncodec_cli.jpeg_demo
    COMMAND sh -c "rm -rf \"$1\" && \"$0\" demo --step jpeg --out \"$1\" && \"$0\" info \"$1/jpeg_sample.png\""
        $<TARGET_FILE:ncodec> ${PROJECT_BINARY_DIR}/jpeg-cli-test/demo)
set_tests_properties(ncodec_cli.jpeg_demo PROPERTIES PASS_REGULAR_EXPRESSION "size: 96 x 64")
