#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and run the project with
# Qt 5 and with Qt 6. With the argument arm64 it installs instead what the
# arm64 cross build needs: the cross compiler, qemu-user and Qt 5's arm64
# development packages through Debian's multiarch.
# Only missing packages are installed; safe to run repeatedly.
set -euo pipefail

target=${1:-native}

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi

case "$target" in
native)
    packages=(
        build-essential cmake pkg-config
        qtbase5-dev qtbase5-dev-tools libqt5svg5-dev libqt5opengl5-dev
        qt6-base-dev qt6-base-dev-tools qt6-svg-dev libqt6opengl6-dev qt6-qpa-plugins
        libgl-dev libgl1-mesa-dri
        xvfb xauth fonts-dejavu-core
        libbenchmark-dev
        libzstd-dev
        qttools5-dev qt6-tools-dev doxygen
        clang libclang-rt-14-dev
    )
    ;;
arm64)
    packages=(
        crossbuild-essential-arm64 qemu-user
        qtbase5-dev:arm64 libqt5svg5-dev:arm64 libzstd-dev:arm64
    )
    if ! dpkg --print-foreign-architectures | grep -qx arm64; then
        echo "Adding the arm64 architecture to dpkg"
        "${sudo_cmd[@]}" dpkg --add-architecture arm64
    fi
    ;;
*)
    echo "usage: $0 [native|arm64]" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# A mirror that hiccups once should not fail the whole run.
retry() {
    for attempt in 1 2 3; do
        "$@" && return 0
        [ "$attempt" = 3 ] || { echo "retrying in 10 s: $*" >&2; sleep 10; }
    done
    return 1
}
retry "${sudo_cmd[@]}" apt-get update -q
retry "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
