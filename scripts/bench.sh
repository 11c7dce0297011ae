#!/usr/bin/env bash
# bench.sh [NAME...]: builds and runs the benchmarks; each prints its figures as ratios to a peer
# measured in the same run.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$SONOREL_TOP"
configure_and_build release
if [ $# -gt 0 ]; then
    names=("$@")
else
    mapfile -t names < <(find build/release/bin -name '*bench*' -printf '%f\n' | sort)
fi
[ ${#names[@]} -gt 0 ] || fail "no benchmarks were built"
for name in "${names[@]}"; do
    say "$name"
    "build/release/bin/$name"
done
