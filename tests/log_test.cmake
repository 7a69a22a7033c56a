# A program that loads the library afresh and reports the camera log level it read at load.
add_executable(loglevel_probe ${CMAKE_CURRENT_SOURCE_DIR}/loglevel_probe.cpp)
target_link_libraries(loglevel_probe PRIVATE zorcam_stdutils)
zorcam_warnings(loglevel_probe)
add_dependencies(log_test loglevel_probe)
target_compile_definitions(log_test PRIVATE LOGLEVEL_PROBE="$<TARGET_FILE:loglevel_probe>")
