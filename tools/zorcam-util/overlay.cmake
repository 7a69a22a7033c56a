# overlay: writes its frames as PNG files.
find_package(PNG REQUIRED)
target_link_libraries(zorcam-util PRIVATE PNG::PNG)
