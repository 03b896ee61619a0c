# Codec manager tests: decoder plug-ins under the file names of the mapping
# tables (one C source built once per file and per broken variant), the
# example plug-in and its host, and the `ncodec plugins` listing.
#
# The plug-ins are plain C modules with hidden visibility: they export only
# their entry points and no STB_GNU_UNIQUE symbol, so dlclose really unmaps
# them and the tests can watch plug-ins come and go in /proc/self/maps.
set(NCB_CODEC_PLUGIN_DIR ${PROJECT_BINARY_DIR}/codec-plugins)

function(ncb_add_codec_plugin folder file_name variant)
    string(MAKE_C_IDENTIFIER "ncb_codec_plugin_${folder}_${file_name}" target)
    add_library(${target} MODULE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/test_decoder_plugin.c)
    set_target_properties(${target} PROPERTIES
        PREFIX "" OUTPUT_NAME "${file_name}" SUFFIX ".dll"
        C_VISIBILITY_PRESET hidden
        LIBRARY_OUTPUT_DIRECTORY ${NCB_CODEC_PLUGIN_DIR}/${folder})
    target_compile_definitions(${target} PRIVATE
        NTEST_PLUGIN_FILE="${file_name}.dll" NTEST_PLUGIN_VARIANT=${variant})
    target_link_libraries(${target} PRIVATE ncb_flags)
    add_dependencies(ncodecbase_tests ${target})
    if(TARGET ncodecbase_thread_tests)
        add_dependencies(ncodecbase_thread_tests ${target})
    endif()
endfunction()

foreach(name Mpeg AAC AC3 DTS Vorbis Real WMA WMA_DMO AMR APE Flac Common)
    ncb_add_codec_plugin(audio NAudioDecoder${name} 0)
endforeach()
foreach(name Mpeg12 Mpeg4 263 264 Real VC1 WMV WMV_DMO Common)
    ncb_add_codec_plugin(video NVideoDecoder${name} 0)
endforeach()
# Broken plug-ins, one per way a plug-in can fail the manager. The folder has
# no NAudioDecoderFlac.dll, for the missing-file case.
ncb_add_codec_plugin(broken NAudioDecoderMpeg 1)   # neither entry point
ncb_add_codec_plugin(broken NAudioDecoderAAC 2)    # NCreateInstance only
ncb_add_codec_plugin(broken NAudioDecoderAC3 3)    # NDestroyInstance only
ncb_add_codec_plugin(broken NVideoDecoder264 4)    # NCreateInstance refuses

foreach(test_target ncodecbase_tests ncodecbase_thread_tests)
    if(TARGET ${test_target})
        target_compile_definitions(${test_target} PRIVATE
            NCB_CODEC_PLUGIN_DIR="${NCB_CODEC_PLUGIN_DIR}")
    endif()
endforeach()

# The example plug-in and host, built the way a user builds them (against the
# shared library) and run as a test.
set(NCB_EXAMPLE_PLUGIN_DIR ${PROJECT_SOURCE_DIR}/examples/plugin)
add_library(example_g711_plugin MODULE ${NCB_EXAMPLE_PLUGIN_DIR}/g711_plugin.cpp)
set_target_properties(example_g711_plugin PROPERTIES
    PREFIX "" OUTPUT_NAME NAudioDecoderCommon SUFFIX ".dll"
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/example-plugins)
target_compile_options(example_g711_plugin PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
target_link_libraries(example_g711_plugin PRIVATE ncodecbase ncb_flags)

add_executable(example_plugin_host ${NCB_EXAMPLE_PLUGIN_DIR}/host.cpp)
target_link_libraries(example_plugin_host PRIVATE ncodecbase ncb_flags)
add_dependencies(example_plugin_host example_g711_plugin)
add_test(NAME CodecExample.HostDecodesThroughPlugin
    COMMAND example_plugin_host ${PROJECT_BINARY_DIR}/example-plugins)

add_test(NAME CodecCli.PluginsListsEveryRuleAndStatus
    COMMAND ${CMAKE_COMMAND} -DNCODEC=$<TARGET_FILE:ncodec> -DPLUGINS=${NCB_CODEC_PLUGIN_DIR}
        -DSCRATCH=${PROJECT_BINARY_DIR}/test-scratch/CodecCli
        -P ${CMAKE_CURRENT_LIST_DIR}/plugins_cli_check.cmake)
