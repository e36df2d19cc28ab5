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
        libavformat-dev libavcodec-dev libavutil-dev libswscale-dev ffmpeg
        libprotobuf-dev protobuf-compiler
        libopencv-dev python3-distributed
        python3-dev python3-numpy python3-pytest sip-tools python3-pyqtbuild
        pyqt5-dev python3-pyqt5 pyqt6-dev python3-pyqt6 qt5-qmake qmake6 python3-venv python3-pip
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

# A fresh machine's automatic updates can hold dpkg's locks for many minutes:
# apt waits for them (up to 30 minutes) instead of failing at once.
apt_options=(-o DPkg::Lock::Timeout=1800)

# Waits while another package manager runs (found by its process name, so that
# nothing beyond the shell is needed), saying so once a minute.
apt_running() {
    local comm
    for comm in /proc/[0-9]*/comm; do
        case "$(cat "$comm" 2>/dev/null)" in
        apt | apt-get | aptitude | dpkg | unattended-upgr | packagekitd) return 0 ;;
        esac
    done
    return 1
}
wait_for_apt() {
    local waited=0
    while apt_running; do
        if [ $((waited % 60)) = 0 ]; then
            echo "waiting for another package manager to finish (${waited} s so far)" >&2
        fi
        sleep 5
        waited=$((waited + 5))
        if [ "$waited" -ge 1800 ]; then
            echo "another package manager has run for 30 minutes; giving up" >&2
            return 1
        fi
    done
}

# A mirror that hiccups once should not fail the whole run.
retry() {
    for attempt in 1 2 3; do
        wait_for_apt || return 1
        "$@" && return 0
        [ "$attempt" = 3 ] || { echo "retrying in 10 s: $*" >&2; sleep 10; }
    done
    return 1
}
retry "${sudo_cmd[@]}" apt-get "${apt_options[@]}" update -q
retry "${sudo_cmd[@]}" apt-get "${apt_options[@]}" install -y -q --no-install-recommends "${missing[@]}"
