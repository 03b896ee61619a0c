# `ncodec plugins` over the test plug-in folders: every status it can report,
# the per-family totals, and its usage errors. Run with -DNCODEC=<tool>
# -DPLUGINS=<codec-plugins folder> -DSCRATCH=<empty folder>.

function(run_ncodec expected_rc out_var)
    execute_process(COMMAND ${NCODEC} plugins ${ARGN}
        OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
    if(NOT rc EQUAL expected_rc)
        message(FATAL_ERROR "ncodec plugins ${ARGN}: exit ${rc}, wanted ${expected_rc}\n${out}${err}")
    endif()
    set(${out_var} "${out}${err}" PARENT_SCOPE)
endfunction()

function(expect text pattern)
    if(NOT text MATCHES "${pattern}")
        message(FATAL_ERROR "output lacks '${pattern}':\n${text}")
    endif()
endfunction()

run_ncodec(0 good --audio ${PLUGINS}/audio --video ${PLUGINS}/video)
expect("${good}" "audio: 54 of 54 rules find a loadable plug-in")
expect("${good}" "video: 84 of 84 rules find a loadable plug-in")
expect("${good}" "\n +44 +0x0 +-1 +NAudioDecoderCommon.dll +ok\n")
expect("${good}" "\n +37 +0x1800 +0x180A +NVideoDecoderWMV_DMO.dll +ok\n")

# A file that is not a library, beside the broken plug-ins' folder.
file(MAKE_DIRECTORY ${SCRATCH})
file(WRITE ${SCRATCH}/NVideoDecoderMpeg4.dll "not a library")
run_ncodec(0 broken --audio ${PLUGINS}/broken --video ${SCRATCH})
expect("${broken}" "\n +0 +0x100 +-1 +NAudioDecoderMpeg.dll +no entry points\n")
expect("${broken}" "\n +14 +0x200 +0x204 +NAudioDecoderAAC.dll +no NDestroyInstance\n")
expect("${broken}" "\n +15 +0x400 +-1 +NAudioDecoderAC3.dll +no NCreateInstance\n")
expect("${broken}" "\n +39 +0xB00 +0xB01 +NAudioDecoderFlac.dll +missing\n")
expect("${broken}" "\n +4 +0x1200 +-1 +NVideoDecoderMpeg4.dll +not loadable\n")
expect("${broken}" "audio: 0 of 54 rules")
expect("${broken}" "video: 0 of 84 rules")

# The refusing 264 plug-in has both entry points, so it counts as loadable.
run_ncodec(0 video_only --video ${PLUGINS}/broken)
expect("${video_only}" "video: 5 of 84 rules")
if(video_only MATCHES "audio")
    message(FATAL_ERROR "audio listed without --audio:\n${video_only}")
endif()

run_ncodec(2 none)
run_ncodec(2 dangling --audio)
run_ncodec(2 unknown --codec x)
