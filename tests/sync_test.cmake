# The test program takes the place of sync_wait and finds the real one with dlsym.
target_link_libraries(sync_test PRIVATE ${CMAKE_DL_LIBS})
