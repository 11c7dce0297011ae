#!/usr/bin/env bash
# The interface definitions must say exactly what their frozen dump says: order, names, types,
# directions, defaults and numbers. `--freeze` writes the dump anew.
set -euo pipefail
source "$(dirname "$0")/common.sh"

cd "$SONOREL_TOP"
frozen=interfaces/frozen
dump=$(mktemp -d)
trap 'rm -rf "$dump"' EXIT
aidl --dumpapi --structured -I interfaces --out="$dump" interfaces/qelto/halvend/*.aidl

if [ "${1:-}" = --freeze ]; then
    rm -rf "$frozen"
    cp -r "$dump" "$frozen"
    say "Froze the interface in $frozen"
    exit 0
fi
# The compiler's own check names what broke; the comparison also sees what it would let pass.
aidl --checkapi --structured "$frozen" "$dump" || fail "the interface is no longer compatible with $frozen"
diff -ru "$frozen" "$dump" || fail "the interface differs from $frozen"
echo "The interface is as frozen."
