#!/usr/bin/env bash
# clang-tidy over the project's own sources (not the tests), or over the files named.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$SONOREL_TOP"
configure_and_build analysis
if [ $# -gt 0 ]; then
    files=("$@")
else
    mapfile -t files < <(git ls-files 'service/*.cpp' 'policy/*.cpp' 'meta/*.cpp' 'mss/*.cpp' \
        'game/*.cpp' 'params/*.cpp' 'platform/*.cpp' 'host/*.cpp' 'tools/*.cpp')
fi
say "clang-tidy over ${#files[@]} files"
printf '%s\n' "${files[@]}" | xargs -P 2 -n 4 clang-tidy -p build/analysis --quiet 2>/dev/null ||
    fail "clang-tidy found something"
echo "clang-tidy is clean."
