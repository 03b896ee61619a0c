# install() rules, the CMake package (find_package(NCodecBase)) and ncodecbase.pc.
include(CMakePackageConfigHelpers)

install(TARGETS ncodecbase EXPORT NCodecBaseTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/ncodecbase DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ncodec RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

set(NCB_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/NCodecBase)
install(EXPORT NCodecBaseTargets NAMESPACE NCodecBase:: DESTINATION ${NCB_CMAKE_DIR})
configure_package_config_file(cmake/NCodecBaseConfig.cmake.in
    ${PROJECT_BINARY_DIR}/NCodecBaseConfig.cmake INSTALL_DESTINATION ${NCB_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NCodecBaseConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NCodecBaseConfig.cmake
    ${PROJECT_BINARY_DIR}/NCodecBaseConfigVersion.cmake DESTINATION ${NCB_CMAKE_DIR})

# Relocatable: prefix is found from the .pc file's own folder, so the file is
# right whatever prefix `cmake --install --prefix` picks.
file(RELATIVE_PATH NCB_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" NCB_PC_TO_PREFIX "${NCB_PC_TO_PREFIX}")
configure_file(cmake/ncodecbase.pc.in ${PROJECT_BINARY_DIR}/ncodecbase.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ncodecbase.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
