# The command-line tool as a user runs it: version, processor report and the
# demo into a scratch folder under the build tree, checking that every report
# file was written.
set(NCB_DEMO_TEST_DIR ${PROJECT_BINARY_DIR}/demo-test)

add_test(NAME ncodec_cli.version COMMAND $<TARGET_FILE:ncodec> --version)
set_tests_properties(ncodec_cli.version PROPERTIES
    PASS_REGULAR_EXPRESSION "^ncodec ${PROJECT_VERSION}\n$")

add_test(NAME ncodec_cli.help COMMAND $<TARGET_FILE:ncodec> --help)
set_tests_properties(ncodec_cli.help PROPERTIES PASS_REGULAR_EXPRESSION "demo")

add_test(NAME ncodec_cli.unknown_command COMMAND $<TARGET_FILE:ncodec> no-such-command)
set_tests_properties(ncodec_cli.unknown_command PROPERTIES WILL_FAIL TRUE)

add_test(NAME ncodec_cli.cpu COMMAND $<TARGET_FILE:ncodec> cpu)
set_tests_properties(ncodec_cli.cpu PROPERTIES
    PASS_REGULAR_EXPRESSION "nSSE2 +1\n.*processor level +[012] \\((SSE2|SSSE3|SSE4\\.1)\\)")

add_test(NAME ncodec_cli.demo
    COMMAND sh -c "rm -rf \"$1\" && \"$0\" demo --out \"$1\" && test -s \"$1/cpu.txt\" && test -s \"$1/buffers.txt\" && test -s \"$1/formats.txt\""
        $<TARGET_FILE:ncodec> ${NCB_DEMO_TEST_DIR})

# `convert` forms beyond one picture to one picture: JPEG output at the three
# qualities (djpeg must read each file, and finer quality must not give a
# smaller file), a GIF split into numbered frames, and frames put back
# together as an animation that giflib's giftext counts.
set(NCB_CONVERT_TEST_DIR ${PROJECT_BINARY_DIR}/convert-test)
set(NCB_TESTDATA ${PROJECT_SOURCE_DIR}/../shared/testdata)

add_test(NAME ncodec_cli.convert_jpeg_qualities
    COMMAND sh -c [=[
set -e; rm -rf "$1" && mkdir -p "$1"
for q in low medium high; do
    "$0" convert --quality $q "$2" "$1/$q.jpg"
    djpeg -ppm "$1/$q.jpg" > "$1/$q.ppm"
done
test $(stat -c %s "$1/low.jpg") -le $(stat -c %s "$1/medium.jpg")
test $(stat -c %s "$1/medium.jpg") -le $(stat -c %s "$1/high.jpg")
"$0" info "$1/high.jpg"
]=] $<TARGET_FILE:ncodec> ${NCB_CONVERT_TEST_DIR}/jpeg ${NCB_TESTDATA}/png/basn2c16.png)
set_tests_properties(ncodec_cli.convert_jpeg_qualities PROPERTIES
    PASS_REGULAR_EXPRESSION "size: 32 x 32\n.*sampling: 4:2:0.*decode: ok")

add_test(NAME ncodec_cli.convert_jpeg_bad_quality
    COMMAND $<TARGET_FILE:ncodec> convert --quality best ${NCB_TESTDATA}/png/basn2c16.png
        ${NCB_CONVERT_TEST_DIR}/never.jpg)
set_tests_properties(ncodec_cli.convert_jpeg_bad_quality PROPERTIES WILL_FAIL TRUE)

add_test(NAME ncodec_cli.convert_gif_frames_and_back
    COMMAND sh -c [=[
set -e; rm -rf "$1" && mkdir -p "$1"
"$0" convert "$2" "$1/frame_%02d.png"
"$0" convert --delay 25 "$1"/frame_*.png "$1/again.gif"
giftext "$1/again.gif" | grep -c "Image #"
]=] $<TARGET_FILE:ncodec> ${NCB_CONVERT_TEST_DIR}/gif ${NCB_TESTDATA}/gif/made/anim_dispose2.gif)
set_tests_properties(ncodec_cli.convert_gif_frames_and_back PROPERTIES
    PASS_REGULAR_EXPRESSION "frame 3 .*4 pictures -> .*250 ms per frame.*\n4\n$")
