#!/usr/bin/env bash
# Prints one line: the line coverage of App/ and Platform/ gathered by the last test run in the
# given build folder (built with -DNESTORA_COVERAGE=ON).
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build-tests}
# gcovr replaces its output file rather than writing into it, so the report goes to a file of
# its own (never /dev/null, which it would turn into a regular file).
report=$(mktemp)
trap 'rm -f "$report"' EXIT
gcovr --root . --filter 'App/' --filter 'Platform/' --object-directory "$build_dir" \
  --gcov-ignore-parse-errors --print-summary --output "$report" "$build_dir" |
  sed -n 's/^lines: *\(.*\)$/Line coverage of App\/ and Platform\/: \1/p'
