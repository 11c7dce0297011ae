#!/usr/bin/env bash
# fuzz.sh [SECONDS] [NAME...]: runs the fuzzers, each for SECONDS (60), from its seeds in the tree.
# New finds that crash are left beside the seeds as crash-*: fix the fault and keep the file.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$SONOREL_TOP"
seconds=${1:-60}
shift || true
configure_and_build fuzz
if [ $# -gt 0 ]; then
    names=("$@")
else
    mapfile -t names < <(find build/fuzz/bin -name '*_fuzzer' -printf '%f\n' | sort)
fi
[ ${#names[@]} -gt 0 ] || fail "no fuzzers were built"
for name in "${names[@]}"; do
    seeds=$(find fuzz -type d -path "*/corpus/$name" | head -n 1)
    work=$(mktemp -d)
    say "Fuzzing $name for $seconds s (seeds: ${seeds:-none})"
    "build/fuzz/bin/$name" -max_total_time="$seconds" -print_final_stats=1 -rss_limit_mb=2048 -timeout=10 \
        -artifact_prefix="${seeds:-$work}/" "$work" ${seeds:+"$seeds"} 2>"$work.log" || {
        tail -n 40 "$work.log" >&2
        fail "$name found a fault"
    }
    grep -E 'stat::number_of_executed_units|stat::peak_rss_mb' "$work.log"
    rm -rf "$work" "$work.log"
done
echo "${#names[@]} fuzzers ran clean."
