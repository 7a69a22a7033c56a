# The test program stands in for clock_gettime and poll while a test arms them.
target_link_libraries(libsync_test PRIVATE ${CMAKE_DL_LIBS})
