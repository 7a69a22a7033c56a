# Runs on the virtual clock: systemTime() and usleep() of this program replace the real ones.
target_sources(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/clock/VirtualClock.cpp)
target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/clock)
