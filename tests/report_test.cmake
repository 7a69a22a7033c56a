# report_test runs zorcam-util (demo, then report) and reads what it wrote.
find_package(nlohmann_json REQUIRED)
find_package(PNG REQUIRED)
find_package(ZLIB REQUIRED)
add_dependencies(report_test zorcam-util)
target_compile_definitions(report_test PRIVATE ZORCAM_UTIL="$<TARGET_FILE:zorcam-util>")
target_link_libraries(report_test PRIVATE nlohmann_json::nlohmann_json PNG::PNG ZLIB::ZLIB)
