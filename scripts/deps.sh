#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those missing; silent when all are there.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config
    android-libutils-dev android-liblog-dev android-libcutils-dev android-libbase-dev
    android-libbacktrace-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libpng-dev
    clang libclang-rt-dev
)

missing=()
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[[ $(id -u) -eq 0 ]] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
