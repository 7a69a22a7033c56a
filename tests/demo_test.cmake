# demo_test runs zorcam-util itself and reads back what it wrote with real decoders and parsers.
find_package(LibXml2 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(PNG REQUIRED)
add_dependencies(demo_test zorcam-util)
target_sources(demo_test PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util/StampReader.cpp)
target_include_directories(demo_test PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util)
target_compile_definitions(demo_test PRIVATE ZORCAM_UTIL="$<TARGET_FILE:zorcam-util>")
target_link_libraries(demo_test PRIVATE LibXml2::LibXml2 nlohmann_json::nlohmann_json PNG::PNG)
