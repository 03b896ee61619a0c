# Compiler flags shared by every target of the tree.
#
# -ffp-contract=off: several float paths (equalizer, resampler, tempo) must give
# the same bits at every processor level and in the scalar twin; letting the
# compiler fuse a*b+c into FMA would break that without a sound. For the same
# reason the tree never uses -ffast-math or -march=native: SSE2 is the baseline
# and higher levels live in files of their own (see ncb_apply_isa_flags).

add_library(ncb_flags INTERFACE)
target_compile_options(ncb_flags INTERFACE
    -Wall -Wextra -Wno-unused-parameter
    -ffp-contract=off
    $<$<BOOL:${NCB_WERROR}>:-Werror>)

if(NCB_SANITIZE)
    string(REPLACE ";" "," _ncb_san "${NCB_SANITIZE}")
    add_compile_options(-fsanitize=${_ncb_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${_ncb_san})
    # GCC's flow analysis sees through sanitizer instrumentation poorly and
    # reports maybe-uninitialized inside libstdc++ (std::regex, std::function).
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
endif()

# Kernel files carry their instruction-set level in their name, so no
# instruction of a higher level can leak into the common code:
#   *_ssse3.cpp -> -mssse3, *_sse41.cpp -> -msse4.1, *_avx2.cpp -> -mavx2,
#   *_pclmul.cpp -> -msse4.1 -mpclmul.
function(ncb_apply_isa_flags)
    foreach(src IN LISTS ARGN)
        if(src MATCHES "_ssse3\\.cpp$")
            set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-mssse3")
        elseif(src MATCHES "_sse41\\.cpp$")
            set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-msse4.1")
        elseif(src MATCHES "_avx2\\.cpp$")
            set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-mavx2;-mfma")
        elseif(src MATCHES "_pclmul\\.cpp$")
            set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-msse4.1;-mpclmul")
        endif()
    endforeach()
endfunction()

# The fuzz preset instruments the whole library for coverage; only the fuzz
# targets themselves link the libFuzzer driver.
if(NCB_BUILD_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
