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
# With Ninja, AUTOMOC misses Q_OBJECT headers added after its last run (the globs pick the file up,
# the moc step does not rerun); dropping its stamps makes it look again. Its own cache keeps it quick.
find "$build_dir" -path '*_autogen/timestamp' -delete
cmake --build "$build_dir" --parallel "$(nproc)"
