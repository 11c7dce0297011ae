#!/usr/bin/env bash
# Installs what is missing, builds, and plays a scene: the service, a renderer, a tracker and a
# settings UI as processes of their own.
set -euo pipefail
source "$(dirname "$0")/scripts/common.sh"

usage() {
    cat <<'EOF'
usage: ./run.sh [--serve [ARG...]] [--help]

Without arguments: builds the project and plays a scene from life on the sample device in
examples/device/, telling who told whom what.

  --serve [ARG...]  starts the service on a copy of the sample device and serves until Ctrl-C; further
                    arguments go to sonoreld
EOF
}

mode=play
case ${1:-} in
    "") ;;
    --serve)
        mode=serve
        shift
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

install_packages build
configure_and_build release sonoreld sonorelctl sonorel_service example_renderer example_tracker
bin=$SONOREL_TOP/build/release/bin
export PATH=$bin:$PATH

if [ "$mode" = serve ]; then
    root=${SONOREL_DEVICE_ROOT:-${TMPDIR:-/tmp}/sonorel-device-$(id -u)}
    [ -d "$root" ] || cp -r "$SONOREL_TOP/examples/device" "$root"
    say "Serving the device in $root; try: $bin/sonorelctl list"
    exec sonoreld --root "$root" "$@"
fi
exec "$SONOREL_TOP/examples/scene/play.sh"
