# The log reader of zorcam-util report, built from the tool's sources.
find_package(ZLIB REQUIRED)
target_sources(report_bench PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util/LogLine.cpp
                                    ${CMAKE_SOURCE_DIR}/tools/zorcam-util/LogReader.cpp)
target_include_directories(report_bench PRIVATE ${CMAKE_SOURCE_DIR}/tools/zorcam-util)
target_link_libraries(report_bench PRIVATE ZLIB::ZLIB)
