# The command line (CLI11), the report's trace (nlohmann-json) and gzip captures (zlib).
find_package(CLI11 CONFIG REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(ZLIB REQUIRED)
target_link_libraries(zorcam-util PRIVATE CLI11::CLI11 nlohmann_json::nlohmann_json ZLIB::ZLIB)
