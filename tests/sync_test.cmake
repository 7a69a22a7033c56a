# The test program takes the place of sync_wait/sync_merge and finds the real ones with dlsym.
target_link_libraries(sync_test PRIVATE ${CMAKE_DL_LIBS})
