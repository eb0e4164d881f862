#!/usr/bin/env bash
# Installs what the project needs, builds it with AddressSanitizer, UndefinedBehaviorSanitizer,
# warnings as errors and coverage instrumentation, checks formatting and runs clang-tidy, runs the
# whole test suite and prints the line coverage of the engine and platform layers. CI runs exactly
# this.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
build_dir=${NESTORA_TEST_BUILD_DIR:-build-tests}
tools/build.sh "$build_dir" -DNESTORA_SANITIZE=ON -DNESTORA_WERROR=ON -DNESTORA_BUILD_TESTS=ON -DNESTORA_COVERAGE=ON
tools/static-checks.sh "$build_dir"
# Counters from an earlier run would add up with this one's.
find "$build_dir" -name '*.gcda' -delete
status=0
(cd "$build_dir" && ctest --output-on-failure --timeout 600 -j "$(nproc)") || status=$?
tools/coverage.sh "$build_dir"
exit "$status"
