# Shared by run.sh, test.sh and the checks: sourced, never run.
# shellcheck shell=bash

SONOREL_TOP=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Lets a compiler cache serve another clone of the same sources.
export CCACHE_BASEDIR=$SONOREL_TOP CCACHE_NOHASHDIR=1

say() { printf '\033[1m== %s\033[0m\n' "$*"; }

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# install_packages KIND...: installs what packages.txt lists under these kinds and is missing.
install_packages() {
    local kind names missing=()
    for kind in "$@"; do
        names=$(sed -n "s/^$kind: //p" "$SONOREL_TOP/packages.txt")
        for name in $names; do
            dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null | grep -qx installed ||
                missing+=("$name")
        done
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "Installing ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "these Debian packages are missing and need root: ${missing[*]}"
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq || fail "apt-get update failed"
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
        fail "could not install ${missing[*]}"
}

# configure_and_build PRESET [TARGET...]: quick when nothing changed.
configure_and_build() {
    local preset=$1
    shift
    local targets=()
    [ $# -gt 0 ] && targets=(--target "$@")
    say "Building ($preset)"
    (cd "$SONOREL_TOP" && cmake --preset "$preset" -Wno-dev >"/tmp/sonorel-configure-$$.log" 2>&1) || {
        cat "/tmp/sonorel-configure-$$.log" >&2
        fail "cmake --preset $preset failed"
    }
    rm -f "/tmp/sonorel-configure-$$.log"
    cmake --build "$SONOREL_TOP/build/$preset" "${targets[@]}" || fail "the $preset build failed"
}
