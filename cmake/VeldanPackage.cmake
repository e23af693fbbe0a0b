# Debian packages, by CPack: cmake --build --preset package. A component of the install rules is a package; those that were
# not built are left out.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veldan)
set(CPACK_PACKAGE_VENDOR "Veldan")
set(VELDAN_MAINTAINER "Veldan developers <veldan@packages.invalid>" CACHE STRING "Who answers for the packages")
set(CPACK_PACKAGE_CONTACT "${VELDAN_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# What our packages link of each other is found in the build, with the dependencies written below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(this_version "= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")
# Of what is said of a package the first line is the summary, and none is longer than 80.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(about "Finds the faces in a picture, also those that wear a mask, follows them
through videos, judges them (quality, masks, liveness), tells whose they are
and searches galleries of people. The networks are inside; a plain processor
is enough.")

# veldan_package(component package section summary more) describes the package that a component becomes.
set(veldan_packaged "")
function(veldan_package component package section summary more)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${about}\n\n${more}" PARENT_SCOPE)
    list(APPEND veldan_packaged ${component})
    set(veldan_packaged ${veldan_packaged} PARENT_SCOPE)
    # Every package has these of its own.
    set(doc ${CMAKE_INSTALL_DATADIR}/doc/${package})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${veldan_changelogs} DESTINATION ${doc} COMPONENT ${component})
    set(overrides ${PROJECT_BINARY_DIR}/packaging/${package}.lintian-overrides)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/lintian-overrides.in ${overrides} @ONLY)
    if(component STREQUAL runtime)
        file(READ ${PROJECT_SOURCE_DIR}/packaging/libveldan0.lintian-overrides more)
        file(APPEND ${overrides} "${more}")
    endif()
    install(FILES ${overrides} RENAME ${package} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        COMPONENT ${component})
endfunction()

# Compressed without the time of day, as everything here that is compressed.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH where that is set
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog.Debian @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_BINARY_DIR}/packaging/changelog COPYONLY)
execute_process(COMMAND gzip -9nf changelog.Debian changelog WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/packaging
    COMMAND_ERROR_IS_FATAL ANY)
set(veldan_changelogs ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz ${PROJECT_BINARY_DIR}/packaging/changelog.gz)

veldan_package(runtime libveldan0 libs "Face detection and recognition, shared library"
    "This package contains the shared library.")
# Which symbol came with which version: whoever links the library depends on no more than it uses. A symbol that is gone
# stops the build here.
set(symbols ${PROJECT_BINARY_DIR}/packaging/symbols)
add_custom_command(OUTPUT ${symbols}
    COMMAND dpkg-gensymbols -q -c1 -plibveldan0 -v${PROJECT_VERSION} -e$<TARGET_FILE:veldan>
        -I${PROJECT_SOURCE_DIR}/packaging/libveldan0.symbols -O${symbols}
    DEPENDS veldan ${PROJECT_SOURCE_DIR}/packaging/libveldan0.symbols VERBATIM)
add_custom_target(veldan_symbols ALL DEPENDS ${symbols})
file(WRITE ${PROJECT_BINARY_DIR}/packaging/shlibs "libveldan 0 libveldan0 (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${symbols} ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_BINARY_DIR}/packaging/triggers)

veldan_package(development libveldan-dev libdevel "Face detection and recognition, headers"
    "This package contains what C and C++ programs are compiled with: headers,
CMake package, pkg-config file.")
# The headers of the engine classes include those of OpenCV, and pkg-config asks for them.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libveldan0 (${this_version}), libopencv-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)

if(TARGET veldan_command)
    veldan_package(command veldan graphics "Face detection and recognition, command"
        "This package contains the command, its manual pages and the completions of
bash, zsh and fish.")
    set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "libveldan0 (${this_version})")
    # systemd units of the service, where it is built.
    file(GLOB units ${PROJECT_SOURCE_DIR}/service/*.service)
    if(TARGET veldan_service AND units)
        install(FILES ${units} DESTINATION lib/systemd/system COMPONENT command)
    endif()
    install(CODE "file(GLOB pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/*.1\")
        execute_process(COMMAND gzip -9nf \${pages} COMMAND_ERROR_IS_FATAL ANY)" COMPONENT command)
endif()

if(TARGET veldan_python)
    veldan_package(python python3-veldan python "Face detection and recognition, Python module"
        "This package contains the Python package veldan.")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
        "libveldan0 (${this_version}), python3 (>= 3.11~), python3 (<< 3.12), python3-numpy") # Debian 12's
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
        ${PROJECT_SOURCE_DIR}/packaging/python3-veldan/postinst ${PROJECT_SOURCE_DIR}/packaging/python3-veldan/prerm)
endif()

if(TARGET veldan_postgresql)
    veldan_package(postgresql postgresql-15-veldan database "Face templates in PostgreSQL"
        "This package contains the extension veldan for PostgreSQL 15.")
    set(CPACK_DEBIAN_POSTGRESQL_PACKAGE_DEPENDS "postgresql-15")
endif()

set(CPACK_COMPONENTS_ALL ${veldan_packaged})
include(CPack)
