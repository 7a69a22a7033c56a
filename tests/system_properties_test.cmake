# Prints "key=[value]" for each key named on the command line, in a fresh process.
add_executable(system_properties_probe ${CMAKE_CURRENT_SOURCE_DIR}/system_properties_probe.cpp)
target_link_libraries(system_properties_probe PRIVATE zorcam_properties)
zorcam_warnings(system_properties_probe)
add_dependencies(system_properties_test system_properties_probe)
target_compile_definitions(system_properties_test PRIVATE SYSTEM_PROPERTIES_PROBE="$<TARGET_FILE:system_properties_probe>")
