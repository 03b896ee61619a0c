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
