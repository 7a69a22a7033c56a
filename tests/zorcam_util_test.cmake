# The tool's shared pieces, compiled into the test from tools/zorcam-util.
find_package(PNG REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(SWSCALE REQUIRED IMPORTED_TARGET libswscale libavutil)
foreach(piece Args Image RawImage StampReader Svg)
    target_sources(zorcam_util_test PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util/${piece}.cpp)
endforeach()
target_include_directories(zorcam_util_test PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util)
target_link_libraries(zorcam_util_test PRIVATE PNG::PNG PkgConfig::SWSCALE)
# The command-line test runs zorcam-util itself.
add_dependencies(zorcam_util_test zorcam-util)
target_compile_definitions(zorcam_util_test PRIVATE ZORCAM_UTIL="$<TARGET_FILE:zorcam-util>")
