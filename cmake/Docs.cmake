# The API reference: `cmake --build <dir> --target docs` runs Doxygen over include/ into
# <dir>/docs/html (and <dir>/docs/xml, which the docs check counts). Doxygen fails on the first
# undocumented or wrongly documented exported name. Graphviz draws the class and include
# graphs when it is installed.
find_package(Doxygen QUIET OPTIONAL_COMPONENTS dot)
if(NOT DOXYGEN_FOUND)
    return()
endif()
set(ZORCAM_DOCS_DIR ${CMAKE_BINARY_DIR}/docs)
if(TARGET Doxygen::dot)
    set(ZORCAM_DOCS_HAVE_DOT YES)
    get_filename_component(ZORCAM_DOCS_DOT_PATH "${DOXYGEN_DOT_EXECUTABLE}" DIRECTORY)
else()
    set(ZORCAM_DOCS_HAVE_DOT NO)
    set(ZORCAM_DOCS_DOT_PATH "")
endif()
configure_file(${CMAKE_SOURCE_DIR}/docs/Doxyfile.in ${ZORCAM_DOCS_DIR}/Doxyfile @ONLY)
file(GLOB_RECURSE ZORCAM_PUBLIC_HEADERS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/include/*.h)
add_custom_command(
    OUTPUT ${ZORCAM_DOCS_DIR}/html/index.html
    # Pages of names since removed must not linger.
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${ZORCAM_DOCS_DIR}/html ${ZORCAM_DOCS_DIR}/xml
    COMMAND Doxygen::doxygen ${ZORCAM_DOCS_DIR}/Doxyfile
    DEPENDS ${ZORCAM_DOCS_DIR}/Doxyfile ${CMAKE_SOURCE_DIR}/docs/overview.md
            ${ZORCAM_PUBLIC_HEADERS}
    WORKING_DIRECTORY ${ZORCAM_DOCS_DIR}
    COMMENT "API reference in ${ZORCAM_DOCS_DIR}/html"
    VERBATIM)
add_custom_target(docs DEPENDS ${ZORCAM_DOCS_DIR}/html/index.html)
