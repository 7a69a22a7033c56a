# Each fuzz target's corpus replayed through the target's checks (tests/fuzz_replay.cpp), as the
# ctest test FuzzCorpus.<target>: built with the normal compiler, so the fuzzers' oracles guard
# every build (sanitizers, arm64, the kernel stage) and the mutation check counts them.
# FuzzedDataProvider.h, a header of its own, is copied from clang's resource directory.
file(GLOB ZORCAM_FDP_DIRS /usr/lib/llvm-*/lib/clang/*/include/fuzzer)
if(NOT ZORCAM_FDP_DIRS)
    message(STATUS "No FuzzedDataProvider.h (clang): the fuzz corpora are not replayed")
    return()
endif()
list(GET ZORCAM_FDP_DIRS 0 ZORCAM_FDP_DIR)
# Only the header: clang's other headers are not for another compiler.
set(ZORCAM_FDP_INCLUDE ${CMAKE_CURRENT_BINARY_DIR}/fdp)
configure_file(${ZORCAM_FDP_DIR}/FuzzedDataProvider.h
               ${ZORCAM_FDP_INCLUDE}/fuzzer/FuzzedDataProvider.h COPYONLY)
file(GLOB ZORCAM_FUZZ_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/fuzz/*_fuzz.cpp)
foreach(src ${ZORCAM_FUZZ_SOURCES})
    get_filename_component(name ${src} NAME_WE)
    string(REGEX REPLACE "_fuzz$" "" target ${name})
    set(exe ${target}_replay)
    add_executable(${exe} ${src} ${CMAKE_CURRENT_SOURCE_DIR}/fuzz_replay.cpp
                          ${CMAKE_SOURCE_DIR}/fuzz/support/FuzzLog.cpp)
    target_include_directories(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/utils/std
                                              ${CMAKE_SOURCE_DIR}/fuzz/support)
    target_include_directories(${exe} SYSTEM PRIVATE ${ZORCAM_FDP_INCLUDE})
    target_link_libraries(${exe} PRIVATE android::log Threads::Threads)
    if(target STREQUAL "property")
        target_sources(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/platform/properties/properties.cpp)
        target_include_directories(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/platform/properties
                                                  ${CMAKE_SOURCE_DIR}/platform/properties/include)
        target_link_libraries(${exe} PRIVATE android::cutils)
    elseif(target STREQUAL "logline")
        find_package(ZLIB REQUIRED)
        target_sources(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util/LogLine.cpp
                                      ${CMAKE_SOURCE_DIR}/tools/zorcam-util/LogReader.cpp)
        target_include_directories(${exe} PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util)
        target_link_libraries(${exe} PRIVATE ZLIB::ZLIB android::utils)
    else()
        zorcam_link_stdutils(${exe})
    endif()
    zorcam_warnings(${exe})
    # libFuzzer declares the entry points itself.
    target_compile_options(${exe} PRIVATE -Wno-missing-declarations)
    add_test(NAME FuzzCorpus.${target} COMMAND ${exe} ${CMAKE_SOURCE_DIR}/fuzz/corpus/${target})
    set_tests_properties(FuzzCorpus.${target} PROPERTIES LABELS corpus ENVIRONMENT "ZORCAM_PROPERTIES=")
endforeach()
