#!/usr/bin/env bash
# Configures and builds the project into the given folder (default: build), with the given
# extra CMake arguments. Uses ccache when it is installed.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}
shift || true
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug "${launcher[@]}" "$@" >/dev/null
cmake --build "$build_dir" --parallel "$(nproc)"
