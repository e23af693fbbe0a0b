# Installs the library with its headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

set(veldan_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/veldan)

install(TARGETS veldan EXPORT veldan-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/veldan DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development)
if(NOT VELDAN_PACKAGE) # packages have a copyright file instead
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
endif()

install(EXPORT veldan-targets NAMESPACE veldan:: DESTINATION ${veldan_package_dir} COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/veldan-config.cmake.in
    ${PROJECT_BINARY_DIR}/veldan-config.cmake
    INSTALL_DESTINATION ${veldan_package_dir})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/veldan-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/veldan-config.cmake ${PROJECT_BINARY_DIR}/veldan-config-version.cmake
    DESTINATION ${veldan_package_dir} COMPONENT development)

# The paths are relative to the file itself, so that a tree may be installed elsewhere than where it was configured for.
file(RELATIVE_PATH veldan_pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/veldan.pc.in ${PROJECT_BINARY_DIR}/veldan.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/veldan.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
