# The library itself. Each subsystem folder contributes every .cpp it holds;
# a new file needs no edit here. Kernel files get their ISA flags by suffix.

set(NCB_SUBSYSTEMS base stream image video audio render codec archive platform)
set(NCB_SOURCES "")
foreach(dir IN LISTS NCB_SUBSYSTEMS)
    file(GLOB_RECURSE _srcs CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.cpp)
    list(APPEND NCB_SOURCES ${_srcs})
endforeach()
ncb_apply_isa_flags(${NCB_SOURCES})

find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)

add_library(ncodecbase_objects OBJECT ${NCB_SOURCES})
target_include_directories(ncodecbase_objects
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(ncodecbase_objects PRIVATE NCB_BUILDING_LIBRARY
    NCB_VERSION_STRING="${PROJECT_VERSION}")
set_target_properties(ncodecbase_objects PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(ncodecbase_objects PRIVATE ncb_flags)
# Resources compiled into the library (the layered render's shader records).
include(${CMAKE_CURRENT_LIST_DIR}/ShaderResource.cmake)
ncb_embed_shader_resource(ncodecbase_objects)
set(NCB_LINK_LIBS Threads::Threads ZLIB::ZLIB ${CMAKE_DL_LIBS})
# libarchive serves the RAR reader's library interface. Without it the RAR
# reader is built with no backend and its Open fails cleanly.
option(NCB_WITH_LIBARCHIVE "Give the RAR reader its libarchive backend when found" ON)
set(NCB_HAVE_LIBARCHIVE 0)
set(NCB_PC_LIBARCHIVE "")
if(NCB_WITH_LIBARCHIVE)
    find_package(LibArchive QUIET)
endif()
if(LibArchive_FOUND)
    set(NCB_HAVE_LIBARCHIVE 1)
    set(NCB_PC_LIBARCHIVE "-larchive")
    list(APPEND NCB_LINK_LIBS LibArchive::LibArchive)
    target_compile_definitions(ncodecbase_objects PRIVATE NCB_HAVE_LIBARCHIVE=1)
else()
    message(STATUS "libarchive not found: the RAR reader is built without a backend")
endif()
# ALSA gives the sound layer its real backend. Without it the headless
# virtual device serves.
option(NCB_WITH_ALSA "Give the sound layer its ALSA backend when found" ON)
set(NCB_HAVE_ALSA 0)
set(NCB_PC_ALSA "")
if(NCB_WITH_ALSA)
    find_package(ALSA QUIET)
endif()
if(ALSA_FOUND)
    set(NCB_HAVE_ALSA 1)
    set(NCB_PC_ALSA "-lasound")
    list(APPEND NCB_LINK_LIBS ALSA::ALSA)
    target_compile_definitions(ncodecbase_objects PRIVATE NCB_HAVE_ALSA=1)
else()
    message(STATUS "ALSA not found: sound plays on the virtual device only")
endif()
# X11 with XShm and XRandR gives the window layer its real windows. Without
# it only memory windows exist.
option(NCB_WITH_X11 "Give the window layer its X11 backend when found" ON)
set(NCB_HAVE_X11 0)
set(NCB_PC_X11 "")
if(NCB_WITH_X11)
    find_package(X11 QUIET)
endif()
if(X11_FOUND AND X11_Xext_FOUND AND X11_Xrandr_FOUND)
    set(NCB_HAVE_X11 1)
    set(NCB_PC_X11 "-lXrandr -lXext -lX11")
    list(APPEND NCB_LINK_LIBS X11::X11 X11::Xext X11::Xrandr)
    target_compile_definitions(ncodecbase_objects PRIVATE NCB_HAVE_X11=1)
else()
    message(STATUS "X11 with Xext and Xrandr not found: memory windows only")
endif()
# FreeType with fontconfig rasterises GDI-style text. Without them the
# box-glyph rasterizer draws every font.
option(NCB_WITH_FREETYPE "Rasterise text with FreeType and fontconfig when found" ON)
set(NCB_HAVE_FREETYPE 0)
set(NCB_PC_FREETYPE "")
if(NCB_WITH_FREETYPE)
    find_package(Freetype QUIET)
    find_package(Fontconfig QUIET)
endif()
if(FREETYPE_FOUND AND Fontconfig_FOUND)
    set(NCB_HAVE_FREETYPE 1)
    set(NCB_PC_FREETYPE "-lfontconfig -lfreetype")
    list(APPEND NCB_LINK_LIBS Freetype::Freetype Fontconfig::Fontconfig)
    target_compile_definitions(ncodecbase_objects PRIVATE NCB_HAVE_FREETYPE=1)
else()
    message(STATUS "FreeType or fontconfig not found: text uses box glyphs only")
endif()
target_link_libraries(ncodecbase_objects PUBLIC ${NCB_LINK_LIBS})

# The product: hidden visibility, only NCB_API symbols are exported.
add_library(ncodecbase SHARED $<TARGET_OBJECTS:ncodecbase_objects>)
target_include_directories(ncodecbase PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(ncodecbase PRIVATE ${NCB_LINK_LIBS})
set_target_properties(ncodecbase PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    EXPORT_NAME NCodecBase)
target_link_options(ncodecbase PRIVATE
    "LINKER:--version-script=${CMAKE_CURRENT_LIST_DIR}/ncodecbase.map")
set_property(TARGET ncodecbase APPEND PROPERTY LINK_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/ncodecbase.map)
add_library(NCodecBase::NCodecBase ALIAS ncodecbase)

# In-tree consumers (tests, tools, benchmarks) link the same objects
# statically so they can reach internal helpers.
add_library(ncodecbase_static STATIC $<TARGET_OBJECTS:ncodecbase_objects>)
target_include_directories(ncodecbase_static PUBLIC
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
target_link_libraries(ncodecbase_static PUBLIC ${NCB_LINK_LIBS})
