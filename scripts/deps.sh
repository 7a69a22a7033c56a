#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those missing; silent when all are there.
# With --arm64, installs instead what the cross build for 64-bit Arm needs (the cross
# compiler, qemu-user and the arm64 builds of the libraries), adding the arm64 architecture.
# With --kernel, what the kernel stage needs to build an arm64 kernel and boot it in qemu;
# with --docs, what the API reference needs; with --package, what making and checking the
# Debian packages needs.
set -euo pipefail

sudo_cmd=()
[[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive

if [[ ${1:-} == --arm64 ]]; then
    packages=(
        g++-aarch64-linux-gnu qemu-user
        android-libutils-dev:arm64 android-liblog-dev:arm64 android-libcutils-dev:arm64
        android-libbase-dev:arm64 android-libbacktrace-dev:arm64
        libgtest-dev:arm64 libgmock-dev:arm64 libpng-dev:arm64
        libswscale-dev:arm64 libavutil-dev:arm64 libxml2-dev:arm64 nlohmann-json3-dev
        libcli11-dev zlib1g-dev:arm64
    )
    if ! dpkg --print-foreign-architectures | grep -qx arm64; then
        echo "Adding the arm64 architecture"
        "${sudo_cmd[@]}" dpkg --add-architecture arm64
    fi
elif [[ ${1:-} == --docs ]]; then
    packages=(doxygen graphviz python3)
elif [[ ${1:-} == --package ]]; then
    packages=(dpkg-dev lintian file xz-utils pkg-config)
elif [[ ${1:-} == --kernel ]]; then
    packages=(
        linux-source-6.1 make gcc libc6-dev flex bison bc cpio g++-aarch64-linux-gnu
        qemu-system-arm python3
    )
else
    packages=(
        cmake ninja-build g++ pkg-config
        android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
        android-libbacktrace-dev
        libgtest-dev libgmock-dev libbenchmark-dev
        libpng-dev libswscale-dev libavutil-dev libxml2-dev nlohmann-json3-dev libcli11-dev
        zlib1g-dev
        clang libclang-rt-dev
        mini-soong blueprint-tools dpkg-dev
        abigail-tools
    )
fi

# A package counts as installed when it is for the architecture asked for (after a colon, else
# this machine's) or for all; with arm64 added, dpkg lists both builds of a library.
native=$(dpkg --print-architecture)
missing=()
for p in "${packages[@]}"; do
    arch=$native
    [[ $p == *:* ]] && arch=${p#*:}
    dpkg-query -W -f='${Architecture} ${Status}\n' "$p" 2>/dev/null |
        grep -qE "^($arch|all) install ok installed$" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}"
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
