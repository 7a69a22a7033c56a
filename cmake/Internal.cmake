# The library's internal objects (zorcam_stdutils_internal) for programs that test or measure
# its internals. Included after platform/, whose stand-ins attach themselves to the shared
# library: the objects take the same libraries, so they link as the shared library does.
get_target_property(ZORCAM_STDUTILS_DEPS zorcam_stdutils INTERFACE_LINK_LIBRARIES)
target_link_libraries(zorcam_stdutils_internal PUBLIC ${ZORCAM_STDUTILS_DEPS}
                                               PRIVATE Threads::Threads)
target_include_directories(zorcam_stdutils_internal PUBLIC ${CMAKE_SOURCE_DIR}/include)

# Programs that call functions the shared library does not export (the log front end's
# helpers, the scan line's painting). Inline code of a private header needs no entry.
set(ZORCAM_INTERNAL_PROGRAMS log_test log_bench overlay_bench debugscanline_fuzz
    debugscanline_replay)

# Links target to the library: the programs above to its internal objects, every other one to
# the shared library. Never both: two copies would mean two registries and property stores.
function(zorcam_link_stdutils target)
    if(target IN_LIST ZORCAM_INTERNAL_PROGRAMS)
        target_link_libraries(${target} PRIVATE zorcam_stdutils_internal)
    else()
        target_link_libraries(${target} PRIVATE zorcam_stdutils)
    endif()
endfunction()
