# Imported targets for the AOSP platform libraries that Debian packages. The libraries live
# under /usr/lib/<multiarch triplet>/android, the headers under /usr/include/android.
find_package(Threads REQUIRED)

set(ZORCAM_ANDROID_INCLUDE_DIR /usr/include/android)
if(CMAKE_LIBRARY_ARCHITECTURE)
    set(ZORCAM_ANDROID_LIB_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
else()
    message(FATAL_ERROR "No multiarch triplet known for this compiler; cannot find the Android libraries")
endif()

if(NOT EXISTS ${ZORCAM_ANDROID_INCLUDE_DIR}/utils/RefBase.h)
    message(FATAL_ERROR "AOSP headers not found under ${ZORCAM_ANDROID_INCLUDE_DIR}: "
                        "install android-libutils-dev and its kin (see README.md)")
endif()

foreach(lib utils cutils log base backtrace)
    find_library(ZORCAM_ANDROID_${lib}_LIBRARY NAMES ${lib}
                 PATHS ${ZORCAM_ANDROID_LIB_DIR} NO_DEFAULT_PATH)
    if(NOT ZORCAM_ANDROID_${lib}_LIBRARY)
        message(FATAL_ERROR "lib${lib}.so not found in ${ZORCAM_ANDROID_LIB_DIR}")
    endif()
    add_library(android::${lib} SHARED IMPORTED GLOBAL)
    set_target_properties(android::${lib} PROPERTIES
        IMPORTED_LOCATION ${ZORCAM_ANDROID_${lib}_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${ZORCAM_ANDROID_INCLUDE_DIR})
endforeach()

# The Debian libraries sit outside the loader's default path.
set(CMAKE_BUILD_RPATH ${ZORCAM_ANDROID_LIB_DIR} ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_INSTALL_RPATH ${ZORCAM_ANDROID_LIB_DIR})
