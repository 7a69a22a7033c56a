# Debian packages of the build, made by `cpack` in the build directory (scripts/package.sh):
#   libzorcam-stdutils1    the shared library                          (component runtime)
#   libzorcam-stdutils-dev headers, link name, CMake package, .pc file (component dev)
#   zorcam-util            the command-line tool                       (component tool)
#   zorcam-host-platform   the host stand-ins and their headers        (component host-platform)
# Dependencies on Debian's packages come from the binaries (dpkg-shlibdeps); the four depend on
# each other at exactly this version. scripts/package.sh adds what CPack cannot say (the ldconfig
# trigger, Multi-Arch). Configure with CMAKE_INSTALL_PREFIX=/usr, so that the
# libraries land in Debian's multiarch folder.
if(NOT ZORCAM_INSTALL_HOST_PLATFORM)
    return()  # a device build: its packages come from the platform tree
endif()

set(ZORCAM_DEB_RELEASE 1)
set(ZORCAM_DEB_VERSION ${PROJECT_VERSION}-${ZORCAM_DEB_RELEASE})

# The changelog's latest entry names the version the packages carry.
file(STRINGS ${CMAKE_SOURCE_DIR}/packaging/changelog ZORCAM_CHANGELOG_TOP LIMIT_COUNT 1)
if(NOT ZORCAM_CHANGELOG_TOP MATCHES "^zorcam-stdutils \\(${ZORCAM_DEB_VERSION}\\) ")
    message(FATAL_ERROR "packaging/changelog starts with '${ZORCAM_CHANGELOG_TOP}', "
                        "not an entry for ${ZORCAM_DEB_VERSION}")
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()

# Every package carries its copyright, its changelog (compressed as Debian does: gzip -9n, no
# time stamp) and the lintian override for its RUNPATH into Debian's AOSP library folder; the
# tool's carries its manual page. These are installed only for a package, not by a plain
# `cmake --install`.
set(ZORCAM_DEB_PACKAGES
    runtime libzorcam-stdutils1
    dev libzorcam-stdutils-dev
    tool zorcam-util
    host-platform zorcam-host-platform)
set(ZORCAM_DEB_DOC_DIR ${CMAKE_BINARY_DIR}/package/deb)
file(MAKE_DIRECTORY ${ZORCAM_DEB_DOC_DIR})
execute_process(COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/packaging/changelog
                OUTPUT_FILE ${ZORCAM_DEB_DOC_DIR}/changelog.Debian.gz
                RESULT_VARIABLE gzip_result)
if(NOT gzip_result EQUAL 0)
    message(FATAL_ERROR "gzip failed on packaging/changelog")
endif()
execute_process(COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/packaging/zorcam-util.1
                OUTPUT_FILE ${ZORCAM_DEB_DOC_DIR}/zorcam-util.1.gz)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${CMAKE_SOURCE_DIR}/packaging/changelog ${CMAKE_SOURCE_DIR}/packaging/zorcam-util.1)
install(FILES ${ZORCAM_DEB_DOC_DIR}/zorcam-util.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT tool EXCLUDE_FROM_ALL)
while(ZORCAM_DEB_PACKAGES)
    list(POP_FRONT ZORCAM_DEB_PACKAGES component package)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${upper}_FILE_NAME DEB-DEFAULT)
    install(FILES ${CMAKE_SOURCE_DIR}/packaging/copyright
                  ${ZORCAM_DEB_DOC_DIR}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
            COMPONENT ${component} EXCLUDE_FROM_ALL)
    if(NOT component STREQUAL dev)
        install(FILES ${CMAKE_SOURCE_DIR}/packaging/lintian-overrides
                DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package}
                COMPONENT ${component} EXCLUDE_FROM_ALL)
    endif()
endwhile()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zorcam-stdutils)
set(CPACK_PACKAGE_VENDOR "ZorCam")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZORCAM_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "ZorCam camera platform team <camera-platform@zorcam.dev>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool host-platform)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The stand-ins and the library are found in the build's own lib/ while the dependencies are
# worked out; the relations between the four packages are stated below instead.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "zorcam-host-platform (= ${ZORCAM_DEB_VERSION})")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"standard utilities of the ZorCam camera HAL - shared library
The library every component of the ZorCam camera stack loads: the image-format
registry, the log front end, debug overlays drawn into image buffers, display
frame pacing, sync-fence wrappers, buffer dumps, thread priority, timing and
profiling, and a process-wide property store.
.
This package holds the shared library, built for a Debian desk.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libzorcam-stdutils1 (= ${ZORCAM_DEB_VERSION}), zorcam-host-platform (= ${ZORCAM_DEB_VERSION}), android-libutils-dev, android-liblog-dev, android-libcutils-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION
"standard utilities of the ZorCam camera HAL - development files
The library every component of the ZorCam camera stack loads: the image-format
registry, the log front end, debug overlays, frame pacing, sync fences, buffer
dumps, timing and a property store.
.
This package holds the headers, the link name, the CMake package
(find_package(ZorcamStdUtils)) and the pkg-config file (zorcam-stdutils).")

set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libzorcam-stdutils1 (= ${ZORCAM_DEB_VERSION})")
set(CPACK_COMPONENT_TOOL_DESCRIPTION
"command-line tool of the ZorCam camera utilities
zorcam-util lists and queries the image formats of the ZorCam camera stack,
stamps and reads back frame numbers, turns raw buffer dumps into PNG pictures
and runs a synthetic camera preview through every part of the library, with a
report of what it measured.")

set(CPACK_DEBIAN_HOST-PLATFORM_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_HOST-PLATFORM_DESCRIPTION
"host stand-ins for the Android platform pieces of the ZorCam camera HAL
Small libraries with the names and interfaces of the Android platform pieces a
Linux desk lacks - system properties, the unified logger, libsync with software
timelines, HIDL memory and the camera-dump service, the exception-report and
backtrace services - so that camera code written for a device builds and runs
unchanged on Debian. Their headers are in /usr/include/zorcam-host-platform.")

include(CPack)
