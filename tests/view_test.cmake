# view_test runs zorcam-util view and decodes the PNG files it writes.
find_package(PNG REQUIRED)
add_dependencies(view_test zorcam-util)
target_compile_definitions(view_test PRIVATE ZORCAM_UTIL="$<TARGET_FILE:zorcam-util>")
target_link_libraries(view_test PRIVATE PNG::PNG)
