# The colour tools as a user runs them: the demo's colour strip, turned into
# a PPM file, then through every pixel layout and back (`convert --via`),
# each result a PPM of the same size as the input; an unknown layout fails.
set(NCB_COLOUR_CLI_DIR ${PROJECT_BINARY_DIR}/colour-cli-test)

add_test(NAME ncodec_cli.convert_via_layouts
    COMMAND sh -c "set -e; rm -rf \"$1\"; \"$0\" demo --out \"$1\" --step colour >/dev/null;
        \"$0\" convert \"$1/colour_strip.png\" \"$1/strip.ppm\" >/dev/null;
        size=$(wc -c < \"$1/strip.ppm\");
        for l in y800 yuv420 yuv422 yuv444 iyuv yv12 nv12 yuy2 yvyu uyvy vyuy ayuv rgb555 rgb565 rgb24 rgb32; do
            \"$0\" convert --via $l \"$1/strip.ppm\" \"$1/via_$l.ppm\" >/dev/null;
            test $(wc -c < \"$1/via_$l.ppm\") -eq $size;
        done;
        \"$0\" convert --via rgb32 \"$1/strip.ppm\" \"$1/same.ppm\" >/dev/null;
        cmp \"$1/strip.ppm\" \"$1/same.ppm\";
        ! \"$0\" convert --via nosuch \"$1/strip.ppm\" \"$1/x.ppm\" 2>/dev/null"
        $<TARGET_FILE:ncodec> ${NCB_COLOUR_CLI_DIR})
