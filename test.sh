#!/usr/bin/env bash
# Installs what is missing, builds and runs every check and test.
set -euo pipefail
source "$(dirname "$0")/scripts/common.sh"

usage() {
    cat <<'EOF'
usage: ./test.sh [--long] [--only STEP[,STEP...]] [--list] [--help]

Builds the project and runs its checks and tests; the exit status is 0 when all of them pass.

  --only STEPS  run these steps alone
  --list        name the steps
  --long        longer soaks, every fuzzer for 60 s, coverage and benchmarks (about an hour)
EOF
}

# name: what it does
steps=(
    "style: formatting, layering, banned calls, scripts"
    "interface: the interface definitions against their frozen dump"
    "release: optimised build and all tests"
    "asan: all tests under address and undefined-behaviour sanitizer"
    "tsan: all tests under the thread sanitizer, built with clang's thread-safety analysis"
)
long_steps=(
    "tidy: clang-tidy over all sources"
    "fuzz: every fuzzer for 60 s"
    "soak: long kill and storm tests"
    "bench: all benchmarks"
    "coverage: line coverage of the service folders"
)

long=0
only=""
while [ $# -gt 0 ]; do
    case $1 in
        --long) long=1 ;;
        --only)
            [ $# -ge 2 ] || fail "--only needs a list of steps"
            only=$2
            shift
            ;;
        --list)
            printf '%s\n' "${steps[@]}"
            printf '%s (--long)\n' "${long_steps[@]}"
            exit 0
            ;;
        -h | --help)
            usage
            exit 0
            ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
    shift
done

run_tests() {
    local preset=$1
    configure_and_build "$preset"
    say "Tests ($preset)"
    # Soaks have a step of their own.
    ctest --test-dir "$SONOREL_TOP/build/$preset" --output-on-failure --no-tests=error -LE soak -j 2
}

step_style() { "$SONOREL_TOP/scripts/check-style.sh"; }
step_interface() { "$SONOREL_TOP/scripts/check-interface.sh"; }
step_release() { run_tests release; }
step_asan() { run_tests asan; }
step_tsan() { TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_tests tsan; }
step_tidy() { "$SONOREL_TOP/scripts/check-tidy.sh"; }
step_fuzz() { "$SONOREL_TOP/scripts/fuzz.sh" 60; }
step_soak() {
    configure_and_build release
    ctest --test-dir "$SONOREL_TOP/build/release" --output-on-failure --no-tests=error -L soak
}
step_bench() { "$SONOREL_TOP/scripts/bench.sh"; }
step_coverage() { "$SONOREL_TOP/scripts/coverage.sh"; }

names=()
if [ -n "$only" ]; then
    IFS=, read -r -a names <<<"$only"
else
    for step in "${steps[@]}"; do names+=("${step%%:*}"); done
    if [ "$long" -eq 1 ]; then
        for step in "${long_steps[@]}"; do names+=("${step%%:*}"); done
    fi
fi
for name in "${names[@]}"; do
    declare -F "step_$name" >/dev/null || fail "no step named $name (see ./test.sh --list)"
done

install_packages build test
started=$SECONDS
for name in "${names[@]}"; do
    say "Step $name"
    began=$SECONDS
    "step_$name"
    say "Step $name passed in $((SECONDS - began)) s"
done
say "All ${#names[@]} steps passed in $((SECONDS - started)) s"
