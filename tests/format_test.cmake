# The test replaces the global operator new to count allocations; GCC then warns about the
# free() in the matching operator delete wherever both are inlined.
target_compile_options(format_test PRIVATE -Wno-mismatched-new-delete)
