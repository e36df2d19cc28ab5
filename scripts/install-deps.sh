#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and run the project.
# Only missing packages are installed; safe to run repeatedly.
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    qtbase5-dev qtbase5-dev-tools libqt5svg5-dev libqt5opengl5-dev
    libgl-dev libgl1-mesa-dri
    xvfb xauth fonts-dejavu-core
    libbenchmark-dev
    libzstd-dev
    qttools5-dev doxygen
    clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
