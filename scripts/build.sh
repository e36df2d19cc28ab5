#!/usr/bin/env bash
# Configures and builds the project.
# Usage: scripts/build.sh [build-dir] [extra CMake arguments...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${1:-"$root/build"}
shift || true
cmake -S "$root" -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
cmake --build "$build_dir" --parallel "$(nproc)"
