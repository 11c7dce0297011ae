#!/usr/bin/env bash
# Builds and runs the benchmarks, of this tree alone or beside those of another revision.
set -euo pipefail
source "$(dirname "$0")/common.sh"

usage() {
    cat <<'USAGE'
usage: scripts/bench.sh [NAME...]
       scripts/bench.sh --against REV [--rounds N] [NAME...]

Builds and runs these benchmarks, or all; each prints its figures as ratios to a peer measured in
the same run. A NAME may carry options of the program: "binder_bench free --calls 500".

  --against REV  build revision REV under build/against too, run each benchmark of both in turns,
                 and print for each figure the median here, the median there and their ratio
  --rounds N     runs of each in that comparison (default 5)
USAGE
}

revision="" rounds="" names=()
while [ $# -gt 0 ]; do
    case $1 in
        --against | --rounds)
            [ $# -ge 2 ] || fail "$1 needs a value"
            if [ "$1" = --against ]; then revision=$2; else rounds=$2; fi
            shift
            ;;
        -h | --help) usage && exit 0 ;;
        -*) fail "no option $1 (see --help)" ;;
        *) names+=("$1") ;;
    esac
    shift
done
[ -n "$revision" ] || [ -z "$rounds" ] || fail "--rounds goes with --against"
[[ ${rounds:=5} =~ ^[1-9][0-9]*$ ]] || fail "--rounds needs a number above 0, not $rounds"

# All targets when no benchmark is named: then what was built tells their names.
cd "$SONOREL_TOP"
targets=("${names[@]%% *}")
built_benchmarks() { find "$1/build/release/bin" -name '*bench*' -printf '%f\n' | sort; }
configure_and_build release "${targets[@]}"

if [ -z "$revision" ]; then
    [ ${#names[@]} -gt 0 ] || mapfile -t names < <(built_benchmarks .)
    [ ${#names[@]} -gt 0 ] || fail "no benchmarks were built"
    for name in "${names[@]}"; do
        say "$name"
        read -r -a words <<<"$name"
        "build/release/bin/${words[0]}" "${words[@]:1}"
    done
    exit 0
fi

commit=$(git rev-parse --quiet --verify --short "$revision^{commit}") || fail "no revision $revision"
there=$SONOREL_TOP/build/against/$commit
if [ ! -e "$there/.git" ]; then
    git worktree prune # after a removed build folder
    git worktree add --quiet --detach "$there" "$commit" || fail "cannot check out $commit"
fi
say "Revision $commit"
# In the way of that revision, and as its own top folder.
bash -euc '. "$0/scripts/common.sh" && configure_and_build release "$@"' "$there" "${targets[@]}" ||
    fail "$commit cannot be built"
if [ ${#names[@]} -eq 0 ]; then
    mapfile -t names < <(comm -12 <(built_benchmarks .) <(built_benchmarks "$there"))
fi
[ ${#names[@]} -gt 0 ] || fail "no benchmark was built of both"

# Both of these turn what a program printed into lines "FIGURE<tab>VALUE".
read_binder_table() {
    awk -v OFS='\t' '
        /: [0-9]+ bytes, microseconds/ { mode = substr($0, 1, index($0, ":") - 1); next }
        { what = substr($0, 1, 22); sub(/ +$/, "", what); what = mode ", " what }
        / samples\)$/ {
            split(substr($0, 23), value, " ")
            split("raw_p50_us raw_p99_us p50_us p99_us p50/raw p99/raw", title, " ")
            for (i = 1; i <= 6; ++i) print what ": " title[i], value[i]
        }
        / million a second / {
            gsub(/[^0-9.]+/, " "); split(substr($0, 2), value, " ")
            split("raw_million/s million/s rate/raw", title, " ")
            for (i = 1; i <= 3; ++i) print what ": " title[i], value[i]
        }' "$1"
}
read_json() {
    jq -r '["family_index", "per_family_instance_index", "repetitions", "repetition_index", "threads",
            "iterations", "cpu_time"] as $skipped | .benchmarks[] |
        (.run_name | gsub("/(iterations:[0-9]+|real_time)"; "")) as $name | .time_unit as $unit |
        del(.[$skipped[]]) | to_entries[] | select(.value | type == "number") |
        "\($name): \(if .key == "real_time" then "time_\($unit)" else .key end)\t\(.value)"' "$1"
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# run_once SIDE TOP NAME: appends lines "SIDE<tab>FIGURE<tab>VALUE" to the figures.
run_once() {
    local words reader=read_json file=$scratch/json
    read -r -a words <<<"$3"
    if [ "${words[0]}" = binder_bench ]; then
        reader=read_binder_table file=$scratch/output
    else
        words+=("--benchmark_out=$file" --benchmark_out_format=json)
    fi
    "$2/build/release/bin/${words[0]}" "${words[@]:1}" >"$scratch/output" 2>"$scratch/errors" || {
        cat "$scratch/output" "$scratch/errors" >&2
        fail "$3 failed ($1)"
    }
    "$reader" "$file" >"$scratch/read"
    [ -s "$scratch/read" ] || fail "$3 printed no figures ($1)"
    sed "s/^/$1\t/" "$scratch/read" >>"$scratch/figures"
}

# Lines "FIGURE<tab>HERE<tab>THERE<tab>RATIO" of what both sides printed; no ratio to nothing.
medians() {
    jq -rRn 'def median: sort | (.[(length - 1) / 2 | floor] + .[length / 2 | floor]) / 2;
        def of(side): map(select(.[0] == side)[2] | tonumber);
        [inputs / "\t"] | group_by(.[1])[] | .[0][1] as $figure | of("here") as $here |
        of("there") as $there | select(($here | length) > 0 and ($there | length) > 0) |
        ($here | median) as $here | ($there | median) as $there |
        [$figure, $here, $there, (if $there == 0 then "nan" else $here / $there end)] | @tsv' \
        "$scratch/figures"
}

for name in "${names[@]}"; do
    say "$name, $rounds rounds of here and $commit"
    : >"$scratch/figures"
    for ((round = 1; round <= rounds; ++round)); do
        printf '%s: round %d of %d\n' "$name" "$round" "$rounds" >&2
        run_once here "$SONOREL_TOP" "$name"
        run_once there "$there" "$name"
    done
    printf '%-60s %12s %12s %12s\n' '' here "$commit" ratio
    medians | while IFS=$'\t' read -r figure mine other ratio; do
        printf '%-60s %12.4g %12.4g %12.3f\n' "$figure" "$mine" "$other" "$ratio"
    done
done
