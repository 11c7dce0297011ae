#!/usr/bin/env bash
# Formatting, layering, banned calls, build lists and shell scripts.
set -euo pipefail
source "$(dirname "$0")/common.sh"
cd "$SONOREL_TOP"

failed=0
complain() {
    printf '%s\n' "$1" >&2
    failed=1
}

sources() { git ls-files --cached --others --exclude-standard "$@"; }
mapfile -t cpp < <(sources '*.cpp' '*.h')

clang-format --dry-run --Werror "${cpp[@]}" || complain "clang-format: run clang-format -i on the files above"

# Who may include whom.
service_folders=(service policy meta mss game params)
hits=$(grep -nE '#include *["<](\.\./)*platform/' -r "${service_folders[@]}" || true)
[ -z "$hits" ] || complain "layering: service folders name platform headers by the platform's names only:
$hits"
hits=$(grep -n 'platform/' Android.bp || true)
[ -z "$hits" ] || complain "layering: Android.bp names a folder of the host platform:
$hits"
hits=$(grep -nE '#include *["<](service|policy|meta|mss|game|params|host|tools)/' -r platform || true)
[ -z "$hits" ] || complain "layering: platform/ includes nothing of the service:
$hits"
hits=$(grep -lE '#include "service/SonorelService\.h"' -r policy meta mss game params |
    grep -vE '/(SonorelService[A-Za-z]*|MetaAudioThread)\.cpp$' || true)
[ -z "$hits" ] || complain "layering: owned types do not know the service class:
$hits"
hits=$(grep -nE '#include *["<](service|meta|mss|game|params)/' -r host tools || true)
[ -z "$hits" ] || complain "layering: host/ and tools/ reach the service through its interface only:
$hits"
layers=platform/binder/transport
hits=$(grep -n '#include "\.\./' -r $layers/connection || true
    grep -n '#include "\.\./\(calls/\|Transport\)' -r $layers/peers || true
    grep -n '#include "\.\./Transport' -r $layers/calls || true)
[ -z "$hits" ] || complain "layering: a layer of the transport includes those below it only:
$hits"

# Banned calls in what ships, each with what to use instead.
mapfile -t shipped < <(printf '%s\n' "${cpp[@]}" | grep -vE '^(tests|bench|fuzz)/')
ban() {
    local found
    found=$(grep -nE "$1" "${shipped[@]}" | grep -v 'NOLINT' || true)
    [ -z "$found" ] || complain "banned: $2
$found"
}
ban '\bstd::sto(i|l|ll|f|d)\(' 'std::stoX throws; use std::from_chars'
ban '\b(sprintf|strcpy|strcat|gets)\(' 'unbounded copy; use snprintf or std::string'
ban '\bsp<[A-Za-z:]+>::make\b' 'not in every platform release; write new T'
ban '\bsystem\(' 'no shell from code'

# The service's source list stands twice, for CMake and for a platform tree.
list_cmake() { grep -ohE '[A-Za-z/.]+\.cpp' service/CMakeLists.txt policy/CMakeLists.txt | xargs -n1 basename | sort; }
list_tree() { grep -ohE '"[A-Za-z/]+\.cpp"' Android.bp | tr -d '"' | xargs -n1 basename | sort; }
if ! diff <(list_cmake) <(list_tree) >&2; then
    complain "build lists: Android.bp (>) and the CMake lists (<) name different sources"
fi

mapfile -t scripts < <(sources '*.sh' .ci/run)
shellcheck -x -P SCRIPTDIR -P scripts "${scripts[@]}" || complain "shellcheck: see above"

[ "$failed" -eq 0 ] || fail "style checks failed"
echo "Style checks passed: ${#cpp[@]} C++ files, ${#scripts[@]} scripts."
