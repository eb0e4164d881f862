#!/usr/bin/env bash
# Fails when a C++ file differs from .clang-format, or when clang-tidy (checks in .clang-tidy)
# finds something in the engine or platform layers. Needs the compile commands of a configured
# build folder (default: build-tests); the test command runs it after building.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build-tests}
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
# gcc's options that clang does not know are left to gcc; everything else counts.
run-clang-tidy -p "$build_dir" -quiet -j "$(nproc)" -extra-arg=-Wno-unknown-warning-option \
  "$PWD/(App|Platform)/.*\.cpp$" >"$build_dir/clang-tidy.log" 2>&1 ||
  { sed 's/\x1b\[[0-9;]*m//g' "$build_dir/clang-tidy.log" | grep -v '^[0-9]* warnings\? generated'; exit 1; }
echo "clang-format and clang-tidy: no findings"
