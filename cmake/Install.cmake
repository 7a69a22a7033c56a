# Installation: the library with its soname links (component runtime), the public headers,
# the link name, the CMake package ZorcamStdUtils and zorcam-stdutils.pc (component dev), the
# host stand-ins (component host-platform) and zorcam-util (component tool). The components
# are the Debian packages of cmake/Package.cmake.
# Installed programs and libraries find each other through $ORIGIN and Debian's AOSP libraries
# through their RUNPATH.
include(GNUInstallDirs)
# Folders made by an install are 0755 whatever the umask, as a Debian package needs them.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CMakePackageConfigHelpers)

# A host build has no platform libraries of its own, so the stand-ins go with the library
# unless asked otherwise; `cmake --install --component host-platform` installs them alone.
if(CMAKE_SYSTEM_NAME STREQUAL Android)
    set(ZORCAM_HOST_PLATFORM_DEFAULT OFF)
else()
    set(ZORCAM_HOST_PLATFORM_DEFAULT ON)
endif()
option(ZORCAM_INSTALL_HOST_PLATFORM "Install the host stand-ins with the library"
       ${ZORCAM_HOST_PLATFORM_DEFAULT})

set(ZORCAM_HOST_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/zorcam-host-platform)
set(ZORCAM_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZorcamStdUtils)

# The version header, generated beside the other public headers of the build.
set(ZORCAM_GENERATED_INCLUDE ${CMAKE_BINARY_DIR}/generated/include)
configure_file(${CMAKE_SOURCE_DIR}/cmake/Version.h.in
               ${ZORCAM_GENERATED_INCLUDE}/zorcam/utils/std/Version.h @ONLY)
target_include_directories(zorcam_stdutils PUBLIC $<BUILD_INTERFACE:${ZORCAM_GENERATED_INCLUDE}>)

# Targets name their include folders by source path, which means something only in this tree:
# keep those for the build and point installed users at the installed copies instead.
function(zorcam_relocate_includes target)
    foreach(prop INTERFACE_INCLUDE_DIRECTORIES INTERFACE_SYSTEM_INCLUDE_DIRECTORIES)
        get_target_property(dirs ${target} ${prop})
        if(NOT dirs)
            continue()
        endif()
        set(wrapped)
        foreach(dir IN LISTS dirs)
            if(dir MATCHES "^\\$<")
                list(APPEND wrapped "${dir}")
            else()
                list(APPEND wrapped "$<BUILD_INTERFACE:${dir}>")
            endif()
        endforeach()
        set_target_properties(${target} PROPERTIES ${prop} "${wrapped}")
    endforeach()
    target_include_directories(${target} INTERFACE
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> ${ARGN})
endfunction()

# The Debian AOSP libraries an exported target links, by their short names (utils, log, ...).
set(ZORCAM_ANDROID_DEPS)
function(zorcam_collect_android_deps target)
    get_target_property(libs ${target} LINK_LIBRARIES)
    foreach(lib IN LISTS libs)
        if(lib MATCHES "^android::(.+)$")
            list(APPEND ZORCAM_ANDROID_DEPS ${CMAKE_MATCH_1})
        endif()
    endforeach()
    list(REMOVE_DUPLICATES ZORCAM_ANDROID_DEPS)
    set(ZORCAM_ANDROID_DEPS ${ZORCAM_ANDROID_DEPS} PARENT_SCOPE)
endfunction()

set(ZORCAM_LIB_RPATH "$ORIGIN;${ZORCAM_ANDROID_LIB_DIR}")
file(RELATIVE_PATH ZORCAM_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

# The library: its export name gives ZorcamStdUtils::stdutils.
zorcam_relocate_includes(zorcam_stdutils)
zorcam_collect_android_deps(zorcam_stdutils)
set(ZORCAM_PC_ANDROID_LIBS ${ZORCAM_ANDROID_DEPS})
set_target_properties(zorcam_stdutils PROPERTIES EXPORT_NAME stdutils
                      INSTALL_RPATH "${ZORCAM_LIB_RPATH}")
install(TARGETS zorcam_stdutils EXPORT ZorcamStdUtilsTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/ ${ZORCAM_GENERATED_INCLUDE}/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")

# The host stand-ins: every shared library built under platform/, exported as
# ZorcamStdUtils::<name without the zorcam_ prefix>, with the headers of platform/<piece>/include
# under their real names in one folder of their own.
if(ZORCAM_INSTALL_HOST_PLATFORM)
    set(ZORCAM_HOST_EXCLUDE)
else()
    set(ZORCAM_HOST_EXCLUDE EXCLUDE_FROM_ALL)
endif()
set(ZORCAM_STANDINS)
foreach(cml ${ZORCAM_PLATFORM_DIRS})
    get_filename_component(dir ${cml} DIRECTORY)
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(NOT type STREQUAL SHARED_LIBRARY)
            continue()
        endif()
        list(APPEND ZORCAM_STANDINS ${target})
        string(REGEX REPLACE "^zorcam_" "" export_name ${target})
        zorcam_relocate_includes(${target} $<INSTALL_INTERFACE:${ZORCAM_HOST_INCLUDEDIR}>)
        zorcam_collect_android_deps(${target})
        set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name}
                              INSTALL_RPATH "${ZORCAM_LIB_RPATH}")
        install(TARGETS ${target} EXPORT ZorcamStdUtilsTargets
                LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                COMPONENT host-platform ${ZORCAM_HOST_EXCLUDE})
    endforeach()
    if(EXISTS ${dir}/include)
        install(DIRECTORY ${dir}/include/ DESTINATION ${ZORCAM_HOST_INCLUDEDIR}
                COMPONENT host-platform ${ZORCAM_HOST_EXCLUDE})
    endif()
endforeach()

set_target_properties(zorcam-util PROPERTIES
    INSTALL_RPATH "$ORIGIN/${ZORCAM_BIN_TO_LIB};${ZORCAM_ANDROID_LIB_DIR}")
install(TARGETS zorcam-util RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)

# The CMake package.
set(ZORCAM_STANDIN_EXPORTS)
foreach(target IN LISTS ZORCAM_STANDINS)
    get_target_property(name ${target} EXPORT_NAME)
    list(APPEND ZORCAM_STANDIN_EXPORTS ${name})
endforeach()
string(JOIN ", " ZORCAM_STANDIN_EXPORTS ${ZORCAM_STANDIN_EXPORTS})
string(JOIN " " ZORCAM_ANDROID_DEPS ${ZORCAM_ANDROID_DEPS})
install(EXPORT ZorcamStdUtilsTargets NAMESPACE ZorcamStdUtils:: DESTINATION ${ZORCAM_CMAKEDIR}
        COMPONENT dev)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/ZorcamStdUtilsConfig.cmake.in
    ${CMAKE_BINARY_DIR}/package/ZorcamStdUtilsConfig.cmake INSTALL_DESTINATION ${ZORCAM_CMAKEDIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/ZorcamStdUtilsConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/ZorcamStdUtilsConfig.cmake
              ${CMAKE_BINARY_DIR}/package/ZorcamStdUtilsConfigVersion.cmake
        DESTINATION ${ZORCAM_CMAKEDIR} COMPONENT dev)

# pkg-config: paths relative to the .pc file, so the install prefix can be chosen at install
# time; on a host install the stand-ins' headers and libraries come along.
file(RELATIVE_PATH ZORCAM_PC_PREFIX_FROM_PCDIR ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ZORCAM_PC_PREFIX_FROM_PCDIR ${ZORCAM_PC_PREFIX_FROM_PCDIR})
set(ZORCAM_PC_HOST_CFLAGS)
set(ZORCAM_PC_HOST_LIBS)
if(ZORCAM_INSTALL_HOST_PLATFORM)
    set(ZORCAM_PC_HOST_CFLAGS " -I\${prefix}/${ZORCAM_HOST_INCLUDEDIR}")
    foreach(target IN LISTS ZORCAM_STANDINS)
        string(APPEND ZORCAM_PC_HOST_LIBS " -l$<TARGET_FILE_BASE_NAME:${target}>")
    endforeach()
endif()
list(TRANSFORM ZORCAM_PC_ANDROID_LIBS PREPEND -l)
string(JOIN " " ZORCAM_PC_ANDROID_LIBS ${ZORCAM_PC_ANDROID_LIBS})
configure_file(${CMAKE_SOURCE_DIR}/cmake/zorcam-stdutils.pc.in
               ${CMAKE_BINARY_DIR}/package/zorcam-stdutils.pc.in @ONLY)
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/package/zorcam-stdutils.pc
     INPUT ${CMAKE_BINARY_DIR}/package/zorcam-stdutils.pc.in)
install(FILES ${CMAKE_BINARY_DIR}/package/zorcam-stdutils.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
