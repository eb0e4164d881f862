#!/usr/bin/env bash
# Installs what the project needs, builds it with AddressSanitizer, UndefinedBehaviorSanitizer
# and warnings as errors, and runs the whole test suite. CI runs exactly this.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
build_dir=${NESTORA_TEST_BUILD_DIR:-build-tests}
tools/build.sh "$build_dir" -DNESTORA_SANITIZE=ON -DNESTORA_WERROR=ON -DNESTORA_BUILD_TESTS=ON
cd "$build_dir"
ctest --output-on-failure --timeout 600 -j "$(nproc)"
