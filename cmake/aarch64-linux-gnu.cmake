# Cross build for 64-bit Arm with Debian's cross compiler and the arm64 builds of the
# platform libraries (multiarch: dpkg --add-architecture arm64). Programs run under
# qemu-user, so ctest and test discovery work as on the host.
#
# ZORCAM_ARM64_ROOT names a directory laid out like / that holds arm64 files which cannot be
# installed beside the host's (Debian's libbacktrace needs /usr/lib/p7zip/7z.so, which is not
# multiarch): the linker and qemu look there first.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(ZORCAM_ARM64_ROOT "$ENV{ZORCAM_ARM64_ROOT}" CACHE PATH "Extra arm64 files, laid out like /")
if(ZORCAM_ARM64_ROOT)
    set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${ZORCAM_ARM64_ROOT})
    add_link_options(-Wl,-rpath-link,${ZORCAM_ARM64_ROOT}/usr/lib/p7zip)
else()
    set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
endif()

# pkg-config must read the arm64 libraries' .pc files, not the host's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
