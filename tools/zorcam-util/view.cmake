# view (and the demo's report): YUV to RGB through libswscale.
find_package(PkgConfig REQUIRED)
pkg_check_modules(SWSCALE REQUIRED IMPORTED_TARGET libswscale libavutil)
target_link_libraries(zorcam-util PRIVATE PkgConfig::SWSCALE)
