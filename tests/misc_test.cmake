# The call-stack test asks libbacktrace itself whether its own unwind works here.
target_link_libraries(misc_test PRIVATE android::backtrace)
