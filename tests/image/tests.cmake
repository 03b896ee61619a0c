# Image codec tests: oracles linked into the test binary only, never into the
# library.
#
# PNG: libpng decodes the PNG suite and our encoder's files and writes test
# images of every colour type; the command-line checks run `ncodec` on suite
# files.
find_package(PNG REQUIRED)
target_sources(ncodecbase_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/png/png_oracle.cpp)
target_link_libraries(ncodecbase_tests PRIVATE PNG::PNG)

# The command line on suite files: `ncodec info`, `ncodec convert` (a file
# it wrote converts again to the same bytes: decode and encode agree), the
# refusal of a damaged file, and the demo's PNG step read back by `info`.
set(NCB_PNG_SUITE_DIR ${PROJECT_SOURCE_DIR}/../shared/testdata/png)
set(NCB_PNG_CLI_DIR ${PROJECT_BINARY_DIR}/png-cli-test)

add_test(NAME ncodec_cli.png_info
    COMMAND $<TARGET_FILE:ncodec> info ${NCB_PNG_SUITE_DIR}/basi6a08.png)
set_tests_properties(ncodec_cli.png_info PROPERTIES PASS_REGULAR_EXPRESSION
    "format: PNG\nsize: 32 x 32\ncolour type: 6 [^\n]*Adam7.*IDAT +288 bytes at 49.*decode: ok")

add_test(NAME ncodec_cli.png_info_refused
    COMMAND $<TARGET_FILE:ncodec> info ${NCB_PNG_SUITE_DIR}/xs1n0g01.png)
set_tests_properties(ncodec_cli.png_info_refused PROPERTIES WILL_FAIL TRUE)

foreach(name tbbn3p08 basi0g16 f04n2c08)
    add_test(NAME ncodec_cli.png_convert_${name}
        COMMAND sh -c "rm -rf \"$1\" && mkdir -p \"$1\" && \"$0\" convert \"$2\" \"$1/a.png\" && \"$0\" convert \"$1/a.png\" \"$1/b.png\" && cmp \"$1/a.png\" \"$1/b.png\""
            $<TARGET_FILE:ncodec> ${NCB_PNG_CLI_DIR}/${name} ${NCB_PNG_SUITE_DIR}/${name}.png)
endforeach()

add_test(NAME ncodec_cli.png_convert_refuses
    COMMAND $<TARGET_FILE:ncodec> convert ${NCB_PNG_SUITE_DIR}/xd3n2c08.png
        ${NCB_PNG_CLI_DIR}/refused.png)
set_tests_properties(ncodec_cli.png_convert_refuses PROPERTIES WILL_FAIL TRUE)

add_test(NAME ncodec_cli.png_demo
    COMMAND sh -c "rm -rf \"$1\" && \"$0\" demo --step png --out \"$1\" && \"$0\" info \"$1/png_picture_alpha.png\""
        $<TARGET_FILE:ncodec> ${NCB_PNG_CLI_DIR}/demo)
set_tests_properties(ncodec_cli.png_demo PROPERTIES PASS_REGULAR_EXPRESSION
    "size: 320 x 200\ncolour type: 6 .*decode: ok, RGB32 320 x 200, with transparency")

# Per-codec lists below this folder (the top level only includes one level).
include(${CMAKE_CURRENT_LIST_DIR}/jpeg/tests.cmake)
