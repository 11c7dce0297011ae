#!/usr/bin/env bash
# Line coverage of the service folders by the whole test suite.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$SONOREL_TOP"
configure_and_build coverage
find build/coverage -name '*.gcda' -delete
ctest --test-dir build/coverage --output-on-failure --no-tests=error -LE soak -j 2 >/dev/null ||
    fail "tests failed in the coverage build"
gcovr --root . --object-directory build/coverage --filter '(service|policy|meta|mss|game|params)/' \
    --exclude-directories '.*/CMakeFiles/[0-9.]+' --gcov-ignore-parse-errors --print-summary --sort-uncovered
